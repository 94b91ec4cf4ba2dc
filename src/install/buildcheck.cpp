// SPDX-License-Identifier: MIT
#include "install/buildcheck.h"

#include "model/names.h"
#include "model/versioncomparison.h"
#include "os/localization.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

QString buildOf(const TXBundle &bundle) { return bundle.infoString(u"CFBundleVersion"_s); }

/// The name of a build in a message.
QString shown(const QString &build) { return build.isEmpty() ? u"?"_s : build; }

} // namespace

QString installedBuild() {
    const TXUpdateHost *host = TXUpdateHost::host();
    const bool pretends = host->version() != buildOf(host->bundle());
    const QString onDisk = pretends ? QString() : buildOf(TXBundle(host->bundle().bundlePath()));
    return onDisk.isNull() ? host->version() : onDisk;
}

TXError checkUnpackedBuild(const QString &announced, const QString &application) {
    const QString unpacked = buildOf(TXBundle(application));
    const QString installed = installedBuild();
    const bool isAnnounced =
        !announced.isEmpty() && !unpacked.isEmpty() && compareVersions(unpacked, announced) == 0;
    if (isAnnounced && isVersionNewer(unpacked, installed))
        return {};
    QString reason = localizedFormat(
        u"The update was announced as build %@, but the downloaded application is build %@."_s,
        {shown(announced), shown(unpacked)});
    // A publisher's check of all archives has no installed application.
    if (!installed.isEmpty())
        reason += u' ' + localizedFormat(u"Build %@ is installed."_s, {installed});
    return TXError(updaterErrorDomain, 0, u"The application update could not be installed."_s, reason,
                   localizedString(u"An update must be the announced build and newer than the installed one. "
                                   "Download the latest version from the website."_s));
}

} // namespace tx

// SPDX-License-Identifier: MIT
#include "model/host_p.h"

#include "base/shared.h"
#include "model/names.h"
#include "os/localization.h"
#include "os/osversion.h"
#include "os/services.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXLog.h>

#include <QFileInfo>
#include <QMutex>

#include <atomic>

using namespace Qt::StringLiterals;

namespace {

QMutex hostMutex;
TXUpdateHost *sharedHost = nullptr;

} // namespace

TXUpdateHost *TXUpdateHost::host() {
    const QMutexLocker locker(&hostMutex);
    if (!sharedHost) {
        sharedHost = new TXUpdateHost;
        sharedHost->init();
    }
    return sharedHost;
}

TXUpdateHost *TXUpdateHost::currentHost() { return host(); }

struct TXUpdateHost::Private {
    TXBundle bundle;
    QString systemVersionString;
    QString name;
    QString version;
    QString displayVersion;
};

TXUpdateHost::TXUpdateHost()
    : d(std::make_unique<Private>())
    , m_bundle(d->bundle)
    , m_systemVersionString(d->systemVersionString)
    , m_name(d->name)
    , m_version(d->version)
    , m_displayVersion(d->displayVersion) {}
TXUpdateHost::~TXUpdateHost() = default;

TXBundle TXUpdateHost::bundle() const { return d->bundle; }
QString TXUpdateHost::systemVersionString() const { return d->systemVersionString; }
QString TXUpdateHost::name() const { return d->name; }
QString TXUpdateHost::version() const { return d->version; }
QString TXUpdateHost::displayVersion() const { return d->displayVersion; }
void TXUpdateHost::setVersion(const QString &version) { d->version = version; }

void TXUpdateHost::init() {
    const tx::OSVersion os = tx::operatingSystemVersion();
    d->systemVersionString = u"%1.%2.%3"_s.arg(os.majorVersion).arg(os.minorVersion).arg(os.patchVersion);
    d->bundle = TXBundle::mainBundle();
    if (d->name.isNull())
        d->name = d->bundle.infoString(u"CFBundleDisplayName"_s);
    if (d->name.isNull())
        d->name = d->bundle.infoString(u"CFBundleName"_s);
    if (d->name.isNull())
        d->name = QFileInfo(d->bundle.bundlePath()).completeBaseName();
    if (d->version.isNull())
        d->version = d->bundle.infoString(u"CFBundleVersion"_s);
    if (d->displayVersion.isNull())
        d->displayVersion = d->bundle.infoString(u"CFBundleShortVersionString"_s);
    if (d->displayVersion.isNull())
        d->displayVersion = d->version;
}

bool TXUpdateHost::isRunningOnReadOnlyVolume() const {
    if (const auto volume = tx::services().volumeInfo(d->bundle.bundlePath()))
        return volume->isReadOnly;
    return tx::services().mountFlagsAreReadOnly(d->bundle.bundlePath());
}

bool TXUpdateHost::isRunningTranslocated() const {
    // Linux does not start applications from a hidden copy.
    return false;
}

bool TXUpdateHost::isBackgroundApplication() const {
    return tx::services().workspace->isBackgroundApplication();
}

quint32 TXUpdateOSVersion() {
    const tx::OSVersion os = tx::operatingSystemVersion();
    return tx::packVersion(os.majorVersion, os.minorVersion, os.patchVersion);
}

namespace tx {

void resetHost() {
    const QMutexLocker locker(&hostMutex);
    delete sharedHost;
    sharedHost = nullptr;
}

TXError hostIdentityError() {
    const TXUpdateHost *host = TXUpdateHost::host();
    const TXBundle bundle = host->bundle();
    if (!bundle.bundleIdentifier().isEmpty())
        return {};
    const bool hasInfo = !bundle.infoDictionary().isEmpty();
    const QString file =
        (hasInfo ? bundle.contentsPath() : bundle.bundlePath() + u"/Contents"_s) + u"/Info.plist"_s;
    return TXError(
        updaterErrorDomain, 0,
        localizedFormat(u"%@ cannot be updated because it does not say which application it is."_s,
                        {host->name()}),
        hasInfo ? localizedFormat(u"The file %@ has no CFBundleIdentifier."_s, {file})
                : localizedFormat(u"The file %@ does not exist or cannot be read."_s, {file}),
        hasInfo
            ? localizedString(u"Add the keys CFBundleIdentifier and CFBundleVersion to the file."_s)
            : localizedString(
                  u"Add the file with the keys CFBundleIdentifier and CFBundleVersion to the application."_s));
}

TX_SHARED TXError checkHostIdentity() {
    static std::atomic_flag hasWarned;
    const TXError error = hostIdentityError();
    if (error && !hasWarned.test_and_set())
        TXLog(TXLogLevelFailure, u"TXUpdate: %@ %@ %@"_s,
              {error.localizedDescription(), error.localizedFailureReason(),
               error.localizedRecoverySuggestion()});
    return error;
}

quint32 packVersion(int majorVersion, int minorVersion, int patchVersion) {
    constexpr unsigned mask = 0xFF;
    return (static_cast<unsigned>(majorVersion) & mask) << 16 |
           (static_cast<unsigned>(minorVersion) & mask) << 8 | (static_cast<unsigned>(patchVersion) & mask);
}

} // namespace tx

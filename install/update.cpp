// SPDX-License-Identifier: MIT
#include "install/update_p.h"

#include "core/names.h"
#include "feed/itemdate.h"
#include "platform/localization.h"
#include "platform/queues.h"
#include "platform/services.h"
#include "platform/userdefaults.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXVersionNumber.h>

using namespace Qt::StringLiterals;

namespace {

QUrl decoded(const QByteArray &url) { return url.isEmpty() ? QUrl() : QUrl::fromEncoded(url); }

/// Absent equals only absent.
bool same(const QString &a, const QString &b) { return a.isNull() == b.isNull() && a == b; }

} // namespace

TXUpdate::TXUpdate()
    : d(std::make_unique<Private>()) {}

TXUpdate::~TXUpdate() {
    if (const CompletionHandler handler = std::exchange(d->installErrorHandler, nullptr))
        tx::postToMain([handler] {
            handler(TXError(TXCocoaErrorDomain, TXErrorCancelled,
                            u"The application update could not be installed."_s,
                            u"The application released the update while it was being installed."_s,
                            u"Keep the update until its handler has been called."_s));
        });
}

QString TXUpdate::title() const { return d->title; }
QString TXUpdate::version() const { return d->version; }
QString TXUpdate::displayVersion() const { return d->displayVersion; }
QString TXUpdate::dateString() const { return d->dateString; }
QString TXUpdate::itemDescription() const { return d->itemDescription; }
QString TXUpdate::extra() const { return d->extra; }
QUrl TXUpdate::releaseNotesURL() const { return decoded(d->releaseNotesURL); }
QUrl TXUpdate::fileURL() const { return decoded(d->fileURL); }
QUrl TXUpdate::linkURL() const { return decoded(d->linkURL); }
QSizeF TXUpdate::preferredDisplaySize() const { return d->preferredDisplaySize; }
std::optional<TXUpdateItemConditions> TXUpdate::conditions() const { return d->conditions; }
bool TXUpdate::excludeFromAutoDownloading() const { return d->excludeFromAutoDownloading; }
bool TXUpdate::isDownloaded() const { return d->isDownloaded; }
bool TXUpdate::isDownloading() const { return d->isDownloading; }
QString TXUpdate::downloadPath() const { return d->downloadPath; }
double TXUpdate::downloadProgress() const { return d->downloadProgress; }
quint64 TXUpdate::downloadSize() const { return d->downloadSize; }
bool TXUpdate::isInstalling() const { return d->isInstalling; }
bool TXUpdate::isInstalled() const { return d->isInstalled; }

// Texts are stored without comparing first: null and empty compare equal but do not mean the same.
void TXUpdate::setTitle(const QString &title) {
    d->title = title;
    Q_EMIT itemChanged();
}

void TXUpdate::setVersion(const QString &version) {
    d->version = version;
    Q_EMIT itemChanged();
}

void TXUpdate::setDisplayVersion(const QString &version) {
    d->displayVersion = version;
    Q_EMIT itemChanged();
}

void TXUpdate::setDateString(const QString &text) {
    d->dateString = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setItemDescription(const QString &text) {
    d->itemDescription = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setExtra(const QString &text) {
    d->extra = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setReleaseNotesURL(const QUrl &url) {
    d->releaseNotesURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setFileURL(const QUrl &url) {
    d->fileURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setLinkURL(const QUrl &url) {
    d->linkURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setPreferredDisplaySize(const QSizeF &size) {
    tx::assign(*this, d->preferredDisplaySize, size, &TXUpdate::itemChanged);
}

void TXUpdate::setConditions(const std::optional<TXUpdateItemConditions> &conditions) {
    d->conditions = conditions;
    Q_EMIT itemChanged();
}

void TXUpdate::setExcludeFromAutoDownloading(bool exclude) {
    tx::assign(*this, d->excludeFromAutoDownloading, exclude, &TXUpdate::itemChanged);
}

void TXUpdate::setDownloaded(bool downloaded) {
    tx::assign(*this, d->isDownloaded, downloaded, &TXUpdate::isDownloadedChanged);
}

void TXUpdate::setDownloadPath(const QString &path) {
    tx::assign(*this, d->downloadPath, path, &TXUpdate::downloadPathChanged);
}

void TXUpdate::setInstalled(bool installed) {
    tx::assign(*this, d->isInstalled, installed, &TXUpdate::isInstalledChanged);
}

QDateTime TXUpdate::date() const {
    QDateTime result = tx::itemDateFromString(d->dateString);
    if (!result.isValid() && TXLogGetLevel() >= TXLogLevelDetail)
        TXLog(TXLogLevelDetail, u"Update date getObjectValue error:%@ -- %@ -- %@  ---> %@ %@"_s,
              {d->dateString, u"yyyy-MM-dd HH:mm:ss"_s, u"America/Los_Angeles"_s,
               u"The text is not of this form."_s, u"{0, %1}"_s.arg(d->dateString.size())});
    return result;
}

bool TXUpdate::isMajorVersion() const {
    const auto number = TXVersionNumber::versionNumberWithString(d->displayVersion);
    return number.minorVersion() == 0 && number.patchVersion() == 0;
}

bool TXUpdate::isMinorVersion() const {
    const auto number = TXVersionNumber::versionNumberWithString(d->displayVersion);
    return number.minorVersion() != 0 && number.patchVersion() == 0;
}

bool TXUpdate::isBugfixVersion() const {
    return TXVersionNumber::versionNumberWithString(d->displayVersion).patchVersion() != 0;
}

bool TXUpdate::canBeDownloaded() const { return !d->fileURL.isEmpty() && !downloadRefusal(); }

TXError TXUpdate::downloadRefusal() const {
    if (!d->isFromSecureFeed || d->fileURL.isEmpty() || fileURL().scheme() == u"https")
        return {};
    return TXError(tx::updaterErrorDomain, 0, u"The update could not be downloaded."_s,
                   tx::localizedString(
                       u"Its archive does not have a secure (https) address, although the list of updates "
                       "does: the archive could be replaced on the way."_s),
                   tx::localizedString(u"To update, go to the website and download the latest version "
                                       "directly."_s))
        .withUserInfo({{u"url"_s, fileURL().toString(QUrl::RemoveUserInfo)}});
}

bool TXUpdate::isEqual(const TXUpdate &other) const {
    const Private &o = *other.d;
    return same(d->title, o.title) && same(d->version, o.version) && same(d->dateString, o.dateString) &&
           same(d->itemDescription, o.itemDescription) && same(d->extra, o.extra) &&
           releaseNotesURL() == other.releaseNotesURL() && fileURL() == other.fileURL() &&
           linkURL() == other.linkURL() && d->conditions == o.conditions;
}

void TXUpdate::ignore() {
    (void)tx::UserDefaults::standard().setValue(
        TXUpdatePrefIgnoreVersionKey,
        QVariantMap{{u"version"_s, d->version}, {u"date"_s, tx::services().now()}});
}

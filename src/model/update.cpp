// SPDX-License-Identifier: MIT
#include "model/update_p.h"

#include "base/queues.h"
#include "model/conditions.h"
#include "model/feedentry.h"
#include "model/feedvalues.h"
#include "model/hosttrust.h"
#include "model/itemdate.h"
#include "model/names.h"
#include "os/localization.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXVersionNumber.h>

using namespace Qt::StringLiterals;
using Member = tx::FeedEntry::Member;

namespace {

constexpr qsizetype longestInLog = 1000;

QByteArray address(const tx::PackedEntry &packed, Member member) {
    return tx::encodedUrlFromFeedText(packed.read().bytes(member));
}

QUrl decoded(const QByteArray &url) { return url.isEmpty() ? QUrl() : QUrl::fromEncoded(url); }

/// An absent value equals only an absent one.
bool same(const QString &a, const QString &b) { return a.isNull() == b.isNull() && a == b; }

} // namespace

TXUpdate::Content::Content() = default;
TXUpdate::Content::~Content() = default;

TXUpdate::Private *TXUpdate::Content::operator->() const {
    if (!all) {
        all = std::make_unique<Private>();
        static_cast<tx::UpdateFields &>(*all) = tx::fieldsFrom(packed);
        packed = {};
    }
    return all.get();
}

TXUpdate::TXUpdate() = default;

TXUpdate::~TXUpdate() {
    if (const CompletionHandler handler =
            d.all ? std::exchange(d.all->installErrorHandler, nullptr) : nullptr)
        tx::postToMain([handler] {
            handler(TXError(TXCocoaErrorDomain, TXErrorCancelled,
                            u"The application update could not be installed."_s,
                            u"The application released the update while it was being installed."_s,
                            u"Keep the update until its handler has been called."_s));
        });
}

// Requesting one of these creates nothing permanent.
QString TXUpdate::title() const { return d.all ? d.all->title : d.packed.read().text(Member::Title); }
QString TXUpdate::version() const { return d.all ? d.all->version : d.packed.read().text(Member::Build); }
QString TXUpdate::displayVersion() const {
    if (d.all)
        return d.all->displayVersion;
    const tx::FeedEntry entry = d.packed.read();
    return entry.text(entry.has(Member::Version) ? Member::Version : Member::Build);
}
QString TXUpdate::dateString() const {
    return d.all ? d.all->dateString : d.packed.read().text(Member::Date);
}
QString TXUpdate::itemDescription() const {
    return d.all ? d.all->itemDescription : d.packed.read().text(Member::Description);
}
QString TXUpdate::extra() const { return d.all ? d.all->extra : d.packed.read().text(Member::Extra); }
QUrl TXUpdate::releaseNotesURL() const {
    return decoded(d.all ? d.all->releaseNotesURL : address(d.packed, Member::ReleaseNotesURL));
}
QUrl TXUpdate::fileURL() const {
    return decoded(d.all ? d.all->fileURL : address(d.packed, Member::DownloadURL));
}
QUrl TXUpdate::linkURL() const {
    return decoded(d.all ? d.all->linkURL : address(d.packed, Member::WebpageURL));
}
QSizeF TXUpdate::preferredDisplaySize() const {
    return d.all ? d.all->preferredDisplaySize
                 : tx::sizeFromFeedText(d.packed.read().text(Member::PreferredDisplaySize));
}
std::optional<TXUpdateItemConditions> TXUpdate::conditions() const {
    if (d.all)
        return d.all->conditions;
    return d.packed.hasConditions ? std::optional(tx::conditionsFrom(d.packed.read())) : std::nullopt;
}
bool TXUpdate::excludeFromAutoDownloading() const {
    return d.all ? d.all->excludeFromAutoDownloading : tx::excludesFromAutoDownloading(d.packed.read());
}
bool TXUpdate::isDownloaded() const { return d.all && d.all->isDownloaded; }
bool TXUpdate::isDownloading() const { return d.all && d.all->isDownloading; }
QString TXUpdate::downloadPath() const { return d.all ? d.all->downloadPath : QString(); }
double TXUpdate::downloadProgress() const { return d.all ? d.all->downloadProgress : 0; }
quint64 TXUpdate::downloadSize() const { return d.all ? d.all->downloadSize : 0; }
bool TXUpdate::isInstalling() const { return d.all && d.all->isInstalling; }
bool TXUpdate::isInstalled() const { return d.all && d.all->isInstalled; }

// Strings are stored without comparing first: null and empty compare equal but have different meanings.
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
    const QString text = dateString();
    QDateTime result = tx::itemDateFromString(text);
    if (!result.isValid() && TXLogGetLevel() >= TXLogLevelDetail)
        TXLog(TXLogLevelDetail, u"Update date getObjectValue error:%@ -- %@ -- %@  ---> %@ %@"_s,
              {text.left(longestInLog), u"yyyy-MM-dd HH:mm:ss"_s, u"America/Los_Angeles"_s,
               u"The text is not of this form."_s, u"{0, %1}"_s.arg(text.size())});
    return result;
}

bool TXUpdate::isMajorVersion() const {
    const auto number = TXVersionNumber::versionNumberWithString(displayVersion());
    return number.minorVersion() == 0 && number.patchVersion() == 0;
}

bool TXUpdate::isMinorVersion() const {
    const auto number = TXVersionNumber::versionNumberWithString(displayVersion());
    return number.minorVersion() != 0 && number.patchVersion() == 0;
}

bool TXUpdate::isBugfixVersion() const {
    return TXVersionNumber::versionNumberWithString(displayVersion()).patchVersion() != 0;
}

bool TXUpdate::canBeDownloaded() const { return !fileURL().isEmpty() && !downloadRefusal(); }

bool TXUpdate::isSigned() const {
    const auto trusted = tx::archiveTrustOf(*this);
    return trusted && *trusted;
}

TXError TXUpdate::downloadRefusal() const {
    const QUrl archive = fileURL();
    const bool isSecure = d.all ? d.all->isFromSecureFeed : d.packed.isFromSecureFeed;
    if (archive.isEmpty())
        return {};
    if (!isSecure || archive.scheme() == u"https") {
        const auto trusted = tx::archiveTrustOf(*this);
        return trusted ? TXError() : trusted.error();
    }
    return TXError(tx::updaterErrorDomain, 0, u"The update could not be downloaded."_s,
                   tx::localizedString(
                       u"Its archive does not have a secure (https) address, although the list of updates "
                       "does: the archive could be replaced on the way."_s),
                   tx::localizedString(u"To update, go to the website and download the latest version "
                                       "directly."_s))
        .withUserInfo({{u"url"_s, archive.toString(QUrl::RemoveUserInfo)}});
}

bool TXUpdate::isEqual(const TXUpdate &other) const {
    return same(title(), other.title()) && same(version(), other.version()) &&
           same(dateString(), other.dateString()) && same(itemDescription(), other.itemDescription()) &&
           same(extra(), other.extra()) && releaseNotesURL() == other.releaseNotesURL() &&
           fileURL() == other.fileURL() && linkURL() == other.linkURL() && conditions() == other.conditions();
}

void TXUpdate::ignore() {
    (void)tx::UserDefaults::standard().setValue(
        TXUpdatePrefIgnoreVersionKey,
        QVariantMap{{u"version"_s, version()}, {u"date"_s, tx::services().now()}});
}

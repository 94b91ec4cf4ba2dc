// SPDX-License-Identifier: MIT
#include "model/update_p.h"

#include "base/log.h"
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
using tx::UpdateState;
using Member = tx::FeedEntry::Member;

namespace {

constexpr qsizetype longestInLog = 1000;

QByteArray address(const TXUpdatePrivate &content, Member member) {
    return tx::encodedUrlFromFeedText(content.entry().bytes(member));
}

QUrl decoded(const QByteArray &url) { return url.isEmpty() ? QUrl() : QUrl::fromEncoded(url); }

/// An absent value equals only an absent one.
bool same(const QString &a, const QString &b) { return a.isNull() == b.isNull() && a == b; }

} // namespace

TXUpdate::TXUpdate()
    : TXUpdate(nullptr) {}
TXUpdate::TXUpdate(QObject *parent)
    : QObject(parent)
    , d(new TXUpdatePrivate) {}
TXUpdate::TXUpdate(TXUpdatePrivate &content)
    : d(&content) {}

TXUpdate::~TXUpdate() {
    if (const CompletionHandler handler =
            d->fields() ? std::exchange(d->fields()->installErrorHandler, nullptr) : nullptr)
        tx::postToMain([handler] {
            handler(TXError(TXCocoaErrorDomain, TXErrorCancelled,
                            u"The application update could not be installed."_s,
                            u"The application released the update while it was being installed."_s,
                            u"Keep the update until its handler has been called."_s));
        });
    if (d->isBesideItem())
        *d = TXUpdatePrivate(); // ends a download before the rest of this object is destroyed
    else
        delete d;
}

// Requesting one of these creates nothing permanent.
QString TXUpdate::title() const { return d->fields() ? d->fields()->title : d->entry().text(Member::Title); }
QString TXUpdate::version() const {
    return d->fields() ? d->fields()->version : d->entry().text(Member::Build);
}
QString TXUpdate::displayVersion() const {
    if (d->fields())
        return d->fields()->displayVersion;
    const tx::FeedEntry entry = d->entry();
    return entry.text(entry.has(Member::Version) ? Member::Version : Member::Build);
}
QString TXUpdate::dateString() const {
    return d->fields() ? d->fields()->dateString : d->entry().text(Member::Date);
}
QString TXUpdate::itemDescription() const {
    return d->fields() ? d->fields()->itemDescription : d->entry().text(Member::Description);
}
QString TXUpdate::extra() const { return d->fields() ? d->fields()->extra : d->entry().text(Member::Extra); }
QUrl TXUpdate::releaseNotesURL() const {
    return decoded(d->fields() ? d->fields()->releaseNotesURL : address(*d, Member::ReleaseNotesURL));
}
QUrl TXUpdate::fileURL() const {
    return decoded(d->fields() ? d->fields()->fileURL : address(*d, Member::DownloadURL));
}
QUrl TXUpdate::linkURL() const {
    return decoded(d->fields() ? d->fields()->linkURL : address(*d, Member::WebpageURL));
}
QSizeF TXUpdate::preferredDisplaySize() const {
    return d->fields() ? d->fields()->preferredDisplaySize
                       : tx::sizeFromFeedText(d->entry().text(Member::PreferredDisplaySize));
}
std::optional<TXUpdateItemConditions> TXUpdate::conditions() const {
    if (d->fields())
        return d->fields()->conditions;
    return d->hasConditions() ? std::optional(tx::conditionsFrom(d->entry())) : std::nullopt;
}
bool TXUpdate::excludeFromAutoDownloading() const {
    return d->fields() ? d->fields()->excludeFromAutoDownloading
                       : tx::excludesFromAutoDownloading(d->entry());
}
bool TXUpdate::isDownloaded() const { return tx::isDownloaded(tx::stateOf(*this)); }
bool TXUpdate::isDownloading() const { return tx::isDownloading(tx::stateOf(*this)); }
QString TXUpdate::downloadPath() const { return d->fields() ? d->fields()->downloadPath : QString(); }
double TXUpdate::downloadProgress() const { return d->fields() ? d->fields()->downloadProgress : 0; }
quint64 TXUpdate::downloadSize() const { return d->fields() ? d->fields()->downloadSize : 0; }
bool TXUpdate::isInstalling() const { return tx::isInstalling(tx::stateOf(*this)); }
bool TXUpdate::isInstalled() const { return tx::isInstalled(tx::stateOf(*this)); }

// Strings are stored without comparing first: null and empty compare equal but have different meanings.
void TXUpdate::setTitle(const QString &title) {
    d->details().title = title;
    Q_EMIT itemChanged();
}

void TXUpdate::setVersion(const QString &version) {
    d->details().version = version;
    Q_EMIT itemChanged();
}

void TXUpdate::setDisplayVersion(const QString &version) {
    d->details().displayVersion = version;
    Q_EMIT itemChanged();
}

void TXUpdate::setDateString(const QString &text) {
    d->details().dateString = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setItemDescription(const QString &text) {
    d->details().itemDescription = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setExtra(const QString &text) {
    d->details().extra = text;
    Q_EMIT itemChanged();
}

void TXUpdate::setReleaseNotesURL(const QUrl &url) {
    d->details().releaseNotesURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setFileURL(const QUrl &url) {
    d->details().fileURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setLinkURL(const QUrl &url) {
    d->details().linkURL = url.toEncoded();
    Q_EMIT itemChanged();
}

void TXUpdate::setPreferredDisplaySize(const QSizeF &size) {
    tx::assign(*this, d->details().preferredDisplaySize, size, &TXUpdate::itemChanged);
}

void TXUpdate::setConditions(const std::optional<TXUpdateItemConditions> &conditions) {
    d->details().conditions = conditions;
    Q_EMIT itemChanged();
}

void TXUpdate::setExcludeFromAutoDownloading(bool exclude) {
    tx::assign(*this, d->details().excludeFromAutoDownloading, exclude, &TXUpdate::itemChanged);
}

void TXUpdate::setDownloaded(bool downloaded) {
    if (downloaded == isDownloaded())
        return;
    // A refused change is logged.
    if (isInstalled())
        (void)tx::changeState(*this,
                              downloaded ? UpdateState::Installed : UpdateState::InstalledWithoutArchive,
                              tx::StateChanger::Host);
    else
        (void)tx::changeState(*this, downloaded ? UpdateState::Downloaded : UpdateState::Available,
                              tx::StateChanger::Host);
}

void TXUpdate::setDownloadPath(const QString &path) {
    tx::assign(*this, d->details().downloadPath, path, &TXUpdate::downloadPathChanged);
}

void TXUpdate::setInstalled(bool installed) {
    if (installed == isInstalled())
        return;
    if (isDownloaded())
        (void)tx::changeState(*this, installed ? UpdateState::Installed : UpdateState::Downloaded,
                              tx::StateChanger::Host);
    else
        (void)tx::changeState(*this,
                              installed ? UpdateState::InstalledWithoutArchive : UpdateState::Available,
                              tx::StateChanger::Host);
}

QDateTime TXUpdate::date() const {
    const QString text = dateString();
    QDateTime result = tx::itemDateFromString(text);
    if (!result.isValid() && tx::isLogged(TXLogLevelDetail))
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
    const bool isSecure = d->fields() ? d->fields()->isFromSecureFeed : d->isFromSecureFeed();
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

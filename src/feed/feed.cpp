// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdateFeed.h>

#include "base/format.h"
#include "base/loopbackname.h"
#include "feed/admission.h"
#include "feed/appcastreader.h"
#include "feed/feedlimits.h"
#include "feed/jsonreader.h"
#include "feed/requestbody.h"
#include "feed/servedtype.h"
#include "model/hosttrust.h"
#include "model/names.h"
#include "model/settings.h"
#include "net/networkthread.h"
#include "net/urlloading.h"
#include "os/localization.h"
#include "os/memory.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <atomic>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString releaseTrack = u"release"_s;

/// Once in a process: repeating it does not change the host's settings.
void warnAboutInsecureFeed(const QUrl &url) {
    static std::atomic_flag hasWarned;
    if (url.scheme() != u"http" || tx::isLoopbackName(url.host()) || hasWarned.test_and_set())
        return;
    TXLog(TXLogLevelFailure,
          u"TXUpdate: The feed's URL %@ is not secure: whoever controls the network in between can replace "
          "the update. Give the feed and its archives https URLs."_s,
          {url.toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery)});
}

/// Memory that the network and the reader free while they handle a long document would stay with their
/// threads, while other threads allocate more.
class MemoryOfLongFeed {
public:
    explicit MemoryOfLongFeed(const QByteArray &document)
        : m_isLong(document.size() > longFeed) {
        giveBack();
    }
    void giveBack() const {
        if (m_isLong)
            tx::returnFreedMemory();
    }

private:
    static constexpr qsizetype longFeed = 1 << 20;
    const bool m_isLong;
};

/// As "%@" of a format prints it.
QString textOrNull(const QString &text) { return text.isNull() ? u"(null)"_s : text; }

/// Whether the server refuses POST, as servers for static files do.
bool refusesPost(int status) {
    constexpr int methodNotAllowed = 405;
    constexpr int notImplemented = 501;
    return status == methodNotAllowed || status == notImplemented;
}

void warnAboutType(const QByteArray &contentType, const QByteArray &document) {
    if (const QString mistake = tx::mistakeInType(contentType, document); !mistake.isNull())
        TXLog(TXLogLevelFailure, u"TXUpdate: %@"_s, {mistake});
}

/// `repeatsWithoutBody`: repeats the request without the body if the server refuses POST.
void send(const TXUpdateFeedPtr &feed, const QByteArray &body, bool repeatsWithoutBody) {
    tx::UrlRequest request;
    request.url = feed->URLWithParameters();
    request.timeout = std::chrono::seconds(30);
    request.sizeLimit = tx::largestFeed();
    request.timeLimit = tx::services().feedTimeLimit;
    request.headers = {{"Cache-Control", "no-cache"}};
    request.body = body;
    if (!body.isNull()) {
        request.method = "POST";
        request.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    }
    tx::services().urlLoader->load(
        request, [feed, repeatsWithoutBody](tx::UrlResponse response, const TXError &error) {
            if (error) {
                feed->completedWithError(TXUpdateFeed::errorForLoading(error));
            } else if (repeatsWithoutBody && refusesPost(response.statusCode)) {
                TXLog(TXLogLevelNotice,
                      u"TXUpdate: The server of the feed answered %d to the POST with the system profile. "
                      "The feed is asked for once more without the profile."_s,
                      {QString::number(response.statusCode)});
                send(feed, {}, false);
            } else if (response.statusCode != 200) {
                feed->completedWithError(TXUpdateFeed::errorForHTTPStatus(response.statusCode));
            } else if (response.header("Content-Type") == "application/json") {
                feed->parseJSONData(std::exchange(response.body, {}));
            } else {
                warnAboutType(response.header("Content-Type"), response.body);
                feed->parseXMLData(std::exchange(response.body, {}));
            }
        });
}

} // namespace

struct TXUpdateFeed::Private {
    CompletionHandler handler;
    QUrl url;
    TXUpdateSystemProfilePtr profile;
    QVariantMap parameters;
    TrackMap tracks;
    std::optional<TXUpdatePtr> recommendedUpdate; ///< absent until requested
    std::atomic<bool> isFetched{false};           ///< or will be

    /// Verifies and parses a document, and then completes the feed.
    template <typename Reader>
    static void parse(TXUpdateFeed &feed, QByteArray data, tx::trust::FeedFormat format, Reader read);
    /// Completes the feed with the result of a parser.
    static void complete(TXUpdateFeed &feed, const tx::Result<TrackMap> &tracks);
};

QString EscapeForURL(const QString &text) {
    constexpr std::string_view reserved = "!*'();:@&=+$,/?%#[] ";
    constexpr char hexadecimal[] = "0123456789ABCDEF";
    QString result;
    const QByteArray utf8 = text.toUtf8();
    result.reserve(utf8.size());
    for (const char byte : utf8) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x80 && reserved.find(byte) == std::string_view::npos) {
            result += QLatin1Char(byte);
        } else {
            result += u'%';
            result += QLatin1Char(hexadecimal[value >> 4]);
            result += QLatin1Char(hexadecimal[value & 0x0F]);
        }
    }
    return result;
}

void TXUpdateFeed::fetchFeedAtURL(const QUrl &url, const QVariantMap &parameters,
                                  const TXUpdateSystemProfilePtr &profile, const CompletionHandler &handler) {
    std::make_shared<TXUpdateFeed>(url, parameters, profile, handler)->fetch();
}

TXUpdateFeed::TXUpdateFeed(const QUrl &url, const QVariantMap &parameters,
                           const TXUpdateSystemProfilePtr &profile, const CompletionHandler &handler)
    : d(std::make_shared<Private>()) {
    d->handler = handler;
    d->url = url;
    d->profile = profile;
    d->parameters = parameters;
}

TXUpdateFeed::TXUpdateFeed(std::shared_ptr<Private> content)
    : d(std::move(content)) {}

TXUpdateFeed::~TXUpdateFeed() = default;

QUrl TXUpdateFeed::URL() const { return d->url; }
std::optional<QList<TXUpdatePtr>> TXUpdateFeed::updates() const {
    const TXUpdateTrackPtr release = d->tracks.value(releaseTrack);
    return release ? std::optional(release->updates()) : std::nullopt;
}

TXUpdatePtr TXUpdateFeed::recommendedUpdate() const {
    if (!d->recommendedUpdate) {
        const TXUpdateTrackPtr release = d->tracks.value(releaseTrack);
        d->recommendedUpdate = release ? release->recommendedUpdate() : TXUpdatePtr();
    }
    return *d->recommendedUpdate;
}
TXUpdateFeed::TrackMap TXUpdateFeed::releaseTracks() const { return d->tracks; }
QString TXUpdateFeed::anonymousUUID() { return tx::anonymousUUID(); }

QUrl TXUpdateFeed::URLWithParameters() const {
    const TXUpdateHost *host = TXUpdateHost::host();
    QStringList items;
    for (const auto &[name, value] :
         {std::pair(u"appName"_s, host->name()), std::pair(u"appVersion"_s, host->version()),
          std::pair(u"anonymousUUID"_s, anonymousUUID())})
        items << tx::formatText(u"%@=%@"_s, {name, value.isNull() ? value : EscapeForURL(value)});
    const QString address = d->url.isEmpty() ? textOrNull({}) : d->url.toString(QUrl::FullyEncoded);
    const QString text = address + (d->url.hasQuery() ? u'&' : u'?') + items.join(u'&');
    const QUrl result(text, QUrl::StrictMode);
    return result.isValid() ? result : QUrl();
}

QByteArray TXUpdateFeed::requestBody() const {
    QVariantMap members =
        tx::requestMembers(d->profile ? d->profile->JSONDictionary() : QVariantMap(), d->parameters);
    if (members.isEmpty())
        return {};
    const TXUpdateHost *host = TXUpdateHost::host();
    members.insert(u"appName"_s, textOrNull(host->name()));
    members.insert(u"appVersion"_s, textOrNull(host->version()));
    members.insert(u"anonymousUUID"_s, anonymousUUID());
    return tx::jsonFromMembers(members);
}

TXUpdateFeedPtr TXUpdateFeed::owned() {
    if (TXUpdateFeedPtr self = weak_from_this().lock())
        return self;
    return TXUpdateFeedPtr(new TXUpdateFeed(d));
}

void TXUpdateFeed::fetch() {
    if (d->isFetched.exchange(true))
        return;
    if (const auto trust = tx::hostTrust(); !trust) {
        TXLog(TXLogLevelFailure, u"TXUpdate: No feed is asked for: %@"_s, {trust.error().toString()});
        tx::NetworkThread::instance().post([feed = owned(), error = trust.error()](QNetworkAccessManager &) {
            feed->completedWithError(error);
        });
        return;
    }
    warnAboutInsecureFeed(d->url);
    // A check must not fail because of a profile. It must because of parameters: without them the response
    // would be another one.
    const bool onlyProfile = d->profile && d->parameters.isEmpty();
    send(owned(), requestBody(), onlyProfile);
}

// The document is freed before its content is requested: both at once would take too much memory.

void TXUpdateFeed::parseJSONData(QByteArray data) {
    Private::parse(*this, std::move(data), tx::trust::FeedFormat::Json, tx::readJsonFeed);
}

void TXUpdateFeed::parseXMLData(QByteArray data) {
    Private::parse(*this, std::move(data), tx::trust::FeedFormat::Xml, tx::readAppcast);
}

template <typename Reader>
void TXUpdateFeed::Private::parse(TXUpdateFeed &feed, QByteArray data, tx::trust::FeedFormat format,
                                  Reader read) {
    const auto host = tx::hostTrust();
    const tx::Result<std::optional<tx::trust::FeedClaim>> claim =
        host ? tx::admitFeed(data, format, *host, tx::FeedMemory::Kept) : host.error();
    if (!claim) {
        TXLog(TXLogLevelFailure, u"TXUpdate: The feed is refused: %@"_s, {claim.error().toString()});
        feed.completedWithError(claim.error());
        return;
    }
    tx::ReaderContext context = tx::ReaderContext::forHost(feed.d->url);
    context.trust = host->keys ? &*host : nullptr;
    context.isSigned = claim->has_value();
    const MemoryOfLongFeed memory(data);
    const auto tracks = read(std::exchange(data, {}), context);
    memory.giveBack();
    complete(feed, tracks);
}

void TXUpdateFeed::Private::complete(TXUpdateFeed &feed, const tx::Result<TrackMap> &tracks) {
    if (!tracks) {
        TXLog(TXLogLevelDetail, u"%@"_s, {tracks.error().toString()});
        feed.completedWithError(errorForInvalidFormat());
        return;
    }
    feed.d->tracks = *tracks;
    feed.d->recommendedUpdate.reset();
    feed.completedWithError({});
}

void TXUpdateFeed::completedWithError(const TXError &error) {
    const CompletionHandler handler = std::exchange(d->handler, nullptr);
    if (handler)
        handler(owned(), error);
}

TXError TXUpdateFeed::errorForLoading(const TXError &error) {
    QString reason = error.localizedFailureReason();
    const TXError underlying = error.underlyingError();
    if (reason.isNull()) {
        if (!underlying.localizedDescription().isEmpty())
            reason = tx::localizedFormat(u"An error (%@) occurred during the download."_s,
                                         {underlying.localizedDescription()});
        else if (underlying)
            reason = tx::localizedFormat(u"An error (%@, %d) occurred during the download."_s,
                                         {underlying.domain(), QString::number(underlying.code())});
        else
            reason = tx::localizedString(u"An error occurred during the download."_s);
    }
    return TXError(tx::updaterErrorDomain, 0,
                   tx::localizedString(u"Could not check for updates because of a network error."_s), reason,
                   tx::localizedString(u"Try again, or check the website for updates."_s))
        .withUnderlyingError(error);
}

TXError TXUpdateFeed::errorForInvalidFormat() {
    return TXError(
        tx::updaterErrorDomain, 0,
        tx::localizedString(u"The update feed could not be processed. Check the website for updates."_s),
        tx::localizedString(u"The format of the update feed is invalid."_s));
}

TXError TXUpdateFeed::errorForHTTPStatus(int status) {
    return TXError(
        tx::updaterErrorDomain, 0,
        tx::localizedString(u"The update feed could not be retrieved. Check the website for updates."_s),
        tx::localizedFormat(u"An http status of %ld occurred when accessing the feed."_s,
                            {QString::number(status)}));
}

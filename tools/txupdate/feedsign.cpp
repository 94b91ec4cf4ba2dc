// SPDX-License-Identifier: MIT
#include "feed/appcastreader.h"
#include "feed/jsonreader.h"
#include "feed/jsonvalues.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "trust/encoding.h"
#include "trust/feedsigning.h"
#include "trust/freshness.h"
#include "txupdate/commands.h"
#include "txupdate/faults.h"
#include "txupdate/feedjson.h"
#include "txupdate/feedsigner.h"
#include "txupdate/feedsource.h"
#include "txupdate/signingkeys.h"
#include "txupdate/trustcommands.h"

#include <QFile>
#include <QRegularExpression>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iconv.h>
#include <optional>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using trust::FeedFormat;
using trust::VerifiedFeed;

const QString signatureTrack = u"signature"_s;

/// The same text in UTF-8; absent when it is not what `encoding` says, or that is not known.
std::optional<QByteArray> fromEncoding(const QByteArray &data, const QByteArray &encoding) {
    const iconv_t converter = iconv_open("UTF-8", encoding.constData());
    if (converter == iconv_t(-1)) // NOLINT: that is how it says so
        return std::nullopt;
    QByteArray input = data;
    QByteArray result;
    char *from = input.data();
    auto left = static_cast<size_t>(input.size());
    bool isGood = true;
    while (isGood && left > 0) {
        std::array<char, 4096> buffer{};
        char *to = buffer.data();
        size_t room = buffer.size();
        isGood = iconv(converter, &from, &left, &to, &room) != size_t(-1) || errno == E2BIG;
        result.append(buffer.data(), qsizetype(buffer.size() - room));
    }
    iconv_close(converter);
    if (!isGood)
        return std::nullopt;
    return result;
}

/// A feed's document in UTF-8.
Outcome<QByteArray> inUtf8(const QByteArray &data, FeedFormat format) {
    const QByteArray text = asUtf8(data); // by byte order marks, and by what JSON begins with
    if (format == FeedFormat::Json || text != data)
        return text;
    static const QRegularExpression declaration(
        u"^\\s*<\\?xml\\s[^>]*?encoding\\s*=\\s*[\"']([A-Za-z0-9._-]+)[\"']"_s);
    const QRegularExpressionMatch match = declaration.match(QString::fromLatin1(data.left(1024)));
    const QByteArray encoding = match.captured(1).toLatin1().toUpper();
    if (encoding.isEmpty() || encoding == "UTF-8")
        return data;
    const std::optional<QByteArray> converted = fromEncoding(data, encoding);
    if (!converted)
        return Fault{FaultKind::Input,
                     "the feed cannot be converted to UTF-8 from the encoding that it declares, " +
                         trust::shown(encoding.toStdString())};
    return *converted;
}

FeedFormat formatOf(bool isJson) { return isJson ? FeedFormat::Json : FeedFormat::Xml; }

/// As every application reads it, with entries for all systems and builds.
Outcome<TXUpdateFeed::TrackMap> read(const QByteArray &document, FeedFormat format) {
    ReaderContext context;
    context.now = services().now();
    context.keepsIrrelevant = true;
    const Result<TXUpdateFeed::TrackMap> tracks =
        format == FeedFormat::Json ? readJsonFeed(document, context) : readAppcast(document, context);
    if (!tracks)
        return Fault{FaultKind::Input,
                     "the feed cannot be read: " + tracks.error().localizedFailureReason().toStdString()};
    return *tracks;
}

/// Without tracks that hold nothing, of which signing can add one.
QJsonObject contentOf(TXUpdateFeed::TrackMap tracks) {
    for (auto it = tracks.begin(); it != tracks.end();) {
        if ((*it)->updates().isEmpty() && (*it)->posts().isEmpty())
            it = tracks.erase(it);
        else
            ++it;
    }
    return feedAsJson(tracks, {});
}

/// What a reader is given that knows of signatures.
QByteArray withoutFirstLine(QByteArray document) {
    const std::optional<trust::UnreadLine> line =
        trust::findUnreadLine({document.constData(), size_t(document.size())});
    if (!line)
        return document;
    const size_t at = trust::putBeginningBeforeBody(document.data(), line->format, line->bodyAt);
    return document.mid(qsizetype(at));
}

/// Whether readers of either kind see in the signed document what the original holds.
std::optional<Fault> compare(const QByteArray &original, const QByteArray &signedDocument,
                             FeedFormat format) {
    const Outcome<TXUpdateFeed::TrackMap> before = read(withoutFirstLine(original), format);
    if (!before)
        return before.fault();
    if (before->contains(signatureTrack))
        return Fault{FaultKind::Input,
                     "the feed has a track \"signature\" that is not in its first line. Remove it: "
                     "that name is for the signature"};
    for (const QByteArray &document : {signedDocument, withoutFirstLine(signedDocument)}) {
        const Outcome<TXUpdateFeed::TrackMap> after = read(document, format);
        if (!after)
            return Fault{FaultKind::Input, "once it is signed, " + after.fault().what};
        if (contentOf(*after) != contentOf(*before))
            return Fault{FaultKind::Input, "applications would see other entries in the signed feed"};
    }
    return std::nullopt;
}

Outcome<QByteArray> readFile(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Fault{FaultKind::File, u"%1: %2"_s.arg(path, file.errorString()).toStdString()};
    return file.readAll();
}

int modeOf(const QString &path) {
    struct stat info {};
    return stat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 0777U) : 0644;
}

const char *words(trust::Freshness freshness) {
    switch (freshness) {
    case trust::Freshness::Fresh:
    case trust::Freshness::Older:
        break;
    case trust::Freshness::AheadOfClock:
        return "the feed was signed more than a day ahead of this machine's clock. Set the clock; if it is "
               "right, "
               "the clock of the machine that signed was wrong: sign the feed again";
    case trust::Freshness::Expired:
        return "the signature of the feed has expired. Sign the feed again; if it should not have, look at "
               "this "
               "machine's clock";
    }
    return nullptr;
}

} // namespace

Outcome<trust::SignedFeedDocument> signDocument(const QByteArray &data, const trust::AppInfo &application,
                                                const QString &feedName,
                                                const std::vector<trust::SecretKey> &keys,
                                                std::optional<int> validDays) {
    const FeedFormat format = formatOf(!asUtf8(data).trimmed().startsWith('<'));
    const Outcome<QByteArray> document = inUtf8(data, format);
    if (!document)
        return document.fault();
    std::vector<const trust::SecretKey *> pointers;
    bool isKnown = !application.keys;
    for (const trust::SecretKey &key : keys) {
        pointers.push_back(&key);
        isKnown = isKnown || application.keys->feedKey(key.publicKey().number) != nullptr;
    }
    if (!isKnown)
        return Fault{FaultKind::Keys,
                     "none of these keys is one of the application's TXUpdatePublicKeys that sign feeds"};
    trust::FeedSigning signing;
    signing.bundle = application.bundle;
    signing.feed = feedName.isNull() ? application.feedName : feedName.toStdString();
    signing.now = services().now().toSecsSinceEpoch();
    signing.validDays = validDays;
    Outcome<trust::SignedFeedDocument> result =
        trust::signFeed({document->constData(), size_t(document->size())}, format, pointers, signing);
    if (!result)
        return result;
    if (const std::optional<Fault> different =
            compare(data, QByteArray::fromStdString(result->document), format))
        return *different;
    return result;
}

int feedSign(const FeedSignOptions &options) {
    const Outcome<trust::AppInfo> application = applicationOf(options.application);
    if (!application)
        return refuse(application.fault());
    const Outcome<QByteArray> data = readFile(options.feed);
    if (!data)
        return refuse(data.fault());
    const Outcome<std::vector<trust::SecretKey>> keys = openKeys(options.keys, options.passphrase);
    if (!keys)
        return refuse(keys.fault());
    const Outcome<trust::SignedFeedDocument> result =
        signDocument(*data, *application, options.feedName, *keys, options.validDays);
    if (!result)
        return refuse(result.fault());
    if (const TXError error = services().fileSystem->replaceFile(
            options.feed, QByteArray::fromStdString(result->document), modeOf(options.feed)))
        return refuse({FaultKind::File, error.localizedDescription().toStdString()});
    std::printf("%s is signed: %s\n", options.feed.toUtf8().constData(),
                trust::feedComment(result->claim).c_str());
    return ExitDone;
}

int feedVerify(const VerifyOptions &options) {
    const Outcome<trust::AppInfo> installed = verifierOf(options.bundle);
    if (!installed)
        return refuse(installed.fault());
    const Result<FeedSource> source = readSource({options.source, {}, {}, {}, {}, false, false, {}});
    if (!source) {
        printError(source.error(), false);
        return ExitFailed;
    }
    QByteArray document = source->data;
    const Outcome<VerifiedFeed> feed =
        VerifiedFeed::verify(*installed->keys, {document.data(), size_t(document.size())},
                             {installed->bundle, installed->feedName});
    if (!feed)
        return refuse(feed.fault());
    if (feed->format() != formatOf(source->isJson))
        return refuse({FaultKind::Input, "the feed is served with another type than its signed format has"});
    const int64_t now = trust::trustedNow(services().now().toSecsSinceEpoch(), installed->buildDate);
    if (const char *why = words(trust::judgeFreshness(feed->claim(), std::nullopt, now).freshness))
        return refuse({FaultKind::Mismatch, why});
    const Outcome<TXUpdateFeed::TrackMap> tracks =
        read(document.mid(qsizetype(feed->documentAt())), feed->format());
    if (!tracks)
        return refuse(tracks.fault());
    constexpr int64_t warningTime = 14 * trust::aDay;
    if (feed->claim().expires && *feed->claim().expires - now < warningTime)
        complain(u"warning: the signature expires in less than 14 days: sign the feed again"_s);
    std::printf("%s is signed: %s\n", options.source.toUtf8().constData(),
                trust::feedComment(feed->claim()).c_str());
    return ExitDone;
}

} // namespace tx::cli

// SPDX-License-Identifier: MIT
#include "publish/feedreplacement.h"

#include "feed/jsonreader.h"
#include "os/services.h"
#include "publish/faults.h"
#include "trust/firstline.h"

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

Fault input(const QString &what) { return {FaultKind::Input, what.toStdString()}; }

/// Parses the feed as applications do. `dropped` receives the entries that they would drop.
Verdict readAsApplications(QByteArray document, bool isSecure, QStringList &dropped) {
    if (const auto line = trust::findUnreadLine({document.constData(), size_t(document.size())}))
        document.remove(
            0, qsizetype(trust::putBeginningBeforeBody(document.data(), line->format, line->bodyAt)));
    ReaderContext context;
    context.now = services().now();
    context.keepsIrrelevant = true;
    context.isSecure = isSecure;
    context.skipped = [&dropped](const SkippedEntry &entry) {
        dropped << u"%1: %2"_s.arg(entry.track, entry.reason);
    };
    const auto tracks = readJsonFeed(document, context);
    if (!tracks)
        return input(u"applications could not read the feed: "_s + tracks.error().localizedFailureReason());
    return std::nullopt;
}

} // namespace

QUrl urlOf(const FeedPlace &place, const QString &name) {
    QUrl folder = place.base;
    if (!folder.path().endsWith(u'/'))
        folder.setPath(folder.path() + u'/');
    return folder.resolved(QUrl(u"./"_s + QString::fromLatin1(QUrl::toPercentEncoding(name))));
}

FeedReplacement::FeedReplacement(const FeedPlace &place, Target &target, StoredFeed before,
                                 FeedDocument document)
    : m_place(&place)
    , m_target(&target)
    , m_before(std::move(before))
    , m_document(std::move(document)) {}

Outcome<FeedReplacement> FeedReplacement::begin(const FeedPlace &place, Target &target) {
    if (Verdict refused = checkPublicUrl(place.base, u"the URL of the published files"_s))
        return *std::move(refused);
    if (Verdict refused = target.occupy())
        return *std::move(refused);
    Outcome<StoredFeed> before = target.readFeed(place.feed);
    if (!before)
        return before.fault();
    Outcome<FeedDocument> document = FeedDocument::parse(before->content.value_or(QByteArray()));
    if (!document)
        return Fault{document.fault().kind, place.feed.toStdString() + " at " +
                                                target.description().toStdString() + ": " +
                                                document.fault().what};
    if (document->claim() && !place.sign)
        return input(u"the feed is signed, and without a key it would lose its signature: name the key "
                     "with --key"_s);
    return FeedReplacement(place, target, *std::move(before), *std::move(document));
}

Verdict FeedReplacement::edit(const QString &track, const QList<QByteArray> &added,
                              const QList<qsizetype> &dropped) {
    Outcome<QByteArray> document = m_document.edited(track, added, dropped);
    if (document && m_place->sign)
        document = m_place->sign(*document);
    if (!document)
        return document.fault();
    const bool isSecure = m_place->base.scheme() == u"https";
    QStringList before;
    QStringList after;
    if (exists())
        (void)readAsApplications(*m_before.content, isSecure, before);
    if (Verdict refused = readAsApplications(*document, isSecure, after))
        return refused;
    // Entries that were dropped before this edit are not its fault.
    for (const QString &reason : after) {
        if (!before.removeOne(reason))
            return input(u"applications would drop the new entry: "_s + reason);
    }
    m_after = *document;
    return std::nullopt;
}

Verdict FeedReplacement::replace(Trace &trace) {
    const Outcome<StoredFeed> now = m_target->readFeed(m_place->feed);
    if (!now)
        return now.fault();
    if (now->content != m_before.content)
        return input(
            u"somebody else has changed %1 at %2 meanwhile. Nothing of it was replaced: run the same "
            "command again, which starts from what is there now"_s.arg(m_place->feed,
                                                                       m_target->description()));
    if (Verdict failed = m_target->replaceFeed(m_place->feed, m_after))
        return failed;
    trace.hasReplacedFeed = true;
    const Outcome<StoredFeed> after = m_target->readFeed(m_place->feed);
    if (!after)
        return after.fault();
    if (after->content != m_after)
        return input(
            u"the feed at %1 is not what was put there. Run the same command again; if nobody else "
            "publishes at the same time, the target changes what it is given"_s.arg(m_target->description()));
    return std::nullopt;
}

Verdict FeedReplacement::finishInterrupted() {
    if (!m_before.isHalfReplaced)
        return std::nullopt;
    return m_target->replaceFeed(m_place->feed, *m_before.content);
}

QStringList FeedReplacement::doubtsAboutServer() const {
    const QUrl url = urlOf(*m_place, m_place->feed);
    const QString address = url.toString(QUrl::RemoveUserInfo);
    const Outcome<FetchedPage> page = fetchPage(url);
    if (!page)
        return {QString::fromStdString(page.fault().what)};
    QStringList doubts;
    if (page->type != "application/json")
        doubts << u"%1 is served as \"%2\": applications take it for an appcast and cannot read it. Let the "
                  "server send exactly application/json"_s.arg(address, QString::fromLatin1(page->type));
    if (page->content != m_after)
        doubts << u"%1 is not the new feed yet. If a cache is in front of the target, keep feeds out of it "
                  "or for a minute at most"_s.arg(address);
    return doubts;
}

} // namespace tx::publishing

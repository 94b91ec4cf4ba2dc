// SPDX-License-Identifier: MIT
// feed_reader SMALL-FEED FEED: fetches both, as an application does, asks for all that the second one holds
// and for all that each item says, and prints "<KiB that this took at its peak> <number of items, or -1>
// <what is wrong>".
#include "base/queues.h"
#include "bench/peakmemory.h"

#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QCoreApplication>

#include <algorithm>

namespace {

struct Fetched {
    TXUpdateFeedPtr feed;
    TXError error;
};

Fetched fetch(const char *url) {
    Fetched result;
    TXUpdateFeed::fetchFeedAtURL(QUrl(QString::fromLocal8Bit(url)), {}, {},
                                 [&result](const TXUpdateFeedPtr &feed, const TXError &error) {
                                     result = {feed, error};
                                     tx::postToMain([] { QCoreApplication::exit(); });
                                 });
    QCoreApplication::exec();
    return result;
}

/// One text after the other, as a window shows them. The sum keeps all of them from being left out.
qsizetype readAll(const TXUpdate &update) {
    qsizetype sum = update.title().size();
    sum += update.version().size();
    sum += update.displayVersion().size();
    sum += update.dateString().size();
    sum += update.itemDescription().size();
    sum += update.extra().size();
    sum += update.releaseNotesURL().toString().size();
    sum += update.fileURL().toString().size();
    sum += update.linkURL().toString().size();
    sum += update.date().isValid() ? 1 : 0;
    sum += update.conditions() ? 1 : 0;
    sum += update.preferredDisplaySize().isEmpty() ? 0 : 1;
    sum += update.canBeDownloaded() ? 1 : 0;
    return sum + (update.excludeFromAutoDownloading() ? 1 : 0);
}
qsizetype readAll(const TXUpdatePost &post) {
    qsizetype sum = post.title().size();
    sum += post.postURL().toString().size();
    sum += post.dateString().size();
    sum += post.endDateString().size();
    sum += post.date().isValid() ? 1 : 0;
    sum += post.endDate().isValid() ? 1 : 0;
    sum += post.conditions() ? 1 : 0;
    sum += post.displayTime();
    return sum + (post.preferredDisplaySize().isEmpty() ? 0 : 1);
}

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    if (argc != 3)
        return 64;
    (void)fetch(argv[1]); // loads what every check needs
    resetPeakMemory();
    const long before = peakMemoryKiB();
    const Fetched fetched = fetch(argv[2]);
    qsizetype items = fetched.error ? -1 : 0;
    qsizetype characters = 0;
    constexpr qsizetype most = 1000;
    if (!fetched.error) {
        (void)fetched.feed->recommendedUpdate();
        for (const TXUpdateTrackPtr &track : fetched.feed->releaseTracks()) {
            const auto updates = track->updates();
            const auto posts = track->posts();
            items += updates.size() + posts.size();
            // Of very many any are as good as all.
            for (const TXUpdatePtr &update : updates.first(std::min<qsizetype>(updates.size(), most)))
                characters += readAll(*update);
            for (const TXUpdatePostPtr &post : posts.first(std::min<qsizetype>(posts.size(), most)))
                characters += readAll(*post);
        }
    }
    const QString why = fetched.error.localizedFailureReason();
    std::printf("%ld %lld %s (%lld characters)\n", peakMemoryKiB() - before, static_cast<long long>(items),
                why.toUtf8().constData(), static_cast<long long>(characters));
    return 0;
}

// SPDX-License-Identifier: MIT
// feed_reader SMALL-FEED FEED: fetches both, as an application does, asks for all that the second one holds,
// and prints "<KiB that this took at its peak> <number of items, or -1> <what is wrong>".
#include "bench/peakmemory.h"
#include "platform/queues.h"

#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QCoreApplication>

namespace {

struct Fetched {
    TXUpdateFeedPtr feed;
    TXError error;
};

Fetched fetch(const char *url) {
    Fetched result;
    TXUpdateFeed::fetchFeedAtURL(QUrl(QString::fromLocal8Bit(url)), {}, {},
                                 [&result](const TXUpdateFeedPtr &feed, const TXError &error) {
                                     // While the document is still there.
                                     if (!error) {
                                         for (const TXUpdateTrackPtr &track : feed->releaseTracks()) {
                                             (void)track->updates();
                                             (void)track->posts();
                                         }
                                     }
                                     result = {feed, error};
                                     tx::postToMain([] { QCoreApplication::exit(); });
                                 });
    QCoreApplication::exec();
    return result;
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
    if (!fetched.error) {
        (void)fetched.feed->recommendedUpdate();
        for (const TXUpdateTrackPtr &track : fetched.feed->releaseTracks())
            items += track->updates().size() + track->posts().size();
    }
    const QString why = fetched.error.localizedFailureReason();
    std::printf("%ld %lld %s\n", peakMemoryKiB() - before, static_cast<long long>(items),
                why.toUtf8().constData());
    return 0;
}

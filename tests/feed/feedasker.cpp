// SPDX-License-Identifier: MIT
// feed_asker FEED: asks for a feed as an application does whose system profile is due. Its log goes to
// standard error, as much of it as TXUPDATE_LOG_LEVEL says. Exit status: 0 for a feed, 1 for an error.
#include "base/queues.h"

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QCoreApplication>

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    if (argc != 2)
        return 64;
    TXUpdateFeed::fetchFeedAtURL(
        QUrl(QString::fromLocal8Bit(argv[1])), {},
        std::make_shared<TXUpdateSystemProfile>(TXUpdateSystemProfile::Contents::Empty),
        [](const TXUpdateFeedPtr &, const TXError &error) {
            tx::postToMain([failed = !error.isNull()] { QCoreApplication::exit(failed ? 1 : 0); });
        });
    return QCoreApplication::exec();
}

// SPDX-License-Identifier: MIT
// download_client URL [MINISIG]: downloads an update's archive as a host does, with progress, and prints the
// peak memory. MINISIG is a signature of build 2, as in the feed of a host with keys.
#include "bench/benchhost.h"
#include "bench/peakmemory.h"
#include "model/updateentry.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QCoreApplication>
#include <QFile>

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    becomeBenchHost();
    tx::FeedEntry entry;
    entry.setOwned(tx::FeedEntry::Member::Build, "2");
    entry.setOwned(tx::FeedEntry::Member::DownloadURL, argv[1]);
    if (argc > 2) {
        QFile signature(QString::fromLocal8Bit(argv[2]));
        if (!signature.open(QIODevice::ReadOnly))
            return 1;
        entry.setOwned(tx::FeedEntry::Member::Signature, signature.readAll().toStdString());
    }
    const TXUpdatePtr update = tx::updateFrom(entry, tx::WithConditions::Yes);
    int reports = 0;
    update->downloadWithProgress([&](double) { ++reports; },
                                 [&](const TXError &error) { application.exit(error ? 1 : 0); });
    const int status = QCoreApplication::exec();
    std::printf("download_client: peak %ld KiB, %d progress reports, %ssigned, %s\n", peakMemoryKiB(),
                reports, update->isSigned() ? "" : "not ", status == 0 ? "ok" : "FAILED");
    return status;
}

// SPDX-License-Identifier: MIT
// download_client URL: downloads an update's archive as a host does, with progress; prints the peak memory.
#include "bench/benchhost.h"
#include "bench/peakmemory.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QCoreApplication>

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    becomeBenchHost();
    TXUpdate update;
    update.setVersion(QStringLiteral("2"));
    update.setFileURL(QUrl(QString::fromLocal8Bit(argv[1])));
    int reports = 0;
    update.downloadWithProgress([&](double) { ++reports; },
                                [&](const TXError &error) { application.exit(error ? 1 : 0); });
    const int status = QCoreApplication::exec();
    std::printf("download_client: peak %ld KiB, %d progress reports, %s\n", peakMemoryKiB(), reports,
                status == 0 ? "ok" : "FAILED");
    return status;
}

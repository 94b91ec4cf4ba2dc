// SPDX-License-Identifier: MIT
// move_client FOLDER: moves the application that TARVIX_BENCH_HOST names into FOLDER, with its old copy into
// the Trash, and prints how many milliseconds that took.
#include "bench/benchhost.h"
#include "mover/movejob.h"
#include "os/services.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    const QString folder = QString::fromLocal8Bit(argv[1]);
    tx::services().folders.userApplications = [] { return QString(); };
    tx::services().folders.localApplications = [folder] { return folder; };
    becomeBenchHost();
    QElapsedTimer timer;
    timer.start();
    const tx::ApplicationPlaces places(qEnvironmentVariable("TARVIX_BENCH_HOST"));
    tx::MoveJob job(places, QStringLiteral("Bench"));
    const bool moved = job.performMove() == tx::MoveJob::Outcome::Moved;
    if (moved)
        job.moveOldCopyToTrash();
    std::printf("%.2f\n", double(timer.nsecsElapsed()) / 1e6);
    return moved ? 0 : 1;
}

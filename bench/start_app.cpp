// SPDX-License-Identifier: MIT
// A program of Qt Widgets that starts, serves its events once and ends; with the framework linked, and, when
// told so, with a standard controller set up.
#include <QApplication>
#include <QTimer>

#ifdef TARVIX_BENCH_LINKED
#include <TarvixUpdate/TarvixUpdate.h>
#endif

int main(int argc, char **argv) {
    QApplication application(argc, argv);
#ifdef TARVIX_BENCH_LINKED
    TXStandardUpdateController controller;
    if (argc > 1)
        controller.setup();
#endif
    QTimer::singleShot(0, &application, &QCoreApplication::quit);
    return QApplication::exec();
}

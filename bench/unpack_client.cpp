// SPDX-License-Identifier: MIT
// unpack_client ARCHIVE: unpacks an archive beside itself as an installation does.
#include "bench/benchhost.h"
#include "install/unarchiver.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    becomeBenchHost();
    TXUpdateUnarchiver::unarchive(QString::fromLocal8Bit(argv[1]), nullptr,
                                  [&](const QString &, const TXError &error) {
                                      if (error)
                                          std::fprintf(stderr, "%s\n", error.toString().toUtf8().constData());
                                      application.exit(error ? 1 : 0);
                                  });
    return QCoreApplication::exec();
}

// SPDX-License-Identifier: MIT
// A host without windows, for bundles. Prints the libraries that it has loaded. Its exit status is 0 if it
// finds the framework's tools.
#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include <QCoreApplication>
#include <QFile>
#include <QSet>

#include <cstdio>

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    // Measured by a tool of the framework.
    const bool hasTools = TXUpdateSystemProfile::systemProfile()->RAM() > 0;
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return 2;
    QSet<QByteArray> seen;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const qsizetype slash = line.indexOf('/');
        const QByteArray path = slash < 0 ? QByteArray() : line.mid(slash);
        if (path.contains(".so") && !seen.contains(path))
            std::printf("library %s\n", path.constData());
        seen.insert(path);
    }
    return hasTools ? 0 : 1;
}

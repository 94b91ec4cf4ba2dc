// SPDX-License-Identifier: MIT
// A host without windows, for bundles and packages. Prints the libraries that it has loaded. Its exit status
// is 0 if it finds the framework's resources: then the error of a failed check is in German.
#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QFile>
#include <QSet>
#include <QUrl>

#include <cstdio>

namespace {

void printLibraries() {
    QFile maps(QStringLiteral("/proc/self/maps"));
    QSet<QByteArray> seen;
    if (!maps.open(QIODevice::ReadOnly))
        return;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const qsizetype slash = line.indexOf('/');
        const QByteArray path = slash < 0 ? QByteArray() : line.mid(slash);
        if (path.contains(".so") && !seen.contains(path))
            std::printf("library %s\n", path.constData());
        seen.insert(path);
    }
}

} // namespace

int main(int argc, char **argv) {
    qputenv("LC_ALL", "de_DE.UTF-8");
    qputenv("LANGUAGE", "de");
    const QCoreApplication application(argc, argv);
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(QStringLiteral("http://127.0.0.1:1/feed.json"))); // nothing listens there
    updater->checkForUpdate([](const TXUpdateFeedPtr &, const TXError &error) {
        const QString description = error.localizedDescription();
        std::printf("error %s\n", qPrintable(description));
        QCoreApplication::exit(description.startsWith(QStringLiteral("Wegen eines Netzwerkfehlers")) ? 0 : 1);
    });
    const int status = QCoreApplication::exec();
    printLibraries();
    return status;
}

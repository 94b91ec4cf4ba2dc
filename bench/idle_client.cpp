// SPDX-License-Identifier: MIT
// idle_client FEED SECONDS: checks once, then idles; prints how often each of the process's threads was
// woken.
#include "bench/benchhost.h"

#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

/// Voluntary context switches by thread: each wake-up ends in one.
QMap<QString, qint64> wakeUps() {
    QMap<QString, qint64> result;
    for (const QString &thread : QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(u"/proc/self/task/%1/comm"_s.arg(thread));
        QFile status(u"/proc/self/task/%1/status"_s.arg(thread));
        if (!name.open(QIODevice::ReadOnly) || !status.open(QIODevice::ReadOnly))
            continue;
        const QString text = QString::fromUtf8(status.readAll());
        const QString count = text.section(u"voluntary_ctxt_switches:"_s, 1, 1).section(u'\n', 0, 0);
        result.insert(thread + u' ' + QString::fromUtf8(name.readAll()).trimmed(),
                      count.trimmed().toLongLong());
    }
    return result;
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    becomeBenchHost();
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(QString::fromLocal8Bit(argv[1])));
    updater->setUpdateCheckInterval(86400);
    updater->setAutomaticallyChecksForUpdates(true);
    const int seconds = QByteArray(argv[2]).toInt();
    QMap<QString, qint64> before;
    updater->checkForUpdate([&](const TXUpdateFeedPtr &, const TXError &error) {
        if (error)
            application.exit(1);
        QTimer::singleShot(1000, &application, [&] { before = wakeUps(); });
        QTimer::singleShot(1000 + seconds * 1000, &application, [&] {
            const QMap<QString, qint64> after = wakeUps();
            for (auto it = after.begin(); it != after.end(); ++it)
                std::printf("idle_client: %s: %lld wake-ups in %d s\n", it.key().toUtf8().constData(),
                            static_cast<long long>(it.value() - before.value(it.key())), seconds);
            application.quit();
        });
    });
    return QCoreApplication::exec();
}

// SPDX-License-Identifier: MIT
// TXUpdateReveal PATH: shows the file, selected, in the user's file manager; where there is none on the
// session's bus, opens the folder that holds it.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fputs(
            "usage: TXUpdateReveal PATH\nShows the file in the file manager. Exit status: 0 done, 1 failed, "
            "64 misuse.\n",
            stderr);
        return 64;
    }
    const QFileInfo file(QString::fromLocal8Bit(argv[1]));
    QDBusMessage call =
        QDBusMessage::createMethodCall(u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
                                       u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{QUrl::fromLocalFile(file.absoluteFilePath()).toString(QUrl::FullyEncoded)}
         << QString();
    const QDBusConnection bus = QDBusConnection::sessionBus();
    constexpr int timeoutMilliseconds = 10000;
    if (bus.isConnected() &&
        bus.call(call, QDBus::Block, timeoutMilliseconds).type() == QDBusMessage::ReplyMessage)
        return 0;
    return QProcess::execute(u"xdg-open"_s, {file.absolutePath()}) == 0 ? 0 : 1;
}

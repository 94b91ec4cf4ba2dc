// SPDX-License-Identifier: MIT
// TXUpdateReveal PATH: shows the file, selected, in the user's file manager. If none is on the session's bus,
// opens the parent folder, with the desktop portal or with a program that opens folders.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QUrl>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

bool answers(const QDBusMessage &call) {
    constexpr int timeoutMilliseconds = 10000;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() &&
           bus.call(call, QDBus::Block, timeoutMilliseconds).type() == QDBusMessage::ReplyMessage;
}

bool showByFileManager(const QFileInfo &file) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
                                       u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{QUrl::fromLocalFile(file.absoluteFilePath()).toString(QUrl::FullyEncoded)}
         << QString();
    return answers(call);
}

/// The portal opens the parent folder of the file whose descriptor it gets, also for a sandboxed application.
bool openByPortal(const QFileInfo &file) {
    const int descriptor =
        open(QFile::encodeName(file.absoluteFilePath()).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.portal.Desktop"_s, u"/org/freedesktop/portal/desktop"_s,
        u"org.freedesktop.portal.OpenURI"_s, u"OpenDirectory"_s);
    call << QString() << QVariant::fromValue(QDBusUnixFileDescriptor(descriptor)) << QVariantMap();
    close(descriptor); // the message has one of its own
    return answers(call);
}

/// The usual openers, which know the user's choice, then file managers themselves.
bool openByProgram(const QString &folder) {
    if (QProcess::execute(u"xdg-open"_s, {folder}) == 0 ||
        QProcess::execute(u"gio"_s, {u"open"_s, folder}) == 0)
        return true;
    for (const QString &program : {u"kde-open"_s, u"kde-open5"_s, u"exo-open"_s}) {
        if (QProcess::execute(program, {folder}) == 0)
            return true;
    }
    // These may run for as long as their window is open.
    for (const QString &program : {u"nautilus"_s, u"dolphin"_s, u"thunar"_s, u"nemo"_s, u"caja"_s,
                                   u"pcmanfm-qt"_s, u"pcmanfm"_s, u"io.elementary.files"_s}) {
        if (QProcess::startDetached(program, {folder}))
            return true;
    }
    return false;
}

} // namespace

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
    if (showByFileManager(file) || openByPortal(file) || openByProgram(file.absolutePath()))
        return 0;
    std::fprintf(
        stderr,
        "TXUpdateReveal: there is neither a file manager nor a program that opens folders. Look into %s\n",
        QFile::encodeName(file.absolutePath()).constData());
    return 1;
}

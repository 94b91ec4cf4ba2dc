// SPDX-License-Identifier: MIT
// file_manager [--portal] REVEAL PATH: plays the file manager, or the desktop portal, on the session's bus,
// runs REVEAL PATH and prints what it was asked to show. Exit status 0 when it was asked.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVirtualObject>
#include <QFileInfo>
#include <QProcess>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

class FileManager final : public QDBusVirtualObject {
public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        if (message.member() != u"ShowItems" || message.interface() != u"org.freedesktop.FileManager1")
            return false;
        std::printf("%s\n", message.arguments().value(0).toStringList().join(u' ').toUtf8().constData());
        asked = true;
        connection.send(message.createReply());
        return true;
    }
    bool asked = false;
};

class Portal final : public QDBusVirtualObject {
public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        if (message.member() != u"OpenDirectory" || message.interface() != u"org.freedesktop.portal.OpenURI")
            return false;
        const auto file = message.arguments().value(1).value<QDBusUnixFileDescriptor>();
        const QString path = QFileInfo(u"/proc/self/fd/%1"_s.arg(file.fileDescriptor())).symLinkTarget();
        std::printf("%s\n", path.toLocal8Bit().constData());
        asked = true;
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(u"/request"_s))));
        return true;
    }
    bool asked = false;
};

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    FileManager manager;
    Portal portal;
    const bool playsPortal = argc == 4 && QLatin1StringView(argv[1]) == "--portal"_L1;
    if (playsPortal) {
        --argc;
        ++argv;
    }
    const bool isThere = playsPortal
                             ? bus.registerService(u"org.freedesktop.portal.Desktop"_s) &&
                                   bus.registerVirtualObject(u"/org/freedesktop/portal/desktop"_s, &portal)
                             : bus.registerService(u"org.freedesktop.FileManager1"_s) &&
                                   bus.registerVirtualObject(u"/org/freedesktop/FileManager1"_s, &manager);
    if (argc != 3 || !isThere)
        return 2;
    QProcess reveal;
    QObject::connect(&reveal, &QProcess::finished, &application, [&](int status) {
        application.exit(status == 0 && (manager.asked || portal.asked) ? 0 : 1);
    });
    reveal.start(QString::fromLocal8Bit(argv[1]), {QString::fromLocal8Bit(argv[2])});
    return QCoreApplication::exec();
}

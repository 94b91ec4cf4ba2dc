// SPDX-License-Identifier: MIT
// file_manager REVEAL PATH: plays the file manager on the session's bus, runs REVEAL PATH and prints what it
// was asked to show. Exit status 0 when it was asked.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
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

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    FileManager manager;
    if (argc != 3 || !bus.registerService(u"org.freedesktop.FileManager1"_s) ||
        !bus.registerVirtualObject(u"/org/freedesktop/FileManager1"_s, &manager))
        return 2;
    QProcess reveal;
    QObject::connect(&reveal, &QProcess::finished, &application,
                     [&](int status) { application.exit(status == 0 && manager.asked ? 0 : 1); });
    reveal.start(QString::fromLocal8Bit(argv[1]), {QString::fromLocal8Bit(argv[2])});
    return QCoreApplication::exec();
}

// SPDX-License-Identifier: MIT
#include "os/workspace.h"

#include "os/frameworkresources.h"
#include "os/linux/trash.h"
#include "os/services.h"
#include "os/tasks.h"
#include "posix/openbundle.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

TXError openWithDesktop(const QString &target) {
    const Result<std::unique_ptr<Task>> task =
        services().tasks->start({.program = u"xdg-open"_s, .arguments = {target}, .ownSession = true});
    return task ? TXError() : task.error();
}

class NativeWorkspace final : public Workspace {
public:
    TXError openUrl(const QUrl &url) override { return openWithDesktop(url.toString(QUrl::FullyEncoded)); }

    TXError openFile(const QString &path) override {
        if (QFileInfo(path).isDir() && path.endsWith(u".app"_s)) {
            const OpenResult result = openBundle(QFile::encodeName(path).toStdString());
            if (!result.error.empty())
                return TXError(u"TXUpdater"_s, 0, QString::fromStdString(result.error));
            return {};
        }
        return openWithDesktop(path);
    }

    TXError reveal(const QString &path) override {
        // Loading D-Bus costs a host more than a helper that is started when a file is to be shown.
        const Result<std::unique_ptr<Task>> task =
            services().tasks->start({.program = frameworkResourcesPath() + u"/TXUpdateReveal"_s,
                                     .arguments = {path},
                                     .ownSession = true});
        return task ? TXError() : task.error();
    }

    Result<QString> moveToTrash(const QString &path, const QString &original) override {
        return tx::moveToTrash(path, original);
    }

    QList<qint64> runningApplications(const QString &executablePath) const override {
        QList<qint64> result;
        for (const pid_t pid : processesRunning(QFile::encodeName(executablePath).toStdString()))
            result.append(pid);
        return result;
    }

    QStringList runningExecutables() const override {
        QStringList result;
        for (const std::string &path : runningExecutablePaths())
            result.append(QFile::decodeName(path.c_str()));
        return result;
    }

    void terminate() override {
        if (QCoreApplication::instance())
            QCoreApplication::quit();
    }

    bool isBackgroundApplication() const override {
        // Only an application with a window system behind it can show ordinary windows.
        return !QCoreApplication::instance() || !QCoreApplication::instance()->inherits("QGuiApplication");
    }
};

} // namespace

Workspace &nativeWorkspace() {
    static auto &instance = *new NativeWorkspace; // a thread may outlast static objects
    return instance;
}

} // namespace tx

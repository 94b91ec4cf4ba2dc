// SPDX-License-Identifier: MIT
#include "txupdate/commands.h"
#include "txupdate/feedjson.h"
#include "txupdate/supervisor.h"

#include "base/queues.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "os/tasks.h"
#include "os/userdefaults.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXUpdateSettings.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

/// --feed, otherwise the application's setting, otherwise the URL in its Info.plist.
QUrl feedAddress(const AppOptions &options) {
    QString text = options.feed;
    if (text.isNull())
        text = UserDefaults::standard().stringValue(TXUpdatePrefFeedURLKey);
    if (text.isNull())
        text = TXBundle::mainBundle().infoString(TXUpdatePrefFeedURLKey);
    if (text.isNull())
        complain(
            u"the application has no setting %1: name the feed with --feed"_s.arg(TXUpdatePrefFeedURLKey));
    return QUrl(text);
}

/// Fetches the feed and calls `handler` on the main thread. Changes nothing in the application's settings but
/// the memory of signed feeds.
void fetchFeed(const QUrl &url, const TXUpdateFeed::CompletionHandler &handler) {
    TXUpdateFeed::fetchFeedAtURL(url, {}, {}, [handler](const TXUpdateFeedPtr &feed, const TXError &error) {
        postToMain([=] { handler(feed, error); });
    });
}

class ProgressBar {
public:
    void show(double progress, quint64 size) {
        if (!m_terminal)
            return;
        constexpr int width = 40;
        const int filled = static_cast<int>(progress * width);
        const QByteArray bar = QByteArray(filled, '#') + QByteArray(width - filled, '.');
        std::printf("\r  [%s] %3d %% of %.1f MB", bar.constData(), static_cast<int>(progress * 100),
                    static_cast<double>(size) / 1e6);
        std::fflush(stdout);
        m_shown = true;
    }
    void finish() const {
        if (m_shown)
            std::printf("\n");
    }

private:
    const bool m_terminal = isatty(STDOUT_FILENO) != 0;
    bool m_shown = false;
};

/// Starts programs as usual and tells the supervisor which one is the installer.
class ReportingTasks final : public Tasks {
public:
    Result<std::unique_ptr<Task>> start(const TaskRequest &request) override {
        Result<std::unique_ptr<Task>> task = nativeTasks().start(request);
        if (task && request.ownSession)
            reportInstaller((*task)->processIdentifier());
        return task;
    }
};

void say(const QString &line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

int failUpdate(const TXError &error) {
    printError(error, false);
    QCoreApplication::exit(ExitFailed);
    return ExitFailed;
}

void install(const TXUpdatePtr &update) {
    say(u"Installing build %1"_s.arg(update->version()));
    update->installWithErrorHandler([update](const TXError &error) {
        if (error) {
            failUpdate(error);
            return;
        }
        say(u"The new version is in the Downloads folder; replace the old one by it."_s);
        QCoreApplication::exit(ExitFailed);
    });
}

void download(const TXUpdatePtr &update) {
    say(u"Downloading %1"_s.arg(update->fileURL().toString()));
    const auto bar = std::make_shared<ProgressBar>();
    update->downloadWithProgress(
        [bar, update](double progress) { bar->show(progress, update->downloadSize()); },
        [bar, update](const TXError &error) {
            bar->finish();
            if (error)
                failUpdate(error);
            else
                install(update);
        });
}

} // namespace

bool adopt(const QString &path) {
    const TXBundle bundle(QFileInfo(path).absoluteFilePath());
    if (bundle.bundleIdentifier().isEmpty()) {
        complain(u"%1 is no application: it has no Info.plist with a CFBundleIdentifier"_s.arg(path));
        return false;
    }
    setMainBundle(bundle);
    resetHost();
    return true;
}

int check(const AppOptions &options) {
    if (!adopt(options.bundle))
        return ExitFailed;
    const QUrl url = feedAddress(options);
    if (url.isEmpty())
        return ExitFailed;
    fetchFeed(url, [json = options.json](const TXUpdateFeedPtr &feed, const TXError &error) {
        if (error)
            printError(error, json);
        else if (json)
            printJson(feedAsJson(feed->releaseTracks(), {}));
        else if (const TXUpdatePtr update = feed->recommendedUpdate())
            say(u"%1 %2 (build %3) is available; this is build %4."_s.arg(
                TXUpdateHost::host()->name(), update->displayVersion(), update->version(),
                TXUpdateHost::host()->version()));
        else
            say(u"%1 is up to date."_s.arg(TXUpdateHost::host()->name()));
        QCoreApplication::exit(error ? ExitFailed : ExitDone);
    });
    return QCoreApplication::exec();
}

int update(const AppOptions &options) {
    if (!adopt(options.bundle))
        return ExitFailed;
    const QUrl url = feedAddress(options);
    if (url.isEmpty())
        return ExitFailed;
    const QString executable = TXBundle::mainBundle().executablePath();
    if (!executable.isNull() && !services().workspace->runningApplications(executable).isEmpty()) {
        complain(u"%1 is running: quit it first"_s.arg(TXUpdateHost::host()->name()));
        return ExitFailed;
    }
    static ReportingTasks tasks;
    services().tasks = &tasks;
    fetchFeed(url, [](const TXUpdateFeedPtr &feed, const TXError &error) {
        if (error) {
            failUpdate(error);
            return;
        }
        const TXUpdatePtr update = feed->recommendedUpdate();
        if (!update) {
            say(u"%1 is up to date."_s.arg(TXUpdateHost::host()->name()));
            QCoreApplication::exit(ExitDone);
        } else if (const TXError refusal = update->downloadRefusal()) {
            failUpdate(refusal);
        } else if (!update->canBeDownloaded()) {
            say(u"The update can only be had at %1"_s.arg(update->linkURL().toString()));
            QCoreApplication::exit(ExitFailed);
        } else {
            download(update);
        }
    });
    return QCoreApplication::exec();
}

} // namespace tx::cli

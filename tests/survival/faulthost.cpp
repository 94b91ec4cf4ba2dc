// SPDX-License-Identifier: MIT
// fault_host BUNDLE update FEED | move | relaunch: a host application, standing in BUNDLE, that goes
// through an update or a move while what the file in FAULT_PLAN says goes wrong. Prints how it went. Exit
// status: 0 handed over or moved, 1 failed, 2 in the Downloads folder, 10 nothing to do.

#include "base/posixerror.h"
#include "base/queues.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/support/fakes.h"
#include "tests/survival/faultplan.h"

#include <TarvixUpdate/TarvixUpdate.h>

#include <QCoreApplication>
#include <QFileInfo>

#include <cstdio>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

std::mutex planMutex;

int passPoint(tx::test::FaultPlan &plan, const QString &name) {
    const std::lock_guard lock(planMutex);
    return plan.at(name.toStdString());
}

/// Starts programs, unless the plan has it that they do not start.
class PlannedTasks final : public tx::Tasks {
public:
    explicit PlannedTasks(tx::test::FaultPlan &plan)
        : m_plan(plan) {}
    tx::Result<std::unique_ptr<tx::Task>> start(const tx::TaskRequest &request) override {
        if (const int number = passPoint(m_plan, u"start "_s + QFileInfo(request.program).fileName()))
            return tx::posixError(number, u"Cannot start"_s, request.program);
        return tx::nativeTasks().start(request);
    }

private:
    tx::test::FaultPlan &m_plan;
};

bool changesSomething(const QString &operation) {
    return operation != u"exists" && operation != u"isWritable" && operation != u"readFile" &&
           operation != u"checkPrivateDirectory" && operation != u"checkOwnFile" &&
           operation != u"removeExtendedAttribute";
}

void say(const QString &line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void end(int status, const QString &line) {
    say(line);
    QCoreApplication::exit(status);
}

void install(const TXUpdatePtr &update) {
    update->installWithErrorHandler([](const TXError &error) {
        end(error ? 1 : 2, error ? u"not installed: "_s + error.toString() : u"in the Downloads folder"_s);
    });
}

void update(const QString &feed) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(feed));
    updater->checkForUpdate([](const TXUpdateFeedPtr &found, const TXError &error) {
        if (error) {
            end(1, u"not checked: "_s + error.toString());
            return;
        }
        static TXUpdatePtr best;
        best = found->recommendedUpdate();
        if (!best) {
            end(10, u"up to date"_s);
            return;
        }
        best->downloadWithProgress(nullptr, [](const TXError &failure) {
            if (failure)
                end(1, u"not downloaded: "_s + failure.toString());
            else
                install(best);
        });
    });
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    tx::setMainBundle(TXBundle(words.value(1)));
    tx::resetHost();
    tx::test::FaultPlan plan(qEnvironmentVariable("FAULT_PLAN").toStdString());
    tx::test::FaultFileSystem files;
    files.decide = [&plan](const QString &operation, const QString &path) {
        return changesSomething(operation) ? passPoint(plan, operation + u' ' + QFileInfo(path).fileName())
                                           : 0;
    };
    PlannedTasks tasks(plan);
    tx::services().tasks = &tasks;
    tx::services().presentAlert = [](const tx::Alert &alert) {
        say(alert.message);
        return 0;
    };
    tx::services().folders.localApplications = [] { return u"/nonexistent"_s; };
    tx::services().folders.data = [] { return QString(); }; // the menu entry has tests of its own
    const auto exitProcess = tx::services().exitProcess;
    tx::services().exitProcess = [&](int status) {
        (void)passPoint(plan, u"exit"_s);
        say(u"handed over"_s);
        exitProcess(status);
    };
    if (words.value(2) == u"update") {
        const tx::test::RecordingWorkspace workspace; // nothing is revealed to nobody
        update(words.value(3));
        return QCoreApplication::exec();
    }
    if (words.value(2) == u"relaunch") {
        tx::postToMain([] { TXUpdate().launch(); });
        return QCoreApplication::exec();
    }
    if (words.value(2) == u"move") {
        const auto result = TXUpdateAppMover::moveToApplicationsFolderWithoutAsking();
        say(u"move: %1"_s.arg(int(result)));
        return result == TXUpdateAppMover::Failed ? 1 : 0;
    }
    return 64;
}

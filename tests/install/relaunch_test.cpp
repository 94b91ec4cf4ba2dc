// SPDX-License-Identifier: MIT
#include "install/handoverquestion.h"
#include "os/frameworkresources.h"
#include "os/relaunchcommand.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

class Relaunch : public tx::test::FrameworkTest {
protected:
    TXUpdate update;
    tx::test::RecordingTasks tasks;
    tx::test::RecordingWorkspace workspace;
    const QString pid = QString::number(QCoreApplication::applicationPid());
    const QString host = path(u"Applications/Host.app"_s);
};

TEST_F(Relaunch, TakesBothRoadsAndThenTerminates) {
    update.launch();
    ASSERT_EQ(tasks.started.size(), 2);
    EXPECT_EQ(tasks.started[0].program, tx::frameworkResourcesPath() + u"/TXUpdateLauncher"_s);
    EXPECT_EQ(tasks.started[0].arguments, (QStringList{pid, host, u"debug"_s}))
        << "the log level is 5 or more";
    EXPECT_FALSE(tasks.started[0].environment) << "inherited";
    EXPECT_EQ(tasks.started[1].program, u"/bin/sh"_s);
    EXPECT_EQ(
        tasks.started[1].arguments,
        (QStringList{u"-c"_s, u"(while [ `ps -p %1 | wc -l` -gt 1 ]; do sleep 0.1; done; open '%2') &"_s.arg(
                                  pid, host)}));
    for (const tx::TaskRequest &request : tasks.started)
        EXPECT_TRUE(request.ownSession) << "outlives the host: " << request.program.toStdString();
    EXPECT_EQ(tasks.started[1].environment, tx::environmentWithFrameworkTools()) << "\"open\" is ours";
    EXPECT_EQ(workspace.terminations, 1);
    EXPECT_EQ(logLines(),
              (QStringList{u"-[TXUpdate launch]"_s, u"-[TXUpdate launch] launching using TXUpdateLauncher"_s,
                           u"-[TXUpdate launch] launching using shell script"_s}));
}

TEST_F(Relaunch, OneRoadThatFailsLeavesTheOther) {
    tasks.failing = [](const tx::TaskRequest &) { return ENOENT; };
    update.launch();
    EXPECT_EQ(tasks.started.size(), 2);
    EXPECT_EQ(workspace.terminations, 1);
    const std::string log = logLines().join(u'\n').toStdString();
    EXPECT_THAT(log,
                testing::HasSubstr("TXUpdate failed to launch with TXUpdateLauncher due to an exception. "));
    EXPECT_THAT(log, testing::HasSubstr("TXUpdate failed to launch with script due to an exception. "));
}

/// A delegate that passes on what a test says.
class HandingDelegate final : public TXUpdaterDelegate {
public:
    HandingDelegate(QStringList arguments, QString folder)
        : m_arguments(std::move(arguments))
        , m_folder(std::move(folder)) {
        TXUpdater::sharedUpdater()->setDelegate(this);
    }
    ~HandingDelegate() override { TXUpdater::sharedUpdater()->setDelegate(nullptr); }
    QStringList relaunchArgumentsForUpdater(TXUpdater *updater) override {
        EXPECT_EQ(updater, TXUpdater::sharedUpdater());
        return m_arguments;
    }
    QString relaunchDirectoryForUpdater(TXUpdater *) override { return m_folder; }

private:
    const QStringList m_arguments;
    const QString m_folder;
};

TEST_F(Relaunch, BothRoadsGetTheHandoverInTheEnvironmentOnly) {
    const HandingDelegate delegate({u"-n"_s, u"secret $(x)"_s, u"\u00FC"_s}, u"/tmp"_s);
    update.launch();
    ASSERT_EQ(tasks.started.size(), 2);
    for (const tx::TaskRequest &task : tasks.started) {
        ASSERT_TRUE(task.environment);
        for (const QString &variable :
             {u"TXUPDATE_RELAUNCH_FOLDER=/tmp"_s, u"TXUPDATE_RELAUNCH_ARGUMENTS=3"_s,
              u"TXUPDATE_RELAUNCH_ARGUMENT_0=-n"_s, u"TXUPDATE_RELAUNCH_ARGUMENT_1=secret $(x)"_s,
              u"TXUPDATE_RELAUNCH_ARGUMENT_2=\u00FC"_s, u"HOME="_s + qEnvironmentVariable("HOME")})
            EXPECT_TRUE(task.environment->contains(variable)) << variable.toStdString();
        EXPECT_FALSE(task.arguments.join(u' ').contains(u"secret"));
    }
    EXPECT_FALSE(logLines().join(u'\n').contains(u"secret"));
}

TEST_F(Relaunch, HandoverOverALimitIsNotPassedOnAndTheLogSaysSo) {
    {
        const HandingDelegate delegate({u"secret"_s, QString(131072, u'x')}, u"/tmp"_s);
        const tx::Handover handover = tx::askForHandover();
        EXPECT_TRUE(handover.arguments.empty());
        EXPECT_EQ(handover.folder, "/tmp") << "the folder is in order";
    }
    {
        const HandingDelegate delegate({u"good"_s}, u"secret/folder"_s);
        const tx::Handover handover = tx::askForHandover();
        EXPECT_EQ(handover.arguments, std::vector<std::string>{"good"});
        EXPECT_EQ(handover.folder, "");
    }
    const std::string log = logLines().join(u'\n').toStdString();
    EXPECT_THAT(log, testing::HasSubstr("the arguments have 131080 bytes, 131072 are allowed"));
    EXPECT_THAT(log, testing::HasSubstr("the working folder is not an absolute path"));
    EXPECT_THAT(log, testing::Not(testing::HasSubstr("secret")));
}

TEST_F(Relaunch, NothingIsPassedOnByDefault) {
    class Default final : public TXUpdaterDelegate {};
    Default delegate;
    TXUpdater::sharedUpdater()->setDelegate(&delegate);
    const tx::Handover handover = tx::askForHandover();
    TXUpdater::sharedUpdater()->setDelegate(nullptr);
    EXPECT_TRUE(handover.arguments.empty());
    EXPECT_EQ(handover.folder, "");
}

TEST_F(Relaunch, LauncherIsToldToLogFromLevelFiveOn) {
    // The level is read once for each process: real hosts, and a launcher that notes what it is given.
    const QString resources = path(u"resources"_s);
    const QString given = path(u"given"_s);
    tx::test::writeFile(resources + u"/TXUpdateLauncher"_s,
                        "#!/bin/sh\nprintf '%s|' $# \"$2\" \"$3\" > '" + given.toUtf8() + ".new'\nmv '" +
                            given.toUtf8() + ".new' '" + given.toUtf8() + "'\n",
                        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    for (const auto &[level, expected] : {std::pair(0, ""), std::pair(1, ""), std::pair(4, ""),
                                          std::pair(5, "debug"), std::pair(6, "debug")}) {
        QFile::remove(given);
        const auto result = tx::test::runProcess(
            tx::test::helpersFolder() + u"/survival/fault_host"_s, {host, u"relaunch"_s}, {},
            {u"TXUPDATE_LOG_LEVEL=%1"_s.arg(level), u"TXUPDATE_RESOURCES="_s + resources,
             u"FAULT_PLAN="_s + path(u"plan"_s)});
        ASSERT_EQ(result.status, 0) << result.errors.constData();
        ASSERT_TRUE(tx::test::waitUntil([&] { return QFileInfo::exists(given); })) << level;
        EXPECT_EQ(tx::test::readFile(given), "3|" + host.toUtf8() + '|' + expected + '|') << level;
    }
}

TEST(RelaunchCommand, ShellRunsItWithTheToolsOfTheGivenFolder) {
    const tx::TaskRequest request = tx::relaunchByShell(7, u"/opt/My.app"_s, u"/opt/My.app/Tools"_s);
    EXPECT_EQ(request.program, u"/bin/sh"_s);
    EXPECT_EQ(request.arguments, (QStringList{u"-c"_s, tx::relaunchCommand(7, u"/opt/My.app"_s)}));
    EXPECT_TRUE(request.ownSession);
    ASSERT_TRUE(request.environment);
    EXPECT_FALSE(request.environment->filter(QRegularExpression(u"^PATH=/opt/My\\.app/Tools:"_s)).isEmpty());
}

TEST(RelaunchCommand, StandsAsGivenExceptForAQuoteInThePath) {
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/My \"App\" $1.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/My \"App\" $1.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/it's.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/it'\\''s.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/100%@.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/100%@.app') &"_s);
}

} // namespace

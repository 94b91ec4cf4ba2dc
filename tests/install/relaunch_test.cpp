// SPDX-License-Identifier: MIT
#include "os/frameworkresources.h"
#include "os/relaunchcommand.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QCoreApplication>
#include <QFileInfo>

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

TEST(RelaunchCommand, StandsAsGivenExceptForAQuoteInThePath) {
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/My \"App\" $1.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/My \"App\" $1.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/it's.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/it'\\''s.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/100%@.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/100%@.app') &"_s);
}

} // namespace

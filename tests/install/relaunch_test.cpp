// SPDX-License-Identifier: MIT
#include "install/updateinstallation.h"
#include "platform/frameworkresources.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QCoreApplication>

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

TEST(RelaunchCommand, StandsAsGivenExceptForAQuoteInThePath) {
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/My \"App\" $1.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/My \"App\" $1.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/it's.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/it'\\''s.app') &"_s);
    EXPECT_EQ(tx::relaunchCommand(7, u"/opt/100%@.app"_s),
              u"(while [ `ps -p 7 | wc -l` -gt 1 ]; do sleep 0.1; done; open '/opt/100%@.app') &"_s);
}

} // namespace

// SPDX-License-Identifier: MIT
#include "launcher/relauncher.h"
#include "os/relaunchcommand.h"
#include "posix/handover.h"
#include "posix/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <csignal>
#include <limits>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

class Launcher : public tx::test::FrameworkTest {
protected:
    const QString app = path(u"it's \"here\" $x.app"_s);
    const QString ran = path(u"ran"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};

    Launcher() {
        tx::test::makeBundle(
            app, {.program = "#!/bin/sh\necho x >> '" + ran.toUtf8() + "'\nwhile :; do sleep 1000; done\n"});
    }
    /// So that the next opener does not find it running.
    void endApplication() const {
        const std::string program = (app + u"/Contents/Linux/Program"_s).toStdString();
        for (const pid_t process : tx::processesRunning(program))
            kill(process, SIGKILL);
        EXPECT_TRUE(waitUntil([&] { return tx::processesRunning(program).empty(); }));
    }
    static QString tool() { return tx::test::resourcesFolder() + u"/TXUpdateLauncher"_s; }
};

TEST_F(Launcher, WrongArgumentCountIsRefusedAtOnce) {
    EXPECT_EQ(runProcess(tool(), {u"1"_s, app}).status, 1);
    EXPECT_EQ(runProcess(tool(), {u"1"_s, app, u""_s, u"more"_s}).status, 1);
    EXPECT_EQ(runProcess(tool(), {}).status, 1);
    EXPECT_TRUE(tx::test::readFile(ran).isEmpty());
}

TEST_F(Launcher, OpensAtOnceWhenItsParentIsAnotherProcess) {
    for (const QString &pid : {u"1"_s, u"no number"_s}) {
        // It sleeps for seconds. On a busy machine a start can take a second, but not each of ten.
        qint64 quickest = std::numeric_limits<qint64>::max();
        for (int i = 0; i < 10 && quickest >= 900; ++i) {
            QFile::remove(ran);
            QElapsedTimer clock;
            clock.start();
            EXPECT_EQ(runProcess(tool(), {pid, app, u""_s}).status, 0);
            quickest = std::min(quickest, clock.elapsed());
            EXPECT_TRUE(waitUntil([this] { return tx::test::readFile(ran) == "x\n"; })) << pid.toStdString();
            endApplication();
        }
        EXPECT_LT(quickest, 900) << "without sleeping";
    }
}

TEST_F(Launcher, ExitsWithZeroWhateverTheOpenReported) {
    EXPECT_EQ(runProcess(tool(), {u"1"_s, path(u"none.app"_s), u"debug"_s}).status, 0);
}

TEST_F(Launcher, WaitsForItsParentToGo) {
    // The shell is the host: it starts the tool, stays until told, and goes.
    QProcess host;
    host.start(u"sh"_s, {u"-c"_s, u"\"$0\" $$ \"$1\" '' & read line"_s, tool(), app});
    ASSERT_TRUE(host.waitForStarted());
    EXPECT_FALSE(waitUntil([this] { return !tx::test::readFile(ran).isEmpty(); }, 300));
    host.closeWriteChannel();
    ASSERT_TRUE(host.waitForFinished(20000));
    EXPECT_TRUE(waitUntil([this] { return !tx::test::readFile(ran).isEmpty(); }));
}

/// One run of the tool with a parent that goes after two looks: what it did, in order.
std::vector<std::string> stepsWith(const std::string &third) {
    std::vector<std::string> steps;
    int looks = 0;
    const tx::launcher::Context context{
        .parent = [&] { return ++looks < 3 ? 40 : 1; },
        .wait = [&] { steps.emplace_back("wait"); },
        .open = [&](const std::string &bundle) { steps.push_back("open " + bundle); },
        .log = [&](const std::string &line) { steps.push_back("log " + line); },
    };
    EXPECT_EQ(tx::launcher::relaunch({"40", "/opt/A.app", third}, context), 0);
    return steps;
}

TEST(LauncherLog, HasItsLinesOnlyForDebug) {
    EXPECT_THAT(stepsWith("debug"),
                testing::ElementsAre("log TXUpdateLauncher is waiting for app to terminate...", "wait",
                                     "wait", "log TXUpdateLauncher will launch /opt/A.app",
                                     "open /opt/A.app"));
    for (const char *other : {"", "Debug", "debug ", "1"})
        EXPECT_THAT(stepsWith(other), testing::ElementsAre("wait", "wait", "open /opt/A.app")) << other;
}

TEST(LauncherNumber, BeyondThoseOfProcessesIsNotTheParents) {
    // 2^32 + 40, -2^32 + 40 and 2^64 + 40: their lowest bits are the parent's number.
    for (const char *number : {"4294967336", "-4294967256", "18446744073709551656"}) {
        int waits = 0;
        QStringList opened;
        const tx::launcher::Context context{
            [&] { return ++waits > 3 ? 1 : 40; }, [] {},
            [&](const std::string &bundle) { opened << QString::fromStdString(bundle); },
            [](const std::string &) {}};
        EXPECT_EQ(tx::launcher::relaunch({number, "/opt/A.app", ""}, context), 0);
        EXPECT_EQ(waits, 1) << number;
        EXPECT_EQ(opened, QStringList(u"/opt/A.app"_s));
    }
}

TEST_F(Launcher, BothRoadsPassOnArgumentsAndFolder) {
    // The application prints its arguments, its folder and what is left of the handover in its environment.
    tx::test::makeBundle(
        app, {.program = "#!/bin/sh\n{ printf '<%s>\\n' \"$@\"; pwd; env | grep -c RELAUNCH; } > '" +
                         ran.toUtf8() + ".new'\nmv '" + ran.toUtf8() + ".new' '" + ran.toUtf8() + "'\n"});
    const QString folder = QDir(path(u""_s)).canonicalPath();
    QStringList variables{u"PATH="_s + tx::test::resourcesFolder() + u':' + qEnvironmentVariable("PATH")};
    for (const std::string &variable : tx::variablesOf({{"-n", "", "a b", "$(x)"}, folder.toStdString()}))
        variables << QString::fromStdString(variable);
    QProcess ended;
    ended.start(u"true"_s, {});
    ASSERT_TRUE(ended.waitForStarted());
    const qint64 host = ended.processId();
    ASSERT_TRUE(ended.waitForFinished());
    for (const bool script : {false, true}) {
        QFile::remove(ran);
        const QString command = tx::relaunchCommand(host, app) + u" >&- 2>&-"_s;
        const auto result = script ? runProcess(u"/bin/sh"_s, {u"-c"_s, command}, {}, variables)
                                   : runProcess(tool(), {u"1"_s, app, u""_s}, {}, variables);
        EXPECT_EQ(result.status, 0);
        ASSERT_TRUE(waitUntil([this] { return QFileInfo::exists(ran); })) << script;
        EXPECT_EQ(tx::test::readFile(ran), "<-n>\n<>\n<a b>\n<$(x)>\n" + folder.toUtf8() + "\n0\n") << script;
        EXPECT_TRUE(waitUntil([this] {
            return tx::processesRunning((app + u"/Contents/Linux/Program"_s).toStdString()).empty();
        }));
    }
}

TEST_F(Launcher, RelaunchScriptOpensWhenTheProcessHasGone) {
    // The shell is the host. First the script alone, then both roads, as a host takes them: the application
    // comes back once, whatever its path holds.
    for (const bool both : {false, true}) {
        QFile::remove(ran);
        QProcess host;
        host.start(u"sh"_s, {u"-c"_s, u"[ -z \"$2\" ] || \"$0\" $$ \"$1\" '' & read line"_s, tool(), app,
                             both ? u"both"_s : u""_s});
        ASSERT_TRUE(host.waitForStarted());
        ASSERT_EQ(runProcess(u"/bin/sh"_s,
                             {u"-c"_s, tx::relaunchCommand(host.processId(), app) + u" >&- 2>&-"_s}, {},
                             {u"PATH="_s + tx::test::resourcesFolder() + u':' + qEnvironmentVariable("PATH")})
                      .status,
                  0);
        EXPECT_FALSE(waitUntil([this] { return !tx::test::readFile(ran).isEmpty(); }, 400)) << "too early";
        host.closeWriteChannel();
        ASSERT_TRUE(host.waitForFinished(20000));
        ASSERT_TRUE(waitUntil([this] { return !tx::test::readFile(ran).isEmpty(); })) << both;
        EXPECT_FALSE(waitUntil([this] { return tx::test::readFile(ran).count('\n') > 1; }, 1500));
        endApplication();
    }
}

} // namespace

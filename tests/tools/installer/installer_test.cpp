// SPDX-License-Identifier: MIT
#include "tests/support/places.h"
#include "tests/tools/installer/installertest.h"

#include <QTemporaryDir>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <thread>

using namespace Qt::StringLiterals;
using tx::test::endedProcess;
using tx::test::InstallerSteps;
using tx::test::InstallerTool;
using tx::test::ProcessResult;
using tx::test::RunningHost;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

TEST_F(InstallerTool, ReplacesTheApplicationCleansUpAndOpensIt) {
    struct stat before {};
    ASSERT_EQ(stat(QFile::encodeName(app).constData(), &before), 0);
    const ProcessResult result = runTool(arguments(endedProcess()));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(strays().isEmpty());
    EXPECT_TRUE(tx::test::namesIn(path(u"cache"_s)).isEmpty()) << "archive and new application are gone";
    struct stat after {};
    ASSERT_EQ(stat(QFile::encodeName(app).constData(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino) << "all of the bundle, and not only its contents";
    ASSERT_TRUE(waitUntil([this] { return ran() == "new"; }));
}

TEST_F(InstallerTool, WrongCommandLinesTouchNothing) {
    tx::test::makeBundle(path(u"Other.app"_s), {.identifier = u"org.example.Other"_s});
    tx::test::makeBundle(path(u"Nameless.app"_s), {.identifier = u""_s});
    tx::test::makeBundle(path(u"Empty.app"_s), {});
    QFile::remove(path(u"Empty.app/Contents/Linux/Program"_s));
    ASSERT_TRUE(QFile::link(fresh, path(u"Link.app"_s)));
    const QString pid = endedProcess();
    const QList<std::pair<QStringList, std::string>> cases{
        {{}, "usage:"},
        {{pid, fresh, app}, "usage:"},
        {{pid, fresh, app, archive, u"more"_s}, "usage:"},
        {{u"x"_s, fresh, app, archive}, "process identifier"},
        {{u"12x"_s, fresh, app, archive}, "process identifier"},
        {{u""_s, fresh, app, archive}, "process identifier"},
        {{u"0"_s, fresh, app, archive}, "process identifier"},
        {{u"1"_s, fresh, app, archive}, "process identifier"},
        {{u"-5"_s, fresh, app, archive}, "process identifier"},
        {{u"99999999999"_s, fresh, app, archive}, "process identifier"},
        {{pid, u"New.app"_s, app, archive}, "absolute"},
        {{pid, fresh, u"Host.app"_s, archive}, "absolute"},
        {{pid, fresh, app, u"a.zip"_s}, "absolute"},
        {{pid, path(u"none"_s), app, archive}, "is no application"},
        {{pid, path(u"Link.app"_s), app, archive}, "is no application"},
        {{pid, fresh, path(u"none"_s), archive}, "is no application"},
        {{pid, path(u"Nameless.app"_s), app, archive}, "is no application"},
        {{pid, path(u"Other.app"_s), app, archive}, "identifiers differ"},
        {{pid, path(u"Empty.app"_s), app, archive}, "has no executable"}};
    for (const auto &[words, reason] : cases) {
        const ProcessResult result = runTool(words);
        EXPECT_EQ(result.status, 64) << words.join(u' ').toStdString();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(reason));
        EXPECT_TRUE(isOld());
        EXPECT_TRUE(QFileInfo::exists(archive));
        EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    }
    EXPECT_TRUE(ran().isEmpty());
}

TEST_F(InstallerTool, WaitsForTheHostToEnd) {
    RunningHost host;
    QProcess installer;
    installer.start(tool(), arguments(host.identifier()));
    ASSERT_TRUE(installer.waitForStarted());
    EXPECT_FALSE(installer.waitForFinished(200));
    EXPECT_TRUE(isOld());
    host.end();
    ASSERT_TRUE(installer.waitForFinished(20000));
    EXPECT_EQ(installer.exitCode(), 0);
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, HostThatDoesNotEndIsLeftAlone) {
    RunningHost host;
    const ProcessResult result = runProcess(tx::test::helpersFolder() + u"/installer_fault_driver"_s,
                                            QStringList{u"none"_s, u"0"_s} + arguments(host.identifier()));
    EXPECT_EQ(result.status, tx::installer::StatusTryLater);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("does not end"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    host.end();
}

TEST_F(InstallerTool, TwoAtOnceLeaveOneCompleteApplication) {
    const QString pid = endedProcess();
    QProcess tools[2];
    for (QProcess &each : tools)
        each.start(tool(), arguments(pid));
    QList<int> statuses;
    for (QProcess &each : tools) {
        ASSERT_TRUE(each.waitForFinished(20000));
        statuses << each.exitCode();
    }
    EXPECT_TRUE(statuses.contains(0)) << statuses[0] << ' ' << statuses[1];
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(strays().isEmpty());
}

TEST_F(InstallerTool, SecondOneIsRefusedWhileTheFirstHoldsTheLock) {
    QProcess holder;
    holder.start(u"flock"_s, {QString::fromStdString(tx::lockPathFor(app.toStdString())), u"sh"_s, u"-c"_s,
                              u"echo held; sleep 1000"_s});
    ASSERT_TRUE(holder.waitForReadyRead(20000));
    const ProcessResult result = runTool(arguments(endedProcess()));
    EXPECT_EQ(result.status, 75);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("another installation"));
    EXPECT_TRUE(isOld());
    EXPECT_FALSE(waitUntil([this] { return !ran().isEmpty(); }, 300)) << "the other one opens it";
    holder.kill();
    holder.waitForFinished();
}

TEST_F(InstallerTool, FolderThatAnotherCopyDownloadsIntoIsLeftAlone) {
    const QString lock = path(u"cache.lock"_s);
    tx::test::writeFile(lock, "");
    QProcess holder;
    holder.start(u"flock"_s, {lock, u"sh"_s, u"-c"_s, u"echo held; sleep 1000"_s});
    ASSERT_TRUE(holder.waitForReadyRead(20000));
    const ProcessResult result = runTool(arguments(endedProcess()));
    EXPECT_EQ(result.status, 75);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("another copy of the application uses"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    EXPECT_TRUE(strays().isEmpty());
    holder.kill();
    holder.waitForFinished();
}

TEST_F(InstallerSteps, LockThatCannotBeHadMeansHandsOff) {
    const QString folderLock = path(u"cache.lock"_s);
    tx::test::writeFile(folderLock, "");
    const std::string own = tx::lockPathFor(app.toStdString());
    for (const std::string &which : {own, folderLock.toStdString()}) {
        for (const int number : {EACCES, EWOULDBLOCK, EIO, ENOSPC, EROFS, ENOLCK, EMFILE}) {
            files.decide = [&](const std::string &name, const std::string &place) {
                return name == "lock" && place == which ? number : 0;
            };
            EXPECT_EQ(install(), tx::installer::StatusTryLater) << which << ' ' << number;
            EXPECT_TRUE(isOld());
            EXPECT_TRUE(freshIsThere());
            EXPECT_TRUE(strays().isEmpty());
            EXPECT_FALSE(log.empty());
            EXPECT_EQ(opened, which == own && number == EWOULDBLOCK ? 0 : 1) << "the host has ended";
        }
    }
    files.decide = nullptr;
    EXPECT_EQ(install(), 0) << log;
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerSteps, FolderWhoseLockCannotBeLookedAtMeansHandsOff) {
    const QString closed = path(u"closed"_s);
    QDir().mkpath(closed + u"/cache"_s);
    if (geteuid() == 0) {
        session.user = session.group = 65534;
        session.dropsPrivileges = true;
    }
    ASSERT_EQ(chmod(QFile::encodeName(closed).constData(), geteuid() == 0 ? 0700 : 0), 0);
    EXPECT_EQ(install(tx::installer::processRights(), closed + u"/cache/New - 2.zip"_s),
              tx::installer::StatusTryLater);
    ASSERT_EQ(chmod(QFile::encodeName(closed).constData(), 0700), 0);
    EXPECT_THAT(log, testing::HasSubstr("cannot lock " + closed.toStdString()));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
}

TEST_F(InstallerSteps, OldApplicationStaysWhenTheFolderCannotBeSynced) {
    const std::string places[] = {app.toStdString(), tx::stagedPathFor(app.toStdString()),
                                  tx::backupPathFor(app.toStdString())};
    for (const bool exchanges : {true, false}) {
        prepare();
        files.decide = [&](const std::string &name, const std::string &) {
            return name == "exchange" && !exchanges ? EINVAL : name == "syncDirectory" ? EIO : 0;
        };
        EXPECT_EQ(install(), 0);
        EXPECT_THAT(log, testing::HasSubstr("cannot sync"));
        EXPECT_TRUE(isNew());
        EXPECT_EQ(tx::test::treeOf(QString::fromStdString(places[exchanges ? 1 : 2])), oldTree);
        EXPECT_TRUE(QFileInfo::exists(archive)) << "it may be needed again";
        EXPECT_EQ(opened, 1);
        // The next one removes it, when the disk holds the new one.
        tx::test::makeBundle(fresh, {.build = u"2"_s, .program = program("new")});
        EXPECT_EQ(install(), tx::installer::StatusCannotStage) << "which it does not yet";
        EXPECT_EQ(tx::test::treeOf(QString::fromStdString(places[exchanges ? 1 : 2])), oldTree);
        files.decide = nullptr;
        EXPECT_EQ(install(), 0) << log;
        EXPECT_TRUE(strays().isEmpty());
    }
}

TEST_F(InstallerTool, SlashesBehindPathsDoNotCount) {
    tx::installer::Arguments read;
    std::string why;
    ASSERT_TRUE(tx::installer::readArguments(
        {"99999", fresh.toStdString() + "//", app.toStdString() + "/", archive.toStdString()}, read, why))
        << why;
    EXPECT_EQ(read.newApplication, fresh.toStdString());
    EXPECT_EQ(read.hostBundle, app.toStdString());
}

TEST_F(InstallerTool, LinkInPlaceOfTheLockIsNotFollowed) {
    const QString lock = QString::fromStdString(tx::lockPathFor(app.toStdString()));
    tx::test::writeFile(path(u"victim"_s), "kept");
    const QString folderLock = path(u"cache.lock"_s);
    for (const auto &[link, target] :
         {std::pair{lock, path(u"victim"_s)}, std::pair{folderLock, path(u"made"_s)}}) {
        SCOPED_TRACE(link.toStdString());
        ASSERT_TRUE(QFile::link(target, link));
        const ProcessResult result = runTool(arguments(endedProcess()));
        EXPECT_EQ(result.status, 75) << "without its locks it does nothing";
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("cannot lock " + link.toStdString()));
        EXPECT_TRUE(isOld());
        EXPECT_EQ(tx::test::treeOf(fresh), newTree);
        ASSERT_TRUE(waitUntil([this] { return ran() == "old"; })) << "the application comes back";
        ASSERT_TRUE(QFile::remove(link));
        ASSERT_TRUE(QFile::remove(path(u"ran"_s)));
    }
    EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray("kept"));
    EXPECT_FALSE(QFileInfo::exists(path(u"made"_s)));
}

TEST_F(InstallerTool, SaysThatItIsReadyHoldsItsLockAndWaits) {
    RunningHost host;
    QProcess installer;
    installer.start(tool(), arguments(host.identifier()));
    QByteArray said;
    ASSERT_TRUE(waitUntil([&] { return (said += installer.readAllStandardOutput()).endsWith('\n'); }));
    EXPECT_EQ(said, QByteArray("ready\n"));
    const QString output = u"/proc/%1/fd/1"_s.arg(installer.processId());
    EXPECT_TRUE(waitUntil([&] { return QFileInfo(output).symLinkTarget() == u"/dev/null"; }))
        << "what it says later does not end it";
    EXPECT_EQ(runTool(arguments(endedProcess())).status, 75) << "the lock is held while it waits";
    EXPECT_TRUE(isOld());
    host.end();
    ASSERT_TRUE(installer.waitForFinished(20000));
    EXPECT_EQ(installer.exitCode(), 0);
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, RefusalIsSaidInsteadOfTheWordWhileTheHostRuns) {
    RunningHost host;
    const QString pid = host.identifier();
    tx::test::makeBundle(path(u"Other.app"_s), {.identifier = u"org.example.Other"_s});
    const QString lock = QString::fromStdString(tx::lockPathFor(app.toStdString()));
    const auto takeLock = [&](const QString &target) { return QFile::link(target, lock); };
    struct Case {
        QStringList words;
        QString lockTarget;
        int status;
        std::string reason;
    };
    for (const Case &c :
         {Case{{}, {}, 64, "usage:"},
          Case{{pid, path(u"Other.app"_s), app, archive}, {}, 64, "identifiers differ"},
          Case{{pid, fresh, app, archive}, path(u"elsewhere"_s), 75, "cannot lock " + lock.toStdString()}}) {
        SCOPED_TRACE(c.reason);
        if (!c.lockTarget.isNull()) {
            ASSERT_TRUE(takeLock(c.lockTarget));
        }
        const ProcessResult result = runTool(c.words);
        EXPECT_EQ(result.status, c.status);
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(c.reason));
        EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("ready")));
        EXPECT_TRUE(isOld());
    }
    EXPECT_TRUE(ran().isEmpty()) << "the host still runs: nothing is opened";
    host.end();
}

TEST_F(InstallerTool, ApplicationThatCannotStartDoesNotReplaceOneThatCan) {
    const QByteArray file = QFile::encodeName(fresh + u"/Contents/Linux/Program"_s);
    ASSERT_EQ(chmod(file.constData(), 0644), 0);
    const ProcessResult before = runTool(arguments(endedProcess()));
    EXPECT_EQ(before.status, 64);
    EXPECT_THAT(before.output.toStdString(), testing::HasSubstr("it lacks its execute bit"));
    EXPECT_TRUE(isOld());
    // And one that loses it while the tool waits.
    ASSERT_EQ(chmod(file.constData(), 0755), 0);
    RunningHost host;
    QProcess installer;
    installer.start(tool(), arguments(host.identifier()));
    ASSERT_TRUE(waitUntil([&] { return installer.readAllStandardOutput() == "ready\n"; }));
    ASSERT_EQ(chmod(file.constData(), 0644), 0);
    newTree = tx::test::treeOf(fresh);
    host.end();
    ASSERT_TRUE(installer.waitForFinished(20000));
    EXPECT_EQ(installer.exitCode(), 73);
    EXPECT_THAT(installer.readAllStandardError().toStdString(),
                testing::HasSubstr("it lacks its execute bit"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    EXPECT_TRUE(strays().isEmpty());
    ASSERT_TRUE(waitUntil([this] { return ran() == "old"; }));
}

TEST_F(InstallerTool, HostThatDoesNotListenAnyMoreIsNotReplaced) {
    RunningHost host;
    // A pipe whose other end is closed, as after a host that has given up.
    const ProcessResult result = runProcess(
        u"bash"_s, QStringList{u"-c"_s, u"exec 1> >(:); wait $!; exec \"$@\""_s, u"bash"_s, tool()} +
                       arguments(host.identifier()));
    EXPECT_EQ(result.status, 75);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("does not wait for its replacement"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    EXPECT_TRUE(strays().isEmpty());
    EXPECT_TRUE(ran().isEmpty());
    host.end();
}

/// The tool, and another process that has the reading end of the pipe to the host.
class HeardTool {
public:
    /// `reader`: what it does with the end.
    HeardTool(const QString &reader, const QString &tool, const QStringList &words) {
        m_tool.start(u"bash"_s,
                     QStringList{u"-c"_s, u"exec 1> >(exec %1); echo $! >&2; exec \"$@\""_s.arg(reader),
                                 u"bash"_s, tool} +
                         words);
        EXPECT_TRUE(waitUntil([this] { return (m_errors += m_tool.readAllStandardError()).contains('\n'); }));
        m_reader = m_errors.left(m_errors.indexOf('\n')).toInt();
        EXPECT_GT(m_reader, 1);
        // It has said the word when its output leads nowhere.
        const QString output = u"/proc/%1/fd/1"_s.arg(m_tool.processId());
        EXPECT_TRUE(waitUntil([&] { return QFileInfo(output).symLinkTarget() == u"/dev/null"; }));
    }
    void pause() const { ::kill(pid(), SIGSTOP); }
    void goOn() const { ::kill(pid(), SIGCONT); }
    void closeEnd() const {
        ::kill(m_reader, SIGKILL);
        EXPECT_TRUE(waitUntil([this] {
            const QByteArray state = tx::test::readFile(u"/proc/%1/stat"_s.arg(m_reader));
            return state.isEmpty() || state.contains(") Z ");
        }));
    }
    int statusWithin(int milliseconds) {
        return m_tool.waitForFinished(milliseconds) ? m_tool.exitCode() : -1;
    }
    std::string errors() { return (m_errors += m_tool.readAllStandardError()).toStdString(); }

private:
    [[nodiscard]] pid_t pid() const { return static_cast<pid_t>(m_tool.processId()); }
    QProcess m_tool;
    QByteArray m_errors;
    pid_t m_reader = -1;
};

TEST_F(InstallerTool, HostThatGaveUpWhenTheWordWasSaidIsNotReplaced) {
    for (const bool endsAtOnce : {false, true}) {
        SCOPED_TRACE(endsAtOnce);
        prepare();
        QFile::remove(path(u"ran"_s));
        RunningHost host;
        // The end is held open, but nobody takes the word out of the pipe any more.
        HeardTool installer(u"sleep 1000"_s, tool(), arguments(host.identifier()));
        EXPECT_EQ(installer.statusWithin(700), -1) << "until it is closed, the word may still be read";
        if (endsAtOnce)
            installer.pause();
        installer.closeEnd();
        if (endsAtOnce) {
            host.end();
            installer.goOn();
        }
        EXPECT_EQ(installer.statusWithin(20000), 75) << "without waiting for the end of the host";
        EXPECT_THAT(installer.errors(), testing::HasSubstr("has not heard that it can be replaced"));
        host.end();
        EXPECT_TRUE(isOld());
        EXPECT_EQ(tx::test::treeOf(fresh), newTree) << "a later try finds it";
        EXPECT_TRUE(strays().isEmpty());
        // Nothing is opened while the host runs; one that has gone without a word comes back.
        if (endsAtOnce) {
            EXPECT_TRUE(waitUntil([this] { return ran() == "old"; }));
        } else {
            EXPECT_TRUE(ran().isEmpty());
        }
    }
}

TEST_F(InstallerTool, HostThatHeardTheWordMayCloseThePipeLongBeforeItEnds) {
    RunningHost host;
    HeardTool installer(u"head -c 6"_s, tool(), arguments(host.identifier()));
    EXPECT_EQ(installer.statusWithin(1200), -1) << "it looked at the closed pipe more than once";
    EXPECT_TRUE(isOld());
    host.end();
    EXPECT_EQ(installer.statusWithin(20000), 0) << installer.errors();
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, PlaceThatTakesNothingIsFoundOutBeforeTheHostEnds) {
    RunningHost host;
    const ProcessResult result = runProcess(tx::test::helpersFolder() + u"/installer_fault_driver"_s,
                                            QStringList{u"fail"_s, u"2"_s} + arguments(host.identifier()));
    EXPECT_EQ(result.status, tx::installer::StatusCannotStage) << "at once, and not after its end";
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("2 make "));
    EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("opened")));
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("nothing can be put beside"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    host.end();
}

TEST_F(InstallerTool, AnotherFileSystemIsCopiedFrom) {
    QTemporaryDir other(u"/dev/shm/tarvix-XXXXXX"_s);
    ASSERT_TRUE(other.isValid());
    const QString far = other.filePath(u"New.app"_s);
    ASSERT_EQ(runProcess(u"cp"_s, {u"-a"_s, fresh, far}).status, 0);
    const ProcessResult result = runTool({endedProcess(), far, app, archive});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(isNew());
    EXPECT_FALSE(QFileInfo::exists(far));
}

TEST_F(InstallerTool, ReadOnlyFolderIsRefusedWhileTheHostStillRuns) {
    // So that its contents cannot be replaced in their place either.
    tx::test::writeFile(app + u"/more"_s, "x");
    oldTree = tx::test::treeOf(app);
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0500), 0);
    RunningHost host;
    const QString pid = host.identifier();
    ProcessResult result;
    if (geteuid() == 0) {
        // As an ordinary user: root may write everywhere.
        (void)tx::posix::changeOwner(path(u""_s).toStdString(), 65534, 65534);
        result = runProcess(u"setpriv"_s,
                            QStringList{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, tool()} +
                                arguments(pid));
    } else {
        result = runTool(arguments(pid));
    }
    EXPECT_EQ(result.status, tx::installer::StatusTryLater) << result.errors.constData();
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("cannot lock"));
    EXPECT_TRUE(host.isRunning());
    host.end();
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0700), 0);
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree) << "a later try finds it";
    EXPECT_TRUE(ran().isEmpty());
}

TEST_F(InstallerTool, CopyInTheCacheRemovesItselfAndUsesTheRecordedSession) {
    const QString cache = path(u"cache"_s);
    ASSERT_EQ(runProcess(u"cp"_s, {u"-R"_s, tx::test::resourcesFolder() + u"/TXUpdateInstaller.app"_s, cache})
                  .status,
              0);
    QByteArray record = "MARK=session";
    record += '\0';
    tx::test::writeFile(cache + u"/TXUpdateInstaller.environment"_s,
                        record + "PATH=/usr/bin:/bin" + QByteArray(1, '\0'),
                        QFile::ReadOwner | QFile::WriteOwner);
    const ProcessResult result = runProcess(
        u"env"_s, QStringList{u"-i"_s, u"HostApplicationName=Host"_s,
                              cache + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s} +
                      arguments(endedProcess()));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(tx::test::namesIn(cache).isEmpty()) << tx::test::namesIn(cache).join(u' ').toStdString();
    ASSERT_TRUE(waitUntil([this] { return ran() == "new session"; }));
}

TEST_F(InstallerTool, OpensTheApplicationWithTheRecordedHandover) {
    const QString record = path(u"cache/TXUpdateInstaller.environment"_s);
    const QByteArray nul(1, '\0');
    const QString here = QDir(path(u""_s)).canonicalPath();
    for (const bool isTooMuch : {false, true}) {
        prepare();
        QFile::remove(path(u"ran"_s));
        const QByteArray program = "#!/bin/sh\n{ printf '<%s>' \"$MARK\" \"$@\"; pwd; } > '" +
                                   path(u"ran.new"_s).toUtf8() + "'\nmv '" + path(u"ran.new"_s).toUtf8() +
                                   "' '" + path(u"ran"_s).toUtf8() + "'\n";
        tx::test::makeBundle(fresh, {.build = u"2"_s, .program = program});
        tx::Handover handover{{"-n", "", "a b", "LD_PRELOAD=x"}, here.toStdString()};
        if (isTooMuch)
            handover.arguments.resize(tx::mostHandoverArguments + 1);
        tx::test::writeFile(record,
                            "MARK=session" + nul + "PATH=/usr/bin:/bin" + nul + nul +
                                QByteArray::fromStdString(tx::packed(handover)),
                            QFile::ReadOwner | QFile::WriteOwner);
        const ProcessResult result = runTool(arguments(endedProcess()));
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        ASSERT_TRUE(waitUntil([this] { return !ran().isEmpty(); }));
        EXPECT_EQ(ran(), isTooMuch ? QByteArray("<session>/")
                                   : "<session><-n><><a b><LD_PRELOAD=x>" + here.toUtf8());
        EXPECT_FALSE(QFileInfo::exists(record)) << "nobody can read the arguments afterwards";
        EXPECT_FALSE(result.errors.contains("a b") || result.output.contains("a b")) << "not logged";
    }
}

TEST_F(InstallerTool, HandoverReachesTheApplicationAsTheUser) {
    // As root for an ordinary user: the application gets the arguments with that user's rights, in a folder
    // that only the user may enter. An ordinary user installs with their own rights.
    const bool asRoot = geteuid() == 0;
    const QByteArray program = "#!/bin/sh\n{ printf '<%s>' \"$@\"; id -u; pwd; } > '" +
                               path(u"cache/out"_s).toUtf8() + ".new'\nmv '" + path(u"cache/out"_s).toUtf8() +
                               ".new' '" + path(u"cache/out"_s).toUtf8() + "'\n";
    tx::test::makeBundle(fresh, {.build = u"2"_s, .program = program});
    const QString own = QDir(path(u"cache"_s)).canonicalPath() + u"/own"_s;
    QDir().mkpath(own);
    const QString record = path(u"cache/TXUpdateInstaller.environment"_s);
    const QByteArray nul(1, '\0');
    tx::test::writeFile(record,
                        "PATH=/usr/bin:/bin" + nul + "HOME=" + path(u"cache"_s).toUtf8() + nul + nul +
                            QByteArray::fromStdString(tx::packed({{"-x", "y z"}, own.toStdString()})),
                        QFile::ReadOwner | QFile::WriteOwner);
    if (asRoot) {
        ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
        ASSERT_EQ(runProcess(u"chmod"_s, {u"-R"_s, u"a+rX"_s, fresh}).status, 0);
        ASSERT_EQ(runProcess(u"chown"_s, {u"-R"_s, u"65534:65534"_s, path(u"cache"_s)}).status, 0);
        qputenv("PKEXEC_UID", "65534");
    }
    ASSERT_EQ(chmod(QFile::encodeName(own).constData(), 0700), 0);
    const ProcessResult result = runTool(arguments(endedProcess()));
    qunsetenv("PKEXEC_UID");
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    const QString out = path(u"cache/out"_s);
    ASSERT_TRUE(waitUntil([&] { return QFileInfo::exists(out); }));
    EXPECT_EQ(tx::test::readFile(out),
              "<-x><y z>" + QByteArray::number(asRoot ? 65534 : geteuid()) + '\n' + own.toUtf8() + '\n');
}

/// Polls the path while installations run: a complete application must stand there at every look.
TEST_F(InstallerTool, ApplicationStandsAtEveryInstant) {
    std::atomic<bool> stop{false};
    std::atomic<int> missing{0};
    std::atomic<int> looks{0};
    const std::string plist = (app + u"/Contents/Info.plist"_s).toStdString();
    std::thread watcher([&] {
        struct stat info {};
        while (!stop) {
            missing += stat(plist.c_str(), &info) != 0 || info.st_size == 0;
            ++looks;
        }
    });
    for (int i = 0; i < 20; ++i) {
        QDir(path(u"cache"_s)).removeRecursively();
        tx::test::makeBundle(fresh, {.build = QString::number(i)});
        EXPECT_EQ(drive(u"none"_s, 0).status, 0);
    }
    stop = true;
    watcher.join();
    EXPECT_EQ(missing, 0);
    EXPECT_GT(looks, 1000);
}

TEST(InstallerWait, EndsWithTheProcessOrTheLimit) {
    EXPECT_TRUE(
        tx::installer::waitForEnd(static_cast<pid_t>(endedProcess().toInt()), std::chrono::seconds(10)));
    EXPECT_FALSE(tx::installer::waitForEnd(getppid(), std::chrono::milliseconds(50)));
}

} // namespace

// SPDX-License-Identifier: MIT
#include "installer/installer.h"

#include "platform/linux/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QProcess>
#include <QThread>

#include <csignal>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

/// The identifier of a process that has ended.
QString endedProcess() {
    QProcess process;
    process.start(u"true"_s, {});
    process.waitForStarted();
    const qint64 pid = process.processId();
    process.waitForFinished();
    return QString::number(pid);
}

class InstallerTool : public tx::test::FrameworkTest {
protected:
    const QString folder = path(u"Applications"_s);
    const QString app = folder + u"/My \"App\" it's.app"_s;
    const QString fresh = path(u"cache/New.app"_s);
    const QString archive = path(u"cache/New - 2.zip"_s);
    QStringList oldTree;
    QStringList newTree;

    /// The folder around the application is somebody else's.
    bool inPlace = false;

    InstallerTool() {
        QDir(folder).removeRecursively();
        prepare();
    }
    ~InstallerTool() override { chmod(QFile::encodeName(folder).constData(), 0755); }
    void prepare() {
        chmod(QFile::encodeName(folder).constData(), 0755);
        QDir(path(u"cache"_s)).removeRecursively();
        QDir(folder).removeRecursively();
        tx::test::makeBundle(app, {.build = u"1"_s, .program = program("old")});
        tx::test::writeFile(app + u"/Contents/Resources/only-old"_s, "x");
        tx::test::makeBundle(fresh, {.build = u"2"_s, .program = program("new")});
        tx::test::writeFile(fresh + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        EXPECT_EQ(symlink("data", (fresh + u"/Contents/Resources/link"_s).toUtf8().constData()), 0);
        tx::test::writeFile(archive, "archive");
        oldTree = tx::test::treeOf(inPlace ? app + u"/Contents"_s : app);
        newTree = tx::test::treeOf(inPlace ? fresh + u"/Contents"_s : fresh);
        if (inPlace)
            closeFolder();
    }
    /// Only the application and what is to be installed belong to the user as whom the installer runs then.
    void closeFolder() {
        if (geteuid() == 0) {
            (void)tx::posix::changeOwner(path(u""_s).toStdString(), 65534, 65534);
            (void)chown(QFile::encodeName(folder).constData(), 0, 0);
        }
        EXPECT_EQ(chmod(QFile::encodeName(folder).constData(), geteuid() == 0 ? 0755 : 0555), 0);
    }
    /// Runs a program as the user to whom the application belongs.
    static ProcessResult runAsUser(const QString &program, const QStringList &words) {
        if (geteuid() != 0)
            return runProcess(program, words);
        return runProcess(u"setpriv"_s,
                          QStringList{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program} +
                              words);
    }
    QByteArray program(const QByteArray &mark) const {
        return "#!/bin/sh\necho " + mark + " $MARK > '" + path(u"ran"_s).toUtf8() + "'\n";
    }
    QStringList arguments(const QString &process) const { return {process, fresh, app, archive}; }
    static QString tool() {
        return QStringLiteral(TEST_RESOURCES) + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    }
    ProcessResult runTool(const QStringList &words) const { return runProcess(tool(), words); }
    ProcessResult drive(const QString &mode, int call) const {
        const QString driver = QStringLiteral(TEST_HELPERS) + u"/installer_fault_driver"_s;
        const QStringList words = QStringList{mode, QString::number(call)} + arguments(endedProcess());
        return inPlace ? runAsUser(driver, words) : runProcess(driver, words);
    }
    QStringList tree() const { return tx::test::treeOf(inPlace ? app + u"/Contents"_s : app); }
    bool isOld() const { return tree() == oldTree; }
    bool isNew() const { return tree() == newTree; }
    QStringList strays() const {
        QStringList names = tx::test::namesIn(folder);
        names.removeOne(QFileInfo(app).fileName());
        if (inPlace)
            names += tx::test::namesIn(app);
        names.removeOne(u"Contents"_s);
        return names;
    }
    QByteArray ran() const { return tx::test::readFile(path(u"ran"_s)).trimmed(); }
};

TEST_F(InstallerTool, ReplacesTheApplicationCleansUpAndOpensIt) {
    const ProcessResult result = runTool(arguments(endedProcess()));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(strays().isEmpty());
    EXPECT_TRUE(tx::test::namesIn(path(u"cache"_s)).isEmpty()) << "archive and new application are gone";
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
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    QProcess installer;
    installer.start(tool(), arguments(QString::number(host.processId())));
    ASSERT_TRUE(installer.waitForStarted());
    EXPECT_FALSE(installer.waitForFinished(200));
    EXPECT_TRUE(isOld());
    host.kill();
    host.waitForFinished();
    ASSERT_TRUE(installer.waitForFinished(20000));
    EXPECT_EQ(installer.exitCode(), 0);
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, HostThatDoesNotEndIsLeftAlone) {
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    const ProcessResult result =
        runProcess(QStringLiteral(TEST_HELPERS) + u"/installer_fault_driver"_s,
                   QStringList{u"none"_s, u"0"_s} + arguments(QString::number(host.processId())));
    EXPECT_EQ(result.status, tx::installer::StatusTryLater);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("does not end"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    host.kill();
    host.waitForFinished();
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

TEST_F(InstallerTool, SetuidStaysOnlyWhereTheInstalledApplicationHasIt) {
    const auto mode = [](const QString &file) {
        struct stat info {};
        EXPECT_EQ(lstat(QFile::encodeName(file).constData(), &info), 0) << file.toStdString();
        return info.st_mode & 07777;
    };
    const auto set = [](const QString &file, mode_t bits) {
        tx::test::writeFile(file, "x");
        ASSERT_EQ(chmod(QFile::encodeName(file).constData(), bits), 0);
    };
    for (const bool far : {false, true}) {
        prepare();
        set(app + u"/Contents/both"_s, 04755);
        set(fresh + u"/Contents/both"_s, 06755);
        set(app + u"/Contents/plain"_s, 0755);
        set(fresh + u"/Contents/plain"_s, 04755);
        set(fresh + u"/Contents/new"_s, 02711);
        set(app + u"/Contents/gone"_s, 04755);
        set(fresh + u"/Contents/gone"_s, 0755);
        ASSERT_EQ(symlink("both", QFile::encodeName(app + u"/Contents/link"_s).constData()), 0);
        set(fresh + u"/Contents/link"_s, 04755);
        EXPECT_EQ(drive(far ? u"cross:none"_s : u"none"_s, 0).status, 0);
        EXPECT_EQ(mode(app + u"/Contents/both"_s), 04755U) << "no more than the old one had";
        EXPECT_EQ(mode(app + u"/Contents/plain"_s), 0755U);
        EXPECT_EQ(mode(app + u"/Contents/new"_s), 0711U);
        EXPECT_EQ(mode(app + u"/Contents/gone"_s), 0755U) << "nor more than the new one wants";
        EXPECT_EQ(mode(app + u"/Contents/link"_s), 0755U) << "links give no rights";
    }
}

TEST_F(InstallerTool, BackupOfAnotherUserIsNotPutBack) {
    for (const std::string &stray :
         {tx::backupPathFor(app.toStdString()), tx::wholePathFor(app.toStdString())}) {
        prepare();
        const QString backup = QString::fromStdString(stray);
        tx::test::makeBundle(backup, {.build = u"666"_s});
        if (stray == tx::backupPathFor(app.toStdString()))
            QDir(app).removeRecursively();
        const QStringList before = tx::test::treeOf(folder);
        // Only root can make another user's; this user's own is put back in any case.
        if (geteuid() == 0) {
            ASSERT_FALSE(tx::posix::changeOwner(stray, 65534, 65534));
            EXPECT_FALSE(tx::isOwnBackup(stray));
            EXPECT_FALSE(tx::restoreBackup(app.toStdString()));
            EXPECT_EQ(tx::test::treeOf(folder), before);
            ASSERT_FALSE(tx::posix::changeOwner(stray, 0, 0));
        }
        EXPECT_TRUE(tx::restoreBackup(app.toStdString()));
        EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"666"_s);
    }
}

TEST_F(InstallerTool, WhatAnInterruptedInstallationLeftIsUndoneFirst) {
    /// Cannot put the new application into place, so that what stands there stays.
    class NoStaging final : public tx::installer::Files {
    public:
        bool putsBack = true;
        tx::posix::FileError rename(const std::string &from, const std::string &to) override {
            const bool stages = to.find(".txupdate-new") != std::string::npos;
            return stages || !putsBack ? tx::posix::FileError{EIO, to} : Files::rename(from, to);
        }
    };
    const QString backup = QString::fromStdString(tx::backupPathFor(app.toStdString()));
    const QString whole = QString::fromStdString(tx::wholePathFor(app.toStdString()));
    for (const bool copied : {false, true}) {
        for (const bool putsBack : {true, false}) {
            prepare();
            ASSERT_TRUE(QDir().rename(app, copied ? whole : backup));
            if (copied)
                tx::test::writeFile(app + u"/Contents/half"_s, "of it");
            tx::installer::Arguments read;
            std::string why;
            EXPECT_TRUE(tx::installer::readArguments(
                {"99999", fresh.toStdString(), app.toStdString(), archive.toStdString()}, read, why))
                << why;
            NoStaging files;
            files.putsBack = putsBack;
            std::string log;
            QString opened;
            tx::installer::Context context{.files = &files};
            context.session.user = getuid();
            context.log = [&](const std::string &line) { log += line + '\n'; };
            context.open = [&](const std::string &bundle, const tx::installer::Session &) {
                opened = QString::fromStdString(bundle);
                return std::string();
            };
            EXPECT_EQ(tx::installer::install({static_cast<pid_t>(endedProcess().toInt()), fresh.toStdString(),
                                              app.toStdString(), archive.toStdString()},
                                             context),
                      tx::installer::StatusCannotStage);
            EXPECT_EQ(opened, app);
            if (putsBack) {
                EXPECT_THAT(log, testing::HasSubstr("an interrupted installation was undone"));
                EXPECT_TRUE(isOld());
                EXPECT_TRUE(strays().isEmpty());
            } else {
                EXPECT_THAT(log, testing::HasSubstr("could not be put back from"));
                EXPECT_EQ(tx::test::treeOf(copied ? whole : backup), oldTree) << "kept for the next run";
                // Which may also be an opening.
                EXPECT_TRUE(tx::restoreBackup(app.toStdString()));
                EXPECT_TRUE(isOld());
            }
        }
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

TEST_F(InstallerTool, NothingIsPutBackWhileAnInstallationRuns) {
    QDir(app).removeRecursively();
    tx::test::makeBundle(QString::fromStdString(tx::backupPathFor(app.toStdString())), {});
    tx::installer::Files files;
    tx::posix::Descriptor lock;
    ASSERT_FALSE(files.lock(tx::lockPathFor(app.toStdString()), lock));
    EXPECT_FALSE(tx::restoreBackup(app.toStdString()));
    lock.reset();
    EXPECT_TRUE(tx::restoreBackup(app.toStdString()));
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
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    QProcess installer;
    installer.start(tool(), arguments(QString::number(host.processId())));
    QByteArray said;
    ASSERT_TRUE(waitUntil([&] { return (said += installer.readAllStandardOutput()).endsWith('\n'); }));
    EXPECT_EQ(said, QByteArray("ready\n"));
    const QString output = u"/proc/%1/fd/1"_s.arg(installer.processId());
    EXPECT_TRUE(waitUntil([&] { return QFileInfo(output).symLinkTarget() == u"/dev/null"; }))
        << "what it says later does not end it";
    EXPECT_EQ(runTool(arguments(endedProcess())).status, 75) << "the lock is held while it waits";
    EXPECT_TRUE(isOld());
    host.kill();
    host.waitForFinished();
    ASSERT_TRUE(installer.waitForFinished(20000));
    EXPECT_EQ(installer.exitCode(), 0);
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, RefusalIsSaidInsteadOfTheWordWhileTheHostRuns) {
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    const QString pid = QString::number(host.processId());
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
    host.kill();
    host.waitForFinished();
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
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    QProcess installer;
    installer.start(tool(), arguments(QString::number(host.processId())));
    ASSERT_TRUE(waitUntil([&] { return installer.readAllStandardOutput() == "ready\n"; }));
    ASSERT_EQ(chmod(file.constData(), 0644), 0);
    newTree = tx::test::treeOf(fresh);
    host.kill();
    host.waitForFinished();
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
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    // A pipe whose other end is closed, as after a host that has given up.
    const ProcessResult result = runProcess(
        u"bash"_s, QStringList{u"-c"_s, u"exec 1> >(:); wait $!; exec \"$@\""_s, u"bash"_s, tool()} +
                       arguments(QString::number(host.processId())));
    EXPECT_EQ(result.status, 75);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("does not wait for its replacement"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    EXPECT_TRUE(strays().isEmpty());
    EXPECT_TRUE(ran().isEmpty());
    host.kill();
    host.waitForFinished();
}

TEST_F(InstallerTool, PlaceThatTakesNothingIsFoundOutBeforeTheHostEnds) {
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    const ProcessResult result =
        runProcess(QStringLiteral(TEST_HELPERS) + u"/installer_fault_driver"_s,
                   QStringList{u"fail"_s, u"2"_s} + arguments(QString::number(host.processId())));
    EXPECT_EQ(result.status, tx::installer::StatusCannotStage) << "at once, and not after its end";
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("2 make "));
    EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("opened")));
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("nothing can be put beside"));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree);
    host.kill();
    host.waitForFinished();
}

TEST_F(InstallerTool, NewOwnerCannotPutALinkInTheWay) {
    // An ordinary user gives nothing away, so that there is nothing to win; as root there is.
    // As with folders that another user may write to: while owners change, a folder becomes a link.
    tx::test::writeFile(path(u"outside/victim"_s), "x");
    const QString tree = path(u"tree"_s);
    tx::test::writeFile(tree + u"/sub/victim"_s, "x");
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
        while (!stop) {
            std::rename(QFile::encodeName(tree + u"/sub"_s).constData(),
                        QFile::encodeName(tree + u"/away"_s).constData());
            (void)!symlink(QFile::encodeName(path(u"outside"_s)).constData(),
                           QFile::encodeName(tree + u"/sub"_s).constData());
            unlink(QFile::encodeName(tree + u"/sub"_s).constData());
            std::rename(QFile::encodeName(tree + u"/away"_s).constData(),
                        QFile::encodeName(tree + u"/sub"_s).constData());
        }
    });
    for (int i = 0; i < 2000; ++i) {
        (void)tx::posix::changeOwner(tree.toStdString(), i % 2 == 0 ? 65534 : 65533, 65534);
    }
    stop = true;
    swapper.join();
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(path(u"outside/victim"_s)).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, geteuid());
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

TEST_F(InstallerTool, ReadOnlyFolderLeavesTheOldApplicationAndOpensIt) {
    // So that its contents cannot be replaced in their place either.
    tx::test::writeFile(app + u"/more"_s, "x");
    oldTree = tx::test::treeOf(app);
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0500), 0);
    const QString pid = endedProcess();
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
    EXPECT_EQ(result.status, 75) << result.errors.constData();
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("cannot lock"));
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0700), 0);
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree) << "a later try finds it";
    ASSERT_TRUE(waitUntil([this] { return ran() == "old"; }));
}

TEST_F(InstallerTool, OwnerAndGroupOfTheOldApplicationStay) {
    // Only root can give them to others; an ordinary user's stay that user's.
    const bool asRoot = geteuid() == 0;
    const uid_t owner = asRoot ? 1234 : getuid();
    const gid_t group = asRoot ? 5678 : getgid();
    ASSERT_FALSE(tx::posix::changeOwner(app.toStdString(), owner, group));
    ASSERT_FALSE(tx::posix::changeOwner(fresh.toStdString(), asRoot ? 65534 : owner, asRoot ? 65534 : group));
    EXPECT_EQ(drive(u"none"_s, 0).status, 0);
    for (const QString &entry :
         {app, app + u"/Contents/Linux/Program"_s, app + u"/Contents/Resources/link"_s}) {
        struct stat info {};
        ASSERT_EQ(lstat(entry.toUtf8().constData(), &info), 0);
        EXPECT_EQ(info.st_uid, owner);
        EXPECT_EQ(info.st_gid, group);
    }
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerTool, RecordedSessionIsTheUsersOwn) {
    const QString record = path(u"record"_s);
    const tx::installer::Arguments words{1, fresh.toStdString(), app.toStdString(), archive.toStdString()};
    const auto sessionFrom = [&](int mode) {
        tx::test::writeFile(record, QByteArray("MARK=here\0NEW=line\nin it\0junk\0", 31));
        EXPECT_EQ(chmod(record.toUtf8().constData(), static_cast<mode_t>(mode)), 0);
        return tx::installer::sessionFor(words, record.toStdString()).environment;
    };
    EXPECT_EQ(sessionFrom(0600), (std::vector<std::string>{"MARK=here", "NEW=line\nin it"}));
    EXPECT_THAT(sessionFrom(0644), testing::Not(testing::Contains("MARK=here"))) << "others may read it";
    EXPECT_THAT(sessionFrom(0644), testing::Contains(testing::StartsWith("PATH=")));
    ASSERT_TRUE(QFile::rename(record, path(u"elsewhere"_s)));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), record));
    EXPECT_THAT(tx::installer::sessionFor(words, record.toStdString()).environment,
                testing::Not(testing::Contains("MARK=here")))
        << "a link is not followed";
}

TEST_F(InstallerTool, RootOpensAsTheUserWhoRanTheHost) {
    const tx::installer::Arguments words{1, fresh.toStdString(), app.toStdString(), archive.toStdString()};
    qputenv("PKEXEC_UID", "65534");
    const tx::installer::Session session = tx::installer::sessionFor(words, "/none");
    qunsetenv("PKEXEC_UID");
    if (geteuid() == 0) {
        EXPECT_EQ(session.user, 65534U);
        EXPECT_TRUE(session.dropsPrivileges);
        ASSERT_FALSE(tx::posix::changeOwner(fresh.toStdString(), 65533, 65533));
        EXPECT_EQ(tx::installer::sessionFor(words, "/none").user, 65533U) << "else the one who unpacked it";
    } else {
        EXPECT_EQ(session.user, getuid());
        EXPECT_FALSE(session.dropsPrivileges);
    }
}

TEST_F(InstallerTool, CopyInTheCacheRemovesItselfAndUsesTheRecordedSession) {
    const QString cache = path(u"cache"_s);
    ASSERT_EQ(
        runProcess(u"cp"_s, {u"-R"_s, QStringLiteral(TEST_RESOURCES) + u"/TXUpdateInstaller.app"_s, cache})
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

TEST_F(InstallerTool, ContentsAreReplacedWhereTheFolderBelongsToOthers) {
    inPlace = true;
    prepare();
    struct stat before {};
    ASSERT_EQ(stat(QFile::encodeName(app).constData(), &before), 0);
    const ProcessResult result = runAsUser(tool(), arguments(endedProcess()));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.startsWith("ready\n")) << result.output.constData();
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
    EXPECT_TRUE(tx::test::namesIn(path(u"cache"_s)).isEmpty()) << "archive and new application are gone";
    struct stat after {};
    ASSERT_EQ(stat(QFile::encodeName(app).constData(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the bundle itself stays";
    ASSERT_TRUE(waitUntil([this] { return ran() == "new"; }));
}

TEST_F(InstallerTool, BundlesOfMoreThanTheirContentsAreNotReplacedInPlace) {
    inPlace = true;
    const struct {
        const char *reason;
        std::function<void()> arrange;
    } cases[] = {
        {"holds more than its", [this] { tx::test::writeFile(app + u"/extra"_s, "x"); }},
        {"holds more than its", [this] { tx::test::writeFile(fresh + u"/extra"_s, "x"); }},
        {"is not a folder",
         [this] {
             ASSERT_TRUE(QFile::rename(fresh + u"/Contents"_s, path(u"Elsewhere"_s)));
             ASSERT_TRUE(QFile::link(path(u"Elsewhere"_s), fresh + u"/Contents"_s));
         }},
        {"Permission denied", [this] { ASSERT_EQ(chmod(QFile::encodeName(app).constData(), 0555), 0); }},
    };
    for (const auto &c : cases) {
        QDir(path(u"Elsewhere"_s)).removeRecursively();
        chmod(QFile::encodeName(app).constData(), 0755);
        prepare();
        chmod(QFile::encodeName(folder).constData(), 0755);
        c.arrange();
        closeFolder();
        const QStringList all = tx::test::treeOf(app);
        const ProcessResult result = runAsUser(tool(), arguments(endedProcess()));
        EXPECT_NE(result.status, 0) << c.reason;
        EXPECT_FALSE(result.output.startsWith("ready")) << "the host must not end";
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(c.reason));
        EXPECT_EQ(tx::test::treeOf(app), all);
        EXPECT_TRUE(QFileInfo::exists(fresh));
        chmod(QFile::encodeName(app).constData(), 0755);
    }
}

TEST_F(InstallerTool, InterruptedContentsAreFoundByTheNextRunAndTheNextOpening) {
    const std::string contents = (app + u"/Contents"_s).toStdString();
    for (const bool copied : {false, true}) {
        for (const bool opens : {false, true}) {
            inPlace = true;
            prepare();
            const QString backup =
                QString::fromStdString(copied ? tx::wholePathFor(contents) : tx::backupPathFor(contents));
            ASSERT_TRUE(QDir().rename(app + u"/Contents"_s, backup));
            if (copied)
                tx::test::writeFile(app + u"/Contents/half"_s, "of it");
            closeFolder();
            if (opens) {
                EXPECT_TRUE(tx::restoreBackup(app.toStdString()));
                EXPECT_TRUE(isOld());
            } else {
                const ProcessResult result = runAsUser(tool(), arguments(endedProcess()));
                EXPECT_EQ(result.status, 0) << result.errors.constData();
                EXPECT_TRUE(isNew());
            }
            EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
        }
    }
}

struct FaultCase {
    const char *road;
    const char *mode;
};

/// Every change of the file system fails, or the process is killed before, after or in the middle of it.
class InstallerFault : public InstallerTool, public testing::WithParamInterface<FaultCase> {};

TEST_P(InstallerFault, LeavesACompleteApplicationAndTheNextRunRepairs) {
    QString road = QString::fromLatin1(GetParam().road);
    if (road.startsWith(u"contents:"_s)) {
        road.remove(0, 9);
        inPlace = true;
        prepare();
    }
    const QString mode = QString::fromLatin1(GetParam().mode);
    const bool kills = mode != u"fail";
    int calls = 0;
    {
        const ProcessResult clean = drive(road + u"none"_s, 0);
        ASSERT_EQ(clean.status, 0) << clean.errors.constData();
        ASSERT_TRUE(isNew());
        calls = static_cast<int>(clean.output.count('\n')) - 1; // the last line is the opening
        ASSERT_GT(calls, 4) << clean.output.constData();
    }
    for (int call = 1; call <= calls; ++call) {
        prepare();
        const ProcessResult broken = drive(road + mode, call);
        SCOPED_TRACE(broken.output.toStdString() + broken.errors.toStdString());
        if (!road.isEmpty() && kills) {
            // Without an exchange in one step there is a gap, which the next opening closes.
            (void)tx::restoreBackup(app.toStdString());
        }
        EXPECT_TRUE(isOld() || isNew());
        if (!kills) {
            EXPECT_FALSE(broken.errors.isEmpty()) << "the reason is logged";
            EXPECT_THAT(broken.output.toStdString(), testing::HasSubstr("opened " + app.toStdString()))
                << "what stands there is opened";
        }
        const bool wasNew = isNew();
        // The next run: the update is tried again from a newly unpacked archive.
        tx::test::makeBundle(fresh, {.build = u"2"_s, .program = program("new")});
        tx::test::writeFile(fresh + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        EXPECT_EQ(symlink("data", (fresh + u"/Contents/Resources/link"_s).toUtf8().constData()), 0);
        if (inPlace)
            closeFolder();
        const ProcessResult again = drive(road + u"none"_s, 0);
        EXPECT_EQ(again.status, 0) << again.errors.constData() << wasNew;
        EXPECT_TRUE(isNew());
        EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
        EXPECT_TRUE(tx::test::namesIn(path(u"cache"_s)).isEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Matrix, InstallerFault,
    testing::Values(
        FaultCase{"", "fail"}, FaultCase{"", "kill-before"}, FaultCase{"", "kill-after"},
        FaultCase{"", "half"}, FaultCase{"noexchange:", "fail"}, FaultCase{"noexchange:", "kill-before"},
        FaultCase{"noexchange:", "kill-after"}, FaultCase{"noexchange:", "half"}, FaultCase{"cross:", "fail"},
        FaultCase{"cross:", "kill-before"}, FaultCase{"cross:", "kill-after"}, FaultCase{"cross:", "half"},
        FaultCase{"noexchange:cross:", "kill-after"}, FaultCase{"layered:", "fail"},
        FaultCase{"layered:", "kill-before"}, FaultCase{"layered:", "kill-after"},
        FaultCase{"layered:", "half"}, FaultCase{"contents:", "fail"}, FaultCase{"contents:", "kill-before"},
        FaultCase{"contents:", "kill-after"}, FaultCase{"contents:", "half"},
        FaultCase{"contents:noexchange:", "fail"}, FaultCase{"contents:noexchange:", "kill-before"},
        FaultCase{"contents:noexchange:", "kill-after"}, FaultCase{"contents:cross:", "kill-after"},
        FaultCase{"contents:cross:", "half"}, FaultCase{"contents:layered:", "fail"},
        FaultCase{"contents:layered:", "kill-before"}, FaultCase{"contents:layered:", "kill-after"},
        FaultCase{"contents:layered:", "half"}),
    [](const testing::TestParamInfo<FaultCase> &each) {
        std::string name = std::string(each.param.road) + each.param.mode;
        for (char &c : name)
            c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        return name;
    });

TEST(InstallerWait, EndsWithTheProcessOrTheLimit) {
    EXPECT_TRUE(
        tx::installer::waitForEnd(static_cast<pid_t>(endedProcess().toInt()), std::chrono::seconds(10)));
    EXPECT_FALSE(tx::installer::waitForEnd(getppid(), std::chrono::milliseconds(50)));
}

} // namespace

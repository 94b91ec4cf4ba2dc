// SPDX-License-Identifier: MIT
#include "installer/installer.h"

#include "platform/linux/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QProcess>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <optional>
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

mode_t modeOf(const QString &file) {
    struct stat info {};
    EXPECT_EQ(lstat(QFile::encodeName(file).constData(), &info), 0) << file.toStdString();
    return info.st_mode & 07777;
}

void writeWithMode(const QString &file, mode_t bits) {
    tx::test::writeFile(file, "x");
    ASSERT_EQ(chmod(QFile::encodeName(file).constData(), bits), 0);
}

TEST_F(InstallerTool, SetuidStaysOnlyWhereTheInstalledApplicationHasIt) {
    // Only root's files keep them, which only root can make.
    const mode_t userBit = geteuid() == 0 ? S_ISUID : 0;
    const mode_t groupBit = geteuid() == 0 ? S_ISGID : 0;
    writeWithMode(path(u"outside/su"_s), 04755);
    for (const bool far : {false, true}) {
        prepare();
        writeWithMode(app + u"/Contents/both"_s, 04755);
        writeWithMode(fresh + u"/Contents/both"_s, 06755);
        writeWithMode(app + u"/Contents/group"_s, 02755);
        writeWithMode(fresh + u"/Contents/group"_s, 02755);
        writeWithMode(app + u"/Contents/plain"_s, 0755);
        writeWithMode(fresh + u"/Contents/plain"_s, 04755);
        writeWithMode(fresh + u"/Contents/new"_s, 02711);
        writeWithMode(app + u"/Contents/gone"_s, 04755);
        writeWithMode(fresh + u"/Contents/gone"_s, 0755);
        ASSERT_EQ(symlink("both", QFile::encodeName(app + u"/Contents/link"_s).constData()), 0);
        writeWithMode(fresh + u"/Contents/link"_s, 04755);
        // A link on the way, to a program that has the bit.
        ASSERT_TRUE(QFile::link(path(u"outside"_s), app + u"/x"_s));
        writeWithMode(fresh + u"/x/su"_s, 04755);
        // A folder into which somebody else could have put one.
        writeWithMode(app + u"/Contents/open/su"_s, 04755);
        ASSERT_EQ(chmod(QFile::encodeName(app + u"/Contents/open"_s).constData(), 0777), 0);
        writeWithMode(fresh + u"/Contents/open/su"_s, 04755);
        if (geteuid() == 0) {
            // One of another user, and one of another group, as which the new one would not run.
            writeWithMode(app + u"/Contents/another"_s, 0755);
            ASSERT_EQ(chown(QFile::encodeName(app + u"/Contents/another"_s).constData(), 65534, 0), 0);
            ASSERT_EQ(chmod(QFile::encodeName(app + u"/Contents/another"_s).constData(), 04755), 0);
            writeWithMode(fresh + u"/Contents/another"_s, 04755);
            writeWithMode(app + u"/Contents/mail"_s, 0755);
            ASSERT_EQ(chown(QFile::encodeName(app + u"/Contents/mail"_s).constData(), 0, 8), 0);
            ASSERT_EQ(chmod(QFile::encodeName(app + u"/Contents/mail"_s).constData(), 02755), 0);
            writeWithMode(fresh + u"/Contents/mail"_s, 02755);
        }
        const ProcessResult result = drive(far ? u"cross:none"_s : u"none"_s, 0);
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(modeOf(app + u"/Contents/both"_s), 0755U | userBit) << "no more than the old one had";
        EXPECT_EQ(modeOf(app + u"/Contents/group"_s), 0755U | groupBit);
        EXPECT_EQ(modeOf(app + u"/Contents/plain"_s), 0755U);
        EXPECT_EQ(modeOf(app + u"/Contents/new"_s), 0711U);
        EXPECT_EQ(modeOf(app + u"/Contents/gone"_s), 0755U) << "nor more than the new one wants";
        EXPECT_EQ(modeOf(app + u"/Contents/link"_s), 0755U) << "links give no rights";
        EXPECT_EQ(modeOf(app + u"/x/su"_s), 0755U) << "nor do links on the way";
        EXPECT_EQ(modeOf(app + u"/Contents/open/su"_s), 0755U);
        if (geteuid() == 0) {
            EXPECT_EQ(modeOf(app + u"/Contents/another"_s), 0755U);
            EXPECT_EQ(modeOf(app + u"/Contents/mail"_s), 0755U);
        }
    }
    EXPECT_EQ(modeOf(path(u"outside/su"_s)), 04755U) << "not through a link either";
}

TEST_F(InstallerTool, SetuidBehindALongPathAndAClosedFolderDoesNotStay) {
    const std::string name(200, 'd');
    constexpr int depth = 25; // beyond what the system takes in one piece
    const auto deepest = [&](const QString &top, bool make) {
        tx::posix::Descriptor current(open(QFile::encodeName(top).constData(), O_PATH | O_DIRECTORY));
        for (int i = 0; i < depth; ++i) {
            if (make) {
                EXPECT_EQ(mkdirat(current.get(), name.c_str(), 0755), 0);
            }
            current = tx::posix::Descriptor(openat(current.get(), name.c_str(), O_PATH | O_DIRECTORY));
        }
        return current;
    };
    for (const bool far : {false, true}) {
        prepare();
        const QByteArray closed = QFile::encodeName(fresh + u"/Contents/closed"_s);
        ASSERT_EQ(mkdir(closed.constData(), 0755), 0);
        const tx::posix::Descriptor last = deepest(fresh + u"/Contents/closed"_s, true);
        const tx::posix::Descriptor file(openat(last.get(), "su", O_WRONLY | O_CREAT, 0755));
        ASSERT_EQ(fchmod(file.get(), 04755), 0);
        ASSERT_EQ(chmod(closed.constData(), 0311), 0);
        const ProcessResult result = drive(far ? u"cross:none"_s : u"none"_s, 0);
        if (geteuid() == 0) {
            EXPECT_EQ(result.status, 0) << result.errors.constData();
            struct stat info {};
            ASSERT_EQ(fstatat(deepest(app + u"/Contents/closed"_s, false).get(), "su", &info, 0), 0);
            EXPECT_EQ(info.st_mode & 07777, 0755U);
        } else {
            EXPECT_EQ(result.status, tx::installer::StatusCannotStage) << "what cannot be looked at";
            EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("Permission denied"));
            EXPECT_TRUE(isOld());
        }
        for (const QString &tree : {app, fresh})
            EXPECT_FALSE(tx::posix::removeTree(tree.toStdString()));
    }
}

/// A file system that fails where a test says, and what became of an installation on it.
class HookedFiles final : public tx::installer::Files {
public:
    using FileError = tx::posix::FileError;
    /// The errno value for a change, by its name and place; 0 does it.
    std::function<int(const std::string &, const std::string &)> decide;
    FileError rename(const std::string &from, const std::string &to) override {
        return at("rename", to, [&] { return Files::rename(from, to); });
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        return at("exchange", b, [&] { return Files::exchange(a, b); });
    }
    FileError removeTree(const std::string &place) override {
        return at("remove", place, [&] { return Files::removeTree(place); });
    }
    FileError lock(const std::string &place, tx::posix::Descriptor &lock) override {
        return at("lock", place, [&] { return Files::lock(place, lock); });
    }
    FileError syncDirectory(const std::string &place) override {
        return at("syncDirectory", place, [&] { return Files::syncDirectory(place); });
    }

private:
    template <typename Work>
    FileError at(const char *name, const std::string &place, const Work &work) const {
        const int number = decide ? decide(name, place) : 0;
        return number != 0 ? FileError{number, place} : work();
    }
};

class InstallerSteps : public InstallerTool {
protected:
    std::string log;
    int opened = 0;
    HookedFiles files;
    tx::installer::Session session;

    InstallerSteps() {
        session.user = getuid();
        session.group = getgid();
    }
    int install(tx::installer::Rights &rights = tx::installer::processRights()) {
        tx::installer::Context context{.files = &files, .rights = &rights};
        context.session = session;
        context.log = [this](const std::string &line) { log += line + '\n'; };
        context.open = [this](const std::string &, const tx::installer::Session &) {
            ++opened;
            return std::string();
        };
        log.clear();
        opened = 0;
        return tx::installer::install({static_cast<pid_t>(endedProcess().toInt()), fresh.toStdString(),
                                       app.toStdString(), archive.toStdString()},
                                      context);
    }
    bool freshIsThere() const { return tx::test::treeOf(fresh) == newTree && QFileInfo::exists(archive); }
};

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

TEST_F(InstallerSteps, RightsThatCannotBeGivenUpOrRegainedEndTheTool) {
    class FailingRights final : public tx::installer::Rights {
    public:
        int failAt = 0;
        int calls = 0;
        bool lower(const tx::installer::Session &session) override {
            return ++calls != failAt && Rights::lower(session);
        }
        bool raise(const tx::installer::Session &session) override {
            return ++calls != failAt && Rights::raise(session);
        }
    };
    // The folder's lock lowers and raises, and so do the last look before the swap and the cleaning after it.
    for (int failAt = 1; failAt <= 6; ++failAt) {
        prepare();
        FailingRights rights;
        rights.failAt = failAt;
        EXPECT_EQ(install(rights), tx::installer::StatusNoRights) << failAt;
        EXPECT_EQ(rights.calls, failAt) << "nothing is done after it";
        EXPECT_EQ(opened, 0);
        EXPECT_THAT(log, testing::HasSubstr("the rights of an administrator"));
        EXPECT_TRUE(failAt <= 4 ? isOld() : isNew()) << failAt;
        EXPECT_EQ(QFileInfo::exists(archive), failAt < 6) << "cleaned with no rights but the user's";
    }
}

TEST_F(InstallerSteps, LoweredRightsAreTheUsersAlone) {
    tx::installer::Rights rights;
    session.dropsPrivileges = true;
    session.user = session.group = 65534;
    if (geteuid() != 0) {
        EXPECT_FALSE(rights.lower(session)) << "only root can become another user";
        EXPECT_EQ(install(rights), tx::installer::StatusNoRights);
        EXPECT_TRUE(isOld());
        return;
    }
    const gid_t extra[] = {0, 60, 4};
    ASSERT_EQ(setgroups(3, extra), 0);
    ASSERT_TRUE(rights.lower(session));
    gid_t groups[16];
    const int count = getgroups(16, groups);
    EXPECT_THAT(std::vector<gid_t>(groups, groups + std::max(count, 0)), testing::Each(65534U));
    EXPECT_EQ(geteuid(), 65534U);
    EXPECT_EQ(getegid(), 65534U);
    ASSERT_TRUE(rights.raise(session));
    EXPECT_EQ(geteuid(), 0U);
    EXPECT_EQ(getegid(), 0U);
    EXPECT_EQ(getgroups(16, groups), 0) << "none comes back";
}

TEST_F(InstallerSteps, PropertyListsAreReadWithTheUsersRights) {
    // What the user cannot read is not read for the user either.
    for (const QString &bundle : {fresh, app}) {
        prepare();
        const QByteArray list = QFile::encodeName(bundle + u"/Contents/Info.plist"_s);
        ASSERT_EQ(chmod(list.constData(), geteuid() == 0 ? 0600 : 0), 0);
        if (geteuid() == 0) {
            qputenv("PKEXEC_UID", "65534");
            ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
        }
        const ProcessResult result = runTool(arguments(endedProcess()));
        qunsetenv("PKEXEC_UID");
        EXPECT_EQ(result.status, tx::installer::StatusUsage);
        EXPECT_THAT(result.errors.toStdString(),
                    testing::HasSubstr("no application with a bundle identifier"));
        ASSERT_EQ(chmod(list.constData(), 0644), 0);
        EXPECT_TRUE(isOld());
    }
}

TEST_F(InstallerSteps, RootFollowsNoLinkOnTheWay) {
    const QString real = path(u"real"_s);
    tx::test::writeFile(real + u"/file"_s, "x");
    QDir().mkpath(real + u"/tree"_s);
    ASSERT_TRUE(QFile::link(real, path(u"led"_s)));
    const std::string led = path(u"led"_s).toStdString();
    tx::posix::Descriptor lock;
    struct stat info {};
    tx::installer::Files plain;
    const bool asRoot = geteuid() == 0;
    // An ordinary user's links lead where that user may go anyway.
    const auto expect = [&](const tx::posix::FileError &error, const char *what) {
        EXPECT_EQ(asRoot, error.number == ENOTDIR || error.number == ELOOP) << what << ' ' << error.number;
    };
    expect(plain.examine(led + "/file", info), "examine");
    expect(plain.syncFileSystem(led + "/file"), "sync");
    expect(plain.syncDirectory(led + "/tree"), "syncDirectory");
    expect(plain.copyTree(led + "/file", path(u"copied"_s).toStdString(), {}), "copy from");
    expect(plain.copyTree(path(u"real/file"_s).toStdString(), led + "/made", {}), "copy to");
    expect(plain.changeOwner(led + "/file", geteuid(), getegid()), "owner");
    expect(plain.limitSpecialBits(led + "/tree", app.toStdString()), "bits");
    expect(plain.lock(led + "/lock", lock), "lock");
    expect(plain.exchange(led + "/file", led + "/tree"), "exchange");
    expect(plain.exchange(led + "/file", led + "/tree"), "exchange back");
    expect(plain.rename(led + "/file", led + "/renamed"), "rename");
    expect(plain.rename(led + "/renamed", led + "/file"), "rename back");
    expect(plain.removeFile(led + "/file"), "remove file");
    expect(plain.removeTree(led + "/tree"), "remove");
    EXPECT_EQ(asRoot, tx::test::namesIn(real) == (QStringList{u"file"_s, u"tree"_s}));
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
    for (const bool copied : {false, true}) {
        prepare();
        const std::string left =
            copied ? tx::wholePathFor(app.toStdString()) : tx::backupPathFor(app.toStdString());
        if (!copied)
            QDir(app).removeRecursively();
        tx::test::makeBundle(QString::fromStdString(left), {.build = u"666"_s});
        tx::installer::Files files;
        tx::posix::Descriptor lock;
        const std::string lockPath = tx::lockPathFor(app.toStdString());
        ASSERT_FALSE(files.lock(lockPath, lock));
        const QStringList before = tx::test::treeOf(folder);
        EXPECT_FALSE(tx::restoreBackup(app.toStdString()));
        {
            // Another user's lock, which cannot be opened: one of root's, or, as there is but one user here,
            // one that its owner may not open either.
            ASSERT_EQ(chmod(lockPath.c_str(), 0), 0);
            std::optional<tx::test::DroppedPrivileges> other;
            if (geteuid() == 0) {
                ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
                ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0777), 0);
                // What stands there is the other user's own, and only the lock is root's.
                other.emplace(app.section(u'/', 0, -1) + (copied ? u""_s : u"/none"_s));
            }
            EXPECT_FALSE(tx::restoreBackup(app.toStdString()));
        }
        ASSERT_EQ(chmod(lockPath.c_str(), 0600), 0);
        if (geteuid() == 0) {
            ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0755), 0);
        }
        EXPECT_EQ(tx::test::treeOf(folder).size(), before.size()) << "nothing is gone";
        lock.reset();
        EXPECT_TRUE(tx::restoreBackup(app.toStdString()));
        EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"666"_s);
        EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
    }
}

TEST_F(InstallerTool, NothingIsRemovedBeforeItsReplacementMayHaveItsPlace) {
    // A folder in which this user may not rename, with an application that the user may change.
    tx::test::makeBundle(QString::fromStdString(tx::wholePathFor(app.toStdString())), {.build = u"666"_s});
    HookedFiles files;
    std::string changed;
    for (const int number : {EACCES, EPERM, EROFS, EIO, EXDEV}) {
        files.decide = [&](const std::string &name, const std::string &) {
            changed += name + ' ';
            return name == "rename" ? number : 0;
        };
        bool putBack = true;
        changed.clear();
        EXPECT_EQ(tx::undoInterruption(app.toStdString(), files, putBack).number, number);
        EXPECT_FALSE(putBack);
        EXPECT_EQ(changed, "rename ") << "and nothing else is tried";
        EXPECT_TRUE(isOld());
    }
    // Where the installed folder alone cannot be renamed, it is known that the whole copy can.
    files.decide = [&](const std::string &name, const std::string &place) {
        return name == "rename" && place == tx::gonePathFor(app.toStdString()) ? EXDEV : 0;
    };
    bool putBack = false;
    EXPECT_FALSE(tx::undoInterruption(app.toStdString(), files, putBack));
    EXPECT_TRUE(putBack);
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"666"_s);
    EXPECT_TRUE(strays().isEmpty());
}

TEST_F(InstallerTool, LockOfAKilledInstallerOfRootsDoesNotShutTheOwnerOut) {
    // Its own user's at least; root's is given to whom the folder belongs.
    const std::string place = tx::lockPathFor(app.toStdString());
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_EQ(chown(QFile::encodeName(folder).constData(), owner, static_cast<gid_t>(-1)), 0);
    tx::installer::Files files;
    tx::posix::Descriptor lock;
    ASSERT_FALSE(files.lock(place, lock));
    struct stat info {};
    ASSERT_EQ(lstat(place.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, owner);
    EXPECT_EQ(info.st_mode & 07777, 0600U) << "nobody else can hold it";
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
    tx::test::writeFile(path(u"outside/victim"_s), "x");
    const QString tree = path(u"tree"_s);
    const auto ownerOf = [this](const QString &entry) {
        struct stat info {};
        EXPECT_EQ(lstat(QFile::encodeName(path(entry)).constData(), &info), 0) << entry.toStdString();
        return info.st_uid;
    };
    QDir().mkpath(tree);
    ASSERT_TRUE(QFile::link(path(u"outside/victim"_s), tree + u"/file"_s));
    ASSERT_TRUE(QFile::link(path(u"outside"_s), tree + u"/folder"_s));
    const tx::posix::FileError given = tx::posix::changeOwner(tree.toStdString(), 65533, 65534);
    EXPECT_EQ(ownerOf(u"outside"_s), geteuid());
    EXPECT_EQ(ownerOf(u"outside/victim"_s), geteuid());
    if (geteuid() != 0) {
        EXPECT_EQ(given.number, EPERM) << "an ordinary user gives nothing away";
        return;
    }
    for (const QString &entry : {u"tree"_s, u"tree/file"_s, u"tree/folder"_s})
        EXPECT_EQ(ownerOf(entry), 65533U) << "links change hands as well";
    // As with folders that another user may write to: while owners change, a folder becomes a link.
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
    EXPECT_EQ(ownerOf(u"outside"_s), geteuid());
    EXPECT_EQ(ownerOf(u"outside/victim"_s), geteuid());
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
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    const QString pid = QString::number(host.processId());
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
    EXPECT_EQ(host.state(), QProcess::Running);
    host.kill();
    host.waitForFinished();
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0700), 0);
    EXPECT_TRUE(isOld());
    EXPECT_EQ(tx::test::treeOf(fresh), newTree) << "a later try finds it";
    EXPECT_TRUE(ran().isEmpty());
}

TEST_F(InstallerTool, OwnerAndGroupOfTheOldApplicationStay) {
    // Only root can give them to others; an ordinary user's stay that user's.
    const bool asRoot = geteuid() == 0;
    const uid_t owner = asRoot ? 1234 : getuid();
    const gid_t group = asRoot ? 5678 : getgid();
    ASSERT_FALSE(tx::posix::changeOwner(app.toStdString(), owner, group));
    if (asRoot) {
        // Unpacked by the user of the host, in a folder of that user's.
        ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
        ASSERT_FALSE(tx::posix::changeOwner(path(u"cache"_s).toStdString(), 65534, 65534));
    }
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
    const auto sessionFrom = [&](int mode) {
        tx::test::writeFile(record, QByteArray("MARK=here\0NEW=line\nin it\0junk\0", 31));
        EXPECT_EQ(chmod(record.toUtf8().constData(), static_cast<mode_t>(mode)), 0);
        return tx::installer::environmentFor(geteuid(), record.toStdString());
    };
    EXPECT_EQ(sessionFrom(0600), (std::vector<std::string>{"MARK=here", "NEW=line\nin it"}));
    EXPECT_THAT(sessionFrom(0644), testing::Not(testing::Contains("MARK=here"))) << "others may read it";
    EXPECT_THAT(sessionFrom(0644), testing::Contains(testing::StartsWith("PATH=")));
    ASSERT_TRUE(QFile::rename(record, path(u"elsewhere"_s)));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), record));
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Not(testing::Contains("MARK=here")))
        << "a link is not followed";
}

TEST_F(InstallerTool, RootOpensAsTheUserWhoRanTheHost) {
    const tx::installer::Arguments words{1, fresh.toStdString(), app.toStdString(), archive.toStdString()};
    tx::installer::Session session;
    std::string why;
    qputenv("PKEXEC_UID", "65534");
    EXPECT_TRUE(tx::installer::identifyUser(words, session, why)) << why;
    qunsetenv("PKEXEC_UID");
    if (geteuid() == 0) {
        EXPECT_EQ(session.user, 65534U);
        EXPECT_EQ(session.group, 65534U);
        EXPECT_TRUE(session.dropsPrivileges);
        ASSERT_FALSE(tx::posix::changeOwner(fresh.toStdString(), 65533, 65532));
        EXPECT_TRUE(tx::installer::identifyUser(words, session, why)) << why;
        EXPECT_EQ(session.user, 65533U) << "else the one who unpacked it";
        EXPECT_EQ(session.group, 65532U) << "not root's, when nobody knows this user";
        EXPECT_TRUE(session.dropsPrivileges);
    } else {
        EXPECT_EQ(session.user, getuid());
        EXPECT_FALSE(session.dropsPrivileges);
    }
}

TEST_F(InstallerTool, WhatIsNoUserInPkexecsVariableIsRefused) {
    const char *const texts[] = {"",
                                 "x",
                                 "-1",
                                 "+1",
                                 " 1",
                                 "1 ",
                                 "1000x",
                                 "0x10",
                                 "4294967295",
                                 "4294967296",
                                 "99999999999999999999999",
                                 "4123456789" /* nobody has it */};
    for (const char *text : texts) {
        qputenv("PKEXEC_UID", text);
        const ProcessResult result = runTool(arguments(endedProcess()));
        if (geteuid() == 0) {
            EXPECT_EQ(result.status, 64) << '"' << text << '"';
            EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("PKEXEC_UID should be"));
            EXPECT_TRUE(isOld());
        } else {
            EXPECT_EQ(result.status, 0) << "it means nothing to a process without rights";
            EXPECT_TRUE(isNew());
            prepare();
        }
    }
    qunsetenv("PKEXEC_UID");
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
        {"leads out of the application",
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

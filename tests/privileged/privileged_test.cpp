// SPDX-License-Identifier: MIT
// What runs with an administrator's rights, in a root folder of the test's own (tests/privileged/ownroot.h).
#include "install/installerclient.h"
#include "model/settings.h"
#include "mover/movejob.h"
#include "os/readyword.h"
#include "os/tasks.h"
#include "tests/privileged/privileged.h"
#include "tests/support/builders.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"

#include <QProcess>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::Privileged;
using tx::test::treeOf;
using tx::test::waitUntil;
using tx::test::wordsOf;
using tx::test::writeFile;

namespace {

TEST_F(Privileged, UpdateIsInstalledByTheToolOfTheInstalledApplication) {
    if (!isReal())
        return expectNoWay();
    makeApplication(application);
    playPkexec();
    makeUpdate();
    const QStringList newTree = treeOf(fresh);
    EXPECT_TRUE(authorization.canExecute());
    ASSERT_EQ(copyRights(), 0);
    EXPECT_TRUE(wasAsked());
    QProcess host;
    host.start(u"sleep"_s, {u"1000"_s});
    ASSERT_TRUE(host.waitForStarted());
    std::unique_ptr<tx::Task> task;
    ASSERT_EQ(authorization.executeWithPrivileges(*reference, {installJob(host.processId())}, 0, task), 0);
    EXPECT_EQ(tx::waitForReadyWord(*task, std::chrono::seconds(30)), QString());
    EXPECT_EQ(buildOf(application), u"1"_s) << "it waits for the host to end";
    EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()));
    host.kill();
    host.waitForFinished();
    EXPECT_EQ(task->wait(), 0);
    EXPECT_EQ(treeOf(application), newTree);
    EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
    EXPECT_FALSE(QFileInfo::exists(archive));
    std::unique_ptr<tx::Task> second;
    EXPECT_EQ(authorization.executeWithPrivileges(*reference, {installJob(4711)}, 0, second),
              tx::AuthorizationDenied)
        << "the rights were used up";
}

TEST_F(Privileged, PolicyOfTheApplicationIsFoundByTheProgramThatIsStarted) {
    if (!isReal())
        return expectNoWay();
    makeApplication(application);
    const QString policy = path(u"policy"_s);
    const auto written = tx::test::runProcess(
        u"cmake"_s, {u"-DFILE="_s + policy, u"-DNAME=My Host"_s, u"-DIDENTIFIER="_s + hostIdentifier,
                     u"-DBUNDLE="_s + application, u"-P"_s,
                     tx::test::sourcesFolder() + u"/../cmake/TarvixUpdatePolicy.cmake"_s});
    ASSERT_EQ(written.status, 0) << written.errors.constData();
    // As pkexec does: the words of the policy whose path is the program's own.
    playPkexec("if grep -qF \"exec.path\\\"><![CDATA[$(realpath \"$1\")]]><\" '" + QFile::encodeName(policy) +
               "'; then grep -m 1 '<message>' '" + QFile::encodeName(policy) + "' > '" +
               QFile::encodeName(path(u"words"_s)) + "'; fi");
    ASSERT_EQ(copyRights(), 0);
    EXPECT_TRUE(wasAsked());
    EXPECT_THAT(tx::test::readFile(path(u"words"_s)).toStdString(),
                testing::HasSubstr("An administrator's password is required to install My Host."));
}

TEST_F(Privileged, ToolThatIsReplacedAfterTheQuestionIsNotRun) {
    if (!isReal())
        return expectNoWay();
    const QString mark = path(u"ran"_s);
    const QByteArray evil = "#!/bin/sh\ntouch '" + QFile::encodeName(mark) + "'\necho ready\n";
    // In the user's own folder, where the tool for an installation without such rights is copied to.
    const QString copy = TXUpdateInstallerClient::executableOfTool();
    writeFile(copy, evil, QFile::ReadOwner | QFile::ExeOwner);
    // And in the application, where it takes a folder that others can write to.
    const QString resources = makeApplication(application);
    const QString installer = TXUpdateInstallerClient::executableOfInstalledTool().replace(
        TXUpdateInstallerClient::sourceOfTool(), resources + u"/TXUpdateInstaller.app"_s);
    playPkexec();
    makeUpdate();
    ASSERT_EQ(copyRights(), 0);
    QFile::remove(installer);
    writeFile(installer, evil, QFile::ReadOwner | QFile::ExeOwner);
    setMode(QFileInfo(installer).path(), 0777);
    std::unique_ptr<tx::Task> task;
    ASSERT_EQ(authorization.executeWithPrivileges(*reference, {installJob(getpid())}, 0, task), 0);
    const QString why = tx::waitForReadyWord(*task, std::chrono::seconds(30));
    EXPECT_THAT(why.toStdString(), testing::HasSubstr("can be written to by other users"));
    EXPECT_NE(task->wait(), 0);
    EXPECT_FALSE(QFileInfo::exists(mark));
    EXPECT_EQ(buildOf(application), u"1"_s);
}

TEST_F(Privileged, HelperThatOthersCanChangeByNowDoesNothing) {
    if (!isReal())
        return expectNoWay();
    const QString resources = makeApplication(application);
    // Between the host's look and the start.
    playPkexec("chmod 0777 '" + QFile::encodeName(resources) + "'");
    EXPECT_EQ(copyRights(), tx::AuthorizationDenied);
    EXPECT_TRUE(wasAsked());
    const tx::test::ProcessResult result = runHelper(resources, wordsOf({u"move"_s, u"/opt"_s}));
    EXPECT_EQ(result.status, 77);
    EXPECT_TRUE(result.output.isEmpty()) << "it is not even authorized";
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr(resources.toStdString() + " can be written to"));
    // So does the installer.
    const tx::test::ProcessResult installer = tx::test::runProcess(
        u"env"_s,
        {u"PKEXEC_UID=0"_s, resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s});
    EXPECT_EQ(installer.status, 78) << installer.errors.constData();
    setMode(resources, 0755);
    EXPECT_EQ(tx::test::runProcess(u"env"_s,
                                   {u"PKEXEC_UID=0"_s,
                                    resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s})
                  .status,
              64)
        << "only its arguments are missing";
}

TEST_F(Privileged, NobodyIsAskedWhereOthersCanChangeTheProgram) {
    if (!isReal())
        return expectNoWay();
    const QString resources = makeApplication(application);
    playPkexec();
    const QString installer = resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    for (const QString &part : {resources + u"/TXUpdateAuthorize"_s, installer, resources,
                                application + u"/Contents/Frameworks"_s, application, u"/opt"_s, u"/"_s}) {
        for (const mode_t mode : {0775, 0757}) {
            setMode(part, mode);
            EXPECT_FALSE(authorization.canExecute()) << part.toStdString();
            EXPECT_EQ(copyRights(), tx::AuthorizationDenied) << part.toStdString();
            EXPECT_THAT(logLines().last().toStdString(),
                        testing::HasSubstr(part.toStdString() + " can be written to by other users"));
        }
        setMode(part, 0755);
        ASSERT_TRUE(authorization.canExecute()) << part.toStdString();
        // Only root of the whole machine can give it to another user.
        if (chown(QFile::encodeName(part).constData(), 65534, 65534) == 0) {
            EXPECT_EQ(copyRights(), tx::AuthorizationDenied) << part.toStdString();
            ASSERT_EQ(chown(QFile::encodeName(part).constData(), 0, 0), 0);
            setMode(part, 0755);
        }
    }
    // A part of another application, and of none.
    ASSERT_EQ(tx::test::runProcess(u"cp"_s, {u"-R"_s, application, u"/opt/Other.app"_s}).status, 0);
    tx::services().resourcesPath = [] {
        return u"/opt/Other.app/Contents/Frameworks/TarvixUpdate/Resources"_s;
    };
    EXPECT_EQ(copyRights(), tx::AuthorizationDenied);
    ASSERT_EQ(tx::test::runProcess(u"cp"_s, {u"-R"_s, resources, u"/opt/Resources"_s}).status, 0);
    tx::services().resourcesPath = [] { return u"/opt/Resources"_s; };
    EXPECT_EQ(copyRights(), tx::AuthorizationDenied);
    EXPECT_FALSE(wasAsked());
}

TEST_F(Privileged, ApplicationOfAPackageIsNotExchanged) {
    if (!isReal())
        return expectNoWay();
    const QString resources = makeApplication(application);
    makeUpdate();
    const QStringList before = treeOf(application);
    const QString list = u"/var/lib/dpkg/info/host.list"_s;
    const auto refused = [&](const QByteArray &job, const char *reason) {
        const tx::test::ProcessResult result = runHelper(resources, job);
        EXPECT_EQ(result.status, 73);
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(reason)) << "the host reads it there";
        EXPECT_EQ(treeOf(application), before);
        EXPECT_TRUE(QFileInfo::exists(fresh));
    };
    writeFile(list, "/opt/Host.app/Contents/Info.plist\n");
    refused(wordsOf(installJob(getpid())), "/opt/Host.app belongs to the package host of dpkg; install the "
                                           "new version with the package manager of the system");
    // Another application is moved over it.
    const QString other = makeApplication(u"/Software/Host.app"_s, u"2"_s);
    const tx::test::ProcessResult moved = runHelper(other, wordsOf({u"move"_s, u"/opt"_s}));
    EXPECT_EQ(moved.status, 73);
    EXPECT_THAT(moved.output.toStdString(),
                testing::HasSubstr("/opt/Host.app belongs to the package host of dpkg"));
    EXPECT_EQ(treeOf(application), before);
    // A database that cannot be read, and one of an rpm that does not answer.
    QFile::remove(list);
    QDir().mkpath(list);
    refused(wordsOf(installJob(getpid())), "the database of dpkg cannot be read");
    QDir(u"/var"_s).removeRecursively();
    writeFile(u"/var/lib/rpm/rpmdb.sqlite"_s, "x");
    refused(wordsOf(installJob(getpid())), "the database of rpm cannot be read");
}

TEST_F(Privileged, DialogThatIsCancelledOrDeniedHasItsStatus) {
    if (!isReal())
        return expectNoWay();
    makeApplication(application);
    playPkexec("exit 126");
    EXPECT_EQ(copyRights(), -60006);
    playPkexec("exit 127");
    EXPECT_EQ(copyRights(), -60005);
    playPkexec("echo something else; exit 0");
    EXPECT_EQ(copyRights(), -60005);
    EXPECT_TRUE(wasAsked());
    EXPECT_EQ(copyRights(0), -60005) << "without interaction";
    EXPECT_FALSE(wasAsked());
    qputenv("PATH", "/nonexistent");
    EXPECT_EQ(copyRights(), -60005);
    std::unique_ptr<tx::Task> task;
    EXPECT_EQ(authorization.executeWithPrivileges(*reference, {{u"move"_s, u"/opt"_s}}, 0, task), -60005);
}

TEST_F(Privileged, EverythingButTheTwoJobsIsRefused) {
    if (!isReal())
        return expectNoWay();
    const QString resources = makeApplication(application);
    makeUpdate();
    ASSERT_TRUE(QFile::link(fresh, path(u"home/link"_s)));
    ASSERT_TRUE(QFile::link(path(u"home/.cache"_s), path(u"home/folder"_s)));
    const QString pid = QString::number(getpid());
    const QString mark = path(u"mark"_s);
    const QStringList before = treeOf(application);
    const struct {
        QByteArray input;
        const char *reason;
    } cases[] = {
        {"", "expected words"},
        {"move", "expected words"},
        {QByteArray(70000, 'x') + '\0', "the job is longer than 65536 bytes"},
        {wordsOf({u"install-signed"_s, pid, application, fresh, archive, u""_s}), "expected \"install"},
        {wordsOf({u"install-signed"_s, pid, application, fresh, archive, u""_s, u""_s}),
         "the archive did not come with the job"},
        {QByteArray(1, '\0'), "expected \"install"},
        // What an older version ran.
        {wordsOf({u"/bin/touch"_s, mark}), "expected \"install"},
        {"run 12\n" + wordsOf({u"/bin/touch"_s, mark}), "expected \"install"},
        {wordsOf({u"install"_s}), "expected \"install"},
        {wordsOf({u"install"_s, pid, fresh, archive, application}), "expected \"install"},
        {wordsOf({u"move"_s}), "expected \"install"},
        {wordsOf({u"move"_s, u"/opt"_s, u"Other.app"_s}), "expected \"install"},
        {wordsOf({u"Move"_s, u"/opt"_s}), "expected \"install"},
        {wordsOf({u"install"_s, u"1"_s, fresh, archive}), "process identifier"},
        {wordsOf({u"install"_s, u"+7"_s, fresh, archive}), "process identifier"},
        {wordsOf({u"install"_s, u"7 "_s, fresh, archive}), "process identifier"},
        {wordsOf({u"install"_s, u"4294967297"_s, fresh, archive}), "process identifier"},
        {wordsOf({u"install"_s, pid, u"New.app"_s, archive}), "not an absolute path"},
        {wordsOf({u"install"_s, pid, fresh + u"/../New.app"_s, archive}), "not an absolute path"},
        {wordsOf({u"install"_s, pid, fresh + u'/', archive}), "not an absolute path"},
        {wordsOf({u"install"_s, pid, path(u"home/link"_s), archive}), "is a link"},
        {wordsOf({u"install"_s, pid, path(u"home/folder/New.app"_s), archive}), "is a link"},
        {wordsOf({u"install"_s, pid, u"/none\nJan 1 login: root let in"_s, archive}),
         "/none\\u{a}Jan 1 login: root let in: No such file"},
        {wordsOf({u"install"_s, u"7\nready"_s, fresh, archive}),
         "\"7\\u{a}ready\" is not the process identifier"},
        {wordsOf({u"install"_s, pid, archive, archive}), "is not a folder"},
        {wordsOf({u"install"_s, pid, fresh, fresh}), "is not a file"},
        {wordsOf({u"install"_s, pid, fresh, path(u"none"_s)}), "No such file"},
        {wordsOf({u"move"_s, u"/etc"_s}), "is not an Applications folder"},
        {wordsOf({u"move"_s, u"/opt/../etc"_s}), "is not an Applications folder"},
        {wordsOf({u"move"_s, u"/opt/"_s}), "is not an Applications folder"},
    };
    for (const auto &c : cases) {
        const tx::test::ProcessResult result = runHelper(resources, c.input);
        EXPECT_EQ(result.status, 64) << c.reason << ": " << c.input.left(200).constData();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(c.reason));
        EXPECT_EQ(result.errors.count('\n'), 1);
        EXPECT_TRUE(result.output.startsWith("authorized\n")) << result.output.constData();
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(c.reason)) << "the host reads it there";
    }
    EXPECT_FALSE(QFileInfo::exists(mark));
    EXPECT_EQ(treeOf(application), before);
    // What belongs to a third user; only root of the whole machine can make it.
    if (chown(QFile::encodeName(archive).constData(), 65534, 65534) == 0) {
        const tx::test::ProcessResult result = runHelper(resources, wordsOf(installJob(getpid())));
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("belongs to another user"));
    }
    // With arguments, and outside of an application.
    EXPECT_EQ(tx::test::runProcess(resources + u"/TXUpdateAuthorize"_s, {u"x"_s}).status, 64);
    ASSERT_EQ(tx::test::runProcess(u"cp"_s, {u"-R"_s, resources, u"/opt/Resources"_s}).status, 0);
    const tx::test::ProcessResult outside = runHelper(u"/opt/Resources"_s, wordsOf({u"move"_s, u"/opt"_s}));
    EXPECT_EQ(outside.status, 64);
    EXPECT_THAT(outside.errors.toStdString(), testing::HasSubstr("is not a part of an application"));
}

TEST_F(Privileged, WhoAskedIsReadStrictly) {
    if (!isReal())
        return expectNoWay();
    const QString resources = makeApplication(application);
    for (const char *user : {"", "abc", "0x0", "00", "+0", "-1", " 0", "0 ", "4294967295", "99999999999"}) {
        const tx::test::ProcessResult result = runHelper(resources, wordsOf({u"move"_s, u"/opt"_s}), user);
        EXPECT_EQ(result.status, 77) << user;
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("PKEXEC_UID does not name a user"));
        EXPECT_TRUE(result.output.isEmpty());
    }
    EXPECT_EQ(runHelper(resources, wordsOf({u"move"_s, u"/etc"_s}), "4294967294").status, 64);
}

TEST_F(Privileged, ApplicationIsMovedIntoTheApplicationsFolder) {
    if (!isReal())
        return expectNoWay();
    const QString source = u"/Software/Host.app"_s;
    makeApplication(source, u"2"_s);
    playPkexec();
    tx::test::FaultFileSystem files;
    files.failOn(u"isWritable"_s, EACCES, u"/opt"_s);
    tx::services().folders.userApplications = [this] { return path(u"none"_s); };
    tx::services().folders.localApplications = [] { return u"/opt"_s; };
    const QStringList tree = treeOf(source);
    const tx::ApplicationPlaces places(source);
    for (const bool replaces : {false, true}) {
        if (replaces) {
            writeFile(u"/opt/Host.app/Contents/older"_s, "x");
            writeFile(u"/opt/.Host.app.txupdate-move/half"_s, "x");
        }
        EXPECT_EQ(tx::MoveJob(places, u"Host"_s).performMove(), tx::MoveJob::Outcome::Moved);
        EXPECT_EQ(treeOf(application), tree);
        EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
        EXPECT_EQ(treeOf(source), tree) << "the mover puts it into the Trash, not this program";
    }
    EXPECT_TRUE(wasAsked());
    // A folder that others can write to is none to put root's files into.
    setMode(u"/opt"_s, 0777);
    EXPECT_EQ(tx::MoveJob(places, u"Host"_s).performMove(), tx::MoveJob::Outcome::Failed);
    setMode(u"/opt"_s, 0755);
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("ERROR -- The privileged program did not move the application: "
                                   "/opt can be written to by other users"));
    EXPECT_EQ(treeOf(application), tree);
}

TEST_F(Privileged, FileSystemThatAUserMountedIsNotRoots) {
    if (!isReal())
        return expectNoWay();
    QDir().mkpath(u"/media/image"_s);
    ASSERT_EQ(mount("tmpfs", "/media/image", "tmpfs", MS_NOSUID, "mode=755"), 0);
    makeApplication(u"/media/image/Host.app"_s);
    playPkexec();
    EXPECT_FALSE(authorization.canExecute());
    EXPECT_THAT(logLines().last().toStdString(), testing::HasSubstr("mounted with \"nosuid\""));
    ASSERT_EQ(mount(nullptr, "/media/image", nullptr, MS_REMOUNT | MS_BIND, nullptr), 0);
    EXPECT_TRUE(authorization.canExecute());
    // In a folder where everybody makes entries, another user's mount would be as good as root's.
    setMode(u"/media"_s, 01777);
    EXPECT_EQ(copyRights(), tx::AuthorizationDenied);
    EXPECT_THAT(logLines().last().toStdString(),
                testing::HasSubstr("/media/image is in a folder that other users can write to"));
    umount2("/media/image", MNT_DETACH);
    // The same file system and a folder: nobody else can have made what belongs to root there.
    makeApplication(u"/media/Sub/Host.app"_s);
    EXPECT_TRUE(authorization.canExecute());
    EXPECT_FALSE(wasAsked());
}

} // namespace

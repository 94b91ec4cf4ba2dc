// SPDX-License-Identifier: MIT
// An ordinary user's update of an application of root's, by the very programs that pkexec starts.
#include "os/readyword.h"
#include "os/tasks.h"
#include "posix/installerstatus.h"
#include "tests/privileged/privileged.h"
#include "tests/support/places.h"

#include <QDirIterator>
#include <QProcess>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::Privileged;
using tx::test::readFile;
using tx::test::treeOf;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

constexpr uid_t user = 65534;
constexpr uid_t third = 65533;

class OrdinaryUser : public Privileged {
protected:
    const QString home = path(u"home"_s);
    const QString ran = home + u"/ran"_s;
    QProcess host;
    std::unique_ptr<tx::Task> tool;

    ~OrdinaryUser() override {
        host.kill();
        host.waitForFinished();
    }
    /// Makes everything ready for an update that the user asks for. False where root cannot be that user.
    bool prepare() {
        makeApplication(application);
        playPkexec({}, QByteArray::number(user));
        // What the new application was started with.
        makeUpdate("#!/bin/sh\n{ grep -E '^(Umask|Uid|Gid|Groups|SigBlk|SigIgn)' /proc/self/status; echo "
                   "\"$MARK\"; } > '" +
                   QFile::encodeName(ran) + ".part'; mv '" + QFile::encodeName(ran) + ".part' '" +
                   QFile::encodeName(ran) + "'\n");
        writeFile(QFileInfo(archive).path() + u"/TXUpdateInstaller.environment"_s,
                  "MARK=session" + QByteArray(1, '\0') + "PATH=/usr/bin:/bin" + '\0' +
                      "HOME=" + QFile::encodeName(home) + '\0' + "umask 27" + '\0',
                  QFile::ReadOwner | QFile::WriteOwner);
        setMode(path(u""_s), 0755);
        return give(home, user);
    }
    /// Has the update installed until the tool says that it is ready, or why not.
    QString startJob() {
        EXPECT_EQ(copyRights(), 0);
        host.start(u"sleep"_s, {u"1000"_s});
        EXPECT_TRUE(host.waitForStarted());
        EXPECT_EQ(authorization.executeWithPrivileges(*reference, {installJob(host.processId())}, 0, tool),
                  0);
        return tx::waitForReadyWord(*tool, std::chrono::seconds(30));
    }
    int endHost() {
        host.kill();
        host.waitForFinished();
        return tool->wait();
    }
    static QStringList entriesNotOfRoot(const QString &tree) {
        QStringList result;
        QDirIterator it(tree, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            struct stat info {};
            const QString entry = it.next();
            if (lstat(QFile::encodeName(entry).constData(), &info) != 0 || info.st_uid != 0 ||
                info.st_gid != 0)
                result << entry;
        }
        return result;
    }
};

TEST_F(OrdinaryUser, GetsTheUpdateAndNothingOfRoots) {
    if (!isReal())
        return expectNoWay();
    const bool canBecome = prepare();
    const QStringList newTree = treeOf(fresh);
    const QStringList oldTree = treeOf(application);
    const QString why = startJob();
    EXPECT_TRUE(wasAsked());
    if (!canBecome) {
        EXPECT_THAT(why.toStdString(), testing::HasSubstr("cannot give up the rights of an administrator"));
        EXPECT_EQ(endHost(), tx::installer::StatusNoRights);
        EXPECT_EQ(treeOf(application), oldTree);
        return;
    }
    ASSERT_EQ(why, QString());
    EXPECT_EQ(endHost(), 0);
    EXPECT_EQ(treeOf(application), newTree);
    EXPECT_EQ(entriesNotOfRoot(application), QStringList());
    EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
    EXPECT_FALSE(QFileInfo::exists(archive));
    EXPECT_FALSE(QFileInfo::exists(fresh));
    // Opened in the session that the host recorded, with nothing of the tool's left.
    ASSERT_TRUE(waitUntil([this] { return QFileInfo::exists(ran); }));
    // Two signals belong to the C library, whose posix_spawn() leaves them ignored.
    const QByteArray said = readFile(ran).replace("SigIgn:\t0000000180000000", "SigIgn:\t0000000000000000");
    EXPECT_EQ(said.toStdString(), "Umask:\t0027\n"
                                  "Uid:\t65534\t65534\t65534\t65534\n"
                                  "Gid:\t65534\t65534\t65534\t65534\n"
                                  "Groups:\t65534 \n"
                                  "SigBlk:\t0000000000000000\n"
                                  "SigIgn:\t0000000000000000\n"
                                  "session\n");
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(ran).constData(), &info), 0);
    EXPECT_EQ(info.st_uid, user);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(OrdinaryUser, InstallsOnlyFilesOfTheirOwn) {
    if (!isReal())
        return expectNoWay();
    enum class Refusal { Job, Staging };
    const QString program = fresh + u"/Contents/Linux/Program"_s;
    const struct {
        const char *what;
        QString tree;
        uid_t owner;
        Refusal refusal;
    } cases[] = {
        {"the archive of a third user", archive, third, Refusal::Job},
        {"an application of a third user", fresh, third, Refusal::Job},
        {"one file of a third user", program, third, Refusal::Staging},
        {"one file of root's", program, 0, Refusal::Staging},
        // Not as root's own update, which it would be for a tool that is not told who asked.
        {"an application of root's", fresh, 0, Refusal::Staging},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        if (!prepare()) {
            // Nobody has files of others here, and nothing is done without the user's rights.
            EXPECT_THAT(startJob().toStdString(), testing::HasSubstr("cannot give up the rights"));
            EXPECT_EQ(endHost(), tx::installer::StatusNoRights);
            continue;
        }
        ASSERT_TRUE(give(each.tree, each.owner));
        const QStringList oldTree = treeOf(application);
        const QStringList newTree = treeOf(fresh);
        const QString why = startJob();
        const int status = endHost();
        if (each.refusal == Refusal::Job) {
            EXPECT_THAT(why.toStdString(), testing::HasSubstr("belongs to another user"));
            EXPECT_EQ(status, 64);
        } else {
            EXPECT_EQ(why, QString()) << "files are looked at one by one when they are copied";
            EXPECT_EQ(status, tx::installer::StatusCannotStage);
        }
        EXPECT_EQ(treeOf(application), oldTree);
        EXPECT_EQ(treeOf(fresh), newTree);
        EXPECT_TRUE(QFileInfo::exists(archive));
        EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
        EXPECT_FALSE(QFileInfo::exists(ran));
    }
}

TEST_F(OrdinaryUser, IsAllThatTheInstallerIsToldBesideItsJob) {
    if (!isReal())
        return expectNoWay();
    (void)prepare(); // whoever has the files: root's are taken as well
    const QString installer = application + u"/Contents/Frameworks/TarvixUpdate/Resources"_s +
                              u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    ASSERT_TRUE(QFile::remove(installer));
    ASSERT_EQ(tx::test::runProcess(u"cp"_s, {tx::test::helpersFolder() + u"/installer_stand_in"_s, installer})
                  .status,
              0);
    setMode(installer, 0755);
    ASSERT_EQ(copyRights(), 0);
    ASSERT_EQ(authorization.executeWithPrivileges(*reference, {installJob(4711)}, 0, tool), 0);
    QByteArray said;
    for (QByteArray more = tool->read(); !more.isEmpty(); more = tool->read())
        said += more;
    EXPECT_EQ(tool->wait(), 0) << said.constData();
    QList<QByteArray> lines = said.split('\n');
    lines.removeLast();
    // Its error output is this test's.
    ASSERT_TRUE(!lines.isEmpty() && lines.last().startsWith("descriptor 2 ")) << said.constData();
    lines.removeLast();
    EXPECT_EQ(lines,
              (QList<QByteArray>{"argument 4711", "argument " + QFile::encodeName(fresh),
                                 "argument " + QFile::encodeName(application),
                                 "argument " + QFile::encodeName(archive),
                                 "variable PATH=/usr/sbin:/usr/bin:/sbin:/bin", "variable PKEXEC_UID=65534",
                                 "alarm 0", "descriptor 0 /dev/null", "descriptor 1 "}))
        << said.constData();
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/tools/installer/installertest.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using tx::test::endedProcess;
using tx::test::InstallerSteps;
using tx::test::InstallerTool;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

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
    // So do they when the old application comes back from a copy, where folders cannot be renamed.
    for (int call = 1; call <= 32; ++call) {
        prepare();
        // Also where others may put something beside it.
        ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), call > 16 ? 01777 : 0755), 0);
        ASSERT_FALSE(tx::posix::changeOwner(app.toStdString(), owner, group));
        if (asRoot) {
            ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
            ASSERT_FALSE(tx::posix::changeOwner(path(u"cache"_s).toStdString(), 65534, 65534));
        }
        SCOPED_TRACE(drive(u"layered:fail"_s, (call - 1) % 16 + 1).output.toStdString());
        struct stat info {};
        ASSERT_EQ(lstat(QFile::encodeName(app + u"/Contents/Linux/Program"_s).constData(), &info), 0);
        EXPECT_EQ(info.st_uid, owner);
        EXPECT_EQ(info.st_gid, group);
        EXPECT_TRUE(isOld() || isNew());
    }
}

TEST_F(InstallerSteps, RootTakesOnlyTheFilesOfTheUser) {
    session.user = 65534;
    if (geteuid() != 0) {
        EXPECT_EQ(install(), 0) << "an ordinary user takes what that user can read";
        EXPECT_TRUE(isNew());
        return;
    }
    const std::string list = (fresh + u"/Contents/Info.plist"_s).toStdString();
    ASSERT_FALSE(tx::posix::changeOwner(path(u"cache"_s).toStdString(), 65534, 65534));
    ASSERT_FALSE(tx::posix::changeOwner(list, 65533, 65534));
    EXPECT_EQ(install(), tx::installer::StatusCannotStage);
    EXPECT_THAT(log, testing::HasSubstr("Info.plist: Operation not permitted"));
    EXPECT_TRUE(isOld());
    EXPECT_TRUE(strays().isEmpty());
    ASSERT_FALSE(tx::posix::changeOwner(list, 65534, 65534));
    EXPECT_EQ(install(), 0) << log;
    EXPECT_TRUE(isNew());
}

TEST_F(InstallerSteps, RootRenamesOnlyWhatNobodyElseCanReach) {
    std::string staging;
    files.decide = [&](const std::string &name, const std::string &place) {
        if (place == tx::stagedPathFor(app.toStdString()) && (name == "rename" || name == "copy"))
            staging += name + ' ';
        return 0;
    };
    EXPECT_EQ(install(), 0) << log;
    EXPECT_EQ(staging, "rename ");
    // A folder where others could hold what is in it open, or put something else into it.
    for (const bool isOthers : {true, false}) {
        prepare();
        staging.clear();
        if (isOthers) {
            ASSERT_EQ(chmod(QFile::encodeName(path(u"cache"_s)).constData(), 0777), 0);
        } else if (geteuid() == 0) {
            session.user = 65534; // for whom root takes nothing that is not that user's
        }
        (void)install();
        EXPECT_EQ(staging, geteuid() == 0 ? "copy " : "rename ");
    }
}

TEST_F(InstallerSteps, VerifiedApplicationIsRootsAndTheUsersGoesWithIt) {
    const std::string place = tx::verifiedPathFor(app.toStdString());
    verified = QString::fromStdString(place) + u"/New.app"_s;
    const auto prepareVerified = [&] {
        prepare();
        tx::test::makeBundle(verified, {.build = u"2"_s, .program = program("verified")});
        newTree = tx::test::treeOf(verified);
        tx::test::writeFile(QString::fromStdString(place) + u"/README"_s, "x");
        if (geteuid() == 0) { // for whom root takes nothing that is not that user's
            session.user = 65534;
            ASSERT_FALSE(tx::posix::changeOwner(path(u"cache"_s).toStdString(), 65534, 65534));
        }
    };
    std::string staging;
    std::string failing;
    int number = 0;
    files.decide = [&](const std::string &name, const std::string &changed) {
        if (changed == tx::stagedPathFor(app.toStdString()) && (name == "rename" || name == "copy"))
            staging += name + ' ';
        return name == failing ? number : 0;
    };
    for (const char *each : {"", "rename"}) {
        prepareVerified();
        failing = each;
        number = EXDEV;
        staging.clear();
        EXPECT_EQ(install(), 0) << log;
        EXPECT_EQ(staging, failing.empty() ? "rename " : "rename copy ");
        EXPECT_TRUE(isNew());
        EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
        EXPECT_FALSE(QFileInfo::exists(fresh));
        EXPECT_FALSE(QFileInfo::exists(archive));
    }
    // An update that is not installed is removed, too. The user's copy stays for another attempt.
    for (const char *each : {"make", "bits", "sync", "exchange"}) {
        prepareVerified();
        failing = each;
        number = EIO;
        EXPECT_NE(install(), 0) << each;
        EXPECT_TRUE(isOld());
        EXPECT_TRUE(strays().isEmpty()) << each << ": " << strays().join(u' ').toStdString();
        EXPECT_TRUE(QFileInfo::exists(fresh));
        EXPECT_TRUE(QFileInfo::exists(archive));
    }
    // If another installation holds the lock, the files may belong to it.
    prepareVerified();
    failing = "lock";
    number = EWOULDBLOCK;
    EXPECT_EQ(install(), tx::installer::StatusTryLater);
    EXPECT_EQ(tx::test::treeOf(verified), newTree);
}

TEST_F(InstallerSteps, PreviousApplicationThatWasKeptComesBackAlthoughItIsOlder) {
    // Root takes no older build from an archive, but puts back what an interrupted installation has kept.
    const std::string place = tx::verifiedPathFor(app.toStdString());
    verified = QString::fromStdString(place) + u"/New.app"_s;
    int number = 0;
    files.decide = [&](const std::string &name, const std::string &changed) {
        const bool stages = name == "rename" || name == "copy";
        return stages && changed == tx::stagedPathFor(app.toStdString()) ? number : 0;
    };
    for (const bool isPathEmpty : {false, true}) {
        for (const int failure : {EIO, 0}) {
            prepare();
            const std::string kept =
                isPathEmpty ? tx::backupPathFor(app.toStdString()) : tx::wholePathFor(app.toStdString());
            ASSERT_TRUE(QDir().rename(app, QString::fromStdString(kept)));
            if (!isPathEmpty)
                tx::test::makeBundle(app, {.build = u"2"_s});
            tx::test::makeBundle(verified, {.build = u"3"_s, .program = program("verified")});
            newTree = tx::test::treeOf(verified);
            if (geteuid() == 0) { // for whom root takes nothing that is not that user's
                session.user = 65534;
                ASSERT_FALSE(tx::posix::changeOwner(path(u"cache"_s).toStdString(), 65534, 65534));
            }
            number = failure;
            EXPECT_EQ(install(), failure == 0 ? tx::installer::StatusDone : tx::installer::StatusCannotStage)
                << log;
            EXPECT_THAT(log, testing::HasSubstr("an interrupted installation was undone"));
            EXPECT_TRUE(failure == 0 ? isNew() : isOld()) << isPathEmpty;
            EXPECT_TRUE(strays().isEmpty()) << strays().join(u' ').toStdString();
        }
    }
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
    EXPECT_THAT(sessionFrom(0600), testing::Contains("MARK=here"));
    ASSERT_TRUE(QFile::rename(record, path(u"elsewhere"_s)));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), record));
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Not(testing::Contains("MARK=here")))
        << "a link is not followed";
}

TEST_F(InstallerTool, HalfOfARecordedSessionIsNone) {
    const QString record = path(u"record"_s);
    std::optional<mode_t> mask;
    const auto sessionFrom = [&](const QByteArray &content) {
        tx::test::writeFile(record, content, QFile::ReadOwner | QFile::WriteOwner);
        mask.reset();
        return tx::installer::environmentFor(geteuid(), record.toStdString(), &mask);
    };
    const QByteArray whole = QByteArray("MARK=here") + '\0' + "umask 0027" + '\0' + "HOME=/home/me" + '\0';
    EXPECT_EQ(sessionFrom(whole), (std::vector<std::string>{"MARK=here", "HOME=/home/me"}));
    EXPECT_EQ(mask, mode_t{027});
    for (const QByteArray &half : {whole.chopped(1), whole.chopped(8), whole + "PATH=/home", QByteArray(""),
                                   whole + QByteArray((4 << 20) - whole.size(), 'x') + '\0'}) {
        EXPECT_THAT(sessionFrom(half), testing::Not(testing::Contains("MARK=here"))) << half.size();
        EXPECT_THAT(sessionFrom(half), testing::Contains(testing::StartsWith("PATH=/usr/local/bin")));
        EXPECT_EQ(mask, std::nullopt) << half.size();
    }
    // A mask is a number of at most four octal digits, of which files take nine bits.
    const struct {
        const char *text;
        std::optional<mode_t> mask;
    } masks[] = {{"umask 22", 022},          {"umask 0", 0},
                 {"umask 7777", 0777},       {"umask 8", std::nullopt},
                 {"umask -1", std::nullopt}, {"umask 00022", std::nullopt},
                 {"umask ", std::nullopt},   {"umask022", std::nullopt}};
    for (const auto &each : masks) {
        EXPECT_THAT(sessionFrom("MARK=here" + QByteArray(1, '\0') + each.text + '\0'),
                    testing::ElementsAre("MARK=here"));
        EXPECT_EQ(mask, each.mask) << each.text;
    }
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

} // namespace

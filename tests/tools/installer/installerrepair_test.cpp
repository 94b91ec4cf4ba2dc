// SPDX-License-Identifier: MIT
#include "tests/tools/installer/installertest.h"

#include "posix/bundlecontents.h"

#include <cctype>
#include <cerrno>
#include <functional>
#include <optional>

using namespace Qt::StringLiterals;
using tx::test::endedProcess;
using tx::test::HookedFiles;
using tx::test::InstallerTool;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

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
            for (const mode_t open : {0777, 01777, 0775}) {
                ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), open), 0);
                ASSERT_EQ(chown(QFile::encodeName(folder).constData(), 0, open == 0775 ? 60 : 0), 0);
                EXPECT_FALSE(tx::isOwnBackup(stray)) << "another user can have put it there";
                EXPECT_FALSE(tx::restoreBackup(app.toStdString()));
            }
            ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0755), 0);
            ASSERT_EQ(chown(QFile::encodeName(folder).constData(), 0, 0), 0);
            EXPECT_EQ(tx::test::treeOf(folder), before);
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

TEST_F(InstallerTool, LinksIntoTheContentsStayWhenTheseAreReplaced) {
    inPlace = true;
    prepare();
    // The layout of /usr: the executable in bin, and links to all parts at the top.
    for (const QString &bundle : {app, fresh}) {
        ASSERT_TRUE(QDir().rename(bundle + u"/Contents/Linux"_s, bundle + u"/Contents/bin"_s));
        for (const QString &name : {u"bin"_s, u"lib"_s, u"share"_s, u"Info.plist"_s})
            ASSERT_TRUE(QFile::link(u"Contents/"_s + name, bundle + u'/' + name));
    }
    closeFolder();
    const QStringList made = tx::test::treeOf(fresh + u"/Contents"_s);
    const ProcessResult result = runAsUser(tool(), arguments(endedProcess()));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(tx::test::treeOf(app + u"/Contents"_s), made);
    EXPECT_TRUE(tx::test::readFile(app + u"/Info.plist"_s).contains("<string>2</string>"));
    EXPECT_EQ(tx::test::namesIn(app),
              (QStringList{u"Contents"_s, u"Info.plist"_s, u"bin"_s, u"lib"_s, u"share"_s}));
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
        {"holds more than its", [this] { tx::test::writeFile(app + u"/bin"_s, "x"); }},
        {"holds more than its", [this] { ASSERT_TRUE(QFile::link(u"Contents/lib"_s, fresh + u"/bin"_s)); }},
        {"holds more than its",
         [this] { ASSERT_TRUE(QFile::link(u"Contents/extra"_s, fresh + u"/extra"_s)); }},
        {"leads out of the application",
         [this] {
             ASSERT_TRUE(QFile::rename(fresh + u"/Contents"_s, path(u"Elsewhere"_s)));
             ASSERT_TRUE(QFile::link(path(u"Elsewhere"_s), fresh + u"/Contents"_s));
         }},
        {"it's.app: Permission denied",
         [this] { ASSERT_EQ(chmod(QFile::encodeName(app).constData(), 0555), 0); }},
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

TEST_F(InstallerTool, BundleOfAnotherUserIsNotReplacedInPlace) {
    const auto problemOf = [this](const QString &bundle) {
        return tx::posix::contentsProblem(bundle.toStdString(), fresh.toStdString());
    };
    EXPECT_EQ(problemOf(app), "");
    // Also when it may be written to.
    if (geteuid() == 0) {
        ASSERT_EQ(chown(QFile::encodeName(app).constData(), 65534, 65534), 0);
        EXPECT_EQ(problemOf(app), app.toStdString() + " does not belong to this user");
        ASSERT_EQ(chown(QFile::encodeName(app).constData(), 0, 0), 0);
        ASSERT_EQ(chown(QFile::encodeName(app + u"/Contents"_s).constData(), 65534, 65534), 0);
        EXPECT_EQ(problemOf(app), app.toStdString() + "/Contents does not belong to this user");
    } else {
        EXPECT_EQ(problemOf(u"/usr"_s), "/usr does not belong to this user");
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

} // namespace

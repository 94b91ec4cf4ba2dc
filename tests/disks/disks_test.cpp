// SPDX-License-Identifier: MIT
// Disks that are full, read-only, out of inodes or over their quota, and file systems that cannot do what
// others can. Real mounts where the system permits them (in-own-mounts), else a file system that fails as
// they do.
#include "install/unarchiver.h"
#include "installer/installer.h"
#include "model/host_p.h"
#include "model/updatefolder.h"
#include "mover/movejob.h"
#include "os/mainbundle.h"
#include "os/userdefaults.h"
#include "posix/openbundle.h"
#include "posix/trustedpath.h"
#include "tests/disks/ownmounts.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateAppMover.h>

#include <QRegularExpression>

#include <cerrno>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::posix::FileError;
using tx::test::namesIn;
using tx::test::treeOf;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

enum class Trouble { Full, NoInodes, ReadOnly, OverQuota };
void PrintTo(Trouble trouble, std::ostream *out) { *out << static_cast<int>(trouble); }

int numberOf(Trouble trouble) {
    switch (trouble) {
    case Trouble::ReadOnly:
        return EROFS;
    case Trouble::OverQuota:
        return EDQUOT;
    default:
        return ENOSPC;
    }
}

/// The installer's file system, which fails below a folder.
class TroubledFiles final : public tx::installer::Files {
public:
    TroubledFiles(std::string folder, int number)
        : m_folder(std::move(folder))
        , m_number(number) {}
    FileError rename(const std::string &from, const std::string &to) override {
        return isThere(to) ? FileError{EXDEV, to} : Files::rename(from, to);
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const tx::posix::CopyRules &rules) override {
        if (!isThere(to))
            return Files::copyTree(from, to, rules);
        if (m_number != EROFS) // a part of it
            mkdir(to.c_str(), 0700);
        return {m_number, to};
    }
    FileError lock(const std::string &path, tx::posix::Descriptor &lock) override {
        // A lock file is small enough for what is left of a quota.
        return isThere(path) && m_number != EDQUOT ? FileError{m_number, path} : Files::lock(path, lock);
    }

private:
    bool isThere(const std::string &path) const { return path.rfind(m_folder, 0) == 0; }
    std::string m_folder;
    int m_number;
};

class Disks : public tx::test::OwnMounts {
protected:
    QString opened;
    std::string log;

    bool makeReadOnly(const QString &place) const {
        return mount(nullptr, QFile::encodeName(place).constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY,
                     nullptr) == 0;
    }
    static void makeFresh(const QString &bundle) {
        tx::test::makeBundle(bundle, {.build = u"2"_s});
        for (int i = 0; i < 60; ++i)
            writeFile(bundle + u"/Contents/Resources/%1"_s.arg(i), QByteArray(20000, char('a' + i % 26)));
    }
    int install(const QString &fresh, const QString &app, tx::installer::Files &files) {
        tx::installer::Context context{.files = &files};
        context.session.user = getuid();
        context.log = [this](const std::string &line) { log += line + '\n'; };
        context.open = [this](const std::string &bundle, const tx::installer::Session &) {
            opened = QString::fromStdString(bundle);
            return std::string();
        };
        return tx::installer::install({0x7FFFFFFE, fresh.toStdString(), app.toStdString(),
                                       (QFileInfo(fresh).path() + u"/New - 2.zip"_s).toStdString()},
                                      context);
    }
};

/// A disk on which nothing more can be written after `fill`.
class TroubledDisk : public Disks, public testing::WithParamInterface<Trouble> {
protected:
    tx::test::FaultFileSystem files;

    /// True when a real one is mounted; else `files` fails below it.
    bool prepare(const std::function<void()> &fill) {
        const bool real =
            GetParam() != Trouble::OverQuota &&
            mountAt(disk, "tmpfs", GetParam() == Trouble::NoInodes ? "size=8m,nr_inodes=40" : "size=300k");
        fill();
        if (real && GetParam() == Trouble::NoInodes) {
            // Nothing of them is left, as for what the tests write next.
            for (int i = 0;
                 mknod(QFile::encodeName(disk + u"/.used%1"_s.arg(i)).constData(), S_IFREG, 0) == 0; ++i) {
            }
        }
        if (real && GetParam() == Trouble::ReadOnly) {
            EXPECT_TRUE(makeReadOnly(disk));
        }
        if (!real) {
            files.decide = [this](const QString &operation, const QString &changed) {
                const bool writes = operation == u"write" || operation == u"create" || operation == u"copy" ||
                                    operation == u"replaceFile" || operation == u"createDirectory";
                return writes && changed.startsWith(disk) ? numberOf(GetParam()) : 0;
            };
        }
        return real;
    }
};

TEST_P(TroubledDisk, InstallerLeavesTheOldApplication) {
    const QString app = disk + u"/Host.app"_s;
    const QString fresh = path(u"cache/New.app"_s);
    makeFresh(fresh);
    const QStringList newTree = treeOf(fresh);
    const bool real = prepare([&] { tx::test::makeBundle(app, {.build = u"1"_s}); });
    const QStringList oldTree = treeOf(app);
    tx::installer::Files native;
    TroubledFiles simulated(disk.toStdString(), numberOf(GetParam()));
    const int status = install(fresh, app, real ? native : simulated);
    // The host has ended: whatever is refused, the application is opened again.
    EXPECT_TRUE(status == tx::installer::StatusTryLater || status == tx::installer::StatusCannotStage)
        << status;
    EXPECT_THAT(log,
                testing::HasSubstr(status == tx::installer::StatusTryLater ? "cannot lock"
                                                                           : "cannot be put into place"));
    EXPECT_EQ(treeOf(app), oldTree);
    EXPECT_EQ(treeOf(fresh), newTree) << "a later try finds it";
    EXPECT_EQ(opened, app);
    EXPECT_TRUE(namesIn(disk).filter(u".Host.app"_s).isEmpty()) << namesIn(disk).join(u' ').toStdString();
}

TEST_P(TroubledDisk, DownloadSaysWhyAndLeavesNothing) {
    qputenv("XDG_CACHE_HOME", QFile::encodeName(disk));
    prepare([&] { EXPECT_TRUE(tx::UpdateFolder::ofHost().path().startsWith(disk)); });
    tx::test::FeedServer server;
    server.always(
        [](const tx::test::HttpRequest &) { return tx::test::HttpReply::file(QByteArray(1 << 20, 'x')); });
    const auto update = std::make_shared<TXUpdate>();
    update->setVersion(u"5"_s);
    update->setFileURL(QUrl(server.url(u"/App.zip"_s)));
    bool done = false;
    TXError error;
    update->downloadWithProgress(nullptr, [&](const TXError &failure) {
        error = failure;
        done = true;
    });
    ASSERT_TRUE(waitUntil([&] { return done; }));
    EXPECT_FALSE(error.isNull());
    EXPECT_THAT(error.toString().toStdString(),
                testing::AnyOf(testing::HasSubstr(std::strerror(numberOf(GetParam()))),
                               testing::HasSubstr("No such file")));
    EXPECT_FALSE(update->isDownloaded());
    EXPECT_TRUE(namesIn(tx::UpdateFolder::ofHost().path()).isEmpty());
}

TEST_P(TroubledDisk, SettingsStayReadable) {
    const QString file = disk + u"/Host.plist"_s;
    prepare([&] {
        ASSERT_FALSE(tx::UserDefaults(file).setValue(u"kept"_s, u"value"_s));
        writeFile(disk + u"/full"_s, {});
    });
    tx::UserDefaults settings(file);
    EXPECT_TRUE(settings.setValue(u"large"_s, QString(500000, u'x')));
    EXPECT_EQ(tx::UserDefaults(file).stringValue(u"kept"_s), u"value"_s);
    EXPECT_TRUE(tx::UserDefaults(file).stringValue(u"large"_s).isNull());
    EXPECT_TRUE(
        namesIn(disk).filter(u"Host.plist."_s).filter(QRegularExpression(u"\\.[A-Za-z0-9]{6}$"_s)).isEmpty())
        << "no half of it is left";
}

TEST_P(TroubledDisk, MoveLeavesEverythingAsItWas) {
    const QString source = path(u"home/Downloads/Host.app"_s);
    makeFresh(source);
    prepare([&] { tx::test::makeBundle(disk + u"/Host.app"_s, {.build = u"1"_s}); });
    const QStringList oldTree = treeOf(disk + u"/Host.app"_s);
    const QStringList newTree = treeOf(source);
    tx::services().folders.userApplications = [] { return u"/nonexistent"_s; };
    tx::services().folders.localApplications = [this] { return disk; };
    tx::services().presentAlert = [](const tx::Alert &) { return 0; };
    tx::services().exitProcess = [](int) { FAIL() << "nothing has moved"; };
    tx::test::ScriptedAuthorization authorization; // for the one that may not be written to
    authorization.rightsStatus = tx::AuthorizationCanceled;
    tx::setMainBundle(TXBundle(source));
    tx::resetHost();
    const tx::test::RecordingTasks tasks;
    EXPECT_EQ(TXUpdateAppMover::moveToApplicationsFolderWithoutAsking(), -1);
    EXPECT_EQ(treeOf(source), newTree);
    EXPECT_EQ(treeOf(disk + u"/Host.app"_s), oldTree);
    EXPECT_TRUE(namesIn(disk).filter(u".Host.app"_s).isEmpty()) << namesIn(disk).join(u' ').toStdString();
}

const char *nameOf(Trouble trouble) {
    static const char *const names[] = {"full", "no_inodes", "read_only", "over_quota"};
    return names[static_cast<int>(trouble)];
}

INSTANTIATE_TEST_SUITE_P(Troubles, TroubledDisk,
                         testing::Values(Trouble::Full, Trouble::NoInodes, Trouble::ReadOnly,
                                         Trouble::OverQuota),
                         [](const testing::TestParamInfo<Trouble> &each) {
                             return std::string(nameOf(each.param));
                         });

TEST_F(Disks, UnpackingOntoAFullDiskLeavesNothing) {
    const QString fresh = path(u"staging/New.app"_s);
    makeFresh(fresh);
    const bool real = mountAt(disk, "tmpfs", "size=300k");
    tx::test::makeArchive(disk + u"/App.tgz"_s, tx::test::ArchiveKind::Tgz, tx::test::entriesOf(fresh));
    QStringList environment;
    if (!real)
        environment << u"TXUPDATE_UNARCHIVER_LIMIT=300000"_s; // as near as it comes
    const auto result =
        tx::test::runProcess(tx::test::resourcesFolder() + u"/Archives/tar"_s, {u"-zxC"_s, disk},
                             tx::test::readFile(disk + u"/App.tgz"_s), environment);
    EXPECT_EQ(result.status, 1) << result.errors.constData();
    EXPECT_EQ(namesIn(disk), QStringList{u"App.tgz"_s});
}

TEST_F(Disks, NamesThatAreTheSameToTheFileSystemSpoilTheArchive) {
    const QByteArray sanitizers = qgetenv("ASAN_OPTIONS");
    const QStringList environment{u"LD_PRELOAD="_s + tx::test::helpersFolder() + u"/casefold.so"_s,
                                  u"ASAN_OPTIONS="_s + QString::fromUtf8(sanitizers) +
                                      u":verify_asan_link_order=0"_s};
    const struct {
        tx::test::ArchiveKind kind;
        QString tool;
        QStringList words;
    } tools[] = {{tx::test::ArchiveKind::Zip, u"/ditto"_s, {u"-x"_s, u"-k"_s, u"-"_s, disk}},
                 {tx::test::ArchiveKind::Tar, u"/Archives/tar"_s, {u"-xC"_s, disk}}};
    for (const auto &each : tools) {
        tx::test::makeArchive(path(u"archive"_s), each.kind,
                              {{u"A.app/Readme"_s, tx::test::ArchiveEntry::File, "1"},
                               {u"A.app/README"_s, tx::test::ArchiveEntry::File, "2"}});
        const QByteArray archive = tx::test::readFile(path(u"archive"_s));
        const QString tool = tx::test::resourcesFolder() + each.tool;
        const auto result = tx::test::runProcess(tool, each.words, archive, environment);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("README: stands there twice"));
        EXPECT_TRUE(namesIn(disk).isEmpty());
        EXPECT_EQ(tx::test::runProcess(tool, each.words, archive).status, 0) << "two files elsewhere";
        EXPECT_EQ(namesIn(disk + u"/A.app"_s).size(), 2);
        QDir(disk + u"/A.app"_s).removeRecursively();
    }
}

TEST_F(Disks, LayeredFileSystemIsInstalledOnByCopying) {
    const QString lower = disk + u"/lower/Host.app"_s;
    QString top = disk + u"/merged"_s;
    bool real = mountAt(disk, "tmpfs", "size=64m");
    tx::test::makeBundle(lower, {.build = u"1"_s});
    for (const char *part : {"/upper", "/work", "/merged"})
        QDir().mkpath(disk + QLatin1StringView(part));
    real =
        real && mountAt(top, "overlay",
                        "lowerdir=" + QFile::encodeName(disk) + "/lower,upperdir=" + QFile::encodeName(disk) +
                            "/upper,workdir=" + QFile::encodeName(disk) + "/work,userxattr");
    if (!real)
        top = disk + u"/lower"_s; // the fault matrix of the installer plays the layers
    const QString fresh = path(u"cache/New.app"_s);
    makeFresh(fresh);
    const QStringList newTree = treeOf(fresh);
    tx::installer::Files files;
    EXPECT_EQ(install(fresh, top + u"/Host.app"_s, files), 0) << log;
    EXPECT_EQ(treeOf(top + u"/Host.app"_s), newTree);
    EXPECT_EQ(namesIn(top), QStringList{u"Host.app"_s});
    EXPECT_TRUE(log.empty()) << log;
}

/// An installer's file system at whose steps something happens; where there are no real layers, the folders
/// of the installed application cannot be renamed.
class SteppedFiles final : public tx::installer::Files {
public:
    SteppedFiles(std::string app, bool isReal, std::function<void(int)> step)
        : m_app(std::move(app))
        , m_isReal(isReal)
        , m_step(std::move(step)) {}
    FileError rename(const std::string &from, const std::string &to) override {
        m_step(++steps);
        if (!m_isReal && from == m_app && m_isLower)
            return {EXDEV, from};
        return Files::rename(from, to);
    }
    FileError exchange(const std::string &a, const std::string &b) override {
        m_step(++steps);
        return m_isReal || !m_isLower ? Files::exchange(a, b) : FileError{EXDEV, b};
    }
    FileError copyTree(const std::string &from, const std::string &to,
                       const tx::posix::CopyRules &rules) override {
        m_step(++steps);
        return Files::copyTree(from, to, rules);
    }
    FileError removeTree(const std::string &path) override {
        m_step(++steps);
        if (path == m_app) {
            // Not in one step either.
            (void)Files::removeTree(path + "/Contents/Linux");
            m_step(++steps);
            m_isLower = false;
        }
        return Files::removeTree(path);
    }
    FileError syncDirectory(const std::string &path) override {
        m_step(++steps);
        return Files::syncDirectory(path);
    }
    int steps = 0;

private:
    std::string m_app;
    bool m_isReal;
    bool m_isLower = true;
    std::function<void(int)> m_step;
};

/// Who opens the application while it is installed, and whose the folder around it is.
struct Opening {
    const char *name;
    uid_t opener;
    uid_t folderOwner;
    mode_t folderMode;
};

class LayeredDisk : public Disks, public testing::WithParamInterface<Opening> {
protected:
    struct Killed {};
    QString top;
    QString app;
    QStringList oldTree;
    QStringList newTree;
    bool isReal = false;
    const QString fresh = path(u"cache/New.app"_s);

    /// Nobody else than this process's own user can be had by an ordinary user.
    bool canBecome(uid_t user) const {
        if (seteuid(user) != 0)
            return false;
        return seteuid(0) == 0;
    }
    void prepare() {
        while (!mounted.isEmpty())
            umount2(QFile::encodeName(mounted.takeLast()).constData(), MNT_DETACH);
        QDir(disk).removeRecursively();
        isReal = mountAt(disk, "tmpfs", "size=64m");
        tx::test::makeBundle(disk + u"/lower/Host.app"_s, {.build = u"1"_s});
        writeFile(disk + u"/lower/Host.app/Contents/Resources/old"_s, "old");
        for (const char *part : {"/upper", "/work", "/merged"})
            QDir().mkpath(disk + QLatin1StringView(part));
        const QByteArray root = QFile::encodeName(disk);
        if (geteuid() == 0 && GetParam().folderOwner != 0 && canBecome(GetParam().folderOwner)) {
            for (const char *part : {"/lower", "/upper"})
                EXPECT_FALSE(tx::posix::changeOwner((root + part).toStdString(), GetParam().folderOwner,
                                                    GetParam().folderOwner));
        }
        for (const char *part : {"/lower", "/upper"})
            EXPECT_EQ(chmod((root + part).constData(), GetParam().folderMode), 0);
        const QByteArray options =
            "lowerdir=" + root + "/lower,upperdir=" + root + "/upper,workdir=" + root + "/work";
        isReal = isReal && (mountsLayers(options) || mountsLayers(options + ",userxattr"));
        top = disk + (isReal ? u"/merged"_s : u"/lower"_s);
        app = top + u"/Host.app"_s;
        ASSERT_EQ(chmod(QFile::encodeName(path(u""_s)).constData(), 0755), 0);
        ASSERT_EQ(chmod(root.constData(), 0755), 0);
        makeFresh(fresh);
        oldTree = treeOf(app);
        newTree = treeOf(fresh);
    }
    /// As the user's file manager does.
    void open() const {
        const uid_t opener = geteuid() == 0 && canBecome(GetParam().opener) ? GetParam().opener : geteuid();
        const bool lowers = opener != geteuid();
        ASSERT_TRUE(!lowers || (setegid(opener) == 0 && seteuid(opener) == 0));
        (void)tx::restoreBackup(app.toStdString());
        ASSERT_TRUE(!lowers || (seteuid(0) == 0 && setegid(0) == 0));
    }
    void expectSomethingWhole(int step) const {
        const QString whole = QString::fromStdString(tx::wholePathFor(app.toStdString()));
        const QStringList there = QFileInfo::exists(app) ? treeOf(app) : QStringList();
        EXPECT_TRUE(there == oldTree || there == newTree ||
                    (QFileInfo::exists(whole) && treeOf(whole) == oldTree))
            << "neither copy is left at step " << step << '\n'
            << namesIn(top).join(u' ').toStdString();
    }
};

TEST_P(LayeredDisk, OpeningAtEveryStepLosesNothing) {
    prepare();
    SteppedFiles watched(app.toStdString(), isReal, [this](int step) {
        open();
        expectSomethingWhole(step);
    });
    EXPECT_EQ(install(fresh, app, watched), 0) << log;
    EXPECT_EQ(treeOf(app), newTree);
    EXPECT_EQ(namesIn(top), QStringList{u"Host.app"_s});
    ASSERT_GT(watched.steps, 8) << "this is no file system with layers";
    // The installer is killed there, and the application opened; the next installation comes through.
    for (int last = 1; last <= watched.steps; ++last) {
        SCOPED_TRACE(last);
        prepare();
        SteppedFiles killed(app.toStdString(), isReal, [last](int step) {
            if (step == last)
                throw Killed();
        });
        EXPECT_THROW((void)install(fresh, app, killed), Killed);
        expectSomethingWhole(last);
        open();
        expectSomethingWhole(last);
        if (geteuid() == 0) {
            (void)tx::restoreBackup(app.toStdString());
            EXPECT_TRUE(treeOf(app) == oldTree || treeOf(app) == newTree) << "root may always repair it";
        }
        QDir(fresh).removeRecursively();
        makeFresh(fresh);
        log.clear();
        SteppedFiles again(app.toStdString(), isReal, [](int) {});
        EXPECT_EQ(install(fresh, app, again), 0) << log;
        EXPECT_EQ(treeOf(app), newTree);
        EXPECT_EQ(namesIn(top), QStringList{u"Host.app"_s});
    }
}

INSTANTIATE_TEST_SUITE_P(Openers, LayeredDisk,
                         testing::Values(Opening{"root", 0, 0, 0755}, Opening{"owner", 65534, 65534, 0755},
                                         Opening{"visitor", 65534, 0, 0755},
                                         Opening{"writer", 65534, 0, 0777}),
                         [](const testing::TestParamInfo<Opening> &each) {
                             return std::string(each.param.name);
                         });

TEST_F(Disks, HomeOnAnotherFileSystemThanTheApplication) {
    const bool real = mountAt(disk, "tmpfs", "size=64m");
    QTemporaryDir memory(u"/dev/shm/tarvix-XXXXXX"_s);
    const QString cache = real ? disk : memory.path();
    const QString app = path(u"opt/Host.app"_s);
    tx::test::makeBundle(app, {.build = u"1"_s});
    makeFresh(cache + u"/New.app"_s);
    const QStringList newTree = treeOf(cache + u"/New.app"_s);
    tx::installer::Files files;
    EXPECT_EQ(install(cache + u"/New.app"_s, app, files), 0) << log;
    EXPECT_EQ(treeOf(app), newTree);
    EXPECT_EQ(namesIn(path(u"opt"_s)), QStringList{u"Host.app"_s});
    EXPECT_TRUE(namesIn(cache).isEmpty());
}

TEST_F(Disks, TrashThatAllUsersShareIsUsedOnlyWhenItIsSticky) {
    const bool isVolume = mountAt(disk, "tmpfs", "size=1m");
    const QString user = QString::number(getuid());
    const QString home = path(u"home/.local/share/Trash"_s);
    struct Case {
        mode_t mode;
        QString trash;
    };
    for (const auto &[mode, trash] :
         {Case{0777, disk + u"/.Trash-"_s + user}, Case{01777, disk + u"/.Trash/"_s + user}}) {
        QDir().mkpath(disk + u"/.Trash"_s);
        ASSERT_EQ(chmod(QFile::encodeName(disk + u"/.Trash"_s).constData(), mode), 0);
        const QString name = u"of mode %1"_s.arg(mode, 0, 8);
        writeFile(disk + u'/' + name, "x");
        EXPECT_FALSE(tx::removeItemAtPath(disk + u'/' + name));
        EXPECT_TRUE(QFileInfo::exists((isVolume ? trash : home) + u"/files/"_s + name)) << name.toStdString();
    }
}

TEST_F(Disks, ExtendedAttributesThatTheTargetCannotKeepAreNoObstacle) {
    const bool real = mountAt(disk, "ramfs", "");
    const QString fresh = path(u"cache/New.app"_s);
    makeFresh(fresh);
    const QByteArray file = QFile::encodeName(fresh + u"/Contents/Resources/1"_s);
    const bool marked = setxattr(file.constData(), "user.mark", "1", 1, 0) == 0;
    const QString app = disk + u"/Host.app"_s;
    tx::test::makeBundle(app, {.build = u"1"_s});
    const QStringList newTree = treeOf(fresh);
    tx::installer::Files files;
    EXPECT_EQ(install(fresh, app, files), 0) << log;
    EXPECT_EQ(treeOf(app), newTree);
    const QByteArray installed = QFile::encodeName(app + u"/Contents/Resources/1"_s);
    EXPECT_EQ(getxattr(installed.constData(), "user.mark", nullptr, 0) > 0, marked && !real);
}

} // namespace

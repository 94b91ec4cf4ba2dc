// SPDX-License-Identifier: MIT
// Disks that are full, read-only, out of inodes or over their quota, and file systems that cannot do what
// others can. Real mounts where the system permits them (in-own-mounts), else a file system that fails as
// they do.
#include "core/host_p.h"
#include "core/settings.h"
#include "install/unarchiver.h"
#include "installer/installer.h"
#include "mover/movejob.h"
#include "platform/linux/openbundle.h"
#include "platform/mainbundle.h"
#include "platform/userdefaults.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateAppMover.h>

#include <QRegularExpression>

#include <cerrno>
#include <sys/mount.h>
#include <sys/stat.h>
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
    FileError copyTree(const std::string &from, const std::string &to) override {
        if (!isThere(to))
            return Files::copyTree(from, to);
        if (m_number != EROFS) // a part of it
            mkdir(to.c_str(), 0700);
        return {m_number, to};
    }
    FileError lock(const std::string &path, tx::posix::Descriptor &lock) override {
        return isThere(path) ? FileError{m_number, path} : Files::lock(path, lock);
    }

private:
    bool isThere(const std::string &path) const { return path.rfind(m_folder, 0) == 0; }
    std::string m_folder;
    int m_number;
};

class Disks : public tx::test::FrameworkTest {
protected:
    const QString disk = path(u"disk"_s);
    QStringList mounted;
    QString opened;
    std::string log;

    Disks() { QDir().mkpath(disk); }
    ~Disks() override {
        while (!mounted.isEmpty())
            umount2(QFile::encodeName(mounted.takeLast()).constData(), MNT_DETACH);
    }
    bool mountAt(const QString &place, const char *type, const QByteArray &options) {
        QDir().mkpath(place);
        if (mount(type, QFile::encodeName(place).constData(), type, 0, options.constData()) != 0)
            return false;
        mounted << place;
        return true;
    }
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
    EXPECT_EQ(install(fresh, app, real ? native : simulated), tx::installer::StatusCannotStage) << log;
    EXPECT_THAT(log, testing::HasSubstr("cannot be put into place"));
    EXPECT_EQ(treeOf(app), oldTree);
    EXPECT_EQ(treeOf(fresh), newTree) << "a later try finds it";
    EXPECT_EQ(opened, app);
    EXPECT_TRUE(namesIn(disk).filter(u".Host.app"_s).isEmpty()) << namesIn(disk).join(u' ').toStdString();
}

TEST_P(TroubledDisk, DownloadSaysWhyAndLeavesNothing) {
    qputenv("XDG_CACHE_HOME", QFile::encodeName(disk));
    prepare([&] { EXPECT_TRUE(tx::updateCacheDirectoryFilePath().startsWith(disk)); });
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
    EXPECT_TRUE(namesIn(tx::updateCacheDirectoryFilePath()).isEmpty());
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
        tx::test::runProcess(QStringLiteral(TEST_RESOURCES) + u"/Archives/tar"_s, {u"-zxC"_s, disk},
                             tx::test::readFile(disk + u"/App.tgz"_s), environment);
    EXPECT_EQ(result.status, 1) << result.errors.constData();
    EXPECT_EQ(namesIn(disk), QStringList{u"App.tgz"_s});
}

TEST_F(Disks, NamesThatAreTheSameToTheFileSystemSpoilTheArchive) {
    const QByteArray sanitizers = qgetenv("ASAN_OPTIONS");
    const QStringList environment{u"LD_PRELOAD="_s + QStringLiteral(TEST_HELPERS) + u"/casefold.so"_s,
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
        const QString tool = QStringLiteral(TEST_RESOURCES) + each.tool;
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
        EXPECT_TRUE(tx::removeItemAtPath(disk + u'/' + name));
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

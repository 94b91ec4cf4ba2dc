// SPDX-License-Identifier: MIT
#include "os/directories.h"
#include "os/frameworkresources.h"
#include "os/osversion.h"
#include "os/volumes.h"
#include "os/workspace.h"
#include "posix/userfolders.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFileInfo>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct OSCase {
    QString release;
    QString kernel;
    std::array<int, 3> expected;
};

class OSRelease : public testing::TestWithParam<OSCase> {};

TEST_P(OSRelease, GivesTheVersion) {
    const tx::OSVersion version = tx::osVersionFrom(GetParam().release, GetParam().kernel);
    EXPECT_EQ((std::array{version.majorVersion, version.minorVersion, version.patchVersion}),
              GetParam().expected);
    EXPECT_EQ(version.build, GetParam().kernel);
}

INSTANTIATE_TEST_SUITE_P(
    Systems, OSRelease,
    testing::Values(OSCase{u"NAME=x\nVERSION_ID=\"12\"\n"_s, u"6.1.0-18-amd64"_s, {12, 0, 0}},
                    OSCase{u"VERSION_ID='22.04'"_s, u"6.1.0"_s, {22, 4, 0}},
                    OSCase{u"VERSION_ID=15.5.1-rc\n"_s, u"6.1.0"_s, {15, 5, 1}},
                    OSCase{u"ID=arch\n"_s, u"6.9.3-arch1-1"_s, {6, 9, 3}},
                    OSCase{u"VERSION_ID=\"rolling\"\n"_s, u"5.10"_s, {5, 10, 0}},
                    OSCase{{}, u"x"_s, {0, 0, 0}}));

class Folders : public tx::test::FrameworkTest {};

TEST(OSName, IsTheOneOfOsRelease) {
    const std::pair<QString, QString> cases[] = {
        {u"NAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\""_s, u"Debian GNU/Linux"_s},
        {u"ID=fedora\nNAME='Fedora Linux'\n"_s, u"Fedora Linux"_s},
        {u"PRETTY_NAME=\"No\"\nNAME=Arch  \n"_s, u"Arch"_s},
        {u"NAME=first\nNAME=second"_s, u"second"_s},
        {u"NAME=\"\""_s, u"Linux"_s},
        {u"CPE_NAME=x\nNAMES=y"_s, u"Linux"_s},
        {QString(), u"Linux"_s},
    };
    for (const auto &[release, name] : cases)
        EXPECT_EQ(tx::osNameFrom(release), name) << release.toStdString();
}

TEST(OSName, OfThisSystemIsRead) {
    const auto name = tx::test::runProcess(
        u"/bin/sh"_s,
        {u"-c"_s,
         u". /etc/os-release 2> /dev/null || . /usr/lib/os-release; printf %s \"${NAME:-Linux}\""_s});
    EXPECT_EQ(tx::operatingSystemName(), QString::fromUtf8(name.output));
}

TEST_F(Folders, TemporaryOneIsPrivateAndMadeOnDemand) {
    const QString folder = tx::temporaryDirectory();
    EXPECT_EQ(folder, path(u"home/.cache/TarvixUpdate"_s));
    struct stat info {};
    ASSERT_EQ(lstat(folder.toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U);
    ASSERT_EQ(chmod(folder.toUtf8().constData(), 0755), 0);
    EXPECT_EQ(tx::temporaryDirectory(), folder);
    ASSERT_EQ(lstat(folder.toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U) << "closed again";
}

TEST_F(Folders, TemporaryOneIsNotTakenThroughALink) {
    QDir().mkpath(path(u"elsewhere"_s));
    QDir().mkpath(path(u"home/.cache"_s));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), path(u"home/.cache/TarvixUpdate"_s)));
    std::string why;
    EXPECT_EQ(tx::posix::privateTemporaryFolder(&why), "");
    EXPECT_THAT(why, testing::HasSubstr("is not a folder"));
    (void)tx::temporaryDirectory();
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("the temporary folder cannot be used"));
}

TEST_F(Folders, WithoutHomeTheUserDatabaseIsAsked) {
    const struct passwd *entry = getpwuid(geteuid());
    ASSERT_TRUE(entry);
    const QString home = QFile::decodeName(entry->pw_dir);
    ASSERT_NE(home, u"/"_s);
    // A variable that names no absolute path counts as none.
    for (const char *value : {static_cast<const char *>(nullptr), "", "relative/home"}) {
        for (const char *name : {"HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME"}) {
            if (value)
                qputenv(name, value);
            else
                qunsetenv(name);
        }
        EXPECT_EQ(tx::homeDirectory(), home);
        EXPECT_EQ(tx::userApplicationsDirectory(), home + u"/Applications"_s);
        EXPECT_EQ(tx::configurationDirectory(), home + u"/.config"_s);
        EXPECT_EQ(tx::posix::cacheFolder(), (home + u"/.cache"_s).toStdString());
        if (!value || !*value) {
            EXPECT_EQ(tx::downloadsDirectoryPath(), home + u"/Downloads"_s);
            EXPECT_EQ(tx::desktopDirectoryPath(), home + u"/Desktop"_s);
        }
    }
    EXPECT_EQ(tx::localApplicationsDirectory(), u"/opt"_s);
}

TEST_F(Folders, DownloadsAreMadeWhenMissing) {
    const auto folder = tx::downloadsDirectory();
    ASSERT_TRUE(bool(folder));
    EXPECT_TRUE(folder->startsWith(path(u"home"_s))) << folder->toStdString();
    EXPECT_TRUE(QFileInfo(*folder).isDir());
}

TEST_F(Folders, DownloadsThatCannotBeMadeAreAnError) {
    tx::test::FaultFileSystem faults;
    faults.failOn(u"createDirectory"_s, EACCES);
    EXPECT_EQ(tx::downloadsDirectory().error().code(), EACCES);
}

class Volumes : public tx::test::FrameworkTest {};

TEST_F(Volumes, KnowWhatHoldsAPath) {
    const auto info = tx::volumeInfo(path(u""_s));
    ASSERT_TRUE(info);
    EXPECT_TRUE(path(u""_s).startsWith(info->rootPath));
    EXPECT_FALSE(info->isReadOnly);
    EXPECT_FALSE(tx::mountFlagsAreReadOnly(path(u""_s)));
    EXPECT_FALSE(tx::volumeInfo(u"/no/such/path"_s));
    EXPECT_FALSE(tx::mountFlagsAreReadOnly(u"/no/such/path"_s));
}

TEST_F(Volumes, FileSystemKnowsWhatHoldsAPathWithoutAMountTable) {
    const auto table = tx::volumeInfo(path(u""_s));
    const auto own = tx::volumeByFileSystem(path(u""_s));
    ASSERT_TRUE(table && own);
    EXPECT_EQ(own->rootPath, table->rootPath);
    EXPECT_EQ(own->isReadOnly, table->isReadOnly);
    EXPECT_EQ(own->isRemovable, table->isRemovable);
    EXPECT_EQ(tx::volumeByFileSystem(u"/proc/self"_s)->rootPath, u"/proc"_s);
    EXPECT_FALSE(tx::volumeByFileSystem(u"/no/such/path"_s));
}

TEST_F(Volumes, RemovableIsWhatTheDeviceOrItsDiskSays) {
    const QString sys = path(u"sys"_s);
    tx::test::writeFile(sys + u"/devices/usb/sdb/removable"_s, "1\n");
    tx::test::writeFile(sys + u"/devices/usb/sdb/sdb1/partition"_s, "1\n");
    tx::test::writeFile(sys + u"/devices/pci/sda/removable"_s, "0\n");
    QDir().mkpath(sys + u"/class/block"_s);
    QFile::link(sys + u"/devices/usb/sdb"_s, sys + u"/class/block/sdb"_s);
    QFile::link(sys + u"/devices/usb/sdb/sdb1"_s, sys + u"/class/block/sdb1"_s);
    QFile::link(sys + u"/devices/pci/sda"_s, sys + u"/class/block/sda"_s);
    EXPECT_TRUE(tx::deviceIsRemovable(u"/dev/sdb"_s, sys));
    EXPECT_TRUE(tx::deviceIsRemovable(u"/dev/sdb1"_s, sys));
    EXPECT_FALSE(tx::deviceIsRemovable(u"/dev/sda"_s, sys));
    EXPECT_FALSE(tx::deviceIsRemovable(u"tmpfs"_s, sys));
    for (const QByteArray said : {"", "2\n", "yes\n"}) {
        tx::test::writeFile(sys + u"/devices/pci/sda/removable"_s, said);
        EXPECT_FALSE(tx::deviceIsRemovable(u"/dev/sda"_s, sys)) << said.constData();
    }
    EXPECT_TRUE(tx::deviceIsLoop(u"/dev/loop3"_s));
    EXPECT_FALSE(tx::deviceIsLoop(u"/dev/sda"_s));
}

class Resources : public tx::test::FrameworkTest {
protected:
    /// What a program finds that holds the framework and is at `place`.
    QString foundFrom(const QString &place, const QString &variable) const {
        const QString program = path(place);
        QDir().mkpath(QFileInfo(program).path());
        EXPECT_TRUE(QFile::exists(program) ||
                    QFile::copy(tx::test::helpersFolder() + u"/resources_printer"_s, program));
        const auto result = tx::test::runProcess(program, {}, {}, {u"TXUPDATE_RESOURCES="_s + variable});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        return QString::fromUtf8(result.output);
    }
};

TEST_F(Resources, StandBesideTheLibraryOrWhereTheTestSays) {
    EXPECT_EQ(QFileInfo(tx::frameworkResourcesPath()).canonicalFilePath(),
              QFileInfo(tx::test::resourcesFolder()).canonicalFilePath());
    const QString elsewhere = path(u"elsewhere"_s);
    const QString bundled = path(u"A.app/Contents/Frameworks/TarvixUpdate/Resources"_s);
    EXPECT_EQ(foundFrom(u"A.app/Contents/Frameworks/library"_s, elsewhere), elsewhere);
    EXPECT_EQ(foundFrom(u"A.app/Contents/Frameworks/library"_s, {}), bundled) << "where they should be";
    QDir().mkpath(bundled);
    EXPECT_EQ(foundFrom(u"A.app/Contents/Frameworks/library"_s, elsewhere), bundled)
        << "the variable leads no application to other tools than its own";
    const QString built = path(u"prefix/lib/TarvixUpdate/Resources"_s);
    QDir().mkpath(built);
    EXPECT_EQ(foundFrom(u"prefix/bin/program"_s, elsewhere), built);
    // Its name contains the version that the libraries' names contain.
    const QString installed = path(u"prefix/libexec/TarvixUpdate-%1/Resources"_s.arg(
        QString::fromLatin1(TARVIXUPDATE_VERSION).section(u'.', 0, TARVIXUPDATE_VERSION[0] == '0' ? 1 : 0)));
    QDir().mkpath(path(u"prefix/libexec/TarvixUpdate/Resources"_s));
    QDir().mkpath(path(u"prefix/libexec/TarvixUpdate-99/Resources"_s));
    EXPECT_EQ(foundFrom(u"prefix/bin/program"_s, elsewhere), built) << "those of other versions";
    QDir().mkpath(installed);
    EXPECT_EQ(foundFrom(u"prefix/bin/program"_s, elsewhere), installed);
    EXPECT_EQ(foundFrom(u"prefix/lib/library"_s, elsewhere), built) << "a build tree, a bundle";
    ASSERT_TRUE(QDir(built).removeRecursively());
    EXPECT_EQ(foundFrom(u"prefix/lib/library"_s, elsewhere), installed);
}

class Desktop : public tx::test::FrameworkTest {};

TEST_F(Desktop, AddressesAndFilesGoToTheUsersProgram) {
    tx::test::RecordingTasks tasks;
    EXPECT_TRUE(tx::nativeWorkspace().openUrl(QUrl(u"https://e.org/a b"_s)).isNull());
    EXPECT_TRUE(tx::nativeWorkspace().openFile(path(u"x.txt"_s)).isNull());
    ASSERT_EQ(tasks.started.size(), 2);
    EXPECT_EQ(tasks.started[0].program, u"xdg-open"_s);
    EXPECT_EQ(tasks.started[0].arguments, QStringList{u"https://e.org/a%20b"_s});
    EXPECT_EQ(tasks.started[1].arguments, QStringList{path(u"x.txt"_s)});
    tasks.failing = [](const tx::TaskRequest &) { return ENOENT; };
    EXPECT_EQ(tx::nativeWorkspace().openUrl(QUrl(u"https://e.org/"_s)).code(), ENOENT);
}

TEST_F(Desktop, RevealStartsItsHelper) {
    tx::test::RecordingTasks tasks;
    EXPECT_TRUE(tx::nativeWorkspace().reveal(path(u"folder/file"_s)).isNull());
    ASSERT_EQ(tasks.started.size(), 1);
    EXPECT_EQ(tasks.started[0].program, tx::frameworkResourcesPath() + u"/TXUpdateReveal"_s);
    EXPECT_EQ(tasks.started[0].arguments, QStringList{path(u"folder/file"_s)});
    tasks.failing = [](const tx::TaskRequest &) { return ENOENT; };
    EXPECT_EQ(tx::nativeWorkspace().reveal(path(u"folder/file"_s)).code(), ENOENT);
}

TEST_F(Desktop, RevealFallsBackToTheFolderWithoutAFileManager) {
    const QString helper = tx::test::resourcesFolder() + u"/TXUpdateReveal"_s;
    // xdg-open is played by a script.
    tx::test::writeFile(path(u"bin/xdg-open"_s),
                        "#!/bin/sh\nprintf %s \"$1\" > '" + path(u"opened"_s).toUtf8() + "'\n",
                        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QStringList environment{u"PATH="_s + path(u"bin"_s) + u":/usr/bin:/bin"_s,
                                  u"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"_s};
    EXPECT_EQ(tx::test::runProcess(helper, {path(u"folder/file"_s)}, {}, environment).status, 0);
    EXPECT_EQ(tx::test::readFile(path(u"opened"_s)), path(u"folder"_s).toUtf8());
    EXPECT_EQ(tx::test::runProcess(helper, {}).status, 64);
}

TEST_F(Desktop, RevealOpensTheFolderWithoutXdgUtils) {
    const QString helper = tx::test::resourcesFolder() + u"/TXUpdateReveal"_s;
    const QByteArray folder = path(u"a folder"_s).toUtf8();
    const auto runWith = [&](const QString &tools) {
        return tx::test::runProcess(
            helper, {path(u"a folder/file"_s)}, {},
            {u"PATH="_s + tools, u"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"_s});
    };
    for (const QString &program :
         {u"gio"_s, u"kde-open"_s, u"kde-open5"_s, u"exo-open"_s, u"nautilus"_s, u"dolphin"_s, u"thunar"_s,
          u"nemo"_s, u"caja"_s, u"pcmanfm-qt"_s, u"pcmanfm"_s, u"io.elementary.files"_s}) {
        SCOPED_TRACE(program.toStdString());
        const QString tools = path(u"bin-"_s + program);
        const QString opened = path(u"opened-by-"_s + program);
        // In place with one rename: some of these are not waited for.
        tx::test::writeFile(tools + u'/' + program,
                            "#!/bin/sh\nPATH=/usr/bin:/bin\nprintf '%s|' \"$@\" > '" + opened.toUtf8() +
                                ".new'\nmv '" + opened.toUtf8() + ".new' '" + opened.toUtf8() + "'\n",
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        EXPECT_EQ(runWith(tools).status, 0);
        ASSERT_TRUE(tx::test::waitUntil([&] { return QFileInfo::exists(opened); }));
        EXPECT_EQ(tx::test::readFile(opened), (program == u"gio" ? "open|" : "") + folder + '|');
    }
    const auto without = runWith(path(u"none"_s));
    EXPECT_EQ(without.status, 1);
    EXPECT_THAT(without.errors.toStdString(), testing::HasSubstr("Look into " + folder.toStdString()));
}

TEST_F(Desktop, RevealAsksThePortalWithoutAFileManager) {
    tx::test::writeFile(path(u"a folder/file"_s), "x");
    const auto result =
        tx::test::runProcess(u"dbus-run-session"_s,
                             {u"--"_s, tx::test::helpersFolder() + u"/file_manager"_s, u"--portal"_s,
                              tx::test::resourcesFolder() + u"/TXUpdateReveal"_s, path(u"a folder/file"_s)});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(result.output.trimmed(), QFileInfo(path(u"a folder/file"_s)).canonicalFilePath().toUtf8());
}

TEST_F(Desktop, RevealAsksTheFileManager) {
    // A bus of the test's own, on which a helper plays the file manager.
    const auto result =
        tx::test::runProcess(u"dbus-run-session"_s,
                             {u"--"_s, tx::test::helpersFolder() + u"/file_manager"_s,
                              tx::test::resourcesFolder() + u"/TXUpdateReveal"_s, path(u"a folder/file"_s)});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(result.output.trimmed(), "file://" + path(u"a%20folder/file"_s).toUtf8());
}

TEST_F(Desktop, TrashTakesAFileAndLeavesNoStrayFolder) {
    tx::test::writeFile(path(u"home/file.txt"_s), "x");
    const auto trashed =
        tx::nativeWorkspace().moveToTrash(path(u"home/file.txt"_s), path(u"home/file.txt"_s));
    ASSERT_TRUE(bool(trashed)) << trashed.error().toString().toStdString();
    EXPECT_TRUE(trashed->startsWith(path(u"home/.local/share/Trash/files/"_s))) << trashed->toStdString();
    EXPECT_EQ(tx::test::readFile(*trashed), QByteArray("x"));
    EXPECT_FALSE(QFileInfo::exists(path(u"home/file.txt"_s)));
    EXPECT_FALSE(bool(tx::nativeWorkspace().moveToTrash(path(u"home/none"_s), path(u"home/none"_s))));
}

} // namespace

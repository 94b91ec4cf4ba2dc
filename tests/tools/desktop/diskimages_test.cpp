// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "desktop/diskimages.h"
#include "mover/applicationplaces.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::images;
using tx::test::runProcess;

namespace {

/// Devices and a mount table made of files.
class DiskImages : public tx::test::FrameworkTest {
protected:
    void file(const QString &name, const QByteArray &content) {
        tx::test::writeFile(path(u"root"_s) + name, content);
    }
    std::vector<Image> images() const { return attachedImages(path(u"root"_s).toStdString()); }

    DiskImages() {
        file(u"/sys/block/sda/dev"_s, "8:0\n");
        file(u"/sys/block/loop0/dev"_s, "7:0\n");
        file(u"/sys/block/loop0/loop/backing_file"_s, "/home/me/My App.img\n");
        file(u"/sys/block/loop1/dev"_s, "7:1\n"); // attached to nothing
        file(u"/sys/block/loop2/dev"_s, "7:2\n");
        file(u"/sys/block/loop2/loop/backing_file"_s, "/srv/disk.img\n");
        file(u"/sys/block/loop2/loop2p1/dev"_s, "259:4\n");
        file(u"/proc/self/mountinfo"_s, "22 1 8:0 / / rw - ext4 /dev/sda rw\n"
                                        "42 22 7:0 / /media/My\\040App\\134x ro - ext4 /dev/loop0 ro\n"
                                        "43 22 259:4 / /mnt/part ro - ext4 /dev/loop2p1 ro\n"
                                        "44 22 7:0 / /again ro - ext4 /dev/loop0 ro\n");
    }
};

TEST_F(DiskImages, AreTheFilesBehindLoopDevices) {
    const auto list = tx::readPropertyList(QByteArray::fromStdString(asPropertyList(images())));
    ASSERT_TRUE(bool(list));
    const auto entity = [](const QString &device, const QString &point = {}) {
        QVariantMap map{{u"dev-entry"_s, device}};
        if (!point.isNull())
            map.insert(u"mount-point"_s, point);
        return map;
    };
    EXPECT_EQ(
        list->toMap()[u"images"_s].toList(),
        (QVariantList{
            QVariantMap{{u"image-path"_s, u"/home/me/My App.img"_s},
                        {u"system-entities"_s, QVariantList{entity(u"/dev/loop0"_s, u"/media/My App\\x"_s),
                                                            entity(u"/dev/loop0"_s, u"/again"_s)}}},
            QVariantMap{{u"image-path"_s, u"/srv/disk.img"_s},
                        {u"system-entities"_s, QVariantList{entity(u"/dev/loop2"_s),
                                                            entity(u"/dev/loop2p1"_s, u"/mnt/part"_s)}}}}));
    EXPECT_EQ(asText(images()), "/home/me/My App.img\n    /dev/loop0    /media/My App\\x    /again\n"
                                "/srv/disk.img\n    /dev/loop2\n    /dev/loop2p1    /mnt/part\n");
    EXPECT_TRUE(attachedImages(path(u"none"_s).toStdString()).empty());
}

TEST_F(DiskImages, DetachingUnmountsEverythingAndReleasesTheDevice) {
    std::vector<std::string> steps;
    std::string failing;
    const Actions actions{
        .unmount =
            [&](const std::string &point) {
                steps.push_back("unmount " + point);
                return point == failing ? "busy" : std::string();
            },
        .release =
            [&](const std::string &device) {
                steps.push_back("release " + device);
                return device == failing ? "stuck" : std::string();
            },
    };
    for (const char *target : {"/again", "/media/My App\\x", "/dev/loop0", "/home/me/My App.img"}) {
        steps.clear();
        EXPECT_EQ(detach(images(), target, actions), "") << target;
        EXPECT_THAT(steps,
                    testing::ElementsAre("unmount /again", "unmount /media/My App\\x", "release /dev/loop0"));
    }
    steps.clear();
    EXPECT_EQ(detach(images(), "/mnt/part", actions), "");
    EXPECT_THAT(steps, testing::ElementsAre("unmount /mnt/part", "release /dev/loop2"));
    steps.clear();
    EXPECT_EQ(detach(images(), "/", actions), "/: no disk image is attached there");
    EXPECT_TRUE(steps.empty());
    failing = "/again";
    EXPECT_EQ(detach(images(), "/dev/loop0", actions), "busy");
    EXPECT_THAT(steps, testing::ElementsAre("unmount /again")) << "a device in use is not released";
    failing = "/dev/loop2";
    EXPECT_EQ(detach(images(), "/srv/disk.img", actions), "stuck");
}

QString tool() { return tx::test::resourcesFolder() + u"/hdiutil"_s; }

TEST(DiskImageTool, MisuseIsExplained) {
    for (const QStringList &words :
         {QStringList{}, QStringList{u"attach"_s}, QStringList{u"info"_s, u"-json"_s},
          QStringList{u"detach"_s}, QStringList{u"detach"_s, u"a"_s, u"b"_s}}) {
        const auto result = runProcess(tool(), words);
        EXPECT_EQ(result.status, 64);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("usage: hdiutil"));
    }
    const auto missing = runProcess(tool(), {u"detach"_s, u"/no/such/place"_s});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.errors.toStdString(),
                testing::HasSubstr("/no/such/place: no disk image is attached there"));
    EXPECT_EQ(runProcess(u"/bin/sh"_s, {u"-c"_s, u"\"$0\" info -plist > /dev/full"_s, tool()}).status, 1);
}

/// A real image, where this machine lets this user mount one.
class RealDiskImage : public tx::test::FrameworkTest {
protected:
    const QString image = path(u"it's an \"image\".img"_s);
    const QString mountPoint = path(u"a mount"_s);
    bool mounted = false;

    RealDiskImage() {
        QDir().mkpath(mountPoint);
        tx::test::makeBundle(path(u"content/Host.app"_s), {});
        const auto shell = [this](const QString &script) {
            return runProcess(u"/bin/sh"_s, {u"-c"_s, u"PATH=$PATH:/sbin:/usr/sbin; "_s + script, image,
                                             mountPoint, path(u"content"_s)})
                       .status == 0;
        };
        mounted = geteuid() == 0 && shell(u"truncate -s 8M \"$0\" && mkfs.ext4 -q -d \"$2\" \"$0\""_s) &&
                  shell(u"mount -o loop,ro \"$0\" \"$1\""_s);
    }
    ~RealDiskImage() override { umount2(QFile::encodeName(mountPoint).constData(), MNT_DETACH); }
};

/// Mount points of this process's own, with the rights to change them; false where the system permits none.
bool enterOwnMounts() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user != 0 && unshare(CLONE_NEWUSER) != 0)
        return false;
    if (user != 0) {
        tx::test::writeFile(u"/proc/self/setgroups"_s, "deny");
        tx::test::writeFile(u"/proc/self/uid_map"_s, "0 " + QByteArray::number(user) + " 1");
        tx::test::writeFile(u"/proc/self/gid_map"_s, "0 " + QByteArray::number(group) + " 1");
    }
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// A read-only volume that the kernel reports as that of a loop device, which no machine has: all but the
/// device itself is as with a real image. Ends the process: 0 when all was as it should be.
[[noreturn]] void findAndDetachInOwnMounts(const QString &image, const QString &mountPoint) {
    const QByteArray point = QFile::encodeName(mountPoint);
    const auto expect = [](bool holds, const char *what) {
        if (!holds) {
            std::fprintf(stderr, "not so: %s\n", what);
            _exit(1);
        }
    };
    struct stat info {};
    expect(enterOwnMounts(), "a place to mount in");
    expect(mount("/dev/loop4242", point.constData(), "tmpfs", 0, nullptr) == 0, "a volume");
    tx::test::makeBundle(mountPoint + u"/Host.app"_s, {});
    expect(mount(nullptr, point.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "read-only");
    expect(stat(point.constData(), &info) == 0, "its number");
    expect(mount("sys", "/sys", "tmpfs", 0, nullptr) == 0, "a place for devices");
    const QString device = u"/sys/block/loop4242"_s;
    tx::test::writeFile(device + u"/dev"_s, QByteArray::number(major(info.st_dev)) + ':' +
                                                QByteArray::number(minor(info.st_dev)) + '\n');
    tx::test::writeFile(device + u"/loop/backing_file"_s, QFile::encodeName(image) + '\n');

    const tx::ApplicationPlaces places(mountPoint + u"/Host.app"_s);
    expect(places.isInDiskImage(), "it is a disk image");
    expect(places.diskImageVolumePath() == mountPoint, "the path of the volume");
    expect(tx::ApplicationPlaces::diskImageFileForVolumePath(mountPoint) == image, "the image's file");
    expect(!tx::ApplicationPlaces(image).isInDiskImage(), "what is elsewhere is in none");
    const auto result = runProcess(tool(), {u"detach"_s, mountPoint});
    expect(!QFileInfo::exists(mountPoint + u"/Host.app"_s), "detaching unmounts it");
    expect(result.status == 1 && result.errors.contains("/dev/loop4242"),
           "a device that is not there is named");
    _exit(0);
}

TEST_F(RealDiskImage, IsFoundBehindItsVolumeAndDetached) {
    tx::services().hdiutilPath = tool;
    if (!mounted) {
        const pid_t probe = fork();
        if (probe == 0)
            _exit(enterOwnMounts() ? 0 : 1);
        int status = -1;
        waitpid(probe, &status, 0);
        if (status == 0) {
            EXPECT_EXIT(findAndDetachInOwnMounts(image, mountPoint), testing::ExitedWithCode(0), "");
            return;
        }
        // Not even that: the files that this system's tables name are all that there can be.
        EXPECT_FALSE(tx::ApplicationPlaces(path(u"content/Host.app"_s)).isInDiskImage());
        QByteArray expected;
        for (const QString &name : tx::test::namesIn(u"/sys/block"_s)) {
            const QByteArray file = tx::test::readFile(u"/sys/block/"_s + name + u"/loop/backing_file"_s);
            if (!file.isEmpty())
                expected += file;
        }
        QByteArray found;
        for (const QByteArray &line : runProcess(tool(), {u"info"_s}).output.split('\n')) {
            if (!line.isEmpty() && !line.startsWith(' '))
                found += line + '\n';
        }
        EXPECT_EQ(found, expected);
        return;
    }
    const tx::ApplicationPlaces places(mountPoint + u"/Host.app"_s);
    EXPECT_TRUE(places.isInDiskImage());
    EXPECT_EQ(places.diskImageVolumePath(), mountPoint);
    EXPECT_EQ(tx::ApplicationPlaces::diskImageFileForVolumePath(mountPoint), image);
    const auto result = runProcess(tool(), {u"detach"_s, mountPoint});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_FALSE(places.isInDiskImage());
    EXPECT_FALSE(runProcess(tool(), {u"info"_s}).output.contains(image.toUtf8()));
}

} // namespace

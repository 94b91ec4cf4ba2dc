// SPDX-License-Identifier: MIT
#include "os/filesystem.h"
#include "os/specialfiles.h"
#include "posix/posixfiles.h"
#include "tests/support/accesslist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
namespace posix = tx::posix;

namespace {

class Files : public tx::test::FrameworkTest {
protected:
    tx::FileSystem &files = tx::nativeFileSystem();

    QString makeTree(const QString &name) {
        const QString tree = path(name);
        tx::test::writeFile(tree + u"/run"_s, "#!/bin/sh\n",
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        tx::test::writeFile(tree + u"/deep/er/data"_s, QByteArray(70000, 'x'));
        tx::test::writeFile(tree + u"/empty"_s, "");
        EXPECT_EQ(symlink("deep/er", (tree + u"/link"_s).toUtf8().constData()), 0);
        EXPECT_EQ(symlink("/nowhere", (tree + u"/dangling"_s).toUtf8().constData()), 0);
        EXPECT_EQ(chmod((tree + u"/deep"_s).toUtf8().constData(), 0500), 0);
        return tree;
    }
};

TEST_F(Files, CopyKeepsModesLinksTimesAndAttributes) {
    const QString tree = makeTree(u"a"_s);
    const QByteArray file = (tree + u"/run"_s).toUtf8();
    const bool attributes = setxattr(file.constData(), "user.test", "v", 1, 0) == 0;
    const timespec times[2] = {{1000, 0}, {1700000000, 5}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.constData(), times, 0), 0);
    ASSERT_TRUE(files.copy(tree, path(u"b"_s)).isNull());
    EXPECT_EQ(tx::test::treeOf(path(u"b"_s)), tx::test::treeOf(tree));
    struct stat info {};
    ASSERT_EQ(stat(path(u"b/run"_s).toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mtim.tv_sec, 1700000000);
    char value = 0;
    EXPECT_EQ(getxattr(path(u"b/run"_s).toUtf8().constData(), "user.test", &value, 1), attributes ? 1 : -1);
    EXPECT_EQ(files.copy(tree, path(u"b"_s)).code(), EEXIST);
    EXPECT_TRUE(QFileInfo::exists(path(u"b/run"_s))) << "what stood there stays";
}

TEST_F(Files, CopyTakesNoRightsAlong) {
    using tx::test::accessFor;
    const QString tree = makeTree(u"a"_s);
    const QString file = tree + u"/run"_s;
    const bool hasLists = tx::test::setAccessList(file, accessFor(4242, 7)) &&
                          tx::test::setAccessList(tree, accessFor(4242, 7)) &&
                          tx::test::setAccessList(tree, accessFor(4242, 7), "default");
    EXPECT_TRUE(hasLists || errno == EOPNOTSUPP);
    // Only root can set these.
    const bool hasMarks = setxattr(QFile::encodeName(file).constData(), "security.tarvix", "1", 1, 0) == 0 &&
                          setxattr(QFile::encodeName(file).constData(), "trusted.tarvix", "1", 1, 0) == 0;
    EXPECT_TRUE(hasMarks || geteuid() != 0);
    // A folder that hands a list down to what is made in it.
    QDir().mkpath(path(u"place"_s));
    EXPECT_EQ(tx::test::setAccessList(path(u"place"_s), accessFor(4242, 7), "default"), hasLists);
    ASSERT_TRUE(files.copy(tree, path(u"place/b"_s)).isNull());
    ASSERT_TRUE(files.linkOrCopy(tree, path(u"place/c"_s)).isNull());
    for (const QString &entry : {u"place/b"_s, u"place/b/run"_s, u"place/b/deep"_s, u"place/c"_s,
                                 u"place/c/run"_s, u"place/c/deep"_s}) {
        for (const char *name :
             {"system.posix_acl_access", "system.posix_acl_default", "security.tarvix", "trusted.tarvix"}) {
            EXPECT_LT(getxattr(QFile::encodeName(path(entry)).constData(), name, nullptr, 0), 0)
                << entry.toStdString() << ' ' << name;
        }
        struct stat info {};
        ASSERT_EQ(stat(QFile::encodeName(path(entry)).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0002, 0U);
    }
}

TEST_F(Files, CopyKeepsNoSpecialBitUnderAnotherOwner) {
    const auto modeOf = [](const std::string &file) {
        struct stat info {};
        EXPECT_EQ(lstat(file.c_str(), &info), 0) << file;
        return info.st_mode & 07777U;
    };
    const bool asRoot = geteuid() == 0;
    const std::string tree = path(u"tree"_s).toStdString();
    const std::string tool = tree + "/tool";
    constexpr uid_t somebody = 65534;
    const struct {
        const char *what;
        uid_t owner;
        gid_t group;
        mode_t bits;
        posix::CopyRules rules;
        bool asSomebody;
        mode_t expected;
    } cases[] = {
        {"root's, copied by root", 0, 0, 06755, {}, false, 06755},
        {"root's, copied by somebody", 0, 0, 04755, {}, true, 0755},
        {"root's, of root's group, copied by somebody", 0, 0, 02755, {}, true, 0755},
        {"somebody's own", somebody, somebody, 06755, {}, true, 0755},
        {"somebody's, copied by root", somebody, somebody, 06755, {}, false, 0755},
        {"somebody's, who keeps it", somebody, somebody, 06755, {.keepsOwners = true}, false, 0755},
        {"root's, given away", 0, 0, 06755, {.givenTo = std::pair(somebody, somebody)}, false, 0755},
        {"another group's", 0, 8, 06755, {}, false, 0755},
        {"another group's, which keeps it", 0, 8, 06755, {.keepsOwners = true}, false, 06755},
        {"root's, to be linked", 0, 0, 06755, {.linksFiles = true}, false, 06755},
        {"somebody's, to be linked", somebody, somebody, 06755, {.linksFiles = true}, true, 0755},
    };
    int number = 0;
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        (void)posix::removeTree(tree);
        tx::test::writeFile(QString::fromStdString(tool), "x");
        const bool isOwn = each.owner == somebody && each.asSomebody;
        if (!asRoot && !isOwn)
            continue; // an ordinary user has only files of its own to give such bits to
        if (asRoot) {
            ASSERT_EQ(chmod(path(u""_s).toUtf8().constData(), 0777), 0);
            ASSERT_EQ(chmod(tree.c_str(), 0755), 0);
            ASSERT_EQ(chown(tool.c_str(), each.owner, each.group), 0);
        }
        ASSERT_EQ(chmod(tool.c_str(), each.bits), 0);
        const std::string copy = path(u"copy%1"_s.arg(++number)).toStdString();
        if (asRoot && each.asSomebody) {
            ASSERT_EQ(setegid(somebody), 0);
            ASSERT_EQ(seteuid(somebody), 0);
        }
        const posix::FileError error = posix::copyTree(tree, copy, each.rules);
        if (asRoot && each.asSomebody) {
            ASSERT_EQ(seteuid(0), 0);
            ASSERT_EQ(setegid(0), 0);
        }
        ASSERT_EQ(error.number, 0) << error.path;
        EXPECT_EQ(modeOf(tool), each.bits);
        EXPECT_EQ(modeOf(copy + "/tool"), each.expected);
    }
    // A program of the system's, as every user may copy it.
    for (const char *program : {"/usr/bin/su", "/usr/bin/passwd", "/usr/bin/newgrp", "/usr/bin/mount"}) {
        if (asRoot || access(program, R_OK) != 0)
            continue;
        const std::string copy = path(u"program%1"_s.arg(++number)).toStdString();
        ASSERT_EQ(posix::copyTree(program, copy).number, 0);
        EXPECT_EQ(modeOf(copy) & (S_ISUID | S_ISGID), 0U) << program;
    }
}

TEST_F(Files, LinkSharesNoMoreRightsThanACopyWouldHave) {
    // In memory, where there are access lists and capabilities whatever the test's own folder is on.
    QTemporaryDir memory(u"/dev/shm/tarvix-XXXXXX"_s);
    ASSERT_TRUE(memory.isValid());
    const QString tree = memory.filePath(u"tree"_s);
    const auto inode = [](const QString &file) {
        struct stat info {};
        EXPECT_EQ(lstat(QFile::encodeName(file).constData(), &info), 0) << file.toStdString();
        return info.st_ino;
    };
    const struct {
        const char *name;
        mode_t mode;
        std::vector<tx::test::AccessEntry> list;
        bool isLinked;
    } cases[] = {
        {"plain", 0644, {}, true},
        {"program", 0755, {}, true},
        {"closed", 0, {}, true}, // needs no reading
        {"everybody", 0646, {}, false},
        {"setuid", 04755, {}, false},
        {"setgid", 02755, {}, false},
        {"writer", 0644, tx::test::accessFor(4242, 7), false},
        {"reader", 0640, tx::test::accessFor(4242, 4), false},
        {"capable", 0755, {}, false},
    };
    bool hasLists = false;
    for (const auto &each : cases) {
        const QString file = tree + u'/' + QString::fromUtf8(each.name);
        tx::test::writeFile(file, "x");
        ASSERT_EQ(chmod(QFile::encodeName(file).constData(), each.mode), 0);
        hasLists = each.list.empty() ? hasLists : tx::test::setAccessList(file, each.list);
    }
    EXPECT_TRUE(hasLists || errno == EOPNOTSUPP);
    // As file capabilities are stored: the second revision, with one right. Only root may set them.
    const uint32_t capability[5] = {0x02000001, 1U << 10, 0, 0, 0};
    const bool hasCapability = setxattr(QFile::encodeName(tree + u"/capable"_s).constData(),
                                        "security.capability", capability, sizeof capability, 0) == 0;
    EXPECT_TRUE(hasCapability || geteuid() != 0);
    const QString target = memory.filePath(u"target"_s);
    ASSERT_TRUE(files.linkOrCopy(tree, target).isNull());
    for (const auto &each : cases) {
        const QString name = u'/' + QString::fromUtf8(each.name);
        const bool isListed = !each.list.empty();
        if ((isListed && !hasLists) || (name == u"/capable" && !hasCapability))
            continue; // without it, the file is like the others
        EXPECT_EQ(inode(tree + name) == inode(target + name), each.isLinked) << each.name;
        for (const char *attribute : {"system.posix_acl_access", "security.capability"}) {
            EXPECT_LT(getxattr(QFile::encodeName(target + name).constData(), attribute, nullptr, 0), 0)
                << each.name << ' ' << attribute;
        }
    }
}

TEST_F(Files, FileThatIsShorterThanItsSizeIsNotCopied) {
    // Files that the kernel makes up have the size of a page and less in them, like one that is cut off while
    // it is copied.
    const QString file = u"/sys/kernel/profiling"_s;
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(file).constData(), &info), 0);
    ASSERT_GT(info.st_size, tx::test::readFile(file).size());
    EXPECT_EQ(files.copy(file, path(u"copy"_s)).code(), EIO);
    EXPECT_FALSE(files.exists(path(u"copy"_s))) << "half of it does not stay";
    // One that is longer, as /proc has them, is copied to its end.
    ASSERT_TRUE(files.copy(u"/proc/self/limits"_s, path(u"limits"_s)).isNull());
    EXPECT_GT(tx::test::readFile(path(u"limits"_s)).size(), 100);
}

TEST_F(Files, WhatCannotBeLookedAtIsNoPlainTree) {
    const QString tree = makeTree(u"a"_s);
    const QString closed = tree + u"/closed"_s;
    QDir().mkpath(closed);
    // A path that is longer than the system takes in one piece.
    ASSERT_EQ(chmod(QFile::encodeName(closed).constData(), 0700), 0);
    {
        tx::posix::Descriptor folder(open(QFile::encodeName(closed).constData(), O_PATH | O_DIRECTORY));
        const std::string name(200, 'd');
        for (int i = 0; i < 25; ++i) {
            ASSERT_EQ(mkdirat(folder.get(), name.c_str(), 0700), 0);
            folder = tx::posix::Descriptor(openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY));
        }
        ASSERT_EQ(mkfifoat(folder.get(), "pipe", 0600), 0);
    }
    EXPECT_THAT(tx::checkForSpecialFiles(tree).toString().toStdString(),
                testing::HasSubstr("pipe is no file"));
    EXPECT_FALSE(files.copy(tree, path(u"b"_s)).isNull());
    EXPECT_FALSE(files.exists(path(u"b"_s)));
    ASSERT_EQ(chmod(QFile::encodeName(closed).constData(), 0311), 0);
    {
        const tx::test::DroppedPrivileges user(path(u""_s));
        EXPECT_EQ(tx::checkForSpecialFiles(tree).code(), EACCES) << "a folder that cannot be listed";
        EXPECT_EQ(files.copy(tree, path(u"b"_s)).code(), EACCES);
    }
    EXPECT_EQ(tx::checkForSpecialFiles(path(u"none"_s)).code(), ENOENT);
    EXPECT_TRUE(files.remove(tree).isNull()) << "however deep it is, and closed to its owner";
    EXPECT_FALSE(files.exists(tree));
}

TEST_F(Files, PrivateDirectoryAndOwnFileCountAccessListsAndFoldersAbove) {
    const QString folder = path(u"above/own"_s);
    const QString file = folder + u"/file"_s;
    QDir().mkpath(folder);
    tx::test::writeFile(file, "x");
    ASSERT_TRUE(files.checkPrivateDirectory(folder).isNull());
    ASSERT_TRUE(files.checkOwnFile(file).isNull());
    if (tx::test::setAccessList(folder, tx::test::accessFor(4242, 7))) {
        EXPECT_FALSE(files.checkPrivateDirectory(folder).isNull());
        EXPECT_THAT(files.checkOwnFile(file).toString().toStdString(),
                    testing::HasSubstr("own can be written to by other users. Make it"));
    }
    ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0700), 0);
    EXPECT_TRUE(files.checkPrivateDirectory(folder).isNull());
    ASSERT_EQ(chmod(QFile::encodeName(path(u"above"_s)).constData(), 0777), 0);
    EXPECT_FALSE(files.checkPrivateDirectory(folder).isNull());
    EXPECT_FALSE(files.checkOwnFile(file).isNull());
}

TEST_F(Files, CopyOfASpecialFileFailsAndLeavesNothing) {
    const QString tree = makeTree(u"a"_s);
    ASSERT_EQ(mkfifo((tree + u"/pipe"_s).toUtf8().constData(), 0600), 0);
    EXPECT_FALSE(files.copy(tree, path(u"b"_s)).isNull());
    EXPECT_FALSE(files.exists(path(u"b"_s)));
    EXPECT_THAT(tx::checkForSpecialFiles(tree).toString().toStdString(),
                testing::HasSubstr((tree + u"/pipe is no file"_s).toStdString()));
    EXPECT_TRUE(tx::checkForSpecialFiles(tree + u"/deep"_s).isNull());
}

TEST_F(Files, RemoveTakesReadOnlyFoldersAndNeverFollowsLinks) {
    tx::test::writeFile(path(u"outside/kept"_s), "x");
    const QString tree = makeTree(u"a"_s);
    ASSERT_EQ(symlink(path(u"outside"_s).toUtf8().constData(), (tree + u"/out"_s).toUtf8().constData()), 0);
    {
        const tx::test::DroppedPrivileges user(path(u""_s));
        EXPECT_TRUE(files.remove(tree).isNull());
    }
    EXPECT_FALSE(files.exists(tree));
    EXPECT_TRUE(files.exists(path(u"outside/kept"_s)));
    EXPECT_TRUE(files.remove(path(u"absent"_s)).isNull());
}

TEST_F(Files, RemoveTakesTreesDeeperThanTheLimitOfOpenFiles) {
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    QDir().mkpath(path(u"deep"_s));
    {
        tx::posix::Descriptor folder(open(QFile::encodeName(path(u"deep"_s)).constData(), O_PATH));
        for (int i = 0; i < 500; ++i) {
            ASSERT_EQ(mkdirat(folder.get(), "d", 0700), 0);
            ASSERT_EQ(mkdirat(folder.get(), "a", 0700), 0);
            ASSERT_EQ(mknodat(folder.get(), "f", S_IFREG | 0600, 0), 0);
            folder = tx::posix::Descriptor(openat(folder.get(), "d", O_PATH | O_DIRECTORY));
        }
    }
    rlimit few = before;
    few.rlim_cur = 120;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const tx::posix::FileError special = tx::posix::findSpecialFile(path(u"deep"_s).toStdString());
    const TXError error = files.remove(path(u"deep"_s));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(special.number, EMFILE) << "an archive with such a tree is refused";
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_FALSE(files.exists(path(u"deep"_s)));
}

TEST_F(Files, RemoveLeavesTheFolderThatAFolderWasMovedInto) {
    // So deep that folders above are opened again on the way back; one of them is in another place by then.
    const QStringList kept{u"k1"_s, u"k2"_s, u"k3"_s, u"k4"_s, u"k5"_s, u"k6"_s, u"k7"_s, u"k8"_s};
    QString deep = path(u"tree"_s);
    for (int level = 0; level < 45; ++level)
        deep += u"/d"_s;
    for (const QString &name : kept) {
        tx::test::writeFile(path(u"tree/d/"_s) + name, "x");
        tx::test::writeFile(path(u"outside/"_s) + name, "x");
    }
    for (int i = 0; i < 3000; ++i)
        tx::test::writeFile(deep + u"/f%1"_s.arg(i), "");
    const tx::posix::Descriptor watch(inotify_init1(IN_CLOEXEC));
    ASSERT_GE(inotify_add_watch(watch.get(), QFile::encodeName(deep).constData(), IN_DELETE), 0);
    std::thread mover([&] {
        char event[4096];
        EXPECT_GT(read(watch.get(), event, sizeof event), 0);
        EXPECT_EQ(std::rename(QFile::encodeName(path(u"tree/d/d"_s)).constData(),
                              QFile::encodeName(path(u"outside/d"_s)).constData()),
                  0);
    });
    const TXError error = files.remove(path(u"tree"_s));
    mover.join();
    EXPECT_EQ(error.code(), ESTALE) << error.toString().toStdString();
    for (const QString &name : kept)
        EXPECT_TRUE(files.exists(path(u"outside/"_s) + name)) << name.toStdString();
    EXPECT_TRUE(files.remove(path(u"tree"_s)).isNull());
}

TEST_F(Files, MoveDoesNotReplace) {
    tx::test::writeFile(path(u"a"_s), "a");
    tx::test::writeFile(path(u"b"_s), "b");
    EXPECT_EQ(files.move(path(u"a"_s), path(u"b"_s)).code(), EEXIST);
    EXPECT_EQ(tx::test::readFile(path(u"b"_s)), QByteArray("b"));
    EXPECT_TRUE(files.move(path(u"a"_s), path(u"c"_s)).isNull());
    EXPECT_EQ(tx::test::readFile(path(u"c"_s)), QByteArray("a"));
    EXPECT_EQ(files.move(path(u"none"_s), path(u"d"_s)).code(), ENOENT);
}

TEST_F(Files, MoveCrossesFileSystems) {
    QTemporaryDir other(u"/dev/shm/tarvix-XXXXXX"_s);
    ASSERT_TRUE(other.isValid());
    const QString tree = makeTree(u"a"_s);
    const QStringList before = tx::test::treeOf(tree);
    ASSERT_TRUE(files.move(tree, other.filePath(u"b"_s)).isNull());
    EXPECT_EQ(tx::test::treeOf(other.filePath(u"b"_s)), before);
    EXPECT_FALSE(files.exists(tree));
    (void)files.remove(other.filePath(u"b"_s));
}

TEST_F(Files, CreateRefusesALinkAndReplacesAFile) {
    tx::test::writeFile(path(u"victim"_s), "kept");
    ASSERT_TRUE(QFile::link(path(u"victim"_s), path(u"link"_s)));
    EXPECT_EQ(files.create(path(u"link"_s)).error().code(), ELOOP);
    EXPECT_EQ(tx::test::readFile(path(u"victim"_s)), QByteArray("kept"));
    tx::test::writeFile(path(u"file"_s), "longer than new");
    ASSERT_TRUE((*files.create(path(u"file"_s)))->write("new").isNull());
    EXPECT_EQ(tx::test::readFile(path(u"file"_s)), QByteArray("new"));
}

TEST_F(Files, WritesOfEverySizeArriveWhole) {
    for (const qsizetype size : {0, 1, 4095, 4096, 4097, 300000}) {
        QByteArray data(size, 'a');
        for (qsizetype i = 0; i < size; ++i)
            data[i] = static_cast<char>('a' + i % 26);
        ASSERT_TRUE((*files.create(path(u"f"_s)))->write(data).isNull());
        EXPECT_EQ(tx::test::readFile(path(u"f"_s)), data);
        EXPECT_EQ(*files.fileSize(path(u"f"_s)), quint64(size));
        ASSERT_TRUE(files.copy(path(u"f"_s), path(u"g"_s)).isNull());
        EXPECT_EQ(tx::test::readFile(path(u"g"_s)), data);
        ASSERT_TRUE(files.remove(path(u"g"_s)).isNull());
    }
    EXPECT_FALSE(bool(files.fileSize(path(u""_s)))) << "a folder has no size";
}

TEST_F(Files, PrivateDirectoryIsThisUsersOwnAndNoLink) {
    QDir().mkpath(path(u"own"_s));
    EXPECT_TRUE(files.checkPrivateDirectory(path(u"own"_s)).isNull());
    ASSERT_TRUE(QFile::link(path(u"own"_s), path(u"link"_s)));
    EXPECT_FALSE(files.checkPrivateDirectory(path(u"link"_s)).isNull());
    tx::test::writeFile(path(u"file"_s), "");
    EXPECT_FALSE(files.checkPrivateDirectory(path(u"file"_s)).isNull());
    EXPECT_FALSE(files.checkPrivateDirectory(path(u"none"_s)).isNull());
    ASSERT_EQ(chmod(path(u"own"_s).toUtf8().constData(), 0777), 0);
    EXPECT_FALSE(files.checkPrivateDirectory(path(u"own"_s)).isNull()) << "others may write to it";
    if (geteuid() == 0) {
        ASSERT_EQ(chmod(path(u"own"_s).toUtf8().constData(), 0700), 0);
        ASSERT_EQ(chown(path(u"own"_s).toUtf8().constData(), 65534, 65534), 0);
        EXPECT_FALSE(files.checkPrivateDirectory(path(u"own"_s)).isNull()) << "another user's";
    }
}

TEST_F(Files, DirectoriesAreMadeWithOrWithoutParents) {
    EXPECT_EQ(files.createDirectory(path(u"x/y"_s), false).code(), ENOENT);
    EXPECT_TRUE(files.createDirectory(path(u"x/y"_s), true).isNull());
    EXPECT_TRUE(files.createDirectory(path(u"x/y"_s), false).isNull()) << "one that stands is no error";
    tx::test::writeFile(path(u"file"_s), "");
    EXPECT_EQ(files.createDirectory(path(u"file"_s), false).code(), EEXIST);
}

TEST_F(Files, WritabilityIsTheUsers) {
    QDir().mkpath(path(u"closed"_s));
    ASSERT_EQ(chmod(path(u"closed"_s).toUtf8().constData(), 0500), 0);
    const tx::test::DroppedPrivileges user(path(u""_s));
    EXPECT_FALSE(files.isWritable(path(u"closed"_s)));
    EXPECT_TRUE(files.isWritable(path(u"home"_s)));
    EXPECT_FALSE(files.isWritable(path(u"none"_s)));
    EXPECT_FALSE(files.createDirectory(path(u"closed/x"_s), false).isNull());
}

TEST(PosixPaths, ParentAndLastComponent) {
    EXPECT_EQ(posix::parentOf("/a/b.app/"), "/a");
    EXPECT_EQ(posix::parentOf("/a//b"), "/a");
    EXPECT_EQ(posix::parentOf("/a"), "/");
    EXPECT_EQ(posix::parentOf("/"), "/");
    EXPECT_EQ(posix::lastComponentOf("/a/b.app/"), "b.app");
    EXPECT_EQ(posix::lastComponentOf("/a"), "a");
    EXPECT_EQ(posix::lastComponentOf("/"), "");
}

TEST_F(Files, ExchangeSwapsTwoTreesInOneStep) {
    tx::test::writeFile(path(u"a/x"_s), "a");
    tx::test::writeFile(path(u"b/x"_s), "b");
    EXPECT_FALSE(posix::exchange(path(u"a"_s).toStdString(), path(u"b"_s).toStdString()));
    EXPECT_EQ(tx::test::readFile(path(u"a/x"_s)), QByteArray("b"));
    EXPECT_EQ(tx::test::readFile(path(u"b/x"_s)), QByteArray("a"));
    EXPECT_EQ(posix::exchange(path(u"a"_s).toStdString(), path(u"none"_s).toStdString()).number, ENOENT);
}

} // namespace

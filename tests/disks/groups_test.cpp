// SPDX-License-Identifier: MIT
// Whether a group is the user's alone, by accounts that the test makes.
#include "posix/trustedpath.h"
#include "tests/disks/ownmounts.h"
#include "tests/support/accesslist.h"
#include "tests/support/builders.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::writeFile;

namespace {

class Groups : public tx::test::OwnMounts {};

TEST_F(Groups, GroupIsPrivateWhenNobodyElseIsInIt) {
    const QString file = path(u"file"_s);
    writeFile(file, "x");
    ASSERT_EQ(chmod(QFile::encodeName(file).constData(), 0664), 0);
    const auto isTrusted = [&](uid_t user) {
        return tx::posix::writableByOthers(file.toStdString(), user).empty();
    };
    if (geteuid() != 0) {
        // No place of its own: the accounts are the machine's. A group of the system is shared at any rate.
        ASSERT_TRUE(tx::test::setAccessList(file, {{tx::test::AccessEntry::OwningGroup, 4},
                                                   {tx::test::AccessEntry::Group, 6, 60},
                                                   {tx::test::AccessEntry::Mask, 6},
                                                   {tx::test::AccessEntry::Others, 4}}));
        EXPECT_FALSE(isTrusted(geteuid()));
        return;
    }
    const struct {
        const char *group;
        const char *others;
        bool isTrusted;
    } cases[] = {
        {"NAME:x:ID:\n", "", true},
        {"NAME:x:ID:NAME\n", "", true},
        {"NAME:x:ID:root\n", "", true},
        {"NAME:x:ID:other\n", "", false},
        {"NAME:x:ID:NAME,other\n", "", false},
        {"NAME:x:ID:\n", "other:x:4242:ID::/:/bin/sh\n", false},
        {"NAME:x:ID:\n", "other:x:4242:4242::/:/bin/sh\n", true},
        {"staff:x:ID:\n", "", false},
        {"", "", false},
    };
    const bool hasOthers = chown(QFile::encodeName(file).constData(), 4141, 4141) == 0;
    for (const uid_t user : hasOthers ? std::vector<uid_t>{0, 4141} : std::vector<uid_t>{0}) {
        ASSERT_TRUE(!hasOthers || chown(QFile::encodeName(file).constData(), user, user) == 0);
        for (const auto &each : cases) {
            if (user == 0 && *each.group == '\0')
                continue; // systems know root's group without a file
            const QByteArray name = user == 0 ? "root" : "me";
            const auto filled = [&](QByteArray text) {
                return text.replace("NAME", name).replace("ID", QByteArray::number(user));
            };
            writeFile(path(u"passwd"_s),
                      "root:x:0:0::/:/bin/sh\nme:x:4141:4141::/:/bin/sh\n" + filled(each.others));
            writeFile(path(u"group"_s), filled(each.group));
            ASSERT_EQ(mount(QFile::encodeName(path(u"passwd"_s)).constData(), "/etc/passwd", nullptr, MS_BIND,
                            nullptr),
                      0);
            ASSERT_EQ(mount(QFile::encodeName(path(u"group"_s)).constData(), "/etc/group", nullptr, MS_BIND,
                            nullptr),
                      0);
            EXPECT_EQ(isTrusted(user), each.isTrusted) << user << ' ' << each.group << each.others;
            ASSERT_EQ(umount2("/etc/group", MNT_DETACH), 0);
            ASSERT_EQ(umount2("/etc/passwd", MNT_DETACH), 0);
        }
    }
}

TEST_F(Groups, GroupIsNotPrivateWhenTheUsersCannotAllBeListed) {
    const QString file = path(u"file"_s);
    writeFile(file, "x");
    const uid_t user = geteuid();
    ASSERT_EQ(chmod(QFile::encodeName(file).constData(), 0664), 0);
    // A second service, whose list of users is opened while that of the first one still is. Where this
    // process may not mount, the machine's own list cannot be made so; then nothing at all can be opened.
    const auto put = [this](const char *place, const QByteArray &content) {
        const QString source = path(QString::fromUtf8(place).section(u'/', -1));
        writeFile(source, content);
        const bool done = mount(QFile::encodeName(source).constData(), place, nullptr, MS_BIND, nullptr) == 0;
        if (done)
            mounted << QString::fromUtf8(place);
        return done;
    };
    const QByteArray root = "root:x:0:0::/:/bin/sh\n";
    const bool real = user == 0 && put("/etc/passwd", root) && put("/etc/group", "root:x:0:\n") &&
                      put("/etc/nsswitch.conf", "passwd: files compat\ngroup: files\n");
    EXPECT_TRUE(real || user != 0);
    const auto isTrusted = [&] { return tx::posix::writableByOthers(file.toStdString(), user).empty(); };
    // Loads what the services need, and remembers their order.
    const bool isPrivate = isTrusted();
    EXPECT_TRUE(isPrivate || !real);
    for (int free = 0; free <= 1; ++free) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const int next = open("/", O_RDONLY | O_CLOEXEC);
            const struct rlimit limit { static_cast<rlim_t>(next + free), static_cast<rlim_t>(next + free) };
            close(next);
            const bool isLimited = setrlimit(RLIMIT_NOFILE, &limit) == 0;
            _exit(isLimited && !isTrusted() ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        // With one descriptor an ordinary user's machine may list all of its users.
        EXPECT_TRUE(status == 0 || (free == 1 && !real)) << free << " more files can be opened";
    }
    // A list that was not read at all, and says nothing of it.
    if (real && chown(QFile::encodeName(file).constData(), 4141, 4141) == 0) {
        const QByteArray me = "me:x:4141:4141::/:/bin/sh\n";
        ASSERT_TRUE(put("/etc/group", "me:x:4141:\n"));
        for (const QByteArray &list : {root + me, me}) {
            ASSERT_TRUE(put("/etc/passwd", list));
            EXPECT_EQ(tx::posix::writableByOthers(file.toStdString(), 4141).empty(), list != me);
        }
    }
}

} // namespace

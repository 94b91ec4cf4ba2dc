// SPDX-License-Identifier: MIT
#include "posix/trustedpath.h"

#include "posix/posixfiles.h"
#include "tests/support/accesslist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class TrustedPath : public tx::test::FrameworkTest {
protected:
    const QString tool = path(u"App.app/Resources/tool"_s);
    TrustedPath() { tx::test::writeFile(tool, "x"); }
    static std::string problem(const QString &file, uid_t user = geteuid()) {
        std::string resolved;
        return tx::posix::untrustedPart(QFile::encodeName(file).toStdString(), resolved, user);
    }
    void mode(const QString &relative, int bits) const {
        ASSERT_EQ(chmod(QFile::encodeName(path(relative)).constData(), static_cast<mode_t>(bits)), 0);
    }
};

TEST_F(TrustedPath, OwnFilesAndRootsAreTrusted) {
    EXPECT_EQ(problem(tool), "");
    EXPECT_EQ(problem(u"/bin/sh"_s), "");
}

TEST_F(TrustedPath, WhatOthersMayWriteToIsNot) {
    mode(u"App.app/Resources/tool"_s, 0757);
    EXPECT_THAT(problem(tool), testing::EndsWith("tool can be written to by other users"));
    mode(u"App.app/Resources/tool"_s, 0755);
    mode(u"App.app"_s, 0777);
    EXPECT_THAT(problem(tool), testing::EndsWith("App.app can be written to by other users"));
    mode(u"App.app"_s, 01777);
    EXPECT_EQ(problem(tool), "") << "nobody replaces another one's entries there";
    // The bit keeps nobody from putting something new into the folder itself.
    EXPECT_THAT(problem(path(u"App.app"_s)), testing::EndsWith("App.app can be written to by other users"));
    // Another group; the own one may be this user's alone.
    mode(u"App.app"_s, 0775);
    if (chown(QFile::encodeName(path(u"App.app"_s)).constData(), static_cast<uid_t>(-1), 60) == 0) {
        EXPECT_THAT(problem(tool), testing::EndsWith("App.app can be written to by other users"));
    }
}

TEST_F(TrustedPath, AccessListsCount) {
    using tx::test::AccessEntry;
    using tx::test::accessFor;
    constexpr uint32_t somebody = 4242;
    const struct {
        const char *what;
        std::vector<AccessEntry> list;
        bool isTrusted;
    } cases[] = {
        {"another user writes", accessFor(somebody, 6), false},
        {"another user reads", accessFor(somebody, 5), true},
        {"the mask takes the right away", accessFor(somebody, 7, 5), true},
        {"the user itself", accessFor(geteuid(), 7), true},
        {"root", accessFor(0, 7), true},
        {"a group",
         {{AccessEntry::OwningGroup, 5},
          {AccessEntry::Group, 7, 60},
          {AccessEntry::Mask, 7},
          {AccessEntry::Others, 5}},
         false},
        {"a group behind the mask",
         {{AccessEntry::OwningGroup, 5},
          {AccessEntry::Group, 7, 60},
          {AccessEntry::Mask, 5},
          {AccessEntry::Others, 5}},
         true},
        {"the others", {{AccessEntry::OwningGroup, 5}, {AccessEntry::Others, 7}}, false},
        {"all whom the bits would name, but the mask not",
         {{AccessEntry::OwningGroup, 7}, {AccessEntry::Mask, 5}, {AccessEntry::Others, 5}},
         true},
    };
    const QString place = path(u"App.app/Resources"_s);
    for (const auto &each : cases) {
        for (const QString &entry : {tool, place}) {
            mode(u"App.app/Resources"_s, 0755);
            mode(u"App.app/Resources/tool"_s, 0755);
            if (!tx::test::setAccessList(entry, each.list)) {
                EXPECT_EQ(errno, EOPNOTSUPP) << "only a file system without them excuses this";
                return;
            }
            EXPECT_EQ(problem(tool).empty(), each.isTrusted) << each.what << ": " << problem(tool);
            EXPECT_EQ(tx::posix::writableByOthers(entry.toStdString(), geteuid()).empty(), each.isTrusted)
                << each.what;
            const tx::posix::Descriptor held(open(QFile::encodeName(entry).constData(), O_RDONLY));
            EXPECT_EQ(tx::posix::writableByOthers(held.get(), "it", geteuid()).empty(), each.isTrusted)
                << each.what;
            ASSERT_EQ(removexattr(QFile::encodeName(entry).constData(), "system.posix_acl_access"), 0);
        }
    }
}

TEST_F(TrustedPath, EveryLinkOnTheWayCounts) {
    QDir().mkpath(path(u"links"_s));
    QDir().mkpath(path(u"further"_s));
    ASSERT_TRUE(QFile::link(path(u"further/next"_s), path(u"links/first"_s)));
    ASSERT_TRUE(QFile::link(u"../App.app/Resources"_s, path(u"further/next"_s)));
    const QString led = path(u"links/first/tool"_s);
    std::string resolved;
    EXPECT_EQ(tx::posix::untrustedPart(led.toStdString(), resolved), "");
    EXPECT_EQ(resolved, QFileInfo(tool).canonicalFilePath().toStdString());
    for (const QString &folder : {u"links"_s, u"further"_s}) {
        mode(folder, 0777);
        EXPECT_THAT(problem(led), testing::HasSubstr(folder.toStdString() + " can be written to by other"))
            << "others can put another link there";
        mode(folder, 01777);
        EXPECT_EQ(problem(led), "") << "not in the place of this one";
        if (geteuid() == 0) {
            const QString link = path(folder) + (folder == u"links" ? u"/first"_s : u"/next"_s);
            ASSERT_EQ(lchown(QFile::encodeName(link).constData(), 65534, 65534), 0);
            EXPECT_THAT(problem(led), testing::HasSubstr("belongs to another user"));
            ASSERT_EQ(lchown(QFile::encodeName(link).constData(), 0, 0), 0);
        }
        mode(folder, 0755);
    }
    ASSERT_TRUE(QFile::link(path(u"round"_s), path(u"round"_s)));
    EXPECT_THAT(problem(path(u"round/tool"_s)), testing::HasSubstr("symbolic links"));
    EXPECT_THAT(problem(u"App.app"_s), testing::HasSubstr("is not an absolute path"));
}

TEST_F(TrustedPath, RootTrustsNobodyButRoot) {
    if (geteuid() == 0) {
        EXPECT_EQ(problem(tool, 0), "");
        ASSERT_EQ(chown(QFile::encodeName(tool).constData(), 65534, 65534), 0);
    }
    EXPECT_THAT(problem(tool, 0), testing::HasSubstr("belongs to another user"));
    EXPECT_EQ(problem(u"/bin/sh"_s, 0), "");
}

TEST_F(TrustedPath, AnotherUsersFilesAreNotAndLinksAreFollowedToTheirEnd) {
    ASSERT_TRUE(QFile::link(tool, path(u"link"_s)));
    std::string resolved;
    EXPECT_EQ(tx::posix::untrustedPart(path(u"link"_s).toStdString(), resolved), "");
    EXPECT_EQ(resolved, QFileInfo(tool).canonicalFilePath().toStdString());
    mode(u"App.app/Resources"_s, 0777);
    EXPECT_THAT(problem(path(u"link"_s)), testing::HasSubstr("Resources can be written"));
    mode(u"App.app/Resources"_s, 0755);
    // Another user's: made by root for somebody, or root's folder seen by nobody else but its owner.
    if (geteuid() == 0) {
        ASSERT_EQ(chown(QFile::encodeName(path(u"App.app"_s)).constData(), 65534, 65534), 0);
        EXPECT_THAT(problem(tool), testing::EndsWith("App.app belongs to another user"));
    }
    EXPECT_THAT(problem(path(u"missing"_s)), testing::HasSubstr("No such file"));
}

} // namespace

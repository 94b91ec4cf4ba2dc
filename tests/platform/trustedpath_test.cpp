// SPDX-License-Identifier: MIT
#include "platform/linux/trustedpath.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class TrustedPath : public tx::test::FrameworkTest {
protected:
    const QString tool = path(u"App.app/Resources/tool"_s);
    TrustedPath() { tx::test::writeFile(tool, "x"); }
    static std::string problem(const QString &file) {
        std::string resolved;
        return tx::posix::untrustedPart(QFile::encodeName(file).toStdString(), resolved);
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
    // Another group; the own one may be this user's alone.
    mode(u"App.app"_s, 0775);
    if (chown(QFile::encodeName(path(u"App.app"_s)).constData(), static_cast<uid_t>(-1), 60) == 0) {
        EXPECT_THAT(problem(tool), testing::EndsWith("App.app can be written to by other users"));
    }
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

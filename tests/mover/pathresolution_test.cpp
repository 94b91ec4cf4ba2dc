// SPDX-License-Identifier: MIT
#include "mover/pathresolution.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <QFile>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class PathResolution : public tx::test::FrameworkTest {
protected:
    /// The test's own folder, whose path may lead through links of the system.
    const QString root = QFileInfo(path(u"."_s)).canonicalFilePath();

    QString at(const QString &relative) const { return root + u'/' + relative; }
    void folder(const QString &relative) const { QDir().mkpath(at(relative)); }
    void link(const QString &relative, const QString &target) const {
        ASSERT_EQ(symlink(QFile::encodeName(target).constData(), QFile::encodeName(at(relative)).constData()),
                  0);
    }
};

TEST_F(PathResolution, EveryComponentIsResolved) {
    folder(u"real/inner"_s);
    tx::test::writeFile(at(u"real/inner/file"_s), "x");
    link(u"link"_s, u"real"_s);
    link(u"absolute"_s, at(u"link"_s));
    link(u"real/up"_s, u"../real/./inner"_s);
    const std::pair<QString, QString> cases[] = {
        {at(u"link/inner"_s), at(u"real/inner"_s)},
        {at(u"link/inner/file"_s), at(u"real/inner/file"_s)},
        {at(u"absolute/up/file"_s), at(u"real/inner/file"_s)},
        {at(u"real//inner/./../up/"_s), at(u"real/inner"_s)},
        {at(u"link/../real"_s), at(u"real"_s)},
        {u"/"_s, u"/"_s},
        {u"//"_s, u"/"_s},
    };
    for (const auto &[from, to] : cases)
        EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(from), to) << from.toStdString();
}

TEST_F(PathResolution, TildeIsTheHome) {
    folder(u"home/Applications"_s);
    EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(u"~/Applications"_s), at(u"home/Applications"_s));
    EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(u"~"_s), at(u"home"_s));
    EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(u"~root/."_s), u"/root"_s);
    EXPECT_TRUE(tx::stringByResolvingSymlinksAndAliases(u"~no-such-user/x"_s).isNull());
    qunsetenv("HOME");
    EXPECT_FALSE(tx::stringByResolvingSymlinksAndAliases(u"~"_s).isNull()) << "the user database knows it";
}

TEST_F(PathResolution, WhatCannotBeResolvedIsNull) {
    tx::test::writeFile(at(u"file"_s), "x");
    link(u"dangling"_s, u"nowhere"_s);
    for (const QString &path : {QString(), u""_s, u"Applications/Foo.app"_s, u"./x"_s, at(u"missing"_s),
                                at(u"missing/below"_s), at(u"dangling"_s), at(u"file/below"_s)})
        EXPECT_TRUE(tx::stringByResolvingSymlinksAndAliases(path).isNull()) << path.toStdString();
}

TEST_F(PathResolution, CirclesEndAfter64Steps) {
    link(u"a"_s, u"b"_s);
    link(u"b"_s, u"a"_s);
    link(u"self"_s, u"self"_s);
    EXPECT_TRUE(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"a"_s)).isNull());
    EXPECT_TRUE(tx::stringByResolvingSymlinksAndAliases(at(u"self/x"_s)).isNull());
    folder(u"end"_s);
    link(u"chain0"_s, u"end"_s);
    for (int i = 1; i <= 64; ++i)
        link(u"chain%1"_s.arg(i), u"chain%1"_s.arg(i - 1));
    EXPECT_EQ(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"chain63"_s)), at(u"end"_s)) << "64 links";
    EXPECT_TRUE(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"chain64"_s)).isNull());
    tx::services().aliasTarget = [](const QString &path) { return std::optional(path); };
    tx::test::writeFile(at(u"plain"_s), "x");
    EXPECT_TRUE(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"plain"_s)).isNull())
        << "an alias that leads to itself";
}

TEST_F(PathResolution, OneStepOfALink) {
    folder(u"folder"_s);
    link(u"relative"_s, u"../Shared//x"_s);
    link(u"absolute"_s, u"/opt//./x"_s);
    EXPECT_EQ(tx::stringByConditionallyResolvingSymlink(at(u"relative"_s)),
              QFileInfo(root).path() + u"/Shared/x"_s)
        << "against the link's own folder";
    EXPECT_EQ(tx::stringByConditionallyResolvingSymlink(at(u"absolute"_s)), u"/opt//./x"_s) << "as it stands";
    EXPECT_TRUE(tx::stringByConditionallyResolvingSymlink(at(u"folder"_s)).isNull());
    EXPECT_TRUE(tx::stringByConditionallyResolvingSymlink(at(u"missing"_s)).isNull());
    EXPECT_EQ(tx::stringByResolvingSymlink(at(u"absolute"_s)), u"/opt//./x"_s);
    EXPECT_EQ(tx::stringByResolvingSymlink(at(u"folder"_s)), at(u"folder"_s));
    EXPECT_EQ(tx::stringByResolvingSymlink(at(u"missing"_s)), at(u"missing"_s));
}

TEST_F(PathResolution, AliasFilesLeadOnWhereThereAreAny) {
    tx::test::writeFile(at(u"alias"_s), "x");
    tx::test::writeFile(at(u"link.desktop"_s), "[Desktop Entry]\nType=Link\nURL=file:///opt\n");
    folder(u"target"_s);
    link(u"to-alias"_s, u"alias"_s);
    EXPECT_TRUE(tx::stringByConditionallyResolvingAlias(at(u"link.desktop"_s)).isNull()) << "a plain file";
    EXPECT_EQ(tx::stringByResolvingAlias(at(u"alias"_s)), at(u"alias"_s));
    EXPECT_EQ(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"alias"_s)), at(u"alias"_s));
    tx::services().aliasTarget = [this](const QString &path) {
        return path == at(u"alias"_s) ? std::optional(at(u"target"_s)) : std::nullopt;
    };
    EXPECT_EQ(tx::stringByConditionallyResolvingAlias(at(u"alias"_s)), at(u"target"_s));
    EXPECT_EQ(tx::stringByResolvingAlias(at(u"alias"_s)), at(u"target"_s));
    EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(at(u"to-alias"_s)), at(u"target"_s))
        << "the walk stops at the folder";
    tx::services().aliasTarget = [this](const QString &) { return std::optional(at(u"missing"_s)); };
    EXPECT_TRUE(tx::stringByIterativelyResolvingSymlinkOrAlias(at(u"alias"_s)).isNull());
}

TEST_F(PathResolution, LongPathsAreTakenOrRefusedWhole) {
    QString deep;
    for (int i = 0; i < 15; ++i)
        deep += QString(200, u'x') + u'/';
    folder(deep);
    EXPECT_EQ(tx::stringByResolvingSymlinksAndAliases(at(deep)), at(deep).chopped(1));
    EXPECT_TRUE(tx::stringByResolvingSymlinksAndAliases(u'/' + QString(4000, u'x')).isNull());
    EXPECT_TRUE(tx::stringByResolvingSymlinksAndAliases(at(deep + deep)).isNull());
}

} // namespace

// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "os/mainbundle.h"
#include "posix/startable.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

using namespace Qt::StringLiterals;

namespace {

class Bundle : public tx::test::FrameworkTest {};

TEST_F(Bundle, ReadsInfoFromContents) {
    tx::test::makeBundle(path(u"A.app"_s), {.identifier = u"org.a"_s, .build = u"7"_s});
    const TXBundle bundle(path(u"A.app/"_s));
    EXPECT_EQ(bundle.bundlePath(), path(u"A.app"_s));
    EXPECT_EQ(bundle.bundleIdentifier(), u"org.a"_s);
    EXPECT_EQ(bundle.infoString(u"CFBundleVersion"_s), u"7"_s);
    EXPECT_TRUE(bundle.infoString(u"Absent"_s).isNull());
    EXPECT_EQ(bundle.executablePath(), path(u"A.app/Contents/Linux/Program"_s));
    EXPECT_EQ(bundle.resourcesPath(), path(u"A.app/Contents/Resources"_s));
}

TEST_F(Bundle, ReadsABinaryInfoOfAFlatDirectory) {
    tx::test::writeFile(path(u"flat/Info.plist"_s),
                        tx::writePropertyList(QVariantMap{{u"CFBundleIdentifier"_s, u"org.flat"_s},
                                                          {u"CFBundleExecutable"_s, u"run"_s}},
                                              tx::PropertyListFormat::Binary));
    tx::test::writeFile(path(u"flat/run"_s), "x");
    const TXBundle bundle(path(u"flat"_s));
    EXPECT_EQ(bundle.bundleIdentifier(), u"org.flat"_s);
    EXPECT_EQ(bundle.contentsPath(), path(u"flat"_s));
    EXPECT_EQ(bundle.executablePath(), path(u"flat/run"_s));
}

TEST_F(Bundle, ExecutableUnderMacOSIsFoundAndOneOutsideIsNot) {
    tx::test::makeBundle(path(u"A.app"_s), {});
    QDir().rename(path(u"A.app/Contents/Linux"_s), path(u"A.app/Contents/MacOS"_s));
    EXPECT_EQ(TXBundle(path(u"A.app"_s)).executablePath(), path(u"A.app/Contents/MacOS/Program"_s));
    tx::test::makeBundle(path(u"B.app"_s), {.executable = u"Program"_s});
    QDir().mkpath(path(u"B.app/Contents/Linux/folder"_s));
    for (const QString &name : {u"../../../A.app/Contents/MacOS/Program"_s, u"folder"_s, u"missing"_s}) {
        tx::test::writeFile(path(u"B.app/Contents/Info.plist"_s),
                            tx::writePropertyList(QVariantMap{{u"CFBundleExecutable"_s, name}}));
        EXPECT_TRUE(TXBundle(path(u"B.app"_s)).executablePath().isNull()) << name.toStdString();
    }
}

TEST_F(Bundle, DividedAsUsrHasItsExecutableInBinAndItsDataInShare) {
    tx::test::makeBundle(path(u"a"_s), {});
    EXPECT_EQ(TXBundle(path(u"a"_s)).resourcesPath(), path(u"a/Contents/Resources"_s));
    ASSERT_TRUE(QDir().rename(path(u"a/Contents/Linux"_s), path(u"a/Contents/bin"_s)));
    for (const QString &name : {u"bin"_s, u"Info.plist"_s})
        ASSERT_TRUE(QFile::link(u"Contents/"_s + name, path(u"a/"_s + name)));
    const TXBundle bundle(path(u"a"_s));
    EXPECT_EQ(bundle.contentsPath(), path(u"a/Contents"_s));
    EXPECT_EQ(bundle.executablePath(), path(u"a/Contents/bin/Program"_s));
    EXPECT_EQ(bundle.resourcesPath(), path(u"a/Contents/share/Program"_s));
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"a/Contents/bin/Program"_s)), path(u"a"_s));
    // The program is in the folder that an update exchanges. When it is started through the link, its
    // resources are found there.
    EXPECT_TRUE(tx::whyItCannotStart(path(u"a"_s).toStdString(), path(u"a"_s).toStdString()).empty());
}

TEST_F(Bundle, BrokenOrMissingInfoIsEmpty) {
    tx::test::writeFile(path(u"C.app/Contents/Info.plist"_s), "rubbish");
    for (const QString &name : {u"C.app"_s, u"missing.app"_s}) {
        EXPECT_TRUE(TXBundle(path(name)).infoDictionary().isEmpty());
        EXPECT_TRUE(TXBundle(path(name)).bundleIdentifier().isNull());
        EXPECT_TRUE(TXBundle(path(name)).executablePath().isNull());
    }
    EXPECT_TRUE(TXBundle().isNull());
}

TEST_F(Bundle, HoldsItsExecutable) {
    tx::test::makeBundle(path(u"A.app"_s), {});
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"A.app/Contents/Linux/Program"_s)), path(u"A.app"_s));
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"A.app/Contents/MacOS/Program"_s)), path(u"A.app"_s));
    tx::test::writeFile(path(u"flat/Info.plist"_s), "");
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"flat/run"_s)), path(u"flat"_s));
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"flat/bin/run"_s)), path(u"flat"_s));
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"plain/deep/er/run"_s)), path(u"plain/deep/er"_s));
    QDir().mkpath(path(u"plain/deep/Linux"_s));
    EXPECT_EQ(tx::bundlePathForExecutable(path(u"plain/deep/Linux/run"_s)), path(u"plain/deep/Linux"_s));
}

TEST_F(Bundle, RunningExecutableIsThisOne) {
    EXPECT_EQ(tx::executablePathAtStart(), QFileInfo(u"/proc/self/exe"_s).symLinkTarget());
}

} // namespace

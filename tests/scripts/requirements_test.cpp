// SPDX-License-Identifier: MIT
// What scripts/setup and the configuration say on a system that lacks something.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QRegularExpression>
#include <QStandardPaths>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::writeFile;

namespace {

const QString tree = tx::test::sourcesFolder() + u"/.."_s;

/// A system without Debian's packages, whose programs are those of one folder.
class Requirements : public tx::test::FrameworkTest {
protected:
    const QString programs = path(u"bin"_s);

    Requirements() {
        QDir().mkpath(programs);
        for (const QString &name :
             {u"bash"_s, u"cat"_s, u"dirname"_s, u"env"_s, u"find"_s, u"grep"_s, u"mktemp"_s, u"rm"_s})
            QFile::link(QStandardPaths::findExecutable(name), programs + u'/' + name);
        for (const QString &name : {u"ninja"_s, u"c++"_s, u"pkg-config"_s, u"Xvfb"_s, u"zip"_s})
            program(name, "#!/bin/sh\n");
        cmakeSays({}, 0);
        for (const QString &name : {u"imageformats/libqsvg.so"_s, u"platforms/libqwayland-generic.so"_s})
            writeFile(path(u"plugins/"_s + name), "x");
    }
    void program(const QString &name, const QByteArray &content) const {
        writeFile(programs + u'/' + name, content);
        QFile::setPermissions(programs + u'/' + name, QFile::Permissions(0x7755));
    }
    void cmakeSays(const QByteArray &words, int status) const {
        program(u"cmake"_s, "#!/bin/sh\necho '" + words + "'\nexit " + QByteArray::number(status) + "\n");
    }
    ProcessResult setUp(const QString &group) const {
        return runProcess(u"/usr/bin/env"_s,
                          {u"PATH="_s + programs, u"QT_PLUGIN_PATH="_s + path(u"plugins"_s),
                           tree + u"/scripts/setup"_s, group});
    }
};

TEST_F(Requirements, SystemThatHasEverythingGoesOn) {
    for (const QString &group : {u"build"_s, u"demo"_s}) {
        const ProcessResult result = setUp(group);
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(result.errors, QByteArray());
    }
}

TEST_F(Requirements, AllThatIsMissingIsNamedAtOnceByTheNamesOfItsMakers) {
    QFile::remove(programs + u"/zip"_s);
    QFile::remove(path(u"plugins/imageformats/libqsvg.so"_s));
    QFile::remove(path(u"plugins/platforms/libqwayland-generic.so"_s));
    cmakeSays("  - libxml2 (pkg-config: libxml-2.0)", 1);
    const ProcessResult result = setUp(u"demo"_s);
    EXPECT_EQ(result.status, 1);
    const std::string said = result.errors.toStdString();
    for (const char *name :
         {"the program zip", "Qt's plug-in for SVG images", "Qt's platform plug-in for Wayland",
          "libxml2 (pkg-config: libxml-2.0)", "your system's package manager"})
        EXPECT_THAT(said, testing::HasSubstr(name));
    EXPECT_FALSE(result.errors.contains("-dev")) << said;
    EXPECT_FALSE(QString::fromUtf8(result.errors).contains(QRegularExpression(u"\\bapt"_s))) << said;
}

TEST_F(Requirements, BuildNeedsNothingThatOnlyTheDemonstrationUses) {
    QFile::remove(programs + u"/zip"_s);
    QFile::remove(programs + u"/Xvfb"_s);
    EXPECT_EQ(setUp(u"build"_s).status, 0);
    EXPECT_EQ(setUp(u"demo"_s).status, 1);
}

/// A tool that was linked to a shared library in place of a static one would fail on another machine only.
TEST_F(Requirements, ConfigurationNamesMissingLibrariesTogetherTheStaticOnesToo) {
    const ProcessResult result = runProcess(
        u"cmake"_s, {u"-S"_s, tree, u"-B"_s, path(u"build"_s), u"-G"_s, u"Ninja"_s,
                     u"-DTARVIXUPDATE_BUILD_TESTS=OFF"_s, u"-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON"_s,
                     u"-DTARVIXUPDATE_STATIC_zstd="_s, u"-DTARVIXUPDATE_STATIC_acl="_s});
    EXPECT_NE(result.status, 0);
    const std::string said = result.errors.toStdString();
    for (const char *name : {"- CLI11", "- the static library libzstd.a", "- the static library libacl.a"})
        EXPECT_THAT(said, testing::HasSubstr(name));
    EXPECT_THAT(said, testing::Not(testing::HasSubstr("libnettle.a")));
}

TEST_F(Requirements, LibraryAloneNeedsNothingThatOnlyTheCommandLineToolUses) {
    const auto configured = [this](const QString &tool) {
        return runProcess(u"cmake"_s,
                          {u"-S"_s, tree, u"-B"_s, path(u"build-"_s + tool), u"-G"_s, u"Ninja"_s,
                           u"-DTARVIXUPDATE_BUILD_TESTS=OFF"_s, u"-DTARVIXUPDATE_BUILD_TXUPDATE="_s + tool,
                           u"-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON"_s,
                           u"-DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON"_s, u"-DTARVIXUPDATE_TOML="_s});
    };
    EXPECT_EQ(configured(u"OFF"_s).status, 0) << configured(u"OFF"_s).errors.constData();
    const ProcessResult whole = configured(u"ON"_s);
    EXPECT_NE(whole.status, 0);
    for (const char *name : {"- CLI11, for txupdate", "- OpenSSL, for txupdate", "- toml++"})
        EXPECT_THAT(whole.errors.toStdString(), testing::HasSubstr(name));
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDirIterator>

using namespace Qt::StringLiterals;
using tx::test::runProcess;

namespace {

class InstalledPackage : public tx::test::FrameworkTest {};

TEST(House, IncludesGoDownTheFloorsOnly) {
    const auto result = runProcess(tx::test::sourcesFolder() + u"/../scripts/check-layers"_s, {});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
}

/// Only what the public headers mark may be seen from outside, and the tools carry no Qt.
TEST(House, LibraryShowsItsInterfaceOnly) {
    const auto symbols = runProcess(
        u"nm"_s, {u"-DC"_s, u"--defined-only"_s, tx::test::librariesFolder() + u"/libTarvixUpdate.so"_s});
    ASSERT_EQ(symbols.status, 0) << symbols.errors.constData();
    EXPECT_TRUE(symbols.output.contains("TXUpdater::sharedUpdater()"));
    EXPECT_TRUE(symbols.output.contains("EscapeForURL"));
    EXPECT_FALSE(symbols.output.contains(" T tx::")) << symbols.output.constData();
    EXPECT_FALSE(symbols.output.contains(" T main"));
    // A host may use a libsodium of its own.
    EXPECT_FALSE(symbols.output.contains("crypto_generichash"));
    EXPECT_FALSE(symbols.output.contains("sodium_init"));
}

/// The libraries that a program names for the loader.
QStringList neededLibraries(const QString &program) {
    const auto read = runProcess(u"readelf"_s, {u"--dynamic"_s, u"--wide"_s, program});
    EXPECT_EQ(read.status, 0) << read.errors.constData();
    QStringList libraries;
    for (const QByteArray &line : read.output.split('\n')) {
        if (line.contains("(NEEDED)"))
            libraries += QString::fromUtf8(line).section(u'[', 1).section(u']', 0, 0);
    }
    return libraries;
}

/// Everything in the framework's resources that can be started, but the one that uses the bundle's Qt.
TEST(House, ToolsNeedNothingButTheCLibrary) {
    const QString resources = tx::test::resourcesFolder();
    const bool sanitized = !QStringLiteral(TEST_SANITIZERS).isEmpty();
    QStringList tools;
    QDirIterator it(resources, QDir::Files | QDir::Executable, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        const QString name = QFileInfo(file).fileName();
        if (name.endsWith(u".so") || name == u"TXUpdateReveal")
            continue;
        tools += name;
        const QStringList needed = neededLibraries(file);
        EXPECT_TRUE(sanitized || needed.contains(u"libc.so.6"_s)) << name.toStdString();
        for (const QString &library : needed) {
            // A build with sanitizers is for tests alone; they bring the compiler's shared libraries with
            // them.
            const bool isCompilers =
                sanitized && (library.startsWith(u"libstdc++.") || library.startsWith(u"libgcc_s.") ||
                              library.contains(u"san."));
            EXPECT_TRUE(isCompilers || library.startsWith(u"libc.so.") || library.startsWith(u"libm.so.") ||
                        library.startsWith(u"ld-linux"))
                << name.toStdString() << " needs " << library.toStdString();
        }
    }
    tools.sort();
    EXPECT_EQ(tools,
              (QStringList{u"TXUpdateAuthorize"_s, u"TXUpdateInstaller"_s, u"TXUpdateLauncher"_s, u"ditto"_s,
                           u"hdiutil"_s, u"open"_s, u"system_profiler"_s, u"tar"_s, u"xattr"_s}));
}

/// What README.md tells a host to do: install, find the package, link, find the resources.
TEST_F(InstalledPackage, ServesAHost) {
    const QString prefix = path(u"prefix"_s);
    const auto installed = runProcess(
        u"cmake"_s, {u"--install"_s, tx::test::programsFolder() + u"/.."_s, u"--prefix"_s, prefix});
    ASSERT_EQ(installed.status, 0) << installed.errors.constData();
    tx::test::writeFile(path(u"host/CMakeLists.txt"_s), R"(cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
find_package(TarvixUpdate 0.1 REQUIRED)
add_executable(host main.cpp)
target_link_libraries(host PRIVATE TarvixUpdate::TarvixUpdate)
tarvixupdate_install_policy(NAME "My Host" IDENTIFIER org.example.Host BUNDLE /opt/Host.app)
)");
    tx::test::writeFile(path(u"host/main.cpp"_s), R"(#include <TarvixUpdate/TarvixUpdate.h>
#include <QCoreApplication>
#include <cstdio>
int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    std::printf("%d\n", TXUpdater::compareVersionToVersion(QStringLiteral("1"), QStringLiteral("2")));
    // What the interface offers beside the classes, out of the library.
    double lastTime = 0;
    __TXUpdateAllowOnceEvery([] { std::printf("allowed\n"); }, &lastTime, 3600);
    __TXUpdateAllowOnceEvery([] { std::printf("allowed\n"); }, &lastTime, 3600);
    const auto conditions = TXUpdateItemConditions::conditionsFromDictionary(
        {{QStringLiteral("minBuild"), QStringLiteral("7")}, {QStringLiteral("launch"), QStringLiteral("any")}});
    std::printf("%s %d\n", qPrintable(conditions.minimumAppBuild), int(conditions.launch));
    const TXUpdateDateFormatter formatter = TXUpdateTrack::postsCheckDateFormatter();
    const QDateTime date = formatter.dateFromString(QStringLiteral("2026-05-20T22:15:01+0530"));
    std::printf("%lld %d\n", static_cast<long long>(date.toSecsSinceEpoch()),
                formatter.dateFromString(formatter.stringFromDate(date)) == date);
    TXUpdateSystemProfile profile(TXUpdateSystemProfile::Contents::Empty);
    profile.setRAM(16384);
    std::printf("%s\n", qPrintable(profile.valueForKey(QStringLiteral("RAM"))));
    return TXUpdater::sharedUpdater()->isChecking();
}
)");
    const QString build = path(u"host/build"_s);
    const QStringList sanitizer =
        QStringLiteral(TEST_SANITIZERS).isEmpty()
            ? QStringList()
            : QStringList{u"-DCMAKE_CXX_FLAGS=-fsanitize="_s + QStringLiteral(TEST_SANITIZERS)};
    const auto configured =
        runProcess(u"cmake"_s, QStringList{u"-G"_s, u"Ninja"_s, u"-S"_s, path(u"host"_s), u"-B"_s, build,
                                           u"-DCMAKE_PREFIX_PATH="_s + prefix} +
                                   sanitizer);
    ASSERT_EQ(configured.status, 0) << configured.errors.constData();
    const auto built = runProcess(u"cmake"_s, {u"--build"_s, build});
    ASSERT_EQ(built.status, 0) << built.output.constData();
    const auto ran = runProcess(build + u"/host"_s, {});
    EXPECT_EQ(ran.status, 0) << ran.errors.constData();
    EXPECT_EQ(ran.output, QByteArray("-1\nallowed\n7 0\n1779295501 1\n16384\n"));
    const auto placed = runProcess(u"cmake"_s, {u"--install"_s, build, u"--prefix"_s, path(u"placed"_s)});
    ASSERT_EQ(placed.status, 0) << placed.errors.constData();
    EXPECT_THAT(tx::test::readFile(path(u"placed/share/polkit-1/actions/org.example.host.update.policy"_s))
                    .toStdString(),
                testing::HasSubstr("required to install My Host."));
    const auto tool = runProcess(prefix + u"/bin/txupdate"_s, {u"compare"_s, u"2"_s, u"1"_s});
    EXPECT_EQ(tool.output, QByteArray("1\n")) << tool.errors.constData();
}

} // namespace

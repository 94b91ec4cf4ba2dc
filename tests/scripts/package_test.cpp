// SPDX-License-Identifier: MIT
// The package that `cmake --install` makes, as other projects use it.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"
#include "tests/tools/bundle/bundletest.h"

#include <TarvixUpdate/TXBundle.h>

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using tx::test::runProcess;

namespace {

/// An installation of this build, or of the one in the folder TARVIX_PACKAGE_BUILD, in the test's folder.
class InstalledPackage : public tx::test::FrameworkTest {
protected:
    void SetUp() override {
        FrameworkTest::SetUp();
        const QString build =
            qEnvironmentVariable("TARVIX_PACKAGE_BUILD", tx::test::programsFolder() + u"/.."_s);
        const auto installed = runProcess(u"cmake"_s, {u"--install"_s, build, u"--prefix"_s, prefix()});
        ASSERT_EQ(installed.status, 0) << installed.errors.constData();
    }
    QString prefix() const { return path(u"prefix"_s); }
    QString host() const { return path(u"host/build/host"_s); }
    /// The version in the name for which programs ask the loader.
    QString interfaceVersion() const {
        const QString name = QFileInfo(prefix() + u"/lib/libTarvixUpdateCore.so"_s).symLinkTarget();
        return name.section(u".so."_s, 1);
    }
    QString resources() const {
        return prefix() + u"/libexec/TarvixUpdate-"_s + interfaceVersion() + u"/Resources"_s;
    }

    /// The flag that a consumer needs if the framework was compiled with a sanitizer.
    static QString sanitizerFlag() {
        const QString names = QStringLiteral(TEST_SANITIZERS);
        return names.isEmpty() ? QString() : u"-fsanitize="_s + names;
    }

    /// Configures and builds the project `host` in the test's folder.
    void build(const QByteArray &lists, const QByteArray &source) {
        tx::test::writeFile(path(u"host/CMakeLists.txt"_s),
                            "cmake_minimum_required(VERSION 3.25)\nproject(host LANGUAGES CXX)\n" + lists);
        tx::test::writeFile(path(u"host/main.cpp"_s), source);
        const auto configured = runProcess(
            u"cmake"_s, {u"-G"_s, u"Ninja"_s, u"-S"_s, path(u"host"_s), u"-B"_s, path(u"host/build"_s),
                         u"-DCMAKE_PREFIX_PATH="_s + prefix(), u"-DCMAKE_CXX_FLAGS="_s + sanitizerFlag()});
        ASSERT_EQ(configured.status, 0) << configured.errors.constData();
        const auto built = runProcess(u"cmake"_s, {u"--build"_s, path(u"host/build"_s)});
        ASSERT_EQ(built.status, 0) << built.output.constData();
    }
};

/// A host without windows. Its exit status is 0 if the framework's programs are where it looks for them.
const QByteArray checkingHost = R"(#include <TarvixUpdate/TXUpdater.h>
#include <QCoreApplication>
int main(int argc, char **argv) {
    QCoreApplication application(argc, argv);
    return TXUpdater::sharedUpdater()->isChecking();
}
)";

/// The libraries that a program names for the loader.
QByteArray neededBy(const QString &program) {
    const auto read = runProcess(u"readelf"_s, {u"--dynamic"_s, u"--wide"_s, program});
    EXPECT_EQ(read.status, 0) << read.errors.constData();
    QByteArray needed;
    for (const QByteArray &line : read.output.split('\n')) {
        if (line.contains("(NEEDED)"))
            needed += line.mid(line.indexOf('[')) + '\n';
    }
    return needed;
}

/// What README.md tells a host to do: install, find the package, link, find the resources.
TEST_F(InstalledPackage, ServesAHost) {
    ASSERT_NO_FATAL_FAILURE(build(R"(find_package(TarvixUpdate 0.1 REQUIRED)
add_executable(host main.cpp)
target_link_libraries(host PRIVATE TarvixUpdate::TarvixUpdate)
tarvixupdate_install_policy(NAME "My Host" IDENTIFIER org.example.Host BUNDLE /opt/Host.app)
)",
                                  R"(#include <TarvixUpdate/TarvixUpdate.h>
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
)"));
    const auto ran = runProcess(host(), {});
    EXPECT_EQ(ran.status, 0) << ran.errors.constData();
    EXPECT_EQ(ran.output, QByteArray("-1\nallowed\n7 0\n1779295501 1\n16384\n"));
    const auto placed =
        runProcess(u"cmake"_s, {u"--install"_s, path(u"host/build"_s), u"--prefix"_s, path(u"placed"_s)});
    ASSERT_EQ(placed.status, 0) << placed.errors.constData();
    EXPECT_THAT(tx::test::readFile(path(u"placed/share/polkit-1/actions/org.example.host.update.policy"_s))
                    .toStdString(),
                testing::HasSubstr("required to install My Host."));
    const auto tool = runProcess(prefix() + u"/bin/txupdate"_s, {u"compare"_s, u"2"_s, u"1"_s});
    EXPECT_EQ(tool.output, QByteArray("1\n")) << tool.errors.constData();
}

TEST_F(InstalledPackage, HostWithoutWindowsLoadsNoneOfTheirLibraries) {
    ASSERT_NO_FATAL_FAILURE(build("find_package(TarvixUpdate REQUIRED COMPONENTS Core)\n"
                                  "add_executable(host main.cpp)\n"
                                  "target_link_libraries(host PRIVATE TarvixUpdate::Core)\n",
                                  checkingHost));
    EXPECT_EQ(runProcess(host(), {}).status, 0);
    const auto loaded = runProcess(u"ldd"_s, {host()});
    EXPECT_TRUE(loaded.output.contains("libTarvixUpdateCore.so.")) << loaded.output.constData();
    for (const char *other : {"libTarvixUpdateWidgets", "libQt6Widgets", "libQt6Gui", "libQt6WebEngine"})
        EXPECT_FALSE(loaded.output.contains(other)) << other;
}

/// The user interface registers itself when it is loaded. The linker must not drop it although nobody calls a
/// function of it.
TEST_F(InstalledPackage, WindowsAreThereForAHostThatCallsNothingOfThem) {
    ASSERT_NO_FATAL_FAILURE(build("find_package(TarvixUpdate REQUIRED)\n"
                                  "add_executable(host main.cpp)\n"
                                  "target_link_options(host PRIVATE -Wl,--as-needed)\n"
                                  "target_link_libraries(host PRIVATE TarvixUpdate::TarvixUpdate)\n",
                                  checkingHost));
    EXPECT_TRUE(neededBy(host()).contains("libTarvixUpdateWidgets.so.")) << neededBy(host()).constData();
}

TEST_F(InstalledPackage, ProgramsAreBelowLibexecAndAreFoundThereAfterTheInstallationHasMoved) {
    EXPECT_EQ(QDir(prefix() + u"/bin"_s).entryList(QDir::Files), QStringList{u"txupdate"_s});
    EXPECT_TRUE(QFileInfo(resources() + u"/TXUpdateLauncher"_s).isExecutable()) << resources().toStdString();
    EXPECT_FALSE(QFileInfo::exists(prefix() + u"/lib/TarvixUpdate"_s));
    ASSERT_TRUE(QDir().rename(prefix(), path(u"moved"_s)));
    // The profile gets the processor from a program of the framework, and displays from one of txupdate.
    const auto profile =
        runProcess(path(u"moved/bin/txupdate"_s), {u"profile"_s, u"--json"_s}, {},
                   {u"TXUPDATE_RESOURCES=/nonexistent"_s, u"DISPLAY=:0"_s, u"QT_QPA_PLATFORM=offscreen"_s});
    EXPECT_EQ(profile.status, 0) << profile.errors.constData();
    EXPECT_TRUE(profile.output.contains("\"CPUType\":\"")) << profile.output.constData();
    EXPECT_TRUE(profile.output.contains("\"numberOfDisplays\":\"1\"")) << profile.output.constData();
    ASSERT_TRUE(QFile::remove(path(u"moved/libexec/txupdate/txupdate-serve"_s)));
    const auto served = runProcess(path(u"moved/bin/txupdate"_s), {u"serve"_s, path(u"moved"_s)});
    EXPECT_EQ(served.status, 1);
    EXPECT_TRUE(served.errors.contains("/moved/libexec/txupdate/txupdate-serve cannot be run"))
        << served.errors.constData();
}

/// The packages of libraries with different versions can be installed together only if they have no file in
/// common.
TEST_F(InstalledPackage, PathOfEachFileOfTheLibrariesContainsTheirVersion) {
    const QString build = qEnvironmentVariable("TARVIX_PACKAGE_BUILD", tx::test::programsFolder() + u"/.."_s);
    const QString folder = path(u"libraries"_s);
    for (const QString &component : {u"TarvixUpdateCore"_s, u"TarvixUpdateWidgets"_s}) {
        const auto installed = runProcess(
            u"cmake"_s, {u"--install"_s, build, u"--prefix"_s, folder, u"--component"_s, component});
        ASSERT_EQ(installed.status, 0) << installed.errors.constData();
    }
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    int count = 0;
    for (; files.hasNext(); ++count) {
        const QString file = QDir(folder).relativeFilePath(files.next());
        EXPECT_TRUE(file.contains(u".so."_s + interfaceVersion()) ||
                    file.contains(u'-' + interfaceVersion() + u'/'))
            << file.toStdString();
    }
    EXPECT_GT(count, 10);
}

TEST_F(InstalledPackage, BundleGetsTheToolsOfTheLibraryThatTheProgramLinks) {
    ASSERT_NO_FATAL_FAILURE(build("find_package(TarvixUpdate REQUIRED COMPONENTS Core)\n"
                                  "add_executable(host main.cpp)\n"
                                  "target_link_libraries(host PRIVATE TarvixUpdate::Core)\n",
                                  checkingHost));
    const auto launcher = [this] {
        const auto planned = runProcess(
            prefix() + u"/bin/txupdate"_s,
            QStringList{u"bundle"_s, host()} +
                u"--identifier org.example.Host --name Host --build 1 --dry-run --json"_s.split(u' ') +
                tx::test::sanitizerWords());
        EXPECT_EQ(planned.status, 0) << planned.errors.constData();
        const QJsonArray files = QJsonDocument::fromJson(planned.output).object()[u"files"_s].toArray();
        for (const QJsonValue &file : files) {
            if (file[u"place"_s] == u"Contents/Frameworks/TarvixUpdate/Resources/TXUpdateLauncher"_s)
                return file[u"source"_s].toString();
        }
        return QString();
    };
    const auto canonical = [](const QString &folder) {
        return QFileInfo(folder + u"/TXUpdateLauncher"_s).canonicalFilePath();
    };
    // Earlier installations have no version in the folder's name.
    const QString earlier = prefix() + u"/libexec/TarvixUpdate"_s;
    const auto copied = runProcess(u"cp"_s, {u"-r"_s, QFileInfo(resources()).path(), earlier});
    ASSERT_EQ(copied.status, 0) << copied.errors.constData();
    EXPECT_EQ(launcher(), canonical(resources()));
    ASSERT_TRUE(QDir(QFileInfo(resources()).path()).removeRecursively());
    EXPECT_EQ(launcher(), canonical(earlier + u"/Resources"_s));
}

class PackageConfig : public InstalledPackage, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(InstalledPackage, PackageConfig,
                         testing::Values("TarvixUpdateCore", "TarvixUpdateWidgets", "TarvixUpdate"),
                         [](const auto &tested) { return std::string(tested.param); });

TEST_P(PackageConfig, ServesAHost) {
    const QString name = QString::fromLatin1(GetParam());
    const QStringList environment{u"PKG_CONFIG_PATH="_s + prefix() + u"/lib/pkgconfig"_s};
    const auto flags = runProcess(u"pkg-config"_s, {u"--cflags"_s, u"--libs"_s, name}, {}, environment);
    ASSERT_EQ(flags.status, 0) << flags.errors.constData();
    tx::test::writeFile(path(u"main.cpp"_s),
                        name.endsWith(u"Core")
                            ? checkingHost
                            : QByteArray("#include <TarvixUpdate/TXUpdatePanel.h>\n"
                                         "#include <TarvixUpdate/TXWindowController.h>\n") +
                                  checkingHost);
    QStringList arguments{u"-std=c++20"_s, u"-fPIC"_s, path(u"main.cpp"_s), u"-o"_s, path(u"program"_s)};
    if (!sanitizerFlag().isEmpty())
        arguments << sanitizerFlag();
    arguments << QString::fromUtf8(flags.output).split(QRegularExpression(u"\\s+"_s), Qt::SkipEmptyParts)
              << u"-Wl,-rpath,"_s + prefix() + u"/lib"_s;
    const auto compiled = runProcess(u"c++"_s, arguments);
    ASSERT_EQ(compiled.status, 0) << compiled.errors.constData();
    EXPECT_EQ(runProcess(path(u"program"_s), {}).status, 0);
    const auto version = runProcess(u"pkg-config"_s, {u"--modversion"_s, name}, {}, environment);
    EXPECT_EQ(version.output.trimmed(), QByteArray(TARVIXUPDATE_VERSION));
}

/// Compiles the headers of each target alone.
TEST_F(InstalledPackage, EveryHeaderCompilesAlone) {
    // The list of the folder with the user interface.
    const QByteArray lists =
        tx::test::readFile(tx::test::sourcesFolder() + u"/../src/widgets/CMakeLists.txt"_s);
    const QByteArray words = lists.mid(lists.indexOf("HEADERS")).left(lists.indexOf("SOURCES"));
    QStringList headers = QDir(prefix() + u"/include/TarvixUpdate"_s).entryList({u"*.h"_s});
    ASSERT_GE(headers.size(), 20);
    QByteArray sources[2];
    for (const QString &header : headers) {
        const QString stem = header.chopped(2);
        tx::test::writeFile(path(u"host/alone/"_s + stem + u".cpp"_s),
                            "#include <TarvixUpdate/" + header.toUtf8() + ">\n");
        sources[words.simplified().split(' ').contains(stem.toUtf8())] += "alone/" + stem.toUtf8() + ".cpp ";
    }
    ASSERT_FALSE(sources[0].isEmpty());
    ASSERT_TRUE(sources[1].contains("TXUpdatePanel.cpp"));
    ASSERT_NO_FATAL_FAILURE(build("find_package(TarvixUpdate REQUIRED)\n"
                                  "set(CMAKE_CXX_FLAGS \"-O0 -w\")\nset(CMAKE_POSITION_INDEPENDENT_CODE ON)\n"
                                  "add_library(core OBJECT " +
                                      sources[0] +
                                      ")\ntarget_link_libraries(core PRIVATE TarvixUpdate::Core)\n"
                                      "add_library(widgets OBJECT " +
                                      sources[1] +
                                      ")\ntarget_link_libraries(widgets PRIVATE TarvixUpdate::Widgets)\n"
                                      "add_library(both OBJECT alone/TarvixUpdate.cpp)\n"
                                      "target_link_libraries(both PRIVATE TarvixUpdate::TarvixUpdate)\n",
                                  {}));
}

/// Uses a copy of the template as its README.md says: makes keys, then runs twice what its CI runs.
TEST_F(InstalledPackage, MinimalExampleIsBuiltBundledAndPublishedOutsideTheTree) {
    const QString project = path(u"minimal"_s);
    const auto copied =
        runProcess(u"cp"_s, {u"-r"_s, tx::test::sourcesFolder() + u"/../examples/minimal"_s, project});
    ASSERT_EQ(copied.status, 0) << copied.errors.constData();
    EXPECT_LT(tx::test::readFile(project + u"/CMakeLists.txt"_s).count('\n'), 30);
    const QString txupdate = prefix() + u"/bin/txupdate"_s;
    const auto keys = runProcess(txupdate, {u"keygen"_s, u"--no-passphrase"_s, project + u"/release"_s});
    ASSERT_EQ(keys.status, 0) << keys.errors.constData();
    ASSERT_TRUE(QDir().mkpath(project + u"/site"_s));
    // Only for the linker: compiled with the flag, the program would contain the path of its source file,
    // which a bundle must not.
    const QString flags = sanitizerFlag();
    for (const QString &build : {u"7"_s, u"8"_s}) {
        const auto ran =
            runProcess(u"sh"_s, {project + u"/.ci/run"_s, u"--not-served"_s}, {},
                       {u"PATH="_s + prefix() + u"/bin:"_s + qEnvironmentVariable("PATH"),
                        u"CMAKE_GENERATOR=Ninja"_s, // there may be no make
                        u"CMAKE_PREFIX_PATH="_s + prefix(), u"LDFLAGS="_s + flags, u"BUILD="_s + build});
        ASSERT_EQ(ran.status, 0) << ran.output.constData() << ran.errors.constData();
        const TXBundle bundle(project + u"/build/dist/Minimal.app"_s);
        EXPECT_EQ(bundle.infoString(u"CFBundleVersion"_s), build);
        EXPECT_EQ(bundle.infoString(u"CFBundleIdentifier"_s), u"org.example.Minimal"_s);
        EXPECT_TRUE(tx::test::readFile(project + u"/site/feed.json"_s).contains("\"" + build.toUtf8() + '"'));
    }
    // Reads the feed as an installed application of the first build does.
    const auto verified = runProcess(txupdate, {u"feed"_s, u"verify"_s, project + u"/site/feed.json"_s,
                                                u"--app"_s, project + u"/build/dist/Minimal.app"_s});
    EXPECT_EQ(verified.status, 0) << verified.errors.constData();
}

/// As part of another project, the framework defines no target whose name may clash with one of that project,
/// and builds only what the project requests.
TEST(SubProject, EveryTargetHasANameOfItsOwn) {
    const QTemporaryDir folder;
    tx::test::writeFile(folder.path() + u"/CMakeLists.txt"_s,
                        "cmake_minimum_required(VERSION 3.25)\nproject(outer LANGUAGES CXX)\n"
                        "add_subdirectory(\"" +
                            QDir(tx::test::sourcesFolder() + u"/.."_s).canonicalPath().toUtf8() +
                            "\" update)\nadd_executable(host main.cpp)\n"
                            "target_link_libraries(host PRIVATE TarvixUpdate::Core)\n" +
                            R"(function(tell_targets folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    message(STATUS "target ${target}")
  endforeach()
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(inner IN LISTS folders)
    tell_targets(${inner})
  endforeach()
endfunction()
tell_targets(${CMAKE_SOURCE_DIR})
)");
    tx::test::writeFile(folder.path() + u"/main.cpp"_s, checkingHost);
    const auto configured = runProcess(
        u"cmake"_s, {u"-G"_s, u"Ninja"_s, u"-S"_s, folder.path(), u"-B"_s, folder.path() + u"/build"_s});
    ASSERT_EQ(configured.status, 0) << configured.errors.constData();
    int seen = 0;
    for (const QByteArray &line : configured.output.split('\n')) {
        if (!line.startsWith("-- target "))
            continue;
        const QByteArray name = line.mid(10);
        EXPECT_TRUE(name == "host" || name.startsWith("tarvix_") || name.startsWith("TarvixUpdate") ||
                    name.startsWith("txupdate"))
            << name.constData();
        EXPECT_FALSE(name.endsWith("_tests") || name == "TarvixNotes") << name.constData();
        ++seen;
    }
    EXPECT_GT(seen, 20) << configured.output.constData();
}

} // namespace

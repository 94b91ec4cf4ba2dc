// SPDX-License-Identifier: MIT
// The command "bundle", run on a program that was really built.
#include "bundle/elffile.h"
#include "tests/tools/bundle/bundletest.h"
#include "tests/tools/txupdate/terminal.h"

#include <TarvixUpdate/TXBundle.h>

#include <QFile>
#include <QStandardPaths>

#include <cstddef>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::readFile;
using tx::test::runProcess;
using tx::test::writeFile;

namespace {

class BundleCommand : public tx::test::BundleTest {
protected:
    /// Copies the sample and its library into the test's folder, so that a test can change them.
    QString ownSample(const QString &name = u"sample"_s) const {
        QDir().mkpath(path(u"built"_s));
        QFile::copy(sampleFolder() + u'/' + name, path(u"built/sample"_s));
        QFile::copy(samplePart(), path(u"built/libsamplepart.so"_s));
        const auto patched =
            runProcess(u"patchelf"_s, {u"--set-rpath"_s, path(u"built"_s), path(u"built/sample"_s)});
        EXPECT_EQ(patched.status, 0) << patched.errors.constData();
        return path(u"built/sample"_s);
    }
    static QString linesOf(const ProcessResult &result) { return QString::fromUtf8(result.errors); }
    ProcessResult runMade(const QString &program) const {
        return runProcess(program, {}, {}, {u"QT_QPA_PLATFORM=offscreen"_s});
    }
};

TEST_F(BundleCommand, BundleRunsWithItsOwnLibrariesAndPlugins) {
    const ProcessResult result = bundle(sample(), {u"--version"_s, u"2.1"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.startsWith(path(u"dist/MySample.app\n"_s).toUtf8()))
        << result.output.constData();
    const TXBundle made(path(u"dist/MySample.app"_s));
    EXPECT_EQ(made.bundleIdentifier(), u"org.example.Sample"_s);
    EXPECT_EQ(made.infoString(u"CFBundleVersion"_s), u"7"_s);
    EXPECT_EQ(made.infoString(u"CFBundleShortVersionString"_s), u"2.1"_s);
    EXPECT_EQ(made.infoString(u"CFBundleName"_s), u"My Sample"_s);
    // Runs the bundle in another folder and without the files that it was built from.
    QDir().mkpath(path(u"user"_s));
    ASSERT_TRUE(QDir().rename(path(u"dist/MySample.app"_s), path(u"user/My.app"_s)));
    const QByteArray home = path(u"user/My.app/Contents/"_s).toUtf8();
    const ProcessResult ran = runMade(path(u"user/My.app/Contents/Linux/sample"_s));
    EXPECT_EQ(ran.status, 0) << ran.errors.constData();
    EXPECT_TRUE(
        ran.output.contains("platform offscreen\nsvg 1\ntranslations " + home + "Resources/translations\n"))
        << ran.output.constData();
    QStringList own;
    for (const QByteArray &line : ran.output.split('\n')) {
        const QString file = QFileInfo(QString::fromUtf8(line.mid(8))).fileName();
        if (!line.startsWith("library "))
            continue;
        if (file.startsWith(u"libQt6") || file.startsWith(u"libicu") || file.startsWith(u"libq") ||
            file.startsWith(u"libsamplepart")) {
            own << file;
            EXPECT_TRUE(line.startsWith("library " + home)) << line.constData();
        }
        if (file.startsWith(u"libc.so")) {
            EXPECT_FALSE(line.startsWith("library " + home)) << line.constData();
        }
    }
    EXPECT_THAT(
        own, testing::IsSupersetOf({u"libsamplepart.so"_s, u"libQt6Widgets.so.6"_s, u"libqoffscreen.so"_s}));
}

TEST_F(BundleCommand, PluginsOfBothDisplaysAndNoneOfBareScreens) {
    ASSERT_EQ(bundle(sample()).status, 0);
    const QStringList platforms = tx::test::namesIn(made(u"PlugIns/platforms"_s));
    EXPECT_TRUE(platforms.contains(u"libqxcb.so"_s));
    EXPECT_TRUE(platforms.contains(u"libqwayland-generic.so"_s));
    EXPECT_FALSE(platforms.contains(u"libqeglfs.so"_s));
    for (const QString &folder : {u"xcbglintegrations"_s, u"platforminputcontexts"_s, u"imageformats"_s,
                                  u"iconengines"_s, u"wayland-shell-integration"_s})
        EXPECT_FALSE(tx::test::namesIn(made(u"PlugIns/"_s + folder)).isEmpty()) << folder.toStdString();
    EXPECT_FALSE(QFileInfo::exists(made(u"PlugIns/tls"_s))) << "the sample does not use the network";
    EXPECT_TRUE(readFile(made(u"Linux/qt.conf"_s)).contains("Prefix = ..\nPlugins = PlugIns\n"));
    // The libraries that plug-ins need are copied, too.
    EXPECT_TRUE(QFileInfo::exists(made(u"Frameworks/libQt6XcbQpa.so.6"_s)));
    EXPECT_FALSE(QFileInfo::exists(made(u"Frameworks/libxcb.so.1"_s)));
}

TEST_F(BundleCommand, EveryFileFindsItsLibrariesInTheBundleAlone) {
    ASSERT_EQ(bundle(sample()).status, 0);
    const auto program = tx::bundling::readElf(made(u"Linux/sample"_s));
    ASSERT_TRUE(program && *program);
    EXPECT_EQ((*program)->runPath, QStringList{u"$ORIGIN/../Frameworks"_s});
    const auto plugin = tx::bundling::readElf(made(u"PlugIns/platforms/libqxcb.so"_s));
    ASSERT_TRUE(plugin && *plugin);
    EXPECT_EQ((*plugin)->runPath, QStringList{u"$ORIGIN/../../Frameworks"_s});
    EXPECT_FALSE(readFile(made(u"Linux/sample"_s)).contains(sampleFolder().toUtf8()));
}

TEST_F(BundleCommand, DebugSymbolsAreSplitOffAndNamed) {
    const ProcessResult result = bundle(sample());
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.contains("Debug symbols: " + path(u"dist/MySample-7.debug\n"_s).toUtf8()));
    const auto program = tx::bundling::readElf(made(u"Linux/sample"_s));
    ASSERT_TRUE(program && *program);
    EXPECT_FALSE((*program)->hasDebugSections);
    EXPECT_TRUE(readFile(made(u"Linux/sample"_s)).contains("sample.debug"));
    EXPECT_TRUE(
        readFile(path(u"dist/MySample-7.debug/Contents/Linux/sample.debug"_s)).contains("sample.cpp"));
    EXPECT_TRUE(
        QFileInfo::exists(path(u"dist/MySample-7.debug/Contents/Frameworks/libsamplepart.so.debug"_s)));
}

TEST_F(BundleCommand, LicencesOfCopiedPackagesAreInOneFolderAndOthersNamed) {
    const ProcessResult result = bundle(sample());
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QStringList licences = tx::test::namesIn(made(u"Resources/licences"_s));
    EXPECT_THAT(licences, testing::Contains(testing::Truly(
                              [](const QString &name) { return name.startsWith(u"libqt6core6"); })));
    EXPECT_FALSE(readFile(made(u"Resources/licences/"_s + licences.constFirst())).isEmpty());
    EXPECT_TRUE(linesOf(result).contains(u"the licences of these are not known, and not in the bundle: "_s +
                                         samplePart()))
        << result.errors.constData();
}

TEST_F(BundleCommand, DryRunListsEverythingAndMakesNothing) {
    const ProcessResult result = bundle(sample(), {u"--dry-run"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_FALSE(QFileInfo::exists(path(u"dist"_s)));
    const std::string list = result.output.toStdString();
    EXPECT_THAT(list, testing::ContainsRegex("kB  Contents/Frameworks/libsamplepart.so  \\(for sample\\)"));
    EXPECT_THAT(list, testing::ContainsRegex("PlugIns/platforms/libqxcb.so  \\(for Qt Gui\\)"));
    EXPECT_THAT(list, testing::HasSubstr("Left to the system:\n"));
    EXPECT_THAT(list,
                testing::ContainsRegex("libX11.so.6  package libx11-6: shared with the graphics driver"));
    EXPECT_THAT(list, testing::ContainsRegex("Oldest glibc on which it can run: 2\\.[0-9]+"));
    EXPECT_THAT(list, testing::ContainsRegex("Expects these packages .* libx11-6 .* xkb-data"));
}

TEST_F(BundleCommand, JsonSaysTheSameForPrograms) {
    const QJsonObject list = json(bundle(sample(), {u"--dry-run"_s, u"--json"_s}));
    EXPECT_EQ(list[u"bundle"_s].toString(), u"MySample.app"_s);
    EXPECT_FALSE(list.contains(u"path"_s));
    qint64 size = 0;
    QJsonObject part;
    for (const QJsonValue &value : list[u"files"_s].toArray()) {
        size += value.toObject()[u"size"_s].toInteger();
        if (value.toObject()[u"place"_s] == u"Contents/Frameworks/libsamplepart.so"_s)
            part = value.toObject();
    }
    EXPECT_EQ(list[u"size"_s].toInteger(), size);
    EXPECT_EQ(part[u"source"_s].toString(), samplePart());
    EXPECT_EQ(part[u"kind"_s].toString(), u"library"_s);
    EXPECT_EQ(part[u"for"_s].toArray(), QJsonArray{u"sample"_s});
    EXPECT_TRUE(list[u"packages"_s].toArray().contains(u"libc6"_s));
    EXPECT_TRUE(list[u"oldestGlibc"_s].toString().startsWith(u"2."));
    const QJsonObject real = json(bundle(sample(), {u"--json"_s}));
    EXPECT_EQ(real[u"path"_s].toString(), path(u"dist/MySample.app"_s));
    EXPECT_TRUE(real[u"problems"_s].toArray().isEmpty());
}

TEST_F(BundleCommand, ResourcesIconAndDesktopEntryGetTheirPlaces) {
    QDir().mkpath(path(u"data/levels"_s));
    writeFile(path(u"data/levels/1"_s), "one");
    writeFile(path(u"my.svg"_s), "<svg xmlns=\"http://www.w3.org/2000/svg\"/>");
    writeFile(path(u"my.desktop"_s), "[Desktop Entry]\nType=Application\nName=My\nExec=sample\n");
    const QStringList words{u"--add"_s,  path(u"data"_s),   u"--add"_s,     path(u"my.svg:pictures/x.svg"_s),
                            u"--icon"_s, path(u"my.svg"_s), u"--desktop"_s, path(u"my.desktop"_s)};
    const ProcessResult app = bundle(sample(), words);
    ASSERT_EQ(app.status, 0) << app.errors.constData();
    EXPECT_EQ(readFile(made(u"Resources/data/levels/1"_s)), QByteArray("one"));
    EXPECT_TRUE(QFileInfo::exists(made(u"Resources/pictures/x.svg"_s)));
    EXPECT_TRUE(QFileInfo::exists(made(u"Resources/my.svg"_s)));
    EXPECT_TRUE(QFileInfo::exists(made(u"Resources/my.desktop"_s)));
    EXPECT_EQ(TXBundle(path(u"dist/MySample.app"_s)).infoString(u"CFBundleIconFile"_s), u"my.svg"_s);
}

TEST_F(BundleCommand, FolderThatIsNamedRelativelyIsAddedUnderItsName) {
    QDir().mkpath(path(u"project/data/levels"_s));
    writeFile(path(u"project/data/levels/1"_s), "one");
    QDir().mkpath(path(u"project/build"_s));
    for (const QString &named : {u"data"_s, u"./data/"_s, u"../project/data"_s, u"build/../data"_s}) {
        const QStringList words =
            QStringList{u"-C"_s, path(u"project"_s), tx::test::programsFolder() + u"/txupdate"_s, u"bundle"_s,
                        sample()} +
            u"--identifier org.example.Sample --name Sample --build 7 --dry-run --json --add"_s.split(u' ') +
            QStringList{named};
        const ProcessResult planned = runProcess(u"env"_s, words + tx::test::sanitizerWords());
        ASSERT_EQ(planned.status, 0) << planned.errors.constData();
        QStringList added;
        for (const QJsonValue &file : json(planned)[u"files"_s].toArray()) {
            if (file[u"for"_s].toArray() == QJsonArray{u"--add"_s})
                added << file[u"place"_s].toString();
        }
        EXPECT_EQ(added, QStringList{u"Contents/Resources/data/levels/1"_s}) << named.toStdString();
    }
}

struct Refusal {
    QStringList words;
    const char *says;
};

TEST_F(BundleCommand, WhatCannotBeUsedIsRefusedWithAReason) {
    writeFile(path(u"script"_s), "#!/bin/sh\n");
    writeFile(path(u"picture"_s), "GIF89a");
    QFile::link(u"/etc"_s, path(u"out"_s));
    QDir().mkpath(path(u"tree"_s));
    QFile::link(u"/etc/hostname"_s, path(u"tree/link"_s));
    const auto refused = [this](const QString &program, const QStringList &words) {
        const ProcessResult result = bundle(program, words);
        EXPECT_EQ(result.status, 1) << words.join(u' ').toStdString();
        EXPECT_FALSE(QFileInfo::exists(path(u"dist/MySample.app"_s))) << words.join(u' ').toStdString();
        return result.errors.toStdString();
    };
    EXPECT_THAT(refused(path(u"none"_s), {}), testing::HasSubstr("none is not a file. Name the program"));
    EXPECT_THAT(refused(path(u"script"_s), {}), testing::HasSubstr("it is not an ELF file"));
    EXPECT_THAT(refused(samplePart(), {}), testing::HasSubstr("it is a library"));
    EXPECT_THAT(refused(sample(), {u"--icon"_s, path(u"picture"_s)}),
                testing::HasSubstr("neither SVG nor PNG"));
    EXPECT_THAT(refused(sample(), {u"--desktop"_s, path(u"script"_s)}),
                testing::HasSubstr("no line [Desktop Entry]"));
    EXPECT_THAT(refused(sample(), {u"--add"_s, path(u"none"_s)}), testing::HasSubstr("does not exist"));
    EXPECT_THAT(refused(sample(), {u"--add"_s, path(u"script:../x"_s)}),
                testing::HasSubstr("leads out of the bundle"));
    EXPECT_THAT(refused(sample(), {u"--add"_s, path(u"tree"_s)}),
                testing::HasSubstr("is a link that leads out"));
    EXPECT_THAT(refused(sample(), {u"--plugin"_s, u"sqldrivers/libnone.so"_s}),
                testing::HasSubstr("there is no plug-in sqldrivers/libnone.so"));
    EXPECT_THAT(refused(sample(), {u"--published"_s, path(u"none"_s)}),
                testing::HasSubstr("is not an application"));
}

TEST_F(BundleCommand, LibraryThatIsNotFoundIsNamedWithWhoAskedForIt) {
    const QString program = ownSample();
    QFile::remove(path(u"built/libsamplepart.so"_s));
    const ProcessResult result = bundle(program);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr("libraries were not found: libsamplepart.so, which sample needs"));
}

TEST_F(BundleCommand, PathsOfTheBuildMachineFailIt) {
    const ProcessResult result = bundle(sampleFolder() + u"/sample_with_paths"_s);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        result.errors.toStdString(),
        testing::ContainsRegex("Contents/Linux/sample_with_paths holds paths of the machine on which it was "
                               "built: /.*/sample.cpp.*-ffile-prefix-map"));
    EXPECT_FALSE(QFileInfo::exists(path(u"dist/MySample.app"_s)));
    EXPECT_TRUE(tx::test::namesIn(path(u"dist"_s)).isEmpty());
    // A folder that the command cannot find by itself.
    const ProcessResult named =
        bundle(ownSample(u"sample_with_paths"_s), {u"--build-path"_s, tx::test::sourcesFolder()});
    EXPECT_THAT(named.errors.toStdString(), testing::HasSubstr("holds paths of the machine"));
    const ProcessResult allowed =
        bundle(sampleFolder() + u"/sample_with_paths"_s, {u"--allow-build-paths"_s});
    EXPECT_EQ(allowed.status, 0) << allowed.errors.constData();
}

TEST_F(BundleCommand, MissingExecuteBitFailsIt) {
    const QString program = ownSample();
    QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner);
    const ProcessResult result = bundle(program);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr("Contents/Linux/sample may not be executed: it lacks its execute bit"));
}

TEST_F(BundleCommand, FileForAnotherMachineFailsIt) {
    QByteArray other = readFile(samplePart());
    other[qsizetype(offsetof(Elf64_Ehdr, e_machine))] = char(EM_S390);
    writeFile(path(u"libother.so"_s), other);
    const ProcessResult result = bundle(sample(), {u"--add"_s, path(u"libother.so"_s)});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr("libother.so is for another machine: ELF machine 22"));
}

TEST_F(BundleCommand, AnotherIdentifierThanThatOfThePublishedBundleIsRefused) {
    ASSERT_EQ(bundle(sample()).status, 0);
    const QStringList before = tx::test::treeOf(path(u"dist/MySample.app"_s));
    const ProcessResult other = bundle(sample(), {u"--identifier"_s, u"org.example.Other"_s});
    EXPECT_EQ(other.status, 64) << "given twice";
    const auto run = [this](const QStringList &more) {
        return runProcess(tx::test::programsFolder() + u"/txupdate"_s,
                          QStringList{u"bundle"_s, sample(), u"--identifier"_s, u"org.example.Other"_s,
                                      u"--name"_s, u"My Sample"_s, u"--build"_s, u"8"_s} +
                              more);
    };
    const ProcessResult replaced = run({u"-o"_s, path(u"dist"_s)});
    EXPECT_EQ(replaced.status, 1);
    EXPECT_THAT(replaced.errors.toStdString(),
                testing::HasSubstr(
                    "has the identifier org.example.Sample, and this build would have org.example.Other"));
    EXPECT_EQ(tx::test::treeOf(path(u"dist/MySample.app"_s)), before);
    const ProcessResult published =
        run({u"-o"_s, path(u"new"_s), u"--published"_s, path(u"dist/MySample.app"_s)});
    EXPECT_EQ(published.status, 1);
    EXPECT_FALSE(QFileInfo::exists(path(u"new/MySample.app"_s)));
}

TEST_F(BundleCommand, EarlierBundleIsReplacedAndOtherThingsAreNot) {
    ASSERT_EQ(bundle(sample()).status, 0);
    writeFile(made(u"Resources/leftover"_s), "x");
    ASSERT_EQ(bundle(sample()).status, 0);
    EXPECT_FALSE(QFileInfo::exists(made(u"Resources/leftover"_s)));
    EXPECT_EQ(tx::test::namesIn(path(u"dist"_s)), (QStringList{u"MySample-7.debug"_s, u"MySample.app"_s}));
    ASSERT_TRUE(QDir(path(u"dist/MySample.app"_s)).removeRecursively());
    QDir().mkpath(path(u"dist/MySample.app/precious"_s));
    const ProcessResult result = bundle(sample());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("exists and is not a bundle"));
    EXPECT_TRUE(QFileInfo::exists(path(u"dist/MySample.app/precious"_s)));
}

TEST_F(BundleCommand, MissingProgramsAreNamedWithTheirPackage) {
    // A PATH that lacks exactly one program.
    for (const auto &[program, package] :
         {std::pair(u"patchelf"_s, "patchelf"), std::pair(u"objcopy"_s, "binutils")}) {
        const QString bin = path(u"bin-"_s + program);
        QDir().mkpath(bin);
        for (const QString &name : {u"sh"_s, u"dpkg"_s, u"patchelf"_s, u"strip"_s, u"objcopy"_s}) {
            if (name != program)
                QFile::link(QStandardPaths::findExecutable(name), bin + u'/' + name);
        }
        const ProcessResult result = bundle(sample(), {}, {u"PATH="_s + bin});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors.toStdString(),
                    testing::HasSubstr(program.toStdString() + " is not installed"));
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(std::string("apt install ") + package));
        EXPECT_TRUE(tx::test::namesIn(path(u"dist"_s)).isEmpty());
    }
}

class BundleFunction : public tx::test::BundleTest {
protected:
    /// Configures a project whose program was built elsewhere.
    ProcessResult configure(const QString &call) {
        QDir().mkpath(path(u"project"_s));
        writeFile(path(u"project/my.svg"_s), "<svg xmlns=\"http://www.w3.org/2000/svg\"/>");
        writeFile(
            path(u"project/CMakeLists.txt"_s),
            (u"cmake_minimum_required(VERSION 3.25)\nproject(My LANGUAGES NONE)\ninclude(\"%1/../cmake/"
             "TarvixUpdateBundle.cmake\")\nadd_executable(my IMPORTED)\nset_target_properties(my PROPERTIES "
             "IMPORTED_LOCATION \"%2\" TARVIXUPDATE_BUNDLE_NAME \"My Sample\")\n%3\n"_s)
                .arg(tx::test::sourcesFolder(), sample(), call)
                .toUtf8());
        return runProcess(u"cmake"_s,
                          {u"-G"_s, u"Ninja"_s, u"-S"_s, path(u"project"_s), u"-B"_s, path(u"tree"_s),
                           u"-DTarvixUpdate_TXUPDATE="_s + tx::test::programsFolder() + u"/txupdate"_s});
    }
};

TEST_F(BundleFunction, TargetMakesTheSameBundleAsTheCommand) {
    const ProcessResult configured = configure(
        u"tarvixupdate_add_bundle(TARGET my IDENTIFIER org.example.Sample BUILD 7 VERSION 2.1 ICON my.svg "
        "OUTPUT \"%1\")"_s.arg(path(u"dist"_s)));
    ASSERT_EQ(configured.status, 0) << configured.errors.constData();
    const ProcessResult built =
        runProcess(u"cmake"_s, {u"--build"_s, path(u"tree"_s), u"--target"_s, u"my_bundle"_s});
    ASSERT_EQ(built.status, 0) << built.output.constData() << built.errors.constData();
    const QStringList byFunction = tx::test::treeOf(made(u"Frameworks"_s));
    const TXBundle bundle(path(u"dist/MySample.app"_s));
    EXPECT_EQ(bundle.infoString(u"CFBundleShortVersionString"_s), u"2.1"_s);
    EXPECT_EQ(bundle.infoString(u"CFBundleIconFile"_s), u"my.svg"_s);
    ASSERT_EQ(this->bundle(sample()).status, 0);
    EXPECT_EQ(tx::test::treeOf(made(u"Frameworks"_s)), byFunction);
}

TEST_F(BundleFunction, WrongCallsAreRefusedWhenTheProjectIsConfigured) {
    for (const auto &[call, says] :
         {std::pair(u"tarvixupdate_add_bundle(TARGET none IDENTIFIER a.b BUILD 1)"_s, "found \"none\""),
          std::pair(u"tarvixupdate_add_bundle(TARGET my BUILD 1)"_s, "IDENTIFIER is missing"),
          std::pair(u"tarvixupdate_add_bundle(TARGET my IDENTIFIER a.b BUILD 1 ICONS x)"_s,
                    "unknown arguments")}) {
        const ProcessResult configured = configure(call);
        EXPECT_NE(configured.status, 0) << says;
        EXPECT_THAT(configured.errors.toStdString(), testing::HasSubstr(says));
    }
}

class BundleAtTerminal : public BundleCommand, protected tx::test::Terminal {};

/// patchelf waits in its first call, so that the bundle takes longer than a second.
TEST_F(BundleAtTerminal, BundleThatTakesLongerThanASecondShowsProgress) {
    const QString pipe = path(u"pipe"_s);
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    const QString real = QStandardPaths::findExecutable(u"patchelf"_s);
    ASSERT_FALSE(real.isEmpty());
    writeFile(path(u"bin/patchelf"_s), "#!/bin/sh\nif mkdir '" + path(u"first"_s).toUtf8() +
                                           "' 2>/dev/null; then read line < '" + pipe.toUtf8() +
                                           "'; fi\nexec " + real.toUtf8() + " \"$@\"\n");
    ASSERT_TRUE(QFile::setPermissions(path(u"bin/patchelf"_s), QFile::ReadOwner | QFile::ExeOwner));
    qputenv("PATH", path(u"bin"_s).toUtf8() + ':' + qgetenv("PATH"));
    start({u"bundle"_s, sample(), u"--identifier"_s, u"org.example.Sample"_s, u"--name"_s, u"My Sample"_s,
           u"--build"_s, u"7"_s, u"-o"_s, path(u"dist"_s)});
    // open() returns when patchelf has opened the other end.
    const int writer = ::open(QFile::encodeName(pipe).constData(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    EXPECT_FALSE(waitFor("nothing that is shown", 1100)) << "until a second has passed";
    ASSERT_EQ(::write(writer, "\n", 1), 1);
    ::close(writer);
    EXPECT_EQ(status(), 0) << shown.constData();
    EXPECT_TRUE(shown.contains("\r\033[KCopying [")) << shown.constData();
    const QByteArray last = shown.mid(shown.lastIndexOf("\r\033[K") + 4);
    EXPECT_TRUE(last.startsWith(path(u"dist/MySample.app"_s).toUtf8())) << shown.constData();
}

} // namespace

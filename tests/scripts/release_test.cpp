// SPDX-License-Identifier: MIT
// scripts/release, scripts/abi and scripts/hooks, in a repository small enough to make for each test.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::readFile;
using tx::test::runProcess;

namespace {

const QString scripts = tx::test::sourcesFolder() + u"/../scripts/"_s;

/// A repository with one release, 0.4.1, and a commit after it that can be released as 0.5.0.
class Repository : public tx::test::FrameworkTest {
protected:
    const QString root = path(u"project"_s);
    const QString programs = path(u"bin"_s);
    QByteArray released;

    Repository() {
        git({u"init"_s, u"-q"_s, u"-b"_s, u"main"_s, root}, {});
        for (const QString &name : {u"release"_s, u"abi"_s, u"hooks"_s, u"format"_s})
            copyScript(name);
        write(u".gitignore"_s, "/build/\n");
        write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION 0.4.1 LANGUAGES CXX)\n");
        write(u"CHANGELOG.md"_s, "# Changelog\n\n## 0.4.1\n\n- The first one.\n");
        write(u"releases.txt"_s, "# VERSION COMMIT\n");
        commit();
        released = git({u"rev-parse"_s, u"HEAD"_s}).output.trimmed();
        git({u"tag"_s, u"-a"_s, u"v0.4.1"_s, u"-m"_s, u"0.4.1"_s});
        write(u"releases.txt"_s, "# VERSION COMMIT\n0.4.1 " + released + "\n");
        write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION 0.5.0 LANGUAGES CXX)\n");
        write(u"CHANGELOG.md"_s,
              "# Changelog\n\n## 0.5.0\n\n- Something new.\n\n## 0.4.1\n\n- The first one.\n");
        abiSays(0);
        commit();
    }
    void write(const QString &name, const QByteArray &content) const {
        tx::test::writeFile(root + u'/' + name, content);
    }
    void writeProgram(const QString &file, const QByteArray &content) const {
        tx::test::writeFile(file, content);
        QFile::setPermissions(file, QFile::Permissions(0x7755));
    }
    void copyScript(const QString &name) const {
        writeProgram(root + u"/scripts/"_s + name, readFile(scripts + name));
    }
    void abiSays(int status) const {
        writeProgram(root + u"/scripts/abi"_s,
                     "#!/bin/sh\necho compared\nexit " + QByteArray::number(status) + '\n');
    }
    ProcessResult run(const QString &program, const QStringList &words) const {
        return runProcess(u"/usr/bin/env"_s,
                          QStringList{u"-C"_s, root,
                                      u"PATH=%1:%2"_s.arg(programs, qEnvironmentVariable("PATH")),
                                      u"GIT_CONFIG_GLOBAL=/dev/null"_s, u"GIT_CONFIG_NOSYSTEM=1"_s, program} +
                              words);
    }
    ProcessResult git(const QStringList &words) const { return git(words, {u"-C"_s, root}); }
    ProcessResult git(const QStringList &words, const QStringList &options) const {
        const ProcessResult result = runProcess(
            u"git"_s,
            options + QStringList{u"-c"_s, u"user.name=A"_s, u"-c"_s, u"user.email=a@example.org"_s} + words);
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        return result;
    }
    void commit() const {
        git({u"add"_s, u"-A"_s});
        git({u"commit"_s, u"-q"_s, u"-m"_s, u"Step"_s});
    }
};

class Release : public Repository {
protected:
    ProcessResult release(const QString &version = u"0.5.0"_s) const {
        return run(root + u"/scripts/release"_s, {version});
    }
    /// Each expected piece is in the answer, and the status says that there is a problem.
    void expectRefusal(const ProcessResult &result, const std::string &expected) const {
        EXPECT_EQ(result.status, 1) << result.output.constData();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(expected));
        EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("git tag")));
    }
};

TEST_F(Release, CommitThatCanBeReleasedIsToldHowToBeTaggedAndNothingChanges) {
    const QByteArray head = git({u"rev-parse"_s, u"HEAD"_s}).output.trimmed();
    const ProcessResult result = release();
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("git tag -a v0.5.0"));
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(head.toStdString()));
    EXPECT_EQ(git({u"status"_s, u"--porcelain"_s}).output, QByteArray());
    EXPECT_EQ(git({u"tag"_s}).output, QByteArray("v0.4.1\n"));
}

TEST_F(Release, VersionMustBeThatOfTheProjectAndGreaterThanTheLast) {
    EXPECT_EQ(release(u"0.5"_s).status, 64);
    EXPECT_EQ(release(u"v0.5.0"_s).status, 64);
    expectRefusal(release(u"0.6.0"_s), "CMakeLists.txt has version 0.5.0, expected 0.6.0");
    write(u"CMakeLists.txt"_s, "project(Another)\n");
    expectRefusal(release(), "version (none), expected 0.5.0");
    for (const QString &version : {u"0.4.1"_s, u"0.4.0"_s, u"0.3.9"_s}) {
        write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION " + version.toUtf8() + ")\n");
        expectRefusal(release(version), version.toStdString() + " is not newer than 0.4.1");
    }
}

TEST_F(Release, VersionsAreComparedByNumbers) {
    write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION 0.10.0 LANGUAGES CXX)\n");
    write(u"CHANGELOG.md"_s, "## 0.10.0\n\n- Something.\n");
    commit();
    EXPECT_EQ(release(u"0.10.0"_s).status, 0);
}

TEST_F(Release, ChangelogMustDescribeTheVersionAndNothingElse) {
    for (const QByteArray &text : {QByteArray("## Unreleased\n\n- Something.\n"),
                                   QByteArray("## 0.5.0\n\n## 0.4.1\n\n- The first one.\n"),
                                   QByteArray("## 0.5.01\n\n- Something.\n")}) {
        write(u"CHANGELOG.md"_s, text);
        commit();
        expectRefusal(release(), "no entry below \"## 0.5.0\"");
    }
    write(u"CHANGELOG.md"_s, "## Unreleased\n\n- More.\n\n## 0.5.0\n\n- Something.\n");
    commit();
    expectRefusal(release(), "entries below \"## Unreleased\"");
    write(u"CHANGELOG.md"_s, "## Unreleased\n\n## 0.5.0\n\n- Something.\n");
    commit();
    EXPECT_EQ(release().status, 0) << "an empty section is none";
}

TEST_F(Release, EarlierReleasesMustBeThereWithTheirTags) {
    git({u"tag"_s, u"-d"_s, u"v0.4.1"_s});
    expectRefusal(release(), "release 0.4.1 has no tag v0.4.1");
    git({u"tag"_s, u"v0.4.1"_s});
    expectRefusal(release(), "tag v0.4.1 names commit");
    git({u"tag"_s, u"-f"_s, u"v0.4.1"_s, QString::fromUtf8(released)});
    EXPECT_EQ(release().status, 0) << "a tag without a message is a tag";
    write(u"releases.txt"_s, "0.4.1 " + QByteArray(40, '1') + "\n");
    commit();
    expectRefusal(release(), "lacks commit 1111");
    write(u"releases.txt"_s, "# none\n");
    commit();
    expectRefusal(release(), "names no release");
}

TEST_F(Release, EarlierReleaseMustBePartOfTheHistory) {
    git({u"checkout"_s, u"-q"_s, u"--orphan"_s, u"another"_s});
    commit();
    expectRefusal(release(), "release 0.4.1 is not part of this commit's history");
}

TEST_F(Release, TagOfTheVersionMustNotExist) {
    git({u"tag"_s, u"v0.5.0"_s});
    expectRefusal(release(), "the tag v0.5.0 exists already");
}

TEST_F(Release, EverythingMustBeCommitted) {
    write(u"more.txt"_s, "x");
    expectRefusal(release(), "changes that are not committed");
}

TEST_F(Release, AllProblemsAreToldAtOnce) {
    write(u"CMakeLists.txt"_s, "project(Another)\n");
    write(u"CHANGELOG.md"_s, "");
    git({u"tag"_s, u"v0.5.0"_s});
    const ProcessResult result = release();
    for (const char *expected : {"CMakeLists.txt", "CHANGELOG.md", "exists already", "not committed"})
        expectRefusal(result, expected);
}

TEST_F(Release, InterfaceMayBreakWithANewMinorVersionOnly) {
    abiSays(8);
    commit();
    EXPECT_EQ(release().status, 0) << "0.5 after 0.4";
    write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION 0.4.2)\n");
    write(u"CHANGELOG.md"_s, "## 0.4.2\n\n- Repaired.\n");
    commit();
    expectRefusal(release(u"0.4.2"_s), "not compatible with 0.4.1");
    abiSays(0);
    commit();
    EXPECT_EQ(release(u"0.4.2"_s).status, 0);
    abiSays(1);
    commit();
    expectRefusal(release(u"0.4.2"_s), "could not be compared: compared");
}

TEST_F(Release, InterfaceOfAMajorVersionMayBreakWithTheNextOneOnly) {
    write(u"releases.txt"_s, "1.4.1 " + released + "\n");
    git({u"tag"_s, u"v1.4.1"_s, QString::fromUtf8(released)});
    abiSays(8);
    for (const auto &[version, status] : {std::pair{u"1.5.0"_s, 1}, std::pair{u"2.0.0"_s, 0}}) {
        write(u"CMakeLists.txt"_s, "project(TarvixUpdate VERSION " + version.toUtf8() + ")\n");
        write(u"CHANGELOG.md"_s, "## " + version.toUtf8() + "\n\n- New.\n");
        commit();
        EXPECT_EQ(release(version).status, status) << version.toStdString();
    }
}

/// scripts/abi with builds and an abidiff that say what the test wants.
class Abi : public Repository {
protected:
    Abi() {
        copyScript(u"abi"_s);
        const QString release = path(u"old/0.4.1"_s);
        QDir().mkpath(release + u"/source"_s);
        writeProgram(root + u"/scripts/old-release"_s, "#!/bin/sh\necho '" + release.toUtf8() + "'\n");
        write(u"cmake/Library.cmake"_s, "# two libraries\n");
        buildMakesArchiveBy("ar rc");
        abidiffEnds(0);
    }
    /// A build makes the library of a tree that has only one, or the archive from which one is linked. The
    /// command gets the name of the archive.
    void buildMakesArchiveBy(const QByteArray &command) const {
        writeProgram(programs + u"/cmake"_s,
                     "#!/bin/sh\n[ \"$1\" = --build ] || exit 0\nmkdir -p \"$2/lib\"\n"
                     "case $4 in TarvixUpdate) echo > \"$2/lib/libTarvixUpdate.so\" ;; *) " +
                         command + " \"$2/lib$4.a\" ;; esac\n");
    }
    void abidiffEnds(int status) const {
        writeProgram(programs + u"/abidiff"_s,
                     "#!/bin/sh\necho \"between $*\"\nexit " + QByteArray::number(status) + '\n');
    }
    ProcessResult compare() const { return run(root + u"/scripts/abi"_s, {}); }
};

TEST_F(Abi, LibraryOfTheLastReleaseIsComparedWithTodays) {
    const ProcessResult result = compare();
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_THAT(
        result.output.toStdString(),
        testing::ContainsRegex("build/abi/0\\.4\\.1/lib/libTarvixUpdate\\.so .*build/abi/current/lib/"));
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("compatible with 0.4.1"));
}

TEST_F(Abi, StatusSaysWhetherTheInterfaceIsCompatible) {
    for (const auto &[ends, expected] : {std::pair{4, 0}, std::pair{8, 8}, std::pair{12, 8}, std::pair{1, 1},
                                         std::pair{2, 1}, std::pair{13, 1}}) {
        abidiffEnds(ends);
        EXPECT_EQ(compare().status, expected) << "abidiff ends with " << ends;
    }
}

TEST_F(Abi, LibraryThatDoesNotBuildIsNotCompared) {
    writeProgram(programs + u"/cmake"_s, "#!/bin/sh\necho broken\nexit 1\n");
    const ProcessResult result = compare();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("does not build"));
    writeProgram(root + u"/scripts/old-release"_s, "#!/bin/sh\nexit 1\n");
    EXPECT_THAT(compare().errors.toStdString(), testing::HasSubstr("the last release could not be built"));
}

TEST_F(Abi, TwoLibrariesAreComparedAsOneWithTheNameOfTheOnlyOne) {
    tx::test::writeFile(path(u"old/0.4.1/source/cmake/Library.cmake"_s), "# two libraries\n");
    const ProcessResult result = compare();
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    for (const QString &tree : {u"0.4.1"_s, u"current"_s}) {
        const ProcessResult read = runProcess(
            u"readelf"_s, {u"--dynamic"_s, root + u"/build/abi/"_s + tree + u"/lib/libTarvixUpdate.so"_s});
        EXPECT_THAT(read.output.toStdString(), testing::HasSubstr("[libTarvixUpdate.so.0]"));
    }
}

TEST_F(Abi, LibraryThatCannotBeLinkedIsNotCompared) {
    ASSERT_EQ(compare().status, 0);
    buildMakesArchiveBy("echo broken >");
    const ProcessResult result = compare();
    EXPECT_EQ(result.status, 1) << "the library of an earlier run is not compared: "
                                << result.output.constData();
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("today's library does not build"));
}

/// A clang-format of the wanted release, which takes "unformatted" for a bad line.
class Hooks : public Repository {
protected:
    const QString hook = root + u"/.git/hooks/pre-commit"_s;

    Hooks() {
        formatterIs(14);
        EXPECT_EQ(install().status, 0);
    }
    void formatterIs(int release) const {
        writeProgram(programs + u"/clang-format"_s,
                     "#!/bin/sh\nif [ \"$1\" = --version ]; then echo 'clang-format version " +
                         QByteArray::number(release) + ".0'; exit; fi\n! grep -q unformatted\n");
    }
    ProcessResult install(const QStringList &words = {}) const {
        return run(root + u"/scripts/hooks"_s, words);
    }
    ProcessResult stageAndCommit(const QByteArray &staged, const QByteArray &inTree) const {
        write(u"a.cpp"_s, staged);
        git({u"add"_s, u"a.cpp"_s});
        write(u"a.cpp"_s, inTree);
        return run(u"git"_s, {u"-c"_s, u"user.name=A"_s, u"-c"_s, u"user.email=a@example.org"_s, u"commit"_s,
                              u"-q"_s, u"-m"_s, u"Step"_s});
    }
};

TEST_F(Hooks, CommitOfUnformattedSourcesIsRefused) {
    const ProcessResult refused = stageAndCommit("unformatted\n", "unformatted\n");
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(refused.errors.toStdString(), testing::HasSubstr("run scripts/format"));
    EXPECT_EQ(stageAndCommit("tidy\n", "tidy\n").status, 0);
}

TEST_F(Hooks, WhatWouldBeCommittedCountsAndNotTheWorkingTree) {
    EXPECT_NE(stageAndCommit("unformatted\n", "tidy\n").status, 0);
    EXPECT_EQ(stageAndCommit("tidy\n", "unformatted\n").status, 0);
}

TEST_F(Hooks, OtherFilesAndRemovedOnesAreNotLookedAt) {
    write(u"notes.txt"_s, "unformatted\n");
    git({u"add"_s, u"notes.txt"_s});
    EXPECT_EQ(stageAndCommit("tidy\n", "tidy\n").status, 0);
    git({u"rm"_s, u"-q"_s, u"-f"_s, u"a.cpp"_s});
    EXPECT_EQ(run(root + u"/scripts/format"_s, {u"--staged"_s}).status, 0);
}

TEST_F(Hooks, AnotherVersionOfTheFormatterChecksNothingAndSaysSo) {
    formatterIs(19);
    const ProcessResult result = stageAndCommit("unformatted\n", "unformatted\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr("this takes clang-format 14, and there is clang-format 19"));
}

TEST_F(Hooks, CommitFromBeforeTheHookCanBeMade) {
    for (const QByteArray &older : {QByteArray("#!/bin/sh\nexit 1\n"), QByteArray()}) {
        QFile::remove(root + u"/scripts/format"_s);
        if (!older.isEmpty())
            writeProgram(root + u"/scripts/format"_s, older);
        EXPECT_EQ(stageAndCommit("unformatted" + older, "").status, 0);
    }
}

TEST_F(Hooks, HookOfSomebodyElseIsLeftAlone) {
    EXPECT_EQ(install().status, 0) << "our own is written again";
    EXPECT_EQ(install({u"--remove"_s}).status, 0);
    EXPECT_FALSE(QFileInfo::exists(hook));
    writeProgram(hook, "#!/bin/sh\n# mine\n");
    for (const QStringList &words : {QStringList{}, QStringList{u"--remove"_s}}) {
        const ProcessResult result = install(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("exists and is not one of ours"));
        EXPECT_EQ(readFile(hook), QByteArray("#!/bin/sh\n# mine\n"));
    }
}

} // namespace

// SPDX-License-Identifier: MIT
// scripts/tidy and scripts/check-builds, with programs that only record how they are called.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;
using testing::ElementsAre;
using testing::HasSubstr;
using tx::test::ProcessResult;
using tx::test::readFile;
using tx::test::runProcess;

namespace {

/// A tree with a copy of one of the scripts, and a folder of programs that are found first.
class Script : public tx::test::FrameworkTest {
protected:
    const QString root = path(u"project"_s);
    const QString programs = path(u"bin"_s);
    const QString record = path(u"record"_s);

    void write(const QString &name, const QByteArray &content) const {
        tx::test::writeFile(root + u'/' + name, content);
    }
    static void writeProgram(const QString &file, const QByteArray &content) {
        tx::test::writeFile(file, content);
        QFile::setPermissions(file, QFile::Permissions(0x7755));
    }
    void copyScript(const QString &name) const {
        writeProgram(root + u"/scripts/"_s + name,
                     readFile(tx::test::sourcesFolder() + u"/../scripts/"_s + name));
    }
    ProcessResult run(const QString &name, const QStringList &words) const {
        return runProcess(u"/usr/bin/env"_s,
                          QStringList{u"-C"_s, root,
                                      u"PATH=%1:%2"_s.arg(programs, qEnvironmentVariable("PATH")),
                                      root + u"/scripts/"_s + name} +
                              words);
    }
    std::vector<std::string> recorded() const {
        std::vector<std::string> lines;
        for (const QByteArray &line : readFile(record).split('\n')) {
            if (!line.isEmpty())
                lines.push_back(line.toStdString());
        }
        return lines;
    }
};

/// A tree of three sources and a test. The compiler complains about the second file that contains "same". The
/// checker prints the lines with "finding".
class Tidy : public Script {
protected:
    const QByteArray included = "sed -n 's/^#include \"\\([^\"]*\\)\".*/\\1/p' \"$batch\"";
    QJsonArray commands;

    Tidy() {
        copyScript(u"tidy"_s);
        EXPECT_EQ(runProcess(u"git"_s, {u"init"_s, u"-q"_s, root}).status, 0);
        writeProgram(programs + u"/clang++"_s, "#!/bin/sh\nfor batch; do :; done\nfor file in $(" + included +
                                                   R"(); do
    if grep -q same "$file"; then
        [ -z "$first" ] || { echo "$file:1:5: error: redefinition" >&2; status=1; }
        first=$file
    fi
    if grep -q strange "$file"; then
        echo "/usr/include/vector:1:5: error: no such function" >&2; status=1
    fi
done
exit ${status:-0}
)");
        writeProgram(programs + u"/clang-tidy"_s,
                     "#!/bin/sh\nfor batch; do :; done\nfiles=$(" + included +
                         ")\necho $(for file in $files; do basename $file; done) >> " + record.toUtf8() +
                         "\n! grep finding $files\n");
        add(u"src/a.cpp"_s, "");
        add(u"src/b.cpp"_s, "");
        add(u"tools/c.cpp"_s, "");
        add(u"tests/a_test.cpp"_s, "");
    }
    void add(const QString &name, const QByteArray &content, const QString &options = u"-DX"_s) {
        write(name, content);
        const QString file = root + u'/' + name;
        commands.append(QJsonObject{
            {u"directory"_s, root},
            {u"file"_s, file},
            {u"command"_s, u"/usr/bin/ccache %1/clang++ %2 -o %3.o -c %3"_s.arg(programs, options, file)}});
        write(u"build/compile_commands.json"_s, QJsonDocument(commands).toJson());
    }
    ProcessResult tidy(const QStringList &words = {}) const {
        return run(u"tidy"_s, QStringList{u"build"_s} + words);
    }
    /// The sources that were checked together, in any order.
    std::vector<std::string> checked() const {
        std::vector<std::string> batches = recorded();
        std::sort(batches.begin(), batches.end());
        return batches;
    }
};

TEST_F(Tidy, SourcesWithTheSameOptionsAreCheckedTogether) {
    add(u"src/d.cpp"_s, "", u"-DY"_s);
    const ProcessResult result = tidy();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_THAT(checked(), ElementsAre("a.cpp b.cpp c.cpp", "d.cpp"));
}

TEST_F(Tidy, SourcesWhoseNamesCollideAreCheckedApart) {
    write(u"src/a.cpp"_s, "same");
    write(u"src/b.cpp"_s, "same");
    EXPECT_EQ(tidy().status, 0);
    EXPECT_THAT(checked(), ElementsAre("a.cpp c.cpp", "b.cpp"));
}

TEST_F(Tidy, ErrorOutsideTheSourcesSeparatesThem) {
    write(u"src/b.cpp"_s, "strange");
    EXPECT_EQ(tidy().status, 0);
    EXPECT_THAT(checked(), ElementsAre("a.cpp", "b.cpp", "c.cpp"));
}

TEST_F(Tidy, FindingsFailAndAllSourcesAreChecked) {
    write(u"src/a.cpp"_s, "finding one");
    add(u"src/d.cpp"_s, "finding two", u"-DY"_s);
    const ProcessResult result = tidy();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output.toStdString(), HasSubstr("finding one"));
    EXPECT_THAT(result.output.toStdString(), HasSubstr("finding two"));
    write(u"src/d.cpp"_s, "");
    EXPECT_EQ(tidy().status, 1) << "although the last sources have none";
}

TEST_F(Tidy, TestsAndSingleSourcesAreCheckedOnRequest) {
    EXPECT_EQ(tidy({u"--tests"_s}).status, 0);
    EXPECT_EQ(tidy({root + u"/src/b.cpp"_s}).status, 0);
    EXPECT_THAT(checked(), ElementsAre("a_test.cpp", "b.cpp"));
}

TEST_F(Tidy, SourceThatIsNotCompiledIsAnError) {
    write(u"src/new.cpp"_s, "");
    const ProcessResult result = tidy();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), HasSubstr("src/new.cpp is not compiled in build"));
}

TEST_F(Tidy, TreeThatIsNotConfiguredIsAnError) {
    const ProcessResult result = run(u"tidy"_s, {u"elsewhere"_s});
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.errors.toStdString(),
                HasSubstr("elsewhere has no compile_commands.json; configure it"));
    EXPECT_EQ(run(u"tidy"_s, {}).status, 64);
}

TEST_F(Tidy, TreeOfAnotherCompilerIsAnError) {
    write(u"build/compile_commands.json"_s,
          readFile(root + u"/build/compile_commands.json"_s).replace("/clang++ ", "/g++ "));
    const ProcessResult result = tidy();
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.errors.toStdString(), HasSubstr("build is compiled by"));
    EXPECT_THAT(result.errors.toStdString(), HasSubstr("/g++, expected clang++"));
    EXPECT_THAT(checked(), ElementsAre());
}

/// Programs that record their words, and fail if these contain those of the file `failing`.
class CheckBuilds : public Script {
protected:
    CheckBuilds() {
        copyScript(u"check-builds"_s);
        for (const QString &program : {programs + u"/cmake"_s, programs + u"/ctest"_s,
                                       root + u"/scripts/tidy"_s, root + u"/scripts/setup"_s}) {
            writeProgram(program, "#!/bin/sh\ncalled=\"$(basename $0) $*${TARVIX_PACKAGE_BUILD:+ on "
                                  "$TARVIX_PACKAGE_BUILD}\"\necho \"$called\" >> " +
                                      record.toUtf8() + "\n! echo \"$called\" | grep -qxF -f " +
                                      path(u"failing"_s).toUtf8() + "\n");
        }
        fail("nothing");
    }
    void fail(const std::string &words) const {
        tx::test::writeFile(path(u"failing"_s), QByteArray::fromStdString(words) + '\n');
    }
};

TEST_F(CheckBuilds, SourcesAreCheckedAndTwoOtherBuildsAreMadeAndUsed) {
    const ProcessResult result = run(u"check-builds"_s, {});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), testing::ContainsRegex("clang-tidy: [0-9]+ s"));
    const std::string bare = (root + u"/build/bare"_s).toStdString();
    EXPECT_THAT(recorded(),
                ElementsAre("setup long", "cmake --preset clang -DTARVIXUPDATE_BUILD_TESTS=OFF",
                            "tidy build/clang", HasSubstr("cmake --build --preset clang"),
                            "cmake --preset release -B build/bare -DTARVIXUPDATE_BUILD_PAGES=OFF "
                            "-DTARVIXUPDATE_BUILD_TXUPDATE=OFF",
                            HasSubstr("cmake --build build/bare"), "cmake --preset dev",
                            HasSubstr("cmake --build --preset dev --target program_tests"),
                            testing::AllOf(HasSubstr("ctest --preset dev"), HasSubstr("InstalledPackage"),
                                           testing::EndsWith(" on " + bare))));
}

TEST_F(CheckBuilds, StepThatFailsIsNamedAndEndsTheRun) {
    ASSERT_EQ(run(u"check-builds"_s, {}).status, 0);
    std::vector<std::string> calls = recorded();
    calls.erase(calls.begin());
    const std::vector<std::string> names{"configuring with clang",
                                         "clang-tidy",
                                         "the build with clang",
                                         "configuring a release without optional parts",
                                         "the release without optional parts",
                                         "configuring the tests of the package",
                                         "hosts of the release without optional parts",
                                         "hosts of the release without optional parts"};
    ASSERT_EQ(calls.size(), names.size());
    for (size_t i = 0; i < calls.size(); ++i) {
        QFile::remove(record);
        fail(calls[i]);
        const ProcessResult result = run(u"check-builds"_s, {});
        EXPECT_EQ(result.status, 1) << calls[i];
        EXPECT_THAT(result.errors.toStdString(),
                    testing::EndsWith("failed: " + names[i] + " (exit status 1)\n"));
        EXPECT_EQ(recorded().size(), i + 2) << "nothing runs after " << calls[i];
    }
}

TEST_F(CheckBuilds, TestsAreIncludedOnRequest) {
    EXPECT_EQ(run(u"check-builds"_s, {u"--tests"_s}).status, 0);
    const std::vector<std::string> calls = recorded();
    ASSERT_EQ(calls.size(), 10U);
    EXPECT_EQ(calls[1], "cmake --preset clang -DTARVIXUPDATE_BUILD_TESTS=ON");
    EXPECT_EQ(calls[3], "tidy --tests build/clang");
    EXPECT_EQ(run(u"check-builds"_s, {u"--long"_s}).status, 64);
}

} // namespace

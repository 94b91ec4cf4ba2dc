// SPDX-License-Identifier: MIT
// scripts/mutants, on a tree small enough to build in a moment.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QProcess>

#include <csignal>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

const QString program = tx::test::sourcesFolder() + u"/../scripts/mutants"_s;

class Mutants : public tx::test::FrameworkTest {
protected:
    const QString root = path(u"project"_s);
    const QByteArray source = "int sum(int a, int b) { return a + b; }\n"
                              "int product(int a, int b) { return a * b; }\n";

    Mutants() {
        write(u"CMakeLists.txt"_s, R"(cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES CXX)
enable_testing()
add_executable(check main.cpp sum.cpp)
add_test(NAME Small.Adds COMMAND check sum)
add_test(NAME Small.Multiplies COMMAND check product)
)");
        write(u"sum.cpp"_s, source);
        // Products are checked with two numbers whose sum is the same; a wrong one is waited over for ever.
        write(u"main.cpp"_s, R"(#include <string>
#include <unistd.h>
int sum(int, int);
int product(int, int);
int main(int, char **words) {
    if (std::string(words[1]) == "sum")
        return sum(2, 3) == 5 ? 0 : 1;
    for (int i = product(2, 2); i != 4;)
        pause();
    return 0;
}
)");
        write(u".gitignore"_s, "/build/\n");
        EXPECT_EQ(runProcess(u"git"_s, {u"init"_s, u"-q"_s, root}).status, 0);
    }
    void write(const QString &name, const QByteArray &content) const {
        tx::test::writeFile(root + u'/' + name, content);
    }
    static QByteArray change(const QByteArray &before, const QByteArray &after,
                             const QByteArray &tests = "^Small\\.Adds", const QByteArray &file = "sum.cpp") {
        return "file: " + file + "\nold: " + before + "\nnew: " + after + "\ntests: " + tests +
               "\nwhy: numbers are added\n\n";
    }
    void list(const QByteArray &changes) const { write(u"tests/mutants/small.txt"_s, changes); }
    QList<QByteArray> sources() const {
        QList<QByteArray> result;
        for (const QString &name : tx::test::namesIn(root)) {
            if (name != u"build" && name != u".git")
                result += name.toUtf8() + tx::test::readFile(root + u'/' + name);
        }
        return result;
    }
    ProcessResult run(const QStringList &words = {}) const {
        return runProcess(program, QStringList{u"--root"_s, root} + words);
    }
};

TEST_F(Mutants, ChangeThatATestNoticesIsKilledAndTheTreeIsNotTouched) {
    list(change("a + b", "a - b"));
    const QList<QByteArray> before = sources();
    const ProcessResult result = run();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_TRUE(result.output.contains("by Small.Adds")) << result.output.constData();
    EXPECT_TRUE(result.output.contains("1 of 1 changes killed")) << result.output.constData();
    EXPECT_EQ(sources(), before);
    EXPECT_EQ(tx::test::readFile(root + u"/build/mutants/tree-1/sum.cpp"_s), source);
}

TEST_F(Mutants, EachWayToFailIsToldAndTheOthersAreStillTried) {
    list(change("a * b", "a + b", "^Small") + change("a + b", "a - b") + change("a % b", "a - b") +
         change("int a", "int c") + change("a + b", "a + c") + change("a + b", "a - b", "^Smaller") +
         change("a + b", "a - b", "^Small", "sums.cpp"));
    const ProcessResult result = run();
    EXPECT_EQ(result.status, 1);
    for (const char *expected :
         {"SURVIVED", "small:1 sum.cpp", "pass with \"a + b\" for \"a * b\"",
          "the old text occurs 0 times in sum.cpp", "the old text occurs 2 times in sum.cpp", "no build",
          "no test matches ^Smaller", "there is no file sums.cpp", "1 of 7 changes killed",
          "1 SURVIVED, 4 misfit, 1 no build"})
        EXPECT_TRUE(result.output.contains(expected)) << expected << "\n" << result.output.constData();
    EXPECT_EQ(tx::test::readFile(root + u"/build/mutants/tree-1/sum.cpp"_s), source);
}

TEST_F(Mutants, SeveralAreTriedAtOnceEachOnACopyOfItsOwn) {
    list(change("a + b", "a - b") + change("a + b", "b") + change("a + b", "a") + change("a + b", "0"));
    const ProcessResult result = run({u"--jobs"_s, u"2"_s});
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_TRUE(result.output.contains("4 of 4 changes killed")) << result.output.constData();
    for (const QString &copy : {u"tree-1"_s, u"tree-2"_s}) {
        EXPECT_TRUE(result.output.contains(copy.toUtf8() + ": built in")) << result.output.constData();
        EXPECT_EQ(tx::test::readFile(root + u"/build/mutants/"_s + copy + u"/sum.cpp"_s), source);
    }
}

TEST_F(Mutants, TestsThatFailWithoutAChangeCannotTellOne) {
    list(change("a + b", "a - b"));
    write(u"sum.cpp"_s, QByteArray(source).replace("a + b", "1 * a + b + 1"));
    const ProcessResult result = run();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.errors.contains("fail without any change, so they cannot tell one: Small.Adds"))
        << result.errors.constData();
}

TEST_F(Mutants, NextRunSeesWhatWasEditedAndRepairsTheCopy) {
    list(change("a + b", "a - b"));
    ASSERT_EQ(run().status, 0);
    tx::test::writeFile(root + u"/build/mutants/tree-1/sum.cpp"_s, "left broken by a run that was killed\n");
    write(u"sum.cpp"_s, QByteArray(source).replace("a + b", "b + a"));
    list(change("b + a", "b"));
    const ProcessResult result = run();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
}

TEST_F(Mutants, InterruptedRunRestoresTheCopyAndEndsWhatItStarted) {
    list(change("a * b", "a * b + 1", "^Small\\.Multiplies")); // its test waits for ever
    QProcess process;
    process.start(program, {u"--root"_s, root});
    const QString check = root + u"/build/mutants/tree-1/build/mutants/check"_s;
    const QString copy = root + u"/build/mutants/tree-1/sum.cpp"_s;
    const auto isRunning = [&] {
        return runProcess(u"pgrep"_s, {u"-f"_s, check + u" product"_s}).status == 0;
    };
    ASSERT_TRUE(
        waitUntil([&] { return tx::test::readFile(copy).contains("a * b + 1") && isRunning(); }, 60000))
        << process.readAll().constData();
    ASSERT_EQ(kill(static_cast<pid_t>(process.processId()), SIGTERM), 0);
    ASSERT_TRUE(process.waitForFinished(20000));
    EXPECT_EQ(process.exitCode(), 128 + SIGTERM);
    EXPECT_EQ(tx::test::readFile(copy), source);
    EXPECT_TRUE(waitUntil([&] { return !isRunning(); }));
    EXPECT_EQ(tx::test::readFile(root + u"/sum.cpp"_s), source);
}

TEST_F(Mutants, TimeForEverythingIsBounded) {
    list(change("a * b", "a * b + 1", "^Small\\.Multiplies") + change("a + b", "a - b"));
    const ProcessResult result = run({u"--minutes"_s, u"0"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.output.contains("2 changes were not tried")) << result.output.constData();
}

TEST_F(Mutants, OnlyTheSelectedOnesAreTaken) {
    list(change("a + b", "a - b") + change("a * b", "a"));
    const ProcessResult all = run({u"--list"_s});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.output,
              QByteArray("small:1 sum.cpp numbers are added\nsmall:7 sum.cpp numbers are added\n"));
    EXPECT_EQ(run({u"--list"_s, u"small:7"_s}).output, QByteArray("small:7 sum.cpp numbers are added\n"));
    EXPECT_EQ(run({u"--list"_s, u"nothing"_s}).status, 1);
    EXPECT_EQ(run({u"--list"_s, u"("_s}).status, 64);
    EXPECT_EQ(run({u"--nonsense"_s}).status, 64);
    EXPECT_FALSE(QFileInfo::exists(root + u"/build"_s)) << "looking builds nothing";
}

TEST_F(Mutants, ListThatIsNotUnderstoodIsRefusedWithThePlace) {
    struct Case {
        QByteArray list;
        QByteArray message;
    };
    const Case cases[] = {
        {"file: sum.cpp\nold: a\nnew: b\nwhy: c\n", "small.txt:1: this block lacks tests"},
        {change("a + b", "a - b") + "line: 3\n", "small.txt:7: expected one of file, old, new, tests, why"},
        {"file: a\nfile: b\n", "small.txt:2: \"file\" twice in one block"},
        {change("a + b", "a + b"), "small.txt:1: old and new are the same"},
        {change("a + b", "a - b", "("), "small.txt:1: tests is no regular expression"},
    };
    for (const Case &c : cases) {
        list(c.list);
        const ProcessResult result = run({u"--check"_s});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.errors.contains(c.message)) << c.message.constData() << "\n"
                                                       << result.errors.constData();
    }
}

TEST(MutantsList, HasAtLeastSixtyChangesAndEachFitsTheTree) {
    const ProcessResult result = runProcess(program, {u"--check"_s});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_GE(result.output.split(' ').first().toInt(), 60) << result.output.constData();
}

} // namespace

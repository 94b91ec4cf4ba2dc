// SPDX-License-Identifier: MIT
#include "os/taskoutput.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QElapsedTimer>

using namespace Qt::StringLiterals;
using tx::outputOf;

namespace {

class TaskOutput : public tx::test::FrameworkTest {
protected:
    static tx::TaskRequest shell(const QString &script) {
        return {.program = u"/bin/sh"_s, .arguments = {u"-c"_s, script}};
    }
    /// The process that wrote its number into the file "pid".
    qint64 child() const { return tx::test::readFile(path(u"pid"_s)).trimmed().toLongLong(); }
};

constexpr tx::TaskOutputLimits little{std::chrono::minutes(5), 1000};

TEST_F(TaskOutput, IsAllThatWasWritten) {
    EXPECT_EQ(outputOf(shell(u"printf a; sleep 0.05; printf b"_s)), QByteArray("ab"));
    EXPECT_EQ(outputOf(shell(u":"_s)), QByteArray());
    EXPECT_EQ(outputOf(shell(u"head -c 200000 /dev/zero"_s))->size(), 200000);
}

TEST_F(TaskOutput, FailureGivesNone) {
    EXPECT_FALSE(outputOf(shell(u"echo a; exit 1"_s)));
    EXPECT_FALSE(outputOf(shell(u"echo a; kill -9 $$"_s)));
    EXPECT_FALSE(outputOf({.program = path(u"none"_s)}));
}

TEST_F(TaskOutput, TooMuchEndsTheProgram) {
    EXPECT_EQ(outputOf(shell(u"head -c 1000 /dev/zero"_s), little)->size(), 1000);
    EXPECT_FALSE(outputOf(shell(u"head -c 1001 /dev/zero"_s), little));
    EXPECT_FALSE(outputOf(shell(u"echo $$ > '%1'; cat /dev/zero"_s.arg(path(u"pid"_s))), little));
    EXPECT_TRUE(tx::test::waitUntil([this] { return !tx::test::isAlive(child()); }));
}

TEST_F(TaskOutput, HangingEndsTheProgramAndWhatItStarted) {
    const QString pid = path(u"pid"_s);
    // Long enough for a shell to write its number on a busy machine.
    constexpr tx::TaskOutputLimits shortly{std::chrono::milliseconds(1500), 1000};
    // Silent; silent after a word; with its output closed; gone, but a child of its own holds the output.
    for (const QString &script :
         {u"echo $$ > '%1'; sleep 1000"_s, u"echo $$ > '%1'; echo a; sleep 1000"_s,
          u"echo $$ > '%1'; exec >&-; sleep 1000"_s, u"sleep 1000 & echo $! > '%1'"_s}) {
        QElapsedTimer clock;
        clock.start();
        EXPECT_FALSE(outputOf(shell(script.arg(pid)), shortly)) << script.toStdString();
        EXPECT_GE(clock.elapsed(), 1490);
        EXPECT_TRUE(tx::test::waitUntil([this] { return !tx::test::isAlive(child()); }))
            << script.toStdString();
    }
}

} // namespace

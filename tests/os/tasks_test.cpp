// SPDX-License-Identifier: MIT
#include "os/frameworkresources.h"
#include "os/tasks.h"
#include "tests/support/environment.h"

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::TaskRequest;

namespace {

QByteArray outputOf(TaskRequest request, int *status = nullptr) {
    request.readsOutput = true;
    auto task = tx::nativeTasks().start(request);
    if (!task)
        return "failed: " + task.error().toString().toUtf8();
    QByteArray all;
    for (QByteArray part; !(part = (*task)->read()).isEmpty();)
        all += part;
    const int code = (*task)->wait();
    if (status)
        *status = code;
    return all;
}

TEST(Tasks, ArgumentsAndEnvironmentArriveExactly) {
    EXPECT_EQ(
        outputOf({.program = u"/usr/bin/printf"_s, .arguments = {u"[%s]"_s, u"a b"_s, u"$HOME\n'"_s, u""_s}}),
        QByteArray("[a b][$HOME\n'][]"));
    EXPECT_EQ(outputOf({.program = u"/usr/bin/env"_s, .environment = QStringList{u"ONE=1 2"_s}}),
              QByteArray("ONE=1 2\n"));
}

TEST(Tasks, OpenFileBecomesTheStandardInput) {
    const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    struct stat given {};
    ASSERT_EQ(fstat(file, &given), 0);
    const TaskRequest request{.program = u"stat"_s,
                              .arguments = {u"-L"_s, u"-c"_s, u"%d %i %F"_s, u"/dev/stdin"_s},
                              .inputFile = file};
    EXPECT_EQ(outputOf(request), QByteArray::number(qulonglong(given.st_dev)) + ' ' +
                                     QByteArray::number(qulonglong(given.st_ino)) + " regular file\n");
    EXPECT_NE(fcntl(file, F_GETFD), -1) << "the caller keeps it";
    close(file);
}

TEST(Tasks, PacketsGoThroughASocketWithAnOpenFile) {
    // A shell program. It reads a packet, and can read the file only if it receives the descriptor.
    auto task = tx::nativeTasks().start({.program = u"cat"_s, .receivesPackets = true, .readsOutput = true});
    ASSERT_TRUE(bool(task));
    const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ((*task)->send("one packet", file), 0);
    EXPECT_EQ((*task)->send("another", -1), 0);
    EXPECT_EQ((*task)->send("no file", 9999), EBADF);
    close(file);
    (*task)->closeInput();
    QByteArray all;
    for (QByteArray more = (*task)->read(); !more.isEmpty(); more = (*task)->read())
        all += more;
    EXPECT_EQ(all, QByteArray("one packetanother"));
    EXPECT_EQ((*task)->wait(), 0);
    EXPECT_EQ((*task)->send("x", -1), EBADF) << "its input was closed";
    // Sending to a program that has ended raises no signal.
    auto ended = tx::nativeTasks().start({.program = u"true"_s, .receivesPackets = true});
    ASSERT_TRUE(bool(ended));
    (*ended)->wait();
    EXPECT_EQ((*ended)->send("x", -1), EPIPE);
}

TEST(Tasks, StatusIsTheExitCodeOrTheSignal) {
    int status = 0;
    outputOf({.program = u"sh"_s, .arguments = {u"-c"_s, u"exit 7"_s}}, &status);
    EXPECT_EQ(status, 7);
    outputOf({.program = u"sh"_s, .arguments = {u"-c"_s, u"kill -9 $$"_s}}, &status);
    EXPECT_EQ(status, 128 + 9);
}

TEST(Tasks, EndOfTheStandardErrorIsKeptWhenAskedForAndNeverHoldsUpTheProgram) {
    tx::TaskRequest request{
        .program = u"sh"_s,
        .arguments = {u"-c"_s, u"head -c 1000000 /dev/zero | tr '\\0' x >&2; echo ' the end ' >&2"_s},
        .keepsErrors = true};
    auto task = tx::nativeTasks().start(request);
    ASSERT_TRUE(bool(task));
    EXPECT_EQ((*task)->wait(), 0);
    const QString kept = (*task)->errorText();
    EXPECT_TRUE(kept.endsWith(u"xx the end"_s)) << kept.right(20).toStdString();
    EXPECT_EQ(kept.size(), 1000 - 2) << "without the white space at the end";
    request.arguments[1] = u"true"_s;
    task = tx::nativeTasks().start(request);
    (*task)->wait();
    EXPECT_TRUE((*task)->errorText().isEmpty());
    request.keepsErrors = false;
    task = tx::nativeTasks().start(request);
    (*task)->wait();
    EXPECT_TRUE((*task)->errorText().isEmpty());
}

TEST(Tasks, MissingProgramIsAnErrorThatNamesIt) {
    const auto task = tx::nativeTasks().start({.program = u"/no/such/program"_s});
    ASSERT_FALSE(bool(task));
    EXPECT_EQ(task.error().code(), ENOENT);
    EXPECT_THAT(task.error().localizedDescription().toStdString(), testing::HasSubstr("/no/such/program"));
}

TEST(Tasks, ChildIsADirectOneAndMayHaveASessionOfItsOwn) {
    const QByteArray parent = outputOf({.program = u"sh"_s, .arguments = {u"-c"_s, u"echo $PPID"_s}});
    EXPECT_EQ(parent.trimmed().toLongLong(), getpid());
    const auto sessionOf = [](bool own) {
        return outputOf({.program = u"sh"_s,
                         .arguments = {u"-c"_s, u"cut -d' ' -f6 /proc/$$/stat"_s},
                         .ownSession = own})
            .trimmed()
            .toLongLong();
    };
    EXPECT_EQ(sessionOf(false), getsid(0));
    EXPECT_NE(sessionOf(true), getsid(0));
}

TEST(Tasks, FrameworkToolsComeFirstInThePath) {
    QString found;
    for (const QString &variable : tx::environmentWithFrameworkTools()) {
        if (variable.startsWith(u"PATH="_s)) {
            EXPECT_TRUE(found.isNull()) << "once";
            found = variable;
        }
    }
    EXPECT_TRUE(found.startsWith(u"PATH="_s + tx::frameworkResourcesPath() + u':')) << found.toStdString();
}

} // namespace

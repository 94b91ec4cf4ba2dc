// SPDX-License-Identifier: MIT
// How the unarchiver runs the program that unpacks.
#include "os/frameworkresources.h"
#include "os/tasks.h"
#include "tests/install/unarchivertest.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::ArchiveKind;
using tx::test::Unarchiver;
using tx::test::UnarchiverKind;

namespace {

TEST_P(UnarchiverKind, CommandOfTheTypeHasTheSameResult) {
    const QString file = archive(GetParam(), newBuild());
    unarchive(file);
    ASSERT_TRUE(error.isNull()) << error.toString().toStdString();
    const QString byCommand = path(u"by \"command\""_s);
    ASSERT_TRUE(QDir().mkpath(byCommand));
    const QString resources = tx::frameworkResourcesPath();
    const tx::test::ProcessResult result = tx::test::runProcess(
        u"/bin/sh"_s, {u"-c"_s, TXUpdateUnarchiver::commandForFileName(file)}, tx::test::readFile(file),
        {u"TXUPDATE_UNARCHIVER_DESTINATION="_s + byCommand,
         u"PATH=%1/Archives:%1:/usr/bin:/bin"_s.arg(resources)});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(tx::test::treeOf(byCommand + u"/New.app"_s), tx::test::treeOf(application));
    EXPECT_EQ(tx::test::namesIn(byCommand), QStringList{u"New.app"_s});
}

TEST_P(UnarchiverKind, ArchiveIsGivenAsAFileToTheFrameworksOwnProgram) {
    // Programs of the same names in PATH are not run, nor is a shell.
    const QByteArray before = qgetenv("PATH");
    for (const QString &name : {u"ditto"_s, u"tar"_s, u"sh"_s, u"TXUpdateUnpacker"_s})
        tx::test::writeFile(path(u"bin/"_s + name), "#!/bin/true\n",
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", path(u"bin"_s).toUtf8());
    struct stat expected {};
    struct stat given {};
    off_t position = -1;
    tx::test::RecordingTasks tasks;
    tasks.runsForReal = true;
    tasks.failing = [&](const tx::TaskRequest &request) {
        EXPECT_EQ(fstat(request.inputFile, &given), 0);
        position = lseek(request.inputFile, 0, SEEK_CUR);
        return 0;
    };
    const QString file = archive(GetParam(), newBuild());
    ASSERT_EQ(stat(QFile::encodeName(file).constData(), &expected), 0);
    unarchive(file);
    qputenv("PATH", before);
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(tx::test::treeOf(application), tx::test::treeOf(path(u"staging/New.app"_s)));
    ASSERT_EQ(tasks.started.size(), 1);
    EXPECT_EQ(tasks.started.first().program, tx::frameworkResourcesPath() + u"/TXUpdateUnpacker"_s);
    EXPECT_EQ(tasks.started.first().arguments.first(), u"--end-with-caller"_s);
    EXPECT_EQ(tasks.started.first().arguments.last(), folder);
    EXPECT_TRUE(S_ISREG(given.st_mode));
    EXPECT_EQ(given.st_ino, expected.st_ino);
    EXPECT_EQ(position, 0);
}

TEST_F(Unarchiver, ProgramThatCannotBeStartedIsReported) {
    tx::test::RecordingTasks tasks;
    tasks.failing = [](const tx::TaskRequest &) { return EMFILE; };
    unarchive(archive(ArchiveKind::Zip, newBuild()));
    expectFailure(u"Opening the pipe for the archive failed %1."_s.arg(EMFILE));
}

/// Runs a script instead of the program that unpacks.
class ScriptTasks : public tx::Tasks {
public:
    explicit ScriptTasks(QString script)
        : m_script(std::move(script)) {
        tx::services().tasks = this;
    }
    ~ScriptTasks() override { tx::services().tasks = &tx::nativeTasks(); }
    Q_DISABLE_COPY_MOVE(ScriptTasks)
    tx::Result<std::unique_ptr<tx::Task>> start(const tx::TaskRequest &request) override {
        tx::TaskRequest script = request;
        script.program = u"/bin/sh"_s;
        script.arguments = {u"-c"_s, m_script};
        return tx::nativeTasks().start(script);
    }

private:
    const QString m_script;
};

TEST_F(Unarchiver, StatusDoesNotMatterIfTheApplicationIsThere) {
    const ScriptTasks tasks(u"echo 'tar: no' >&2; exit 1"_s);
    const QString old = folder + u"/Old.app"_s;
    tx::test::makeBundle(old, {});
    unarchive(archive(ArchiveKind::Zip, newBuild()));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(application, old);
}

TEST_F(Unarchiver, FailureOfTheToolIsSaidIfNoApplicationIsThere) {
    const struct {
        QString script, says;
    } cases[] = {{u"exit 1"_s, u"TXUpdateUnpacker: exit status 1"_s},
                 {u"kill -9 $$"_s, u"TXUpdateUnpacker: exit status 137"_s},
                 {u"echo 'tar: no' >&2; exit 1"_s, u"tar: no"_s}};
    for (const auto &c : cases) {
        const ScriptTasks tasks(c.script);
        completions = 0;
        unarchive(archive(ArchiveKind::Zip, newBuild()));
        expectMissing({u"The tool that unpacks it says: "_s + c.says});
    }
}

TEST_F(Unarchiver, ArchiveThatCannotBeReadToItsEndIsReported) {
    const ScriptTasks tasks(u"exit 74"_s);
    tx::test::makeBundle(folder + u"/Old.app"_s, {});
    unarchive(archive(ArchiveKind::Zip, newBuild()));
    expectFailure(u"An error occured while reading from the archive 1."_s);
}

TEST_F(Unarchiver, ReadErrorIsReported) {
    QDir().mkpath(folder + u"/folder.zip"_s); // opens, but cannot be read
    unarchive(folder + u"/folder.zip"_s);
    expectFailure(u"An error occured while reading from the archive 1."_s);
}

TEST_F(Unarchiver, HostsEnvironmentIsNotTouched) {
    qputenv("TXUPDATE_UNARCHIVER_DESTINATION", "mine");
    unarchive(archive(ArchiveKind::Zip, newBuild()));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(qgetenv("TXUPDATE_UNARCHIVER_DESTINATION"), QByteArray("mine"));
    qunsetenv("TXUPDATE_UNARCHIVER_DESTINATION");
}

/// A program that takes five times as long as the unarchiver waits between two reports.
class SlowTask final : public tx::Task {
public:
    explicit SlowTask(std::unique_ptr<tx::Task> task)
        : m_task(std::move(task)) {}
    qint64 processIdentifier() const override { return m_task->processIdentifier(); }
    void closeInput() override { m_task->closeInput(); }
    QByteArray read() override { return m_task->read(); }
    std::optional<QByteArray> readWithin(std::chrono::milliseconds limit) override {
        return m_task->readWithin(limit);
    }
    int wait() override { return m_task->wait(); }
    std::optional<int> waitWithin(std::chrono::milliseconds limit) override {
        EXPECT_EQ(limit, std::chrono::milliseconds(100));
        return m_waits++ < 5 ? std::nullopt : std::optional(m_task->wait());
    }
    void kill() override { m_task->kill(); }

private:
    std::unique_ptr<tx::Task> m_task;
    int m_waits = 0;
};

class SlowTasks : public tx::Tasks {
public:
    SlowTasks() { tx::services().tasks = this; }
    ~SlowTasks() override { tx::services().tasks = &tx::nativeTasks(); }
    Q_DISABLE_COPY_MOVE(SlowTasks)
    tx::Result<std::unique_ptr<tx::Task>> start(const tx::TaskRequest &request) override {
        auto task = tx::nativeTasks().start(request);
        if (!task)
            return task;
        return std::unique_ptr<tx::Task>(new SlowTask(std::move(*task)));
    }
};

TEST_F(Unarchiver, ProgressIsReportedOnTheMainThread) {
    const SlowTasks tasks;
    double now = 0;
    tx::services().secondsSinceReferenceDate = [&now] { return now += 1; };
    unarchive(archive(ArchiveKind::Tar, newBuild()));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(progress, 6) << "at the start, and each time that it waited in vain";
    EXPECT_EQ(progressElsewhere, 0);
}

TEST_F(Unarchiver, ProgressIsReportedAtMostOnceInATenthOfASecond) {
    const SlowTasks tasks;
    double now = 1000;
    tx::services().secondsSinceReferenceDate = [&now] { return now += 0.06; };
    unarchive(archive(ArchiveKind::Tar, newBuild()));
    EXPECT_EQ(progress, 3);
}

} // namespace

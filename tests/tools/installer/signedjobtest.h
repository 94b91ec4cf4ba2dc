// SPDX-License-Identifier: MIT
#pragma once

#include "installer/jobs.h"
#include "posix/interrupted.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"
#include "tests/tools/installer/stepfiles.h"
#include "tests/trust/signedreleases.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;
using namespace tx::installer;

/// Records each change and fails the one of a number, from 1.
class CountedSteps final : public StepFiles {
public:
    int failing = 0;
    QStringList done;

private:
    FileError step(const Step &step, const std::function<FileError()> &work) override {
        done << QString::fromStdString(step.name + ' ' + tx::posix::lastComponentOf(step.place));
        return done.size() == failing ? FileError{EIO, step.place} : work();
    }
};

/// Runs code between two steps of the private copy, and can make one step fail.
class WatchedCopy final : public tx::PrivateFiles {
public:
    std::function<void()> afterFirstRead;
    std::function<void()> afterCopy;
    std::string failing; ///< "create", "reopen", "read" or "write"

    int create(int folder) override {
        m_isCopying = true;
        return failing == "create" ? fail() : PrivateFiles::create(folder);
    }
    int reopenForReading(int file) override {
        if (!std::exchange(m_isCopying, false))
            return PrivateFiles::reopenForReading(file);
        if (afterCopy)
            afterCopy();
        return failing == "reopen" ? fail() : PrivateFiles::reopenForReading(file);
    }
    ssize_t read(int file, void *buffer, size_t size) override {
        if (m_isCopying && failing == "read")
            return fail();
        const ssize_t count = PrivateFiles::read(file, buffer, size);
        if (m_isCopying && afterFirstRead)
            std::exchange(afterFirstRead, nullptr)();
        return count;
    }
    ssize_t write(int file, const void *bytes, size_t size) override {
        return failing == "write" ? fail() : PrivateFiles::write(file, bytes, size);
    }

private:
    static int fail() {
        errno = ENOSPC;
        return -1;
    }
    bool m_isCopying = false;
};

class SignedJob : public FrameworkTest {
protected:
    const QString bundle = path(u"Place/Host.app"_s);
    const QString resources = bundle + u"/Contents/Frameworks/TarvixUpdate/Resources"_s;
    const QString installer = resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    const QString unpacked = path(u"cache/New.app"_s); ///< by the user
    const QString verified = path(u"Place/.Host.app.txupdate-verified"_s);
    SignedRelease release;
    CountedSteps files;
    WatchedCopy privateFiles;
    JobContext context;
    std::vector<std::string> became;
    std::vector<std::string> variables;
    QStringList verifiedTree; ///< content of the application that the installer received
    mode_t verifiedMode = 0;  ///< mode of the folder that contains it
    std::vector<long> limits;
    std::vector<std::string> ran; ///< the unpacking program with its arguments and environment variables
    std::string log;
    std::string remarks;

    SignedJob() {
        makeBundle(bundle, {.build = u"1"_s});
        setInfo(bundle, u"TXUpdatePublicKeys"_s, keyTexts({0, 1}));
        writeFile(installer, "tool");
        EXPECT_EQ(
            runProcess(u"cp"_s, {u"-R"_s, resourcesFolder() + u"/TXUpdateUnpacker"_s, resources}).status, 0);
        makeBundle(unpacked, {.build = u"666"_s});
        release.bundle = path(u"release/New.app"_s);
        release.archive = path(u"cache/New.zip"_s);
        context.executable = (resources + u"/TXUpdateAuthorize"_s).toStdString();
        context.askingUser = geteuid();
        context.files = &files;
        context.privateFiles = &privateFiles;
        context.packages = {path(u"dpkg"_s).toStdString(), {path(u"rpm"_s).toStdString()}};
        context.outputOf = [](const auto &, const auto &, std::string &) { return "no"; };
        context.run = [this](const std::string &program, const std::vector<std::string> &arguments,
                             const ProgramInput &input, std::string &output, int &status) {
            ran = {program};
            ran.insert(ran.end(), arguments.begin(), arguments.end());
            ran.insert(ran.end(), input.variables.begin(), input.variables.end());
            return runProgram(program, arguments, input, output, status);
        };
        context.become = [this](int, const std::vector<std::string> &words,
                                const std::vector<std::string> &environment) {
            became = words;
            variables = environment;
            struct stat info {};
            verifiedMode =
                stat(QFile::encodeName(verified).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
            verifiedTree = treeOf(QString::fromStdString(words.at(2)));
            return ENOEXEC;
        };
        context.endAfter = [this](std::chrono::seconds limit) { limits.push_back(limit.count()); };
        context.log = [this](const std::string &line) { log += line + '\n'; };
        context.remark = [this](const std::string &line) { remarks += line + '\n'; };
    }
    QStringList job() const {
        return QStringList{u"install-signed"_s, u"4711"_s, bundle, unpacked, release.archive} +
               release.lastWords();
    }
    int run(const QStringList &words, const QString &file = {}) {
        std::vector<std::string> texts;
        for (const QString &word : words)
            texts.push_back(word.toStdString());
        log.clear();
        became.clear();
        ran.clear();
        const QByteArray name = QFile::encodeName(file.isNull() ? release.archive : file);
        const tx::posix::Descriptor archive(name.isEmpty() ? -1
                                                           : open(name.constData(), O_RDONLY | O_CLOEXEC));
        return runJob(texts, archive, context);
    }
    void expectInstalled(const char *what = "") {
        EXPECT_EQ(run(job()), JobFailed) << what << ": the installer is only played";
        ASSERT_FALSE(became.empty()) << what << ": " << log;
        EXPECT_EQ(verifiedTree, treeOf(release.bundle)) << what;
        expectNothingLeft();
    }
    void expectRefused(int status, const std::string &reason, const QStringList &words) {
        const QStringList before = treeOf(bundle);
        EXPECT_EQ(run(words), status);
        EXPECT_THAT(log, testing::HasSubstr(reason));
        EXPECT_TRUE(became.empty());
        EXPECT_EQ(treeOf(bundle), before);
        expectNothingLeft();
    }
    void expectUnverified(const std::string &reason) { expectRefused(JobUnverified, reason, job()); }
    void expectNothingLeft() const { EXPECT_EQ(namesIn(path(u"Place"_s)), QStringList{u"Host.app"_s}); }
};

} // namespace tx::test

// SPDX-License-Identifier: MIT
// The job "install-signed" in this process, with the rights of this user: what it verifies, what it unpacks,
// and what it leaves when anything fails.
#include "installer/jobs.h"
#include "model/versioncomparison.h"
#include "posix/interrupted.h"
#include "posix/versionorder.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"
#include "tests/tools/installer/signedrelease.h"
#include "tests/tools/installer/stepfiles.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::installer;
using namespace tx::test;
using testing::AllOf;
using testing::HasSubstr;

namespace {

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

/// Does something between two steps of the private copy, and makes one fail.
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
    QStringList verifiedTree; ///< what was handed to the installer
    mode_t verifiedMode = 0;  ///< of the folder around it
    std::vector<long> limits;
    std::vector<std::string> ran; ///< the program that unpacked, its arguments and its variables
    std::string log;
    std::string remarks;

    SignedJob() {
        makeBundle(bundle, {.build = u"1"_s});
        setInfo(bundle, u"TXUpdatePublicKeys"_s, keyTexts({0, 1}));
        writeFile(installer, "tool");
        EXPECT_EQ(runProcess(u"cp"_s, {u"-R"_s, resourcesFolder() + u"/ditto"_s,
                                       resourcesFolder() + u"/Archives"_s, resources})
                      .status,
                  0);
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
        EXPECT_THAT(log, HasSubstr(reason));
        EXPECT_TRUE(became.empty());
        EXPECT_EQ(treeOf(bundle), before);
        expectNothingLeft();
    }
    void expectUnverified(const std::string &reason) { expectRefused(JobUnverified, reason, job()); }
    void expectNothingLeft() const { EXPECT_EQ(namesIn(path(u"Place"_s)), QStringList{u"Host.app"_s}); }
};

TEST_F(SignedJob, InstallsWhatItHasVerifiedAndUnpackedItself) {
    for (const ArchiveKind kind :
         {ArchiveKind::Zip, ArchiveKind::Tgz, ArchiveKind::Tbz, ArchiveKind::Tzst, ArchiveKind::Tar}) {
        SCOPED_TRACE(suffixOf(kind));
        release.kind = kind;
        // What it is called is the user's choice.
        release.archive = path(u"cache/update"_s);
        release.make();
        limits.clear();
        expectInstalled(suffixOf(kind));
        EXPECT_THAT(became, testing::ElementsAre(installer.toStdString(), "4711",
                                                 (verified + u"/New.app"_s).toStdString(),
                                                 bundle.toStdString(), release.archive.toStdString()));
        EXPECT_THAT(variables, testing::ElementsAre("TXUPDATE_VERIFIED=" + unpacked.toStdString()));
        EXPECT_EQ(verifiedMode, 0755U) << "the user must be able to read what is going to be installed";
        EXPECT_THAT(limits, testing::ElementsAre(900, 0)) << "it does not wait forever, and ends with that";
        EXPECT_THAT(ran.back(), "TXUPDATE_UNARCHIVER_LIMIT=8589934592");
        EXPECT_EQ(remarks, "");
    }
    EXPECT_THAT(log, HasSubstr("could not be started: Exec format error"));
}

TEST_F(SignedJob, StepsAreTakenUnderTheLockAndNothingIsLeft) {
    release.make();
    expectInstalled();
    EXPECT_EQ(files.done,
              (QStringList{u"lock .Host.app.txupdate-lock"_s, u"remove .Host.app.txupdate-verified"_s,
                           u"make .Host.app.txupdate-verified"_s, u"bits New.app"_s,
                           u"open .Host.app.txupdate-verified"_s, u"remove .Host.app.txupdate-verified"_s,
                           u"removeFile .Host.app.txupdate-lock"_s}));
    // What a run left that was killed is no part of the next.
    makeBundle(verified + u"/New.app"_s, {.build = u"9"_s});
    makeBundle(verified + u"/Other.app"_s, {.build = u"9"_s});
    expectInstalled();
}

TEST_F(SignedJob, FailingStepInstallsNothing) {
    release.make();
    const QStringList before = treeOf(bundle);
    for (int step = 1; step <= 5; ++step) {
        files.done.clear();
        files.failing = step;
        EXPECT_EQ(run(job()), JobFailed);
        SCOPED_TRACE(files.done.at(step - 1).toStdString());
        EXPECT_TRUE(became.empty());
        EXPECT_THAT(log, HasSubstr("Input/output error"));
        EXPECT_EQ(treeOf(bundle), before);
        files.failing = 0;
        expectInstalled("the next run");
    }
    for (const char *step : {"create", "reopen", "read", "write"}) {
        privateFiles.failing = step;
        SCOPED_TRACE(step);
        expectRefused(JobFailed, "No space left on device", job());
    }
    privateFiles.failing.clear();
    // The program that unpacks cannot be run, fails, or is not one of the framework's own.
    const auto runs = context.run;
    context.run = [](const auto &, const auto &, const auto &, std::string &, int &) { return "too slow"; };
    expectRefused(JobFailed, "the archive cannot be unpacked: too slow", job());
    context.run = [](const auto &, const auto &, const auto &, std::string &output, int &status) {
        output = "disk full";
        status = 1;
        return "";
    };
    expectRefused(JobFailed, "ended with status 1: disk full", job());
    context.run = runs;
    ASSERT_TRUE(QFile::rename(resources + u"/ditto"_s, path(u"ditto"_s)));
    ASSERT_TRUE(QFile::link(path(u"ditto"_s), resources + u"/ditto"_s));
    expectRefused(JobFailed, "ditto is a link", job());
    EXPECT_TRUE(ran.empty());
}

TEST_F(SignedJob, OnlyOneInstallationAtATime) {
    release.make();
    tx::posix::Descriptor lock;
    const std::string path = tx::lockPathFor(bundle.toStdString());
    ASSERT_FALSE(Files().lock(path, lock));
    EXPECT_EQ(run(job()), JobFailed);
    EXPECT_EQ(log, "another installation of " + bundle.toStdString() + " is running\n");
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(limits.empty());
    EXPECT_TRUE(QFile::exists(QString::fromStdString(path))) << "it is not this one's";
}

TEST_F(SignedJob, EverythingButTheArchiveThatWasSignedIsRefused) {
    struct Case {
        const char *what;
        std::function<void(SignedRelease &)> make;
        const char *reason;
    };
    const Case cases[] = {
        {"a bit flipped at the beginning",
         [](auto &r) {
             r.make();
             r.bytes.front() ^= 1;
         },
         "the archive is not the one that key "},
        {"a bit flipped at the end",
         [](auto &r) {
             r.make();
             r.bytes.back() ^= 1;
         },
         "the archive is not the one that key "},
        {"a byte more",
         [](auto &r) {
             r.make();
             r.bytes += 'x';
         },
         "the signature is for "},
        {"a byte less",
         [](auto &r) {
             r.make();
             r.bytes.pop_back();
         },
         "the signature is for "},
        {"empty",
         [](auto &r) {
             r.make();
             r.bytes.clear();
         },
         "the archive has 0 bytes"},
        {"signed by somebody else",
         [](auto &r) {
             r.signers = {2};
             r.make();
         },
         "is by one of the application's keys; one is by key "},
        {"two signatures of which one is bad",
         [](auto &r) {
             r.signers = {0, 1};
             r.make();
             r.texts[1] = signText(key(1), "other bytes", tx::trust::archiveComment(r.claim));
         },
         "the archive is not the one that key "},
        {"there is no signature",
         [](auto &r) {
             r.make();
             r.texts.clear();
         },
         "there is no signature"},
        {"no text at all",
         [](auto &r) {
             r.make();
             r.texts = {"x"};
         },
         "four lines"},
        {"a signature of a feed",
         [](auto &r) {
             r.make();
             r.texts = {signText(key(0), r.bytes,
                                 "txupdate-feed:1 bundle:org.example.Host feed:release serial:1 "
                                 "expires:never")};
         },
         ""},
        {"another trusted comment",
         [](auto &r) {
             r.make();
             r.texts[0] = replaced(r.texts[0], "build:2", "build:3");
         },
         ""},
        {"signed for another application",
         [](auto &r) {
             r.pack();
             r.claim.bundle = "org.example.Other";
             r.sign();
         },
         "the signature is for the application \"org.example.Other\", expected was \"org.example.Host\""},
        {"signed for another size",
         [](auto &r) {
             r.pack();
             ++r.claim.size;
             r.sign();
         },
         "the signature is for "},
        {"signed for another build",
         [](auto &r) {
             r.pack();
             r.claim.build = "3";
             r.sign();
         },
         "the archive holds build \"2\", expected was \"3\""},
        {"another application in it",
         [](auto &r) {
             r.description.identifier = u"org.example.Other"_s;
             r.pack();
             r.claim.bundle = "org.example.Host";
             r.sign();
         },
         "the archive holds no application with the identifier org.example.Host"},
        {"the installed build, replayed",
         [](auto &r) {
             r.description.build = u"1"_s;
             r.make();
         },
         "build 1 is not newer than the installed build 1"},
        {"an older build, replayed",
         [](auto &r) {
             r.description.build = u"0.9"_s;
             r.make();
         },
         "build 0.9 is not newer than the installed build 1"},
        {"an older build as a pre-release",
         [](auto &r) {
             r.description.build = u"1b1"_s;
             r.make();
         },
         "build 1b1 is not newer than the installed build 1"},
        {"a build that cannot be compared",
         [](auto &r) {
             r.description.build = u"2\u00E9"_s;
             r.make();
         },
         "only builds in ASCII can be compared"},
        {"without keys of its own",
         [](auto &r) {
             r.keys = {};
             r.make();
         },
         "the application in the archive has no usable keys of its own"},
        {"with mistyped keys",
         [](auto &r) {
             r.keys = QVariantList{u"minisign:RWQ"_s};
             r.make();
         },
         "the application in the archive has no usable keys of its own"},
        {"with somebody else's keys",
         [](auto &r) {
             r.keys = keyTexts({2});
             r.make();
         },
         "the keys of the application in the archive do not verify it"},
        {"with keys of which none has signed",
         [](auto &r) {
             r.keys = keyTexts({1});
             r.make();
         },
         "the keys of the application in the archive do not verify it"},
        {"nothing in it",
         [](auto &r) {
             r.pack();
             makeArchive(r.archive, ArchiveKind::Tar, {});
             r.bytes = readFile(r.archive).toStdString();
             r.claim.size = r.bytes.size();
             r.sign();
         },
         "the archive holds no application"},
        {"two of them",
         [](auto &r) {
             r.pack();
             QList<ArchiveEntry> entries = entriesOf(r.bundle);
             for (ArchiveEntry entry : entriesOf(r.bundle)) {
                 entry.name.replace(u"New.app"_s, u"Twin.app"_s);
                 entries << entry;
             }
             makeArchive(r.archive, ArchiveKind::Zip, entries);
             r.bytes = readFile(r.archive).toStdString();
             r.claim.size = r.bytes.size();
             r.sign();
         },
         "the archive holds more than one application with the identifier org.example.Host"},
    };
    const SignedRelease fresh = release;
    for (const Case &each : cases) {
        SCOPED_TRACE(each.what);
        release = fresh;
        each.make(release);
        writeFile(release.archive, QByteArray::fromStdString(release.bytes));
        expectUnverified(each.reason);
    }
}

TEST_F(SignedJob, WhatCannotBeUnpackedOrStartedIsNotInstalled) {
    release.pack();
    release.bytes = "no archive at all";
    writeFile(release.archive, QByteArray::fromStdString(release.bytes));
    release.claim.size = release.bytes.size();
    release.sign();
    expectRefused(JobFailed, "the archive cannot be unpacked: ", job());
    release.description.program = "";
    release.make();
    expectRefused(JobFailed, "New.app", job());
    // Its Info.plist is a link to another one in the archive.
    release.description.program = "#!/bin/sh\nexit 0\n";
    release.pack();
    ASSERT_TRUE(
        QFile::rename(release.bundle + u"/Contents/Info.plist"_s, release.bundle + u"/Contents/Other"_s));
    ASSERT_EQ(symlink("Other", QFile::encodeName(release.bundle + u"/Contents/Info.plist"_s).constData()), 0);
    release.packAgain();
    release.sign();
    expectUnverified("the archive holds no application");
}

TEST_F(SignedJob, LimitsOfTheApplicationHold) {
    release.make();
    setInfo(bundle, u"TXUpdateMaximumArchiveSize"_s, qint64(release.bytes.size()));
    setInfo(bundle, u"TXUpdateMaximumUnpackedSize"_s, qint64(1) << 20);
    expectInstalled();
    EXPECT_EQ(ran.back(), "TXUPDATE_UNARCHIVER_LIMIT=1048576");
    setInfo(bundle, u"TXUpdateMaximumArchiveSize"_s, qint64(release.bytes.size()) - 1);
    expectUnverified("the application accepts at most " + std::to_string(release.bytes.size() - 1));
    EXPECT_TRUE(limits.size() == 2) << "nothing was copied";
    setInfo(bundle, u"TXUpdateMaximumArchiveSize"_s, 0);
    setInfo(bundle, u"TXUpdateMaximumUnpackedSize"_s, 4096);
    expectRefused(JobFailed, "takes more room than is accepted", job());
}

TEST_F(SignedJob, ArchiveThatIsExchangedAfterwardsChangesNothing) {
    release.make();
    SignedRelease evil = release;
    evil.bundle = path(u"evil/New.app"_s);
    evil.archive = path(u"cache/evil.zip"_s);
    evil.description.build = u"3"_s;
    evil.description.program = "#!/bin/sh\ntouch /tmp/evil\n";
    evil.pack();
    evil.bytes.resize(release.bytes.size(), ' ');
    const QByteArray archive = QFile::encodeName(release.archive);
    const QByteArray other = QFile::encodeName(evil.archive);
    const struct {
        const char *what;
        std::function<void()> exchange;
    } cases[] = {
        {"by a link",
         [&] {
             ASSERT_EQ(unlink(archive.constData()), 0);
             ASSERT_EQ(symlink(other.constData(), archive.constData()), 0);
         }},
        {"by a rename", [&] { ASSERT_EQ(rename(other.constData(), archive.constData()), 0); }},
        {"by a write to the same file",
         [&] {
             const tx::posix::Descriptor file(open(archive.constData(), O_WRONLY | O_CLOEXEC));
             ASSERT_EQ(pwrite(file.get(), evil.bytes.data(), evil.bytes.size(), 0),
                       ssize_t(evil.bytes.size()));
         }},
        {"by a truncation", [&] { ASSERT_EQ(truncate(archive.constData(), 0), 0); }},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        unlink(archive.constData());
        writeFile(release.archive, QByteArray::fromStdString(release.bytes));
        writeFile(evil.archive, QByteArray::fromStdString(evil.bytes));
        bool isExchanged = false;
        privateFiles.afterCopy = [&] {
            each.exchange();
            isExchanged = true;
        };
        expectInstalled(each.what);
        EXPECT_TRUE(isExchanged);
        EXPECT_NE(readFile(release.archive).toStdString(), release.bytes) << "the exchange did happen";
    }
}

TEST_F(SignedJob, ArchiveThatIsChangedWhileItIsCopiedIsRefused) {
    // More than is read at once, and more than a compression would leave of zeros.
    release.pack();
    QByteArray noise(3 << 20, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : noise)
        byte = char((state = state * 1664525 + 1013904223) >> 24U);
    writeFile(release.bundle + u"/Contents/noise"_s, noise);
    release.packAgain();
    release.sign();
    ASSERT_GT(release.bytes.size(), size_t(2) << 20);
    const QByteArray archive = QFile::encodeName(release.archive);
    const auto writeAt = [&](off_t place) {
        const tx::posix::Descriptor file(open(archive.constData(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(pwrite(file.get(), "evil", 4, place), 4);
    };
    const struct {
        const char *what;
        std::function<void()> change;
    } cases[] = {
        {"what comes next", [&] { writeAt(1 << 20); }},
        {"the end", [&] { writeAt(off_t(release.bytes.size()) - 4); }},
        {"shorter", [&] { ASSERT_EQ(truncate(archive.constData(), 1 << 20), 0); }},
        {"longer", [&] { ASSERT_EQ(truncate(archive.constData(), off_t(release.bytes.size()) + 1), 0); }},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        writeFile(release.archive, QByteArray::fromStdString(release.bytes));
        privateFiles.afterFirstRead = each.change;
        expectUnverified("");
        EXPECT_TRUE(ran.empty()) << "nothing is unpacked";
    }
    writeFile(release.archive, QByteArray::fromStdString(release.bytes));
    // What was read already is not read again.
    privateFiles.afterFirstRead = [&] { writeAt(0); };
    expectInstalled();
}

TEST_F(SignedJob, PlainKeyVerifiesTheCopyItself) {
    setInfo(bundle, u"TXUpdatePublicKeys"_s, QVariantList{QString::fromStdString(plainKeyText(key(0)))});
    release.keys = QVariantList{QString::fromStdString(plainKeyText(key(0)))};
    release.pack();
    const auto wordsFor = [&](size_t signer, const std::string &length) {
        const tx::trust::SignatureBytes signature = key(signer).sign(release.bytes);
        QStringList words = job();
        words[5] = QString::fromStdString(tx::trust::base64(signature.data(), signature.size()));
        words[6] = QString::fromStdString(length);
        return words;
    };
    const std::string length = std::to_string(release.bytes.size());
    EXPECT_EQ(run(wordsFor(0, length)), JobFailed);
    EXPECT_FALSE(became.empty()) << log;
    EXPECT_EQ(verifiedTree, treeOf(release.bundle));
    expectNothingLeft();
    expectRefused(JobUnverified, "is not the one that the application's plain key has signed",
                  wordsFor(1, length));
    expectRefused(JobUnverified, "bytes, the signature is for", wordsFor(0, length + "0"));
    expectRefused(JobUnverified, "needs its \"length\"", wordsFor(0, ""));
    expectRefused(JobUnverified, "there is no signature", job());
    // Its build is in no comment, and still not an older one.
    release.description.build = u"1"_s;
    release.pack();
    expectRefused(JobUnverified, "build 1 is not newer than the installed build 1",
                  wordsFor(0, std::to_string(release.bytes.size())));
}

TEST_F(SignedJob, KeysOfTheInstalledApplicationDecideWhichJobItTakes) {
    release.make();
    const QStringList unsignedJob{u"install"_s, u"4711"_s, unpacked, release.archive};
    const QString none = u""_s;
    context.saidUnverified = true;
    EXPECT_EQ(run(unsignedJob, none), JobRefused);
    EXPECT_THAT(log, HasSubstr("has keys, so it is updated only by archives that they have signed"));
    EXPECT_TRUE(became.empty());
    // Malformed keys are never "no keys".
    for (const QVariant &keys : {QVariant(QVariantList{}), QVariant(QVariantList{u"minisign:x"_s}),
                                 QVariant(u"minisign:x"_s), QVariant(true)}) {
        setInfo(bundle, u"TXUpdatePublicKeys"_s, keys);
        EXPECT_EQ(run(unsignedJob, none), JobUnverified);
        EXPECT_THAT(log, HasSubstr("TXUpdatePublicKeys"));
        EXPECT_TRUE(became.empty());
        expectUnverified("TXUpdatePublicKeys");
    }
    setInfo(bundle, u"TXUpdatePublicKeys"_s, {});
    expectRefused(JobRefused, "has no keys (TXUpdatePublicKeys) to verify an update with", job());
    // Without keys, whoever was asked must have been told.
    context.saidUnverified = false;
    EXPECT_EQ(run(unsignedJob, none), JobRefused);
    EXPECT_THAT(log, HasSubstr("did not say that the update is not verified"));
    EXPECT_TRUE(became.empty());
    EXPECT_EQ(remarks, "");
    context.saidUnverified = true;
    EXPECT_EQ(run(unsignedJob, none), JobFailed);
    EXPECT_THAT(became, testing::ElementsAre(installer.toStdString(), "4711", unpacked.toStdString(),
                                             bundle.toStdString(), release.archive.toStdString()));
    EXPECT_TRUE(variables.empty());
    EXPECT_THAT(remarks, HasSubstr(bundle.toStdString() + " has no keys"));
    // What cannot be read has no keys that could be told.
    writeFile(bundle + u"/Contents/Info.plist"_s, "<plist>");
    became.clear();
    EXPECT_EQ(run(unsignedJob, none), JobFailed);
    EXPECT_THAT(log, HasSubstr("Info.plist is not a property list"));
    EXPECT_TRUE(became.empty());
    expectRefused(JobFailed, "Info.plist is not a property list", job());
}

TEST_F(SignedJob, WordsThatDoNotFitAreRefused) {
    release.make();
    makeBundle(path(u"Place/Other.app"_s), {.build = u"1"_s});
    makeBundle(path(u"elsewhere/Host.app"_s), {.build = u"1"_s});
    ASSERT_TRUE(QFile::link(bundle, path(u"link.app"_s)));
    const QStringList right = job();
    const auto with = [&](int word, const QString &value) {
        QStringList words = right;
        words[word] = value;
        return words;
    };
    const struct {
        QStringList words;
        const char *reason;
    } cases[] = {
        {right.first(6), "expected \"install"},
        {with(0, u"install-signe"_s), "expected \"install"},
        {with(1, u"1"_s), "is not the process identifier"},
        {with(1, u"-7"_s), "is not the process identifier"},
        {with(2, path(u"Place/Other.app"_s)), "is not the application that this program is a part of"},
        {with(2, path(u"elsewhere/Host.app"_s)), "is not the application that this program is a part of"},
        {with(2, path(u"link.app"_s)), "is a link"},
        {with(2, u"Host.app"_s), "is not an absolute path"},
        {with(2, path(u"none"_s)), "No such file"},
        {with(3, release.archive), "is not a folder"},
        {with(3, u"New.app"_s), "is not an absolute path"},
        {with(4, unpacked), "is not a file"},
        {with(4, path(u"none"_s)), "No such file"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(run(each.words), JobRefused) << each.reason;
        EXPECT_THAT(log, AllOf(HasSubstr("refused: "), HasSubstr(each.reason)));
        EXPECT_TRUE(became.empty());
        EXPECT_TRUE(ran.empty());
    }
    EXPECT_EQ(run(right, u""_s), JobRefused);
    EXPECT_THAT(log, HasSubstr("the archive did not come with the job"));
    // The other jobs take none.
    setInfo(bundle, u"TXUpdatePublicKeys"_s, {});
    context.saidUnverified = true;
    EXPECT_EQ(run({u"install"_s, u"4711"_s, unpacked, release.archive}), JobRefused);
    EXPECT_THAT(log, HasSubstr("the job \"install\" takes no archive"));
    EXPECT_EQ(run({u"move"_s, path(u"Place"_s)}), JobRefused);
    EXPECT_THAT(log, HasSubstr("the job \"move\" takes no archive"));
    EXPECT_TRUE(became.empty());
}

TEST_F(SignedJob, ApplicationOfAPackageIsNotExchanged) {
    release.make();
    writeFile(path(u"dpkg/info/mine.list"_s), bundle.toUtf8() + "\n");
    EXPECT_EQ(run(job()), JobFailed);
    EXPECT_THAT(log, HasSubstr("belongs to the package mine of dpkg"));
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(ran.empty());
}

TEST_F(SignedJob, AsRootUsesOnlyWhatNobodyElseCanChange) {
    release.make();
    // This place belongs to the user, or is below a folder that everybody can write to.
    ASSERT_EQ(chmod(QFile::encodeName(path(u"Place"_s)).constData(), 0777), 0);
    context.asRoot = true;
    EXPECT_EQ(run(job()), JobForbidden);
    EXPECT_THAT(log, testing::AnyOf(HasSubstr("can be written to by other users"),
                                    HasSubstr("does not belong to root")));
    EXPECT_TRUE(became.empty());
    EXPECT_TRUE(ran.empty());
}

TEST(VersionOrder, IsTheHostsForVersionsInAscii) {
    for (int c = 0; c < 128; ++c) {
        const auto type = TXUpdateTypeOfVersionCharacter(QString(QChar(c)));
        const tx::versions::Kind kind = tx::versions::kindOfAscii(static_cast<unsigned char>(c));
        EXPECT_EQ(kind == tx::versions::Kind::Number, type == TXUpdateVersionCharacterTypeNumber) << c;
        EXPECT_EQ(kind == tx::versions::Kind::Separator, type == TXUpdateVersionCharacterTypeSeparator) << c;
    }
    const char *versions[] = {"",     "1",          "1.0",        "1.0b1", "1.0.1", "1b2",
                              "1.b2", "2147483648", "2147483649", "a",     "-"};
    for (const char *a : versions) {
        for (const char *b : versions)
            EXPECT_EQ(tx::versions::compareAscii(a, b),
                      tx::compareVersions(QString::fromLatin1(a), QString::fromLatin1(b)))
                << a << ' ' << b;
    }
    EXPECT_FALSE(tx::versions::compareAscii("1\xC3\xA9", "1"));
    EXPECT_FALSE(tx::versions::compareAscii("1", "1\x80"));
}

} // namespace

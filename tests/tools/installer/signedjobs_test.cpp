// SPDX-License-Identifier: MIT
// The job "install-signed" in this process, run as this user: what it verifies, what it unpacks, and which
// files remain after a failure.
#include "tests/tools/installer/signedjobtest.h"

using namespace Qt::StringLiterals;
using namespace tx::installer;
using namespace tx::test;
using testing::AllOf;
using testing::HasSubstr;

namespace {

TEST_F(SignedJob, InstallsWhatItHasVerifiedAndUnpackedItself) {
    for (const ArchiveKind kind :
         {ArchiveKind::Zip, ArchiveKind::Tgz, ArchiveKind::Tbz, ArchiveKind::Tzst, ArchiveKind::Tar}) {
        SCOPED_TRACE(suffixOf(kind));
        release.kind = kind;
        // The user may choose any file name.
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
    // Files that a killed run left do not become part of the next run.
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
    // The unpacking program cannot be run, fails, or is not one of the framework's own.
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
    ASSERT_TRUE(QFile::rename(resources + u"/TXUpdateUnpacker"_s, path(u"unpacker"_s)));
    ASSERT_TRUE(QFile::link(path(u"unpacker"_s), resources + u"/TXUpdateUnpacker"_s));
    expectRefused(JobFailed, "TXUpdateUnpacker is a link", job());
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
    // The application's Info.plist is a link to another one in the archive.
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
    // Random bytes: the archive must be larger than one read, and zeros would compress to almost nothing.
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
    // Bytes that were read once are not read again.
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
    // The signature does not name its build, but an older build is refused anyway.
    release.description.build = u"1"_s;
    release.pack();
    expectRefused(JobUnverified, "build 1 is not newer than the installed build 1",
                  wordsFor(0, std::to_string(release.bytes.size())));
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/trust/trusttest.h"
#include "trust/verifiedarchive.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

using namespace tx::trust;
using namespace tx::test;
using namespace Qt::StringLiterals;

namespace {

const std::string bundle = "org.example.Host";

ArchiveClaim claimFor(const std::string &bytes) { return {bundle, "1043", bytes.size(), {}}; }

std::string sign(size_t number, const std::string &bytes) {
    return signText(key(number), bytes, archiveComment(claimFor(bytes)));
}

std::string someBytes(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 1;
    for (char &byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24U);
    }
    return bytes;
}

PlainSignature plainSignature(size_t number, const std::string &bytes) {
    return {key(number).sign(bytes), bytes.size()};
}

DigestStream streamOf(const std::string &bytes) {
    DigestStream stream;
    stream.add(bytes.data(), bytes.size());
    return stream;
}

const WantedArchive wanted{bundle, "1043", "release"};

Outcome<ArchiveProof> find(const std::vector<std::string> &texts, const WantedArchive &want = wanted) {
    return ArchiveProof::find(keysOf({keyText(key(0)), keyText(key(1))}), {texts, {}}, want);
}

TEST(ArchiveClaim, IsWrittenAsItIsRead) {
    const ArchiveClaim claims[] = {{bundle, "1043", 0, {}},
                                   {"org.my--app", "My App", 9999999999999999999U, "caf\xC3\xA9"},
                                   {"-", "1.0 (2)", 1, "release"}};
    for (const ArchiveClaim &claim : claims) {
        const std::string comment = archiveComment(claim);
        const auto words = Words::parse(comment);
        ASSERT_TRUE(words) << words.fault().what;
        const auto back = parseArchiveComment(*words);
        ASSERT_TRUE(back) << back.fault().what;
        EXPECT_EQ(*back, claim);
    }
    EXPECT_EQ(archiveComment({"org.my--app", "1 2", 7, "b-c"}),
              "txupdate-archive:1 bundle:org.my-%2Dapp build:1%202 size:7 feed:b-c");
}

TEST(ArchiveClaim, MissingAndMalformedWordsAreNamed) {
    const std::pair<const char *, const char *> table[] = {
        {"txupdate-archive:1 build:1 size:1", "the word \"bundle:\" is missing"},
        {"txupdate-archive:1 bundle:b size:1", "the word \"build:\" is missing"},
        {"txupdate-archive:1 bundle:b build:1", "a number of bytes was expected behind \"size:\""},
        {"txupdate-archive:1 bundle:b build:1 size:01", "\"01\" was found"},
        {"txupdate-archive:1 bundle:b build:1 size:-1", "\"-1\" was found"},
        {"txupdate-archive:1 bundle:b build:1 size:10000000000000000000", "a number of bytes"},
        {"txupdate-archive:1 bundle:a--b build:1 size:1",
         "value of \"bundle:\" in the trusted comment is not UTF-8"},
        {"txupdate-archive:1 bundle:b build:%41 size:1", "value of \"build:\""},
        {"txupdate-archive:1 bundle:b build:1 size:1 feed:%2f", "value of \"feed:\""},
    };
    for (const auto &[comment, part] : table) {
        const auto words = Words::parse(comment);
        ASSERT_TRUE(words) << comment;
        expectFault(parseArchiveComment(*words), FaultKind::Signature, part, comment);
        // The same in a signature that is otherwise good.
        expectFault(find({signText(key(0), "x", comment)}), FaultKind::Signature, part, comment);
    }
}

TEST(ArchiveProof, IsKnownBeforeTheArchive) {
    const auto proof = find({sign(0, "archive")});
    ASSERT_TRUE(proof) << proof.fault().what;
    EXPECT_EQ(proof->size(), 7U);
    EXPECT_EQ(proof->claim(), claimFor("archive"));
    EXPECT_FALSE(proof->check(streamOf("archive")));
    expectFault(proof->check(streamOf("Archive")), FaultKind::Forged, "the archive is not the one that key");
    expectFault(proof->check(streamOf("archiv")), FaultKind::Mismatch,
                "the archive has 6 bytes, the signature is for 7");
    expectFault(proof->check(streamOf("archive!")), FaultKind::Mismatch, "has 8 bytes");
    expectFault(proof->check(streamOf("")), FaultKind::Mismatch, "has 0 bytes");
}

TEST(ArchiveProof, OtherIdentifierBuildAndFeedAreRefused) {
    const std::string text = sign(0, "archive");
    const std::string beta = signText(key(0), "archive", archiveComment({bundle, "1043", 7, "beta"}));
    struct {
        std::string text;
        WantedArchive want;
        const char *part;
    } const table[] = {
        {text,
         {"org.example.Hos", "1043", "release"},
         "for the application \"org.example.Host\", expected was \"org.example.Hos\""},
        {text, {bundle, "1044", "release"}, "for build \"1043\", expected was \"1044\""},
        {text, {bundle, "1043.0", "release"}, "for build"},
        {beta, wanted, "for the feed \"beta\", expected was \"release\""},
        {text, {"", {}, {}}, "for the application"},
    };
    for (const auto &row : table)
        expectFault(find({row.text}, row.want), FaultKind::Mismatch, row.part, row.part);
    EXPECT_TRUE(find({beta}, {bundle, "1043", "beta"}));
    EXPECT_TRUE(find({beta}, {bundle, {}, {}}));         // where neither is known
    EXPECT_TRUE(find({text}, {bundle, "1043", "beta"})); // a signature for any feed
}

TEST(ArchiveProof, ExaminingTellsAllButWhetherASignatureIsGenuine) {
    const PublicKeys keys = keysOf({keyText(key(0)), plainKeyText(key(1))});
    const std::string good = sign(0, "archive");
    const auto examine = [&](const ArchiveSignatures &signatures, const WantedArchive &want = wanted) {
        return ArchiveProof::examine(keys, viewsOf(signatures.texts), signatures.plain, want);
    };
    EXPECT_FALSE(examine({{good}, {}}));
    EXPECT_FALSE(examine({{}, plainSignature(1, "archive")}));
    EXPECT_FALSE(examine({{replaced(good, "size:7", "size:8")}, {}})); // find() refuses it
    expectFault(find({replaced(good, "size:7", "size:8")}), FaultKind::Forged, "was changed");
    expectFault(examine({}), FaultKind::Unsigned, "there is no signature");
    expectFault(examine({{sign(2, "archive")}, {}}), FaultKind::Unsigned, "by one of the application's keys");
    expectFault(examine({{"x"}, {}}), FaultKind::Signature, "four lines");
    expectFault(examine({{good}, {}}, {bundle, "1044", {}}), FaultKind::Mismatch, "for build \"1043\"");
}

TEST(ArchiveProof, FeedsSignatureAndFeedKeysAreNoneForArchives) {
    const std::string feedText = signText(
        key(0), "archive", "txupdate-feed:1 bundle:org.example.Host feed:release serial:1 expires:never");
    expectFault(find({feedText}), FaultKind::Unsigned, "no signature with \"txupdate-archive:1\"");
    expectFault(
        ArchiveProof::find(keysOf({keyText(key(0), "minisign-feed:")}), {{sign(0, "archive")}, {}}, wanted),
        FaultKind::Unsigned, "no signature");
}

TEST(ArchiveProof, OldAndNewKeysSignTheBridge) {
    const std::vector<std::string> both = {sign(0, "archive"), sign(1, "archive")};
    for (const size_t number : {0U, 1U}) {
        const auto proof = ArchiveProof::find(keysOf({keyText(key(number))}), {both, {}}, wanted);
        ASSERT_TRUE(proof) << proof.fault().what;
        EXPECT_FALSE(proof->check(streamOf("archive")));
        // A host that skipped the build with both keys.
        expectFault(ArchiveProof::find(keysOf({keyText(key(number))}), {{both[1 - number]}, {}}, wanted),
                    FaultKind::Unsigned, "by one of the application's keys");
    }
}

TEST(ArchiveProof, OneBitFlippedAtEveryThousandthByteIsNoticed) {
    std::string bytes = someBytes(1000000);
    const auto proof = find({sign(0, bytes)});
    ASSERT_TRUE(proof) << proof.fault().what;
    EXPECT_FALSE(proof->check(streamOf(bytes)));
    int count = 0;
    for (size_t at = 0; at < bytes.size(); at += 1000) {
        const char bit = char(1 << (count++ % 8));
        bytes[at] = char(bytes[at] ^ bit);
        EXPECT_TRUE(proof->check(streamOf(bytes))) << at;
        bytes[at] = char(bytes[at] ^ bit);
    }
    EXPECT_EQ(count, 1000);
}

TEST(ArchiveProof, OneBitFlippedAnywhereInTheSignatureIsNoticed) {
    const std::string good = sign(0, "archive");
    for (size_t at = 0; at < good.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string text = good;
            text[at] = char(text[at] ^ (1 << bit));
            EXPECT_FALSE(find({text})) << at << " " << bit;
        }
    }
    for (size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(find({good.substr(0, length)})) << length;
}

TEST(PlainSignature, NeedsItsLength) {
    const std::string text = base64(key(0).sign("x").data(), 64);
    const auto good = PlainSignature::parse(text, "1");
    ASSERT_TRUE(good) << good.fault().what;
    EXPECT_EQ(good->size, 1U);
    for (const char *length : {"", "0", "01", "-1", "x", "10000000000000000000"})
        expectFault(PlainSignature::parse(text, length), FaultKind::Signature, "needs its \"length\"",
                    length);
    for (const std::string &bad : {std::string(), text + " ", text.substr(0, 84), text + "AAAA"})
        expectFault(PlainSignature::parse(bad, "1"), FaultKind::Signature, "the Base64 of 64 bytes", bad);
}

/// Copies that take note, or fail at a step.
class Steps final : public tx::PrivateFiles {
public:
    std::function<void(int step)> at = [](int) {};
    int failsAt = -1;
    bool writesNothing = false;
    ssize_t mostAtOnce = 1 << 30;

    int create(int folder) override { return fails() ? -1 : PrivateFiles::create(folder); }
    int reopenForReading(int file) override { return fails() ? -1 : PrivateFiles::reopenForReading(file); }
    ssize_t read(int file, void *buffer, size_t size) override {
        return fails() ? -1 : PrivateFiles::read(file, buffer, std::min(size, size_t(mostAtOnce)));
    }
    ssize_t write(int file, const void *bytes, size_t size) override {
        if (writesNothing)
            return 0;
        return fails() ? -1 : PrivateFiles::write(file, bytes, std::min(size, size_t(mostAtOnce)));
    }
    int steps = 0;

private:
    bool fails() {
        at(steps);
        errno = ENOSPC;
        return steps++ == failsAt;
    }
};

class VerifiedArchiveTest : public FrameworkTest {
protected:
    Outcome<VerifiedArchive> verify(const ArchiveSignatures &signatures, const PublicKeys &keys,
                                    const WantedArchive &want = wanted) {
        QFile source(path(u"archive"_s));
        EXPECT_TRUE(source.open(QIODevice::ReadWrite));
        source.seek(3); // wherever the descriptor is
        const int folder = ::open(qPrintable(path(u"."_s)), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_GE(folder, 0);
        Outcome<VerifiedArchive> archive =
            VerifiedArchive::make(keys, signatures, want, source.handle(), folder, steps);
        ::close(folder);
        return archive;
    }
    Outcome<VerifiedArchive> verify(const std::vector<std::string> &texts) {
        return verify({texts, {}}, appKeys);
    }
    void write(const std::string &bytes) { writeFile(path(u"archive"_s), QByteArray::fromStdString(bytes)); }
    static std::string contentOf(const VerifiedArchive &archive) {
        std::string bytes(archive.size() + 1, '\0');
        const ssize_t count = pread(archive.descriptor(), bytes.data(), bytes.size(), 0);
        return bytes.substr(0, size_t(std::max<ssize_t>(count, 0)));
    }

    const PublicKeys appKeys = keysOf({keyText(key(0)), keyText(key(1))});
    Steps steps;
};

using VerifiedCopy = VerifiedArchiveTest;

TEST_F(VerifiedCopy, HoldsTheSignedBytes) {
    for (const size_t size : {size_t(0), size_t(1), size_t(256 << 10) - 1, size_t(256 << 10),
                              size_t(256 << 10) + 1, size_t(1000000)}) {
        const std::string bytes = someBytes(size);
        write(bytes);
        const auto archive = verify({sign(0, bytes)});
        ASSERT_TRUE(archive) << size << archive.fault().what;
        EXPECT_EQ(contentOf(*archive), bytes) << size;
        EXPECT_EQ(archive->claim(), claimFor(bytes));
        EXPECT_EQ(lseek(archive->descriptor(), 0, SEEK_CUR), 0);
    }
}

TEST_F(VerifiedCopy, CannotBeWrittenAndHasNoName) {
    write("archive");
    const QStringList before = namesIn(path({}));
    const auto archive = verify({sign(0, "archive")});
    ASSERT_TRUE(archive) << archive.fault().what;
    EXPECT_EQ(namesIn(path({})), before);
    struct stat info {};
    ASSERT_EQ(fstat(archive->descriptor(), &info), 0);
    EXPECT_EQ(info.st_nlink, 0U);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    EXPECT_EQ(fcntl(archive->descriptor(), F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_TRUE((fcntl(archive->descriptor(), F_GETFD) & FD_CLOEXEC) != 0);
    EXPECT_LT(::write(archive->descriptor(), "x", 1), 0);
    EXPECT_LT(ftruncate(archive->descriptor(), 0), 0);
}

TEST_F(VerifiedCopy, IsNotTouchedByWhatHappensToTheArchiveAfterwards) {
    const std::string bytes = someBytes(300000);
    const std::function<void()> attacks[] = {
        [this] { // a write to the same file
            QFile file(path(u"archive"_s));
            ASSERT_TRUE(file.open(QIODevice::ReadWrite));
            file.write("evil");
        },
        [this] { ASSERT_TRUE(QFile::resize(path(u"archive"_s), 0)); },
        [this] { // another file of that name
            writeFile(path(u"evil"_s), "evil");
            ASSERT_EQ(::rename(qPrintable(path(u"evil"_s)), qPrintable(path(u"archive"_s))), 0);
        },
        [this] { // a link
            writeFile(path(u"evil"_s), "evil");
            QFile::remove(path(u"archive"_s));
            ASSERT_TRUE(QFile::link(path(u"evil"_s), path(u"archive"_s)));
        },
    };
    for (const auto &attack : attacks) {
        QFile::remove(path(u"archive"_s));
        write(bytes);
        const auto archive = verify({sign(0, bytes)});
        ASSERT_TRUE(archive) << archive.fault().what;
        attack();
        EXPECT_EQ(contentOf(*archive), bytes);
    }
}

TEST_F(VerifiedCopy, ArchiveThatChangesWhileItIsCopiedIsCaughtOrCopiedWhole) {
    const std::string bytes = someBytes(2000000);
    int refused = 0;
    for (int step = 0; step < 8; ++step) {
        write(bytes);
        steps = {};
        steps.at = [&, step](int now) {
            if (now != step)
                return;
            QFile file(path(u"archive"_s));
            ASSERT_TRUE(file.open(QIODevice::ReadWrite));
            file.seek(1000000);
            file.write("evil");
        };
        const auto archive = verify({sign(0, bytes)});
        if (!archive) {
            ++refused;
            continue;
        }
        EXPECT_EQ(contentOf(*archive), bytes) << step;
    }
    EXPECT_GE(refused, 4);
}

TEST_F(VerifiedCopy, ChangedCutLongerAndForeignArchivesAreRefused) {
    const std::string bytes = someBytes(300000);
    std::string changed = bytes;
    changed[299999] = char(changed[299999] ^ 1);
    struct {
        const char *what;
        std::string bytes;
        FaultKind kind;
    } const table[] = {{"changed", changed, FaultKind::Forged},
                       {"cut", bytes.substr(0, 299999), FaultKind::Mismatch},
                       {"longer", bytes + "x", FaultKind::Mismatch},
                       {"much longer", bytes + bytes, FaultKind::Mismatch},
                       {"empty", "", FaultKind::Mismatch},
                       {"another", someBytes(299999) + "x", FaultKind::Forged}};
    for (const auto &row : table) {
        write(row.bytes);
        const auto archive = verify({sign(0, bytes)});
        ASSERT_FALSE(archive) << row.what;
        EXPECT_EQ(archive.fault().kind, row.kind) << row.what << archive.fault().what;
    }
    write(bytes);
    EXPECT_FALSE(verify({sign(2, bytes)}));
    EXPECT_TRUE(verify({sign(0, bytes), sign(1, bytes)}));
    expectFault(verify({sign(0, bytes), signText(key(1), changed, archiveComment(claimFor(bytes)))}),
                FaultKind::Forged, "the archive is not the one");
}

TEST_F(VerifiedCopy, EndlessSourceEndsAfterTheSignedSize) {
    const int source = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    const int folder = ::open(qPrintable(path(u"."_s)), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const auto archive =
        VerifiedArchive::make(appKeys, {{sign(0, "archive")}, {}}, wanted, source, folder, steps);
    ::close(source);
    ::close(folder);
    expectFault(archive, FaultKind::Mismatch, "the archive has 8 bytes, the signature is for 7");
}

TEST_F(VerifiedCopy, EveryFailureOfTheSystemIsAnError) {
    const std::string bytes = someBytes(600000);
    write(bytes);
    ASSERT_TRUE(verify({sign(0, bytes)}));
    const int all = steps.steps;
    EXPECT_GT(all, 7);
    for (int step = 0; step < all; ++step) {
        steps = {};
        steps.failsAt = step;
        expectFault(verify({sign(0, bytes)}), FaultKind::File, "No space left", std::to_string(step));
    }
    steps = {};
    steps.writesNothing = true;
    expectFault(verify({sign(0, bytes)}), FaultKind::File,
                "copied before it is verified: Input/output error");
}

TEST_F(VerifiedCopy, ShortReadsAndWritesAreGoneOnWith) {
    const std::string bytes = someBytes(5000);
    write(bytes);
    steps.mostAtOnce = 7;
    const auto archive = verify({sign(0, bytes)});
    ASSERT_TRUE(archive) << archive.fault().what;
    EXPECT_EQ(contentOf(*archive), bytes);
}

TEST_F(VerifiedCopy, FolderThatIsNoneIsAnError) {
    write("archive");
    const int none = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    QFile source(path(u"archive"_s));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    expectFault(
        VerifiedArchive::make(appKeys, {{sign(0, "archive")}, {}}, wanted, source.handle(), none, steps),
        FaultKind::File, "cannot be copied");
    expectFault(
        VerifiedArchive::make(appKeys, {{sign(0, "archive")}, {}}, wanted, source.handle(), -1, steps),
        FaultKind::File, "cannot be copied");
    ::close(none);
}

TEST_F(VerifiedCopy, MovesWithItsDescriptor) {
    write("archive");
    auto archive = verify({sign(0, "archive")});
    ASSERT_TRUE(archive) << archive.fault().what;
    VerifiedArchive moved = *std::move(archive);
    EXPECT_EQ(contentOf(moved), "archive");
    EXPECT_FALSE(moved.checkUnpacked(bundle, "1043", &appKeys));
    const int descriptor = moved.descriptor();
    { const VerifiedArchive last = std::move(moved); }
    EXPECT_LT(fcntl(descriptor, F_GETFD), 0); // closed
}

TEST_F(VerifiedCopy, PlainSignatureIsOverTheBytes) {
    const std::string bytes = someBytes(300000);
    const PublicKeys plain = keysOf({plainKeyText(key(2)), plainKeyText(key(0))});
    write(bytes);
    const auto archive = verify({{}, plainSignature(0, bytes)}, plain);
    ASSERT_TRUE(archive) << archive.fault().what;
    EXPECT_EQ(contentOf(*archive), bytes);
    EXPECT_EQ(archive->claim(), std::nullopt);
    EXPECT_EQ(archive->size(), bytes.size());

    PlainSignature longer = plainSignature(0, bytes);
    ++longer.size;
    expectFault(verify({{}, longer}, plain), FaultKind::Mismatch, "the signature is for 300001");
    expectFault(verify({{}, plainSignature(1, bytes)}, plain), FaultKind::Forged, "plain key");
    expectFault(verify({{}, plainSignature(0, bytes.substr(1) + "x")}, plain), FaultKind::Forged,
                "plain key");
    expectFault(verify({{}, {}}, plain), FaultKind::Unsigned, "there is no signature");
}

TEST_F(VerifiedCopy, PlainSignatureCountsOnlyForPlainKeysAndWithoutAUsableText) {
    write("archive");
    const PublicKeys both = keysOf({keyText(key(0)), plainKeyText(key(1))});
    const ArchiveSignatures plain{{}, plainSignature(1, "archive")};
    EXPECT_TRUE(verify(plain, both));
    expectFault(verify({{}, plainSignature(0, "archive")}, keysOf({keyText(key(0))})), FaultKind::Unsigned,
                "there is no signature"); // a minisign key, although it is the same kind
    EXPECT_TRUE(
        verify({{sign(2, "archive")}, plainSignature(1, "archive")}, both)); // the text is by a stranger
    // A text that does not verify is not outdone by a plain signature.
    expectFault(verify({{replaced(sign(0, "archive"), "1043", "1044")}, plainSignature(1, "archive")}, both),
                FaultKind::Forged, "was changed");
    expectFault(verify({{"x"}, plainSignature(1, "archive")}, both), FaultKind::Signature, "four lines");
    // With a usable text that one says what holds.
    const auto archive = verify({{sign(0, "archive")}, plainSignature(1, "archive")}, both);
    ASSERT_TRUE(archive) << archive.fault().what;
    EXPECT_EQ(archive->claim(), claimFor("archive"));
}

TEST_F(VerifiedCopy, UnpackedApplicationIsTheSignedOneAndCouldBeUpdated) {
    write("archive");
    const auto archive = verify({sign(0, "archive"), sign(1, "archive")});
    ASSERT_TRUE(archive) << archive.fault().what;
    const PublicKeys next = keysOf({keyText(key(1))});
    EXPECT_FALSE(archive->checkUnpacked(bundle, "1043", &appKeys));
    EXPECT_FALSE(archive->checkUnpacked(bundle, "1043", &next)); // the key has changed
    expectFault(archive->checkUnpacked("org.example.Other", "1043", &appKeys), FaultKind::Mismatch,
                "holds the application \"org.example.Other\", expected was \"org.example.Host\"");
    expectFault(archive->checkUnpacked(bundle, "1042", &appKeys), FaultKind::Mismatch,
                "holds build \"1042\", expected was \"1043\"");
    expectFault(archive->checkUnpacked(bundle, "1043", nullptr), FaultKind::Keys,
                "has no usable keys of its own");
    const PublicKeys foreign = keysOf({keyText(key(2))});
    expectFault(archive->checkUnpacked(bundle, "1043", &foreign), FaultKind::Unsigned,
                "the keys of the application in the archive do not verify it, so it could never be updated");
    const PublicKeys feedsOnly = keysOf({keyText(key(0), "minisign-feed:")});
    EXPECT_TRUE(archive->checkUnpacked(bundle, "1043", &feedsOnly));
}

TEST_F(VerifiedCopy, TextOfTheNewKeysIsVerifiedToo) {
    write("archive");
    const PublicKeys old = keysOf({keyText(key(0))});
    const PublicKeys next = keysOf({keyText(key(1))});
    const std::string foreignBytes = signText(key(1), "Archive", archiveComment(claimFor("archive")));
    const auto bytes = verify({{sign(0, "archive"), foreignBytes}, {}}, old);
    ASSERT_TRUE(bytes) << bytes.fault().what;
    expectFault(bytes->checkUnpacked(bundle, "1043", &next), FaultKind::Forged, "the archive is not the one");
    const std::string otherWords =
        signText(key(1), "archive", archiveComment({bundle, "1043", 7, "release"}));
    const auto words = verify({{sign(0, "archive"), otherWords}, {}}, old);
    ASSERT_TRUE(words) << words.fault().what;
    expectFault(words->checkUnpacked(bundle, "1043", &next), FaultKind::Mismatch, "do not say the same");
}

TEST_F(VerifiedCopy, PlainOnesAreComparedWithTheUnpackedApplication) {
    write("archive");
    const PublicKeys plain = keysOf({plainKeyText(key(0))});
    const auto archive = verify({{sign(1, "archive")}, plainSignature(0, "archive")}, plain);
    ASSERT_TRUE(archive) << archive.fault().what;
    EXPECT_FALSE(archive->checkUnpacked(bundle, "1043", &plain));
    expectFault(archive->checkUnpacked("other", "1043", &plain), FaultKind::Mismatch,
                "holds the application");
    expectFault(archive->checkUnpacked(bundle, "1044", &plain), FaultKind::Mismatch, "holds build");
    // On to signature texts.
    const PublicKeys next = keysOf({keyText(key(1))});
    EXPECT_FALSE(archive->checkUnpacked(bundle, "1043", &next));
    const PublicKeys otherPlain = keysOf({plainKeyText(key(1))});
    expectFault(archive->checkUnpacked(bundle, "1043", &otherPlain), FaultKind::Forged, "plain key");
    // Where the feed's build is not known, that of the new keys' signature counts.
    const auto unknown = verify({{sign(1, "archive")}, plainSignature(0, "archive")}, plain,
                                {bundle, std::nullopt, std::nullopt});
    ASSERT_TRUE(unknown) << unknown.fault().what;
    expectFault(unknown->checkUnpacked(bundle, "1044", &next), FaultKind::Mismatch, "for build \"1043\"");
    EXPECT_FALSE(unknown->checkUnpacked(bundle, "1043", &next));
}

/// A file system that cannot make files without a name.
class NamedFiles : public tx::PrivateFiles {
public:
    int error = EOPNOTSUPP;
    int created = 0;
    int createWithoutName(int /*folder*/) override {
        errno = error;
        return -1;
    }
    int createAndUnlink(int folder) override {
        ++created;
        return PrivateFiles::createAndUnlink(folder);
    }
};

TEST_F(VerifiedCopy, FileWhoseNameGoesAtOnceIsPrivateToo) {
    write("archive");
    const QStringList before = namesIn(path({}));
    const int folder = ::open(qPrintable(path(u"."_s)), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    NamedFiles files;
    for (const int error : {EOPNOTSUPP, EISDIR, EINVAL, ENOENT}) {
        files.error = error;
        QFile source(path(u"archive"_s));
        ASSERT_TRUE(source.open(QIODevice::ReadOnly));
        const auto archive = VerifiedArchive::make(appKeys, {{sign(0, "archive")}, {}}, wanted,
                                                   source.handle(), folder, files);
        ASSERT_TRUE(archive) << error << archive.fault().what;
        EXPECT_EQ(contentOf(*archive), "archive");
        struct stat info {};
        ASSERT_EQ(fstat(archive->descriptor(), &info), 0);
        EXPECT_EQ(info.st_nlink, 0U);
        EXPECT_EQ(info.st_mode & 0777U, 0600U);
        EXPECT_EQ(fcntl(archive->descriptor(), F_GETFL) & O_ACCMODE, O_RDONLY);
    }
    EXPECT_EQ(files.created, 4);
    // Another failure is one: it is not tried again in another way.
    files.error = ENOSPC;
    EXPECT_LT(files.create(folder), 0);
    EXPECT_EQ(files.created, 4);
    EXPECT_EQ(namesIn(path({})), before);
    ::close(folder);
}

} // namespace

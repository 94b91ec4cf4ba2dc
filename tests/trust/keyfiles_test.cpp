// SPDX-License-Identifier: MIT
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"
#include "tests/trust/trusttest.h"
#include "trust/signaturetext.h"

#include <unistd.h>

using namespace tx::trust;
using namespace tx::test;
using namespace Qt::StringLiterals;

namespace {

constexpr PassphraseCost quick{32768, 16 << 20};

std::string fileOf(const Outcome<Secret> &content) {
    EXPECT_TRUE(content) << content.fault().what;
    return content ? std::string(content->view()) : std::string();
}

/// A secret key file with one byte of its content changed.
std::string withByte(const std::string &file, size_t at, unsigned char change) {
    const size_t begin = file.find('\n') + 1;
    std::vector<unsigned char> bytes(158);
    EXPECT_TRUE(decodeBase64(file.substr(begin, file.size() - begin - 1), bytes.data(), bytes.size()));
    bytes[at] ^= change;
    return file.substr(0, begin) + base64(bytes.data(), bytes.size()) + '\n';
}

Outcome<SecretKey> openFile(const std::string &content, const Secret *passphrase = nullptr) {
    const auto file = SecretKeyFile::parse(content);
    if (!file)
        return file.fault();
    return file->open(passphrase);
}

TEST(KeyFiles, KeyWithoutPassphraseComesBack) {
    const std::string file = fileOf(SecretKeyFile::write(key(0), nullptr));
    EXPECT_TRUE(file.starts_with("untrusted comment: minisign encrypted secret key\nRWQAAEIy")) << file;
    const auto parsed = SecretKeyFile::parse(file);
    ASSERT_TRUE(parsed) << parsed.fault().what;
    EXPECT_FALSE(parsed->isEncrypted());
    const auto back = parsed->open(nullptr);
    ASSERT_TRUE(back) << back.fault().what;
    EXPECT_EQ(back->publicKey().number, key(0).publicKey().number);
    EXPECT_EQ(back->publicKey().bytes, key(0).publicKey().bytes);
    EXPECT_EQ(signText(*back, "x", "a:1"), signText(key(0), "x", "a:1"));
}

TEST(KeyFiles, KeyWithPassphraseComesBackWithItAlone) {
    const Secret passphrase = Secret::of("correct horse");
    const std::string file = fileOf(SecretKeyFile::write(key(0), &passphrase, quick));
    const std::string plain = fileOf(SecretKeyFile::write(key(0), nullptr));
    EXPECT_FALSE(file.substr(100) == plain.substr(100));
    const auto parsed = SecretKeyFile::parse(file);
    ASSERT_TRUE(parsed) << parsed.fault().what;
    EXPECT_TRUE(parsed->isEncrypted());
    const auto back = parsed->open(&passphrase);
    ASSERT_TRUE(back) << back.fault().what;
    EXPECT_EQ(signText(*back, "x", "a:1"), signText(key(0), "x", "a:1"));
    expectFault(parsed->open(nullptr), FaultKind::Passphrase, "has a passphrase, and none was given");
    for (const char *wrong : {"", "correct hors", "correct horse ", "Correct horse"}) {
        const Secret other = Secret::of(wrong);
        expectFault(parsed->open(&other), FaultKind::Passphrase, "the passphrase is wrong", wrong);
    }
    // The same key twice gives two different files.
    EXPECT_NE(file, fileOf(SecretKeyFile::write(key(0), &passphrase, quick)));
    const Secret empty(0);
    expectFault(SecretKeyFile::write(key(0), &empty, quick), FaultKind::Passphrase,
                "the passphrase is empty");
}

TEST(KeyFiles, DamagedSecretKeyIsNoticedWhateverByteItIs) {
    const Secret passphrase = Secret::of("p");
    const std::string plain = fileOf(SecretKeyFile::write(key(0), nullptr));
    const std::string encrypted = fileOf(SecretKeyFile::write(key(0), &passphrase, quick));
    for (size_t at = 0; at < 158; ++at) {
        // Without a passphrase the file has neither a checksum nor salt and limits; its number is a name
        // alone.
        const bool matters = at < 6 || (at >= 62 && at < 126);
        EXPECT_EQ(bool(openFile(withByte(plain, at, 1))), !matters) << at;
        // A larger cost would only take longer, until it is refused.
        if (at < 38 || at >= 54) {
            EXPECT_FALSE(openFile(withByte(encrypted, at, 1), &passphrase)) << at;
        }
    }
}

TEST(KeyFiles, HalvesThatDoNotBelongTogetherAreRefused) {
    const std::string plain = fileOf(SecretKeyFile::write(key(0), nullptr));
    expectFault(openFile(withByte(plain, 100, 1)), FaultKind::Keys, "its two halves do not belong together");
    expectFault(openFile(withByte(plain, 62, 1)), FaultKind::Keys, "its two halves do not belong together");
}

TEST(KeyFiles, CostAboveMinisignsIsRefusedBeforeItIsPaid) {
    const Secret passphrase = Secret::of("p");
    const std::string file = fileOf(SecretKeyFile::write(key(0), &passphrase, quick));
    expectFault(openFile(withByte(file, 38 + 4, 1), &passphrase), FaultKind::Keys, "more time or memory");
    expectFault(openFile(withByte(file, 46 + 4, 1), &passphrase), FaultKind::Keys, "more time or memory");
}

TEST(KeyFiles, OtherFilesAreNotSecretKeys) {
    const std::string good = fileOf(SecretKeyFile::write(key(0), nullptr));
    const std::string line = good.substr(good.find('\n') + 1);
    for (const std::string &file :
         {std::string(), line, "comment: x\n" + line, good + "\n", good + line,
          good.substr(0, good.size() - 5), "untrusted comment: x" + line, publicKeyFile(key(0).publicKey()),
          good + std::string(5000, ' '), replaced(good, "RWQAAEIy", "RWQAAEIz"),
          replaced(good, "RWQAAEIy", "RWQAAkIy"), replaced(good, "RWQAAEIy", "RUQAAEIy")})
        expectFault(SecretKeyFile::parse(file), FaultKind::Keys, "a secret key file of minisign was expected",
                    file);
    EXPECT_TRUE(
        SecretKeyFile::parse(good.substr(0, good.size() - 1))); // an editor may have taken the last one
    EXPECT_TRUE(SecretKeyFile::parse("untrusted comment: my own words\n" + line));
}

TEST(KeyFiles, PublicKeyFileComesBack) {
    const std::string file = publicKeyFile(key(0).publicKey());
    EXPECT_EQ(file, "untrusted comment: minisign public key " + keyNumberText(key(0).publicKey().number) +
                        "\n" + keyLine(key(0).publicKey()) + "\n");
    const auto back = parsePublicKeyFile(file);
    ASSERT_TRUE(back) << back.fault().what;
    EXPECT_EQ(back->bytes, key(0).publicKey().bytes);
    for (const std::string &bad :
         {std::string(), keyLine(key(0).publicKey()), file + file, file.substr(0, 60)})
        expectFault(parsePublicKeyFile(bad), FaultKind::Keys, "a public key file of minisign was expected",
                    bad);
}

TEST(KeyFiles, GeneratedKeysDiffer) {
    const SecretKey one = SecretKey::generate();
    const SecretKey two = SecretKey::generate();
    EXPECT_NE(one.publicKey().number, two.publicKey().number);
    EXPECT_NE(one.publicKey().bytes, two.publicKey().bytes);
}

TEST(SecretMemory, BytesAreOverwrittenWhereTheyAreNotWantedAnyMore) {
    Secret secret = Secret::of("passphrase");
    EXPECT_EQ(secret.view(), "passphrase");
    const unsigned char *bytes = secret.data();
    secret.shrink(4);
    EXPECT_EQ(secret.view(), "pass");
    for (size_t i = 4; i < 10; ++i)
        EXPECT_EQ(bytes[i], 0) << i; // still its memory
    Secret moved = std::move(secret);
    EXPECT_EQ(moved.data(), bytes);
}

class KeyFilesOnDisk : public FrameworkTest {};

TEST_F(KeyFilesOnDisk, OnlyWholeSmallFilesAreRead) {
    const std::string most(100, 'x');
    writeFile(path(u"most"_s), QByteArray::fromStdString(most));
    writeFile(path(u"more"_s), QByteArray::fromStdString(most + "x"));
    writeFile(path(u"none"_s), {});
    const auto read = [this](const QString &name) { return readSecretFile(qPrintable(path(name)), 100); };
    const auto content = read(u"most"_s);
    ASSERT_TRUE(content) << content.fault().what;
    EXPECT_EQ(content->view(), most);
    EXPECT_EQ(read(u"none"_s)->size(), 0U);
    expectFault(read(u"more"_s), FaultKind::File, "at most 100 bytes was expected");
    expectFault(read(u"missing"_s), FaultKind::File, "No such file");
    expectFault(read(u"."_s), FaultKind::File, "Is a directory");
    expectFault(readSecretFile("/dev/zero", 100), FaultKind::File, "at most 100 bytes");
}

/// The real program.
class Minisign : public FrameworkTest {
protected:
    ProcessResult minisign(const QStringList &words, const QByteArray &input = {}) const {
        const ProcessResult result = runProcess(u"minisign"_s, words, input);
        return result;
    }
    void make(const QString &name, const std::string &content) const {
        writeFile(path(name), QByteArray::fromStdString(content));
    }
    std::string read(const QString &name) const { return readFile(path(name)).toStdString(); }
};

TEST_F(Minisign, VerifiesWhatWeSign) {
    make(u"key.pub"_s, publicKeyFile(key(0).publicKey()));
    for (const size_t size : {size_t(0), size_t(1), size_t(127), size_t(128), size_t(129), size_t(100000)}) {
        const std::string data(size, 'x');
        make(u"data"_s, data);
        make(u"data.minisig"_s, signText(key(0), data, "txupdate-archive:1 bundle:b build:1 size:1"));
        const ProcessResult result =
            minisign({u"-V"_s, u"-H"_s, u"-Q"_s, u"-p"_s, path(u"key.pub"_s), u"-m"_s, path(u"data"_s)});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(result.output, "txupdate-archive:1 bundle:b build:1 size:1\n");
        make(u"data"_s, data + "x");
        EXPECT_NE(minisign({u"-V"_s, u"-p"_s, path(u"key.pub"_s), u"-m"_s, path(u"data"_s)}).status, 0);
    }
}

TEST_F(Minisign, SignsWhatWeVerifyWithItsKeysAndOurs) {
    make(u"data"_s, "data");
    const std::string words = "txupdate-archive:1 bundle:b build:1 size:4";
    ASSERT_EQ(minisign({u"-G"_s, u"-W"_s, u"-p"_s, path(u"its.pub"_s), u"-s"_s, path(u"its.key"_s)}).status,
              0);
    make(u"ours.key"_s, fileOf(SecretKeyFile::write(key(0), nullptr)));
    make(u"ours.pub"_s, publicKeyFile(key(0).publicKey()));
    for (const QString &name : {u"its"_s, u"ours"_s}) {
        const ProcessResult made =
            minisign({u"-S"_s, u"-W"_s, u"-s"_s, path(name + u".key"_s), u"-m"_s, path(u"data"_s), u"-c"_s,
                      u"txupdate"_s, u"-t"_s, QString::fromStdString(words)});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
        const auto publicKey = parsePublicKeyFile(read(name + u".pub"_s));
        ASSERT_TRUE(publicKey) << publicKey.fault().what;
        const auto texts = usableTexts(viewsOf({read(u"data.minisig"_s)}), archiveWord,
                                       keysOf({"minisign:" + keyLine(*publicKey)}), &PublicKeys::archiveKey);
        ASSERT_TRUE(texts) << texts.fault().what;
        EXPECT_FALSE(verifyAll(*texts, digestOf("data"), "archive"));
        // Its key in our hands makes the same signature: Ed25519 leaves nothing to chance.
        const auto secret = openFile(read(name + u".key"_s));
        ASSERT_TRUE(secret) << secret.fault().what;
        EXPECT_EQ(secret->publicKey().bytes, publicKey->bytes);
        EXPECT_EQ(signText(*secret, "data", words), read(u"data.minisig"_s));
    }
}

TEST_F(Minisign, LegacySignaturesAreRefused) {
    make(u"data"_s, "data");
    make(u"key"_s, fileOf(SecretKeyFile::write(key(0), nullptr)));
    ASSERT_EQ(minisign({u"-S"_s, u"-l"_s, u"-W"_s, u"-s"_s, path(u"key"_s), u"-m"_s, path(u"data"_s), u"-c"_s,
                        u"txupdate"_s, u"-t"_s, u"txupdate-archive:1 bundle:b build:1 size:4"_s})
                  .status,
              0);
    expectFault(SignatureText::parse(read(u"data.minisig"_s)), FaultKind::Signature, "legacy form");
}

TEST_F(Minisign, UsualCommentNamesTheOption) {
    make(u"data"_s, "data");
    make(u"key"_s, fileOf(SecretKeyFile::write(key(0), nullptr)));
    ASSERT_EQ(minisign({u"-S"_s, u"-W"_s, u"-s"_s, path(u"key"_s), u"-m"_s, path(u"data"_s)}).status, 0);
    expectFault(SignatureText::parse(read(u"data.minisig"_s)), FaultKind::Signature, "minisign -c txupdate");
}

/// Each of these takes minisign's cost, about three seconds and 1 GiB.
TEST_F(Minisign, PassphrasesOpenKeysOfTheOther) {
    make(u"data"_s, "data");
    const Secret passphrase = Secret::of("correct horse");
    ASSERT_EQ(minisign({u"-G"_s, u"-p"_s, path(u"its.pub"_s), u"-s"_s, path(u"its.key"_s)},
                       "correct horse\ncorrect horse\n")
                  .status,
              0);
    const auto its = openFile(read(u"its.key"_s), &passphrase);
    ASSERT_TRUE(its) << its.fault().what;
    EXPECT_EQ(its->publicKey().bytes, parsePublicKeyFile(read(u"its.pub"_s))->bytes);
    make(u"ours.key"_s, fileOf(SecretKeyFile::write(key(0), &passphrase)));
    const ProcessResult made = minisign({u"-S"_s, u"-s"_s, path(u"ours.key"_s), u"-m"_s, path(u"data"_s),
                                         u"-c"_s, u"txupdate"_s, u"-t"_s, u"a:1"_s},
                                        "correct horse\n");
    ASSERT_EQ(made.status, 0) << made.errors.constData();
    EXPECT_EQ(read(u"data.minisig"_s), signText(key(0), "data", "a:1"));
}

} // namespace

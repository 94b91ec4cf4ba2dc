// SPDX-License-Identifier: MIT
// The commands of txupdate that make keys, and that sign and verify archives.
#include "tests/tools/txupdate/terminal.h"
#include "tests/tools/txupdate/trustcommandstest.h"

#include <QFileInfo>
#include <QJsonArray>

#include <tuple>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::test;
using namespace tx::trust;

namespace {

using Keygen = TrustCommands;
using SignArchive = TrustCommands;
using VerifyArchive = TrustCommands;

TEST_F(Keygen, MakesTwoPairsAndSaysWhichOneToPutAway) {
    const ProcessResult result = run({u"keygen"_s, u"--no-passphrase"_s, path(u"my"_s)});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const std::string said = result.output.toStdString();
    EXPECT_THAT(said, testing::HasSubstr("my-spare.key signs what replaces"));
    EXPECT_THAT(said, testing::HasSubstr("put it away now, offline"));
    std::vector<std::string> lines;
    for (const QString &name : {u"my"_s, u"my-spare"_s}) {
        const auto publicKey = parsePublicKeyFile(readFile(path(name + u".pub"_s)).toStdString());
        ASSERT_TRUE(publicKey) << publicKey.fault().what;
        lines.push_back("minisign:" + keyLine(*publicKey));
        EXPECT_THAT(said, testing::HasSubstr("<string>" + lines.back() + "</string>"));
        const QByteArray secretFile = readFile(path(name + u".key"_s));
        const auto secret = SecretKeyFile::parse(secretFile.toStdString());
        ASSERT_TRUE(secret && !secret->isEncrypted());
        EXPECT_EQ(secret->open(nullptr)->publicKey().bytes, publicKey->bytes);
        EXPECT_EQ(QFileInfo(path(name + u".key"_s)).permissions() &
                      (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
                  QFile::Permissions());
        EXPECT_FALSE((result.output + result.errors).contains(secretFile.split('\n').value(1)));
    }
    EXPECT_EQ(keysOf(lines).all().size(), 2U);
    EXPECT_THAT(said, testing::HasSubstr("<key>TXUpdatePublicKeys</key>"));
}

TEST_F(Keygen, NeverReplacesAFile) {
    for (const char *name : {"my.key", "my.pub", "my-spare.key", "my-spare.pub"}) {
        const QString folder = path(u"keys-"_s + QString::fromLatin1(name));
        writeFile(folder + u'/' + QString::fromLatin1(name), "precious");
        expectRefused(run({u"keygen"_s, u"--no-passphrase"_s, folder + u"/my"_s}), "is there already");
        EXPECT_EQ(namesIn(folder), QStringList{QString::fromLatin1(name)});
        EXPECT_EQ(readFile(folder + u'/' + QString::fromLatin1(name)), QByteArray("precious"));
    }
    expectRefused(run({u"keygen"_s, u"--no-passphrase"_s, path(u"no/such/my"_s)}), "No such file");
    // The last file cannot be made: a name of 255 bytes with "-spare.pub" is too long only by that.
    const QString longName(255 - 9, u'x');
    expectRefused(run({u"keygen"_s, u"--no-passphrase"_s, path(u"keys-my.key/"_s + longName)}),
                  "File name too long");
    EXPECT_EQ(namesIn(path(u"keys-my.key"_s)), QStringList{u"my.key"_s});
}

/// This takes minisign's cost three times, that is, about three seconds and 1 GiB each.
TEST_F(Keygen, PassphraseOfTheEnvironmentEncryptsBothKeys) {
    const ProcessResult made =
        run({u"keygen"_s, path(u"my"_s)}, {}, {u"TXUPDATE_PASSPHRASE=correct horse"_s});
    ASSERT_EQ(made.status, 0) << made.errors.constData();
    EXPECT_FALSE((made.output + made.errors).contains("correct horse"));
    const auto first = SecretKeyFile::parse(readFile(path(u"my.key"_s)).toStdString());
    const auto spare = SecretKeyFile::parse(readFile(path(u"my-spare.key"_s)).toStdString());
    ASSERT_TRUE(first && spare);
    EXPECT_TRUE(first->isEncrypted());
    EXPECT_TRUE(spare->isEncrypted());
    const Secret passphrase = Secret::of("correct horse");
    const auto key = spare->open(&passphrase);
    ASSERT_TRUE(key) << key.fault().what;
    EXPECT_EQ(publicKeyFile(key->publicKey()), readFile(path(u"my-spare.pub"_s)).toStdString());
}

TEST_F(SignArchive, EachPassphraseIsALineOfTheDescriptor) {
    constexpr PassphraseCost quick{32768, 16 << 20};
    for (const auto &[name, number, words] :
         {std::tuple{u"first"_s, 0, "correct horse"}, std::tuple{u"second"_s, 1, "p"}}) {
        const Secret passphrase = Secret::of(words);
        const auto content = SecretKeyFile::write(key(size_t(number)), &passphrase, quick);
        ASSERT_TRUE(content) << content.fault().what;
        writeFile(path(name + u".key"_s), QByteArray::fromStdString(std::string(content->view())));
    }
    const QString archive = file("archive", u"a.tgz"_s);
    const QStringList words{u"sign"_s, archive,    u"--identifier"_s, u"x"_s,     u"--build"_s,
                            u"1"_s,    u"--key"_s, path(u"first"_s),  u"--key"_s, path(u"second"_s)};
    const auto with = [&](const QByteArray &input) {
        return run(words + QStringList{u"--passphrase-fd"_s, u"0"_s}, input);
    };
    expectRefused(with("wrong\np\n"), "first.key: the passphrase is wrong");
    expectRefused(with("correct horse\nwrong\n"), "second.key: the passphrase is wrong");
    expectRefused(with("correct horse\n"), "second.key: the passphrase is empty");
    EXPECT_FALSE(QFileInfo::exists(archive + u".minisig"_s));
    const ProcessResult good = with("correct horse\np\nmore");
    EXPECT_EQ(good.status, 0) << good.errors.constData();
    EXPECT_FALSE((good.output + good.errors).contains("horse"));
    EXPECT_TRUE(QFileInfo::exists(archive + u".minisig"_s));
    // The environment's is that of all keys.
    expectRefused(run(words, {}, {u"TXUPDATE_PASSPHRASE=correct horse"_s}),
                  "second.key: the passphrase is wrong");
}

TEST_F(Keygen, WithoutAPassphraseNothingIsMade) {
    const auto refusedFor = [this](const QStringList &more, const QByteArray &input,
                                   const QStringList &environment, const char *part) {
        const ProcessResult result = runProcess(
            u"setsid"_s,
            QStringList{u"-w"_s, programsFolder() + u"/txupdate"_s, u"keygen"_s, path(u"k/my"_s)} + more,
            input, environment);
        expectRefused(result, part);
    };
    ASSERT_TRUE(QDir().mkpath(path(u"k"_s)));
    refusedFor({}, "p\np\n", {},
               "there is no terminal to type it in. Pass it with --passphrase-fd or in TXUPDATE_PASSPHRASE");
    refusedFor({}, {}, {u"TXUPDATE_PASSPHRASE="_s}, "TXUPDATE_PASSPHRASE is empty");
    refusedFor({u"--passphrase-fd"_s, u"0"_s}, "\n", {}, "the passphrase is empty");
    refusedFor({u"--passphrase-fd"_s, u"0"_s}, "", {}, "the passphrase is empty");
    refusedFor({u"--passphrase-fd"_s, u"0"_s}, QByteArray(1025, 'x'), {}, "longer than 1024 bytes");
    refusedFor({u"--passphrase-fd"_s, u"99"_s}, {}, {}, "Bad file descriptor");
    EXPECT_EQ(namesIn(path(u"k"_s)), QStringList());
}

class AtTerminal : public TrustCommands, protected Terminal {};

TEST_F(AtTerminal, NewPassphraseIsAskedForTwiceWithoutEcho) {
    start({u"keygen"_s, path(u"my"_s)});
    ASSERT_TRUE(waitFor("Passphrase for the new keys: ")) << shown.constData();
    type("correct horse\n");
    ASSERT_TRUE(waitFor("The same again: ")) << shown.constData();
    type("correct hose\n");
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(shown.contains("the two passphrases differ")) << shown.constData();
    EXPECT_FALSE(shown.contains("correct")) << shown.constData();
    EXPECT_FALSE(QFileInfo::exists(path(u"my.key"_s)));
}

TEST_F(AtTerminal, InterruptEndsTheQuestion) {
    start({u"keygen"_s, path(u"my"_s)});
    ASSERT_TRUE(waitFor("Passphrase for the new keys: ")) << shown.constData();
    type("corr\3\n");
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(shown.contains("interrupted")) << shown.constData();
    EXPECT_FALSE(QFileInfo::exists(path(u"my.key"_s)));
}

TEST_F(SignArchive, PrintsWhatTheFeedNeedsAndWritesAFileThatMinisignReads) {
    const QString archive = nextBuild({keyText(key(0)), keyText(key(1))});
    const ProcessResult result = sign(archive);
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QByteArray bytes = readFile(archive);
    const std::string expected = signText(key(0), bytes.toStdString(),
                                          "txupdate-archive:1 bundle:org.example.Host build:1043 size:" +
                                              std::to_string(bytes.size()));
    EXPECT_EQ(readFile(archive + u".minisig"_s).toStdString(), expected);
    const QList<QByteArray> lines = result.output.split('\n');
    ASSERT_EQ(lines.size(), 3);
    ASSERT_TRUE(lines[0].startsWith("JSON:    \"signature\": "));
    EXPECT_EQ(QJsonDocument::fromJson("{" + lines[0].mid(9) + "}")
                  .object()[u"signature"_s]
                  .toString()
                  .toStdString(),
              expected);
    EXPECT_EQ(lines[1].toStdString(), "Appcast: txupdate:signature=\"" + escapeLineFeeds(expected) + "\"");
    writeFile(path(u"one.pub"_s), QByteArray::fromStdString(publicKeyFile(key(0).publicKey())));
    EXPECT_EQ(runProcess(u"minisign"_s, {u"-V"_s, u"-p"_s, path(u"one.pub"_s), u"-m"_s, archive}).status, 0);
}

TEST_F(SignArchive, SeveralKeysMakeAList) {
    const QString archive = nextBuild({keyText(key(1))});
    const ProcessResult result = sign(archive, {u"one.key"_s, u"two"_s},
                                      {u"--app"_s, path(u"next/My.app"_s), u"--feed-name"_s, u"beta"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QJsonArray list = QJsonDocument::fromJson("{" + result.output.split('\n').first().mid(9) + "}")
                                .object()[u"signature"_s]
                                .toArray();
    ASSERT_EQ(list.size(), 2);
    EXPECT_TRUE(list[1].toString().contains(u" feed:beta\n"));
    const auto texts = splitTexts(readFile(archive + u".minisig"_s).toStdString());
    ASSERT_TRUE(texts) << texts.fault().what;
    EXPECT_EQ((*texts)[0], list[0].toString().toStdString());
    EXPECT_EQ((*texts)[1], list[1].toString().toStdString());
}

TEST_F(SignArchive, IdentifierAndBuildStandForABundle) {
    const QString archive = file("archive", u"a.zip"_s);
    const ProcessResult result =
        sign(archive, {u"one"_s}, {u"--identifier"_s, u"org.my--app"_s, u"--build"_s, u"1 café"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.contains("bundle:org.my-%2Dapp build:1%20caf%C3%A9 size:7"));
}

TEST_F(SignArchive, BundleThatCouldNotBeUpdatedIsRefused) {
    struct {
        std::vector<std::string> keys;
        const char *part;
    } const table[] = {
        {{}, "has no keys: its Info.plist lacks TXUpdatePublicKeys"},
        {{"minisign:RWQmistyped"}, "TXUpdatePublicKeys: key 1: \"minisign:RWQmistyped\" is not a public key"},
        {{keyText(key(2))},
         "applications would refuse this archive, as the keys of the application in it do not"},
        {{keyText(key(0), "minisign-feed:"), keyText(key(2))}, "applications would refuse this archive"},
    };
    for (const auto &row : table) {
        const QString archive = nextBuild(row.keys);
        expectRefused(sign(archive), row.part);
        EXPECT_FALSE(QFileInfo::exists(archive + u".minisig"_s));
    }
    makeApp(u"next/My.app"_s, u""_s, {keyText(key(0))});
    expectRefused(sign(pack(u"next/My.app"_s)), "the application has no CFBundleVersion");
}

TEST_F(SignArchive, FaultsAreNamed) {
    const QString archive = nextBuild({keyText(key(0))});
    expectRefused(sign(path(u"none.tgz"_s)), "none.tgz is not a file");
    expectRefused(sign(path(u"next"_s)), "next is not a file");
    expectRefused(sign(archive, {u"none"_s}), "none.key: No such file");
    writeFile(path(u"bad.key"_s), "x");
    expectRefused(sign(archive, {u"one"_s, u"bad"_s}), "bad.key: a secret key file of minisign was expected");
    expectRefused(sign(archive, {u"one"_s}, {u"--app"_s, path(u"none.app"_s)}), "is not an application");
    EXPECT_FALSE(QFileInfo::exists(archive + u".minisig"_s));
    const QStringList wrong[] = {
        {u"sign"_s, archive},
        {u"sign"_s, archive, u"--key"_s, path(u"one"_s)},
        {u"sign"_s, archive, u"--key"_s, path(u"one"_s), u"--identifier"_s, u"x"_s},
        {u"sign"_s, archive, u"--key"_s, path(u"one"_s), u"--build"_s, u"1"_s},
        {u"sign"_s, archive, u"--key"_s, path(u"one"_s), u"--app"_s, path(u"My.app"_s), u"--identifier"_s,
         u"x"_s, u"--build"_s, u"1"_s},
        {u"sign"_s, archive, u"--app"_s, path(u"My.app"_s)},
        {u"keygen"_s},
        {u"verify"_s, archive},
        {u"feed"_s, u"verify"_s, archive},
    };
    for (const QStringList &words : wrong)
        EXPECT_EQ(run(words).status, 64) << words.join(u' ').toStdString();
}

TEST_F(VerifyArchive, AcceptsWhatApplicationsAccept) {
    const QString archive = nextBuild({keyText(key(0))});
    for (const QStringList &keys :
         {QStringList{u"one"_s}, QStringList{u"one"_s, u"two"_s}, QStringList{u"one"_s, u"foreign"_s}}) {
        ASSERT_EQ(sign(archive, keys).status, 0);
        const ProcessResult result = verify(archive);
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_TRUE(result.output.contains("is build 1043 of org.example.Host, "))
            << result.output.constData();
    }
    EXPECT_EQ(namesIn(path(u"cache"_s)), QStringList()); // nothing is left
}

TEST_F(VerifyArchive, RefusesWhatApplicationsRefuse) {
    const std::vector<std::string> both{keyText(key(0)), keyText(key(1))};
    const auto otherBuild = [this](const QString &build) {
        return QStringList{u"--identifier"_s, u"org.example.Host"_s, u"--build"_s, build};
    };
    QString archive = nextBuild(both);
    expectRefused(verify(archive), "My.tgz.minisig: No such file");

    ASSERT_EQ(sign(archive, {u"foreign"_s}, otherBuild(u"1043"_s)).status, 0);
    expectRefused(verify(archive),
                  "no signature with \"txupdate-archive:1\" is by one of the application's keys");

    ASSERT_EQ(sign(archive, {u"one"_s}, otherBuild(u"1044"_s)).status, 0);
    expectRefused(verify(archive), "the archive holds build \"1043\", expected was \"1044\"");

    ASSERT_EQ(sign(archive, {u"one"_s}, {u"--identifier"_s, u"org.example.Other"_s, u"--build"_s, u"1043"_s})
                  .status,
              0);
    expectRefused(verify(archive), "for the application \"org.example.Other\"");

    ASSERT_EQ(
        sign(archive, {u"one"_s}, otherBuild(u"1043"_s) + QStringList{u"--feed-name"_s, u"beta"_s}).status,
        0);
    expectRefused(verify(archive), "for the feed \"beta\", expected was \"release\"");

    ASSERT_EQ(sign(archive).status, 0);
    QByteArray bytes = readFile(archive);
    bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 1);
    writeFile(archive, bytes);
    expectRefused(verify(archive), "the archive is not the one that key");
    writeFile(archive, bytes + "x");
    expectRefused(verify(archive), "bytes, the signature is for");
    QFile::remove(archive);
    expectRefused(verify(archive), "No such file");

    archive = nextBuild(both);
    writeFile(archive + u".minisig"_s, QByteArray(70000, 'x'));
    expectRefused(verify(archive), "at most 64 KiB of signatures");
    writeFile(archive + u".minisig"_s, "x");
    expectRefused(verify(archive), "My.tgz.minisig: four lines were expected");
    expectRefused(verify(file("x", u"archive.exe"_s)), "archive.exe.minisig: No such file");
    writeFile(path(u"archive.exe.minisig"_s), "");
    expectRefused(verify(path(u"archive.exe"_s)), "archive.exe");
    expectRefused(verify(archive, u"next"_s), "is not an application");
    makeApp(u"Unkeyed.app"_s, u"1042"_s, {});
    expectRefused(verify(archive, u"Unkeyed.app"_s), "has no keys");
}

TEST_F(VerifyArchive, RefusesABuildWhoseOwnKeysDoNotVerifyIt) {
    struct {
        std::vector<std::string> keys;
        QByteArray more;
        const char *part;
    } const table[] = {
        {{}, {}, "has no usable keys of its own, so it could never be updated"},
        {{"minisign:RWQmistyped"},
         {},
         "has no usable keys of its own, so it could never be updated: TXUpdatePublicKeys"},
        {{keyText(key(0))},
         "<key>TXUpdateFeedName</key><true/>",
         "has no usable keys of its own, so it could never be updated: Info.plist"},
        {{keyText(key(2))}, {}, "the keys of the application in the archive do not verify it"},
    };
    for (const auto &row : table) {
        const QString archive = nextBuild(row.keys, row.more);
        ASSERT_EQ(
            sign(archive, {u"one"_s}, {u"--identifier"_s, u"org.example.Host"_s, u"--build"_s, u"1043"_s})
                .status,
            0);
        expectRefused(verify(archive), row.part);
    }
}

TEST_F(VerifyArchive, SignatureMayBeElsewhere) {
    const QString archive = nextBuild({keyText(key(0))});
    ASSERT_EQ(sign(archive).status, 0);
    ASSERT_TRUE(QFile::rename(archive + u".minisig"_s, path(u"elsewhere"_s)));
    EXPECT_EQ(
        run({u"verify"_s, archive, u"--app"_s, path(u"My.app"_s), u"--signature"_s, path(u"elsewhere"_s)}, {},
            {u"XDG_CACHE_HOME="_s + path(u"cache"_s)})
            .status,
        0);
}

} // namespace

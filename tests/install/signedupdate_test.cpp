// SPDX-License-Identifier: MIT
// What a host with keys downloads, unpacks and installs.
#include "base/propertylist.h"
#include "install/archiveverification.h"
#include "install/unarchiver.h"
#include "model/updateentry.h"
#include "model/updatefolder.h"
#include "posix/privatefile.h"
#include "tests/install/installingtest.h"
#include "tests/support/feedserver.h"
#include "tests/trust/signedreleases.h"

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::test;
namespace trust = tx::trust;

namespace {

/// Private copies in which a test can make a step fail or run code between two steps.
class WatchedFiles : public tx::PrivateFiles {
public:
    WatchedFiles()
        : m_before(tx::services().privateFiles) {
        tx::services().privateFiles = this;
    }
    ~WatchedFiles() override { tx::services().privateFiles = m_before; }
    Q_DISABLE_COPY_MOVE(WatchedFiles)

    std::function<int(const QString &step)> before = [](const QString &) { return 0; }; ///< the errno, or 0
    std::atomic<int> copies{0};

    int create(int folder) override {
        ++copies;
        return fails(u"create"_s) ? -1 : PrivateFiles::create(folder);
    }
    int reopenForReading(int file) override {
        return fails(u"reopen"_s) ? -1 : PrivateFiles::reopenForReading(file);
    }
    ssize_t read(int file, void *buffer, size_t size) override {
        return fails(u"read"_s) ? -1 : PrivateFiles::read(file, buffer, size);
    }
    ssize_t write(int file, const void *bytes, size_t size) override {
        return fails(u"write"_s) ? -1 : PrivateFiles::write(file, bytes, size);
    }

private:
    [[nodiscard]] bool fails(const QString &step) const {
        const int number = before(step);
        errno = number;
        return number != 0;
    }
    tx::PrivateFiles *m_before;
};

/// An update to build 1043 whose entry carries these signatures.
TXUpdatePtr updateWith(const std::vector<std::string> &texts, const QString &url = u"https://e.org/a.tgz"_s) {
    std::string joined;
    for (const std::string &text : texts)
        joined += (joined.empty() ? std::string() : std::string(1, '\0')) + text;
    tx::FeedEntry entry;
    entry.setOwned(tx::FeedEntry::Member::Build, "1043");
    entry.setOwned(tx::FeedEntry::Member::DownloadURL, url.toStdString());
    if (!joined.empty())
        entry.setOwned(tx::FeedEntry::Member::Signature, joined);
    return tx::updateFrom(entry, tx::WithConditions::Yes);
}

TXUpdatePtr plainlySigned(const QByteArray &archive, const SecretKey &secret, qsizetype length) {
    const trust::SignatureBytes signature = secret.sign(archive.toStdString());
    tx::FeedEntry entry;
    entry.setOwned(tx::FeedEntry::Member::Build, "1043");
    entry.setOwned(tx::FeedEntry::Member::DownloadURL, "https://e.org/a.tgz");
    entry.setOwned(tx::FeedEntry::Member::PlainSignature, trust::base64(signature.data(), signature.size()));
    entry.setOwned(tx::FeedEntry::Member::Length, std::to_string(length));
    return tx::updateFrom(entry, tx::WithConditions::No);
}

class SignedDownload : public WithKeys<FrameworkTest> {
protected:
    FeedServer server;
    const QString cache = tx::UpdateFolder::ofHost().path();
    const QByteArray archive = QByteArray(300000, 'x') + "end";
    TXUpdatePtr update;
    TXError error;
    int calls = 0;

    ~SignedDownload() override {
        update.reset();
        drainEvents();
    }
    /// Downloads what the server sends, for an entry with these signatures.
    void download(const QByteArray &sent, const std::vector<std::string> &texts) {
        server.expect("GET", "/a.tgz", HttpReply::file(sent));
        run(updateWith(texts, server.url(u"/a.tgz"_s)));
    }
    void run(const TXUpdatePtr &wanted) {
        update = wanted;
        calls = 0;
        error = {};
        update->downloadWithProgress(nullptr, [this](const TXError &e) {
            error = e;
            ++calls;
        });
        ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
        drainEvents();
        EXPECT_EQ(calls, 1);
    }
    void expectNothingKept(const std::string &what) {
        EXPECT_FALSE(update->isDownloaded()) << what;
        EXPECT_TRUE(update->downloadPath().isNull()) << what;
        EXPECT_EQ(QDir(cache).exists() ? namesIn(cache) : QStringList(), QStringList()) << what;
    }
};

TEST_F(SignedDownload, SignedArchiveIsKept) {
    for (const Signers &signers : {Signers{0}, Signers{1}, Signers{1, 0}, Signers{2, 0}}) {
        download(archive, archiveTexts(archive, "1043", signers));
        EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
        ASSERT_TRUE(update->isDownloaded());
        EXPECT_EQ(readFile(update->downloadPath()), archive);
        update->cleanup();
    }
}

TEST_F(SignedDownload, ArchiveThatIsNotTheSignedOneIsRemovedAsSoonAsItHasCome) {
    const auto texts = archiveTexts(archive, "1043");
    for (qsizetype i = 0; i < archive.size(); i += 60000) {
        QByteArray changed = archive;
        changed[i] = char(changed[i] ^ (1 << (i % 8)));
        download(changed, texts);
        expectTrustError(error, TXUpdateErrorArchiveNotGenuine, updateNotVerified, notGenuine);
        expectNothingKept("a bit of byte " + std::to_string(i));
    }
    for (const QByteArray &other : {archive.chopped(1), QByteArray()}) {
        download(other, texts);
        expectTrustError(error, TXUpdateErrorArchiveNotGenuine, updateNotVerified, notGenuine);
        expectNothingKept(std::to_string(other.size()) + " bytes");
    }
}

TEST_F(SignedDownload, NotOneByteMoreThanTheSignedOnesIsStored) {
    FaultFileSystem files;
    std::atomic<int> writes{0};
    files.observer = [&](const QString &operation, const QString &) { writes += operation == u"write"; };
    HttpReply announced = HttpReply::file(archive + 'x');
    server.expect("GET", "/a.tgz", announced);
    run(updateWith(archiveTexts(archive, "1043"), server.url(u"/a.tgz"_s)));
    expectTrustError(error, TXUpdateErrorArchiveNotGenuine, updateNotVerified, notGenuine);
    expectNothingKept("announced");
    EXPECT_EQ(writes, 0) << "the length was enough to tell";
    announced.announcedLength = -1;
    announced.body = archive + QByteArray(5000000, 'x');
    server.expect("GET", "/a.tgz", announced);
    run(updateWith(archiveTexts(archive, "1043"), server.url(u"/a.tgz"_s)));
    expectTrustError(error, TXUpdateErrorArchiveNotGenuine, updateNotVerified, notGenuine);
    expectNothingKept("unannounced");
}

TEST_F(SignedDownload, UpdateThatNoKeySignedAsksTheServerForNothing) {
    const auto good = archiveTexts(archive, "1043");
    const std::string feedsText =
        signText(key(0), archive.toStdString(),
                 trust::feedComment({"org.example.Host", "release", uint64_t(noon), {}}));
    struct Case {
        const char *what;
        std::vector<std::string> texts;
        TXUpdateErrorCode code;
        QString reason;
    };
    const Case cases[] = {
        {"none", {}, TXUpdateErrorArchiveNotSigned, notSigned},
        {"somebody else's", archiveTexts(archive, "1043", {2}), TXUpdateErrorArchiveNotSigned, notSigned},
        {"a feed's", {feedsText}, TXUpdateErrorArchiveNotSigned, notSigned},
        {"another build's", archiveTexts(archive, "1044"), TXUpdateErrorArchiveNotGenuine, notGenuine},
        {"another feed's", archiveTexts(archive, "1043", {0}, "beta"), TXUpdateErrorArchiveNotGenuine,
         notGenuine},
        {"another application's",
         {signText(key(0), archive.toStdString(),
                   trust::archiveComment({"org.example.Other", "1043", uint64_t(archive.size()), {}}))},
         TXUpdateErrorArchiveNotGenuine,
         notGenuine},
        {"comment changed",
         {replaced(good[0], "build:1043", "build:1044")},
         TXUpdateErrorArchiveNotGenuine,
         notGenuine},
        {"size changed",
         {replaced(good[0], "size:300003", "size:300004")},
         TXUpdateErrorArchiveNotGenuine,
         notGenuine},
        {"one of two bad",
         {good[0], replaced(archiveTexts(archive, "1043", {1})[0], "size:3", "size:4")},
         TXUpdateErrorArchiveNotGenuine,
         notGenuine},
        {"malformed", {"nonsense"}, TXUpdateErrorArchiveNotGenuine, notGenuine},
    };
    for (const Case &c : cases) {
        run(updateWith(c.texts, server.url(u"/a.tgz"_s)));
        expectTrustError(error, c.code, updateNotVerified, c.reason, c.what);
        EXPECT_FALSE(update->isSigned()) << c.what;
        EXPECT_FALSE(update->canBeDownloaded()) << c.what;
        expectNothingKept(c.what);
    }
    // An update that the host created, and one that it changed.
    auto own = std::make_shared<TXUpdate>();
    own->setVersion(u"1043"_s);
    own->setFileURL(QUrl(server.url(u"/a.tgz"_s)));
    run(own);
    EXPECT_EQ(error.code(), TXUpdateErrorArchiveNotSigned);
    own = updateWith(good, server.url(u"/a.tgz"_s));
    EXPECT_TRUE(own->isSigned());
    own->setVersion(u"1044"_s);
    EXPECT_FALSE(own->isSigned());
    run(own);
    EXPECT_EQ(error.code(), TXUpdateErrorArchiveNotGenuine);
    becomeHostWith({"minisign:nonsense"});
    run(updateWith(good, server.url(u"/a.tgz"_s)));
    EXPECT_EQ(error.code(), TXUpdateErrorKeysMalformed);
    EXPECT_FALSE(update->isSigned());
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(SignedDownload, CompleteFileOfAnotherSizeThanTheSignedOneIsNotUsedAgain) {
    download(archive, archiveTexts(archive, "1043"));
    const QByteArray part = archive.chopped(1);
    writeFile(update->downloadPath(), part);
    server.expect("GET", "/a.tgz", HttpReply::file(part)); // as long as that file
    run(updateWith(archiveTexts(archive, "1043"), server.url(u"/a.tgz"_s)));
    expectTrustError(error, TXUpdateErrorArchiveNotGenuine, updateNotVerified, notGenuine);
    expectNothingKept("fetched anew, and refused");
}

TEST_F(SignedDownload, HostWithoutKeysTakesWhatItAlwaysTook) {
    becomeHost(u"1042"_s);
    WatchedFiles files;
    download(archive, {"nonsense"});
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_TRUE(update->isDownloaded());
    EXPECT_FALSE(update->isSigned());
    EXPECT_EQ(files.copies, 0);
}

/// Build 1043 is downloaded, packed as a .tgz and signed by the first key.
class SignedInstalling : public WithKeys<Installing> {
protected:
    WatchedFiles files;
    RecordingTasks tasks;
    QByteArray archive;
    QString archivePath = cache + u"/MyApp - 1043.tgz"_s;
    QStringList installed; ///< content of the application that the installer received

    SignedInstalling() {
        tasks.runsForReal = true;
        tasks.failing = [](const tx::TaskRequest &r) {
            return r.program.endsWith(u"/TXUpdateInstaller"_s) ? EACCES : 0;
        };
        becomeHostWith({keyText(key(0)), keyText(key(1))});
        offer({keyText(key(0)), keyText(key(1))});
    }
    /// Packs a release whose application has these keys.
    void pack(const Keys &own, const QByteArray &more = {}, const QString &build = u"1043"_s,
              const QString &identifier = u"org.example.Host"_s) {
        QDir(cache).removeRecursively();
        makeBundle(path(u"staging/MyApp.app"_s), {.identifier = identifier, .build = build});
        addKeys(path(u"staging/MyApp.app"_s), own, more);
        makeArchive(archivePath, ArchiveKind::Tgz, entriesOf(path(u"staging/MyApp.app"_s)));
        chmod(cache.toUtf8().constData(), 0700);
        archive = readFile(archivePath);
    }
    void offer(const Keys &own, const QByteArray &more = {}, const Signers &signers = {0}) {
        pack(own, more);
        take(updateWith(archiveTexts(archive, "1043", signers)));
    }
    void take(const TXUpdatePtr &wanted) {
        update = wanted;
        update->setDisplayVersion(u"2.1"_s);
        downloaded(archivePath);
        calls = 0;
        error = {};
        alerts.clear();
        QDir(*tx::downloadsDirectory()).removeRecursively();
    }
    /// Without an installer the application is moved to the Downloads folder, where the test can read it.
    void installToTheEnd() {
        install();
        ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
        drainEvents();
        EXPECT_EQ(calls, 1);
    }
    void expectInstalled(const std::string &what = {}) {
        installToTheEnd();
        EXPECT_TRUE(error.isNull()) << what << error.toString().toStdString();
        EXPECT_EQ(treeOf(*tx::downloadsDirectory() + u"/MyApp 2.1.app"_s),
                  treeOf(path(u"staging/MyApp.app"_s)))
            << what;
    }
    void expectRefused(TXUpdateErrorCode code, const QString &reason, const std::string &what = {}) {
        installToTheEnd();
        expectTrustError(error, code, updateNotVerified, reason, what);
        EXPECT_FALSE(update->isInstalling()) << what;
        EXPECT_FALSE(update->isDownloaded()) << what << ": another try downloads it again";
        EXPECT_TRUE(update->downloadPath().isNull()) << what;
        EXPECT_EQ(namesIn(cache), QStringList()) << what << ": neither archive nor application";
        EXPECT_TRUE(namesIn(*tx::downloadsDirectory()).isEmpty()) << what;
        EXPECT_TRUE(alerts.isEmpty()) << what;
        EXPECT_TRUE(folderIsFree()) << what;
    }
    const QString notContinued = u"The new version has no keys by which it could be updated in its turn."_s;
};

TEST_F(SignedInstalling, SignedReleaseIsInstalled) {
    expectInstalled();
    EXPECT_EQ(files.copies, 1);
    EXPECT_EQ(namesIn(cache), QStringList{u"MyApp - 1043.tgz"_s}) << "the private copy has no name";
    EXPECT_TRUE(states().endsWith(
        u"Downloaded, Preparing, Verifying, Unpacking, AskingToQuit, HandingOver, Downloaded"_s))
        << states().toStdString();
}

TEST_F(SignedInstalling, ApplicationThatWasThereBeforeIsNotTheOneInAnArchiveThatCannotBeUnpacked) {
    const QByteArray broken = "no archive";
    writeFile(archivePath, broken);
    makeBundle(cache + u"/MyApp.app"_s, {.build = u"1043"_s});
    addKeys(cache + u"/MyApp.app"_s, {keyText(key(0)), keyText(key(1))});
    take(updateWith(archiveTexts(broken, "1043", {0})));
    installToTheEnd();
    EXPECT_THAT(error.localizedFailureReason().toStdString(),
                testing::StartsWith("Could not find the unarchived application. "));
    EXPECT_TRUE(namesIn(*tx::downloadsDirectory()).isEmpty());
}

TEST_F(SignedInstalling, FileThatIsNotTheSignedOneIsNotUnpacked) {
    const auto exchanged = [this](const QByteArray &content) {
        offer({keyText(key(0))});
        writeFile(archivePath, content);
    };
    QByteArray changed = archive;
    changed[changed.size() / 2] = char(changed[changed.size() / 2] ^ 1);
    for (const QByteArray &content :
         {changed, archive.chopped(1), archive + 'x', QByteArray("x"), QByteArray()}) {
        exchanged(content);
        // The archive to be unpacked is of the same release but has another size.
        expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, std::to_string(content.size()));
        EXPECT_TRUE(states().endsWith(u"Preparing, Verifying, Available"_s)) << states().toStdString();
    }
    EXPECT_FALSE(logLines().contains(u"TXUpdate: Beginning unarchive"_s));
}

TEST_F(SignedInstalling, ArchiveThatIsExchangedAfterItsVerificationIsNotTheOneThatIsUnpacked) {
    makeBundle(path(u"evil/MyApp.app"_s), {.build = u"1043"_s, .program = "#!/bin/sh\necho evil\n"});
    makeArchive(path(u"evil.tgz"_s), ArchiveKind::Tgz, entriesOf(path(u"evil/MyApp.app"_s)));
    const QByteArray evil = readFile(path(u"evil.tgz"_s));
    const std::pair<const char *, std::function<void()>> ways[] = {
        {"a link",
         [&] {
             ASSERT_TRUE(QFile::remove(archivePath));
             ASSERT_TRUE(QFile::link(path(u"evil.tgz"_s), archivePath));
         }},
        {"a rename",
         [&] {
             writeFile(archivePath + u".new"_s, evil);
             ASSERT_EQ(rename(QFile::encodeName(archivePath + u".new"_s).constData(),
                              QFile::encodeName(archivePath).constData()),
                       0);
         }},
        {"a write to the same file",
         [&] {
             QFile file(archivePath);
             ASSERT_TRUE(file.open(QIODevice::ReadWrite));
             ASSERT_EQ(file.write(evil), evil.size());
             ASSERT_TRUE(file.resize(evil.size()));
         }},
    };
    for (const auto &[what, exchange] : ways) {
        offer({keyText(key(0))});
        int exchanges = 0;
        files.before = [&, change = exchange](const QString &step) {
            if (step == u"reopen") { // everything has been copied
                change();
                ++exchanges;
            }
            return 0;
        };
        expectInstalled(what);
        EXPECT_EQ(exchanges, 1) << what;
        files.before = [](const QString &) { return 0; };
        QFile::remove(archivePath);
    }
}

TEST_F(SignedInstalling, ArchiveThatIsWrittenToWhileItIsVerifiedIsRefused) {
    offer({keyText(key(0))}, "<key>Filler</key><string>" + QByteArray(10, 'x') + "</string>");
    bool isWritten = false;
    files.before = [&](const QString &step) {
        if (step == u"read" && !std::exchange(isWritten, true))
            writeFile(archivePath, QByteArray(archive).replace(5, 1, "!"));
        return 0;
    };
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine);
    EXPECT_TRUE(isWritten);
}

TEST_F(SignedInstalling, LinkOrPipeInThePlaceOfTheArchiveIsNotRead) {
    writeFile(path(u"elsewhere.tgz"_s), archive);
    const std::pair<const char *, std::function<void()>> ways[] = {
        {"a link", [&] { ASSERT_TRUE(QFile::link(path(u"elsewhere.tgz"_s), archivePath)); }},
        {"a pipe", [&] { ASSERT_EQ(mkfifo(QFile::encodeName(archivePath).constData(), 0600), 0); }},
        {"a folder", [&] { ASSERT_TRUE(QDir().mkpath(archivePath)); }},
        {"nothing", [] {}},
    };
    for (const auto &[what, put] : ways) {
        take(updateWith(archiveTexts(archive, "1043")));
        QDir(archivePath).removeRecursively();
        QFile::remove(archivePath);
        put();
        installToTheEnd();
        EXPECT_EQ(error.domain(), TXUpdateErrorDomain) << what;
        EXPECT_TRUE(error.code() == TXUpdateErrorArchiveNotRead ||
                    error.code() == TXUpdateErrorArchiveNotGenuine)
            << what << error.toString().toStdString();
        EXPECT_TRUE(namesIn(*tx::downloadsDirectory()).isEmpty()) << what;
        EXPECT_FALSE(logLines().contains(u"TXUpdate: Beginning unarchive"_s)) << what;
    }
}

TEST_F(SignedInstalling, CopyThatFailsKeepsTheArchiveForAnotherTry) {
    for (const QString &step : {u"create"_s, u"read"_s, u"write"_s, u"reopen"_s}) {
        take(updateWith(archiveTexts(archive, "1043")));
        files.before = [&](const QString &now) { return now == step ? ENOSPC : 0; };
        installToTheEnd();
        EXPECT_EQ(error.code(), TXUpdateErrorArchiveNotRead) << step.toStdString();
        EXPECT_THAT(error.localizedFailureReason().toStdString(), testing::HasSubstr("No space left"))
            << step.toStdString();
        EXPECT_TRUE(update->isDownloaded()) << step.toStdString();
        EXPECT_EQ(namesIn(cache), QStringList{u"MyApp - 1043.tgz"_s}) << step.toStdString();
    }
    files.before = [](const QString &) { return 0; };
    take(updateWith(archiveTexts(archive, "1043")));
    expectInstalled("once there is room");
}

TEST_F(SignedInstalling, ReleaseWhoseOwnKeysDoNotContinueIsRefused) {
    const std::pair<const char *, std::pair<Keys, QByteArray>> releases[] = {
        {"none", {{}, {}}},
        {"foreign", {{keyText(key(2))}, {}}},
        {"mistyped", {{"minisign:nonsense"}, {}}},
        {"the same twice", {{keyText(key(0)), keyText(key(0))}, {}}},
        {"no list", {{}, "<key>TXUpdatePublicKeys</key><string>x</string>"}},
        {"for feeds only", {{keyText(key(0), "minisign-feed:")}, {}}},
        {"malformed name", {{keyText(key(0))}, "<key>TXUpdateFeedName</key><string></string>"}},
    };
    for (const auto &[what, keys] : releases) {
        offer(keys.first, keys.second);
        expectRefused(TXUpdateErrorReleaseNotContinued, notContinued, what);
    }
    offer({keyText(key(2)), keyText(key(0))});
    expectInstalled("one of its own keys is enough");
    offer({keyText(key(2))}, {}, {0, 2});
    expectInstalled("the bridge to another key, signed by both");
}

TEST_F(SignedInstalling, ApplicationThatIsNotTheSignedOneIsRefused) {
    pack({keyText(key(0))}, {}, u"1042.5"_s);
    take(updateWith(archiveTexts(archive, "1043")));
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, "another build than the signature says");
    pack({keyText(key(0))}, {}, u"1043.0"_s);
    take(updateWith(archiveTexts(archive, "1043")));
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, "builds are compared as bytes");
    pack({keyText(key(0))}, {}, u"1043"_s, u"org.example.Other"_s);
    take(updateWith(archiveTexts(archive, "1043")));
    installToTheEnd();
    EXPECT_EQ(error.localizedDescription(), u"The update could not be unarchived."_s);
    EXPECT_TRUE(namesIn(*tx::downloadsDirectory()).isEmpty());
}

TEST_F(SignedInstalling, UpdateWithoutSignatureIsNotUnpackedHoweverItCame) {
    auto own = std::make_shared<TXUpdate>();
    own->setVersion(u"1043"_s);
    take(own);
    installToTheEnd();
    expectTrustError(error, TXUpdateErrorArchiveNotSigned, updateNotVerified, notSigned);
    becomeHostWith({"minisign:nonsense"});
    take(updateWith(archiveTexts(archive, "1043")));
    installToTheEnd();
    EXPECT_EQ(error.code(), TXUpdateErrorKeysMalformed);
    EXPECT_EQ(namesIn(cache), QStringList{u"MyApp - 1043.tgz"_s}) << "nothing was unpacked";
}

TEST_F(SignedInstalling, UnarchiverOfAHostWithKeysTakesNoFile) {
    const auto attempt = [this](auto begin) {
        QString application = u"none yet"_s;
        TXError refused;
        begin([&](const QString &found, const TXError &e) {
            application = found;
            refused = e;
        });
        EXPECT_TRUE(waitUntil([&] { return application != u"none yet"; }));
        EXPECT_TRUE(application.isNull());
        EXPECT_EQ(refused.code(), TXUpdateErrorArchiveNotSigned) << refused.toString().toStdString();
        EXPECT_EQ(namesIn(cache), QStringList{u"MyApp - 1043.tgz"_s});
    };
    for (const Keys &keys : {Keys{keyText(key(0))}, Keys{"minisign:nonsense"}}) {
        becomeHostWith(keys);
        attempt([this](const auto &done) { TXUpdateUnarchiver::unarchive(archivePath, nullptr, done); });
        attempt([this](const auto &done) {
            TXUpdateUnarchiver::unarchive(tx::VerifiedArchivePtr(), archivePath, nullptr, done,
                                          TXUpdateUnarchiver::forHost(u"1043"_s));
        });
    }
}

TEST_F(SignedInstalling, PlainSignatureOfAnAppcastIsVerifiedOverTheBytes) {
    const Keys keys{keyText(key(0)), plainKeyText(key(1))};
    becomeHostWith(keys, "<key>TXUpdateRequiresSignedFeed</key><false/>");
    pack(keys);
    take(plainlySigned(archive, key(1), archive.size()));
    EXPECT_TRUE(update->isSigned());
    expectInstalled();
    pack(keys);
    take(plainlySigned(archive, key(2), archive.size()));
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, "somebody else's");
    pack(keys);
    take(plainlySigned(archive, key(1), archive.size() + 1));
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, "another length");
    pack(keys);
    take(plainlySigned(archive, key(1), archive.size()));
    writeFile(archivePath, QByteArray(archive).replace(archive.size() / 2, 1, "!"));
    expectRefused(TXUpdateErrorArchiveNotGenuine, notGenuine, "changed");
    pack({keyText(key(0))});
    take(plainlySigned(archive, key(1), archive.size()));
    expectRefused(TXUpdateErrorReleaseNotContinued, notContinued, "its own keys do not verify it");
}

TEST_F(SignedInstalling, WithAnAdministratorsRightsWhatWasVerifiedGoesToTheProgramOfRoots) {
    FaultFileSystem system;
    system.failOn(u"isWritable"_s, EACCES);
    ScriptedAuthorization authorization;
    files.before = [this](const QString &step) {
        if (step == u"reopen") // from now on the file in the folder is a different one
            writeFile(archivePath, "another");
        return 0;
    };
    install();
    ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty() || calls > 0; }));
    EXPECT_EQ(exits, QList<int>{0}) << error.toString().toStdString();
    EXPECT_EQ(authorization.jobArchive, archive);
    EXPECT_EQ(authorization.job.value(0), u"install-signed"_s);
    EXPECT_EQ(authorization.job.value(authorization.job.size() - 1).toStdString(),
              archiveTexts(archive, "1043")[0]);
}

TEST_F(SignedInstalling, HostWithoutKeysCopiesAndVerifiesNothing) {
    becomeHost(u"1042"_s);
    take(updateWith({}));
    expectInstalled();
    EXPECT_EQ(files.copies, 0);
    EXPECT_FALSE(logLines().contains(u"TXUpdate: Beginning verification"_s));
}

} // namespace

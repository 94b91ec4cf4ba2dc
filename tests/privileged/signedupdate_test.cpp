// SPDX-License-Identifier: MIT
// Updates of an application with keys, by the programs that pkexec starts. They verify the archive
// themselves.
#include "install/installerclient.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "os/tasks.h"
#include "posix/installerstatus.h"
#include "posix/posixfiles.h"
#include "tests/privileged/privileged.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/trust/signedreleases.h"
#include "trust/verifiedarchive.h"

#include <QProcess>

#include <fcntl.h>
#include <functional>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::test;
using testing::HasSubstr;
using tx::posix::Descriptor;

namespace {

constexpr uid_t user = 65534;

/// Asks for root's rights as the system does, for a host that can end while the test continues.
class OfAnotherHost final : public tx::Authorization {
public:
    explicit OfAnotherHost(qint64 host)
        : m_host(host) {}
    int create(const QList<tx::AuthorizationItem> &environment, unsigned flags,
               std::unique_ptr<tx::AuthorizationReference> &reference) override {
        return m_native.create(environment, flags, reference);
    }
    int copyRights(tx::AuthorizationReference &reference, const QList<tx::AuthorizationItem> &rights,
                   const QList<tx::AuthorizationItem> &environment, unsigned flags,
                   QList<tx::AuthorizationItem> *authorized) override {
        return m_native.copyRights(reference, rights, environment, flags, authorized);
    }
    int executeWithPrivileges(tx::AuthorizationReference &reference, const tx::AuthorizedJob &job,
                              unsigned flags, std::unique_ptr<tx::Task> &task) override {
        tx::AuthorizedJob mine = job;
        mine.words[1] = QString::number(m_host);
        return m_native.executeWithPrivileges(reference, mine, flags, task);
    }
    bool canExecute() const override { return m_native.canExecute(); }
    void free(std::unique_ptr<tx::AuthorizationReference> reference, unsigned flags) override {
        m_native.free(std::move(reference), flags);
    }

private:
    tx::Authorization &m_native = tx::nativeAuthorization();
    qint64 m_host;
};

class SignedUpdate : public Privileged {
protected:
    const QString home = path(u"home"_s);
    const QString ran = home + u"/ran"_s;
    QString resources;
    SignedRelease release;
    QProcess host;

    SignedUpdate() {
        release.bundle = path(u"release/New.app"_s);
        release.archive = archive;
    }
    ~SignedUpdate() override {
        host.kill();
        host.waitForFinished();
    }
    /// Makes an application with keys, a release that these keys have signed, and an application unpacked by
    /// the user that differs from the signed one. Returns false where root cannot act as the user.
    bool prepare(const QVariant &keys = keyTexts({0, 1})) {
        resources = makeApplication(application);
        setInfo(application, u"TXUpdatePublicKeys"_s, keys);
        tx::setMainBundle(TXBundle(application));
        tx::resetHost();
        playPkexec("echo \"$@\" > '" + QFile::encodeName(path(u"command"_s)) + "'", QByteArray::number(user));
        makeUpdate("#!/bin/sh\necho evil > '" + QFile::encodeName(ran) + "'\n");
        release.description.program = "#!/bin/sh\necho signed > '" + QFile::encodeName(ran) + "'\n";
        release.make();
        QFile::remove(ran);
        writeFile(QFileInfo(archive).path() + u"/TXUpdateInstaller.environment"_s,
                  "PATH=/usr/bin:/bin" + QByteArray(1, '\0') + "HOME=" + QFile::encodeName(home) + '\0',
                  QFile::ReadOwner | QFile::WriteOwner);
        setMode(path(u""_s), 0755);
        host.start(u"sleep"_s, {u"1000"_s});
        EXPECT_TRUE(host.waitForStarted());
        return give(home, user);
    }
    tx::trust::Outcome<tx::trust::VerifiedArchive> verify() {
        const Descriptor file(open(QFile::encodeName(archive).constData(), O_RDONLY | O_CLOEXEC));
        const Descriptor folder(open(QFile::encodeName(path(u""_s)).constData(), O_PATH | O_CLOEXEC));
        tx::PrivateFiles files;
        return tx::trust::VerifiedArchive::make(keysOf({keyText(key(0)), keyText(key(1))}),
                                                {release.texts, {}}, {hostIdentifier.toStdString(), {}, {}},
                                                file.get(), folder.get(), files);
    }
    QStringList job() const {
        return QStringList{u"install-signed"_s, QString::number(host.processId()), application, fresh,
                           archive} +
               release.lastWords();
    }
    Descriptor openArchive() const {
        return Descriptor(open(QFile::encodeName(archive).constData(), O_RDONLY | O_CLOEXEC));
    }
    /// Runs the program with a job that it must refuse without changing anything.
    void expectRefused(int status, const std::string &reason, const QStringList &words,
                       const QList<int> &files) {
        const QStringList before = treeOf(application);
        const ProcessResult result = runHelper(resources, wordsOf(words), QByteArray::number(user), files);
        EXPECT_EQ(result.status, status) << result.errors.constData();
        EXPECT_TRUE(result.output.startsWith("authorized\n")) << result.output.constData();
        EXPECT_THAT(result.output.toStdString(), HasSubstr(reason)) << "the host reads it there";
        EXPECT_EQ(treeOf(application), before);
        EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
        EXPECT_TRUE(QFileInfo::exists(fresh));
    }
    void endHost() {
        host.kill();
        host.waitForFinished();
    }
};

TEST_F(SignedUpdate, IsWhatRootHasVerifiedAndUnpackedWhateverTheUserExchangesLater) {
    if (!isReal())
        return expectNoWay();
    const struct {
        const char *what;
        std::function<void()> exchange;
    } cases[] = {
        {"nothing", [] {}},
        {"a link",
         [&] {
             ASSERT_TRUE(QFile::remove(archive));
             ASSERT_TRUE(QFile::link(u"/etc/passwd"_s, archive));
         }},
        {"a rename",
         [&] {
             writeFile(home + u"/evil.zip"_s, QByteArray::fromStdString(release.bytes).replace("2", "3"));
             ASSERT_EQ(rename(QFile::encodeName(home + u"/evil.zip"_s).constData(),
                              QFile::encodeName(archive).constData()),
                       0);
         }},
        {"a write to the same file",
         [&] {
             const Descriptor file(open(QFile::encodeName(archive).constData(), O_WRONLY | O_CLOEXEC));
             const std::string zeros(release.bytes.size(), '\0');
             ASSERT_EQ(pwrite(file.get(), zeros.data(), zeros.size(), 0), ssize_t(zeros.size()));
         }},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        const bool canBecome = prepare();
        const QStringList signedTree = treeOf(release.bundle);
        const QStringList oldTree = treeOf(application);
        auto verified = verify();
        ASSERT_TRUE(verified) << verified.fault().what;
        OfAnotherHost other(host.processId());
        tx::services().authorization = &other;
        TXError error;
        const bool isReady =
            TXUpdateInstallerClient::sharedInstance()->launchToolWithAuthorizationToInstallURL(
                fresh, archive, &error, &*verified);
        tx::services().authorization = &tx::nativeAuthorization();
        EXPECT_TRUE(wasAsked());
        EXPECT_EQ(readFile(path(u"command"_s)).trimmed().toStdString(),
                  (resources + u"/TXUpdateAuthorize"_s).toStdString())
            << "the update is verified, so nothing is said to whoever is asked";
        if (!canBecome) {
            EXPECT_FALSE(isReady);
            EXPECT_THAT(error.localizedFailureReason().toStdString(),
                        HasSubstr("cannot give up the rights of an administrator"));
            EXPECT_EQ(treeOf(application), oldTree);
            EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
            endHost();
            continue;
        }
        ASSERT_TRUE(isReady) << error.localizedFailureReason().toStdString();
        EXPECT_EQ(treeOf(application), oldTree) << "it waits for the host to end";
        each.exchange();
        endHost();
        ASSERT_TRUE(waitUntil([&] { return readFile(ran).endsWith("\n"); }));
        EXPECT_EQ(readFile(ran).toStdString(), "signed\n") << "it runs as the user";
        EXPECT_EQ(treeOf(application), signedTree);
        EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
        EXPECT_FALSE(QFileInfo::exists(fresh)) << "what the user unpacked is removed, not installed";
        EXPECT_FALSE(QFileInfo(archive).isSymLink() || QFileInfo::exists(archive));
        struct stat info {};
        ASSERT_EQ(lstat("/opt/Host.app/Contents/Linux/Program", &info), 0);
        EXPECT_EQ(info.st_uid, 0U);
        EXPECT_EQ(info.st_gid, 0U);
    }
}

TEST_F(SignedUpdate, IsInstalledOnlyFromOneRegularFile) {
    if (!isReal())
        return expectNoWay();
    (void)prepare();
    int pipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    const Descriptor reading(pipe[0]);
    const Descriptor writing(pipe[1]);
    const Descriptor file = openArchive();
    const Descriptor named(open(QFile::encodeName(archive).constData(), O_PATH | O_CLOEXEC));
    const Descriptor folder(open("/opt", O_RDONLY | O_CLOEXEC));
    const Descriptor device(open("/dev/zero", O_RDONLY | O_CLOEXEC));
    const Descriptor memory(open("/proc/self/mem", O_RDWR | O_CLOEXEC));
    const struct {
        const char *what;
        QList<int> files;
        const char *reason;
    } cases[] = {
        {"a pipe", {reading.get()}, "the archive is not a regular file"},
        {"a folder", {folder.get()}, "the archive is not a regular file"},
        {"a device", {device.get()}, "the archive is not a regular file"},
        {"the memory of a process", {memory.get()}, "the archive is not a file on a disk"},
        {"a name", {named.get()}, "the archive was not opened for reading"},
        {"three descriptors", {file.get(), file.get(), file.get()}, "3 descriptors came"},
        {"none", {}, "the archive did not come with the job"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        expectRefused(64, each.reason, job(), each.files);
    }
    // A job that is too long, and one that arrives through a pipe.
    QStringList endless = job();
    endless << QString(70000, u'x');
    expectRefused(64, "the job is longer than 65536 bytes", endless, {file.get()});
    const ProcessResult piped = runProcess(
        u"env"_s, {u"-i"_s, u"PKEXEC_UID=65534"_s, resources + u"/TXUpdateAuthorize"_s}, wordsOf(job()));
    EXPECT_EQ(piped.status, 64);
    EXPECT_THAT(piped.output.toStdString(), HasSubstr("is not a local socket of packets"));
}

TEST_F(SignedUpdate, IsInstalledOnlyIfTheKeysHaveSignedIt) {
    if (!isReal())
        return expectNoWay();
    (void)prepare();
    const SignedRelease right = release;
    const struct {
        const char *what;
        std::function<void()> change;
        const char *reason;
    } cases[] = {
        {"a flipped bit", [&] { release.bytes[release.bytes.size() / 2] ^= 1; },
         "the archive is not the one that key"},
        {"somebody else's signature",
         [&] {
             release.signers = {2};
             release.sign();
         },
         "is by one of the application's keys"},
        {"no signature", [&] { release.texts.clear(); }, "there is no signature"},
        {"another build",
         [&] {
             release.claim.build = "3";
             release.sign();
         },
         "the archive holds build \"2\", expected was \"3\""},
        {"another identifier",
         [&] {
             release.claim.bundle = "org.example.Other";
             release.sign();
         },
         "the signature is for the application \"org.example.Other\""},
        {"without keys of its own",
         [&] {
             release.keys = {};
             release.make();
         },
         "has no usable keys of its own"},
        {"the installed build, replayed",
         [&] {
             release.description.build = u"1"_s;
             release.make();
         },
         "build 1 is not newer than the installed build 1"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        release = right;
        each.change();
        writeFile(archive, QByteArray::fromStdString(release.bytes));
        expectRefused(65, each.reason, job(), {openArchive().get()});
    }
    release = right;
    writeFile(archive, QByteArray::fromStdString(release.bytes));
    expectRefused(64, "has keys, so it is updated only by archives that they have signed",
                  installJob(host.processId()), {});
    QStringList words = job();
    words[2] = u"/opt"_s;
    expectRefused(64, "is not the application that this program is a part of", words, {openArchive().get()});
    // The program reads and runs its own Info.plist and programs only if root owns them.
    const QString info = application + u"/Contents/Info.plist"_s;
    setMode(info, 0666);
    expectRefused(73, "Info.plist can be written to by other users", job(), {openArchive().get()});
    setMode(info, 0644);
    setMode(resources + u"/TXUpdateUnpacker"_s, 0777);
    expectRefused(73, "TXUpdateUnpacker can be written to by other users", job(), {openArchive().get()});
    setMode(resources + u"/TXUpdateUnpacker"_s, 0755);
    // Malformed keys never count as "no keys".
    (void)prepare(QVariantList{u"minisign:x"_s});
    expectRefused(65, "TXUpdatePublicKeys", job(), {openArchive().get()});
    expectRefused(65, "TXUpdatePublicKeys", installJob(host.processId()), {});
}

TEST_F(SignedUpdate, InstallerIsToldWhatItMayRemoveAndInheritsNothingElse) {
    if (!isReal())
        return expectNoWay();
    (void)prepare();
    const QString installer = resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    ASSERT_TRUE(QFile::remove(installer));
    ASSERT_EQ(runProcess(u"cp"_s, {helpersFolder() + u"/installer_stand_in"_s, installer}).status, 0);
    setMode(installer, 0755);
    const ProcessResult result =
        runHelper(resources, wordsOf(job()), QByteArray::number(user), {openArchive().get()});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    const QString fromRoot = u"/opt/.Host.app.txupdate-verified/New.app"_s;
    QList<QByteArray> lines = result.output.split('\n');
    for (QByteArray &line : lines) {
        if (line.startsWith("descriptor 1 ") || line.startsWith("descriptor 2 "))
            line = line.first(12); // the numbers of this test's pipes vary
    }
    EXPECT_EQ(lines,
              (QList<QByteArray>{
                  "authorized", "argument " + QByteArray::number(host.processId()),
                  "argument " + QFile::encodeName(fromRoot), "argument " + QFile::encodeName(application),
                  "argument " + QFile::encodeName(archive), "variable PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                  "variable PKEXEC_UID=65534", "variable TXUPDATE_VERIFIED=" + QFile::encodeName(fresh),
                  "alarm 0", "descriptor 0 /dev/null", "descriptor 1", "descriptor 2", ""}))
        << result.output.constData();
    EXPECT_EQ(treeOf(fromRoot), treeOf(release.bundle));
}

TEST_F(SignedUpdate, GoesFromTheSignedFeedToTheReopeningWithARealHost) {
    if (!isReal())
        return expectNoWay();
    if (!prepare())
        return; // root is the only user here, so no host can run as another user
    ASSERT_TRUE(QFile::remove(archive));
    ASSERT_TRUE(QDir(fresh).removeRecursively());
    QDir().mkpath(u"/way"_s);
    ASSERT_EQ(runProcess(u"cp"_s, {helpersFolder() + u"/pkexec_stand_in"_s, u"/way/pkexec"_s}).status, 0);
    setMode(u"/way/pkexec"_s, 04755);
    const QStringList oldTree = treeOf(application);
    const QStringList signedTree = treeOf(release.bundle);
    FeedServer server;
    const QByteArray feed =
        signedFeed(feedOf({entryFor(u"2"_s, server.url(u"/New.zip"_s), release.texts)}), {0},
                   {hostIdentifier.toStdString(), "release", QDateTime::currentSecsSinceEpoch(), 60});
    QByteArray served = QByteArray::fromStdString(release.bytes);
    server.always([&](const HttpRequest &request) {
        return request.path() == "/feed.json" ? HttpReply::json(feed) : HttpReply::file(served);
    });
    const auto runHost = [&] {
        return runProcess(u"setpriv"_s,
                          {u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, u"env"_s, u"-i"_s,
                           u"HOME="_s + home, u"PATH=/way:/usr/bin:/bin"_s,
                           u"TXUPDATE_RESOURCES="_s + resources, u"FAULT_PLAN="_s + home + u"/plan"_s,
                           helpersFolder() + u"/survival/fault_host"_s, application, u"update"_s,
                           server.url(u"/feed.json"_s)});
    };
    // One bit is changed in transit.
    served[served.size() / 2] = char(served[served.size() / 2] ^ 1);
    ProcessResult result = runHost();
    EXPECT_EQ(result.status, 1) << result.output.constData() << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), HasSubstr("not downloaded: "));
    EXPECT_EQ(treeOf(application), oldTree);
    served = QByteArray::fromStdString(release.bytes);
    result = runHost();
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), HasSubstr("handed over"));
    ASSERT_TRUE(waitUntil([&] { return readFile(ran).endsWith("\n"); })) << result.errors.constData();
    EXPECT_EQ(readFile(ran).toStdString(), "signed\n");
    EXPECT_EQ(treeOf(application), signedTree);
    EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
    struct stat info {};
    ASSERT_EQ(lstat("/opt/Host.app/Contents/Linux/Program", &info), 0);
    EXPECT_EQ(info.st_uid, 0U);
}

TEST_F(SignedUpdate, WithoutKeysWhoeverIsAskedIsToldThatNobodyVerifies) {
    if (!isReal())
        return expectNoWay();
    const bool canBecome = prepare({});
    expectRefused(64, "did not say that the update is not verified", installJob(host.processId()), {});
    expectRefused(64, "has no keys (TXUpdatePublicKeys) to verify an update with", job(),
                  {openArchive().get()});
    EXPECT_EQ(runProcess(resources + u"/TXUpdateAuthorize"_s, {u"the-update-is-verified"_s}).status, 64);
    // Files that a killed run of another update left are removed as well.
    makeBundle(u"/opt/.Host.app.txupdate-verified/New.app"_s, {});
    const QStringList newTree = treeOf(fresh);
    OfAnotherHost other(host.processId());
    tx::services().authorization = &other;
    TXError error;
    EXPECT_EQ(TXUpdateInstallerClient::sharedInstance()->launchToolWithAuthorizationToInstallURL(
                  fresh, archive, &error),
              canBecome)
        << error.localizedFailureReason().toStdString();
    tx::services().authorization = &tx::nativeAuthorization();
    EXPECT_EQ(readFile(path(u"command"_s)).trimmed().toStdString(),
              (resources + u"/TXUpdateAuthorize the-update-is-not-verified"_s).toStdString())
        << "polkit's dialog shows the command line among its details";
    EXPECT_THAT(logLines(), testing::Contains(u"TXUpdate: AuthInstall: The application has no keys; nobody "
                                              "verifies the update."_s));
    endHost();
    if (!canBecome)
        return;
    ASSERT_TRUE(waitUntil([&] { return readFile(ran).endsWith("\n"); }));
    EXPECT_EQ(treeOf(application), newTree);
    EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
}

TEST_F(SignedUpdate, InstallerTakesForVerifiedOnlyWhatRootHasPutBesideTheApplication) {
    if (!isReal())
        return expectNoWay();
    (void)prepare();
    const QString installer = resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s;
    const auto run = [&](const QString &application_, const QByteArray &asking) {
        return runProcess(u"env"_s, {u"-i"_s, u"PKEXEC_UID="_s + QString::fromLatin1(asking),
                                     u"TXUPDATE_VERIFIED="_s + fresh, installer,
                                     QString::number(host.processId()), application_, application, archive});
    };
    const QStringList before = treeOf(application);
    ProcessResult result = run(fresh, "0");
    EXPECT_EQ(result.status, tx::installer::StatusForbidden) << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), HasSubstr("is not in /opt/.Host.app.txupdate-verified"));
    // Next to the application, but written by another user.
    const QString verified = u"/opt/.Host.app.txupdate-verified"_s;
    makeBundle(verified + u"/New.app"_s, {.identifier = hostIdentifier, .build = u"3"_s});
    setMode(verified, 0777);
    result = run(verified + u"/New.app"_s, "0");
    EXPECT_EQ(result.status, tx::installer::StatusForbidden) << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), HasSubstr(verified.toStdString() + " can be written to"));
    setMode(verified, 0755);
    // An installation that cannot begin removes all of it.
    result = run(verified + u"/New.app"_s, "4242");
    EXPECT_EQ(result.status, tx::installer::StatusUsage) << result.errors.constData();
    EXPECT_EQ(namesIn(u"/opt"_s), QStringList{u"Host.app"_s});
    EXPECT_EQ(treeOf(application), before);
}

} // namespace

// SPDX-License-Identifier: MIT
#include "install/installerclient.h"

#include "model/host_p.h"
#include "model/updatefolder.h"
#include "os/mainbundle.h"
#include "posix/posixfiles.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/processes.h"
#include "tests/trust/signedreleases.h"
#include "trust/verifiedarchive.h"

#include <TarvixUpdate/TXUpdateHost.h>

#include <QCoreApplication>
#include <QLocale>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

class InstallerClient : public tx::test::FrameworkTest {
protected:
    TXUpdateInstallerClient *client = TXUpdateInstallerClient::sharedInstance();
    tx::test::RecordingTasks tasks;
    tx::test::ScriptedAuthorization authorization;
    QList<int> exits;
    TXError error;
    const QString application = path(u"cache/New \u00FC.app"_s);
    const QString archive = path(u"cache/New - 5.zip"_s);
    const QString cache = tx::UpdateFolder::ofHost().path();

    InstallerClient() {
        tx::services().exitProcess = [this](int status) { exits << status; };
        QLocale::setDefault(QLocale(u"en_GB"_s));
    }
    ~InstallerClient() override { QLocale::setDefault(QLocale::c()); }

    QStringList expectedArguments() const {
        return {QString::number(QCoreApplication::applicationPid()), application,
                path(u"Applications/Host.app"_s), archive};
    }
    QStringList expectedJob() const {
        return {u"install"_s, QString::number(QCoreApplication::applicationPid()), application, archive};
    }
    bool authorized() {
        return client->launchToolWithAuthorizationToInstallURL(application, archive, &error);
    }
    void expectReason(const QString &reason) {
        EXPECT_EQ(error,
                  TXError(u"TXUpdater"_s, 0, u"The application update could not be installed."_s, reason));
    }
};

TEST_F(InstallerClient, StartsTheToolFromItsCopyAndEndsTheProcess) {
    EXPECT_TRUE(client->installUnarchivedApp(application, archive, &error));
    EXPECT_EQ(exits, QList<int>{0});
    ASSERT_EQ(tasks.started.size(), 1);
    const tx::TaskRequest &started = tasks.started.first();
    EXPECT_EQ(started.program, cache + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s);
    EXPECT_EQ(started.arguments, expectedArguments());
    ASSERT_TRUE(started.environment);
    EXPECT_EQ(*started.environment, QStringList{u"HostApplicationName=Host"_s}) << "exactly this variable";
    EXPECT_TRUE(started.ownSession);
    EXPECT_TRUE(QFileInfo(started.program).isExecutable());
    EXPECT_THAT(
        logLines(),
        testing::ElementsAre(u"TXUpdate: Installing needs no authorization"_s,
                             u"TXUpdate: Launching installer (%1)"_s.arg(expectedArguments().join(u", "_s)),
                             u"TXUpdate: installer task launched successfully. Exiting now..."_s));
}

/// A script in the place of the tool's copy, started for real.
class InstallerWord : public InstallerClient {
protected:
    tx::test::FaultFileSystem files;
    QByteArray script;

    InstallerWord() {
        tasks.runsForReal = true;
        files.observer = [this](const QString &operation, const QString &p) {
            if (operation == u"replaceFile" && p.endsWith(u".environment"_s) && !script.isNull())
                tx::test::writeFile(TXUpdateInstallerClient::executableOfTool(),
                                    "#!/bin/sh\necho $$ > '" + path(u"pid"_s).toUtf8() + "'\n" + script,
                                    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        };
    }
    bool isRunning() const { return tx::test::isAlive(tx::test::readFile(path(u"pid"_s)).toLongLong()); }
};

TEST_F(InstallerWord, ProcessEndsOnceTheToolIsReadyAndTheToolStays) {
    EXPECT_EQ(tx::services().installerReadyTime, std::chrono::seconds(30));
    script = "printf rea; echo dy; exec sleep 1000\n";
    EXPECT_TRUE(client->installUnarchivedApp(application, archive, &error));
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_TRUE(isRunning());
    kill(static_cast<pid_t>(tx::test::readFile(path(u"pid"_s)).toLongLong()), SIGKILL);
}

TEST_F(InstallerWord, WithoutTheWordTheHostStaysWithTheToolsReason) {
    struct Case {
        QByteArray script;
        QString reason;
    };
    for (const Case &c :
         {Case{"exit 3\n", u"It ended with status 3 and gave no reason."_s},
          Case{"kill -9 $$\n", u"It ended with status 137 and gave no reason."_s},
          Case{"echo the disk is full; exit 73\n", u"the disk is full"_s},
          Case{"echo ready when you are; exit 0\n", u"ready when you are"_s},
          Case{"printf ready; exit 0\n", u"ready"_s}, Case{"echo; echo ready; exit 0\n", u"ready"_s},
          Case{"echo no; exec > /dev/null; exec sleep 1000\n", u"no"_s},
          Case{"exec yes\n", QString::fromLatin1(QByteArray("y\n").repeated(2048).trimmed())},
          Case{"exec sleep 1000\n", u"It did not say within 1.5 seconds that it is ready."_s},
          Case{"echo busy; exec sleep 1000\n",
               u"It did not say within 1.5 seconds that it is ready. busy"_s}}) {
        SCOPED_TRACE(c.script.constData());
        // Short only where the time passes: a busy machine may take long to start a shell.
        tx::services().installerReadyTime =
            c.reason.contains(u"1.5 seconds"_s) ? std::chrono::milliseconds(1500) : std::chrono::seconds(60);
        script = c.script;
        error = {};
        EXPECT_FALSE(client->installUnarchivedApp(application, archive, &error));
        expectReason(u"The installer tool cannot do its work. "_s + c.reason);
        EXPECT_TRUE(exits.isEmpty());
        EXPECT_TRUE(tx::test::waitUntil([this] { return !isRunning(); })) << "the tool has been ended";
        EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()));
        EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::environmentRecord()));
    }
}

TEST_F(InstallerWord, RealToolNamesWhatIsWrong) {
    tx::test::makeBundle(application, {.identifier = u"org.example.Other"_s});
    EXPECT_FALSE(client->installUnarchivedApp(application, archive, &error));
    EXPECT_THAT(
        error.localizedFailureReason().toStdString(),
        testing::HasSubstr("the identifiers differ: org.example.Other would replace org.example.Host"));
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("TXUpdate: The installer tool is not ready. the identifiers differ"));
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(InstallerClient, SessionIsRecordedForTheUserAlone) {
    qputenv("TARVIX_TEST_SESSION", "a=b\nc");
    EXPECT_TRUE(client->prepareInstallerHelperTool(&error));
    const QByteArray record = tx::test::readFile(cache + u"/TXUpdateInstaller.environment"_s);
    EXPECT_TRUE(record.split('\0').contains("TARVIX_TEST_SESSION=a=b\nc"));
    EXPECT_TRUE(record.endsWith('\0')) << "else it would count as cut off";
    const mode_t before = umask(027);
    EXPECT_TRUE(client->prepareInstallerHelperTool(&error));
    EXPECT_EQ(umask(before), 027U) << "recorded without being changed";
    EXPECT_TRUE(tx::test::readFile(cache + u"/TXUpdateInstaller.environment"_s)
                    .split('\0')
                    .contains(QByteArray("umask 27")));
    struct stat info {};
    ASSERT_EQ(lstat((cache + u"/TXUpdateInstaller.environment"_s).toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U);
    qunsetenv("TARVIX_TEST_SESSION");
}

TEST_F(InstallerClient, StaleCopyIsReplaced) {
    tx::test::writeFile(cache + u"/TXUpdateInstaller.app/stale"_s, "x");
    chmod(cache.toUtf8().constData(), 0700);
    EXPECT_TRUE(client->prepareInstallerHelperTool(&error));
    EXPECT_EQ(tx::test::treeOf(TXUpdateInstallerClient::copyOfTool()),
              tx::test::treeOf(TXUpdateInstallerClient::sourceOfTool()));
}

TEST_F(InstallerClient, AuthorizationIsNeededWhereTheUsersOwnRightsDoNotSuffice) {
    const QString host = path(u"Applications/Host.app"_s);
    const QString source = path(u"cache/New.app"_s);
    struct Case {
        const char *what;
        bool needed;
        QString closed;
        QString extra;
    };
    const Case cases[] = {
        {"both are writable", false, u"x"_s, {}},
        {"the bundle is not", true, u"Applications/Host.app"_s, {}},
        {"the folder is not, but its contents can be exchanged", false, u"Applications"_s, {}},
        {"the installed bundle holds more", true, u"Applications"_s, host + u"/extra"_s},
        {"the new bundle holds more", true, u"Applications"_s, source + u"/extra"_s},
        {"the contents are not writable", true, u"Applications/Host.app/Contents"_s, {}},
    };
    for (const Case &c : cases) {
        becomeHost(u"1"_s);
        tx::test::makeBundle(source, {});
        QDir().mkpath(path(u"x"_s));
        if (!c.extra.isNull())
            tx::test::writeFile(c.extra, "x");
        const QString folder = path(c.closed);
        ASSERT_EQ(chmod(folder.toUtf8().constData(), 0500), 0);
        const QString above = path(u"Applications"_s);
        const bool closesAbove = c.closed.endsWith(u"/Contents"_s);
        if (closesAbove) {
            ASSERT_EQ(chmod(above.toUtf8().constData(), 0500), 0);
        }
        {
            const tx::test::DroppedPrivileges user(path(u""_s));
            EXPECT_EQ(client->needsAuthorizationToInstallToURL(host, source), c.needed) << c.what;
        }
        ASSERT_EQ(chmod(above.toUtf8().constData(), 0700), 0);
        ASSERT_EQ(chmod(folder.toUtf8().constData(), 0700), 0);
    }
    // Somebody else's bundle; only root can make one.
    if (geteuid() == 0) {
        becomeHost(u"1"_s);
        ASSERT_EQ(chmod(path(u"Applications"_s).toUtf8().constData(), 0555), 0);
        const tx::test::DroppedPrivileges user(path(u"cache"_s));
        ASSERT_TRUE(client->needsAuthorizationToInstallToURL(host, source));
    }
}

TEST_F(InstallerClient, EachStepOfThePreparationHasItsReason) {
    struct Case {
        QString operation;
        QString part;
        QString reason;
    };
    for (const Case &c :
         {Case{u"remove"_s, u"TXUpdateInstaller.app"_s,
               u"A pre-existing installer tool could not be removed."_s},
          Case{u"createDirectory"_s, {}, u"The folder to contain the installer tool could not be created."_s},
          Case{u"checkPrivateDirectory"_s,
               {},
               u"The folder to contain the installer tool could not be created."_s},
          Case{u"copy"_s, {}, u"The installer tool could not be copied into its temporary location."_s},
          Case{u"replaceFile"_s,
               {},
               u"The installer tool could not be copied into its temporary location."_s}}) {
        QDir(cache).removeRecursively();
        if (c.operation == u"remove") {
            tx::test::writeFile(cache + u"/TXUpdateInstaller.app/x"_s, "x");
            chmod(cache.toUtf8().constData(), 0700);
        }
        tx::test::FaultFileSystem faults;
        faults.failOn(c.operation, EIO, c.part);
        EXPECT_FALSE(client->installUnarchivedApp(application, archive, &error)) << c.operation.toStdString();
        EXPECT_EQ(error.domain(), u"TXUpdater"_s);
        EXPECT_EQ(error.localizedDescription(), u"The application update could not be installed."_s);
        EXPECT_EQ(error.localizedFailureReason(), c.reason);
        EXPECT_EQ(error.underlyingError().code(), EIO);
    }
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(InstallerClient, CopyThatIsNotThereIsNoticed) {
    tx::test::FaultFileSystem faults;
    faults.failOn(u"exists"_s, ENOENT, u"TXUpdateInstaller.app"_s);
    EXPECT_FALSE(client->prepareInstallerHelperTool(&error));
    expectReason(u"The copied installer tool does not exist where it should."_s);
    EXPECT_TRUE(error.underlyingError().isNull());
}

TEST_F(InstallerClient, FailedLaunchIsReportedAndTheCopyRemoved) {
    tasks.failing = [](const tx::TaskRequest &) { return ENOEXEC; };
    EXPECT_FALSE(client->installUnarchivedApp(application, archive, &error));
    EXPECT_EQ(error.domain(), u"NSCocoaErrorDomain"_s);
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(error.localizedDescription(),
              u"The update could not be installed because the updater tool could not be launched."_s);
    EXPECT_THAT(error.localizedFailureReason().toStdString(), testing::HasSubstr("Exec format error"));
    EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()));
    EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::environmentRecord()));
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("TXUpdate: Installer task failed to launch. "));
}

TEST_F(InstallerClient, CopyThatCannotBeRemovedIsLogged) {
    EXPECT_TRUE(client->prepareInstallerHelperTool(nullptr));
    tx::test::FaultFileSystem faults;
    faults.failOn(u"remove"_s, EBUSY);
    client->removeInstallerHelperTool();
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("The installer helper tool could not be removed. "));
}

TEST_F(InstallerClient, NothingToInstallIsAnErrorAndTheHostLives) {
    EXPECT_FALSE(client->installUnarchivedApp({}, archive, &error));
    EXPECT_EQ(error.localizedDescription(), u"The application update could not be installed."_s);
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(tasks.started.isEmpty());
}

TEST_F(InstallerClient, AuthorizedRoadAsksForTheRightAndNamesWhatToInstall) {
    tx::AuthorizationItem plain;
    plain.name = "system.privilege.admin";
    tx::AuthorizationItem valued;
    valued.name = "x";
    valued.value = "v";
    valued.flags = 3;
    authorization.grants = {plain, valued};
    tx::test::FaultFileSystem faults;
    faults.failOn(u"isWritable"_s, EACCES);
    EXPECT_TRUE(client->installUnarchivedApp(application, archive, &error));
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_TRUE(tasks.started.isEmpty());
    EXPECT_EQ(authorization.calls,
              (QStringList{u"create 0"_s, u"copyRights"_s, u"execute 0"_s, u"free 8"_s}));
    ASSERT_EQ(authorization.lastRights.size(), 1);
    EXPECT_EQ(authorization.lastRights.first().name, QByteArray("system.privilege.admin"));
    EXPECT_FALSE(authorization.lastRights.first().value.has_value());
    EXPECT_EQ(authorization.rightsFlags, 19U);
    EXPECT_EQ(authorization.job, expectedJob());
    EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()))
        << "a copy could be replaced while the user types the password";
    EXPECT_TRUE(QFileInfo::exists(TXUpdateInstallerClient::environmentRecord()));
    EXPECT_THAT(logLines(),
                testing::ElementsAre(u"TXUpdate: Installing needs authorization"_s,
                                     u"TXUpdate: AuthInstall: The application has no keys; nobody verifies "
                                     "the update."_s,
                                     u"TXUpdate: AuthInstall: creating authorization"_s,
                                     u"Obtained right:  system.privilege.admin / 0"_s, u"value: is NULL"_s,
                                     u"Obtained right:  x / 3"_s, u"value: v"_s,
                                     u"TXUpdate: AuthInstall: Will execute with privileges.\nPath: "_s +
                                         TXUpdateInstallerClient::executableOfInstalledTool(),
                                     u"TXUpdate: installer task launched successfully. Exiting now..."_s));
}

/// A host with keys, and an archive that these keys have signed.
class SignedInstallerClient : public InstallerClient {
protected:
    tx::test::SignedRelease release;
    const QString bundle = TXUpdateHost::host()->bundle().bundlePath();

    SignedInstallerClient() {
        setKeys(tx::test::keyTexts({0, 1}));
        release.bundle = path(u"release/New.app"_s);
        release.archive = archive;
        release.make();
    }
    void setKeys(const QVariant &keys) {
        tx::test::setInfo(bundle, u"TXUpdatePublicKeys"_s, keys);
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
    }
    tx::trust::VerifiedArchive verify(const std::vector<std::string> &keys,
                                      const tx::trust::ArchiveSignatures &signatures) {
        const tx::posix::Descriptor file(open(QFile::encodeName(archive).constData(), O_RDONLY | O_CLOEXEC));
        const tx::posix::Descriptor folder(
            open(QFile::encodeName(path(u""_s)).constData(), O_PATH | O_CLOEXEC));
        tx::PrivateFiles files;
        auto verified = tx::trust::VerifiedArchive::make(tx::test::keysOf(keys), signatures,
                                                         {hostIdentifier.toStdString(), {}, {}}, file.get(),
                                                         folder.get(), files);
        EXPECT_TRUE(verified) << verified.fault().what;
        return *std::move(verified);
    }
};

TEST_F(SignedInstallerClient, HandsTheVerifiedArchiveAndItsSignaturesToTheProgramOfRoots) {
    release.signers = {0, 1};
    release.sign();
    const auto verified = verify({tx::test::keyText(tx::test::key(0)), tx::test::keyText(tx::test::key(1))},
                                 {release.texts, std::nullopt});
    tx::test::FaultFileSystem faults;
    faults.failOn(u"isWritable"_s, EACCES);
    // The file in the download folder differs from the verified one.
    tx::test::writeFile(archive, "another");
    EXPECT_TRUE(client->installUnarchivedApp(application, archive, &error, &verified));
    EXPECT_EQ(exits, QList<int>{0});
    QStringList job{u"install-signed"_s,
                    QString::number(QCoreApplication::applicationPid()),
                    bundle,
                    application,
                    archive,
                    u""_s,
                    u""_s};
    for (const std::string &text : release.texts)
        job << QString::fromStdString(text);
    EXPECT_EQ(authorization.job, job);
    EXPECT_EQ(authorization.jobArchive.toStdString(), release.bytes);
    EXPECT_TRUE(authorization.rightsEnvironment.size() == 1) << "the prompt, and no remark";
    EXPECT_FALSE(logLines().join(u'\n').contains(u"no keys"));
}

TEST_F(SignedInstallerClient, HandsOverAPlainSignatureWithItsLength) {
    setKeys(QVariantList{QString::fromStdString(tx::test::plainKeyText(tx::test::key(0)))});
    const tx::trust::SignatureBytes signature = tx::test::key(0).sign(release.bytes);
    const auto verified = verify({tx::test::plainKeyText(tx::test::key(0))},
                                 {{}, tx::trust::PlainSignature{signature, release.bytes.size()}});
    ASSERT_TRUE(client->launchToolWithAuthorizationToInstallURL(application, archive, &error, &verified));
    EXPECT_EQ(authorization.job.mid(5),
              (QStringList{QString::fromStdString(tx::trust::base64(signature.data(), signature.size())),
                           QString::number(release.bytes.size())}));
}

TEST_F(SignedInstallerClient, WithoutAVerifiedArchiveNobodyIsAsked) {
    EXPECT_FALSE(authorized());
    expectReason(u"This application installs only updates that its keys have signed, and this one was not "
                 "verified. Download it again."_s);
    setKeys(QVariantList{u"minisign:x"_s});
    EXPECT_FALSE(authorized());
    EXPECT_THAT(error.localizedFailureReason().toStdString(), testing::HasSubstr("TXUpdatePublicKeys"));
    EXPECT_TRUE(authorization.calls.isEmpty());
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(InstallerClient, WithoutKeysTheQuestionSaysThatNobodyVerifies) {
    ASSERT_TRUE(authorized());
    ASSERT_EQ(authorization.rightsEnvironment.size(), 2);
    EXPECT_EQ(authorization.rightsEnvironment.first().name, QByteArray("prompt"));
    EXPECT_EQ(authorization.rightsEnvironment.last().name, QByteArray(tx::authorizationDetail));
    EXPECT_EQ(authorization.rightsEnvironment.last().value, QByteArray("the-update-is-not-verified"));
    EXPECT_EQ(authorization.job, expectedJob());
    EXPECT_TRUE(authorization.jobArchive.isNull());
    QLocale::setDefault(QLocale(u"de_DE"_s));
    ASSERT_TRUE(authorized());
    ASSERT_EQ(authorization.rightsEnvironment.size(), 1) << "in every language";
    EXPECT_EQ(authorization.rightsEnvironment.first().name, QByteArray(tx::authorizationDetail));
}

TEST_F(InstallerClient, PromptIsEnglishOnlyAndCountedInCharacters) {
    ASSERT_TRUE(authorized());
    ASSERT_EQ(authorization.lastEnvironment.size(), 1);
    const QString prompt = u"An administrator's password is required to install New \u00FC.app."_s;
    EXPECT_EQ(authorization.lastEnvironment.first().name, QByteArray("prompt"));
    EXPECT_EQ(authorization.lastEnvironment.first().value, prompt.toUtf8());
    EXPECT_EQ(authorization.lastEnvironment.first().valueLength, quint64(prompt.size()));
    EXPECT_EQ(authorization.lastEnvironment.first().flags, 0U);
    QLocale::setDefault(QLocale(u"de_DE"_s));
    ASSERT_TRUE(authorized());
    EXPECT_TRUE(authorization.lastEnvironment.isEmpty());
}

TEST_F(InstallerClient, DeniedCreationIsRepeatedUntilItIsNot) {
    authorization.createStatuses = {-60005, -60005, -60005, 0};
    EXPECT_TRUE(authorized());
    EXPECT_EQ(authorization.calls.count(u"create 0"_s), 4);
}

TEST_F(InstallerClient, FailedCreationHasItsReason) {
    authorization.createStatuses = {-60008};
    EXPECT_FALSE(authorized());
    expectReason(u"Couldn't get authorization to launch the installer tool."_s);
    EXPECT_THAT(logLines(),
                testing::Contains(u"TXUpdate: AuthInstall: authorization failed with error -60008"_s));
}

TEST_F(InstallerClient, PathsOfThePrivilegedJobGoThroughNoLinks) {
    tx::test::makeBundle(path(u"there/New.app"_s), {});
    tx::test::writeFile(path(u"there/New.zip"_s), "x");
    ASSERT_TRUE(QFile::link(path(u"there"_s), path(u"link"_s)));
    ASSERT_TRUE(client->launchToolWithAuthorizationToInstallURL(path(u"link/New.app"_s),
                                                                path(u"link/New.zip"_s), &error));
    EXPECT_EQ(authorization.job.mid(2),
              (QStringList{QFileInfo(path(u"there/New.app"_s)).canonicalFilePath(),
                           QFileInfo(path(u"there/New.zip"_s)).canonicalFilePath()}));
}

TEST_F(InstallerClient, CancelledDialogHasItsNumberAndTheReferenceIsKept) {
    authorization.rightsStatus = -60006;
    EXPECT_FALSE(authorized());
    expectReason(u"Couldn't get authorization to launch the installer tool. -60006"_s);
    EXPECT_THAT(logLines(), testing::Contains(u"AuthorizationCopyRights returned -60006"_s));
    EXPECT_EQ(authorization.calls, (QStringList{u"create 0"_s, u"copyRights"_s}));
    EXPECT_EQ(*authorization.livingReferences, 1) << "it is neither freed nor lost";
    // The next try has one of its own, which is freed when the tool was started.
    authorization.rightsStatus = 0;
    EXPECT_TRUE(authorized());
    EXPECT_EQ(authorization.calls.last(), u"free 8"_s);
    EXPECT_EQ(*authorization.livingReferences, 1);
}

TEST_F(InstallerClient, ToolThatIsNotReadyLeavesTheHostRunning) {
    tx::test::FaultFileSystem faults;
    faults.failOn(u"isWritable"_s, EACCES);
    for (const QByteArray &answer :
         {QByteArray("nobody can write there\n"), QByteArray("Ready\n"), QByteArray()}) {
        authorization.jobSays = answer;
        authorization.jobStatus = 73;
        EXPECT_FALSE(client->installUnarchivedApp(application, archive, &error)) << answer.constData();
        EXPECT_EQ(error.localizedDescription(), u"The application update could not be installed."_s);
        EXPECT_THAT(error.localizedFailureReason().toStdString(),
                    testing::HasSubstr(answer.isEmpty() ? "It ended with status 73"
                                                        : answer.trimmed().toStdString()));
        EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::environmentRecord()));
    }
    EXPECT_TRUE(exits.isEmpty());
}

TEST_F(InstallerClient, FailedExecutionHasItsReasonAndNamesAMissingTool) {
    authorization.executeStatus = -60031;
    EXPECT_FALSE(authorized());
    expectReason(u"The authorized installer tool failed to launch. -60031"_s);
    EXPECT_EQ(authorization.calls.last(), u"free 8"_s);
    {
        tx::test::FaultFileSystem faults;
        faults.failOn(u"exists"_s, ENOENT, u"TXUpdateInstaller"_s);
        EXPECT_FALSE(authorized());
    }
    expectReason(
        u"The authorized installer tool failed to launch. -60031\nThe installer tool doesn't exist at:\n%1"_s
            .arg(TXUpdateInstallerClient::executableOfInstalledTool()));
    authorization.executeStatus = -60007;
    EXPECT_FALSE(authorized());
    expectReason(u"The authorized installer tool failed to launch. -60007"_s);
    EXPECT_THAT(logLines(),
                testing::Contains(u"TXUpdate: AuthInstall: execution failed with error -60007"_s));
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/install/installingtest.h"

using namespace Qt::StringLiterals;
using tx::test::Installing;
using tx::test::waitUntil;
using tx::test::WithoutInstaller;

namespace {

/// Everything is unpacked for real, and the installer tool is only recorded.
class Asking : public Installing, public TXUpdaterDelegate {
protected:
    tx::test::RecordingTasks tasks;
    QStringList events;
    std::weak_ptr<void> permission;
    bool applicationAgrees = true;
    /// What the delegate does with the question; without it the application is asked.
    std::function<void(const TXQuitReply &reply)> answer;
    int questions = 0;
    QStringList handedOn;

    QStringList relaunchArgumentsForUpdater(TXUpdater *) override {
        if (!handedOn.isEmpty())
            events << u"arguments asked"_s;
        return handedOn;
    }
    QString relaunchDirectoryForUpdater(TXUpdater *) override {
        return handedOn.isEmpty() ? QString() : u"/tmp"_s;
    }

    Asking() {
        tasks.runsForReal = true;
        tasks.failing = [this](const tx::TaskRequest &request) {
            if (request.program.endsWith(u"/TXUpdateInstaller"_s))
                events << u"tool"_s;
            return 0;
        };
        files.observer = [](const QString &operation, const QString &p) {
            if (operation == u"replaceFile" && p.endsWith(u".environment"_s))
                tx::test::writeFile(TXUpdateInstallerClient::executableOfTool(), "#!/bin/sh\necho ready\n",
                                    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        };
        tx::services().requestQuit = [this]() -> std::shared_ptr<void> {
            events << u"application asked"_s;
            if (!applicationAgrees)
                return nullptr;
            const auto made = std::make_shared<int>(1);
            permission = made;
            return made;
        };
        tx::services().exitProcess = [this](int status) {
            events << u"exit %1"_s.arg(status);
            EXPECT_TRUE(answer || !permission.expired()) << "held until the process ends";
            exits << status;
        };
    }
    ~Asking() override { TXUpdater::sharedUpdater()->setDelegate(nullptr); }
    void updaterShouldQuitToInstall(TXUpdater *updater, TXUpdate &asked, const TXQuitReply &reply) override {
        ++questions;
        EXPECT_EQ(updater, TXUpdater::sharedUpdater());
        EXPECT_EQ(&asked, update.get());
        EXPECT_TRUE(asked.isInstalling());
        EXPECT_FALSE(events.contains(u"tool"_s)) << "asked before the tool is started";
        EXPECT_FALSE(reply.isAnswered());
        if (answer)
            answer(reply);
        else
            TXUpdaterDelegate::updaterShouldQuitToInstall(updater, asked, reply);
    }
    /// Forgets what happened so far, and offers the same archive again.
    void renew() {
        update = std::make_shared<TXUpdate>();
        update->setVersion(u"2000"_s);
        update->setDisplayVersion(u"2.1"_s);
        tx::test::drainEvents();
        downloaded(cache + u"/MyApp - 2000.zip"_s);
        QDir(TXUpdateInstallerClient::copyOfTool()).removeRecursively();
        events.clear();
        exits.clear();
        calls = 0;
        questions = 0;
    }
    void expectRefused() {
        ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
        tx::test::drainEvents();
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(error.domain(), TXCocoaErrorDomain);
        EXPECT_EQ(error.code(), TXErrorCancelled);
        EXPECT_EQ(error.localizedDescription(),
                  u"The update was not installed because the application was not quit."_s);
        EXPECT_EQ(error.localizedRecoverySuggestion(), u"You can install the update later."_s);
        EXPECT_FALSE(update->isInstalling());
        EXPECT_TRUE(update->isDownloaded()) << "as it was before";
        EXPECT_FALSE(events.contains(u"tool"_s));
        EXPECT_TRUE(exits.isEmpty());
        EXPECT_TRUE(alerts.isEmpty());
        EXPECT_FALSE(QFileInfo::exists(TXUpdateInstallerClient::copyOfTool()));
        EXPECT_TRUE(tx::test::namesIn(*tx::downloadsDirectory()).isEmpty());
        EXPECT_TRUE(folderIsFree());
    }

private:
    tx::test::FaultFileSystem files;
};

TEST_F(Asking, ApplicationIsAskedBeforeTheToolStartsAndEndsAfterIt) {
    for (const bool withDelegate : {false, true}) {
        renew();
        TXUpdater::sharedUpdater()->setDelegate(withDelegate ? this : nullptr);
        install();
        ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
        EXPECT_EQ(events, (QStringList{u"application asked"_s, u"tool"_s, u"exit 0"_s})) << withDelegate;
        EXPECT_EQ(questions, withDelegate ? 1 : 0);
        EXPECT_EQ(calls, 0);
    }
}

TEST_F(Asking, DelegatePassesOnArgumentsOnceItHasAgreed) {
    handedOn = QStringList{u"-n"_s, u"secret=$(x)"_s};
    TXUpdater::sharedUpdater()->setDelegate(this);
    install();
    ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
    EXPECT_EQ(events, (QStringList{u"application asked"_s, u"arguments asked"_s, u"tool"_s, u"exit 0"_s}));
    const QByteArray record = tx::test::readFile(TXUpdateInstallerClient::environmentRecord());
    EXPECT_TRUE(record.endsWith(QByteArray("\0\0/tmp\0-n\0secret=$(x)\0", 22))) << "after the variables";
    EXPECT_FALSE(logLines().join(u'\n').contains(u"secret"));
}

TEST_F(Asking, RefusalInstallsNothingAndTheUpdateCanBeInstalledLater) {
    applicationAgrees = false;
    install();
    expectRefused();
    applicationAgrees = true;
    install();
    ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
    EXPECT_EQ(calls, 1);
}

TEST_F(Asking, DelegateAnswersOnceAndTheFirstAnswerCounts) {
    struct Case {
        const char *what;
        std::function<void(const TXQuitReply &)> answer;
        bool installs, asksApplication;
    };
    const Case cases[] = {
        {"quit", [](const TXQuitReply &r) { r.quit(); }, true, false},
        {"refuse", [](const TXQuitReply &r) { r.refuse(); }, false, false},
        {"ask", [](const TXQuitReply &r) { r.askApplication(); }, true, true},
        {"no answer", [](const TXQuitReply &) {}, false, false},
        {"refuse, then quit",
         [](const TXQuitReply &r) {
             r.refuse();
             EXPECT_TRUE(r.isAnswered());
             r.quit();
             r.askApplication();
         },
         false, false},
    };
    TXUpdater::sharedUpdater()->setDelegate(this);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        renew();
        answer = c.answer;
        install();
        if (c.installs)
            EXPECT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
        else
            expectRefused();
        tx::test::drainEvents();
        EXPECT_EQ(exits.size(), c.installs ? 1 : 0);
        EXPECT_EQ(events.contains(u"application asked"_s), c.asksApplication);
    }
}

TEST_F(Asking, InstallationWaitsForAnAnswerThatIsPostponed) {
    TXUpdater::sharedUpdater()->setDelegate(this);
    for (const bool quits : {false, true}) {
        std::optional<TXQuitReply> kept;
        answer = [&](const TXQuitReply &reply) { kept = reply; };
        calls = 0;
        install();
        ASSERT_TRUE(waitUntil([&] { return kept.has_value(); }));
        tx::test::drainEvents();
        EXPECT_TRUE(update->isInstalling());
        EXPECT_FALSE(folderIsFree());
        EXPECT_TRUE(events.isEmpty());
        EXPECT_EQ(calls, 0);
        const TXQuitReply copy = *kept;
        if (quits) {
            kept->quit();
            EXPECT_EQ(events, (QStringList{u"tool"_s, u"exit 0"_s}));
        } else {
            kept->refuse();
            expectRefused();
        }
        EXPECT_TRUE(copy.isAnswered());
        copy.quit();
        EXPECT_LE(exits.size(), 1) << "answered once";
    }
}

TEST_F(Asking, UpdateMayGoWhileTheAnswerIsPostponed) {
    TXUpdater::sharedUpdater()->setDelegate(this);
    std::optional<TXQuitReply> kept;
    answer = [&](const TXQuitReply &reply) { kept = reply; };
    install();
    ASSERT_TRUE(waitUntil([&] { return kept.has_value(); }));
    update.reset();
    kept->quit();
    tx::test::drainEvents();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(error.code(), TXErrorCancelled);
    EXPECT_TRUE(events.isEmpty());
    EXPECT_TRUE(folderIsFree());
}

TEST_F(Asking, PermissionIsHeldUntilAFailureHasBeenTold) {
    tasks.failing = [](const tx::TaskRequest &request) {
        return request.program.endsWith(u"/TXUpdateInstaller"_s) ? EACCES : 0;
    };
    bool held = false;
    update->installWithErrorHandler([&](const TXError &) {
        ++calls;
        held = !permission.expired();
    });
    ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
    EXPECT_TRUE(held);
    tx::test::drainEvents();
    EXPECT_TRUE(permission.expired()) << "the application may go on, or end";
    EXPECT_FALSE(update->isInstalling());
}

TEST_F(Asking, NobodyIsAskedWhereThereIsNothingToInstall) {
    tx::test::writeFile(cache + u"/MyApp.dmg"_s, "x");
    downloaded(cache + u"/MyApp.dmg"_s);
    installAndWait();
    EXPECT_FALSE(events.contains(u"application asked"_s));
}

} // namespace

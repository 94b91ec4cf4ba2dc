// SPDX-License-Identifier: MIT
#include "tests/widgets/standardcontrollertest.h"

using namespace Qt::StringLiterals;
using tx::test::Delegate;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::newer;
using tx::test::older;
using tx::test::post;
using tx::test::StandardController;
using tx::test::waitUntil;

namespace {

TEST_F(StandardController, SetupSwitchesCheckingOnAndChecksQuietly) {
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json("{\"release\":[]}"); });
    controller->setup();
    TXUpdater *updater = TXUpdater::sharedUpdater();
    EXPECT_EQ(updater->delegate(), controller.get());
    EXPECT_TRUE(updater->automaticallyChecksForUpdates());
    EXPECT_EQ(updater->updateCheckInterval(), 86400);
    EXPECT_TRUE(updater->sendsSystemProfile());
    EXPECT_TRUE(controller->feed() == nullptr);
    // The profile goes along with this first check.
    ASSERT_TRUE(waitUntil([&] { return controller->feed() != nullptr; }));
    EXPECT_EQ(server.requests().first().method, QByteArray("POST"));
    EXPECT_FALSE(shown<TXUpdateCheckingPanel>());
}

TEST_F(StandardController, SetupKeepsAStoredChoiceAboutTheProfile) {
    tx::services().firstCheckDelay = std::chrono::hours(1);
    TXUpdater *updater = TXUpdater::sharedUpdater();
    controller->setup();
    EXPECT_TRUE(updater->sendsSystemProfile()) << "on where nothing is stored";
    updater->setSendsSystemProfile(false);
    for (int start = 0; start < 2; ++start) {
        makeController();
        controller->setup();
        EXPECT_FALSE(updater->sendsSystemProfile());
    }
    server.expect("GET", "/feed.json", HttpReply::json("{}"));
    check(false, false);
    EXPECT_EQ(server.requests().last().method, QByteArray("GET")) << "and nothing is sent";
    updater->setSendsSystemProfile(true);
    makeController();
    controller->setup();
    EXPECT_TRUE(updater->sendsSystemProfile());
}

TEST_F(StandardController, StatusTellsOfAPlaceThatCannotBeUpdated) {
    EXPECT_EQ(controller->status(), 0U);
    beOnReadOnlyVolume();
    makeController();
    EXPECT_EQ(controller->status(), 1U);
    controller->setup();
    tx::test::drainEvents();
    EXPECT_TRUE(alerts.isEmpty()) << "no check, so no complaint";
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(StandardController, QuietCheckThatFindsNothingSaysNothing) {
    setUp();
    expectFeed({older});
    check(false, true);
    EXPECT_TRUE(controller->feed());
    EXPECT_FALSE(controller->bestUpdate());
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_FALSE(shown<QDialog>());
    EXPECT_TRUE(delegate.statuses.contains(2U));
    EXPECT_EQ(delegate.statuses.last(), 0U);
}

TEST_F(StandardController, QuietCheckOffersWhatItFinds) {
    setUp();
    expectFeed({newer, older});
    check(false, true);
    auto *panel = shown<TXUpdatePanel>();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->designatedUpdate(), controller->bestUpdate());
    EXPECT_EQ(panel->updates().size(), 1) << "what applies of the whole feed";
    EXPECT_TRUE(panel->allowsDownloadingInBackground());
    controller->showBestUpdateInPanel();
    EXPECT_EQ(shown<TXUpdatePanel>(), panel) << "brought to the front";
    panel->closeWithCode(0);
    tx::test::drainEvents();
    controller->showBestUpdateInPanel();
    EXPECT_NE(shown<TXUpdatePanel>(), nullptr) << "a fresh one";
    shown<TXUpdatePanel>()->closeWithCode(0);
    EXPECT_TRUE(logLines().contains(u"Recommended update is: 1043"_s));
    EXPECT_FALSE(logLines().filter(u"bestUpdate is 1043 (2026-11-01"_s).isEmpty());
}

/// Two newer versions, of which the first is the best.
QList<QByteArray> twoNewer(const QString &archive) {
    return {R"({"type":"build","title":"Newest","build":"1044","version":"2.2","date":"2026-11-02 10:00:00",)"
            R"("downloadURL":"http://127.0.0.1:1/b.zip"})",
            R"({"type":"build","title":"New","build":"1043","version":"2.1","date":"2026-11-01 10:00:00",)"
            R"("downloadURL":")" +
                archive.toUtf8() + R"("})"};
}

TEST_F(StandardController, SecondCheckWithAnEqualFeedSelectsTheUpdateThatItOffers) {
    setUp();
    for (const bool showsChecking : {false, true}) {
        expectFeed(twoNewer(u"http://127.0.0.1:1/a.zip"_s));
        check(showsChecking, true);
        auto *panel = shown<TXUpdatePanel>();
        ASSERT_TRUE(panel);
        EXPECT_EQ(panel->designatedUpdate(), controller->bestUpdate());
        EXPECT_EQ(panel->updates().indexOf(controller->bestUpdate()), 0);
        auto *table = outlet<TXUpdateVersionsTableView>(panel, "versionsTableView");
        EXPECT_EQ(table->selectedRow(), 0) << showsChecking;
        const auto chosenMark = [&](int row) {
            return qobject_cast<QLabel *>(
                       table->viewForRow(row)->viewWithTag(TXUpdateVersionRow::ChosenImage))
                ->pixmap();
        };
        EXPECT_FALSE(chosenMark(0).isNull());
        EXPECT_TRUE(chosenMark(1).isNull());
        panel->cancel();
        tx::test::drainEvents();
    }
}

TEST_F(StandardController, VersionThatTheUserDownloadedIsDownloadedInTheNextPanelToo) {
    setUp();
    const QList<QByteArray> entries = twoNewer(server.url(u"/a.zip"_s));
    expectFeed(entries);
    check(false, true);
    auto *panel = shown<TXUpdatePanel>();
    ASSERT_TRUE(panel);
    const TXUpdatePtr chosen = panel->updates()[1];
    panel->chooseUpdate(chosen);
    server.expect("GET", "/a.zip", HttpReply::file("zip"));
    panel->install();
    ASSERT_TRUE(waitUntil([&] { return chosen->isDownloaded(); }));
    panel->closeWithCode(0);
    tx::test::drainEvents();
    expectFeed(entries);
    check(false, true);
    panel = shown<TXUpdatePanel>();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->designatedUpdate(), controller->bestUpdate()) << "the best one is offered again";
    panel->chooseUpdate(panel->updates()[1]);
    EXPECT_EQ(panel->designatedUpdate(), chosen);
    EXPECT_EQ(tx::buttonTitle(outlet<QPushButton>(panel, "installButton")), u"Install & Relaunch"_s);
    panel->closeWithCode(0);
    tx::test::drainEvents();
    // Once the better one has gone from the feed, the downloaded one is the best, as it is.
    expectFeed({entries[1]});
    check(false, true);
    EXPECT_EQ(controller->bestUpdate(), chosen);
    shown<TXUpdatePanel>()->closeWithCode(0);
}

TEST_F(StandardController, ChoiceInAnOpenPanelStaysWhenAnotherCheckFindsTheSame) {
    setUp();
    const QList<QByteArray> entries = twoNewer(u"http://127.0.0.1:1/a.zip"_s);
    expectFeed(entries);
    check(false, true);
    auto *panel = shown<TXUpdatePanel>();
    ASSERT_TRUE(panel);
    const TXUpdatePtr chosen = panel->updates()[1];
    panel->chooseUpdate(chosen);
    expectFeed(entries);
    check(false, true);
    EXPECT_EQ(shown<TXUpdatePanel>(), panel);
    EXPECT_EQ(panel->designatedUpdate(), chosen);
    EXPECT_EQ(outlet<TXUpdateVersionsTableView>(panel, "versionsTableView")->selectedRow(), 1);
    panel->closeWithCode(0);
}

TEST_F(StandardController, WithoutShowingTheUpdateOnlyTheStatusChanges) {
    setUp();
    expectFeed({newer});
    check(false, false);
    EXPECT_TRUE(controller->bestUpdate());
    EXPECT_FALSE(shown<TXUpdatePanel>());
    expectFeed({older});
    inModalSession([] {});
    check(true, false);
    EXPECT_FALSE(shown<QDialog>()) << "the checking panel closes without a word";
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(StandardController, VisibleCheckTurnsIntoUpToDate) {
    setUp();
    expectFeed({older});
    QTimer timer;
    QString text;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        auto *panel = shown<TXUpdateCheckingPanel>();
        if (!panel || !outlet(panel, "messageField")->isVisible())
            return;
        text = outlet(panel, "messageField")->text();
        panel->cancel();
    });
    timer.start(5);
    controller->checkForUpdateAndShowChecking(true, true);
    EXPECT_TRUE(text.startsWith(u"You are running the latest version of "_s)) << text.toStdString();
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(StandardController, VisibleCheckLastsItsPause) {
    setUp();
    tx::services().checkingPause = std::chrono::milliseconds(300);
    expectFeed({newer});
    QElapsedTimer timer;
    timer.start();
    controller->checkForUpdateAndShowChecking(true, true);
    EXPECT_GE(timer.elapsed(), 300);
    ASSERT_TRUE(shown<TXUpdatePanel>());
    EXPECT_FALSE(shown<TXUpdateCheckingPanel>());
    shown<TXUpdatePanel>()->closeWithCode(0);
}

TEST_F(StandardController, WithoutItsPanelAVisibleCheckAnswersInAnAlert) {
    // Not set up: there is no checking panel.
    expectFeed({older});
    check(true, true);
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, u"Process is up to date!"_s);
    EXPECT_EQ(alerts[0].informative, u"You are running the latest version of Process."_s);
    EXPECT_TRUE(alerts[0].buttons.isEmpty()) << "the desktop's own";
    QWidget window;
    delegate.parent = &window;
    expectFeed({older});
    check(true, true);
    EXPECT_EQ(alerts.size(), 2) << "a window that is not visible takes no sheet";
    window.show();
    expectFeed({older}, "beta");
    check(true, true);
    EXPECT_EQ(alerts.size(), 2);
    ASSERT_EQ(sheets.size(), 1) << "and a feed without the track says the same";
    EXPECT_EQ(sheets[0].parent, &window);
    sheets[0].handler(0);
}

TEST_F(StandardController, UpToDateAlertSpeaksTheUsersLanguage) {
    tx::services().preferredLanguages = [] { return QStringList{u"fr"_s}; };
    expectFeed({older});
    check(true, true);
    ASSERT_EQ(alerts.size(), 1);
    const auto french = [](const QString &key) {
        const QString text = tx::localizedFormat(key, {u"Process"_s});
        EXPECT_NE(text, QString(key).replace(u"%@"_s, u"Process"_s)) << "there is a translation";
        return text;
    };
    EXPECT_EQ(alerts[0].message, french(u"%@ is up to date!"_s));
    EXPECT_EQ(alerts[0].informative, french(u"You are running the latest version of %@."_s));
}

TEST_F(StandardController, PartsThatTheCheckingPanelLacksDoNotEndTheCheck) {
    replaceResource(u"TXUpdateCheckingPanel.ui"_s,
                    "<ui version=\"4.0\"><class>x</class><widget class=\"QWidget\" name=\"x\"/></ui>");
    setUp();
    expectFeed({newer});
    check(true, true);
    ASSERT_TRUE(shown<TXUpdatePanel>());
    shown<TXUpdatePanel>()->closeWithCode(0);
    expectFeed({older});
    bool seen = false;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
        auto *panel = shown<TXUpdateCheckingPanel>();
        if (!panel || (controller->status() & 2U) != 0)
            return;
        seen = true; // up to date, without words for it
        QTest::keyClick(panel, Qt::Key_Escape);
    });
    timer.start(5);
    controller->checkForUpdateAndShowChecking(true, true);
    EXPECT_TRUE(seen);
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(StandardController, SecondVisibleCheckDoesNotRunThePanelTwice) {
    setUp();
    HttpReply slow = HttpReply::json("{\"release\":[");
    slow.announcedLength = 1000;
    slow.stalls = true;
    server.expect("GET", "/feed.json", slow);
    inModalSession([&] {
        auto *panel = shown<TXUpdateCheckingPanel>();
        ASSERT_TRUE(panel);
        controller->checkForUpdateAndShowChecking(true, true);
        EXPECT_TRUE(panel->isVisible()) << "that call returned at once";
        panel->cancel();
    });
    controller->checkForUpdateAndShowChecking(true, true);
    ASSERT_TRUE(waitUntil([&] { return !server.requests().isEmpty(); }));
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_F(StandardController, QuietChecksNeverReportErrors) {
    server.expect("GET", "/feed.json", {.status = 500});
    check(false, true);
    EXPECT_TRUE(alerts.isEmpty());
    server.expect("GET", "/feed.json", {.status = 500});
    check(true, true);
    ASSERT_EQ(alerts.size(), 1) << "visible ones do";
    EXPECT_TRUE(alerts[0].critical);
}

TEST_F(StandardController, OfflineErrorsHaveTheirOwnWords) {
    struct Case {
        QString domain;
        int code;
        bool replaced;
    };
    for (const Case &c :
         {Case{TXURLErrorDomain, tx::UrlErrorTimedOut, true},
          Case{TXURLErrorDomain, tx::UrlErrorNotConnectedToInternet, true},
          Case{TXURLErrorDomain, tx::UrlErrorCannotFindHost, false}, Case{u"TXUpdater"_s, -1009, false}}) {
        alerts.clear();
        controller->checkingDidReceiveError(TXError(c.domain, c.code, u"As it came"_s), true);
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(errors.last().domain(), c.replaced ? TXUpdateErrorDomain : c.domain);
        EXPECT_EQ(errors.last().code(), c.code);
        if (c.replaced) {
            EXPECT_EQ(errors.last().underlyingError().localizedDescription(), u"As it came"_s);
            EXPECT_EQ(alerts[0].message,
                      u"Process cannot check for updates because you are not connected to the internet."_s);
            EXPECT_EQ(alerts[0].informative,
                      u"Check your connection and try again.\n\nYou can also download the "
                      "latest version on the website."_s);
        } else {
            EXPECT_EQ(alerts[0].message, u"As it came"_s);
        }
        controller->checkingDidReceiveError(TXError(c.domain, c.code, u"As it came"_s), false);
        EXPECT_EQ(alerts.size(), 1);
    }
}

TEST_F(StandardController, EqualRecommendationLeavesTheBestUpdateAlone) {
    controller->setFeed(fetch({newer}));
    const TXUpdatePtr best = controller->bestUpdate();
    ASSERT_TRUE(best);
    controller->setFeed(fetch({newer}));
    EXPECT_EQ(controller->bestUpdate(), best);
    controller->setFeed(fetch({older}));
    EXPECT_FALSE(controller->bestUpdate());
    EXPECT_TRUE(controller->track());
    controller->setFeed(fetch({newer}, "beta"));
    EXPECT_FALSE(controller->track());
}

TEST_F(StandardController, AutomaticDownloadsTakeWhatCanBeTaken) {
    struct Case {
        const char *what;
        std::function<void(TXUpdate &)> arrange;
        bool downloads;
    };
    const Case cases[] = {
        {"plain", [](TXUpdate &) {}, true},
        {"downloaded", [](TXUpdate &u) { u.setDownloaded(true); }, false},
        {"no file", [](TXUpdate &u) { u.setFileURL({}); }, false},
        {"excluded", [](TXUpdate &u) { u.setExcludeFromAutoDownloading(true); }, false},
    };
    for (const bool automatically : {true, false}) {
        TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(automatically);
        for (const Case &c : cases) {
            const TXUpdatePtr update = makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s));
            c.arrange(*update);
            if (automatically && c.downloads)
                server.expect("GET", "/a.zip", HttpReply::file("zip"));
            controller->setBestUpdate(update);
            EXPECT_FALSE(update->isDownloading()) << "not before the next turn of the loop";
            tx::test::drainEvents();
            if (automatically && c.downloads)
                EXPECT_TRUE(waitUntil([&] { return update->isDownloaded(); })) << c.what;
            else
                EXPECT_FALSE(update->isDownloading()) << c.what;
        }
    }
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(StandardController, ChoiceOfTheUserEndsTheAutomaticDownload) {
    TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(true);
    server.expect("GET", "/a.zip", {.body = "half", .announcedLength = 100, .stalls = true});
    server.expect("GET", "/b.zip", HttpReply::file("zip"));
    const TXUpdatePtr automatic = makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s));
    controller->setBestUpdate(automatic);
    ASSERT_TRUE(waitUntil([&] { return automatic->downloadSize() == 100; }));
    const TXUpdatePtr chosen = makeUpdate(u"1044"_s, u"2.2"_s, server.url(u"/b.zip"_s));
    chosen->downloadWithProgress(nullptr, [](const TXError &) {});
    EXPECT_FALSE(automatic->isDownloading());
    EXPECT_TRUE(waitUntil([&] { return chosen->isDownloaded(); }));
    EXPECT_TRUE(alerts.isEmpty() && errors.isEmpty());
    TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(false);
}

TEST_F(StandardController, FailedAutomaticDownloadIsTold) {
    TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(true);
    server.expect("GET", "/a.zip", {.status = 404});
    controller->setBestUpdate(makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s)));
    ASSERT_TRUE(waitUntil([&] { return !alerts.isEmpty(); }));
    EXPECT_TRUE(alerts[0].critical);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors[0].userInfo()[u"email"_s], QVariant(true));
    EXPECT_EQ(errors[0].code(), tx::UrlErrorFileDoesNotExist) << "domain and code stay";
    TXUpdater::sharedUpdater()->setAutomaticallyDownloadsUpdates(false);
}

TEST_F(StandardController, ReadOnlyVolumeIsExplained) {
    beOnReadOnlyVolume();
    answer = 1;
    controller->checkForUpdateAndShowChecking(true, true);
    EXPECT_TRUE(server.requests().isEmpty()) << "no check is made";
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_TRUE(alerts[0].critical);
    EXPECT_EQ(alerts[0].message, u"Process is in a read-only volume and cannot be updated."_s);
    EXPECT_EQ(
        alerts[0].informative,
        u"This copy of Process is in a read-only volume named \"My Disk\". Copy Process out of the read-only "
        "volume into your Applications folder, and then relaunch Process from there."_s);
    EXPECT_EQ(alerts[0].buttons, (QStringList{u"Move to Applications Folder"_s, u"Cancel"_s}));
    tx::services().volumeInfo = [](const QString &) { return std::optional<tx::VolumeInfo>(); };
    tx::services().mountFlagsAreReadOnly = [](const QString &) { return true; };
    EXPECT_TRUE(controller->complainIfInReadOnlyVolume());
    EXPECT_TRUE(alerts[1].informative.startsWith(u"This copy of Process is in a read-only volume. Copy"_s))
        << "a volume without a name";
}

TEST_F(StandardController, TranslocatedApplicationHasItsOwnTexts) {
    const tx::VolumeInfo volume{.rootPath = u"/media/My Disk"_s, .isReadOnly = true};
    const tx::Alert alert = tx::cannotUpdateInPlaceAlert(u"N"_s, true, volume);
    EXPECT_EQ(alert.message, u"N must be moved to your Applications folder before updating."_s);
    EXPECT_EQ(alert.informative,
              u"This copy of N is in your downloads folder and cannot be updated. Move N into your "
              "Applications folder, and then relaunch N from there."_s)
        << "also on a read-only volume";
    EXPECT_TRUE(alert.critical);
    EXPECT_EQ(alert.buttons, (QStringList{u"Move to Applications Folder"_s, u"Cancel"_s}));
}

TEST_F(StandardController, ReadOnlyVolumeOffersTheMove) {
    beOnReadOnlyVolume();
    tx::services().folders.userApplications = [this] { return path(u"home/Apps"_s); };
    tx::services().folders.localApplications = [] { return QString(); };
    EXPECT_TRUE(controller->complainIfInReadOnlyVolume());
    ASSERT_EQ(alerts.size(), 2) << "the first button moves, and this move fails";
    EXPECT_EQ(alerts[1].message, u"Could not move to Applications folder."_s);
    QWidget window;
    window.show();
    delegate.parent = &window;
    EXPECT_TRUE(controller->complainIfInReadOnlyVolume());
    ASSERT_EQ(sheets.size(), 1);
    EXPECT_EQ(alerts.size(), 2);
    sheets[0].handler(1);
    EXPECT_EQ(alerts.size(), 2);
    sheets[0].handler(0);
    EXPECT_EQ(alerts.size(), 3);
}

TEST_F(StandardController, FeedParametersComeFromTheHost) {
    delegate.parameters = {{u"edition"_s, u"pro"_s}};
    EXPECT_TRUE(controller->feedParametersForUpdater(TXUpdater::sharedUpdater()).isEmpty())
        << "not asked unless it says that it implements them";
    delegate.implements = true;
    EXPECT_EQ(controller->feedParametersForUpdater(TXUpdater::sharedUpdater()), delegate.parameters);
    controller->setDelegate(nullptr);
    EXPECT_TRUE(controller->feedParametersForUpdater(TXUpdater::sharedUpdater()).isEmpty());
}

TEST_F(StandardController, BackgroundCheckAppliesItsFeed) {
    setUp();
    expectFeed({newer});
    TXUpdater::sharedUpdater()->autocheckForUpdate();
    ASSERT_TRUE(waitUntil([&] { return delegate.backgroundChecks == 1; }));
    EXPECT_TRUE(controller->bestUpdate());
    EXPECT_FALSE(shown<TXUpdatePanel>());
}

TEST_F(StandardController, PostsAreShownOnceAndRecorded) {
    controller->setFeed(fetch(
        {post("a"), post("b"), post("q", R"(,"display":"atQuit")"), post("p", R"(,"display":"passive")")}));
    ASSERT_TRUE(waitUntil([&] { return workspace.opened.size() == 2; }));
    EXPECT_EQ(workspace.opened, (QStringList{u"http://127.0.0.1:1/a"_s, u"http://127.0.0.1:1/b"_s}));
    EXPECT_FALSE(controller->displayPostsWithDisplayTime(TXUpdatePostDisplayTimeDefault)) << "handled";
    EXPECT_TRUE(controller->hasPostsToShowAtQuit());
    EXPECT_TRUE(controller->hasPostsToShowPassively());
    EXPECT_TRUE(controller->showPostsPassively());
    EXPECT_EQ(workspace.opened.last(), u"http://127.0.0.1:1/p"_s);
    EXPECT_FALSE(controller->hasPostsToShowPassively());
    EXPECT_FALSE(controller->showPostsPassively());
    const QSignalSpy notifications(TXNotificationCenter::defaultCenter(), &TXNotificationCenter::posted);
    EXPECT_TRUE(controller->showPostsAtQuit());
    EXPECT_EQ(workspace.opened.last(), u"http://127.0.0.1:1/q"_s);
    EXPECT_EQ(notifications, (QList<QVariantList>{{TXUpdatePostWindowDidCloseNotificationName}}));
    EXPECT_FALSE(controller->showPostsAtQuit());
}

TEST_F(StandardController, PostsThatOpenByThemselvesOpenTheWebOnly) {
    QList<TXUpdatePostPtr> posts;
    for (const QString &address : {u"file:///tmp/evil.desktop"_s, u"smb://host/share"_s, u"anything:at-all"_s,
                                   u"mailto:a@example.org"_s, u"http://127.0.0.1:1/a"_s}) {
        auto item = std::make_shared<TXUpdatePost>();
        item->setPostURL(QUrl(address));
        posts << item;
    }
    const auto window = TXUpdatePostWindowController::controller();
    window->setPosts(posts);
    EXPECT_EQ(window->showWindow(), 0);
    EXPECT_EQ(workspace.opened, QStringList{u"http://127.0.0.1:1/a"_s});
}

TEST_F(StandardController, PostsPassTheHostsConditions) {
    const TXUpdateFeedPtr feed = fetch({post("first", R"(,"display":"passive","launch":"first")"),
                                        post("any", R"(,"display":"passive","launch":"any")"),
                                        post("none", R"(,"display":"passive")")});
    controller->setFeed(feed);
    const auto titles = [&] {
        QStringList result;
        for (const TXUpdatePostPtr &item : controller->postsWithDisplayTime(TXUpdatePostDisplayTimePassive))
            result << item->title();
        return result;
    };
    EXPECT_EQ(titles(), (QStringList{u"first"_s, u"any"_s, u"none"_s})) << "no conditions: all pass";
    delegate.conditions = TXUpdateCurrentConditions{TXUpdateConditionLaunchNotFirst};
    EXPECT_EQ(titles(), (QStringList{u"any"_s, u"none"_s}));
    delegate.conditions = TXUpdateCurrentConditions{TXUpdateConditionLaunchFirst};
    EXPECT_EQ(titles(), (QStringList{u"first"_s, u"any"_s}))
        << "without a word a post waits for the second launch";
}

TEST_F(StandardController, PanelIsASheetOfTheHostsWindow) {
    QWidget window;
    window.show();
    delegate.parent = &window;
    controller->setFeed(fetch({newer}));
    controller->showBestUpdateInPanel();
    auto *panel = shown<TXUpdatePanel>();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->windowHandle()->transientParent(), window.windowHandle());
    panel->closeWithCode(0);
}

TEST_F(StandardController, MayGoWhileItChecks) {
    HttpReply slow = HttpReply::json("{}");
    slow.announcedLength = 100;
    slow.stalls = true;
    server.expect("GET", "/feed.json", slow);
    controller->checkForUpdateAndShowChecking(false, true);
    ASSERT_TRUE(waitUntil([&] { return !server.requests().isEmpty(); }));
    controller.reset();
    EXPECT_EQ(TXUpdater::sharedUpdater()->delegate(), nullptr);
    tx::test::drainEvents();
}

TEST_F(StandardController, WithoutItsInterfaceFilesItGoesOn) {
    replaceResource(u"TXUpdateCheckingPanel.ui"_s, {});
    replaceResource(u"TXUpdatePanel.ui"_s, {});
    QFile::remove(path(u"resources/TXUpdateCheckingPanel.ui"_s));
    setUp();
    expectFeed({newer});
    check(true, true);
    EXPECT_TRUE(controller->bestUpdate());
    EXPECT_FALSE(shown<QDialog>());
    EXPECT_TRUE(logLines().contains(u"Could not load TXUpdatePanel xib."_s));
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/widgets/updatepaneltest.h"

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::UpdatePanel;
using tx::test::waitUntil;

namespace {

TEST_F(UpdatePanel, OneUpdateHasNoList) {
    offer(makeUpdates(1));
    show();
    EXPECT_FALSE(outlet<QWidget>(panel.get(), "sidebarContainer")->isVisible());
    EXPECT_FALSE(label("installVersionLabel")->isVisible());
    EXPECT_FALSE(label("secondaryField")->isVisible());
    EXPECT_EQ(label("titleField")->text(), u"Host Update"_s);
    EXPECT_EQ(label("infoField")->text(), u"You are running Host 2.0. Version 2.0.1 is now available."_s);
    EXPECT_TRUE(button("installButton")->isDefault());
    EXPECT_EQ(panel->width(), 750);
    EXPECT_FALSE(panel->needsToShowBuilds());
}

TEST_F(UpdatePanel, SeveralUpdatesAreListed) {
    offer(makeUpdates(3));
    show();
    EXPECT_TRUE(outlet<QWidget>(panel.get(), "sidebarContainer")->isVisible());
    EXPECT_EQ(label("secondaryField")->text(), u"You are 3 updates behind!"_s);
    EXPECT_TRUE(label("secondaryField")->isVisible());
    EXPECT_EQ(label("installVersionLabel")->text(), u"Version 2.0.3 will be installed."_s);
    EXPECT_TRUE(label("installVersionLabel")->isVisible());
    EXPECT_EQ(table()->numberOfRows(), 3);
    EXPECT_EQ(table()->selectedRow(), 0);
    EXPECT_EQ(panel->width(), 860) << "the interface file's own size";
}

TEST_F(UpdatePanel, HasNoTitleBarButtonsAndLargeButtons) {
    EXPECT_FALSE(panel->windowFlags() &
                 (Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint | Qt::WindowMaximizeButtonHint));
    for (const char *name : {"installButton", "cancelButton", "skipButton"})
        EXPECT_GE(button(name)->minimumHeight(), 34) << name;
}

TEST_F(UpdatePanel, SameMarketingVersionsAreToldApartByBuild) {
    offer({makeUpdate(u"1044"_s, u"2.0"_s), makeUpdate(u"1043"_s, u"2.0"_s)});
    show();
    EXPECT_TRUE(panel->needsToShowBuilds());
    EXPECT_EQ(label("infoField")->text(), u"You are running Host 1042. Version 1044 is now available."_s);
    EXPECT_EQ(label("installVersionLabel")->text(), u"Version 2.0 will be installed."_s);
    EXPECT_EQ(partText(0, TXUpdateVersionRow::BuildField), u"Build 1044"_s);
    EXPECT_TRUE(part(0, TXUpdateVersionRow::BuildField)->isVisible());
}

TEST_F(UpdatePanel, RowsShowKindVersionBuildDateAndChoice) {
    offer({makeUpdate(u"1050"_s, u"3.0"_s), makeUpdate(u"1049"_s, u"2.5"_s), makeUpdate({}, u"2.0.1"_s)}, 1);
    show();
    QList<QImage> images;
    for (int row = 0; row < 3; ++row) {
        TXUpdateVersionRow *view = table()->viewForRow(row);
        EXPECT_EQ(view->textField()->text(), updates[row]->displayVersion());
        EXPECT_EQ(view->textField()->font().weight(), row == 0 ? QFont::Bold : QFont::DemiBold);
        EXPECT_EQ(view->textField()->font().pixelSize(), 16);
        images << view->imageView()->pixmap().toImage();
        EXPECT_FALSE(images[row].isNull());
        EXPECT_EQ(partText(row, TXUpdateVersionRow::DateField), tx::mediumDate(updates[row]->date()));
        EXPECT_FALSE(part(row, TXUpdateVersionRow::BuildField)->isVisible());
        EXPECT_EQ(part(row, TXUpdateVersionRow::ChooseButton)->isVisible(), row != 1);
        const auto *chosen = qobject_cast<QLabel *>(part(row, TXUpdateVersionRow::ChosenImage));
        EXPECT_EQ(chosen->pixmap().isNull(), row != 1);
    }
    EXPECT_NE(images[0], images[1]);
    EXPECT_NE(images[1], images[2]);
    EXPECT_EQ(partText(0, TXUpdateVersionRow::BuildField), u"Build 1050"_s);
    EXPECT_EQ(partText(2, TXUpdateVersionRow::BuildField), QString()) << "no build, no text";
}

TEST_F(UpdatePanel, BuildIsNamedInTheUsersLanguage) {
    tx::services().preferredLanguages = [] { return QStringList{u"es"_s}; };
    panel = TXUpdatePanel::panel();
    offer({makeUpdate(u"1044"_s, u"2.0"_s), makeUpdate(u"1043"_s, u"2.0"_s)});
    show();
    EXPECT_EQ(partText(0, TXUpdateVersionRow::BuildField), u"Compilación 1044"_s);
    EXPECT_THAT(table()->viewForRow(0)->accessibleName().toStdString(),
                testing::HasSubstr("Compilación 1044"));
}

TEST_F(UpdatePanel, EqualUpdatesOfTwoChecksAreOne) {
    // The designated one is another check's.
    const QList<TXUpdatePtr> list = makeUpdates(3);
    const TXUpdatePtr designated = makeUpdates(3)[1];
    panel->setUpdatesAndDesignatedUpdate(list, designated);
    show();
    EXPECT_EQ(panel->designatedUpdate(), designated);
    EXPECT_EQ(panel->updates(), (QList<TXUpdatePtr>{list[0], designated, list[2]}));
    EXPECT_EQ(table()->selectedRow(), 1);
    EXPECT_FALSE(part(1, TXUpdateVersionRow::ChooseButton)->isVisible());
    EXPECT_TRUE(part(0, TXUpdateVersionRow::ChooseButton)->isVisible());
    // What was downloaded already is not lost to one that knows nothing of it.
    list[0]->setDownloaded(true);
    const TXUpdatePtr equal = makeUpdates(3)[0];
    panel->chooseUpdate(equal);
    EXPECT_EQ(panel->designatedUpdate(), list[0]);
    EXPECT_EQ(installTitle(), u"Install & Relaunch"_s);
    // One that has been installed is more than that; and the list follows.
    const TXUpdatePtr installed = makeUpdates(3)[0];
    installed->setInstalled(true);
    panel->chooseUpdate(installed);
    EXPECT_EQ(panel->designatedUpdate(), installed);
    EXPECT_EQ(panel->updates()[0], installed);
    EXPECT_EQ(table()->selectedRow(), 0);
    const TXUpdatePtr foreign = makeUpdate(u"1"_s, u"0.1"_s);
    panel->chooseUpdate(foreign);
    EXPECT_EQ(panel->updates().size(), 3);
    EXPECT_FALSE(panel->updates().contains(foreign));
    panel->closeWithCode(0);
}

TEST_F(UpdatePanel, AnotherVersionCanBeChosen) {
    offer(makeUpdates(3));
    show();
    QTest::mouseClick(qobject_cast<QPushButton *>(part(2, TXUpdateVersionRow::ChooseButton)), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return panel->designatedUpdate() == updates[2]; }));
    EXPECT_EQ(label("installVersionLabel")->text(), u"Version 2.0.1 will be installed."_s);
    EXPECT_EQ(label("infoField")->text(), u"You are running Host 2.0. Version 2.0.1 is now available."_s);
    EXPECT_FALSE(part(2, TXUpdateVersionRow::ChooseButton)->isVisible());
    EXPECT_TRUE(part(0, TXUpdateVersionRow::ChooseButton)->isVisible());
    EXPECT_EQ(table()->selectedRow(), 2);
}

TEST_F(UpdatePanel, SelectingShowsNotesAndChoosesNothing) {
    replaceResource(u"TXUpdateWebView.so"_s, {});
    panel = TXUpdatePanel::panel();
    FeedServer server;
    QList<TXUpdatePtr> list = makeUpdates(2);
    list[0]->setReleaseNotesURL(QUrl(server.url(u"/new.html"_s)));
    list[1]->setItemDescription(u"<p>From the feed itself</p>"_s);
    server.expect("GET", "/new.html", tx::test::HttpReply::file("<h1>New</h1>", "text/html"));
    offer(list);
    auto *notes = panel->findChild<QTextBrowser *>();
    ASSERT_TRUE(notes);
    EXPECT_TRUE(waitUntil([&] { return notes->toPlainText() == u"New"_s; }));
    table()->selectOnly(1);
    EXPECT_EQ(notes->toPlainText(), u"From the feed itself"_s)
        << "a feed without pages brings its notes along";
    EXPECT_EQ(panel->designatedUpdate(), list[0]);
    table()->clearSelection();
    EXPECT_EQ(notes->toPlainText(), u"From the feed itself"_s);
    for (const QString &address : {u"https://example.org/more"_s, u"mailto:a@example.org"_s,
                                   u"file:///tmp/evil.desktop"_s, u"smb://host/share"_s, u"x:y"_s})
        Q_EMIT notes->anchorClicked(QUrl(address));
    EXPECT_EQ(workspace.opened, (QStringList{u"https://example.org/more"_s, u"mailto:a@example.org"_s}));
}

TEST_F(UpdatePanel, NotesThatDoNotLoadAreThoseThatTheFeedBroughtAlong) {
    replaceResource(u"TXUpdateWebView.so"_s, {});
    panel = TXUpdatePanel::panel();
    FeedServer server;
    server.always([](const tx::test::HttpRequest &request) {
        if (request.path() == "/there.html")
            return tx::test::HttpReply::file("<p>page</p>", "text/html");
        return tx::test::HttpReply{.status = 404, .body = "error page"};
    });
    QList<TXUpdatePtr> list = makeUpdates(4);
    list[0]->setReleaseNotesURL(QUrl(server.url(u"/missing.html"_s)));
    list[0]->setItemDescription(u"<p>brought along</p>"_s);
    list[1]->setReleaseNotesURL(QUrl(server.url(u"/there.html"_s)));
    list[1]->setItemDescription(u"<p>not this</p>"_s);
    list[2]->setReleaseNotesURL(QUrl(u"http://127.0.0.1:1/refused.html"_s));
    list[2]->setItemDescription(u"<p>brought along too</p>"_s);
    list[3]->setReleaseNotesURL(QUrl(server.url(u"/missing.html"_s)));
    offer(list);
    auto *notes = panel->findChild<QTextBrowser *>();
    ASSERT_TRUE(notes);
    EXPECT_TRUE(waitUntil([&] { return notes->toPlainText() == u"brought along"_s; }));
    table()->selectOnly(1);
    EXPECT_TRUE(waitUntil([&] { return notes->toPlainText() == u"page"_s; }));
    table()->selectOnly(2);
    EXPECT_TRUE(waitUntil([&] { return notes->toPlainText() == u"brought along too"_s; }));
    const auto asked = server.requests().size();
    table()->selectOnly(3);
    EXPECT_TRUE(waitUntil([&] { return server.requests().size() > asked; }));
    tx::test::drainEvents();
    EXPECT_EQ(notes->toPlainText(), QString()) << "nothing is there";
}

TEST_F(UpdatePanel, ChosenRowIsScrolledIntoTheMiddleUnlessItIsSeen) {
    offer(makeUpdates(60), 40);
    show();
    const QRect row = table()->visualRect(table()->model()->index(40, 0));
    EXPECT_TRUE(table()->viewport()->rect().contains(row));
    EXPECT_NEAR(row.center().y(), table()->viewport()->height() / 2, 2);
    const int position = table()->verticalScrollBar()->value();
    panel->chooseUpdate(updates[41]);
    EXPECT_EQ(table()->verticalScrollBar()->value(), position) << "it is seen already";
    EXPECT_LT(table()->viewport()->findChildren<TXUpdateVersionRow *>().size(), 30) << "rows in sight only";
}

TEST_F(UpdatePanel, StatesWithoutADownload) {
    struct Case {
        const char *what;
        std::function<void(TXUpdate &)> arrange;
        QString status, install, cancel;
        bool installs, cancels;
    };
    const Case cases[] = {
        {"no file", [](TXUpdate &u) { u.setFileURL({}); }, {}, u"Show Update"_s, u"Not Now"_s, true, true},
        {"installed", [](TXUpdate &u) { u.setInstalled(true); }, u"Installed"_s, u"Restart"_s, u"Not Now"_s,
         true, false},
        {"downloaded", [](TXUpdate &u) { u.setDownloaded(true); }, u"Downloaded"_s, u"Install & Relaunch"_s,
         u"Not Now"_s, true, true},
        {"nothing yet", [](TXUpdate &) {}, {}, u"Download Update"_s, u"Not Now"_s, true, true},
        {"installed goes before downloaded",
         [](TXUpdate &u) {
             u.setInstalled(true);
             u.setDownloaded(true);
         },
         u"Installed"_s, u"Restart"_s, u"Not Now"_s, true, false},
    };
    for (const Case &c : cases) {
        panel = TXUpdatePanel::panel();
        offer(makeUpdates(1));
        c.arrange(*updates[0]);
        show();
        EXPECT_EQ(label("statusField")->text(), c.status) << c.what;
        EXPECT_TRUE(label("statusField")->isVisible());
        EXPECT_TRUE(label("statusField")->alignment() & Qt::AlignLeft) << c.what;
        EXPECT_EQ(installTitle(), c.install) << c.what;
        EXPECT_EQ(cancelTitle(), c.cancel) << c.what;
        EXPECT_EQ(button("installButton")->isEnabled(), c.installs) << c.what;
        EXPECT_EQ(button("cancelButton")->isEnabled(), c.cancels) << c.what;
        EXPECT_FALSE(bar()->isVisible()) << c.what;
        panel->closeWithCode(0);
    }
}

TEST_F(UpdatePanel, DownloadIsFollowedAndMayGoOnWithoutThePanel) {
    FeedServer server;
    offerStalling(server, true);
    EXPECT_EQ(label("statusField")->text(), u"50.0% downloaded"_s);
    EXPECT_TRUE(label("statusField")->alignment() & Qt::AlignRight);
    EXPECT_EQ(installTitle(), u"Install Later"_s);
    EXPECT_TRUE(button("installButton")->isEnabled());
    EXPECT_EQ(cancelTitle(), u"Cancel"_s);
    EXPECT_TRUE(bar()->isVisible());
    EXPECT_EQ(bar()->value(), bar()->maximum() / 2);
    EXPECT_TRUE(bar()->toolTip().startsWith(u"500.0 kB of 1.0 MB"_s)) << bar()->toolTip().toStdString();
    button("installButton")->click();
    EXPECT_EQ(codes, QList<int>{1});
    EXPECT_TRUE(updates[0]->isDownloading());
    updates[0]->cancelDownload();
}

TEST_F(UpdatePanel, WithoutBackgroundDownloadsTheButtonWaits) {
    FeedServer server;
    offerStalling(server, false);
    EXPECT_EQ(installTitle(), u"Download Update"_s);
    EXPECT_FALSE(button("installButton")->isEnabled());
    EXPECT_EQ(cancelTitle(), u"Cancel"_s);
    panel->install();
    EXPECT_TRUE(codes.isEmpty());
    button("cancelButton")->click();
    EXPECT_EQ(codes, QList<int>{0});
    EXPECT_FALSE(updates[0]->isDownloading());
    EXPECT_TRUE(alerts.isEmpty()) << "a cancelled download is no error";
}

TEST_F(UpdatePanel, FinishedDownloadOffersToInstall) {
    FeedServer server;
    server.expect("GET", "/a.zip", tx::test::HttpReply::file("zip"));
    offer({makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s))});
    show();
    QTest::keyClick(panel.get(), Qt::Key_Return);
    EXPECT_TRUE(panel->didChooseToInstall());
    ASSERT_TRUE(waitUntil([&] { return updates[0]->isDownloaded() && !updates[0]->isDownloading(); }));
    ASSERT_TRUE(waitUntil([&] { return installTitle() == u"Install & Relaunch"_s; }));
    EXPECT_EQ(label("statusField")->text(), u"Downloaded"_s);
    EXPECT_TRUE(codes.isEmpty()) << "the panel stays";
}

TEST_F(UpdatePanel, FailedDownloadIsTold) {
    FeedServer server;
    server.expect("GET", "/a.zip", {.status = 404});
    offer({makeUpdate(u"1043"_s, u"2.1"_s, server.url(u"/a.zip"_s))});
    show();
    panel->install();
    ASSERT_TRUE(waitUntil([&] { return !alerts.isEmpty(); }));
    EXPECT_TRUE(alerts[0].critical);
    EXPECT_FALSE(alerts[0].message.isEmpty());
    EXPECT_EQ(installTitle(), u"Download Update"_s);
    EXPECT_TRUE(codes.isEmpty());
}

TEST_F(UpdatePanel, FailedInstallationIsToldAndCloses) {
    offer(makeUpdates(1));
    const QString archive = path(u"broken.zip"_s);
    tx::test::writeFile(archive, "no archive");
    updates[0]->setDownloaded(true);
    updates[0]->setDownloadPath(archive);
    show();
    panel->install();
    EXPECT_EQ(label("statusField")->text(), u"Installing"_s);
    EXPECT_FALSE(button("installButton")->isEnabled());
    EXPECT_FALSE(button("cancelButton")->isEnabled());
    EXPECT_EQ(installTitle(), u"Install & Relaunch"_s) << "the title stays";
    EXPECT_TRUE(bar()->isVisible());
    QTest::keyClick(panel.get(), Qt::Key_Escape);
    QCloseEvent byTheUser;
    QSpontaneKeyEvent::setSpontaneous(&byTheUser);
    static_cast<QObject *>(panel.get())->event(&byTheUser);
    EXPECT_FALSE(byTheUser.isAccepted());
    EXPECT_TRUE(codes.isEmpty()) << "an installation cannot be stopped";
    ASSERT_TRUE(waitUntil([&] { return !codes.isEmpty(); }));
    EXPECT_EQ(codes, QList<int>{0});
    EXPECT_EQ(alerts.size(), 1);
}

TEST_F(UpdatePanel, UpdateWithoutAFileOpensItsPage) {
    offer(makeUpdates(1));
    updates[0]->setFileURL({});
    updates[0]->setLinkURL(QUrl(u"file:///tmp/evil.desktop"_s));
    show();
    button("installButton")->click();
    EXPECT_TRUE(workspace.opened.isEmpty());
    codes.clear();
    offer(makeUpdates(1));
    updates[0]->setFileURL({});
    updates[0]->setLinkURL(QUrl(u"https://example.org/get"_s));
    show();
    button("installButton")->click();
    EXPECT_EQ(workspace.opened, QStringList{u"https://example.org/get"_s});
    EXPECT_EQ(codes, QList<int>{1});
}

TEST_F(UpdatePanel, InsecureArchiveOfASecureFeedIsNotDownloadedAndTheReasonIsTold) {
    for (const bool hasPage : {true, false}) {
        tx::ReaderContext context{.appBuild = u"1042"_s, .systemVersion = u"12.0.0"_s, .isSecure = true};
        const QByteArray page = hasPage ? R"(,"webpageURL":"https://example.org/get")" : "";
        const auto tracks = tx::readJsonFeed(
            R"({"release":[{"type":"build","build":"1043","downloadURL":"http://127.0.0.1:1/a.zip")" + page +
                "}]}",
            context);
        ASSERT_TRUE(bool(tracks));
        panel = TXUpdatePanel::panel();
        offer(tracks->value(u"release"_s)->updates());
        ASSERT_EQ(updates.size(), 1);
        show();
        errors.clear();
        codes.clear();
        workspace.opened.clear();
        button("installButton")->click();
        tx::test::drainEvents();
        ASSERT_EQ(errors.size(), 1);
        EXPECT_EQ(errors[0], updates[0]->downloadRefusal());
        EXPECT_FALSE(updates[0]->isDownloading());
        EXPECT_EQ(workspace.opened, hasPage ? QStringList{u"https://example.org/get"_s} : QStringList());
        EXPECT_EQ(codes.size(), hasPage ? 1 : 0);
        EXPECT_EQ(codes.value(0, 1), 1);
        panel->close();
        tx::test::drainEvents();
    }
}

TEST_F(UpdatePanel, InstalledUpdateIsLaunched) {
    const tx::test::RecordingTasks tasks;
    offer(makeUpdates(1));
    updates[0]->setInstalled(true);
    show();
    button("installButton")->click();
    EXPECT_EQ(codes, QList<int>{1});
    EXPECT_EQ(workspace.terminations, 1);
    EXPECT_FALSE(tasks.started.isEmpty());
}

TEST_F(UpdatePanel, ChoosingToInstallHidesTheChooseButtons) {
    offer(makeUpdates(2));
    updates[0]->setFileURL(QUrl(u"http://127.0.0.1:1/x.zip"_s));
    show();
    EXPECT_TRUE(part(1, TXUpdateVersionRow::ChooseButton)->isVisible());
    panel->install();
    EXPECT_FALSE(part(1, TXUpdateVersionRow::ChooseButton)->isVisible());
    updates[0]->cancelDownload();
}

TEST_F(UpdatePanel, NotNowReminds) {
    for (const int count : {1, 3, 4, 5, 6}) {
        panel = TXUpdatePanel::panel();
        offer(makeUpdates(count));
        alerts.clear();
        codes.clear();
        show();
        QTest::keyClick(panel.get(), Qt::Key_Escape);
        EXPECT_EQ(codes, QList<int>{0}) << count;
        ASSERT_EQ(alerts.size(), count >= 5 ? 1 : 0) << count;
    }
    EXPECT_EQ(alerts[0].message, u"Consider updating soon."_s);
    EXPECT_EQ(
        alerts[0].informative,
        u"The version of Host you have is 6 versions behind. The latest version is recommended because it "
        "often contains new useful features and important fixes for problems you could be experiencing or "
        "may "
        "experience."_s);
    panel = TXUpdatePanel::panel();
    offer(makeUpdates(5));
    updates[0]->setFileURL({});
    alerts.clear();
    show();
    panel->cancel();
    EXPECT_TRUE(alerts.isEmpty()) << "nothing to install here";
}

TEST_F(UpdatePanel, SkipIsRemembered) {
    FeedServer server;
    offerStalling(server, true);
    button("skipButton")->click();
    EXPECT_EQ(codes, QList<int>{0});
    EXPECT_FALSE(updates[0]->isDownloading());
    EXPECT_TRUE(TXUpdater::isUpdateIgnored(*updates[0]));
}

TEST_F(UpdatePanel, WithoutUpdatesSaysThatThereIsNothingNewerAndCloses) {
    const std::function<void()> waysOut[] = {
        [this] { QTest::keyClick(panel.get(), Qt::Key_Escape); },
        [this] { button("cancelButton")->click(); },
        [this] { panel->cancel(); },
        [this] { panel->QDialog::close(); },
    };
    for (const bool isSet : {true, false}) {
        for (const auto &wayOut : waysOut) {
            panel = TXUpdatePanel::panel();
            codes.clear();
            if (isSet)
                panel->setUpdatesAndDesignatedUpdate({}, nullptr);
            panel->setAllowsDownloadingInBackground(true);
            show();
            EXPECT_EQ(label("infoField")->text(), u"You are running the latest version of Host."_s);
            EXPECT_FALSE(button("installButton")->isEnabled());
            EXPECT_FALSE(button("skipButton")->isEnabled());
            EXPECT_EQ(cancelTitle(), u"Close"_s);
            EXPECT_FALSE(bar()->isVisible());
            panel->install();
            panel->skip();
            EXPECT_TRUE(codes.isEmpty()) << "there is nothing to install or to skip";
            wayOut();
            EXPECT_EQ(codes, QList<int>{0});
        }
    }
    inModalSession([this] { panel->closeWithCode(3); });
    EXPECT_EQ(panel->runModal(), 3);
}

TEST_F(UpdatePanel, WithoutADesignatedUpdateTheUserChoosesOne) {
    for (const int count : {1, 2}) {
        panel = TXUpdatePanel::panel();
        updates = makeUpdates(count);
        panel->setUpdatesAndDesignatedUpdate(QList<TXUpdatePtr>{nullptr} + updates, nullptr);
        show();
        EXPECT_EQ(panel->updates(), updates) << "null entries are left out";
        EXPECT_EQ(table()->numberOfRows(), count);
        EXPECT_EQ(label("infoField")->text(), QString());
        EXPECT_FALSE(label("installVersionLabel")->isVisible());
        EXPECT_FALSE(button("installButton")->isEnabled());
        auto *choose = qobject_cast<QPushButton *>(part(count - 1, TXUpdateVersionRow::ChooseButton));
        ASSERT_TRUE(choose->isVisible());
        QTest::mouseClick(choose, Qt::LeftButton);
        ASSERT_TRUE(waitUntil([&] { return panel->designatedUpdate() == updates[count - 1]; }));
        EXPECT_TRUE(button("installButton")->isEnabled());
        EXPECT_TRUE(button("skipButton")->isEnabled());
        EXPECT_EQ(cancelTitle(), u"Not Now"_s);
        panel->chooseUpdate(nullptr);
        EXPECT_FALSE(button("installButton")->isEnabled()) << "and back";
        updates[0]->setDownloaded(true);
        panel->closeWithCode(0);
    }
}

TEST_F(UpdatePanel, OnlyTheDesignatedUpdateIsFollowed) {
    reportEveryStep();
    FeedServer server;
    tx::test::HttpReply half = tx::test::HttpReply::file(QByteArray(500000, 'x'));
    half.announcedLength = 1000000;
    half.stalls = true;
    server.expect("GET", "/a.zip", half);
    offer({makeUpdate(u"1044"_s, u"2.2"_s, server.url(u"/a.zip"_s)), makeUpdate(u"1043"_s, u"2.1"_s)});
    show();
    updates[0]->downloadWithProgress(nullptr, [](const TXError &) {});
    panel->chooseUpdate(updates[1]);
    EXPECT_TRUE(waitUntil([this] { return updates[0]->downloadProgress() >= 0.5; }));
    EXPECT_EQ(label("statusField")->text(), QString());
    EXPECT_FALSE(bar()->isVisible());
    panel->chooseUpdate(updates[0]);
    EXPECT_EQ(label("statusField")->text(), u"50.0% downloaded"_s);
    updates[0]->cancelDownload();
}

} // namespace

// SPDX-License-Identifier: MIT
#include "tests/widgets/updatepaneltest.h"

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::UpdatePanel;
using tx::test::waitUntil;

namespace {

TEST_F(UpdatePanel, WindowsOwnWayOfClosingIsTheCancelButton) {
    struct Case {
        const char *what;
        std::function<void(TXUpdate &)> arrange;
        bool closes;
    };
    for (const Case &c : {Case{"offered", [](TXUpdate &) {}, true},
                          Case{"no file", [](TXUpdate &u) { u.setFileURL({}); }, true},
                          Case{"downloaded", [](TXUpdate &u) { u.setDownloaded(true); }, true},
                          Case{"installed", [](TXUpdate &u) { u.setInstalled(true); }, false}}) {
        panel = TXUpdatePanel::panel();
        offer(makeUpdates(1));
        c.arrange(*updates[0]);
        codes.clear();
        show();
        QCloseEvent byTheUser;
        QSpontaneKeyEvent::setSpontaneous(&byTheUser);
        static_cast<QObject *>(panel.get())->event(&byTheUser);
        EXPECT_EQ(codes.size(), c.closes ? 1 : 0) << c.what;
        EXPECT_EQ(panel->isVisible(), !c.closes) << c.what;
        panel->closeWithCode(0);
    }
}

TEST_F(UpdatePanel, ModalSessionAnswersItsCode) {
    offer(makeUpdates(1));
    for (const int code : {0, 1, 5}) {
        inModalSession([&] {
            EXPECT_TRUE(panel->isModal());
            panel->closeWithCode(code);
        });
        EXPECT_EQ(panel->runModal(), code);
        EXPECT_FALSE(panel->isVisible());
    }
    inApplication([&] {
        inModalSession([] { QCoreApplication::quit(); });
        EXPECT_EQ(panel->runModal(), 0) << "the application quits";
    });
}

TEST_F(UpdatePanel, QuittingApplicationIsNotHeldUp) {
    FeedServer server;
    offerStalling(server, true);
    inApplication([&] {
        QTimer::singleShot(0, panel.get(), [] { QCoreApplication::quit(); });
        QEventLoop nested;
        EXPECT_EQ(nested.exec(), 0) << "while a download runs";
    });
    EXPECT_EQ(codes, QList<int>{0});
    updates[0]->cancelDownload();
}

TEST_F(UpdatePanel, SheetBlocksItsWindowOnly) {
    QWidget host;
    host.show();
    offer(makeUpdates(1));
    panel->beginSheetModalForWindow(&host, [this](int code) { codes.append(code); });
    tx::test::drainEvents();
    EXPECT_EQ(panel->windowModality(), Qt::WindowModal);
    EXPECT_EQ(panel->windowHandle()->transientParent(), host.windowHandle());
    EXPECT_TRUE(panel->isVisible());
    panel->closeWithCode(1);
    EXPECT_EQ(codes, QList<int>{1});
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(UpdatePanel, SheetGoesWithItsWindow) {
    auto host = std::make_unique<QWidget>();
    host->show();
    offer(makeUpdates(1));
    panel->beginSheetModalForWindow(host.get(), [this](int code) { codes.append(code); });
    host.reset();
    EXPECT_EQ(codes, QList<int>{0});
}

TEST_F(UpdatePanel, KeepsItselfWhileShown) {
    offer(makeUpdates(1));
    const std::weak_ptr<TXUpdatePanel> weak = panel;
    TXUpdatePanel *shown = panel.get();
    show();
    panel.reset();
    EXPECT_FALSE(weak.expired());
    shown->closeWithCode(0);
    ASSERT_TRUE(waitUntil([&] { return weak.expired(); }));
    EXPECT_EQ(codes, QList<int>{0});
}

TEST_F(UpdatePanel, UpdateMayGoWhileItIsShown) {
    offer(makeUpdates(2));
    const QList<std::weak_ptr<TXUpdate>> weak{updates[0], updates[1]};
    show();
    updates.clear();
    EXPECT_FALSE(weak[0].expired()) << "the panel keeps what it offers";
    panel->chooseUpdate(panel->updates()[1]);
    EXPECT_EQ(label("installVersionLabel")->text(), u"Version 2.0.1 will be installed."_s);
    const TXUpdatePtr other = makeUpdate(u"2000"_s, u"3.0"_s);
    panel->setUpdatesAndDesignatedUpdate({other}, other);
    EXPECT_TRUE(weak[0].expired());
    EXPECT_TRUE(weak[1].expired()) << "and nothing longer than that";
    EXPECT_EQ(label("infoField")->text(), u"You are running Host 2.0. Version 3.0 is now available."_s);
    panel->skip();
    EXPECT_EQ(codes, QList<int>{0});
    EXPECT_TRUE(TXUpdater::isUpdateIgnored(*other));
}

TEST_F(UpdatePanel, PreferredSizeIsTheNotesSize) {
    for (const int count : {1, 3}) {
        panel = TXUpdatePanel::panel();
        QList<TXUpdatePtr> list = makeUpdates(count);
        list[0]->setPreferredDisplaySize({500, 210});
        offer(list);
        show();
        EXPECT_EQ(outlet<QWidget>(panel.get(), "webViewContainer")->size(), QSize(500, 210)) << count;
        panel->closeWithCode(0);
    }
}

TEST_F(UpdatePanel, PreferredSizeIsBoundedByTheScreen) {
    QList<TXUpdatePtr> list = makeUpdates(1);
    list[0]->setPreferredDisplaySize({50000, 40000});
    offer(list);
    show();
    const QSize available = panel->screen()->availableGeometry().size();
    EXPECT_LE(panel->frameGeometry().width(), available.width());
    EXPECT_GT(panel->width(), available.width() - 50);
    EXPECT_LE(panel->frameGeometry().height(), available.height());
    EXPECT_GT(panel->height(), available.height() - 100);
    panel->closeWithCode(0);
}

TEST_F(UpdatePanel, FollowsTheAppearance) {
    offer(makeUpdates(1));
    EXPECT_EQ(tx::backgroundColor(panel.get()), QColor(Qt::white));
    beDark(true);
    EXPECT_EQ(tx::backgroundColor(panel.get()), QApplication::palette().color(QPalette::Window));
    EXPECT_EQ(panel->palette().color(QPalette::WindowText),
              QApplication::palette().color(QPalette::WindowText));
    panel->showWindow({});
    tx::test::drainEvents();
    EXPECT_EQ(panel->grab().toImage().pixelColor(2, 2), tx::backgroundColor(panel.get()))
        << "and so it is painted";
}

TEST_F(UpdatePanel, MissingOrForeignInterfaceFileMakesNoPanel) {
    for (const QByteArray &content :
         {QByteArray(), QByteArray("<ui"),
          QByteArray(
              "<ui version=\"4.0\"><class>x</class><widget class=\"QWidget\" name=\"mainView\"/></ui>")}) {
        replaceResource(u"TXUpdatePanel.ui"_s, content);
        EXPECT_FALSE(TXUpdatePanel::panel());
        EXPECT_EQ(logLines().last(), u"Could not load TXUpdatePanel xib."_s);
    }
}

TEST_F(UpdatePanel, KeyboardAloneReachesEverything) {
    replaceResource(u"TXUpdateWebView.so"_s, {}); // a page has stops of its own
    panel = TXUpdatePanel::panel();
    offer(makeUpdates(3));
    show();
    QSet<QString> reached;
    button("installButton")->setFocus();
    for (int i = 0; i < 12; ++i) {
        if (const QWidget *focused = panel->focusWidget())
            reached << focused->objectName();
        QTest::keyClick(panel->focusWidget() ? panel->focusWidget() : panel.get(), Qt::Key_Tab);
    }
    for (const QString &name :
         {u"installButton"_s, u"cancelButton"_s, u"skipButton"_s, u"versionsTableView"_s})
        EXPECT_TRUE(reached.contains(name)) << name.toStdString();
    QSet<QString> shortcuts;
    for (const char *name : {"installButton", "cancelButton", "skipButton"}) {
        EXPECT_FALSE(button(name)->shortcut().isEmpty()) << name;
        shortcuts << button(name)->shortcut().toString();
    }
    EXPECT_EQ(shortcuts.size(), 3) << "each has its own";
    EXPECT_FALSE(table()->accessibleName().isEmpty());
    EXPECT_EQ(table()->model()->index(0, 0).data(Qt::AccessibleTextRole).toString(),
              u"2.0.3, Patch version, "_s + tx::mediumDate(updates[0]->date()) + u", Chosen"_s);
}

} // namespace

// SPDX-License-Identifier: MIT
// Whether the application may end: what its windows say, and what the panel does with the answer.
#include "install/installerclient.h"
#include "model/updatefolder.h"
#include "tests/widgets/uitest.h"
#include "widgets/appearance.h"
#include "widgets/modalsession.h"
#include "widgets/quitrequest.h"

#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdatePanel.h>

#include <QCloseEvent>
#include <QDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using tx::test::waitUntil;

namespace {

/// A window that keeps count of who asks it to close.
class Window : public QWidget {
public:
    bool agrees = true;
    int asked = 0;
    std::function<void()> onClose;

protected:
    void closeEvent(QCloseEvent *event) override {
        ++asked;
        if (onClose)
            onClose();
        event->setAccepted(agrees);
    }
};

/// A window of a toolkit without widgets.
class PlainWindow : public QWindow {
public:
    int asked = 0;
    bool agrees = true;

protected:
    bool event(QEvent *event) override {
        if (event->type() != QEvent::Close)
            return QWindow::event(event);
        ++asked;
        event->setAccepted(agrees);
        return true;
    }
};

/// What a host installs on its application object.
class Filter : public QObject {
public:
    std::function<bool(QEvent *)> act;
    int quits = 0;
    bool eventFilter(QObject *object, QEvent *event) override {
        if (object != QCoreApplication::instance() || event->type() != QEvent::Quit)
            return false;
        ++quits;
        return act && act(event);
    }
};

class QuitRequest : public tx::test::UiTest {
protected:
    QSignalSpy ends{QCoreApplication::instance(), &QCoreApplication::aboutToQuit};
    Filter filter;

    QuitRequest() {
        becomeHost(u"1042"_s, u"2.0"_s);
        QCoreApplication::instance()->installEventFilter(&filter);
    }
    /// Asks while the application's event loop runs, and lets everything that follows happen.
    bool ask() {
        bool agreed = false;
        inApplication([&] {
            const auto permission = tx::requestQuit();
            agreed = permission != nullptr;
            tx::test::drainEvents();
            EXPECT_EQ(ends.count(), 0) << "only asked";
        });
        tx::test::drainEvents();
        ends.clear();
        return agreed;
    }
};

TEST_F(QuitRequest, EveryWindowIsAskedAndOneThatDoesNotCloseRefuses) {
    struct Case {
        const char *what;
        QList<bool> widgets;
        bool agrees;
    };
    for (const Case &c :
         {Case{"no window", {}, true}, Case{"one that agrees", {true}, true},
          Case{"one that refuses", {false}, false}, Case{"two agree", {true, true}, true},
          Case{"first refuses", {false, true}, false}, Case{"last refuses", {true, true, false}, false}}) {
        // The toolkit asks in another order each time.
        for (int attempt = 0; attempt < 6; ++attempt) {
            std::vector<std::unique_ptr<Window>> windows;
            for (const bool agrees : c.widgets) {
                windows.push_back(std::make_unique<Window>());
                windows.back()->agrees = agrees;
                windows.back()->show();
            }
            EXPECT_EQ(ask(), c.agrees) << c.what;
            for (const auto &window : windows) {
                EXPECT_LE(window->asked, 1) << c.what << ": asked once";
                EXPECT_EQ(window->isVisible(), window->asked == 0 || !window->agrees) << c.what;
                const bool all = c.agrees || c.widgets.size() == 1;
                EXPECT_TRUE(!all || window->asked == 1) << c.what;
            }
        }
    }
}

TEST_F(QuitRequest, WindowThatQuitsWhenItClosesDoesNotHaveTheOthersAskedTwice) {
    // The toolkit asks in another order each time.
    for (int attempt = 0; attempt < 8; ++attempt) {
        Window main;
        main.onClose = [] { QCoreApplication::quit(); };
        Window unsaved;
        unsaved.agrees = false;
        main.show();
        unsaved.show();
        EXPECT_FALSE(ask());
        EXPECT_EQ(unsaved.asked, 1);
        EXPECT_LE(main.asked, 1);
    }
}

TEST_F(QuitRequest, WindowsWithoutWidgetsAreAskedAndHiddenOnesAreNot) {
    for (const bool agrees : {true, false}) {
        PlainWindow plain;
        plain.agrees = agrees;
        plain.show();
        Window hidden;
        hidden.agrees = false;
        EXPECT_EQ(ask(), agrees);
        EXPECT_EQ(plain.asked, 1);
        EXPECT_EQ(hidden.asked, 0);
    }
}

TEST_F(QuitRequest, ModalDialogOfTheHostIsAskedToo) {
    QDialog dialog;
    dialog.setModal(true);
    dialog.show();
    EXPECT_TRUE(ask());
    EXPECT_FALSE(dialog.isVisible());
}

TEST_F(QuitRequest, ApplicationThatKeepsTheQuitEventRefuses) {
    const std::function<bool(QEvent *)> acts[] = {
        [](QEvent *) { return true; },
        [](QEvent *event) {
            event->ignore();
            return true;
        },
    };
    for (const auto &act : acts) {
        for (const bool hasWindow : {true, false}) {
            Window window;
            window.setVisible(hasWindow);
            filter.act = act;
            bool agreed = true;
            inApplication([&] { agreed = tx::requestQuit() != nullptr; });
            EXPECT_FALSE(agreed);
            EXPECT_EQ(window.asked, 0);
            EXPECT_EQ(window.isVisible(), hasWindow);
        }
    }
    EXPECT_GE(filter.quits, 4) << "the event is the toolkit's own";
}

TEST_F(QuitRequest, NothingEndsTheApplicationWhileThePermissionIsHeld) {
    Window window;
    window.onClose = [] { QCoreApplication::quit(); }; // as many a main window does
    window.show();
    bool wentOn = false;
    QTimer::singleShot(0, &filter, [&] {
        auto permission = tx::requestQuit();
        ASSERT_TRUE(permission);
        QCoreApplication::quit();
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] { loop.exit(5); });
        wentOn = loop.exec() == 5; // an ending application runs no loop
        EXPECT_EQ(ends.count(), 0);
        permission.reset();
    });
    EXPECT_EQ(QCoreApplication::exec(), 0) << "it ends once nobody holds the permission: no window is left";
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(ends.count(), 1);
}

TEST_F(QuitRequest, ApplicationThatHadNoWindowGoesOnWhenThePermissionIsGivenBack) {
    bool wentOn = false;
    inApplication([&] {
        EXPECT_TRUE(tx::requestQuit());
        QEventLoop loop;
        QTimer::singleShot(20, &loop, [&] { loop.exit(5); });
        wentOn = loop.exec() == 5;
    });
    EXPECT_TRUE(wentOn);
}

TEST_F(QuitRequest, PanelsOfTheFrameworkAreHiddenMeanwhileAndNotAsked) {
    enum class Kind { Free, OnAWindow, Modal };
    for (const Kind kind : {Kind::Free, Kind::OnAWindow, Kind::Modal}) {
        for (const bool agrees : {false, true}) {
            SCOPED_TRACE(testing::Message() << int(kind) << agrees);
            Window window;
            window.agrees = agrees;
            window.show();
            const auto panel = TXUpdatePanel::panel();
            const auto updates = makeUpdates(1);
            panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
            QList<int> codes;
            const auto closed = [&](int code) { codes << code; };
            bool wasHidden = false;
            window.onClose = [&] { wasHidden = !panel->isVisible(); };
            const auto act = [&] {
                EXPECT_TRUE(panel->isVisible());
                auto permission = tx::requestQuit();
                EXPECT_EQ(permission != nullptr, agrees);
                EXPECT_TRUE(wasHidden);
                EXPECT_EQ(window.asked, 1);
                EXPECT_EQ(panel->isVisible(), !agrees);
                window.agrees = true;
                window.show(); // so that the application goes on
                permission.reset();
                EXPECT_TRUE(panel->isVisible()) << "it comes back";
                EXPECT_TRUE(codes.isEmpty());
                permission = tx::requestQuit();
                panel->closeWithCode(0);
                window.show();
                permission.reset();
                EXPECT_FALSE(panel->isVisible()) << "unless it was closed meanwhile";
            };
            inApplication([&] {
                if (kind == Kind::Free)
                    panel->showWindow(closed);
                else if (kind == Kind::OnAWindow)
                    panel->beginSheetModalForWindow(&window, closed);
                if (kind == Kind::Modal) {
                    inModalSession(act);
                    codes << panel->runModal();
                } else {
                    act();
                }
            });
            EXPECT_EQ(codes, QList<int>{0});
        }
    }
}

/// An update that is downloaded, in a panel; the installer tool is only recorded.
extern "C" [[gnu::weak]] void __lsan_disable(); // NOLINT(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] void __lsan_enable();  // NOLINT(bugprone-reserved-identifier)

/// What a process holds on to after it has handed over to the installer is not freed: it ends, but not in a
/// test.
struct KeptUntilTheProcessEnds {
    KeptUntilTheProcessEnds() {
        if (__lsan_disable)
            __lsan_disable();
    }
    ~KeptUntilTheProcessEnds() {
        if (__lsan_enable)
            __lsan_enable();
    }
};

class InstallFromPanel : public QuitRequest {
protected:
    const KeptUntilTheProcessEnds m_kept;
    Window window;
    tx::test::RecordingTasks tasks;
    std::shared_ptr<TXUpdatePanel> panel = TXUpdatePanel::panel();
    TXUpdatePtr update = makeUpdate(u"2000"_s, u"2.1"_s);
    QList<int> codes;
    int tools = 0;

    InstallFromPanel() {
        const QString cache = tx::UpdateFolder::ofHost().path();
        tx::test::makeBundle(path(u"staging/MyApp.app"_s), {.build = u"2000"_s});
        tx::test::makeArchive(cache + u"/MyApp - 2000.zip"_s, tx::test::ArchiveKind::Zip,
                              tx::test::entriesOf(path(u"staging/MyApp.app"_s)));
        chmod(cache.toUtf8().constData(), 0700);
        update->setDownloadPath(cache + u"/MyApp - 2000.zip"_s);
        update->setDownloaded(true);
        tasks.runsForReal = true;
        tasks.failing = [this](const tx::TaskRequest &request) {
            const bool isTool = request.program.endsWith(u"/TXUpdateInstaller"_s);
            tools += isTool ? 1 : 0;
            return isTool && toolFails ? EACCES : 0;
        };
        files.observer = [](const QString &operation, const QString &p) {
            if (operation == u"replaceFile" && p.endsWith(u".environment"_s))
                tx::test::writeFile(TXUpdateInstallerClient::executableOfTool(), "#!/bin/sh\necho ready\n",
                                    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        };
        window.show();
        panel->setUpdatesAndDesignatedUpdate({update}, update);
    }
    ~InstallFromPanel() override {
        panel->close(); // while it is shown it keeps itself, and its updates
        panel.reset();
        update.reset();
        tx::test::drainEvents();
    }
    [[nodiscard]] QPushButton *button(const char *name) const {
        return outlet<QPushButton>(panel.get(), name);
    }
    void show() {
        // A panel that is still shown closes with the application object, when this test has gone.
        panel->showWindow([this, here = std::weak_ptr<bool>(m_here)](int code) {
            if (!here.expired())
                codes << code;
        });
        tx::test::drainEvents();
    }
    bool toolFails = false;
    const std::shared_ptr<bool> m_here = std::make_shared<bool>(true);

private:
    tx::test::FaultFileSystem files;
};

TEST_F(InstallFromPanel, RefusedPanelStaysAndOffersToInstallLater) {
    show();
    window.agrees = false;
    button("installButton")->click();
    EXPECT_EQ(outlet(panel.get(), "statusField")->text(), u"Installing"_s);
    ASSERT_TRUE(waitUntil([this] { return window.asked == 1 && button("installButton")->isEnabled(); }));
    tx::test::drainEvents();
    EXPECT_EQ(tools, 0) << "asked before the tool is started";
    EXPECT_TRUE(exits.isEmpty());
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(panel->isVisible());
    EXPECT_TRUE(codes.isEmpty());
    EXPECT_TRUE(alerts.isEmpty()) << "the user said it";
    EXPECT_EQ(outlet(panel.get(), "statusField")->text(), u"Downloaded"_s);
    EXPECT_EQ(tx::buttonTitle(button("installButton")), u"Install & Relaunch"_s);
    EXPECT_TRUE(button("cancelButton")->isEnabled());
    EXPECT_EQ(tx::buttonTitle(button("cancelButton")), u"Not Now"_s);
    EXPECT_FALSE(update->isInstalling());
    window.agrees = true;
    button("installButton")->click();
    ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_EQ(tools, 1);
    EXPECT_EQ(window.asked, 2);
    EXPECT_FALSE(window.isVisible());
}

TEST_F(InstallFromPanel, RefusedPanelCanBeClosed) {
    show();
    window.agrees = false;
    panel->install();
    ASSERT_TRUE(waitUntil([this] { return window.asked == 1 && !update->isInstalling(); }));
    tx::test::drainEvents();
    QTest::keyClick(panel.get(), Qt::Key_Escape);
    EXPECT_EQ(codes, QList<int>{0});
}

TEST_F(InstallFromPanel, ApplicationThatClosedItsWindowsEndsAfterAFailureHasBeenTold) {
    toolFails = true;
    bool windowsWereClosed = false;
    tx::services().presentAlert = [&](const tx::Alert &alert) {
        alerts.append(alert);
        windowsWereClosed = !window.isVisible();
        tx::test::drainEvents();
        EXPECT_EQ(ends.count(), 0) << "while the user reads";
        return 0;
    };
    QTimer::singleShot(0, &window, [this] {
        show();
        panel->install();
    });
    QTimer::singleShot(20000, &window, [] { QCoreApplication::exit(9); });
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_TRUE(windowsWereClosed);
    EXPECT_EQ(alerts.size(), 1) << "the new version is in the Downloads folder";
    EXPECT_EQ(codes, QList<int>{0});
    EXPECT_TRUE(exits.isEmpty());
}

/// A host's delegate that answers in its own way.
class Answering : public TXStandardUpdateControllerDelegate {
public:
    std::function<void(const TXQuitReply &)> answer;
    const TXUpdate *asked = nullptr;
    QStringList relaunchArgumentsForUpdating(TXStandardUpdateController *) override { return {u"-n"_s}; }
    QString relaunchDirectoryForUpdating(TXStandardUpdateController *) override { return u"/tmp"_s; }
    void shouldQuitToInstall(TXStandardUpdateController *controller, TXUpdate &update,
                             const TXQuitReply &reply) override {
        asked = &update;
        if (answer)
            answer(reply);
        else
            TXStandardUpdateControllerDelegate::shouldQuitToInstall(controller, update, reply);
    }
};

TEST_F(InstallFromPanel, StandardControllersDelegatePassesOnArguments) {
    Answering delegate;
    TXStandardUpdateController controller;
    EXPECT_TRUE(controller.relaunchArgumentsForUpdater(TXUpdater::sharedUpdater()).isEmpty());
    EXPECT_TRUE(controller.relaunchDirectoryForUpdater(TXUpdater::sharedUpdater()).isNull());
    controller.setDelegate(&delegate);
    EXPECT_EQ(controller.relaunchArgumentsForUpdater(TXUpdater::sharedUpdater()), QStringList{u"-n"_s});
    EXPECT_EQ(controller.relaunchDirectoryForUpdater(TXUpdater::sharedUpdater()), u"/tmp"_s);
}

TEST_F(InstallFromPanel, StandardControllersDelegateIsAskedInPlaceOfTheWindows) {
    Answering delegate;
    TXStandardUpdateController controller;
    TXUpdater::sharedUpdater()->setDelegate(&controller);
    show();
    controller.setDelegate(&delegate);
    delegate.answer = [](const TXQuitReply &reply) { reply.refuse(); };
    panel->install();
    ASSERT_TRUE(waitUntil([this] { return !update->isInstalling(); }));
    EXPECT_EQ(delegate.asked, update.get());
    EXPECT_EQ(window.asked, 0);
    tx::test::drainEvents();

    window.agrees = false;
    delegate.answer = nullptr;
    panel->install();
    ASSERT_TRUE(waitUntil([this] { return !update->isInstalling(); }));
    EXPECT_EQ(window.asked, 1) << "the default";
    tx::test::drainEvents();

    controller.setDelegate(nullptr);
    panel->install();
    ASSERT_TRUE(waitUntil([this] { return !update->isInstalling(); }));
    EXPECT_EQ(window.asked, 2) << "without a delegate as well";
    tx::test::drainEvents();

    controller.setDelegate(&delegate);
    delegate.answer = [](const TXQuitReply &reply) { reply.quit(); };
    panel->install();
    ASSERT_TRUE(waitUntil([this] { return !exits.isEmpty(); }));
    EXPECT_EQ(window.asked, 2);
    EXPECT_EQ(tools, 1);
}

} // namespace

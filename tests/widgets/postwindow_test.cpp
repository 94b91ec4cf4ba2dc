// SPDX-License-Identifier: MIT
#include "tests/support/feedserver.h"
#include "tests/support/tlsserver.h"
#include "tests/widgets/uitest.h"
#include "widgets/modalsession.h"
#include "widgets/segmentedcontrol.h"

#include <TarvixUpdate/TXNotificationCenter.h>
#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdatePanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QDirIterator>
#include <QImage>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::waitUntil;

namespace {

class PostWindow : public tx::test::UiTest {
protected:
    FeedServer server;
    std::shared_ptr<TXUpdatePostWindowController> controller = TXUpdatePostWindowController::controller();
    int closed = 0;
    int notified = 0;

    PostWindow() {
        controller->setOnCloseHandler([this] { ++closed; });
        QObject::connect(controller.get(), &TXUpdatePostWindowController::didClose, controller.get(),
                         [this] { ++notified; });
        server.always([this](const HttpRequest &request) {
            return HttpReply::file(pages.value(QString::fromLatin1(request.path()), "<p>page</p>"),
                                   "text/html");
        });
    }
    QMap<QString, QByteArray> pages;

    QList<TXUpdatePostPtr> makePosts(int count) {
        QList<TXUpdatePostPtr> posts;
        for (int i = 0; i < count; ++i) {
            auto post = std::make_shared<TXUpdatePost>();
            post->setTitle(u"Post %1"_s.arg(i));
            post->setPostURL(QUrl(server.url(u"/%1.html"_s.arg(i))));
            posts << post;
        }
        return posts;
    }
    /// What a page told the server before it closed its window.
    QByteArray told() const {
        for (const HttpRequest &request : server.requests()) {
            if (request.path() == "/told")
                return request.target;
        }
        return {};
    }
    TXSegmentedControl *control() {
        return outlet<TXSegmentedControl>(controller->window(), "_navigationControl");
    }
    QPushButton *button() { return outlet<QPushButton>(controller->window(), "_bottomBarCloseButton"); }
};

TEST_F(PostWindow, PageClosesItWithAndWithoutAskingLater) {
    struct Case {
        QByteArray body;
        int code;
    };
    for (const Case &c : {Case{"'askLater'", 1}, Case{"'done'", 0}, Case{"null", 0}, Case{"['askLater']", 0},
                          Case{"{}", 0}}) {
        pages[u"/0.html"_s] =
            "<script>window.webkit.messageHandlers.closeWindow.postMessage(" + c.body + ")</script>";
        controller->setPosts(makePosts(1));
        closed = notified = 0;
        EXPECT_EQ(controller->showWindowModally(false), c.code) << c.body.constData();
        EXPECT_FALSE(controller->window()->isVisible());
        EXPECT_EQ(closed, 1);
        EXPECT_EQ(notified, 1);
    }
    EXPECT_EQ(TXUpdatePostWindowDidCloseNotificationName, u"TXUpdatePostWindowDidCloseNotification"_s);
}

TEST_F(PostWindow, PageKnowsTheAnonymousIdentifierOnceItIsLoaded) {
    pages[u"/0.html"_s] =
        "<script>let early = typeof TarvixUpdateAnonymousUUID;"
        "const timer = setInterval(() => {"
        "if (typeof TarvixUpdateAnonymousUUID === 'undefined') return; clearInterval(timer);"
        "fetch('/told?' + early + '&' + TarvixUpdateAnonymousUUID).finally(() => "
        "webkit.messageHandlers.closeWindow.postMessage('x')); }, 10);</script>";
    controller->setPosts(makePosts(1));
    EXPECT_EQ(controller->showWindow(), 0);
    EXPECT_EQ(told(), "/told?undefined&" + TXUpdater::anonymousUUID().toLatin1());
}

TEST_F(PostWindow, FocusIsOnTheDefaultButtonAndStaysThereWhenPagesAreLoaded) {
    // The identifier is there once the window has heard of the end of loading.
    for (const QString &page : {u"/0.html"_s, u"/1.html"_s})
        pages[page] =
            "<input autofocus><script>const grab = () => { window.focus();"
            "document.querySelector('input').focus(); }; onload = grab; const timer = setInterval(() => {"
            "if (typeof TarvixUpdateAnonymousUUID === 'undefined') return; clearInterval(timer); grab();"
            "fetch('/told?' + location.pathname); }, 10);</script>";
    controller->setPosts(makePosts(2));
    const auto isLoaded = [this](const QByteArray &page) {
        const QList<HttpRequest> requests = server.requests();
        return std::any_of(requests.begin(), requests.end(),
                           [&](const HttpRequest &request) { return request.target == "/told?" + page; });
    };
    inModalSession([&] {
        EXPECT_TRUE(waitUntil([&] { return controller->window()->isActiveWindow(); }));
        EXPECT_TRUE(waitUntil([&] { return isLoaded("/0.html"); }, 20000));
        EXPECT_TRUE(button()->isDefault());
        EXPECT_TRUE(button()->hasFocus()) << QApplication::focusWidget()->metaObject()->className();
        EXPECT_TRUE(controller->window()->testAttribute(Qt::WA_KeyboardFocusChange)) << "and is seen there";
        // This page is loaded into a window that is active.
        control()->segment(1)->click();
        EXPECT_TRUE(waitUntil([&] { return isLoaded("/1.html"); }, 20000));
        tx::test::drainEvents();
        EXPECT_TRUE(button()->hasFocus()) << QApplication::focusWidget()->metaObject()->className();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        EXPECT_FALSE(controller->window()->isVisible()) << "Return closes the window";
        if (controller->window()->isVisible())
            controller->closeWindow();
    });
    EXPECT_EQ(controller->showWindowModally(false), 0);
    EXPECT_EQ(closed, 1);
}

TEST_F(PostWindow, PageAppearsOnlyWhenItIsComplete) {
    pages[u"/0.html"_s] =
        "<p>text</p><script>const seen = () => getComputedStyle(document.documentElement).visibility;"
        "const early = seen(); onload = () => setTimeout(() => {"
        "fetch('/told?' + early + '&' + seen()).finally(() => "
        "webkit.messageHandlers.closeWindow.postMessage('x')); }, 0);</script>";
    controller->setPosts(makePosts(1));
    (void)controller->showWindow();
    EXPECT_EQ(told(), QByteArray("/told?hidden&visible"));
}

TEST_F(PostWindow, OnePostHasNowhereToGo) {
    controller->setPosts(makePosts(1));
    inModalSession([&] {
        EXPECT_FALSE(control()->isEnabledForSegment(0));
        EXPECT_FALSE(control()->isEnabledForSegment(1));
        EXPECT_EQ(controller->window()->windowTitle(), u"Post 0"_s);
        EXPECT_EQ(outlet(controller->window(), "_titleTextField")->text(), QString());
        EXPECT_EQ(button()->text(), u"Close"_s);
        EXPECT_EQ(controller->window()->focusWidget(), button());
        EXPECT_TRUE(controller->window()->testAttribute(Qt::WA_KeyboardFocusChange)) << "and that is seen";
        EXPECT_TRUE(controller->window()->windowFlags() & Qt::WindowCloseButtonHint);
        EXPECT_FALSE(controller->window()->windowFlags() & Qt::WindowMinimizeButtonHint);
        EXPECT_EQ(controller->showWindowModally(true), 0) << "shown already";
        EXPECT_EQ(button()->text(), u"Close"_s);
        button()->click();
    });
    EXPECT_EQ(controller->showWindowModally(false), 0);
    EXPECT_EQ(closed, 1);
}

TEST_F(PostWindow, StepsThroughThePosts) {
    controller->setPosts(makePosts(3));
    inModalSession([&] {
        struct Step {
            int segment;
            int index;
            bool previous, next;
        };
        EXPECT_TRUE(control()->isEnabledForSegment(1));
        for (const Step &step : {Step{1, 1, true, true}, Step{1, 2, true, false}, Step{0, 1, true, true},
                                 Step{0, 0, false, true}}) {
            control()->segment(step.segment)->click();
            EXPECT_EQ(controller->currentPostIndex(), step.index);
            EXPECT_EQ(controller->window()->windowTitle(), u"Post %1"_s.arg(step.index));
            EXPECT_EQ(control()->isEnabledForSegment(0), step.previous);
            EXPECT_EQ(control()->isEnabledForSegment(1), step.next);
        }
        controller->goPrevious();
        EXPECT_EQ(controller->currentPostIndex(), 0);
        controller->goNext();
        controller->goNext();
        controller->goNext();
        EXPECT_EQ(controller->currentPostIndex(), 2);
        EXPECT_EQ(button()->text(), u"Quit"_s);
        controller->closeWindow();
    });
    EXPECT_EQ(controller->showWindowModally(true), 0);
    inModalSession([&] {
        EXPECT_EQ(controller->currentPostIndex(), 0) << "every showing begins at the first";
        controller->closeWindow();
    });
    EXPECT_EQ(controller->showWindow(), 0);
}

TEST_F(PostWindow, PostWithoutATitleIsNews) {
    QList<TXUpdatePostPtr> posts = makePosts(1);
    posts[0]->setTitle({});
    controller->setPosts(posts);
    EXPECT_EQ(controller->window()->windowTitle(), u"News"_s);
}

TEST_F(PostWindow, PreferredSizeIsTheContentAndTheLeast) {
    QList<TXUpdatePostPtr> posts = makePosts(2);
    posts[0]->setPreferredDisplaySize({700, 444});
    posts[1]->setPreferredDisplaySize({400, 300});
    controller->setPosts(posts);
    inModalSession([&] {
        EXPECT_EQ(controller->window()->size(), QSize(700, 444));
        EXPECT_EQ(controller->window()->minimumSize(), QSize(700, 444));
        controller->goNext();
        EXPECT_EQ(controller->window()->size(), QSize(700, 444)) << "not while it is shown";
        controller->closeWindow();
    });
    (void)controller->showWindow();
}

TEST_F(PostWindow, PreferredSizeIsBoundedByTheScreen) {
    QList<TXUpdatePostPtr> posts = makePosts(1);
    posts[0]->setPreferredDisplaySize({70000, 44400});
    controller->setPosts(posts);
    inModalSession([&] {
        const QSize available = controller->window()->screen()->availableGeometry().size();
        const QSize frame = controller->window()->frameGeometry().size();
        EXPECT_EQ(frame.boundedTo(available), frame);
        EXPECT_GT(controller->window()->width(), available.width() - 50);
        EXPECT_GT(controller->window()->height(), available.height() - 100);
        EXPECT_EQ(controller->window()->minimumSize(), controller->window()->size());
        controller->closeWindow();
    });
    (void)controller->showWindow();
}

TEST_F(PostWindow, EveryWayOfClosingNotifies) {
    const QList<std::function<void()>> ways{
        [&] { controller->window()->close(); },
        [&] { QTest::keyClick(controller->window(), Qt::Key_Escape); },
        [&] { QTest::keyClick(controller->window(), Qt::Key_Return); },
        [] { QCoreApplication::quit(); },
    };
    controller->setPosts(makePosts(1));
    for (int i = 0; i < ways.size(); ++i) {
        closed = notified = 0;
        inApplication([&] {
            inModalSession(ways[i]);
            EXPECT_EQ(controller->showWindow(), 0);
        });
        EXPECT_EQ(closed, 1) << i;
        EXPECT_EQ(notified, 1) << i;
        EXPECT_FALSE(tx::isModalWindow(controller->window()));
    }
}

TEST_F(PostWindow, KeepsItselfWhileShown) {
    controller->setPosts(makePosts(1));
    const std::weak_ptr<TXUpdatePostWindowController> weak = controller;
    TXUpdatePostWindowController *shown = controller.get();
    inModalSession([&] {
        controller.reset();
        EXPECT_FALSE(weak.expired());
        shown->closeWindow();
    });
    EXPECT_EQ(shown->showWindow(), 0);
    EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

TEST_F(PostWindow, PostsThatAskForItAreShownAgain) {
    setNow(QDateTime(QDate(2026, 11, 5), QTime(12, 0), Qt::UTC));
    const auto makePost = [this](const QString &page, TXUpdatePostDisplayTime time) {
        auto post = std::make_shared<TXUpdatePost>();
        post->setTitle(page);
        post->setPostURL(QUrl(server.url(page)));
        post->setDateString(u"2026-11-01 10:00:00"_s);
        post->setDisplayTime(time);
        return post;
    };
    TXStandardUpdateController updates;
    updates.setTrack(std::make_shared<TXUpdateTrack>(
        u"release"_s, QList<TXUpdatePtr>(),
        QList<TXUpdatePostPtr>{makePost(u"/quit"_s, TXUpdatePostDisplayTimeAtQuit),
                               makePost(u"/passive"_s, TXUpdatePostDisplayTimePassive)}));
    const auto pagesSay = [this](const QByteArray &body) {
        for (const QString &page : {u"/quit"_s, u"/passive"_s})
            pages[page] =
                "<script>window.webkit.messageHandlers.closeWindow.postMessage('" + body + "')</script>";
    };
    pagesSay("askLater");
    // A host cannot reach the window that is shown here, and hears of it all the same.
    const QSignalSpy notifications(TXNotificationCenter::defaultCenter(), &TXNotificationCenter::posted);
    EXPECT_TRUE(updates.showPostsAtQuit());
    EXPECT_EQ(notifications, (QList<QVariantList>{{TXUpdatePostWindowDidCloseNotificationName}}));
    EXPECT_TRUE(updates.hasPostsToShowAtQuit()) << "at the next quit again";
    EXPECT_TRUE(updates.showPostsPassively());
    EXPECT_EQ(notifications.size(), 2) << "each time";
    EXPECT_TRUE(updates.hasPostsToShowPassively());
    pagesSay("read");
    EXPECT_TRUE(updates.showPostsAtQuit());
    EXPECT_FALSE(updates.hasPostsToShowAtQuit());
    EXPECT_FALSE(updates.showPostsAtQuit());
    EXPECT_TRUE(updates.showPostsPassively());
    EXPECT_FALSE(updates.showPostsPassively());
}

TEST_F(PostWindow, LinksOpenInTheBrowserWhenTheUserClicksOnThem) {
    // All of the page is the link.
    pages[u"/0.html"_s] = "<style>a { position: fixed; inset: 0 }</style><a id=a href='%1'>a</a>"
                          "<script>onload = () => document.getElementById('a').click()</script>";
    struct Case {
        QByteArray address;
        QStringList opened;
    };
    const QByteArray page = pages[u"/0.html"_s];
    for (const Case &c : {Case{"https://example.org/x", {u"https://example.org/x"_s}},
                          Case{"mailto:help@example.org", {u"mailto:help@example.org"_s}}}) {
        pages[u"/0.html"_s] = QByteArray(page).replace("%1", c.address);
        workspace.opened.clear();
        controller = TXUpdatePostWindowController::controller();
        controller->setPosts(makePosts(1));
        QTimer clicking;
        int tries = 0;
        QObject::connect(&clicking, &QTimer::timeout, controller.get(), [&] {
            EXPECT_TRUE(workspace.opened.isEmpty() || workspace.opened == c.opened);
            if (!workspace.opened.isEmpty() || ++tries > 200) {
                controller->closeWindow();
                return;
            }
            // Until the page is there and takes it.
            if (auto *view = controller->window()->findChild<QWidget *>(u"_webView"_s))
                if (QWidget *at = view->childAt(view->rect().center()))
                    QTest::mouseClick(at, Qt::LeftButton);
        });
        clicking.start(100);
        (void)controller->showWindow();
        EXPECT_EQ(workspace.opened, c.opened);
    }
}

TEST_F(PostWindow, PageOnAnotherHostDoesNotLearnTheAnonymousIdentifier) {
    const QString elsewhere = u"http://localhost:%1/elsewhere"_s.arg(server.port());
    // The page says what it knows some time after it is complete.
    const QByteArray telling =
        "<script>onload = () => setTimeout(() => fetch('/told?' + typeof TarvixUpdateAnonymousUUID + '&' + "
        "location.hostname).finally(() => webkit.messageHandlers.closeWindow.postMessage('x')), "
        "500)</script>";
    struct Case {
        HttpReply first;
        QByteArray told;
    };
    const Case cases[] = {
        {HttpReply::redirect(elsewhere.toUtf8()), "/told?undefined&localhost"},
        {HttpReply::file("<script>location.href = '" + elsewhere.toUtf8() + "'</script>", "text/html"),
         "/told?undefined&localhost"},
        {HttpReply::redirect("/same"), "/told?string&127.0.0.1"}};
    for (const Case &c : cases) {
        server.always([&](const HttpRequest &request) {
            return request.path() == "/0.html" ? c.first : HttpReply::file(telling, "text/html");
        });
        const auto before = server.requests().size();
        controller = TXUpdatePostWindowController::controller();
        controller->setPosts(makePosts(1));
        EXPECT_EQ(controller->showWindow(), 0);
        QList<QByteArray> told;
        for (const HttpRequest &request : server.requests().mid(before)) {
            if (request.path() == "/told")
                told << request.target;
        }
        EXPECT_EQ(told, QList<QByteArray>{c.told});
    }
}

TEST_F(PostWindow, SamePostsAreNotLoadedAgain) {
    // A page that is left does not come to its second word.
    pages[u"/0.html"_s] = "<script>fetch('/there'); setTimeout(() => fetch('/still'), 500)</script>";
    const auto requests = [this](const QByteArray &path) {
        const QList<HttpRequest> all = server.requests();
        return std::count_if(all.begin(), all.end(),
                             [&](const HttpRequest &request) { return request.path() == path; });
    };
    const QList<TXUpdatePostPtr> posts = makePosts(1);
    controller->setPosts(posts);
    ASSERT_TRUE(waitUntil([&] { return requests("/there") == 1; }));
    controller->setPosts(posts);
    EXPECT_TRUE(waitUntil([&] { return requests("/still") == 1; }));
    EXPECT_EQ(requests("/0.html"), 1);
}

TEST_F(PostWindow, SharedInstanceIsOne) {
    EXPECT_EQ(TXUpdatePostWindowController::sharedInstance(), TXUpdatePostWindowController::sharedInstance());
    EXPECT_NE(TXUpdatePostWindowController::controller(), TXUpdatePostWindowController::sharedInstance());
}

TEST_F(PostWindow, MissingInterfaceFileShowsNothing) {
    replaceResource(u"TXUpdatePostWindowController.ui"_s, {});
    controller = TXUpdatePostWindowController::controller();
    controller->setPosts(makePosts(1));
    EXPECT_EQ(controller->showWindow(), 0);
    EXPECT_TRUE(logLines().contains(u"Could not load the interface file TXUpdatePostWindowController"_s));
}

TEST_F(PostWindow, UnreachablePageCanBeClosed) {
    auto post = std::make_shared<TXUpdatePost>();
    post->setPostURL(QUrl(u"http://127.0.0.1:1/never"_s));
    controller->setPosts({post});
    inModalSession([&] { controller->closeWindow(); });
    EXPECT_EQ(controller->showWindow(), 0);
}

} // namespace

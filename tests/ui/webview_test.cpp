// SPDX-License-Identifier: MIT
// Real pages in the real web engine, without a display.
#include "tests/support/feedserver.h"
#include "tests/support/tlsserver.h"
#include "tests/ui/uitest.h"
#include "ui/modalsession.h"
#include "ui/segmentedcontrol.h"
#include "ui/webview.h"

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

std::unique_ptr<QCoreApplication> makeApplication(int &argc, char **argv) {
    // Root in a container has no sandbox; these pages are the test's own.
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    return std::make_unique<QApplication>(argc, argv);
}

namespace {

HttpReply html(const QByteArray &body) { return HttpReply::file(body, "text/html"); }

/// How many processes show pages for this one: children of the engine's helper, which is a child of this
/// process.
int pageProcesses() {
    const auto parentOf = [](const QByteArray &pid) {
        const QByteArray stat = tx::test::readFile(u"/proc/"_s + QString::fromLatin1(pid) + u"/stat"_s);
        return stat.mid(stat.lastIndexOf(')') + 2).split(' ').value(1);
    };
    const auto isEngine = [](const QByteArray &pid) {
        return tx::test::readFile(u"/proc/"_s + QString::fromLatin1(pid) + u"/cmdline"_s)
            .contains("QtWebEngineProcess");
    };
    int count = 0;
    for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        const QByteArray pid = entry.toLatin1();
        if (pid.toInt() <= 0 || !isEngine(pid))
            continue;
        const QByteArray helper = parentOf(pid);
        count += isEngine(helper) && parentOf(helper).toInt() == getpid() ? 1 : 0;
    }
    return count;
}

class WebPage : public tx::test::UiTest {
protected:
    FeedServer server;
    QWidget window;
    QStringList links;
    QList<QVariant> messages;
    int loads = 0;
    int failures = 0;
    std::unique_ptr<tx::WebView> view;

    WebPage() {
        window.resize(400, 300);
        view =
            tx::makeWebView(&window, {.linkActivated = [this](const QUrl &url) { links << url.toString(); },
                                      .loadFinished = [this](bool) { ++loads; },
                                      .loadFailed = [this] { ++failures; },
                                      .messageReceived =
                                          [this](const QString &name, const QVariant &body) {
                                              EXPECT_EQ(name, u"closeWindow"_s);
                                              messages << body;
                                          },
                                      .messageNames = {u"closeWindow"_s}});
        window.show();
    }
    /// Loads a page of this body and waits until it is there.
    void show(const QByteArray &body) {
        server.always([body](const HttpRequest &request) {
            return request.path() == "/page.html" ? html(body) : HttpReply{.status = 404};
        });
        const int before = loads;
        view->load(QUrl(server.url(u"/page.html"_s)));
        EXPECT_TRUE(waitUntil([&] { return loads > before; }));
    }
    void say(const QString &script) {
        view->evaluateJavaScript(u"webkit.messageHandlers.closeWindow.postMessage(%1)"_s.arg(script));
    }
    /// The widget to which the window system's events go.
    QWidget *input() const {
        QWidget *proxy = view->widget()->focusProxy();
        return proxy ? proxy : view->widget();
    }
    /// Clicks as the user does, into the middle of an element.
    void click(const QString &id) {
        messages.clear();
        say(u"(r => [r.x + Math.min(r.width, 20) / 2, r.y + r.height / 2])(document.getElementById('%1')"
            ".getBoundingClientRect())"_s.arg(id));
        ASSERT_TRUE(waitUntil([&] { return messages.size() == 1; }, 10000)) << id.toStdString();
        const QVariantList place = messages.takeFirst().toList();
        QTest::mouseClick(input(), Qt::LeftButton, {},
                          QPointF(place.value(0).toDouble(), place.value(1).toDouble()).toPoint());
    }
    bool gets(const QVariant &message) {
        return waitUntil([&] { return messages.contains(message); }, 10000);
    }
    QStringList requested() const {
        QStringList paths;
        for (const HttpRequest &request : server.requests())
            paths << QString::fromLatin1(request.path());
        return paths;
    }
};

TEST_F(WebPage, ScriptsRunAndMessagesArriveFromTheFirstOne) {
    ASSERT_TRUE(view->isFull());
    show("<script>window.webkit.messageHandlers.closeWindow.postMessage('first')</script>"
         "<script>const post = b => webkit.messageHandlers.closeWindow.postMessage(b);"
         "post(7); post(null); post(); post({a: [1, 'x']}); post('\\u00fc \"quoted\" \\n');</script>");
    EXPECT_TRUE(gets(u"first"_s));
    EXPECT_TRUE(gets(7));
    EXPECT_TRUE(gets(QVariantMap{{u"a"_s, QVariantList{1, u"x"_s}}}));
    EXPECT_TRUE(gets(u"\u00fc \"quoted\" \n"_s));
    EXPECT_EQ(messages.size(), 6);
}

TEST_F(WebPage, HandlersCannotBeReplacedAndOthersAreNotThere) {
    show("<script>let m = [];"
         "try { window.webkit = 1; } catch (e) {} m.push(typeof webkit);"
         "try { webkit.messageHandlers.closeWindow.postMessage = 1; } catch (e) {}"
         "m.push(typeof webkit.messageHandlers.closeWindow.postMessage);"
         "m.push(typeof webkit.messageHandlers.other); m.push(typeof window.qt);"
         "webkit.messageHandlers.closeWindow.postMessage(m.join());</script>");
    EXPECT_TRUE(gets(u"object,function,undefined,undefined"_s));
}

TEST_F(WebPage, ForgedConsoleLinesAreNoMessages) {
    show("<script>console.log('[\"closeWindow\",\"forged\"]');"
         "webkit.messageHandlers.closeWindow.postMessage('real')</script>");
    EXPECT_TRUE(gets(u"real"_s));
    EXPECT_FALSE(messages.contains(u"forged"_s));
}

TEST_F(WebPage, LinksThatTheUserClicksOpenInTheBrowserAndThePageStays) {
    show("<style>a { display: block; height: 20px }</style>"
         "<a id=a href='https://example.org/x'>a</a><a id=b target=_blank href='https://example.org/y'>b</a>"
         "<a id=c href='#part'>c</a><p id=part></p><a id=d href='mailto:help@example.org'>d</a>"
         "<a id=e target=_blank href='mailto:more@example.org'>e</a>");
    const QList<std::pair<QString, QString>> expected{{u"a"_s, u"https://example.org/x"_s},
                                                      {u"b"_s, u"https://example.org/y"_s},
                                                      {u"d"_s, u"mailto:help@example.org"_s},
                                                      {u"e"_s, u"mailto:more@example.org"_s}};
    for (const auto &[id, address] : expected) {
        links.clear();
        click(id);
        EXPECT_TRUE(waitUntil([&] { return !links.isEmpty(); }, 10000)) << id.toStdString();
        EXPECT_EQ(links, QStringList{address});
    }
    click(u"c"_s);
    EXPECT_TRUE(waitUntil([&] {
        say(u"location.pathname + location.hash"_s);
        return messages.contains(u"/page.html#part"_s);
    }));
    EXPECT_EQ(links.size(), 1);
}

TEST_F(WebPage, LinksThatAScriptClicksOpenNothing) {
    show("<p id=p>text</p>");
    view->evaluateJavaScript(uR"(
for (let i = 0; i < 21; ++i) {
  const a = document.createElement('a');
  a.href = ['https://example.org/', 'http://example.org/', 'mailto:a@example.org'][i % 3];
  if (i % 2) a.target = '_blank';
  document.body.append(a);
  a.click();
})"_s);
    say(u"'clicked'"_s);
    EXPECT_TRUE(gets(u"clicked"_s));
    // What the engine asks about these addresses comes before what it asks about one that the user clicks on.
    view->evaluateJavaScript(u"document.body.insertAdjacentHTML('afterbegin', "
                             "'<a id=real href=\"https://example.org/real\">real</a>')"_s);
    click(u"real"_s);
    EXPECT_TRUE(waitUntil([&] { return links.contains(u"https://example.org/real"_s); }, 10000));
    EXPECT_EQ(links, QStringList{u"https://example.org/real"_s});
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("a page wanted to open https://example.org/ without the user"));
}

TEST_F(WebPage, OnePressOpensOneAddressWithinOneSecondOfIt) {
    double now = 100;
    tx::services().secondsSinceReferenceDate = [&now] { return now; };
    show("<p id=p>text</p><input id=i value=text>");
    const auto openByScript = [&](const QString &target) {
        view->evaluateJavaScript(u"var a = document.createElement('a'); a.href = 'https://example.org/%1'; "
                                 "document.body.append(a); a.click();"_s.arg(target));
        // The engine asks before the page is told so.
        const QString told = u"after "_s + target;
        say(u"'%1'"_s.arg(told));
        EXPECT_TRUE(gets(told));
        tx::test::drainEvents();
    };
    const auto opens = [&](const QString &target) {
        links.clear();
        openByScript(target);
        return waitUntil([&] { return !links.isEmpty(); }, 3000);
    };
    const auto opensNothing = [&](const QString &target) {
        links.clear();
        openByScript(target);
        const QString line = u"a page wanted to open https://example.org/%1 without the user"_s.arg(target);
        return waitUntil([&] { return !logLines().filter(line).isEmpty(); }, 10000) && links.isEmpty();
    };
    EXPECT_TRUE(opensNothing(u"unasked"_s));
    click(u"p"_s);
    now += 1;
    EXPECT_TRUE(opens(u"within"_s));
    EXPECT_TRUE(opensNothing(u"again"_s)) << "the press has been used";
    click(u"p"_s);
    now += 1.01;
    EXPECT_TRUE(opensNothing(u"late"_s));
    click(u"p"_s);
    now -= 10;
    EXPECT_TRUE(opensNothing(u"before"_s)) << "the clock was set back";
    QTest::keyClick(input(), Qt::Key_Shift);
    EXPECT_TRUE(opens(u"key"_s));
    // Elsewhere, or by an event that the application made.
    QWidget other(&window);
    QTest::mouseClick(&other, Qt::LeftButton);
    EXPECT_TRUE(opensNothing(u"elsewhere"_s));
    QMouseEvent made(QEvent::MouseButtonPress, QPointF(1, 1), QPointF(1, 1), QPointF(1, 1), Qt::LeftButton,
                     Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(input(), &made);
    EXPECT_TRUE(opensNothing(u"made"_s));
    QKeyEvent repeated(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, u"a"_s, true);
    QCoreApplication::sendEvent(input(), &repeated);
    EXPECT_TRUE(opensNothing(u"repeated"_s));
}

TEST_F(WebPage, LocalFilesAndOtherSchemesAreOutOfReach) {
    tx::test::writeFile(path(u"secret.txt"_s), "secret");
    show("<iframe id=f src='file://" + path(u"secret.txt"_s).toUtf8() +
         "'></iframe><script>"
         "const say = m => webkit.messageHandlers.closeWindow.postMessage(m);"
         "fetch('file://" +
         path(u"secret.txt"_s).toUtf8() +
         "').then(r => r.text()).then(t => say('read ' + t)).catch(e => say('refused'));"
         "try { location.href = 'file:///etc/passwd'; } catch (e) {}"
         "setTimeout(() => say('still ' + location.pathname), 200);</script>");
    EXPECT_TRUE(gets(u"refused"_s));
    EXPECT_TRUE(gets(u"still /page.html"_s));
    const int before = loads;
    view->load(QUrl(u"file:///etc/passwd"_s));
    tx::test::drainEvents();
    EXPECT_EQ(loads, before) << "nor does the framework show one";
}

TEST_F(WebPage, PopUpsDialogsDownloadsAndPermissionsAreRefused) {
    server.always([](const HttpRequest &request) {
        if (request.path() == "/file.bin") {
            HttpReply reply = HttpReply::file("content");
            reply.headers.append(std::pair<QByteArray, QByteArray>("Content-Disposition", "attachment"));
            return reply;
        }
        return html(
            "<script>const say = m => webkit.messageHandlers.closeWindow.postMessage(m);"
            "alert('x'); say('confirm ' + confirm('x')); say('prompt ' + prompt('x'));"
            "say('window ' + (window.open('https://example.org/') === null));"
            "const a = document.createElement('a'); a.href = '/file.bin'; a.download = 'f'; a.click();"
            "for (const target of ['', '_blank', '_top']) {"
            "const b = document.createElement('a'); b.href = 'https://example.org/'; b.target = target;"
            "document.documentElement.append(b); b.click(); }"
            "Notification.requestPermission().then(r => say('notify ' + r));</script>");
    });
    view->load(QUrl(server.url(u"/page.html"_s)));
    EXPECT_TRUE(gets(u"confirm false"_s));
    EXPECT_TRUE(gets(u"prompt null"_s));
    EXPECT_TRUE(gets(u"window true"_s));
    EXPECT_TRUE(gets(u"notify denied"_s));
    // The page is still there and is asked after what it wanted to open.
    say(u"'still ' + location.pathname"_s);
    EXPECT_TRUE(gets(u"still /page.html"_s));
    EXPECT_TRUE(waitUntil(
        [&] { return logLines().filter(u"a page wanted to open https://example.org/"_s).size() >= 2; },
        10000));
    EXPECT_TRUE(links.isEmpty()) << links.join(u' ').toStdString();
    QDirIterator files(path(u"home"_s), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext())
        EXPECT_NE(tx::test::readFile(files.next()), QByteArray("content"));
}

TEST_F(WebPage, NothingIsKeptOnDisk) {
    show("<script>document.cookie = 'a=b; max-age=100000'; "
         "webkit.messageHandlers.closeWindow.postMessage('done')</script>");
    EXPECT_TRUE(gets(u"done"_s));
    QDirIterator files(path(u"home"_s), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    QStringList found;
    while (files.hasNext())
        found << files.next();
    found.erase(std::remove_if(found.begin(), found.end(),
                               [](const QString &file) {
                                   return !file.contains(u"Cookies"_s) && !file.contains(u"Cache"_s);
                               }),
                found.end());
    EXPECT_TRUE(found.isEmpty()) << found.join(u'\n').toStdString();
}

TEST_F(WebPage, FollowsTheAppearance) {
    const QByteArray body = "<script>const say = () => webkit.messageHandlers.closeWindow.postMessage("
                            "getComputedStyle(document.documentElement).colorScheme);</script>";
    show(body);
    view->evaluateJavaScript(u"say()"_s);
    EXPECT_TRUE(gets(u"light"_s));
    view->setDark(true);
    view->evaluateJavaScript(u"say()"_s);
    EXPECT_TRUE(gets(u"dark"_s)) << "while it is shown";
    messages.clear();
    show(body);
    view->evaluateJavaScript(u"say()"_s);
    EXPECT_TRUE(gets(u"dark"_s)) << "and for the next page";
}

TEST_F(WebPage, HasTheMarginsOfItsWindowUnlessItAsksForOthers) {
    view = tx::makeWebView(
        &window, {.loadFinished = [this](bool) { ++loads; },
                  .messageReceived = [this](const QString &, const QVariant &body) { messages << body; },
                  .messageNames = {u"closeWindow"_s},
                  .margins = QMargins(24, 18, 23, 14)});
    const auto marginsOf = [&](const QString &page) {
        messages.clear();
        const int before = loads;
        view->setHtml(page);
        EXPECT_TRUE(waitUntil([&] { return loads > before; }));
        say(u"(s => [s.marginLeft, s.marginTop, s.marginRight, s.marginBottom].join(' '))"
            "(getComputedStyle(document.body))"_s);
        EXPECT_TRUE(waitUntil([&] { return !messages.isEmpty(); }, 10000));
        return messages.value(0).toString();
    };
    EXPECT_EQ(marginsOf(u"<p>plain</p>"_s), u"24px 18px 23px 14px"_s);
    EXPECT_EQ(marginsOf(u"<style>body { margin: 3px; }</style><p>styled</p>"_s), u"3px 3px 3px 3px"_s);
    EXPECT_EQ(marginsOf(u"<style>* { margin: 0; }</style><p>styled</p>"_s), u"0px 0px 0px 0px"_s)
        << "a rule of any weight";
}

TEST_F(WebPage, ItsProcessEndsWithIt) {
    show("<p>page</p>");
    EXPECT_TRUE(waitUntil([] { return pageProcesses() > 0; }));
    view->setHtml({});
    EXPECT_TRUE(waitUntil([] { return pageProcesses() == 0; }, 2000));
    show("<script>webkit.messageHandlers.closeWindow.postMessage('again')</script>");
    EXPECT_TRUE(gets(u"again"_s));
    view.reset();
    EXPECT_TRUE(waitUntil([] { return pageProcesses() == 0; }, 2000));
}

TEST_F(WebPage, MayBeLargeEndlessOrBusy) {
    struct Case {
        const char *what;
        QByteArray body;
    };
    for (const Case &c :
         {Case{"100 MB", "<p>start</p>" + QByteArray(100 << 20, 'x')},
          Case{"reloads for ever", "<script>location.reload()</script>"},
          Case{"10,000 messages", "<script>for (let i = 0; i < 10000; ++i) "
                                  "webkit.messageHandlers.closeWindow.postMessage(i)</script>"},
          Case{"an endless loop", "<script>for (;;);</script>"}}) {
        server.always([&](const HttpRequest &request) {
            return request.path() == "/page.html" ? html(c.body) : HttpReply{.status = 404};
        });
        view->load(QUrl(server.url(u"/page.html"_s)));
        const auto before = server.requests().size();
        EXPECT_TRUE(waitUntil([&] { return server.requests().size() > before; })) << c.what;
        // The window around it answers meanwhile.
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 20; ++i)
            tx::test::drainEvents();
        EXPECT_LT(timer.elapsed(), 5000) << c.what;
        view->setHtml({});
        tx::test::drainEvents();
        messages.clear();
    }
}

TEST_F(WebPage, UntrustedCertificatesAreRefused) {
    const tx::test::TlsServer untrusted;
    const int before = loads;
    view->load(QUrl(untrusted.url(u"/page.html"_s)));
    EXPECT_TRUE(waitUntil([&] { return loads > before; }));
    EXPECT_EQ(untrusted.requests(), 0) << "nothing was asked of it";
}

TEST_F(WebPage, ThatNeverComesCanBeLeft) {
    HttpReply slow = html("<p>first words</p>");
    slow.announcedLength = 1000;
    slow.stalls = true;
    server.expect("GET", "/slow.html", slow);
    view->load(QUrl(server.url(u"/slow.html"_s)));
    EXPECT_TRUE(waitUntil([&] { return !server.requests().isEmpty(); }));
    show("<script>webkit.messageHandlers.closeWindow.postMessage('next')</script>");
    EXPECT_TRUE(gets(u"next"_s));
}

/// The engine's view in a window; null where there is none.
QWidget *engineViewOf(const QWidget *window) {
    for (QWidget *child : window->findChildren<QWidget *>()) {
        if (child->inherits("QWebEngineView"))
            return child;
    }
    return nullptr;
}

/// The title of the page that a window shows.
QString titleOfPage(const QWidget *window) {
    const QWidget *view = engineViewOf(window);
    return view ? view->property("title").toString() : u"no page"_s;
}

/// Whether everything in the widget has one colour.
bool isBlank(QWidget *widget) {
    const QImage image = widget->grab().toImage();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) != image.pixel(0, 0))
                return false;
        }
    }
    return !image.isNull();
}

TEST_F(WebPage, ThatDoesNotLoadShowsWhatThereIsAndNoPageOfTheEngine) {
    show("<title>Page</title><h1>text</h1>");
    EXPECT_TRUE(waitUntil([this] { return !isBlank(view->widget()); })) << "a picture shows text";
    EXPECT_EQ(failures, 0);
    view->load(QUrl(u"http://127.0.0.1:1/refused.html"_s));
    EXPECT_TRUE(waitUntil([this] { return failures == 1; }));
    EXPECT_TRUE(waitUntil([this] { return isBlank(view->widget()); }));
    // A server's own words are what there is, too.
    server.expect("GET", "/missing.html",
                  {.status = 404, .headers = {{"Content-Type", "text/html"}}, .body = "<title>Gone</title>"});
    view->load(QUrl(server.url(u"/missing.html"_s)));
    EXPECT_TRUE(waitUntil([this] { return failures == 2; }));
    EXPECT_EQ(titleOfPage(&window), u"Gone"_s);
}

TEST_F(WebPage, ThatMakesRoomForAnotherHasNotFailed) {
    HttpReply slow = html("<p>first words</p>");
    slow.announcedLength = 1000;
    slow.stalls = true;
    server.expect("GET", "/slow.html", slow);
    view->load(QUrl(server.url(u"/slow.html"_s)));
    EXPECT_TRUE(waitUntil([&] { return !server.requests().isEmpty(); }));
    show("<title>next</title>");
    EXPECT_EQ(titleOfPage(&window), u"next"_s);
    EXPECT_EQ(failures, 0);
}

TEST_F(WebPage, NotesThatDoNotLoadAreThoseThatTheFeedBroughtAlong) {
    becomeHost(u"1042"_s, u"2.0"_s);
    const auto panel = TXUpdatePanel::panel();
    const QList<TXUpdatePtr> updates = makeUpdates(2);
    updates[0]->setReleaseNotesURL(QUrl(u"http://127.0.0.1:1/refused.html"_s));
    updates[0]->setItemDescription(u"<title>Brought along</title><p>text</p>"_s);
    updates[1]->setReleaseNotesURL(QUrl(server.url(u"/missing.html"_s)));
    updates[1]->setItemDescription(u"<title>This one too</title><p>text</p>"_s);
    server.always([](const HttpRequest &) { return HttpReply{.status = 404, .body = "gone"}; });
    panel->setUpdatesAndDesignatedUpdate(updates, updates[0]);
    panel->showWindow({});
    EXPECT_TRUE(waitUntil([&] { return titleOfPage(panel.get()) == u"Brought along"_s; }));
    panel->chooseUpdate(updates[1]);
    EXPECT_TRUE(waitUntil([&] { return titleOfPage(panel.get()) == u"This one too"_s; }));
    panel->closeWithCode(0);
}

/// The window for posts, its pages in the real engine.
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
            return html(pages.value(QString::fromLatin1(request.path()), "<p>page</p>"));
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
        {html("<script>location.href = '" + elsewhere.toUtf8() + "'</script>"), "/told?undefined&localhost"},
        {HttpReply::redirect("/same"), "/told?string&127.0.0.1"}};
    for (const Case &c : cases) {
        server.always([&](const HttpRequest &request) {
            return request.path() == "/0.html" ? c.first : html(telling);
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
    const QList<TXUpdatePostPtr> posts = makePosts(1);
    controller->setPosts(posts);
    ASSERT_TRUE(waitUntil([&] { return server.requests().size() == 1; }));
    controller->setPosts(posts);
    tx::test::drainEvents();
    EXPECT_EQ(server.requests().size(), 1);
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

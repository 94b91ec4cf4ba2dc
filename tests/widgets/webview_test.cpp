// SPDX-License-Identifier: MIT
// Real pages in the real web engine, without a display.
#include "tests/support/feedserver.h"
#include "tests/support/tlsserver.h"
#include "tests/widgets/uitest.h"
#include "widgets/modalsession.h"
#include "widgets/segmentedcontrol.h"
#include "widgets/webview.h"

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
    /// Begins to load a page of which only the beginning arrives.
    void loadPageThatNeverComes() {
        HttpReply slow = html("<p>first words</p>");
        slow.announcedLength = 1000;
        slow.stalls = true;
        server.expect("GET", "/slow.html", slow);
        view->load(QUrl(server.url(u"/slow.html"_s)));
        EXPECT_TRUE(waitUntil([&] { return !server.requests().isEmpty(); }));
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
    // The second stands behind as many characters as the mark that real messages have.
    show("<script>console.log('[\"closeWindow\",\"forged\"]');"
         "console.log('x'.repeat(36) + '[\"closeWindow\",\"forged\"]');"
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
    loadPageThatNeverComes();
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
    loadPageThatNeverComes();
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
} // namespace

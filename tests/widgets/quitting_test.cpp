// SPDX-License-Identifier: MIT
// How an application ends while windows of the framework are open: in a process of its own, with real pages.
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"

#include <QProcess>

#include <algorithm>
#include <csignal>
#include <string_view>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::waitUntil;

namespace {

class Quitting : public tx::test::FrameworkTest, public testing::WithParamInterface<const char *> {
protected:
    FeedServer server;
    QProcess host;

    Quitting() {
        server.always([](const HttpRequest &request) {
            // The picture is asked for when the page is shown.
            if (request.path() == "/notes.html")
                return HttpReply::file("<h1>Notes</h1><img src='/shown.png'>", "text/html");
            if (request.path() == "/closing.html")
                return HttpReply::file(
                    "<script>webkit.messageHandlers.closeWindow.postMessage('read')</script>", "text/html");
            return HttpReply{.status = 404};
        });
    }
    ~Quitting() override {
        if (host.state() != QProcess::NotRunning)
            host.kill();
        host.waitForFinished();
    }
    [[nodiscard]] bool pageIsShown() {
        return waitUntil([this] {
            for (const HttpRequest &request : server.requests()) {
                if (request.path() == "/shown.png")
                    return true;
            }
            return host.state() == QProcess::NotRunning;
        });
    }
    void start(const char *what) {
        host.start(tx::test::helpersFolder() + u"/quit_host"_s,
                   {QString::fromLatin1(what), server.url(u"/notes.html"_s)});
        ASSERT_TRUE(host.waitForStarted());
    }
    void expectOrdinaryEnd(const char *lastWords = "windows left: 0\nended\n") {
        ASSERT_TRUE(waitUntil([this] { return host.state() == QProcess::NotRunning; })) << "it does not end";
        const QByteArray errors = host.readAllStandardError();
        EXPECT_EQ(host.exitStatus(), QProcess::NormalExit) << errors.constData();
        EXPECT_EQ(host.exitCode(), 0) << errors.constData();
        EXPECT_THAT(host.readAllStandardOutput().toStdString(), testing::EndsWith(lastWords));
    }
    void signalHost(int number) const { ::kill(static_cast<pid_t>(host.processId()), number); }
};

TEST_P(Quitting, EndsInTheOrdinaryWayWhileAPageIsShown) {
    start(GetParam());
    ASSERT_TRUE(pageIsShown());
    signalHost(SIGTERM);
    expectOrdinaryEnd();
}

TEST_P(Quitting, FrameworksWindowDoesNotKeepTheProcessWhenTheMainWindowCloses) {
    start(GetParam());
    ASSERT_TRUE(pageIsShown());
    signalHost(SIGUSR1);
    expectOrdinaryEnd();
}

INSTANTIATE_TEST_SUITE_P(Windows, Quitting,
                         testing::Values("window", "sheet", "modal", "kept", "closing", "controller", "post"),
                         [](const auto &shown) { return std::string(shown.param); });

using QuittingAtOnce = Quitting;

// The engine deletes widgets of its own later; exit() must not do that when Qt is half gone.
TEST_F(QuittingAtOnce, ExitRightAfterTheWindowClosedEndsInTheOrdinaryWay) {
    start("exit");
    ASSERT_TRUE(pageIsShown());
    signalHost(SIGTERM);
    expectOrdinaryEnd("exiting\n");
}

/// A page that is opened when the application has begun to quit goes with the application object.
class QuittingLate : public Quitting {};

TEST_P(QuittingLate, EndsInTheOrdinaryWayWithAPageThatIsOpenedMeanwhile) {
    start(GetParam());
    ASSERT_TRUE(waitUntil([this] { return host.canReadLine() || host.state() == QProcess::NotRunning; }));
    EXPECT_EQ(host.readLine(), QByteArray("running\n"));
    ASSERT_TRUE(std::string_view(GetParam()) == "first" || pageIsShown());
    signalHost(SIGTERM);
    expectOrdinaryEnd(std::string_view(GetParam()) == "after" ? "ended\npanel closed\n"
                                                              : "windows left: 0\nended\n");
}

INSTANTIATE_TEST_SUITE_P(Windows, QuittingLate, testing::Values("late", "first", "after"),
                         [](const auto &shown) { return std::string(shown.param); });

TEST_F(QuittingLate, PostIsReadInItsWindowWhileTheApplicationQuits) {
    start("latepost");
    ASSERT_TRUE(pageIsShown());
    signalHost(SIGTERM);
    expectOrdinaryEnd("opened late\nwindows left: 0\nended\n");
    const auto requests = server.requests();
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(),
                            [](const HttpRequest &request) { return request.path() == "/closing.html"; }));
}

} // namespace

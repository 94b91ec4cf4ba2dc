// SPDX-License-Identifier: MIT
// How an application ends while windows of the framework are open: in a process of its own, with real pages.
#include "tests/support/feedserver.h"
#include "tests/ui/uitest.h"

#include <QProcess>

#include <csignal>

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
        host.start(QStringLiteral(TEST_HELPERS) + u"/quit_host"_s,
                   {QString::fromLatin1(what), server.url(u"/notes.html"_s)});
        ASSERT_TRUE(host.waitForStarted());
    }
    void expectOrdinaryEnd() {
        ASSERT_TRUE(waitUntil([this] { return host.state() == QProcess::NotRunning; })) << "it does not end";
        const QByteArray errors = host.readAllStandardError();
        EXPECT_EQ(host.exitStatus(), QProcess::NormalExit) << errors.constData();
        EXPECT_EQ(host.exitCode(), 0) << errors.constData();
        EXPECT_THAT(host.readAllStandardOutput().toStdString(),
                    testing::EndsWith("windows left: 0\nended\n"));
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

} // namespace

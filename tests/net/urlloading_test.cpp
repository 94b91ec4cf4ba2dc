// SPDX-License-Identifier: MIT
#include "net/urlloading.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/tlsserver.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;

namespace {

struct Loaded {
    tx::UrlResponse response;
    TXError error;
};

Loaded load(const tx::UrlRequest &request) {
    Loaded result;
    std::atomic<int> calls{0};
    tx::nativeUrlLoader().load(request, [&](const tx::UrlResponse &response, const TXError &error) {
        result = {response, error};
        ++calls;
    });
    EXPECT_TRUE(tx::test::waitUntil([&] { return calls > 0; }));
    EXPECT_EQ(calls, 1);
    return result;
}

Loaded load(const QString &url) { return load({.url = QUrl(url)}); }

class UrlLoading : public tx::test::FrameworkTest {};

TEST_F(UrlLoading, DeliversStatusHeadersAndBody) {
    FeedServer server;
    server.expect("PUT", "/x", HttpReply{.status = 207, .headers = {{"X-Name", "v"}}, .body = "body"});
    const Loaded result = load(
        {.url = QUrl(server.url(u"/x"_s)), .method = "PUT", .headers = {{"X-Own", "1"}}, .body = "sent"});
    EXPECT_TRUE(result.error.isNull());
    EXPECT_EQ(result.response.statusCode, 207);
    EXPECT_EQ(result.response.body, QByteArray("body"));
    EXPECT_EQ(result.response.header("x-NAME"), QByteArray("v"));
    EXPECT_TRUE(result.response.header("absent").isNull());
    const auto sent = server.requests().first();
    EXPECT_EQ(sent.body, QByteArray("sent"));
    EXPECT_EQ(sent.headers.value("x-own"), QByteArray("1"));
    EXPECT_TRUE(sent.headers.value("user-agent").startsWith("TarvixUpdate/")) << "nothing more of the system";
}

TEST_F(UrlLoading, RequestWithoutABodyHasNoLength) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply{}; });
    for (const char *method : {"GET", "POST"}) {
        const bool isGet = QByteArray(method) == "GET";
        (void)load(
            {.url = QUrl(server.url(u"/x"_s)), .method = method, .body = isGet ? QByteArray() : "sent"});
        EXPECT_EQ(server.requests().last().method, QByteArray(method));
        EXPECT_EQ(server.requests().last().headers.contains("content-length"), !isGet) << method;
    }
}

TEST_F(UrlLoading, EachLoadKeepsTheConnectionForTheNextOne) {
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    int connections = 0;
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        ++connections;
        QTcpSocket *socket = server.nextPendingConnection();
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket, received = QByteArray()]() mutable {
            received += socket->readAll();
            if (!received.endsWith("\r\n\r\n"))
                return;
            received.clear();
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
        });
    });
    const tx::UrlRequest request{.url = QUrl(u"http://127.0.0.1:%1/"_s.arg(server.serverPort()))};
    // The pauses are shorter than the time for which a connection is kept, and together they are longer. On a
    // slow machine they are sometimes too long, so this is tried again.
    constexpr int pause = 300;
    constexpr int longestPause = 450;
    bool wasKept = false;
    for (int attempt = 0; attempt < 50 && !wasKept; ++attempt) {
        qint64 longest = 0;
        EXPECT_EQ(load(request).response.body, QByteArray("ok"));
        const int before = connections;
        for (int i = 0; i < 3; ++i) {
            QElapsedTimer timer;
            timer.start();
            EXPECT_FALSE(tx::test::waitUntil([] { return false; }, pause));
            EXPECT_EQ(load(request).response.body, QByteArray("ok"));
            longest = std::max(longest, timer.elapsed());
        }
        wasKept = connections == before;
        if (longest < longestPause)
            break;
    }
    EXPECT_TRUE(wasKept);
}

TEST_F(UrlLoading, LoadMayStartFromTheHandlerOfAnother) {
    FeedServer server;
    server.expect("GET", "/first", HttpReply{.body = "1"});
    server.expect("GET", "/second", HttpReply{.body = "2"});
    std::atomic<bool> isSame{false};
    Loaded second;
    std::atomic<int> calls{0};
    tx::nativeUrlLoader().load({.url = QUrl(server.url(u"/first"_s))}, [&](const tx::UrlResponse &,
                                                                           const TXError &) {
        tx::nativeUrlLoader().load(
            {.url = QUrl(server.url(u"/second"_s))},
            [&, thread = std::this_thread::get_id()](const tx::UrlResponse &response, const TXError &error) {
                second = {response, error};
                isSame = thread == std::this_thread::get_id();
                ++calls;
            });
    });
    EXPECT_TRUE(tx::test::waitUntil([&] { return calls > 0; }));
    EXPECT_TRUE(isSame);
    EXPECT_EQ(second.response.body, QByteArray("2"));
}

TEST_F(UrlLoading, ErrorStatusIsAResponse) {
    for (const int status : {204, 304, 401, 403, 404, 410, 500, 503}) {
        FeedServer server;
        server.expect("GET", "/x", HttpReply{.status = status});
        const Loaded result = load(server.url(u"/x"_s));
        EXPECT_TRUE(result.error.isNull()) << result.error.toString().toStdString();
        EXPECT_EQ(result.response.statusCode, status);
    }
}

TEST_F(UrlLoading, FollowsRedirectsButNotForEver) {
    FeedServer server;
    server.expect("GET", "/a", HttpReply::redirect("/b"));
    server.expect("GET", "/b", HttpReply::json("{}"));
    EXPECT_EQ(load(server.url(u"/a"_s)).response.body, QByteArray("{}"));
    for (const int redirects : {16, 17}) {
        FeedServer chain;
        chain.always([redirects](const tx::test::HttpRequest &request) {
            const int number = request.path().mid(1).toInt();
            return number == redirects ? HttpReply::json("{}")
                                       : HttpReply::redirect('/' + QByteArray::number(number + 1));
        });
        EXPECT_EQ(load(chain.url(u"/0"_s)).response.body, QByteArray(redirects == 16 ? "{}" : ""))
            << redirects;
    }
    FeedServer loop;
    loop.always([](const tx::test::HttpRequest &) { return HttpReply::redirect("/again"); });
    EXPECT_EQ(load(loop.url(u"/a"_s)).error.code(), tx::UrlErrorHTTPTooManyRedirects);
    EXPECT_LT(loop.requests().size(), 60) << "17, and what the transport asks twice";
}

TEST_F(UrlLoading, OtherProtocolsAreRefused) {
    const QList<std::pair<QString, int>> cases{{u"file:///etc/hostname"_s, -1002},
                                               {u"ftp://127.0.0.1/x"_s, -1002},
                                               {u"data:text/plain,x"_s, -1002},
                                               {u"relative"_s, -1002},
                                               {u""_s, -1000},
                                               {u"http://"_s, -1000}};
    for (const auto &[address, code] : cases) {
        const Loaded result = load(address);
        EXPECT_EQ(result.error.domain(), u"NSURLErrorDomain"_s);
        EXPECT_EQ(result.error.code(), code) << address.toStdString();
    }
    FeedServer server;
    server.expect("GET", "/a", HttpReply::redirect("file:///etc/hostname"));
    const Loaded redirected = load(server.url(u"/a"_s));
    EXPECT_TRUE(redirected.error);
    EXPECT_TRUE(redirected.response.body.isEmpty());
}

TEST_F(UrlLoading, TransportFailuresHaveTheirCodes) {
    int port = 0;
    { port = FeedServer().port(); }
    EXPECT_EQ(load(u"http://127.0.0.1:%1/"_s.arg(port)).error.code(), -1004);
    EXPECT_EQ(load(u"http://no-such-host.invalid/"_s).error.code(), -1003);
    FeedServer stalling;
    stalling.expect("GET", "/x", HttpReply{.announcedLength = 100, .stalls = true});
    EXPECT_EQ(
        load({.url = QUrl(stalling.url(u"/x"_s)), .timeout = std::chrono::milliseconds(100)}).error.code(),
        -1001);
    FeedServer truncating;
    // The transport may ask again when a connection closes early.
    truncating.always(
        [](const tx::test::HttpRequest &) { return HttpReply{.body = "half", .announcedLength = 8}; });
    EXPECT_EQ(load(truncating.url(u"/x"_s)).error.code(), -1005);
}

TEST_F(UrlLoading, BodyOverTheLimitIsRefusedWhileItStreams) {
    FeedServer server;
    server.expect("GET", "/x",
                  HttpReply{.body = QByteArray(5000, 'x'), .announcedLength = 100000000, .stalls = true});
    const Loaded result = load({.url = QUrl(server.url(u"/x"_s)), .sizeLimit = 4096});
    EXPECT_EQ(result.error.code(), tx::UrlErrorDataLengthExceedsMaximum);
    FeedServer fitting;
    fitting.expect("GET", "/x", HttpReply{.body = QByteArray(4096, 'x')});
    EXPECT_TRUE(load({.url = QUrl(fitting.url(u"/x"_s)), .sizeLimit = 4096}).error.isNull());
}

TEST_F(UrlLoading, UntrustedCertificateIsRefused) {
    tx::test::TlsServer server;
    const Loaded result = load(server.url(u"/feed.json"_s));
    EXPECT_EQ(result.error.code(), -1202) << result.error.toString().toStdString();
    EXPECT_EQ(server.requests(), 0) << "nothing was sent to it";
}

TEST_F(UrlLoading, FailedHandshakeIsATlsError) {
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    QObject::connect(&server, &QTcpServer::newConnection, &server,
                     [&] { server.nextPendingConnection()->write("this is no TLS, only plain text\r\n"); });
    const Loaded result = load(u"https://127.0.0.1:%1/"_s.arg(server.serverPort()));
    EXPECT_EQ(result.error.code(), -1200) << result.error.toString().toStdString();
}

TEST_F(UrlLoading, LoadThatTheApplicationOutrunsEndsWithoutAWord) {
    FeedServer server;
    server.always(
        [](const tx::test::HttpRequest &) { return HttpReply{.announcedLength = 9, .stalls = true}; });
    bool called = false;
    tx::nativeUrlLoader().load({.url = QUrl(server.url(u"/x"_s))},
                               [&](const tx::UrlResponse &, const TXError &) { called = true; });
    ASSERT_TRUE(tx::test::waitUntil([&] { return !server.requests().isEmpty(); }));
    tx::nativeUrlLoader().stop();
    EXPECT_FALSE(called);
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json("{}"); });
    EXPECT_EQ(load(server.url(u"/y"_s)).response.body, QByteArray("{}")) << "it starts again on demand";
}

} // namespace

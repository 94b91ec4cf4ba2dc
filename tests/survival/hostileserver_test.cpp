// SPDX-License-Identifier: MIT
// Servers that answer with what no server should.
#include "core/settings.h"
#include "install/updatedownload.h"
#include "platform/urlloading.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/tlsserver.h"

#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QFileInfo>
#include <QSslConfiguration>

#include <atomic>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::namesIn;
using tx::test::waitUntil;

namespace {

/// Answers each connection by what a test writes into it, byte for byte.
class RawServer {
public:
    /// Sends; false when the other side has gone or the test ends.
    using Send = std::function<bool(const QByteArray &data)>;

    explicit RawServer(std::function<void(const Send &send)> answer)
        : m_answer(std::move(answer))
        , m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_socket, 8), 0);
        socklen_t length = sizeof address;
        getsockname(m_socket, reinterpret_cast<sockaddr *>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { run(); });
    }
    ~RawServer() {
        m_stopping = true;
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }
    RawServer(const RawServer &) = delete;
    RawServer &operator=(const RawServer &) = delete;

    [[nodiscard]] QUrl url() const { return QUrl(u"http://127.0.0.1:%1/App.zip"_s.arg(m_port)); }
    [[nodiscard]] qint64 sent() const { return m_sent; }

private:
    void run() {
        while (!m_stopping) {
            const int connection = accept(m_socket, nullptr, nullptr);
            if (connection < 0)
                return;
            char request[4096];
            (void)!read(connection, request, sizeof request);
            const timeval patience{0, 200000};
            setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
            m_answer([&](const QByteArray &data) {
                for (qsizetype written = 0; written < data.size();) {
                    const ssize_t n = send(connection, data.constData() + written,
                                           static_cast<size_t>(data.size() - written), MSG_NOSIGNAL);
                    if (m_stopping || (n < 0 && errno != EAGAIN))
                        return false;
                    if (n > 0) {
                        written += n;
                        m_sent += n;
                    }
                }
                return !m_stopping;
            });
            close(connection);
        }
    }

    std::function<void(const Send &)> m_answer;
    int m_socket;
    int m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<qint64> m_sent{0};
    std::thread m_thread;
};

/// The most memory that this process has had so far, in bytes.
qint64 peakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024L;
}

/// Sanitizers keep what was freed, and more beside it.
qint64 allowed(qint64 bytes) { return *TEST_SANITIZERS ? 8 * bytes : bytes; }

class HostileServer : public tx::test::FrameworkTest {
protected:
    const QString cache = tx::updateCacheDirectoryFilePath();
    QByteArray body; ///< of what was loaded last
    int status = 0;

    /// What comes of loading a feed of at most 1 MB within a time limit.
    TXError load(const QUrl &url, std::chrono::milliseconds timeLimit = 2s) {
        std::atomic<bool> done{false};
        TXError result;
        tx::services().urlLoader->load(
            {.url = url, .timeout = 1s, .sizeLimit = 1 << 20, .timeLimit = timeLimit},
            [&](const tx::UrlResponse &response, const TXError &error) {
                result = error;
                body = response.body;
                status = response.statusCode;
                done = true;
            });
        EXPECT_TRUE(waitUntil([&] { return done.load(); }, 60000));
        return result;
    }
    /// What comes of downloading at most 1 MB.
    TXError download(const QUrl &url) {
        class Delegate final : public tx::UrlDownloadDelegate {
        public:
            explicit Delegate(QString path)
                : m_path(std::move(path)) {}
            void downloadDidReceiveResponse(tx::UrlDownload &, qint64) override {}
            void downloadDecideDestinationWithSuggestedFilename(tx::UrlDownload &transfer,
                                                                const QString &) override {
                transfer.setDestination(m_path);
            }
            bool downloadShouldDecodeSourceDataOfMIMEType(tx::UrlDownload &, const QString &) override {
                return true;
            }
            void downloadDidReceiveDataOfLength(tx::UrlDownload &, qint64) override {}
            void downloadDidFinish(tx::UrlDownload &) override { done = true; }
            void downloadDidFailWithError(tx::UrlDownload &, const TXError &failure) override {
                error = failure;
                done = true;
            }
            TXError error;
            bool done = false;

        private:
            QString m_path;
        } delegate(path(u"downloaded"_s));
        const auto transfer = tx::services().urlLoader->startDownload(
            {.url = url, .timeout = 1s, .sizeLimit = 1 << 20}, delegate);
        EXPECT_TRUE(waitUntil([&] { return delegate.done; }, 60000));
        EXPECT_FALSE(QFileInfo::exists(path(u".txupdate-download"_s)));
        return delegate.error;
    }
    void expectBoth(const QUrl &url, int code) {
        EXPECT_EQ(load(url).code(), code) << "loading";
        EXPECT_EQ(download(url).code(), code) << "downloading";
        EXPECT_FALSE(QFileInfo::exists(path(u"downloaded"_s)));
    }
};

TEST_F(HostileServer, EndlessHeadersEndInATimeOutAndLittleMemory) {
    RawServer server([](const RawServer::Send &send) {
        QByteArray line = "X-Endless: " + QByteArray(5000, 'x') + "\r\n";
        bool goesOn = send("HTTP/1.1 200 OK\r\n");
        while (goesOn)
            goesOn = send(line);
    });
    const qint64 before = peakMemory();
    EXPECT_FALSE(load(server.url()).isNull());
    EXPECT_FALSE(download(server.url()).isNull());
    EXPECT_LT(peakMemory() - before, allowed(200 << 20)) << server.sent();
}

TEST_F(HostileServer, OneEndlessHeaderLineEndsToo) {
    RawServer server([](const RawServer::Send &send) {
        bool goesOn = send("HTTP/1.1 200 OK\r\nX-Endless: ");
        const QByteArray more(5000, 'x');
        while (goesOn)
            goesOn = send(more);
    });
    const qint64 before = peakMemory();
    EXPECT_FALSE(load(server.url()).isNull());
    EXPECT_FALSE(download(server.url()).isNull());
    EXPECT_LT(peakMemory() - before, allowed(200 << 20)) << server.sent();
}

TEST_F(HostileServer, EndlessBodyStopsAtTheLimit) {
    for (const char *head : {"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\n",
                             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n",
                             "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\n"}) {
        const bool chunked = QByteArrayView(head).contains("chunked");
        RawServer server([&](const RawServer::Send &send) {
            const QByteArray part =
                chunked ? "1000\r\n" + QByteArray(0x1000, 'x') + "\r\n" : QByteArray(0x1000, 'x');
            bool goesOn = send(head);
            // As fast as a fast network; on one machine, the access manager reads on and on without looking
            // up.
            for (int parts = 1; goesOn; ++parts) {
                goesOn = send(part);
                if (parts % 16 == 0)
                    usleep(500);
            }
        });
        SCOPED_TRACE(head);
        const qint64 before = peakMemory();
        expectBoth(server.url(), tx::UrlErrorDataLengthExceedsMaximum);
        EXPECT_LT(peakMemory() - before, allowed(100 << 20)) << head;
    }
}

TEST_F(HostileServer, DrippingIsNoProgress) {
    for (const char *head : {"", "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n"}) {
        RawServer server([&](const RawServer::Send &send) {
            bool goesOn = send(head);
            while (goesOn) {
                goesOn = send("H");
                usleep(100000);
            }
        });
        expectBoth(server.url(), tx::UrlErrorTimedOut);
    }
}

TEST_F(HostileServer, AnswersThatAreNone) {
    const QByteArray answers[] = {
        "",
        "\r\n\r\n",
        "GARBAGE\r\n\r\n",
        QByteArray(100000, '\0'),
        "HTTP/9.9 abc\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n12",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nnumber\r\n",
        "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 7\r\n\r\nno gzip"};
    for (const QByteArray &answer : answers) {
        RawServer server([&](const RawServer::Send &send) { (void)send(answer); });
        EXPECT_FALSE(load(server.url()).isNull()) << answer.left(80).constData();
        EXPECT_FALSE(download(server.url()).isNull()) << answer.left(80).constData();
        EXPECT_FALSE(QFileInfo::exists(path(u"downloaded"_s))) << answer.left(80).constData();
    }
}

TEST_F(HostileServer, EndOfAChunkedBodyMayBeMissed) {
    // When it comes together with the end of the connection, the access manager sometimes takes half a chunk
    // for the whole: what is half a feed or half an archive is found by those who read it.
    RawServer server([&](const RawServer::Send &send) {
        (void)send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"");
    });
    for (int i = 0; i < 5; ++i) {
        if (!load(server.url())) {
            EXPECT_EQ(body, QByteArray("{\""));
        }
    }
}

TEST_F(HostileServer, ChunkLongerThanAnyNumberIsNoContent) {
    // The access manager takes such a length for the end.
    RawServer server([&](const RawServer::Send &send) {
        (void)send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFF\r\nx");
    });
    (void)load(server.url());
    EXPECT_TRUE(body.isEmpty());
    (void)download(server.url());
    EXPECT_EQ(QFileInfo(path(u"downloaded"_s)).size(), 0);
}

TEST_F(HostileServer, WrongLengthsAreNoticed) {
    // A length that is no number counts as none; of two, a reader that takes the longer one misses bytes.
    for (const QByteArray &length : {QByteArray("-5"), QByteArray("99999999999999999999"), QByteArray("5, 6"),
                                     QByteArray("0x5"), QByteArray("7\r\nContent-Length: 5")}) {
        RawServer server([&](const RawServer::Send &send) {
            (void)send("HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n12345");
        });
        const TXError error = download(server.url());
        if (error.isNull()) {
            EXPECT_EQ(tx::test::readFile(path(u"downloaded"_s)), QByteArray("12345")) << length.constData();
            QFile::remove(path(u"downloaded"_s));
        } else {
            EXPECT_FALSE(QFileInfo::exists(path(u"downloaded"_s))) << length.constData();
        }
    }
}

TEST_F(HostileServer, CompressedBombStopsAtTheLimit) {
    // 64 MB in 64 KB.
    const QByteArray deflated = qCompress(QByteArray(64 << 20, '\0'), 9).mid(4);
    tx::test::makeArchiveOfZeros(path(u"zeros"_s), "zeros", 64 << 20);
    const QByteArray gzipped = tx::test::readFile(path(u"zeros"_s));
    ASSERT_LT(deflated.size() + gzipped.size(), 200000);
    for (const auto &[coding, bomb] :
         {std::pair(QByteArray("deflate"), deflated), std::pair(QByteArray("gzip"), gzipped)}) {
        FeedServer server;
        server.always([bomb = bomb, coding = coding](const HttpRequest &) {
            HttpReply reply = HttpReply::json(bomb);
            reply.headers.append(std::pair<QByteArray, QByteArray>("Content-Encoding", coding));
            return reply;
        });
        const qint64 before = peakMemory();
        const TXError error = load(QUrl(server.url(u"/feed"_s)), 20s);
        EXPECT_TRUE(error) << coding.constData() << ' ' << body.size();
        EXPECT_EQ(download(QUrl(server.url(u"/f"_s))).code(), tx::UrlErrorDataLengthExceedsMaximum)
            << coding.constData();
        EXPECT_LT(peakMemory() - before, allowed(100 << 20)) << coding.constData();
    }
}

TEST_F(HostileServer, RedirectsLeadNowhereElse) {
    tx::test::writeFile(path(u"secret"_s), "secret");
    for (const QByteArray &target :
         {"file://" + path(u"secret"_s).toUtf8(), QByteArray("ftp://127.0.0.1/x"), QByteArray("data:,secret"),
          QByteArray("qrc:/x"), QByteArray("javascript:1"), QByteArray("gopher://x"), QByteArray("http://"),
          QByteArray("http:///x"), QByteArray("//"), QByteArray("\x01")}) {
        FeedServer server;
        server.always([&](const HttpRequest &request) {
            return request.path() == "/f" ? HttpReply::redirect(target) : HttpReply{.status = 404};
        });
        EXPECT_TRUE(load(QUrl(server.url(u"/f"_s))) || status == 404) << target.constData();
        EXPECT_FALSE(body.contains("secret")) << target.constData();
        EXPECT_FALSE(download(QUrl(server.url(u"/f"_s))).isNull()) << target.constData();
        EXPECT_FALSE(QFileInfo::exists(path(u"downloaded"_s))) << target.constData();
    }
}

/// Trusts a server's certificate for the rest of a test.
class Trusted {
public:
    explicit Trusted(const tx::test::TlsServer &server)
        : m_before(QSslConfiguration::defaultConfiguration()) {
        QSslConfiguration trusting = m_before;
        trusting.addCaCertificate(QSslCertificate(server.certificate(), QSsl::Der));
        QSslConfiguration::setDefaultConfiguration(trusting);
    }
    ~Trusted() { QSslConfiguration::setDefaultConfiguration(m_before); }
    Q_DISABLE_COPY_MOVE(Trusted)

private:
    QSslConfiguration m_before;
};

TEST_F(HostileServer, FromHttpsToHttpIsRefused) {
    FeedServer plain; // nothing may come to it
    tx::test::TlsServer server;
    server.answer([&](const QByteArray &) { return HttpReply::redirect(plain.url(u"/f"_s).toUtf8()); });
    const Trusted trusted(server);
    expectBoth(QUrl(server.url(u"/f"_s)), tx::UrlErrorRequiresSecureConnection);
    EXPECT_EQ(server.requests(), 2);
}

TEST_F(HostileServer, CertificateThatChangesBetweenFeedAndArchiveIsRefused) {
    tx::test::TlsServer server;
    server.answer([&](const QByteArray &requested) {
        return requested == "/feed" ? HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2000\","
                                                      "\"version\":\"3.0\",\"downloadURL\":\"" +
                                                      server.url(u"/New.zip"_s).toUtf8() + "\"}]}")
                                    : HttpReply::file("archive");
    });
    const Trusted trusted(server);
    const tx::test::FetchedFeed fetched = tx::test::fetchFeed(QUrl(server.url(u"/feed"_s)));
    ASSERT_FALSE(fetched.error) << fetched.error.toString().toStdString();
    const TXUpdatePtr found = fetched.feed->recommendedUpdate();
    ASSERT_TRUE(found);
    server.changeCertificate();
    TXError error;
    bool done = false;
    found->downloadWithProgress(nullptr, [&](const TXError &failure) {
        error = failure;
        done = true;
    });
    ASSERT_TRUE(waitUntil([&] { return done; }));
    EXPECT_EQ(error.code(), tx::UrlErrorServerCertificateUntrusted);
    EXPECT_FALSE(found->isDownloaded());
    EXPECT_TRUE(namesIn(cache).isEmpty());
    EXPECT_EQ(server.requests(), 1) << "the feed's";
}

TEST_F(HostileServer, TenThousandTracksAreRead) {
    QByteArray json = "{";
    for (int i = 0; i < 10000; ++i)
        json += (i == 0 ? "" : ",") + QByteArray("\"track") + QByteArray::number(i) +
                "\":[{\"type\":\"build\",\"build\":\"2000\",\"version\":\"3.0\",\"downloadURL\":"
                "\"http://127.0.0.1/x.zip\"},{\"type\":\"post\",\"url\":\"http://127.0.0.1/\"}]";
    json += "}";
    FeedServer server;
    server.expect("GET", "/feed", HttpReply::json(json));
    const qint64 before = peakMemory();
    const tx::test::FetchedFeed fetched = tx::test::fetchFeed(QUrl(server.url(u"/feed"_s)));
    EXPECT_FALSE(fetched.error) << fetched.error.toString().toStdString();
    EXPECT_EQ(fetched.feed->releaseTracks().size(), 10000);
    EXPECT_FALSE(fetched.feed->recommendedUpdate()) << "none of them is the release track";
    EXPECT_LT(peakMemory() - before, allowed(200 << 20));
}

TEST_F(HostileServer, NamesOfArchivesStayInTheFolder) {
    const QByteArray dispositions[] = {"attachment; filename=\"../../../escape.zip\"",
                                       "attachment; filename=/etc/escape.zip",
                                       "attachment; filename*=UTF-8''..%2F..%2Fescape.zip",
                                       "attachment; filename=\"..\"",
                                       "attachment; filename=\".\"",
                                       "attachment; filename=\"\"",
                                       "attachment; filename=\"a\\\\..\\\\escape.zip\"",
                                       "attachment; filename=\".bashrc\"",
                                       "attachment; filename=\"" + QByteArray(5000, 'n') + ".zip\"",
                                       "attachment; filename=\"" + QByteArray("\xE2\x80\xAE") + "piz.exe\"",
                                       "attachment; filename*=UTF-8''%00%0A%0D.zip",
                                       "attachment; filename*=ISO-8859-1''%FC.zip",
                                       "attachment; filename=\xFF\xFE.zip",
                                       "attachment; filename=\"TXUpdateInstaller.app\"",
                                       "attachment; filename=\".txupdate-download\"",
                                       "filename",
                                       ";;;;=",
                                       "attachment; filename*=x"};
    tx::test::writeFile(path(u"outside"_s), "kept");
    for (const QByteArray &disposition : dispositions) {
        FeedServer server;
        HttpReply reply = HttpReply::file("archive");
        reply.headers.append(std::pair<QByteArray, QByteArray>("Content-Disposition", disposition));
        server.expect("GET", "/a/..%2F..%2Fescape.zip", reply);
        const auto update = std::make_shared<TXUpdate>();
        update->setVersion(u"../../5"_s);
        update->setFileURL(QUrl(server.url(u"/a/..%2F..%2Fescape.zip"_s)));
        bool done = false;
        update->downloadWithProgress(nullptr, [&](const TXError &error) {
            EXPECT_TRUE(error.isNull())
                << disposition.left(100).constData() << error.toString().toStdString();
            done = true;
        });
        ASSERT_TRUE(waitUntil([&] { return done; }));
        ASSERT_EQ(namesIn(cache).size(), 1) << disposition.left(100).constData();
        EXPECT_EQ(update->downloadPath(), cache + u'/' + namesIn(cache).first());
        EXPECT_EQ(tx::test::readFile(update->downloadPath()), QByteArray("archive"));
    }
    EXPECT_EQ(namesIn(path(u"home/.cache/TarvixUpdate"_s)),
              (QStringList{u"org.example.Host.TXUpdater"_s, u"org.example.Host.TXUpdater.lock"_s}));
}

} // namespace

// SPDX-License-Identifier: MIT
// Servers that answer with what no server should.
#include "feed/feedlimits.h"
#include "install/archivelimits.h"
#include "install/updatedownload.h"
#include "model/updatefolder.h"
#include "net/urlloading.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/rawserver.h"
#include "tests/support/tlsserver.h"

#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <QFileInfo>

#include <atomic>
#include <sys/resource.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::namesIn;
using tx::test::RawServer;
using tx::test::Trusted;
using tx::test::waitUntil;

namespace {

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
    const QString cache = tx::UpdateFolder::ofHost().path();
    QByteArray body; ///< of what was loaded last
    int status = 0;

    const std::function<std::chrono::milliseconds()> realClock = tx::services().transferClock;

    /// The clock of transfers runs ahead: a minute passes in a second.
    HostileServer() {
        tx::services().transferClock = [real = realClock] { return real() * 60; };
        tx::services().transferTick = 20ms;
    }
    /// What comes of loading a feed within the limits that applications have.
    TXError load(const QUrl &url) {
        std::atomic<bool> done{false};
        TXError result;
        tx::services().urlLoader->load(
            {.url = url, .timeout = 30s, .sizeLimit = tx::largestFeed(), .timeLimit = 5min},
            [&](const tx::UrlResponse &response, const TXError &error) {
                result = error;
                body = response.body;
                status = response.statusCode;
                done = true;
            });
        EXPECT_TRUE(waitUntil([&] { return done.load(); }, 60000));
        return result;
    }
    /// What comes of downloading an archive; `ShippedLimits` has tests of how large it may be.
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
            {.url = url, .sizeLimit = 1 << 20, .minimumRate = tx::archiveLimits().rate}, delegate);
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
    // Size alone ends these: half a second in which this process gets no processor is no silence of the
    // server's.
    tx::services().transferClock = realClock;
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
    // When it comes together with the end of the connection, the access manager sometimes takes half a body
    // for the whole, at the end of a chunk or in it. Nothing is made up, and half a feed is none.
    const QByteArray feed =
        "{\"release\":[{\"type\":\"build\",\"build\":\"2000\",\"webpageURL\":\"http://e.org/\"}]}";
    const QByteArray head =
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (const qsizetype sent : {qsizetype(2), feed.size() / 2, feed.size() - 1}) {
        const QByteArray length = QByteArray::number(sent, 16);
        for (const QByteArray &chunk :
             {QByteArray("fff\r\n") + feed.left(sent), length + "\r\n" + feed.left(sent),
              length + "\r\n" + feed.left(sent) + "\r\n"}) {
            RawServer server([&](const RawServer::Send &send) { (void)send(head + chunk); });
            SCOPED_TRACE(chunk.constData());
            if (!load(server.url())) {
                EXPECT_EQ(body, feed.left(sent));
            }
            if (!download(server.url())) {
                EXPECT_EQ(tx::test::readFile(path(u"downloaded"_s)), feed.left(sent));
            }
            QFile::remove(path(u"downloaded"_s));
            const tx::test::FetchedFeed fetched = tx::test::fetchFeed(server.url());
            EXPECT_TRUE(fetched.error);
            EXPECT_TRUE(fetched.feed->releaseTracks().isEmpty());
        }
    }
    RawServer whole([&](const RawServer::Send &send) {
        (void)send(head + QByteArray::number(feed.size(), 16) + "\r\n" + feed + "\r\n0\r\n\r\n");
    });
    EXPECT_FALSE(tx::test::fetchFeed(whole.url()).error) << "with its end it is read";
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
        const TXError error = load(QUrl(server.url(u"/feed"_s)));
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

TEST_F(HostileServer, FromHttpsToHttpIsRefused) {
    FeedServer plain; // nothing may come to it
    tx::test::TlsServer server;
    server.answer([&](const QByteArray &) { return HttpReply::redirect(plain.url(u"/f"_s).toUtf8()); });
    const Trusted trusted(server);
    expectBoth(QUrl(server.url(u"/f"_s)), tx::UrlErrorRequiresSecureConnection);
    EXPECT_EQ(server.requests(), 2);
}

TEST_F(HostileServer, SecureFeedNamesOnlySecureArchives) {
    FeedServer plain; // nothing may come to it
    tx::test::TlsServer server;
    const Trusted trusted(server);
    const QByteArray build = R"({"type":"build","build":"2000","downloadURL":")";
    const QByteArray item = "<item><sparkle:version>2000</sparkle:version><enclosure url=\"";
    server.answer([&](const QByteArray &requested) {
        const QByteArray address =
            (requested.endsWith("/secure") ? server.url(u"/New.zip"_s) : plain.url(u"/New.zip"_s)).toUtf8();
        if (requested.startsWith("/json"))
            return HttpReply::json("{\"release\":[" + build + address + "\"}]}");
        if (requested.startsWith("/xml"))
            return HttpReply::file("<rss xmlns:sparkle=\"x\"><channel>" + item + address +
                                       "\"/></item></channel></rss>",
                                   "text/xml");
        return HttpReply::file("archive");
    });
    for (const QString &feed : {u"/json"_s, u"/xml"_s}) {
        SCOPED_TRACE(feed.toStdString());
        const tx::test::FetchedFeed fetched = tx::test::fetchFeed(QUrl(server.url(feed)));
        ASSERT_FALSE(fetched.error) << fetched.error.toString().toStdString();
        const TXUpdatePtr update = fetched.feed->recommendedUpdate();
        ASSERT_TRUE(update);
        EXPECT_FALSE(update->canBeDownloaded());
        EXPECT_TRUE(update->downloadRefusal());
        TXError error;
        int completions = 0;
        const auto note = [&](const TXError &failure) {
            error = failure;
            ++completions;
        };
        update->downloadWithProgress(nullptr, note);
        EXPECT_FALSE(update->isDownloading());
        ASSERT_TRUE(waitUntil([&] { return completions > 0; }));
        EXPECT_EQ(error, update->downloadRefusal());
        EXPECT_THAT(error.localizedFailureReason().toStdString(), testing::HasSubstr("https"));
        EXPECT_FALSE(QFileInfo::exists(cache));
        EXPECT_TRUE(plain.requests().isEmpty());

        const TXUpdatePtr secure =
            tx::test::fetchFeed(QUrl(server.url(feed + u"/secure"_s))).feed->recommendedUpdate();
        ASSERT_TRUE(secure);
        EXPECT_TRUE(secure->canBeDownloaded());
        EXPECT_FALSE(secure->downloadRefusal());
        completions = 0;
        secure->downloadWithProgress(nullptr, note);
        ASSERT_TRUE(waitUntil([&] { return completions > 0; }));
        EXPECT_FALSE(error) << error.toString().toStdString();
        EXPECT_TRUE(secure->isDownloaded());
        secure->cleanup();
    }
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

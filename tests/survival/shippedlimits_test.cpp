// SPDX-License-Identifier: MIT
// The limits of transfers as applications have them, on a clock that the test moves.
#include "feed/feedlimits.h"
#include "install/archivelimits.h"
#include "model/host_p.h"
#include "model/updatefolder.h"
#include "net/urlloading.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"
#include "tests/support/rawserver.h"

#include <QFileInfo>

#include <atomic>
#include <chrono>
#include <memory>
#include <zlib.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::RawServer;
using tx::test::waitUntil;

namespace {

class ShippedLimits : public tx::test::FrameworkTest {
protected:
    ShippedLimits() {
        tx::services().transferClock = [clock = m_clock] {
            ++clock->looks;
            return std::chrono::milliseconds(clock->milliseconds);
        };
        tx::services().transferTick = 1ms;
        update->setVersion(u"2000"_s);
    }

    ~ShippedLimits() override {
        // What still runs ends with its update, and says so.
        update.reset();
        tx::test::drainEvents();
    }

    /// Moves the clock and lets the transfer look at it: what came before it has been read by then.
    void pass(std::chrono::seconds time) {
        for (; time > 0s && !isOver(); time -= 1s) {
            m_clock->milliseconds += 1000;
            const int before = m_clock->looks;
            ASSERT_TRUE(waitUntil([&] { return m_clock->looks >= before + 2 || isOver(); }));
        }
    }
    void start(const QUrl &url) {
        m_over = false;
        update->setFileURL(url);
        update->downloadWithProgress(nullptr, [this](const TXError &failure) {
            error = failure;
            m_over = true;
        });
    }
    void fetch(const QUrl &url) {
        TXUpdateFeed::fetchFeedAtURL(url, {}, {}, [this](const TXUpdateFeedPtr &, const TXError &failure) {
            error = failure;
            m_over = true;
        });
    }
    [[nodiscard]] bool isOver() const { return m_over; }
    /// Seconds on the clock.
    [[nodiscard]] qint64 elapsed() const { return m_clock->milliseconds / 1000; }
    /// The partial file.
    [[nodiscard]] qint64 received() const {
        return QFileInfo(tx::UpdateFolder::ofHost().path() + u"/.txupdate-download"_s).size();
    }

    /// Sends an archive in pieces, when the test says so.
    class Dripping {
    public:
        Dripping()
            : m_server([this](const RawServer::Send &send) {
                bool goesOn = send("HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n");
                for (qint64 sent = 0; goesOn;) {
                    const qint64 more = m_wanted - sent;
                    goesOn = send(QByteArray(more, 'x'));
                    sent += more;
                    usleep(500);
                }
            }) {}
        [[nodiscard]] QUrl url() const { return m_server.url(); }
        void sendMore(qint64 bytes) { m_wanted += bytes; }
        [[nodiscard]] qint64 wanted() const { return m_wanted; }

    private:
        std::atomic<qint64> m_wanted{0};
        RawServer m_server;
    };

    /// Sends so much in each of so many seconds.
    void receive(Dripping &server, qint64 bytes, int seconds) {
        for (int i = 0; i < seconds && !isOver(); ++i) {
            server.sendMore(bytes);
            ASSERT_TRUE(waitUntil([&] { return isOver() || received() == server.wanted(); }));
            pass(1s);
        }
    }

    TXUpdatePtr update = std::make_shared<TXUpdate>();
    TXError error;
    struct Clock {
        std::atomic<qint64> milliseconds{0};
        std::atomic<int> looks{0};
    };
    const std::shared_ptr<Clock> m_clock = std::make_shared<Clock>();

private:
    std::atomic<bool> m_over{false};
};

TEST_F(ShippedLimits, AreWhatTheDocumentationSays) {
    EXPECT_EQ(tx::largestFeed(), 16777216);
    EXPECT_EQ(tx::archiveLimits().archive, 4294967296);
    EXPECT_EQ(tx::archiveLimits().unpacked, 8589934592);
    EXPECT_EQ(tx::archiveLimits().rate, 1024);
}

TEST_F(ShippedLimits, HostsSetThemByNumbers) {
    const auto becomeHostWith = [this](const QByteArray &value) {
        tx::test::makeBundle(path(u"Limited.app"_s), {});
        tx::test::writeFile(path(u"Limited.app/Contents/Info.plist"_s),
                            "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
                            "<string>org.example.Host</string><key>TXUpdateMinimumDownloadRate</key>" +
                                value + "<key>TXUpdateMaximumFeedSize</key>" + value + "</dict></plist>");
        tx::setMainBundle(TXBundle(path(u"Limited.app"_s)));
        tx::resetHost();
    };
    becomeHostWith("<integer>70</integer>");
    EXPECT_EQ(tx::archiveLimits().rate, 70);
    EXPECT_EQ(tx::largestFeed(), 70);
    for (const char *none :
         {"<integer>0</integer>", "<integer>-1</integer>", "<string>many</string>", "<array/>"}) {
        becomeHostWith(none);
        EXPECT_EQ(tx::archiveLimits().rate, 1024) << none;
        EXPECT_EQ(tx::largestFeed(), 16777216) << none;
    }
    becomeHostWith("<integer>70</integer>");
    Dripping server;
    start(server.url());
    receive(server, 80, 90);
    EXPECT_FALSE(isOver()) << "fast enough for this host: " << error.toString().toStdString();
}

TEST_F(ShippedLimits, LessThanOneKibibyteASecondOverAMinuteEndsADownload) {
    Dripping server;
    start(server.url());
    receive(server, 1000, 59);
    EXPECT_FALSE(isOver()) << "after less than a minute: " << error.toString().toStdString();
    receive(server, 1000, 3);
    ASSERT_TRUE(isOver());
    EXPECT_EQ(error.code(), tx::UrlErrorTimedOut);
    EXPECT_THAT(error.toString().toStdString(), testing::HasSubstr("less than 1024 bytes a second"));
    EXPECT_FALSE(update->isDownloading());
    EXPECT_TRUE(tx::nativeFileSystem().tryLock(tx::UpdateFolder::ofHost().path() + u".lock"_s))
        << "the folder is free again";
}

TEST_F(ShippedLimits, OneKibibyteASecondIsEnough) {
    Dripping server;
    start(server.url());
    receive(server, 1050, 150);
    EXPECT_FALSE(isOver()) << error.toString().toStdString();
    // The average is that of any minute, not that of the minutes since the beginning.
    receive(server, 30 * 1024, 30);
    receive(server, 10, 80);
    EXPECT_TRUE(isOver());
    EXPECT_THAT(elapsed(), testing::AllOf(testing::Ge(235), testing::Le(245)));
}

TEST_F(ShippedLimits, ItIsTheAverageThatCounts) {
    Dripping server;
    start(server.url());
    for (int i = 0; i < 4; ++i) {
        receive(server, 62000, 1);
        pass(58s);
        EXPECT_FALSE(isOver()) << i << error.toString().toStdString();
    }
}

TEST_F(ShippedLimits, NothingForAMinuteEndsADownload) {
    Dripping silent;
    start(silent.url());
    ASSERT_TRUE(waitUntil(
        [] { return QFileInfo::exists(tx::UpdateFolder::ofHost().path() + u"/.txupdate-download"_s); }));
    pass(58s);
    EXPECT_FALSE(isOver());
    pass(4s);
    ASSERT_TRUE(isOver());
    EXPECT_EQ(error.code(), tx::UrlErrorTimedOut);
}

TEST_F(ShippedLimits, HeadersOfAnArchiveThatDripEndItToo) {
    std::atomic<bool> accepted{false};
    RawServer server([&](const RawServer::Send &send) {
        accepted = send("HTTP/1.1 200 OK\r\nX: ");
        while (send("H"))
            usleep(500);
    });
    start(server.url());
    ASSERT_TRUE(waitUntil([&] { return accepted.load(); }));
    pass(58s);
    EXPECT_FALSE(isOver()) << error.toString().toStdString();
    pass(4s);
    ASSERT_TRUE(isOver());
    EXPECT_EQ(error.code(), tx::UrlErrorTimedOut);
}

TEST_F(ShippedLimits, TimeThatTheProcessWasStoppedIsNotTheServers) {
    Dripping server;
    start(server.url());
    receive(server, 2000, 70);
    ASSERT_FALSE(isOver());
    m_clock->milliseconds += std::chrono::milliseconds(24h).count();
    receive(server, 2000, 70);
    EXPECT_FALSE(isOver()) << error.toString().toStdString();
}

TEST_F(ShippedLimits, FeedThatStallsEndsAfterThirtySeconds) {
    std::atomic<bool> accepted{false};
    RawServer server([&](const RawServer::Send &send) {
        accepted = send("HTTP/1.1 200 OK\r\nX: ");
        while (send("H")) // never a whole line
            usleep(500);
    });
    fetch(server.url());
    ASSERT_TRUE(waitUntil([&] { return accepted.load(); }));
    pass(28s);
    EXPECT_FALSE(isOver()) << error.toString().toStdString();
    pass(4s);
    ASSERT_TRUE(isOver());
    EXPECT_EQ(error.underlyingError().code(), tx::UrlErrorTimedOut);
}

TEST_F(ShippedLimits, FeedThatDripsEndsAfterFiveMinutes) {
    Dripping server;
    fetch(server.url());
    for (int i = 0; i < 29; ++i) {
        server.sendMore(100);
        pass(10s);
        ASSERT_FALSE(isOver()) << i << error.toString().toStdString();
    }
    server.sendMore(100);
    pass(8s);
    EXPECT_FALSE(isOver()) << error.toString().toStdString();
    pass(4s);
    ASSERT_TRUE(isOver());
    EXPECT_EQ(error.underlyingError().code(), tx::UrlErrorTimedOut);
    EXPECT_THAT(error.underlyingError().toString().toStdString(), testing::HasSubstr("longer than 300 s"));
}

TEST_F(ShippedLimits, FeedOfSixteenMebibytesIsTheLargest) {
    for (const qint64 extra : {0, 1}) {
        FeedServer server;
        const QByteArray body = "{}" + QByteArray((16 << 20) - 2 + extra, ' ');
        server.always([&](const HttpRequest &) { return HttpReply::json(body); });
        const tx::test::FetchedFeed fetched = tx::test::fetchFeed(QUrl(server.url(u"/feed"_s)));
        if (extra == 0) {
            EXPECT_FALSE(fetched.error) << fetched.error.toString().toStdString();
        } else {
            EXPECT_EQ(fetched.error.underlyingError().code(), tx::UrlErrorDataLengthExceedsMaximum);
        }
    }
}

TEST_F(ShippedLimits, ArchiveOfFourGibibytesIsTheLargestThatMayBeAnnounced) {
    for (const qint64 extra : {0, 1}) {
        FeedServer server;
        server.always([extra](const HttpRequest &) {
            return HttpReply{.body = "some", .announcedLength = (qint64(4) << 30) + extra, .stalls = true};
        });
        start(QUrl(server.url(u"/App.zip"_s)));
        ASSERT_TRUE(waitUntil([this] { return isOver() || received() == 4; }));
        if (extra == 0) {
            EXPECT_FALSE(isOver()) << error.toString().toStdString();
            EXPECT_EQ(update->downloadSize(), quint64(4) << 30);
            update = std::make_shared<TXUpdate>();
            update->setVersion(u"2001"_s);
            ASSERT_TRUE(waitUntil([this] { return isOver(); })) << "the one that is gone says so";
        } else {
            EXPECT_EQ(error.code(), tx::UrlErrorDataLengthExceedsMaximum);
        }
    }
}

/// Counts what is written instead of keeping it.
class EndlessDisk final : public tx::test::FaultFileSystem {
public:
    tx::Result<std::unique_ptr<tx::OutputFile>> create(const QString &path) override {
        class File final : public tx::OutputFile {
        public:
            explicit File(std::atomic<qint64> &bytes)
                : m_bytes(bytes) {}
            TXError write(QByteArrayView data) override {
                m_bytes += data.size();
                return {};
            }
            TXError sync() override { return {}; }

        private:
            std::atomic<qint64> &m_bytes;
        };
        tx::test::writeFile(path, "");
        return std::unique_ptr<tx::OutputFile>(std::make_unique<File>(written));
    }
    std::atomic<qint64> written{0};
};

/// So many MiB of zeros, coded, without an end.
QByteArray codedZeros(int mebibytes) {
    z_stream stream{};
    EXPECT_EQ(deflateInit(&stream, Z_BEST_COMPRESSION), Z_OK);
    QByteArray block(1 << 20, '\0');
    QByteArray coded(1 << 20, '\0');
    QByteArray result;
    // Blocks after the first one are alike: each begins anew.
    for (int i = 0; i < 2; ++i) {
        stream.next_in = reinterpret_cast<Bytef *>(block.data());
        stream.avail_in = static_cast<uInt>(block.size());
        stream.next_out = reinterpret_cast<Bytef *>(coded.data());
        stream.avail_out = static_cast<uInt>(coded.size());
        EXPECT_EQ(deflate(&stream, Z_FULL_FLUSH), Z_OK);
        const QByteArray made = coded.first(coded.size() - static_cast<qsizetype>(stream.avail_out));
        result += i == 0 ? made : made.repeated(mebibytes - 1);
    }
    deflateEnd(&stream);
    return result;
}

TEST_F(ShippedLimits, MoreThanFourGibibytesAreNotStoredHoweverTheyCome) {
    EndlessDisk disk;
    FeedServer server;
    const QByteArray bomb = codedZeros(4 * 1024 + 2);
    ASSERT_LT(bomb.size(), 10 << 20);
    server.always([&](const HttpRequest &) {
        return HttpReply{.headers = {{"Content-Encoding", "deflate"}}, .body = bomb};
    });
    start(QUrl(server.url(u"/App.zip"_s)));
    ASSERT_TRUE(waitUntil([this] { return isOver(); }, 200000));
    EXPECT_EQ(error.code(), tx::UrlErrorDataLengthExceedsMaximum) << error.toString().toStdString();
    EXPECT_LE(disk.written, qint64(4) << 30);
    EXPECT_GT(disk.written, (qint64(4) << 30) - (1 << 20));
}

} // namespace

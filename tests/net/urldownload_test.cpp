// SPDX-License-Identifier: MIT
#include "base/contentdecoder.h"
#include "net/urldownload.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"

#include <QCoreApplication>
#include <QThread>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::waitUntil;

namespace {

/// Notes every callback.
class Recorder : public tx::UrlDownloadDelegate {
public:
    void downloadDidReceiveResponse(tx::UrlDownload &, qint64 expectedLength) override {
        expected = expectedLength;
        calls << u"response"_s;
    }
    void downloadDecideDestinationWithSuggestedFilename(tx::UrlDownload &download,
                                                        const QString &filename) override {
        suggested = filename;
        calls << u"destination"_s;
        if (!destination.isNull())
            download.setDestination(destination);
    }
    bool downloadShouldDecodeSourceDataOfMIMEType(tx::UrlDownload &, const QString &type) override {
        mimeType = type;
        calls << u"decode"_s;
        return decodes;
    }
    void downloadDidReceiveDataOfLength(tx::UrlDownload &, qint64 length) override {
        received += length;
        onMain = onMain && QThread::currentThread() == QCoreApplication::instance()->thread();
        if (!calls.endsWith(u"data"_s))
            calls << u"data"_s;
    }
    void downloadDidFinish(tx::UrlDownload &) override {
        calls << u"finish"_s;
        done = true;
    }
    void downloadDidFailWithError(tx::UrlDownload &, const TXError &e) override {
        calls << u"fail"_s;
        error = e;
        done = true;
    }

    QString destination;
    QString suggested;
    QString mimeType;
    QStringList calls;
    qint64 expected = -2;
    qint64 received = 0;
    TXError error;
    bool decodes = true;
    bool done = false;
    bool onMain = true;
};

class UrlDownloading : public tx::test::FrameworkTest {
protected:
    Recorder recorder;
    std::unique_ptr<tx::UrlDownload> download;

    UrlDownloading() { recorder.destination = path(u"file"_s); }
    void start(const tx::UrlRequest &request) {
        download = tx::nativeUrlLoader().startDownload(request, recorder);
    }
    void run(const QString &url) {
        start({.url = QUrl(url)});
        ASSERT_TRUE(waitUntil([this] { return recorder.done; }));
        tx::test::drainEvents();
    }
    bool partial() const {
        return QFileInfo::exists(path(u"file"_s)) || QFileInfo::exists(path(u".txupdate-download"_s));
    }
};

TEST_F(UrlDownloading, SixCallbacksInOrderOnTheStartingThread) {
    FeedServer server;
    const QByteArray body = QByteArray("0123456789abcdef").repeated(100000);
    server.expect("GET", "/a/App.zip", HttpReply::file(body, "application/zip"));
    run(server.url(u"/a/App.zip?x=1"_s));
    EXPECT_EQ(recorder.calls,
              (QStringList{u"response"_s, u"destination"_s, u"decode"_s, u"data"_s, u"finish"_s}));
    EXPECT_TRUE(recorder.onMain);
    EXPECT_EQ(recorder.expected, body.size());
    EXPECT_EQ(recorder.received, body.size());
    EXPECT_EQ(recorder.suggested, u"App.zip"_s);
    EXPECT_EQ(recorder.mimeType, u"application/zip"_s);
    EXPECT_EQ(tx::test::readFile(path(u"file"_s)), body);
    EXPECT_EQ(server.requests().first().headers.value("accept-encoding"), QByteArray("identity"));
}

TEST_F(UrlDownloading, EveryBodySizeArrivesWhole) {
    for (const qsizetype size : {0, 1, 262143, 262144, 262145, 1000000}) {
        FeedServer server;
        const QByteArray body(size, 'z');
        server.expect("GET", "/f", HttpReply::file(body));
        recorder = Recorder();
        recorder.destination = path(u"file"_s);
        run(server.url(u"/f"_s));
        EXPECT_TRUE(recorder.error.isNull()) << recorder.error.toString().toStdString();
        EXPECT_EQ(tx::test::readFile(path(u"file"_s)), body) << size;
    }
}

TEST_F(UrlDownloading, UnknownLengthIsMinusOne) {
    FeedServer server;
    server.always(
        [](const tx::test::HttpRequest &) { return HttpReply{.body = "abc", .announcedLength = -1}; });
    run(server.url(u"/f"_s));
    EXPECT_EQ(recorder.expected, -1);
    EXPECT_EQ(tx::test::readFile(path(u"file"_s)), QByteArray("abc"));
}

TEST_F(UrlDownloading, TruncatedBodyFailsAndLeavesNoPartialFile) {
    FeedServer server;
    // The transport may ask again when a connection closes early.
    server.always([](const tx::test::HttpRequest &) {
        return HttpReply{.body = QByteArray(300000, 'x'), .announcedLength = 400000};
    });
    run(server.url(u"/f"_s));
    EXPECT_EQ(recorder.error.code(), -1005);
    EXPECT_FALSE(partial());
}

TEST_F(UrlDownloading, StatusErrorsFailWithoutAFile) {
    for (const auto &[status, code] :
         QList<std::pair<int, int>>{{404, -1100}, {410, -1100}, {403, -1011}, {500, -1011}}) {
        FeedServer server;
        server.expect("GET", "/f", HttpReply{.status = status, .body = "<html>"});
        recorder = Recorder();
        recorder.destination = path(u"file"_s);
        run(server.url(u"/f"_s));
        EXPECT_EQ(recorder.error.code(), code) << status;
        EXPECT_EQ(recorder.calls, QStringList{u"fail"_s});
        EXPECT_FALSE(partial());
    }
}

TEST_F(UrlDownloading, BadAddressFailsLater) {
    for (const QString &address : {u"file:///etc/passwd"_s, u""_s}) {
        recorder = Recorder();
        run(address);
        EXPECT_TRUE(recorder.error);
        EXPECT_EQ(recorder.calls, QStringList{u"fail"_s});
    }
}

TEST_F(UrlDownloading, CodedBodyIsDecodedOnlyWhenTheDelegateSaysSo) {
    // "hello" through gzip.
    const QByteArray coded = QByteArray::fromHex("1f8b0800000000000003cb48cdc9c9070086a6103605000000");
    for (const bool decodes : {true, false}) {
        FeedServer server;
        server.expect("GET", "/f", HttpReply{.headers = {{"Content-Encoding", "gzip"}}, .body = coded});
        recorder = Recorder();
        recorder.destination = path(u"file"_s);
        recorder.decodes = decodes;
        run(server.url(u"/f"_s));
        EXPECT_TRUE(recorder.error.isNull()) << recorder.error.toString().toStdString();
        EXPECT_EQ(tx::test::readFile(path(u"file"_s)), decodes ? QByteArray("hello") : coded);
    }
    FeedServer damaged;
    damaged.expect("GET", "/f",
                   HttpReply{.headers = {{"Content-Encoding", "gzip"}}, .body = "not gzip at all"});
    recorder = Recorder();
    recorder.destination = path(u"file"_s);
    run(damaged.url(u"/f"_s));
    EXPECT_EQ(recorder.error.code(), tx::UrlErrorCannotDecodeContentData);
    EXPECT_FALSE(partial());
}

TEST_F(UrlDownloading, FullDiskAndUnwritablePlaceFail) {
    FeedServer server;
    server.expect("GET", "/f", HttpReply::file(QByteArray(2000000, 'x')));
    server.expect("GET", "/f", HttpReply::file("x"));
    {
        tx::test::FaultFileSystem faults;
        faults.spaceLeft = 600000;
        run(server.url(u"/f"_s));
        EXPECT_EQ(recorder.error.code(), -3003);
        EXPECT_THAT(recorder.error.underlyingError().localizedDescription().toStdString(),
                    testing::HasSubstr("No space left"));
        EXPECT_FALSE(partial());
        download.reset();
    }
    recorder = Recorder();
    recorder.destination = path(u"no/such/folder/file"_s);
    run(server.url(u"/f"_s));
    EXPECT_EQ(recorder.error.code(), -3000);
}

TEST_F(UrlDownloading, CancelDeletesThePartialFileAndSilencesTheDelegate) {
    FeedServer server;
    server.expect("GET", "/f",
                  HttpReply{.body = QByteArray(100000, 'x'), .announcedLength = 200000, .stalls = true});
    start({.url = QUrl(server.url(u"/f"_s))});
    ASSERT_TRUE(waitUntil([this] { return recorder.received == 100000; }));
    EXPECT_TRUE(partial());
    download->cancel();
    EXPECT_FALSE(partial()) << "gone when cancel returns";
    const QStringList calls = recorder.calls;
    tx::test::drainEvents();
    EXPECT_EQ(recorder.calls, calls);
}

TEST_F(UrlDownloading, SizeLimitHoldsForAnnouncedAndForSentBytes) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::file(QByteArray(5000, 'x')); });
    start({.url = QUrl(server.url(u"/f"_s)), .sizeLimit = 4000});
    ASSERT_TRUE(waitUntil([this] { return recorder.done; }));
    EXPECT_EQ(recorder.error.code(), -1103);
    server.always([](const tx::test::HttpRequest &) {
        return HttpReply{.body = QByteArray(5000, 'x'), .announcedLength = -1};
    });
    recorder = Recorder();
    recorder.destination = path(u"file"_s);
    start({.url = QUrl(server.url(u"/f"_s)), .sizeLimit = 4000});
    ASSERT_TRUE(waitUntil([this] { return recorder.done; }));
    EXPECT_EQ(recorder.error.code(), -1103);
    EXPECT_FALSE(partial());
}

TEST(SuggestedFilename, ComesFromTheHeaderOrTheAddress) {
    const QUrl url(u"https://e.org/files/App%201.zip?x=y"_s);
    const QList<std::pair<QByteArray, QString>> cases{
        {"", u"App 1.zip"_s},
        {"attachment", u"App 1.zip"_s},
        {"attachment; filename=\"My App.zip\"", u"My App.zip"_s},
        {"attachment; filename=plain.zip; size=3", u"plain.zip"_s},
        {"attachment; filename=\"a.zip\"; filename*=UTF-8''%C3%BC.zip", u"\u00FC.zip"_s},
        {"attachment; filename=\"\"", u"App 1.zip"_s}};
    for (const auto &[header, name] : cases)
        EXPECT_EQ(tx::suggestedFilename(header, url), name) << header.constData();
    EXPECT_EQ(tx::suggestedFilename({}, QUrl(u"https://e.org/"_s)), u"Unknown"_s);
}

} // namespace

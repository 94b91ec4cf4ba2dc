// SPDX-License-Identifier: MIT
#include "model/updatefolder.h"
#include "tests/install/downloadtest.h"

#include "base/queues.h"
#include "install/archivelimits.h"
#include "model/host_p.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "os/packageowner.h"
#include "tests/support/fakes.h"
#include "tests/support/tlsserver.h"

#include <TarvixUpdate/TXUpdateHost.h>

#include <chrono>
#include <limits>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::Download;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::namesIn;
using tx::test::readFile;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

TEST_F(Download, StoresTheArchiveAndReports) {
    FeedServer server;
    const QByteArray body(700000, 'x');
    server.expect("GET", "/App.zip", HttpReply::file(body));
    QSignalSpy downloading(update.get(), &TXUpdate::isDownloadingChanged);
    start(server.url(u"/App.zip"_s));
    EXPECT_TRUE(update->isDownloading());
    EXPECT_EQ(update->downloadSize(), 0U);
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    EXPECT_TRUE(error.isNull());
    EXPECT_TRUE(update->isDownloaded());
    EXPECT_FALSE(update->isDownloading());
    EXPECT_EQ(update->downloadPath(), cache + u"/App - 5.zip"_s);
    EXPECT_EQ(readFile(update->downloadPath()), body);
    EXPECT_EQ(update->downloadSize(), 700000U);
    EXPECT_EQ(update->downloadProgress(), 1.0);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), 1.0);
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_EQ(downloading.count(), 2);
    struct stat info {};
    ASSERT_EQ(stat(cache.toUtf8().constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700U);
}

TEST_F(Download, HostThatDoesNotSayWhichApplicationItIsAsksTheServerForNothing) {
    tx::setMainBundle(TXBundle(path(u"Bare.app"_s)));
    tx::resetHost();
    FeedServer server;
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(error, tx::hostIdentityError());
    EXPECT_TRUE(server.requests().isEmpty());
    expectIdle();
}

TEST_F(Download, FileAppearsWhenAllOfItIsOnDisk) {
    tx::test::FaultFileSystem files;
    QStringList steps;
    std::mutex mutex;
    files.observer = [&](const QString &operation, const QString &changed) {
        const std::lock_guard lock(mutex);
        if (operation == u"syncFile" || operation == u"rename")
            steps << operation + (QFileInfo::exists(cache + u"/App - 5.zip"_s) ? u" late"_s : u" early"_s)
                  << QFileInfo(changed).fileName();
    };
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file("content"));
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(steps, (QStringList{u"syncFile early"_s, u".txupdate-download"_s, u"rename early"_s,
                                  u"App - 5.zip"_s}));
    EXPECT_EQ(namesIn(cache), QStringList{u"App - 5.zip"_s});
}

TEST_F(Download, DiskThatFailsAtTheEndLeavesNothing) {
    for (const QString &operation : {u"syncFile"_s, u"rename"_s, u"write"_s, u"create"_s}) {
        tx::test::FaultFileSystem files;
        files.failOn(operation, ENOSPC);
        FeedServer server;
        server.expect("GET", "/App.zip", HttpReply::file("content"));
        completions = 0;
        run(server.url(u"/App.zip"_s));
        EXPECT_EQ(error.domain(), TXURLErrorDomain) << operation.toStdString();
        EXPECT_THAT(error.toString().toStdString(), testing::HasSubstr("No space left"))
            << operation.toStdString();
        expectIdle();
        EXPECT_TRUE(namesIn(cache).isEmpty()) << operation.toStdString();
    }
}

TEST_F(Download, FolderThatAnotherUpdateUsesIsLeftAlone) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::file("content"); });
    auto lock = tx::nativeFileSystem().tryLock(cache + u".lock"_s);
    ASSERT_TRUE(lock);
    writeFile(cache + u"/another's"_s, "half");
    ASSERT_EQ(chmod(QFile::encodeName(cache).constData(), 0700), 0);
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(error.domain(), u"TXUpdater"_s);
    EXPECT_EQ(error.localizedFailureReason(),
              u"Another copy of the application is downloading or installing an update."_s);
    expectIdle();
    EXPECT_EQ(namesIn(cache), QStringList{u"another's"_s});
    lock = TXError(u"released"_s, 0, {});
    completions = 0;
    run(server.url(u"/App.zip"_s));
    EXPECT_TRUE(update->isDownloaded());
    EXPECT_TRUE(tx::nativeFileSystem().tryLock(cache + u".lock"_s)) << "free while the user thinks";
}

TEST_F(Download, FolderIsFreeAgainAfterACancelledDownload) {
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply{.body = "half", .announcedLength = 100, .stalls = true});
    start(server.url(u"/App.zip"_s));
    ASSERT_TRUE(waitUntil([this] { return QFileInfo::exists(cache + u"/.txupdate-download"_s); }));
    EXPECT_FALSE(tx::nativeFileSystem().tryLock(cache + u".lock"_s));
    update->cancelDownload();
    EXPECT_TRUE(tx::nativeFileSystem().tryLock(cache + u".lock"_s));
    EXPECT_TRUE(namesIn(cache).isEmpty());
}

TEST_F(Download, MoreThanTheHostAcceptsIsRefused) {
    tx::test::makeBundle(path(u"Limited.app"_s), {});
    tx::test::writeFile(
        path(u"Limited.app/Contents/Info.plist"_s),
        "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>org.example.Host</string>"
        "<key>TXUpdateMaximumArchiveSize</key><integer>5000</integer>"
        "<key>TXUpdateMaximumUnpackedSize</key><integer>7000</integer></dict></plist>");
    EXPECT_EQ(tx::archiveLimits().archive, qint64(4) << 30) << "as documented";
    EXPECT_EQ(tx::archiveLimits().unpacked, qint64(8) << 30);
    tx::setMainBundle(TXBundle(path(u"Limited.app"_s)));
    tx::resetHost();
    EXPECT_EQ(tx::archiveLimits().archive, 5000);
    EXPECT_EQ(tx::archiveLimits().unpacked, 7000);
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file(QByteArray(6000, 'x')));
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(error.code(), -1103);
    // Nor what a coding hides.
    QByteArray bomb = qCompress(QByteArray(1 << 20, '\0'), 9).mid(4);
    ASSERT_LT(bomb.size(), 5000);
    HttpReply coded = HttpReply::file(bomb);
    coded.headers.append(std::pair<QByteArray, QByteArray>("Content-Encoding", "deflate"));
    server.expect("GET", "/App.zip", coded);
    completions = 0;
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(error.code(), -1103);
    EXPECT_TRUE(namesIn(tx::UpdateFolder::ofHost().path()).isEmpty());
}

TEST_F(Download, SecondStartDoesNothing) {
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file("x"));
    start(server.url(u"/App.zip"_s));
    int others = 0;
    const auto startAgain = [&] {
        update->downloadWithProgress([&](double) { ++others; }, [&](const TXError &) { ++others; });
    };
    startAgain();
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    startAgain();
    tx::test::drainEvents();
    EXPECT_EQ(others, 0);
    EXPECT_EQ(completions, 1);
}

TEST_F(Download, ProgressIsThrottledAndTheCountExact) {
    double now = 1000;
    tx::services().secondsSinceReferenceDate = [&now] { return now; };
    const auto shared = std::make_shared<tx::UpdateDownload>(
        tx::services(), *update, tx::UpdateDownload::Choice::Users, nullptr,
        [this](double p) { progress << p; }, nullptr);
    class NoTransfer : public tx::UrlDownload {
        void setDestination(const QString &) override {}
        void cancel() override {}
    } transfer;
    shared->downloadDidReceiveResponse(transfer, 1000);
    EXPECT_EQ(update->downloadSize(), 1000U);
    shared->downloadDidReceiveDataOfLength(transfer, 100);
    for (int i = 0; i < 5; ++i)
        shared->downloadDidReceiveDataOfLength(transfer, 50);
    EXPECT_EQ(progress, QList<double>{0.1}) << "once in a tenth of a second";
    now += 0.11;
    shared->downloadDidReceiveDataOfLength(transfer, 50);
    EXPECT_EQ(progress, (QList<double>{0.1, 0.4}));
    now += 0.11;
    shared->downloadDidReceiveDataOfLength(transfer, 1600);
    EXPECT_EQ(update->downloadSize(), 2000U) << "grown to what came";
    EXPECT_EQ(update->downloadProgress(), 1.0);
    // Another download shares the budget.
    TXUpdate second;
    const auto other = std::make_shared<tx::UpdateDownload>(
        tx::services(), second, tx::UpdateDownload::Choice::Users, nullptr,
        [this](double p) { progress << p; }, nullptr);
    other->downloadDidReceiveResponse(transfer, 10);
    other->downloadDidReceiveDataOfLength(transfer, 10);
    EXPECT_EQ(progress.size(), 3);
}

TEST_F(Download, UnknownLengthStaysNearZeroUntilTheEnd) {
    FeedServer server;
    // The transport may ask again when the end of the body and of the connection come at once.
    server.always([](const tx::test::HttpRequest &) {
        return HttpReply{.body = QByteArray(100000, 'x'), .announcedLength = -1};
    });
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(update->downloadSize(), std::numeric_limits<quint64>::max());
    for (const double p : progress.mid(0, progress.size() - 1))
        EXPECT_LT(p, 0.001);
    EXPECT_EQ(progress.last(), 1.0);
}

TEST_F(Download, OtherEntriesOfTheCacheAreRemoved) {
    writeFile(cache + u"/Old - 4.zip"_s, "x");
    writeFile(cache + u"/Old.app/Contents/Info.plist"_s, "x");
    writeFile(cache + u"/.hidden"_s, "x");
    chmod(cache.toUtf8().constData(), 0700);
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file("new"));
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(namesIn(cache), QStringList{u"App - 5.zip"_s});
}

TEST_F(Download, FileOfTheAnnouncedSizeIsReused) {
    writeFile(cache + u"/App - 5.zip"_s, "0123456789");
    chmod(cache.toUtf8().constData(), 0700);
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply{.body = "abcdefghij"});
    run(server.url(u"/App.zip"_s));
    EXPECT_TRUE(error.isNull());
    EXPECT_TRUE(update->isDownloaded());
    EXPECT_EQ(progress.last(), 1.0);
    EXPECT_EQ(readFile(update->downloadPath()), QByteArray("0123456789")) << "nothing was fetched again";
}

TEST_F(Download, FileOfAnotherSizeIsOverwritten) {
    writeFile(cache + u"/App - 5.zip"_s, "a much longer file than the new one");
    chmod(cache.toUtf8().constData(), 0700);
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file("new"));
    run(server.url(u"/App.zip"_s));
    EXPECT_EQ(readFile(update->downloadPath()), QByteArray("new"));
}

TEST_F(Download, FolderInPlaceOfTheFileIsReplaced) {
    writeFile(cache + u"/App - 5.zip/inside"_s, "x");
    chmod(cache.toUtf8().constData(), 0700);
    FeedServer server;
    server.expect("GET", "/App.zip", HttpReply::file("new"));
    run(server.url(u"/App.zip"_s));
    EXPECT_TRUE(error.isNull()) << error.toString().toStdString();
    EXPECT_EQ(readFile(update->downloadPath()), QByteArray("new"));
}

TEST_F(Download, GzipTypeIsStoredAsSent) {
    const QByteArray coded = QByteArray::fromHex("1f8b0800000000000003cb48cdc9c9070086a6103605000000");
    for (const auto &[type, stored] : QList<std::pair<QByteArray, QByteArray>>{
             {"application/x-gzip", coded}, {"application/gzip", coded}, {"text/plain", "hello"}}) {
        update = std::make_shared<TXUpdate>();
        update->setVersion(u"5"_s);
        completions = 0;
        FeedServer server;
        server.expect(
            "GET", "/App.tgz",
            HttpReply{.headers = {{"Content-Type", type}, {"Content-Encoding", "gzip"}}, .body = coded});
        run(server.url(u"/App.tgz"_s));
        EXPECT_EQ(readFile(update->downloadPath()), stored) << type.constData();
        QFile::remove(update->downloadPath());
    }
}

TEST_F(Download, SuggestedNamesAreTamedOnTheWay) {
    FeedServer server;
    server.expect(
        "GET", "/x",
        HttpReply{.headers = {{"Content-Disposition", "attachment; filename=\"../../../evil.zip\""}},
                  .body = "x"});
    run(server.url(u"/x"_s));
    EXPECT_TRUE(update->downloadPath().startsWith(cache + u"/..-..-..-evil - 5="_s));
    EXPECT_EQ(namesIn(cache), QStringList{QFileInfo(update->downloadPath()).fileName()});
}

TEST_F(Download, MissingFileHasItsWords) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    tx::test::FaultFileSystem faults;
    faults.failOn(u"exists"_s, ENOENT, u"x - 5.zip"_s);
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error,
              TXError(u"TXUpdater"_s, 0, u"An error occurred while downloading the update."_s,
                      u"The downloaded file is unexpectedly missing."_s,
                      u"You can always download the latest version from the website, but try quitting and "
                      "relaunching the application first."_s));
    expectIdle();
}

TEST_F(Download, AbsentArchiveHasItsWords) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply{.status = 404});
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error,
              TXError(u"NSURLErrorDomain"_s, -1100, u"The update could not be downloaded."_s, {},
                      u"The file at the URL in the update information does not exist. Please download the "
                      "update directly from the website."_s));
    expectIdle();
}

TEST_F(Download, UntrustedCertificateHasItsWords) {
    tx::test::TlsServer server;
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error,
              TXError(u"NSURLErrorDomain"_s, -1202, u"The update could not be downloaded."_s, {},
                      u"The certificate for the server is invalid and poses a security risk. Please download "
                      "the update directly from the website."_s));
    EXPECT_EQ(server.requests(), 0);
}

TEST_F(Download, ArchiveForAnApplicationOfAPackageIsNotFetchedToItsEnd) {
    const tx::PackageDatabases before = tx::packageDatabases();
    tx::packageDatabases() = {path(u"dpkg"_s), {}, {}};
    writeFile(path(u"dpkg/info/notes.list"_s), TXUpdateHost::host()->bundle().bundlePath().toUtf8() + "\n");
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) {
        return HttpReply{.body = QByteArray(50000, 'x'), .announcedLength = 200'000'000, .stalls = true};
    });
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error, TXError(u"TXUpdater"_s, 0, u"The update could not be downloaded."_s,
                             u"The application belongs to the package notes of dpkg."_s,
                             u"Install the new version with the package manager of the system."_s));
    expectIdle();
    EXPECT_TRUE(namesIn(cache).isEmpty());
    // Nor when that cannot be told; and an answer that comes after the end changes nothing.
    ASSERT_TRUE(QFile::remove(path(u"dpkg/info/notes.list"_s)));
    QDir().mkpath(path(u"dpkg/info/notes.list"_s));
    completions = 0;
    run(server.url(u"/x.zip"_s));
    EXPECT_THAT(error.localizedFailureReason().toStdString(), testing::HasSubstr("could not be determined"));
    completions = 0;
    start(server.url(u"/x.zip"_s));
    update->cancelDownload();
    EXPECT_TRUE(tx::waitForBackground(std::chrono::seconds(60)));
    tx::test::drainEvents();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(error.isNull());
    tx::packageDatabases() = before;
}

TEST_F(Download, OtherErrorsPassAndLeaveItRetryable) {
    FeedServer server;
    // The transport may ask again when a connection closes early.
    server.always(
        [](const tx::test::HttpRequest &) { return HttpReply{.body = "half", .announcedLength = 8}; });
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error.code(), -1005);
    EXPECT_TRUE(namesIn(cache).isEmpty()) << "no partial file";
    expectIdle();
    completions = 0;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::file("whole"); });
    run(server.url(u"/x.zip"_s));
    EXPECT_TRUE(error.isNull());
    EXPECT_TRUE(update->isDownloaded());
}

TEST_F(Download, CancelEndsWithoutAnError) {
    FeedServer server;
    server.expect("GET", "/x.zip",
                  HttpReply{.body = QByteArray(50000, 'x'), .announcedLength = 100000, .stalls = true});
    update->cancelDownload(); // not downloading: nothing
    start(server.url(u"/x.zip"_s));
    ASSERT_TRUE(waitUntil([this] { return !namesIn(cache).isEmpty(); }));
    update->cancelDownload();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(error.isNull());
    EXPECT_EQ(progress.last(), 0.0);
    expectIdle();
    EXPECT_TRUE(namesIn(cache).isEmpty());
    update->cancelDownload();
    EXPECT_EQ(completions, 1);
}

/// Every way in which the handler can be called.
struct Ending {
    const char *name;
    int status;     ///< of the server's response; 0: there is none
    bool isRefused; ///< before the download begins
    bool isDownloaded;
};

class DownloadSignal : public Download, public testing::WithParamInterface<Ending> {};

TEST_P(DownloadSignal, TellsTheEndOnceBeforeTheHandler) {
    if (GetParam().isRefused) {
        tx::setMainBundle(TXBundle(path(u"Bare.app"_s)));
        tx::resetHost();
    }
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) {
        return GetParam().status == 0 ? HttpReply{.stalls = true}
                                      : HttpReply{.status = GetParam().status, .body = "x"};
    });
    QList<TXError> told;
    QObject context;
    QObject::connect(update.get(), &TXUpdate::downloadFinished, &context, [&](const TXError &e) {
        told << e;
        EXPECT_EQ(completions, 0);
        EXPECT_FALSE(update->isDownloading());
        EXPECT_EQ(update->isDownloaded(), GetParam().isDownloaded);
    });
    start(server.url(u"/x.zip"_s));
    if (GetParam().status == 0)
        update->cancelDownload();
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    tx::test::drainEvents();
    ASSERT_EQ(told.size(), 1);
    EXPECT_EQ(told.first(), error);
    EXPECT_EQ(bool(error), GetParam().status != 0 && !GetParam().isDownloaded);
}

INSTANTIATE_TEST_SUITE_P(Ends, DownloadSignal,
                         testing::Values(Ending{"Complete", 200, false, true},
                                         Ending{"Failed", 404, false, false},
                                         Ending{"Cancelled", 0, false, false},
                                         Ending{"Refused", 200, true, false}),
                         [](const auto &ending) { return std::string(ending.param.name); });

TEST_F(Download, SignalMayDestroyTheUpdate) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    QObject context;
    QObject::connect(update.get(), &TXUpdate::downloadFinished, &context, [this] { update.reset(); });
    start(server.url(u"/x.zip"_s));
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(completions, 1);
    EXPECT_FALSE(error);
}

TEST_F(Download, CancelRightAfterTheStart) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply{.stalls = true}; });
    start(server.url(u"/x.zip"_s));
    update->cancelDownload();
    EXPECT_EQ(completions, 1);
    tx::test::drainEvents();
    expectIdle();
}

TEST_F(Download, CancelFromWithinTheProgress) {
    FeedServer server;
    server.expect("GET", "/x.zip",
                  HttpReply{.body = QByteArray(500000, 'x'), .announcedLength = 1000000, .stalls = true});
    update->setFileURL(QUrl(server.url(u"/x.zip"_s)));
    update->downloadWithProgress(
        [this](double p) {
            if (p > 0)
                update->cancelDownload();
        },
        [this](const TXError &) { ++completions; });
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(completions, 1);
    expectIdle();
}

TEST_F(Download, UpdateMayGoWhileItDownloads) {
    FeedServer server;
    server.expect("GET", "/x.zip",
                  HttpReply{.body = QByteArray(50000, 'x'), .announcedLength = 100000, .stalls = true});
    start(server.url(u"/x.zip"_s));
    ASSERT_TRUE(waitUntil([this] { return !namesIn(cache).isEmpty(); }));
    update.reset();
    EXPECT_TRUE(namesIn(cache).isEmpty());
    EXPECT_EQ(completions, 0) << "not while the update is being destroyed";
    tx::test::drainEvents();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(error.domain(), TXCocoaErrorDomain);
    EXPECT_EQ(error.code(), TXErrorCancelled);
    EXPECT_FALSE(error.localizedDescription().isEmpty());
}

TEST_F(Download, UpdateMayGoBeforeTheServerAnswers) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::file("x"); });
    start(server.url(u"/x.zip"_s));
    update.reset();
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(error.code(), TXErrorCancelled);
}

TEST_F(Download, UpdateMayGoInItsOwnCompletion) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    update->setFileURL(QUrl(server.url(u"/x.zip"_s)));
    update->downloadWithProgress(nullptr, [this](const TXError &) {
        update.reset();
        ++completions;
    });
    ASSERT_TRUE(waitUntil([this] { return completions > 0; }));
    tx::test::drainEvents();
}

TEST_F(Download, LinkInPlaceOfTheCacheIsRefusedAndNothingBehindItIsTouched) {
    writeFile(path(u"precious/file"_s), "kept");
    QDir().mkpath(QFileInfo(cache).path());
    ASSERT_TRUE(QFile::link(path(u"precious"_s), cache));
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error.code(), -3000);
    EXPECT_THAT(error.underlyingError().localizedDescription().toStdString(),
                testing::HasSubstr(cache.toStdString()));
    EXPECT_EQ(namesIn(path(u"precious"_s)), QStringList{u"file"_s});
    expectIdle();
}

TEST_F(Download, CacheOfAnotherUserIsRefused) {
    QDir().mkpath(cache);
    chmod(cache.toUtf8().constData(), 0700);
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    tx::test::FaultFileSystem faults;
    if (geteuid() == 0) {
        ASSERT_EQ(chown(cache.toUtf8().constData(), 65534, 65534), 0);
    } else {
        faults.failOn(u"checkPrivateDirectory"_s, EPERM);
    }
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error.code(), -3000);
    expectIdle();
}

TEST_F(Download, CacheThatCannotBeMadeIsAnError) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    tx::test::FaultFileSystem faults;
    faults.failOn(u"createDirectory"_s, EACCES);
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error.code(), -3000);
    expectIdle();
}

TEST_F(Download, FullDiskIsAnErrorWithoutLeftovers) {
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file(QByteArray(900000, 'x')));
    tx::test::FaultFileSystem faults;
    faults.spaceLeft = 300000;
    run(server.url(u"/x.zip"_s));
    EXPECT_EQ(error.code(), -3003);
    EXPECT_TRUE(namesIn(cache).isEmpty());
    expectIdle();
}

TEST_F(Download, CleanupRemovesTheFolder) {
    update->cleanup(); // nothing is downloaded
    FeedServer server;
    server.expect("GET", "/x.zip", HttpReply::file("x"));
    run(server.url(u"/x.zip"_s));
    update->cleanup();
    EXPECT_FALSE(QFileInfo::exists(cache));
}

} // namespace

// SPDX-License-Identifier: MIT
// The profile that goes along with a check, and the keys that are read before it is measured.
#include "os/userdefaults.h"
#include "posix/systemreport.h"
#include "tests/support/feedserver.h"
#include "tests/trust/signedreleases.h"
#include "tests/updater/updatertest.h"
#include "updater/updater_p.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <memory>
#include <semaphore>

using namespace Qt::StringLiterals;
using tx::machine::Item;
using tx::machine::Section;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::oneUpdate;
using tx::test::waitUntil;

namespace {

/// A system that counts how often it is described.
class UpdaterProfile : public tx::test::UpdaterTest {
protected:
    FeedServer server;
    const std::shared_ptr<std::atomic<int>> measured = std::make_shared<std::atomic<int>>(0);
    const QDateTime start = QDateTime(QDate(2026, 5, 1), QTime(8, 0), Qt::UTC);

    UpdaterProfile() {
        tx::services().systemReport = [measured = measured] {
            ++*measured;
            return std::vector<Section>();
        };
        updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    }
    QDateTime sentDate() const {
        return tx::UserDefaults::standard().dateValue(TXUpdatePrefLastSystemProfileDateKey);
    }
    /// One check at that time; whether a profile went along.
    bool sendsAt(const QDateTime &now, int status = 200) {
        setNow(now);
        const qsizetype before = server.requests().size();
        server.always([status](const tx::test::HttpRequest &) {
            return HttpReply{
                .status = status, .headers = {{"Content-Type", "application/json"}}, .body = "{}"};
        });
        check();
        const auto request = server.requests().value(before);
        const bool sent = QJsonDocument::fromJson(request.body).object().contains(u"systemProfile"_s);
        EXPECT_EQ(request.method, QByteArray(sent ? "POST" : "GET"));
        EXPECT_EQ(outcome.feed != nullptr, status == 200);
        return sent;
    }
};

TEST_F(UpdaterProfile, GoesAlongOnceAWeek) {
    updater->setSendsSystemProfile(true);
    EXPECT_TRUE(sendsAt(start)) << "none was sent before";
    EXPECT_EQ(sentDate(), start);
    EXPECT_FALSE(sendsAt(start.addSecs(604800))) << "not more than a week ago";
    EXPECT_EQ(sentDate(), start) << "only a profile sets the date";
    EXPECT_TRUE(sendsAt(start.addSecs(604801)));
    EXPECT_EQ(sentDate(), start.addSecs(604801));
}

TEST_F(UpdaterProfile, CountsAsSentWhenTheCheckFails) {
    updater->setSendsSystemProfile(true);
    EXPECT_TRUE(sendsAt(start, 500));
    EXPECT_EQ(sentDate(), start);
    EXPECT_FALSE(updater->lastUpdateCheckDate().isValid());
    EXPECT_FALSE(sendsAt(start.addSecs(3600), 500));
}

TEST_F(UpdaterProfile, CountsAsSentToAServerThatTakesNoPost) {
    updater->setSendsSystemProfile(true);
    server.always([](const tx::test::HttpRequest &request) {
        return request.method == "POST" ? HttpReply{.status = 405} : HttpReply::json(oneUpdate);
    });
    setNow(start);
    check();
    EXPECT_TRUE(outcome.feed) << outcome.error.toString().toStdString();
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(sentDate(), start);
    EXPECT_EQ(updater->lastUpdateCheckDate(), start);
    ASSERT_EQ(server.requests().size(), 2);
    EXPECT_EQ(server.requests().last().method, QByteArray("GET"));
    setNow(start.addSecs(3600));
    check();
    EXPECT_TRUE(outcome.feed);
    EXPECT_EQ(server.requests().size(), 3) << "none is due for a week";
}

TEST_F(UpdaterProfile, NothingIsGatheredWhenSendingIsOff) {
    EXPECT_FALSE(sendsAt(start));
    EXPECT_EQ(*measured, 0);
    EXPECT_FALSE(sentDate().isValid());
    updater->setSendsSystemProfile(true);
    EXPECT_TRUE(sendsAt(start));
    EXPECT_EQ(*measured, 1);
    EXPECT_FALSE(sendsAt(start.addSecs(60)));
    EXPECT_EQ(*measured, 1) << "nor when none is due";
    updater->setSendsSystemProfile(false);
}

using UpdaterWithKeys = tx::test::WithKeys<UpdaterProfile>;

TEST_F(UpdaterWithKeys, MalformedKeysStopChecksBeforeAnythingIsMeasuredOrAskedFor) {
    updater->setSendsSystemProfile(true);
    becomeHostWith({"minisign:nonsense"});
    for (int i = 0; i < 2; ++i) { // the second check shows that the first one has ended
        check();
        EXPECT_EQ(outcome.calls, 1);
        EXPECT_TRUE(outcome.onMain);
        EXPECT_FALSE(outcome.feed);
        EXPECT_EQ(outcome.error.domain(), TXUpdateErrorDomain);
        EXPECT_EQ(outcome.error.code(), TXUpdateErrorKeysMalformed);
        EXPECT_FALSE(updater->isChecking());
    }
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_EQ(*measured, 0) << "no profile was measured";
    EXPECT_FALSE(sentDate().isValid());
    EXPECT_FALSE(updater->lastUpdateCheckDate().isValid());
    EXPECT_EQ(updater->feedName(), QString());
    becomeHostWith({tx::test::keyText(tx::test::key(0))});
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json(tx::test::signedFeed("{}")); });
    check();
    EXPECT_TRUE(outcome.feed) << outcome.error.toString().toStdString();
}

TEST_F(UpdaterWithKeys, FeedsNameIsSetWithItsAddress) {
    using tx::test::keyText;
    using tx::test::signedFeed;
    EXPECT_EQ(updater->feedName(), u"release"_s);
    becomeHostWith({keyText(tx::test::key(0))}, "<key>TXUpdateFeedName</key><string>stable</string>");
    EXPECT_EQ(updater->feedName(), u"stable"_s);
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)), u"beta"_s);
    EXPECT_EQ(updater->feedName(), u"beta"_s);
    const auto isTaken = [this](const char *name) {
        server.expect("GET", "/feed.json",
                      HttpReply::json(signedFeed("{}", {0}, {"org.example.Host", name, tx::test::noon, 60})));
        check();
        return outcome.feed != nullptr;
    };
    EXPECT_TRUE(isTaken("beta"));
    EXPECT_FALSE(isTaken("stable"));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    EXPECT_EQ(updater->feedName(), u"stable"_s);
    EXPECT_FALSE(isTaken("beta"));
    EXPECT_TRUE(isTaken("stable"));
}

TEST_F(UpdaterProfile, BodyIsExactlyTheTable) {
    updater->setSendsSystemProfile(true);
    tx::services().systemReport = [] {
        return std::vector<Section>{{"SPHardwareDataType",
                                     {Item{{{"machine_name", "Box"},
                                            {"machine_model", "B1"},
                                            {"cpu_type", "Fast"},
                                            {"chip_type", "Fast"},
                                            {"serial_number", "SECRET"},
                                            {"physical_memory", "4 GB"}}}}}};
    };
    std::atomic<bool> onMain{true};
    tx::services().operatingSystemVersionString = [&onMain] {
        onMain = QThread::currentThread() == QCoreApplication::instance()->thread();
        return u"Version 12.0.0 (Build 6.1)"_s;
    };
    tx::services().systemControlNumber = [](const QString &) { return std::optional(1); };
    EXPECT_TRUE(tx::UserDefaults::standard().setValue(u"AppleLanguages"_s, QVariantList{u"de"_s}).isNull());
    ASSERT_TRUE(sendsAt(start));
    EXPECT_FALSE(onMain) << "measuring blocks";
    EXPECT_EQ(QJsonDocument::fromJson(server.requests().last().body).object(),
              (QJsonObject{{u"appName"_s, u"Host"_s},
                           {u"appVersion"_s, u"1042"_s},
                           {u"anonymousUUID"_s, TXUpdater::anonymousUUID()},
                           {u"systemProfile"_s, QJsonObject{{u"OSVersion"_s, u"12.0.0"_s},
                                                            {u"OSBuild"_s, u"6.1"_s},
                                                            {u"machineName"_s, u"Box"_s},
                                                            {u"machineModel"_s, u"B1"_s},
                                                            {u"is64bit"_s, u"1"_s},
                                                            {u"CPUType"_s, u"Fast"_s},
                                                            {u"CPUCount"_s, u"0"_s},
                                                            {u"CPUSpeed"_s, u"0"_s},
                                                            {u"RAM"_s, u"4096"_s},
                                                            {u"VRAM"_s, u"0"_s},
                                                            {u"numberOfDisplays"_s, u"0"_s},
                                                            {u"resolutions"_s, u""_s},
                                                            {u"language"_s, u"de"_s}}}}));
}

TEST_F(UpdaterProfile, SystemThatHangsDoesNotHangTheCheck) {
    EXPECT_EQ(tx::services().systemReportTime, std::chrono::seconds(10));
    tx::services().systemReportTime = std::chrono::milliseconds(300);
    updater->setSendsSystemProfile(true);
    const auto released = std::make_shared<std::binary_semaphore>(0);
    const auto hasEnded = std::make_shared<std::atomic<bool>>(false);
    tx::services().systemReport = [released, hasEnded] {
        released->acquire();
        *hasEnded = true;
        return std::vector<Section>{{"SPHardwareDataType", {Item{{{"machine_name", "Late"}}}}}};
    };
    EXPECT_TRUE(sendsAt(start)) << "with what could be measured in time";
    const QJsonObject sent =
        QJsonDocument::fromJson(server.requests().last().body).object()[u"systemProfile"_s].toObject();
    EXPECT_TRUE(sent.contains(u"OSVersion"_s));
    EXPECT_FALSE(sent.contains(u"machineName"_s));
    EXPECT_EQ(sent[u"RAM"_s], u"0"_s);
    EXPECT_EQ(sentDate(), start);
    released->release();
    EXPECT_TRUE(waitUntil([&] { return hasEnded->load(); }));
    tx::test::drainEvents();
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(server.requests().size(), 1) << "what comes too late starts nothing";
}

} // namespace

// SPDX-License-Identifier: MIT
// What users are told about feeds that a host with keys refuses.
#include "tests/trust/signedreleases.h"
#include "tests/widgets/standardcontrollertest.h"

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

constexpr int64_t day = 24 * 3600;

class FeedTroubleShown : public WithKeys<StandardController> {
protected:
    QByteArray document = "{}"; ///< the server's response; not signed
    int status = 200;

    FeedTroubleShown() {
        server.always([this](const HttpRequest &) {
            HttpReply reply = HttpReply::json(document);
            reply.status = status;
            return reply;
        });
    }
    /// Returns the days on which automatic checks show an alert.
    QList<int> daysWithAlerts(const QList<int> &days) {
        QList<int> result;
        for (const int number : days) {
            at(noon + number * day);
            alerts.clear();
            check(false, true);
            if (!alerts.isEmpty())
                result << number;
            EXPECT_LE(alerts.size(), 1);
        }
        return result;
    }
};

TEST_F(FeedTroubleShown, QuietChecksTellOfItAfterAFortnightAndOnceAFortnight) {
    EXPECT_EQ(daysWithAlerts({0, 1, 13, 14, 15, 27, 28, 29}), (QList<int>{14, 28}));
    EXPECT_EQ(errors.last().code(), TXUpdateErrorFeedNotSigned);
    document = signedFeed("{}", {0}, {"org.example.Host", "release", noon + 30 * day, 60});
    EXPECT_EQ(daysWithAlerts({30}), QList<int>());
    document = "{}";
    EXPECT_EQ(daysWithAlerts({31, 44, 45}), QList<int>{45}) << "a good feed ends it";
}

TEST_F(FeedTroubleShown, EveryKindOfRefusedFeedCountsAndNothingElse) {
    const auto signedAt = [](int64_t time) {
        return signedFeed("{}", {0}, {"org.example.Host", "release", time, 10});
    };
    document = signedAt(noon);
    EXPECT_EQ(daysWithAlerts({0}), QList<int>());
    document = signedAt(noon - day); // older than the remembered one
    EXPECT_EQ(daysWithAlerts({1}), QList<int>());
    status = 500; // a failure that is not about a feed
    EXPECT_EQ(daysWithAlerts({16}), QList<int>());
    status = 200;
    document = signedAt(noon); // expired by now
    EXPECT_EQ(daysWithAlerts({17}), QList<int>{17});
    EXPECT_EQ(errors.last().code(), TXUpdateErrorFeedExpired);
    becomeHostWith({"minisign:nonsense"});
    EXPECT_EQ(daysWithAlerts({40}), QList<int>()) << "no feed has come";
}

TEST_F(FeedTroubleShown, VisibleCheckTellsAtOnce) {
    check(true, true);
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].message, feedNotVerified);
    EXPECT_THAT(alerts[0].informative.toStdString(), testing::HasSubstr(notSigned.toStdString()));
    EXPECT_THAT(alerts[0].informative.toStdString(), testing::HasSubstr("Try again later"));
    becomeHostWith({"minisign:nonsense"});
    check(true, true);
    ASSERT_EQ(alerts.size(), 2);
    EXPECT_THAT(alerts[1].informative.toStdString(),
                testing::HasSubstr("The keys of this application are malformed: "));
}

TEST_F(FeedTroubleShown, ChecksOfTheTimerTellAsWell) {
    setUp();
    const auto timerAt = [this](int number) {
        at(noon + number * day);
        const int before = delegate.backgroundChecks;
        TXUpdater::sharedUpdater()->autocheckForUpdate();
        EXPECT_TRUE(waitUntil([&] { return delegate.backgroundChecks > before; }));
        drainEvents();
        return alerts.size();
    };
    EXPECT_EQ(timerAt(0), 0);
    EXPECT_EQ(timerAt(13), 0);
    EXPECT_EQ(timerAt(14), 1);
    EXPECT_EQ(timerAt(15), 1);
}

} // namespace

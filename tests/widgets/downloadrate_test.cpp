// SPDX-License-Identifier: MIT
#include "tests/widgets/uitest.h"
#include "widgets/downloadrate.h"

#include <limits>

using namespace Qt::StringLiterals;

namespace {

class Rate : public tx::test::UiTest {
protected:
    Rate() { QLocale::setDefault(QLocale::c()); }
    ~Rate() override { QLocale::setDefault(QLocale::system()); }
    tx::DownloadRate rate;
    static constexpr quint64 size = 100'000'000;
};

TEST_F(Rate, SaysNothingWithoutASize) {
    EXPECT_EQ(rate.text(size), QString());
    rate.add(0.1, 0);
    EXPECT_EQ(rate.text(0), QString());
    EXPECT_EQ(rate.text(std::numeric_limits<quint64>::max()), QString()) << "the server has not said";
    EXPECT_EQ(rate.text(size), u"10.0 MB of 100.0 MB"_s) << "no rate from one report";
}

TEST_F(Rate, IsThatOfTheLastSeconds) {
    rate.add(0, 0);
    rate.add(0.1, 10);
    rate.add(0.15, 12);
    rate.add(0.2, 14);
    EXPECT_EQ(rate.text(size), u"20.0 MB of 100.0 MB, 2.5 MB per second, 0:32 left"_s);
}

TEST_F(Rate, LongTimesHaveHours) {
    rate.add(0, 0);
    rate.add(0.0001, 1);
    EXPECT_TRUE(rate.text(size).endsWith(u"2:46:39 left"_s)) << rate.text(size).toStdString();
}

TEST_F(Rate, MinutesAfterHoursAndSecondsHaveTwoDigits) {
    rate.add(0, 0);
    rate.add(1 / 65.5, 1);
    EXPECT_TRUE(rate.text(size).endsWith(u", 1:05 left"_s)) << rate.text(size).toStdString();
    rate.add(0, 0);
    rate.add(1 / 3666.5, 1);
    EXPECT_TRUE(rate.text(size).endsWith(u", 1:01:06 left"_s)) << rate.text(size).toStdString();
}

TEST_F(Rate, BeginsAnewWithAnotherDownloadOrClock) {
    rate.add(0.5, 100);
    rate.add(0.1, 101);
    EXPECT_EQ(rate.text(size), u"10.0 MB of 100.0 MB"_s);
    rate.add(0.2, 50);
    EXPECT_EQ(rate.text(size), u"20.0 MB of 100.0 MB"_s) << "a clock that was set back";
}

} // namespace

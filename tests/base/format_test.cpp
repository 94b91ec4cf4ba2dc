// SPDX-License-Identifier: MIT
#include "base/format.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXLog.h>

using namespace Qt::StringLiterals;

namespace {

TEST(Format, FillsConversionsInOrder) {
    EXPECT_EQ(tx::formatText(u"%@ is %d of %ld, %s %lu"_s, {u"a"_s, u"1"_s, u"2"_s, u"b"_s, u"3"_s}),
              u"a is 1 of 2, b 3"_s);
    EXPECT_EQ(tx::formatText(u"%2$@ before %1$@"_s, {u"a"_s, u"b"_s}), u"b before a"_s);
    EXPECT_EQ(tx::formatText(u"100%% %@"_s, {u"%@"_s}), u"100% %@"_s);
    EXPECT_EQ(tx::formatText(u"%@ %@"_s, {u"x"_s}), u"x (null)"_s);
    EXPECT_EQ(tx::formatText(u"%@"_s, {QString()}), u"(null)"_s);
    EXPECT_EQ(tx::formatText(u"%x 5% %"_s, {u"a"_s}), u"%x 5% %"_s);
}

class Log : public tx::test::FrameworkTest {};

TEST_F(Log, WritesLinesUpToItsLevel) {
    EXPECT_EQ(TXLogGetLevel(), 6);
    TXLog(6, u"%@ %d"_s, {u"detail"_s, u"7"_s});
    TXLog(7, u"too deep"_s);
    EXPECT_EQ(logLines(), QStringList{u"detail 7"_s});
}

TEST(Error, IsNullUnlessMade) {
    EXPECT_TRUE(TXError().isNull());
    EXPECT_FALSE(bool(TXError()));
    const TXError cause(u"Cause"_s, 2, u"why"_s);
    const TXError error = TXError(u"Domain"_s, 1, u"what"_s, u"reason"_s, u"do"_s)
                              .withUnderlyingError(cause)
                              .withUserInfo({{u"path"_s, u"/x"_s}});
    EXPECT_EQ(error.domain(), u"Domain"_s);
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.underlyingError(), cause);
    EXPECT_EQ(error.userInfo().value(u"path"_s), u"/x"_s);
    EXPECT_EQ(error.toString(), u"Domain 1: what (reason) <- Cause 2: why"_s);
    EXPECT_FALSE(error == cause);
    EXPECT_TRUE(TXError() == TXError());
}

} // namespace

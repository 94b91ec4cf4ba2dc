// SPDX-License-Identifier: MIT
#include "base/format.h"
#include "base/log.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXLog.h>

#include <QLoggingCategory>
#include <QScopeGuard>

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

/// Sets Qt's logging rules in the syntax of QT_LOGGING_RULES.
TEST_F(Log, RulesAskForLinesThatTheLevelLeavesOutAndSilenceFailures) {
    const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules({}); });
    const auto heard = [this](const QString &rules, int level) {
        QLoggingCategory::setFilterRules(rules);
        const auto before = logLines().size();
        TXLog(level, u"line"_s);
        const bool isWritten = logLines().size() > before;
        EXPECT_EQ(tx::isLogged(level), isWritten) << rules.toStdString() << ' ' << level;
        return isWritten;
    };
    // TXUPDATE_LOG_LEVEL of this program enables all levels. It does not affect failures, which only rules
    // can disable.
    EXPECT_TRUE(heard({}, TXLogLevelFailure));
    EXPECT_FALSE(heard(u"tarvixupdate.warning=false"_s, TXLogLevelFailure));
    EXPECT_TRUE(heard(u"tarvixupdate.warning=false"_s, TXLogLevelStep));
    EXPECT_FALSE(heard(u"tarvixupdate.debug=true"_s, TXLogLevelDetail + 1));
}

/// The same in a program whose environment sets no level.
TEST(LogRules, AskForLinesWithoutAnyLevel) {
    const QString program = tx::test::helpersFolder() + u"/log_writer"_s;
    const auto written = [&](const QString &rules) {
        return tx::test::runProcess(program, {}, {},
                                    {u"TXUPDATE_LOG_LEVEL="_s, u"QT_LOGGING_RULES="_s + rules,
                                     u"QT_MESSAGE_PATTERN=%{category} %{type} %{message}"_s})
            .errors;
    };
    EXPECT_EQ(written({}), QByteArray("tarvixupdate warning failure\n"));
    EXPECT_EQ(written(u"tarvixupdate.info=true"_s),
              QByteArray("tarvixupdate warning failure\ntarvixupdate info notice\ntarvixupdate info step\n"));
    EXPECT_EQ(written(u"tarvixupdate.debug=true"_s),
              QByteArray("tarvixupdate warning failure\ntarvixupdate debug detail\n"));
    EXPECT_EQ(written(u"tarvixupdate*=false"_s), QByteArray());
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

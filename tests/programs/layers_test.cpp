// SPDX-License-Identifier: MIT
#include "tests/support/environment.h"
#include "tests/support/processes.h"

using namespace Qt::StringLiterals;
using tx::test::runProcess;

namespace {

TEST(House, IncludesGoDownTheFloorsOnly) {
    const auto result = runProcess(QStringLiteral(TEST_SOURCES) + u"/../scripts/check-layers"_s, {});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
}

/// Only what the public headers mark may be seen from outside, and the tools carry no Qt.
TEST(House, LibraryShowsItsInterfaceOnly) {
    const auto symbols = runProcess(
        u"nm"_s, {u"-DC"_s, u"--defined-only"_s, QStringLiteral(TEST_LIBRARIES) + u"/libTarvixUpdate.so"_s});
    ASSERT_EQ(symbols.status, 0) << symbols.errors.constData();
    EXPECT_TRUE(symbols.output.contains("TXUpdater::sharedUpdater()"));
    EXPECT_TRUE(symbols.output.contains("EscapeForURL"));
    EXPECT_FALSE(symbols.output.contains(" T tx::")) << symbols.output.constData();
    EXPECT_FALSE(symbols.output.contains(" T main"));
}

TEST(House, StandAloneToolsLinkNoQt) {
    for (const QString &tool :
         {u"TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s, u"TXUpdateLauncher"_s, u"open"_s}) {
        const auto libraries = runProcess(u"ldd"_s, {QStringLiteral(TEST_RESOURCES) + u'/' + tool});
        EXPECT_FALSE(libraries.output.contains("Qt6")) << tool.toStdString() << libraries.output.constData();
    }
}

} // namespace

// SPDX-License-Identifier: MIT
#include "model/versioncomparison.h"
#include "posix/versionorder.h"

#include <gtest/gtest.h>

namespace {

TEST(VersionOrder, IsTheHostsForVersionsInAscii) {
    for (int c = 0; c < 128; ++c) {
        const auto type = TXUpdateTypeOfVersionCharacter(QString(QChar(c)));
        const tx::versions::Kind kind = tx::versions::kindOfAscii(static_cast<unsigned char>(c));
        EXPECT_EQ(kind == tx::versions::Kind::Number, type == TXUpdateVersionCharacterTypeNumber) << c;
        EXPECT_EQ(kind == tx::versions::Kind::Separator, type == TXUpdateVersionCharacterTypeSeparator) << c;
    }
    const char *versions[] = {"",     "1",          "1.0",        "1.0b1", "1.0.1", "1b2",
                              "1.b2", "2147483648", "2147483649", "a",     "-"};
    for (const char *a : versions) {
        for (const char *b : versions)
            EXPECT_EQ(tx::versions::compareAscii(a, b),
                      tx::compareVersions(QString::fromLatin1(a), QString::fromLatin1(b)))
                << a << ' ' << b;
    }
    EXPECT_FALSE(tx::versions::compareAscii("1\xC3\xA9", "1"));
    EXPECT_FALSE(tx::versions::compareAscii("1", "1\x80"));
}

} // namespace

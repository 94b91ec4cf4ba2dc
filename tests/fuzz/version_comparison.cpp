// SPDX-License-Identifier: MIT
// Two versions, separated by a line break: comparing them the other way round gives the opposite, and a
// version equals itself.
#include "model/versioncomparison.h"
#include "tests/fuzz/target.h"

#include <TarvixUpdate/TXVersionNumber.h>

void fuzz(const QByteArray &input) {
    const qsizetype end = input.indexOf('\n');
    const QString a = QString::fromUtf8(end < 0 ? input : input.left(end));
    const QString b = end < 0 ? QString() : QString::fromUtf8(input.mid(end + 1));
    const int result = tx::compareVersions(a, b);
    check(result >= -1 && result <= 1);
    check(tx::compareVersions(b, a) == -result);
    check(tx::compareVersions(a, a) == 0);
    check(TXUpdateSplitVersionString(a).join(QString()) == a);
    (void)TXVersionNumber::versionNumberWithString(a);
}

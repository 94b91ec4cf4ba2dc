// SPDX-License-Identifier: MIT
// Writes a line at each level of the log.
#include <TarvixUpdate/TXLog.h>

using namespace Qt::StringLiterals;

int main() {
    TXLog(TXLogLevelFailure, u"failure"_s);
    TXLog(TXLogLevelNotice, u"notice"_s);
    TXLog(TXLogLevelStep, u"step"_s);
    TXLog(TXLogLevelDetail, u"detail"_s);
    TXLog(TXLogLevelDetail + 1, u"deeper"_s);
    return 0;
}

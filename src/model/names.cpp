// SPDX-License-Identifier: MIT
#include "model/names.h"

using namespace Qt::StringLiterals;

namespace tx {

const QString updaterErrorDomain = u"TXUpdater"_s;

QString safeFileName(const QString &text) {
    QString result = text;
    for (QChar &c : result) {
        if (c == u'/' || c == u'\\' || c.category() == QChar::Other_Control)
            c = u'-';
    }
    return result;
}

QString shortenedFileName(const QString &stem, const QString &tail) {
    constexpr qsizetype longestName = 255;
    QString kept = stem;
    while (!kept.isEmpty() && (kept + tail).toUtf8().size() > longestName) {
        const bool pair = kept.size() > 1 && kept.back().isLowSurrogate();
        kept.chop(pair ? 2 : 1);
    }
    return kept + tail;
}

} // namespace tx

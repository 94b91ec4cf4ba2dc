// SPDX-License-Identifier: MIT
#include "model/handledrecord.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QString escapedPrefix = u"escaped:"_s;

/// Whether an XML file cannot represent the character at `position`.
bool isLost(const QString &text, qsizetype position) {
    const QChar c = text[position];
    if (c.isHighSurrogate())
        return position + 1 == text.size() || !text[position + 1].isLowSurrogate();
    if (c.isLowSurrogate())
        return position == 0 || !text[position - 1].isHighSurrogate();
    const char16_t unit = c.unicode();
    return (unit < u' ' && unit != u'\t' && unit != u'\n') || unit >= 0xFFFE;
}

} // namespace

QString recordForm(const QString &text) {
    bool needsEscape = text.startsWith(escapedPrefix);
    for (qsizetype i = 0; i < text.size() && !needsEscape; ++i)
        needsEscape = isLost(text, i);
    if (!needsEscape)
        return text;
    QString result = escapedPrefix;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' || isLost(text, i))
            result += u"%%1"_s.arg(uint(text[i].unicode()), 4, 16, QChar(u'0'));
        else
            result += text[i];
    }
    return result;
}

QVariantMap recordForm(const QVariantMap &identifier) {
    QVariantMap result = identifier;
    for (QVariant &value : result)
        value = recordForm(value.toString());
    return result;
}

} // namespace tx

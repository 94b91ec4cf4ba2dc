// SPDX-License-Identifier: MIT
#include "base/plurals.h"

#include <QLatin1StringView>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

bool isBetween(qint64 number, qint64 first, qint64 last) { return number >= first && number <= last; }

PluralCategory onlyOther(qint64) { return PluralCategory::Other; }

PluralCategory oneForOne(qint64 n) { return n == 1 ? PluralCategory::One : PluralCategory::Other; }

/// French, Spanish and their relatives count millions "of" things.
bool isMillions(qint64 n) { return n != 0 && n % 1000000 == 0; }

PluralCategory spanish(qint64 n) { return isMillions(n) ? PluralCategory::Many : oneForOne(n); }

PluralCategory french(qint64 n) {
    if (n <= 1)
        return PluralCategory::One;
    return isMillions(n) ? PluralCategory::Many : PluralCategory::Other;
}

PluralCategory zeroOrOne(qint64 n) { return n <= 1 ? PluralCategory::One : PluralCategory::Other; }

PluralCategory eastSlavic(qint64 n) {
    const bool isTeen = isBetween(n % 100, 11, 14);
    if (n % 10 == 1 && !isTeen)
        return PluralCategory::One;
    return isBetween(n % 10, 2, 4) && !isTeen ? PluralCategory::Few : PluralCategory::Many;
}

PluralCategory southSlavic(qint64 n) {
    const PluralCategory category = eastSlavic(n);
    return category == PluralCategory::Many ? PluralCategory::Other : category;
}

PluralCategory polish(qint64 n) {
    if (n == 1)
        return PluralCategory::One;
    return isBetween(n % 10, 2, 4) && !isBetween(n % 100, 12, 14) ? PluralCategory::Few
                                                                  : PluralCategory::Many;
}

PluralCategory czech(qint64 n) { return isBetween(n, 2, 4) ? PluralCategory::Few : oneForOne(n); }

PluralCategory arabic(qint64 n) {
    if (n <= 2)
        return n == 0 ? PluralCategory::Zero : n == 1 ? PluralCategory::One : PluralCategory::Two;
    if (isBetween(n % 100, 3, 10))
        return PluralCategory::Few;
    return isBetween(n % 100, 11, 99) ? PluralCategory::Many : PluralCategory::Other;
}

struct Rule {
    QLatin1StringView language;
    PluralCategory (*category)(qint64 count);
};

/// Languages whose rule is not "one for 1". A host's own tables may be in any of them.
constexpr Rule rules[] = {
    {"ar"_L1, arabic},      {"be"_L1, eastSlavic},  {"bs"_L1, southSlavic}, {"ca"_L1, spanish},
    {"cs"_L1, czech},       {"es"_L1, spanish},     {"fa"_L1, zeroOrOne},   {"fr"_L1, french},
    {"hi"_L1, zeroOrOne},   {"hr"_L1, southSlavic}, {"id"_L1, onlyOther},   {"it"_L1, spanish},
    {"ja"_L1, onlyOther},   {"ko"_L1, onlyOther},   {"ms"_L1, onlyOther},   {"pl"_L1, polish},
    {"pt-PT"_L1, spanish},  {"pt"_L1, french},      {"ru"_L1, eastSlavic},  {"sk"_L1, czech},
    {"sr"_L1, southSlavic}, {"th"_L1, onlyOther},   {"uk"_L1, eastSlavic},  {"vi"_L1, onlyOther},
    {"zh"_L1, onlyOther},
};

} // namespace

PluralCategory pluralCategory(const QString &language, qint64 count) {
    const QString tag = QString(language).replace(u'_', u'-');
    for (const Rule &rule : rules) {
        if (tag == rule.language || tag.startsWith(rule.language + u'-'))
            return rule.category(qAbs(count));
    }
    return oneForOne(qAbs(count));
}

QString pluralCategoryName(PluralCategory category) {
    switch (category) {
    case PluralCategory::Zero:
        return u"zero"_s;
    case PluralCategory::One:
        return u"one"_s;
    case PluralCategory::Two:
        return u"two"_s;
    case PluralCategory::Few:
        return u"few"_s;
    case PluralCategory::Many:
        return u"many"_s;
    case PluralCategory::Other:
        break;
    }
    return u"other"_s;
}

QString pluralKey(const QString &key, PluralCategory category) {
    return key + u" ["_s + pluralCategoryName(category) + u']';
}

} // namespace tx

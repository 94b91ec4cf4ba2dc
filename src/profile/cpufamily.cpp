// SPDX-License-Identifier: MIT
#include "profile/cpufamily.h"

using namespace Qt::StringLiterals;

namespace tx {

QString cpuFamily(const QString &name) {
    if (name.contains(u"Intel"_s)) {
        for (const QString &family :
             {u"Core Duo"_s, u"Core 2 Duo"_s, u"i3"_s, u"i5"_s, u"i7"_s, u"i9"_s, u"Xeon"_s}) {
            if (name.contains(family))
                return family;
        }
    } else if (const QString maker = u"Apple "_s; name.startsWith(maker)) {
        return name.mid(maker.size());
    }
    return u"Unknown"_s;
}

} // namespace tx

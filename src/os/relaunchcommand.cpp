// SPDX-License-Identifier: MIT
#include "os/relaunchcommand.h"

#include "base/format.h"

using namespace Qt::StringLiterals;

namespace tx {

QString relaunchCommand(qint64 processIdentifier, const QString &bundlePath) {
    return formatText(u"(while [ `ps -p %d | wc -l` -gt 1 ]; do sleep 0.1; done; open '%@') &"_s,
                      {QString::number(processIdentifier), insideSingleQuotes(bundlePath)});
}

} // namespace tx

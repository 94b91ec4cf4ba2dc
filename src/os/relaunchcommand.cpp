// SPDX-License-Identifier: MIT
#include "os/relaunchcommand.h"

#include "base/format.h"
#include "os/frameworkresources.h"

#include <TarvixUpdate/TXLog.h>

#include <QProcessEnvironment>

using namespace Qt::StringLiterals;

namespace tx {

TaskRequest outlivingShell(const QString &command, const QString &resources) {
    return {.program = u"/bin/sh"_s,
            .arguments = {u"-c"_s, command},
            .environment = environmentWithFrameworkTools(resources),
            .ownSession = true};
}

QString relaunchCommand(qint64 processIdentifier, const QString &bundlePath) {
    return formatText(u"(while [ `ps -p %d | wc -l` -gt 1 ]; do sleep 0.1; done; open '%@') &"_s,
                      {QString::number(processIdentifier), insideSingleQuotes(bundlePath)});
}

TaskRequest relaunchByShell(qint64 processIdentifier, const QString &bundlePath, const QString &resources,
                            const QStringList &variables) {
    TaskRequest request = outlivingShell(relaunchCommand(processIdentifier, bundlePath), resources);
    *request.environment += variables;
    return request;
}

TaskRequest relaunchByTool(qint64 processIdentifier, const QString &bundlePath,
                           const QStringList &variables) {
    TaskRequest request{.program = frameworkResourcesPath() + u"/TXUpdateLauncher"_s,
                        .arguments = {QString::number(processIdentifier), bundlePath,
                                      TXLogGetLevel() >= TXLogLevelStep ? u"debug"_s : u""_s},
                        .ownSession = true};
    if (!variables.isEmpty())
        request.environment = QProcessEnvironment::systemEnvironment().toStringList() + variables;
    return request;
}

} // namespace tx

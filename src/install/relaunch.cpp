// SPDX-License-Identifier: MIT
#include "install/handoverquestion.h"
#include "os/relaunchcommand.h"
#include "os/services.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QCoreApplication>

using namespace Qt::StringLiterals;

void TXUpdate::launch() {
    TXLog(TXLogLevelStep, u"-[TXUpdate launch]"_s);
    const tx::Services &services = tx::services();
    const qint64 processIdentifier = QCoreApplication::applicationPid();
    const QString bundlePath = TXUpdateHost::host()->bundle().bundlePath();
    QStringList handover;
    for (const std::string &variable : tx::variablesOf(tx::askForHandover()))
        handover << QString::fromLocal8Bit(variable.c_str());
    // Both ways are always used: whichever opens second finds the application running.
    TXLog(TXLogLevelStep, u"-[TXUpdate launch] launching using TXUpdateLauncher"_s);
    const tx::TaskRequest tool = tx::relaunchByTool(processIdentifier, bundlePath, handover);
    if (const auto task = services.tasks->start(tool); !task)
        TXLog(TXLogLevelFailure, u"TXUpdate failed to launch with TXUpdateLauncher due to an exception. %@"_s,
              {task.error().localizedDescription()});
    TXLog(TXLogLevelStep, u"-[TXUpdate launch] launching using shell script"_s);
    const tx::TaskRequest shell = tx::relaunchByShell(processIdentifier, bundlePath, {}, handover);
    if (const auto task = services.tasks->start(shell); !task)
        TXLog(TXLogLevelFailure, u"TXUpdate failed to launch with script due to an exception. %@"_s,
              {task.error().localizedDescription()});
    services.workspace->terminate();
}

// SPDX-License-Identifier: MIT
#include "install/handoverquestion.h"
#include "os/relaunchcommand.h"

#include "os/frameworkresources.h"
#include "os/services.h"
#include "os/tasks.h"
#include "os/workspace.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QCoreApplication>
#include <QProcessEnvironment>

using namespace Qt::StringLiterals;

void TXUpdate::launch() {
    TXLog(TXLogLevelStep, u"-[TXUpdate launch]"_s);
    tx::Tasks &tasks = *tx::services().tasks;
    const qint64 processIdentifier = QCoreApplication::applicationPid();
    const QString bundlePath = TXUpdateHost::host()->bundle().bundlePath();
    QStringList handover;
    for (const std::string &variable : tx::variablesOf(tx::askForHandover()))
        handover << QString::fromLocal8Bit(variable.c_str());

    TXLog(TXLogLevelStep, u"-[TXUpdate launch] launching using TXUpdateLauncher"_s);
    tx::TaskRequest launcher;
    launcher.program = tx::frameworkResourcesPath() + u"/TXUpdateLauncher"_s;
    launcher.arguments = {QString::number(processIdentifier), bundlePath,
                          TXLogGetLevel() >= TXLogLevelStep ? u"debug"_s : u""_s};
    if (!handover.isEmpty())
        launcher.environment = QProcessEnvironment::systemEnvironment().toStringList() + handover;
    launcher.ownSession = true;
    if (const auto task = tasks.start(launcher); !task)
        TXLog(TXLogLevelFailure, u"TXUpdate failed to launch with TXUpdateLauncher due to an exception. %@"_s,
              {task.error().localizedDescription()});

    // Both ways are always used: whichever opens second finds the application running.
    TXLog(TXLogLevelStep, u"-[TXUpdate launch] launching using shell script"_s);
    tx::TaskRequest script;
    script.program = u"/bin/sh"_s;
    script.arguments = {u"-c"_s, tx::relaunchCommand(processIdentifier, bundlePath)};
    script.environment = tx::environmentWithFrameworkTools() + handover;
    script.ownSession = true;
    if (const auto task = tasks.start(script); !task)
        TXLog(TXLogLevelFailure, u"TXUpdate failed to launch with script due to an exception. %@"_s,
              {task.error().localizedDescription()});

    tx::services().workspace->terminate();
}

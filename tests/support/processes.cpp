// SPDX-License-Identifier: MIT
#include "tests/support/processes.h"

#include "posix/openbundle.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <csignal>

using namespace Qt::StringLiterals;

namespace tx::test {

ProcessResult runProcess(const QString &program, const QStringList &arguments, const QByteArray &input,
                         const QStringList &environment) {
    QProcess process;
    if (!environment.isEmpty()) {
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        for (const QString &variable : environment)
            variables.insert(variable.section(u'=', 0, 0), variable.section(u'=', 1));
        process.setProcessEnvironment(variables);
    }
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    ProcessResult result;
    constexpr int limit = 300000; // some compile, on machines with other work
    if (!process.waitForFinished(limit)) {
        process.kill();
        process.waitForFinished();
    }
    result.status =
        process.exitStatus() == QProcess::NormalExit ? process.exitCode() : 128 + process.exitCode();
    result.output = process.readAllStandardOutput();
    result.errors = process.readAllStandardError();
    return result;
}

bool isAlive(qint64 processIdentifier) { return kill(static_cast<pid_t>(processIdentifier), 0) == 0; }

ProcessReaper::~ProcessReaper() {
    for (const pid_t process : processesRunning(m_executable.toStdString()))
        kill(process, SIGKILL);
    // If a program's file has been replaced, its path is no longer known, but the name by which it was
    // started is.
    for (const QString &number : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile words(u"/proc/"_s + number + u"/cmdline"_s);
        if (const pid_t process = number.toInt();
            process > 0 && words.open(QIODevice::ReadOnly) &&
            words.readAll().split('\0').constFirst() == QFile::encodeName(m_executable))
            kill(process, SIGKILL);
    }
}

} // namespace tx::test

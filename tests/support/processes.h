// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QStringList>

namespace tx::test {

struct ProcessResult {
    int status = -1; ///< exit status, or 128 plus the signal
    QByteArray output;
    QByteArray errors;
};

/// Runs a program to its end.
[[nodiscard]] ProcessResult runProcess(const QString &program, const QStringList &arguments,
                                       const QByteArray &input = {}, const QStringList &environment = {});

[[nodiscard]] bool isAlive(qint64 processIdentifier);

/// Ends the processes that run an executable, when the test ends.
class ProcessReaper {
public:
    explicit ProcessReaper(QString executable)
        : m_executable(std::move(executable)) {}
    ~ProcessReaper();
    Q_DISABLE_COPY_MOVE(ProcessReaper)

private:
    QString m_executable;
};

} // namespace tx::test

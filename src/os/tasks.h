// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>

namespace tx {

/// What to run and how.
struct TaskRequest {
    QString program; ///< a path, or a name that is looked up in PATH
    QStringList arguments;
    std::optional<QStringList> environment; ///< "NAME=value"; absent: this process's own
    bool writesInput = false;               ///< Task::write feeds its standard input
    bool receivesPackets = false; ///< Task::send feeds its standard input, a local socket of packets
    bool readsOutput = false;     ///< Task::read takes its standard output
    bool keepsErrors = false;     ///< Task::errorText tells its standard error
    bool ownSession = false;      ///< the program outlives this process and its terminal
};

/// A child process. Destroying the object closes its pipes and leaves the process running; it is collected
/// when it ends. Thread: one at a time, except for `kill`.
class Task {
public:
    virtual ~Task() = default;
    [[nodiscard]] virtual qint64 processIdentifier() const = 0;
    /// Writes to the standard input; returns how many bytes were taken, fewer than given after an error, with
    /// errno in `errorNumber`.
    virtual qsizetype write(const char *data, qsizetype size, int *errorNumber) = 0;
    /// Sends one packet, with an open file of this process if `descriptor` is one; 0, or an errno.
    virtual int send(const QByteArray &packet, int descriptor);
    virtual void closeInput() = 0;
    /// Reads what there is of the standard output; empty at its end.
    virtual QByteArray read() = 0;
    /// The same; absent when there is nothing for so long.
    virtual std::optional<QByteArray> readWithin(std::chrono::milliseconds limit) = 0;
    /// Waits for the end; the exit status, or 128 plus the signal that ended it.
    virtual int wait() = 0;
    /// The same; absent when it runs for longer.
    virtual std::optional<int> waitWithin(std::chrono::milliseconds limit) = 0;
    /// The end of what it wrote to its standard error, when it has ended: at most 1,000 bytes of it, without
    /// white space around them. Empty unless the request kept it, and when it could not be kept.
    [[nodiscard]] virtual QString errorText() { return {}; }
    /// Ends the process at once, and with one that has a session of its own everything in that. Thread: any,
    /// also while another one writes, reads or waits.
    virtual void kill() = 0;
};

/// Starts child processes with exact argument vectors. Thread: any.
class Tasks {
public:
    virtual ~Tasks() = default;
    /// Starts a direct child of this process. Errors: TXPOSIXErrorDomain, the program in the text.
    virtual Result<std::unique_ptr<Task>> start(const TaskRequest &request) = 0;
};

Tasks &nativeTasks();

/// This process's environment as "NAME=value", with the framework's own tools first in PATH: those in
/// `resources`, or, when that is null, those of the framework that runs.
[[nodiscard]] QStringList environmentWithFrameworkTools(const QString &resources = {});

} // namespace tx

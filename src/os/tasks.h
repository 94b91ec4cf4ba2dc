// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QStringList>

#include <chrono>
#include <memory>
#include <optional>

namespace tx {

/// A program to run, with its options.
struct TaskRequest {
    QString program; ///< a path, or a name that is looked up in PATH
    QStringList arguments;
    std::optional<QStringList> environment; ///< "NAME=value"; absent: this process's own
    int inputFile = -1; ///< an open file that becomes its standard input; the caller keeps the descriptor
    bool receivesPackets = false; ///< standard input is a local packet socket, and Task::send writes to it
    bool readsOutput = false;     ///< Task::read takes its standard output
    bool keepsErrors = false;     ///< Task::errorText returns the end of its standard error
    bool ownSession = false;      ///< the program outlives this process and its terminal
};

/// A child process. Destroying the object closes its pipes and leaves the process running; it is collected
/// when it ends. Thread: one at a time, except for `kill`.
class Task {
public:
    virtual ~Task() = default;
    [[nodiscard]] virtual qint64 processIdentifier() const = 0;
    /// Sends one packet, together with an open file if `descriptor` is valid. Returns 0 or an errno value.
    virtual int send(const QByteArray &packet, int descriptor);
    virtual void closeInput() = 0;
    /// Reads the available standard output; empty at its end.
    virtual QByteArray read() = 0;
    /// As above; absent if nothing arrives within `limit`.
    virtual std::optional<QByteArray> readWithin(std::chrono::milliseconds limit) = 0;
    /// Waits for the end; the exit status, or 128 plus the signal that ended it.
    virtual int wait() = 0;
    /// As above; absent if it runs for longer than `limit`.
    virtual std::optional<int> waitWithin(std::chrono::milliseconds limit) = 0;
    /// The last 1,000 bytes of its standard error, trimmed, after it has ended. Empty unless the request
    /// asked to keep it, and if it could not be kept.
    [[nodiscard]] virtual QString errorText() { return {}; }
    /// Kills the process immediately. If it has a session of its own, kills all processes in that session.
    /// Thread: any, even while another thread reads or waits.
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

// SPDX-License-Identifier: MIT
#pragma once

#include "posix/handover.h"

#include <QStringList>

#include <atomic>

namespace tx {

/// The host's answer to the question which arguments and which working folder the new version gets.
struct HandoverAnswer {
    QStringList arguments;
    QString workingDirectory;
};

/// Puts the question to the host. Set by the updater, which knows the delegate. While it is null, nothing is
/// passed on. Called on the main thread.
using HandoverQuestion = HandoverAnswer (*)();
std::atomic<HandoverQuestion> &handoverQuestion();

/// Asks the host and checks the answer. Arguments over a limit and a working folder that is not an absolute
/// path are not passed on; the log has the reason, but no argument. Thread: main.
[[nodiscard]] Handover askForHandover();

} // namespace tx

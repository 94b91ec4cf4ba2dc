// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include <functional>

namespace tx {

/// A question or message in a window of its own.
struct Alert {
    QString message;     ///< first line
    QString informative; ///< the explanation below it
    QStringList buttons; ///< the first one is the default
};

/// Shows an alert modally and answers the index of the chosen button. Thread: main.
using AlertPresenter = std::function<int(const Alert &)>;

/// The presenter for a program without windows: writes the texts to the log and answers the default button.
int presentAlertInLog(const Alert &alert);

} // namespace tx

// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include <functional>

namespace tx {

/// A question or message in a window of its own.
struct Alert {
    QString message;             ///< first line
    QString informative;         ///< the explanation below it
    QStringList buttons;         ///< the first one is the default; without any the desktop's own
    QString suppressionText;     ///< of a box to tick below the text; none when null
    bool bringsToFront = false;  ///< above the windows of other applications
    int answerWithoutWindow = 0; ///< the button that counts in a program without windows
    bool *suppressed = nullptr;  ///< told whether the box was ticked
};

/// Shows an alert modally and answers the index of the chosen button. Thread: main.
using AlertPresenter = std::function<int(const Alert &)>;

/// The presenter for a program without windows: writes the texts to the log and answers the alert's own
/// answer.
int presentAlertInLog(const Alert &alert);

} // namespace tx

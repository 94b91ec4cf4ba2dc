// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include <functional>

class QWidget;

namespace tx {

/// A question or message in a separate window.
struct Alert {
    QString message;             ///< first line
    QString informative;         ///< the explanation below it
    QStringList buttons;         ///< the first one is the default; without any the desktop's own
    QString suppressionText;     ///< of a box to tick below the text; none when null
    bool critical = false;       ///< something is wrong
    bool bringsToFront = false;  ///< above the windows of other applications
    int answerWithoutWindow = 0; ///< the button that counts in a program without windows
    bool *suppressed = nullptr;  ///< receives whether the check box was ticked
};

/// Shows an alert modally and answers the index of the chosen button. Thread: main.
using AlertPresenter = std::function<int(const Alert &)>;

/// Shows an alert as a sheet of a window and returns immediately. The handler gets the index of the button,
/// unless the window is destroyed first. Thread: main.
using SheetPresenter =
    std::function<void(const Alert &alert, QWidget *parent, const std::function<void(int)> &handler)>;

/// Presents an alert in a program without windows: writes its strings to the log and returns its default
/// answer.
int presentAlertInLog(const Alert &alert);

} // namespace tx

// SPDX-License-Identifier: MIT
#pragma once

#include "notewindow.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QUrl>

#include <functional>

/// Walks through an update by itself, pressing what a user would press. It records each state in the launch
/// log, and leaves a picture of it in a folder when it can: where the toolkit cannot look at the screen (on
/// Wayland), the program that TARVIX_NOTES_CAMERA names is run with the picture's path. It goes on without
/// pictures. In the old build: check, offer, download, install, which the application's question about
/// unsaved notes stops once. In the new one: a server that does not answer, up to date, news, news at quit.
/// An application in the Downloads folder asks whether it is to be moved, which is declined.
class Walkthrough final : public QObject {
    Q_OBJECT
public:
    Walkthrough(NoteWindow &window, const QString &folder);

private:
    struct Step {
        QString name;                  ///< of the picture; none when empty
        std::function<bool()> isReady; ///< asked again and again
        std::function<void()> act;     ///< after the picture
        int settle = 400;              ///< milliseconds that the state is left alone before its picture
        std::function<bool()> isPast =
            {}; ///< a state that was over too quickly is left out; null: waited for
    };
    void advance();
    /// Saves a picture of the window to `file`. Returns an error message, which is empty on success.
    [[nodiscard]] QString takePicture(const QString &file) const;
    void oldBuild();
    void newBuild();
    void downloadedBuild();

    NoteWindow &m_window;
    QString m_folder;
    QUrl m_feed; ///< of the application, while another one is asked
    QList<Step> m_steps;
    QTimer m_timer;
    QElapsedTimer m_waiting;
    QElapsedTimer m_settled;
};

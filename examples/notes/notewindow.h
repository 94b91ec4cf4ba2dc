// SPDX-License-Identifier: MIT
#pragma once

#include "notes.h"

#include <TarvixUpdate/TarvixUpdate.h>

#include <QMainWindow>

class QPlainTextEdit;

/// The application's window. Everything that concerns updates is in the controller and the three functions of
/// its delegate.
class NoteWindow final : public QMainWindow, public TXStandardUpdateControllerDelegate {
    Q_OBJECT
public:
    explicit NoteWindow(const Notes &notes);

    QAction *checkAction = nullptr;
    QAction *newsAction = nullptr;
    QAction *profileAction = nullptr;
    TXStandardUpdateController updates;

    void updateInterfaceForUpdateControllerStatus(TXStandardUpdateController *controller) override;
    std::optional<TXUpdateCurrentConditions>
    currentConditionsForUpdating(TXStandardUpdateController *) override;
    QWidget *sheetParentWindowForUpdater(TXStandardUpdateController *) override { return this; }

    /// Adds to the notes as a user who types does.
    void write(const QString &text);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    /// Asks about unsaved notes; false when the window must stay.
    [[nodiscard]] bool keepsNotes();

    const Notes &m_notes;
    QPlainTextEdit *m_text;
};

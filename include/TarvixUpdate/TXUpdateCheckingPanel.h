// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDialog>

#include <memory>

/// The content of the checking panel. It notifies its panel when the desktop's appearance changes. Thread:
/// main.
class TX_EXPORT TXUpdateCheckingPanelContentView final : public QWidget {
    Q_OBJECT
public:
    /// Created by the interface file. Owned by `parent`.
    explicit TXUpdateCheckingPanelContentView(QWidget *parent = nullptr);
    /// Passes the change on to the panel.
    void viewDidChangeEffectiveAppearance();

protected:
    /// Notices that the appearance changes.
    bool event(QEvent *event) override;
};

/// The small modal panel of a visible check. It shows "Checking for update…" with a Cancel button, and, if
/// nothing newer was found, that the application is up to date, with an OK button. One panel serves all
/// checks. Thread: main. Ownership: the caller owns the panel. Errors: see updateCheckingPanel().
class TX_EXPORT TXUpdateCheckingPanel final : public QDialog {
    Q_OBJECT
public:
    /// A new panel. Null, with a line in the log, if the interface file cannot be loaded. A widget that the
    /// file lacks is left out. If loading throws, for example because a widget has another type, the
    /// application ends after an alert that asks the user to move it.
    static std::unique_ptr<TXUpdateCheckingPanel> updateCheckingPanel();
    ~TXUpdateCheckingPanel() override;

    /// Shows the checking state as an application-modal window, and serves the main thread's work until it is
    /// closed. Returns 1 after close(), 0 after cancel() or if the application quits.
    int runModal();
    /// Ends the modal session with 1. Does nothing unless it runs.
    void close();
    /// Ends the modal session with 0. Does nothing unless it runs.
    void cancel();
    /// Replaces the checking state with the message that there is nothing newer.
    void showUpToDate();
    /// Adapts colours to a light or dark appearance.
    void didChangeEffectiveAppearance();

    /// Escape counts as cancel().
    void reject() override { cancel(); }

protected:
    /// The desktop's close button counts as cancel(). So does the end of the application.
    void closeEvent(QCloseEvent *event) override;
    /// The panel can be moved by its background.
    void mousePressEvent(QMouseEvent *event) override;

private:
    TXUpdateCheckingPanel();
    bool load();

    struct Private;
    const std::unique_ptr<Private> d;
};

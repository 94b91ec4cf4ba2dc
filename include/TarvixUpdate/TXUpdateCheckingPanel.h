// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDialog>

#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;

/// The content of the checking panel; tells its window when the desktop's appearance changes.
class TX_EXPORT TXUpdateCheckingPanelContentView final : public QWidget {
    Q_OBJECT
public:
    explicit TXUpdateCheckingPanelContentView(QWidget *parent = nullptr);
    void viewDidChangeEffectiveAppearance();

protected:
    bool event(QEvent *event) override;
};

/// The small modal panel of a visible check: "Checking for update…" with "Cancel", then, when nothing was
/// found, that the application is up to date, with "OK". Used again for every check. Thread: main. Ownership:
/// the caller's. Errors: no panel without its interface file.
class TX_EXPORT TXUpdateCheckingPanel final : public QDialog {
    Q_OBJECT
public:
    /// Null, with a line in the log, when the interface file cannot be loaded. A part that the file does not
    /// have is left out. When loading it throws - a part is of another kind, for example - the application
    /// ends, after telling the user to move it.
    static std::unique_ptr<TXUpdateCheckingPanel> updateCheckingPanel();
    ~TXUpdateCheckingPanel() override;

    /// Shows the checking state as the application's modal window. 1 after close(), 0 after cancel(), and
    /// when the application quits. Work for the main thread goes on meanwhile.
    int runModal();
    /// End the modal session, with 1 and 0. Nothing unless it runs.
    void close();
    void cancel();
    /// Turns the running panel into the message that there is nothing newer.
    void showUpToDate();
    void didChangeEffectiveAppearance();

    void reject() override { cancel(); }

protected:
    void closeEvent(QCloseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    TXUpdateCheckingPanel();
    bool load();

    std::unique_ptr<QWidget> mTopLevelObjectsInNib; ///< what is not shown in the panel
    QWidget *theContentView = nullptr;
    QLabel *titleField = nullptr;
    QLabel *messageField = nullptr;
    QPushButton *button = nullptr;
    QProgressBar *progressIndicator = nullptr;
    bool _running = false;
};

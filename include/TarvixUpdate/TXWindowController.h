// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDialog>

#include <memory>

/// Owns a window whose content is loaded from an interface file of the framework. The window is loaded on
/// first use. Thread: main. Ownership: the parent owns the controller; without a parent, the caller owns it.
/// Errors: see window().
class TX_EXPORT TXWindowController : public QObject {
    Q_OBJECT
public:
    ~TXWindowController() override; ///< Destroys the window.
    /// The name of the interface file, without its suffix.
    [[nodiscard]] virtual QString windowNibName() const = 0;
    /// The window, loaded now if necessary. Null, with a line in the log, if the interface file cannot be
    /// loaded.
    QDialog *window();
    /// Whether window() has loaded the window.
    [[nodiscard]] bool isWindowLoaded() const;

protected:
    /// The window is loaded later, by window().
    explicit TXWindowController(QObject *parent = nullptr);
    /// Called once after the window has been loaded.
    virtual void windowDidLoad();
    /// The content of the interface file; null while no window is loaded.
    [[nodiscard]] QWidget *contentView() const;
    /// Destroys the window; window() loads it again.
    void unloadWindow();

private:
    struct Private;
    const std::unique_ptr<Private> d;
};

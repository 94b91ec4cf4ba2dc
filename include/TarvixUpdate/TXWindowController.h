// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDialog>

#include <memory>

/// Owns a window whose content comes from an interface file of the framework, loaded when the window is first
/// asked for. Thread: main.
class TX_EXPORT TXWindowController : public QObject {
    Q_OBJECT
public:
    ~TXWindowController() override;
    /// Name of the interface file, without its suffix.
    [[nodiscard]] virtual QString windowNibName() const = 0;
    /// Null, with a line in the log, when the interface file cannot be loaded.
    QDialog *window();
    [[nodiscard]] bool isWindowLoaded() const { return m_window != nullptr; }

protected:
    TXWindowController();
    /// Called once, when the window has been loaded.
    virtual void windowDidLoad();
    [[nodiscard]] QWidget *contentView() const { return m_contentView; }
    /// Destroys the window; window() loads it anew.
    void unloadWindow();

private:
    std::unique_ptr<QDialog> m_window;
    QWidget *m_contentView = nullptr;
    bool m_failed = false;
};

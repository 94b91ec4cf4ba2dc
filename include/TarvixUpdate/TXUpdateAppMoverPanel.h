// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXWindowController.h>

/// A window for hosts that want to explain a move in their own words; the mover itself uses an alert.
/// Thread: main. Ownership: the parent's if there is one, else the caller's.
class TX_EXPORT TXUpdateAppMoverPanel : public TXWindowController {
    Q_OBJECT
public:
    /// The window is created when it is first requested.
    explicit TXUpdateAppMoverPanel(QObject *parent = nullptr);
    /// See TXWindowController.
    [[nodiscard]] QString windowNibName() const override;

protected:
    /// See TXWindowController.
    void windowDidLoad() override;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXWindowController.h>

/// A window for hosts that explain the move in their own words. The mover itself shows an alert instead.
/// Thread: main. Ownership: the parent owns the panel; without a parent, the caller owns it.
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

// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXWindowController.h>

/// A window for hosts that want to explain a move in their own words; the mover itself asks with an alert.
/// Thread: main.
class TX_EXPORT TXUpdateAppMoverPanel : public TXWindowController {
    Q_OBJECT
public:
    TXUpdateAppMoverPanel();
    [[nodiscard]] QString windowNibName() const override;

protected:
    void windowDidLoad() override;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

class TXUpdateVersionRow;

namespace tx {

/// What a row of the list of versions says beside its update.
struct VersionRowState {
    bool isDesignated;
    bool showsBuild;
    bool canBeChosen;
};

/// Fills a row's parts; the button is left to the caller. Thread: main.
void fillVersionRow(TXUpdateVersionRow *row, const TXUpdate &update, const VersionRowState &state);
/// Formats a row in one line for a screen reader.
[[nodiscard]] QString versionRowText(const TXUpdate &update, const VersionRowState &state);

} // namespace tx

// SPDX-License-Identifier: MIT
// Any bytes as a table of translated texts.
#include "base/stringstable.h"
#include "tests/fuzz/target.h"

void fuzz(const QByteArray &input) {
    const auto table = tx::readStringsTable(input);
    if (!table)
        check(!table.error().localizedDescription().isEmpty());
}

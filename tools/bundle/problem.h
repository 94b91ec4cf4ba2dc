// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx::bundling {

/// Makes an error of the publisher's tool: what happened, why, and what to do.
[[nodiscard]] inline TXError problem(const QString &what, const QString &why = {},
                                     const QString &remedy = {}) {
    return TXError(QStringLiteral("TXUpdateBundle"), 1, what, why, remedy);
}

/// Formats an error with all its parts in one line.
[[nodiscard]] inline QString lineOf(const TXError &error) {
    QString line = error.localizedDescription();
    for (const QString &more : {error.localizedFailureReason(), error.localizedRecoverySuggestion()}) {
        if (!more.isEmpty())
            line += (line.endsWith(u'.') ? QStringLiteral(" ") : QStringLiteral(". ")) + more;
    }
    return line;
}

} // namespace tx::bundling

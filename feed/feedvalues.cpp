// SPDX-License-Identifier: MIT
#include "feed/feedvalues.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace tx {

QUrl urlFromFeedText(const QString &text) {
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QUrl url(trimmed, QUrl::TolerantMode);
    return url.isValid() ? url : QUrl();
}

QSizeF sizeFromFeedText(const QString &text) {
    const QSizeF zero(0, 0);
    const QString trimmed = text.trimmed();
    if (!trimmed.startsWith(u'{') || !trimmed.endsWith(u'}'))
        return zero;
    const QStringList parts = trimmed.mid(1, trimmed.size() - 2).split(u',');
    if (parts.size() != 2)
        return zero;
    bool widthOk = false;
    bool heightOk = false;
    const double width = parts[0].trimmed().toDouble(&widthOk);
    const double height = parts[1].trimmed().toDouble(&heightOk);
    if (!widthOk || !heightOk || !std::isfinite(width) || !std::isfinite(height) || width < 0 || height < 0)
        return zero;
    return {width, height};
}

} // namespace tx

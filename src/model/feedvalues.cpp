// SPDX-License-Identifier: MIT
#include "model/feedvalues.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr size_t longestAddress = 64 << 10;
constexpr qsizetype longestSize = 1000;

} // namespace

QUrl urlFromFeedText(const QString &text) {
    if (static_cast<size_t>(text.size()) > longestAddress)
        return {};
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QUrl url(trimmed, QUrl::TolerantMode);
    return url.isValid() ? url : QUrl();
}

namespace {

bool isHexadecimal(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isHostCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '.' || c == '-';
}

/// True for a URL that every parser accepts and leaves unchanged: http or https, a lower-case host name
/// without a port, and then characters that need no encoding.
bool isPlainAddress(std::string_view text) {
    constexpr std::string_view secure = "https://";
    constexpr std::string_view open = "http://";
    size_t position = text.starts_with(secure) ? secure.size() : (text.starts_with(open) ? open.size() : 0);
    const size_t host = position;
    for (char before = '.'; position < text.size() && isHostCharacter(text[position]); ++position) {
        if (before < '0' && text[position] < '0')
            return false; // two dots or dashes in a row, or one at the start
        before = text[position];
    }
    // A name that ends in a letter is not an IP address, for which other rules apply.
    if (host == 0 || position == host || position == text.size() || text[position] != '/' ||
        text[position - 1] < 'a')
        return false;
    for (; position < text.size(); ++position) {
        const char c = text[position];
        const bool plain = isHexadecimal(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '/' ||
                           c == '-' || c == '.' || c == '_' || c == '~';
        if (!plain)
            return false;
    }
    return true;
}

} // namespace

QUrl urlFromFeedText(std::string_view text) {
    if (text.size() > longestAddress)
        return {};
    return urlFromFeedText(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
}

QByteArray encodedUrlFromFeedText(std::string_view text) {
    if (text.empty() || text.size() > longestAddress)
        return {};
    const auto size = static_cast<qsizetype>(text.size());
    if (isPlainAddress(text))
        return {text.data(), size};
    return urlFromFeedText(text).toEncoded();
}

bool isFeedAddress(std::string_view text) {
    return (text.size() <= longestAddress && isPlainAddress(text)) || !encodedUrlFromFeedText(text).isEmpty();
}

QSizeF sizeFromFeedText(const QString &text) {
    const QSizeF zero(0, 0);
    if (text.size() > longestSize)
        return zero;
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

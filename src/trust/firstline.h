// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The first line of a signed feed. It is cut off here and never reaches a parser, so that nothing in it can
/// be taken for a part of the feed.
namespace tx::trust {

enum class FeedFormat { Json, Xml };

/// With its line feed. Bytes.
inline constexpr size_t mostLineBytes = 64 << 10;

struct FirstLine {
    FeedFormat format = FeedFormat::Json;
    std::vector<std::string> texts; ///< the signatures, with real line feeds
    size_t bodyAt = 0;              ///< where the signed bytes begin, in the document
};

/// Parses the first line of a document. Absent if the document does not begin like a signed feed, and thus
/// has no signature. Faults: FeedLine or Signature, if it begins like one but is malformed.
Outcome<std::optional<FirstLine>> parseFirstLine(std::string_view document);

/// Makes the first line with these signatures, including its line feed. Fault: Input, if the line would be
/// too long or a signature contains a forbidden character.
Outcome<std::string> makeFirstLine(FeedFormat format, const std::vector<std::string> &texts);

/// For hosts that do not verify feeds: the format, and the offset of the feed after the signature line. The
/// signatures are not parsed. Absent if the document has no such line; then the whole document is the feed.
struct UnreadLine {
    FeedFormat format;
    size_t bodyAt;
};
[[nodiscard]] std::optional<UnreadLine> findUnreadLine(std::string_view document);

/// Makes what a reader is given, in place: writes the document's beginning, "{" or the XML declaration, right
/// before its body at `bodyAt`, over the end of the first line. Returns where the document begins now.
[[nodiscard]] size_t putBeginningBeforeBody(char *document, FeedFormat format, size_t bodyAt);

/// Whether the bytes behind the first line are UTF-8 without NUL, byte order mark and declaration of their
/// own. With any of these a reader could see something else in them than their signer did. Fault: FeedLine.
[[nodiscard]] Verdict checkBody(std::string_view body, FeedFormat format);

} // namespace tx::trust

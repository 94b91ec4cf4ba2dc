// SPDX-License-Identifier: MIT
#include "trust/feeds.h"

#include "trust/encoding.h"

namespace tx::trust {

namespace {

Fault malformed(std::string_view name, std::optional<std::string_view> value, const std::string &expected) {
    return {FaultKind::Signature, expected + " was expected behind \"" + std::string(name) +
                                      ":\" in the trusted comment of the feed, \"" +
                                      (value ? shown(*value) : "") + "\" was found"};
}

Fault mismatch(const std::string &what, const std::string &found, const std::string &expected) {
    return {FaultKind::Mismatch, "the feed was signed for " + what + " \"" + shown(found) +
                                     "\", expected was \"" + shown(expected) + "\""};
}

} // namespace

std::string feedComment(const FeedClaim &claim) {
    return std::string(feedWord) + " bundle:" + encodeValue(claim.bundle) +
           " feed:" + encodeValue(claim.feed) + " serial:" + std::to_string(claim.serial) +
           " expires:" + (claim.expires ? formatDate(*claim.expires) : "never");
}

Outcome<FeedClaim> parseFeedComment(const Words &words) {
    FeedClaim claim;
    for (const auto &[name, member] : {std::pair{"bundle", &claim.bundle}, std::pair{"feed", &claim.feed}}) {
        const std::optional<std::string_view> value = words.value(name);
        const std::optional<std::string> text = value ? decodeValue(*value) : std::nullopt;
        if (!text)
            return malformed(name, value, "UTF-8 with %XX");
        *member = *text;
    }
    const std::optional<std::string_view> serial = words.value("serial");
    const std::optional<uint64_t> number = serial ? parseNumber(*serial) : std::nullopt;
    if (!number)
        return malformed("serial", serial, "A number of seconds");
    claim.serial = *number;
    const std::optional<std::string_view> expires = words.value("expires");
    if (!expires || *expires != "never") {
        claim.expires = expires ? parseDate(*expires) : std::nullopt;
        if (!claim.expires)
            return malformed("expires", expires, "A date of the form YYYY-MM-DDTHH:MM:SSZ or \"never\"");
        // Below zero it is long past, which is not malformed.
        if (*claim.expires > 0 &&
            static_cast<uint64_t>(*claim.expires) > claim.serial + uint64_t(longestValidity))
            return malformed("expires", expires,
                             "A date of at most 400 days after the serial, or \"never\",");
    }
    return claim;
}

Outcome<VerifiedFeed> VerifiedFeed::verify(const PublicKeys &keys, std::span<char> document,
                                           const WantedFeed &wanted) {
    const std::string_view all(document.data(), document.size());
    const Outcome<std::optional<FirstLine>> line = parseFirstLine(all);
    if (!line)
        return line.fault();
    if (!*line)
        return Fault{FaultKind::Unsigned,
                     "the feed has no signature: its first line is not one. Sign it with "
                     "\"txupdate feed sign\""};
    const Outcome<std::vector<UsableText>> texts =
        usableTexts(viewsOf((*line)->texts), feedWord, keys, &PublicKeys::feedKey);
    if (!texts)
        return texts.fault();
    const std::string_view body = all.substr((*line)->bodyAt);
    if (const Verdict forged = verifyAll(*texts, digestOf(body), "feed"))
        return *forged;
    Outcome<FeedClaim> claim = parseFeedComment(texts->front().text.words());
    if (!claim)
        return claim.fault();
    if (claim->bundle != wanted.bundle)
        return mismatch("the application", claim->bundle, wanted.bundle);
    if (claim->feed != wanted.feed)
        return mismatch("the name", claim->feed, wanted.feed);
    if (const Verdict refused = checkBody(body, (*line)->format))
        return *refused;
    VerifiedFeed feed;
    feed.m_claim = *std::move(claim);
    feed.m_format = (*line)->format;
    feed.m_documentAt = putBeginningBeforeBody(document.data(), feed.m_format, (*line)->bodyAt);
    return feed;
}

} // namespace tx::trust

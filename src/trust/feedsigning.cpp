// SPDX-License-Identifier: MIT
#include "trust/feedsigning.h"

#include "trust/encoding.h"
#include "trust/freshness.h"

#include <algorithm>

namespace tx::trust {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

Fault input(const std::string &what) { return {FaultKind::Input, what}; }

std::string_view withoutBlanks(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t\r\n");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

/// What is to be signed of a feed without a signature: all behind the beginning that the first line replaces.
Outcome<std::string_view> bodyOf(std::string_view document, FeedFormat format) {
    const std::string_view rest = withoutBlanks(document);
    if (format == FeedFormat::Json) {
        if (rest.substr(0, 1) != "{")
            return input("a JSON feed was expected, an object in braces");
        return rest.substr(1);
    }
    constexpr std::string_view declaration = "<?xml ";
    if (rest.substr(0, declaration.size()) != declaration)
        return rest;
    const size_t end = rest.find("?>");
    if (end == std::string_view::npos)
        return input("the XML declaration of the feed has no end");
    return withoutBlanks(rest.substr(end + 2));
}

/// The largest of an earlier signature; absent when there is none.
Outcome<std::optional<uint64_t>> serialOf(const std::vector<std::string> &texts) {
    std::optional<uint64_t> result;
    for (const std::string &text : texts) {
        const Outcome<SignatureText> parsed = SignatureText::parse(text);
        if (!parsed)
            return parsed.fault();
        if (parsed->words().first() != feedWord)
            continue;
        const Outcome<FeedClaim> claim = parseFeedComment(parsed->words());
        if (!claim)
            return claim.fault();
        result = std::max(result.value_or(0), claim->serial);
    }
    return result;
}

} // namespace

Outcome<SignedFeedDocument> signFeed(std::string_view document, FeedFormat format,
                                     const std::vector<const SecretKey *> &keys, const FeedSigning &signing) {
    if (signing.bundle.empty() || signing.feed.empty())
        return input("the application's identifier and the feed's name are needed");
    if (signing.validDays && (*signing.validDays < 1 || *signing.validDays * aDay > longestValidity))
        return input("a signature is valid for 1 to 400 days, or never expires");
    if (keys.empty() || keys.size() > mostTexts)
        return input("1 to 8 keys are needed");
    SignedFeedDocument result;
    if (document.substr(0, byteOrderMark.size()) == byteOrderMark)
        document.remove_prefix(byteOrderMark.size());
    const Outcome<std::optional<FirstLine>> line = parseFirstLine(document);
    if (!line)
        return Fault{line.fault().kind, line.fault().what + ". Remove it, and sign again"};
    std::string body;
    if (*line && (*line)->format == format) {
        const Outcome<std::optional<uint64_t>> previous = serialOf((*line)->texts);
        if (!previous)
            return Fault{previous.fault().kind, "in the earlier signature of the feed: " +
                                                    previous.fault().what + ". Remove it, and sign again"};
        result.previousSerial = *previous;
        body = document.substr((*line)->bodyAt);
    } else {
        const Outcome<std::string_view> found = bodyOf(document, format);
        if (!found)
            return found.fault();
        body = *found;
    }
    if (format == FeedFormat::Json && withoutBlanks(body).substr(0, 1) == "}")
        body.insert(0, "\"release\":[]");
    if (const Verdict refused = checkBody(body, format))
        return Fault{FaultKind::Input, refused->what};

    const auto now = static_cast<uint64_t>(std::max<int64_t>(signing.now, 0));
    if (result.previousSerial && *result.previousSerial > now + uint64_t(aDay))
        return input(
            "the earlier signature of the feed is more than a day ahead of this machine's clock, so hosts "
            "would refuse what follows it. Set the clock; if it is right, remove the feed's first line and "
            "sign again, which hosts that accepted that signature take for an old feed until its time");
    result.claim.bundle = signing.bundle;
    result.claim.feed = signing.feed;
    result.claim.serial = result.previousSerial ? std::max(now, *result.previousSerial + 1) : now;
    if (signing.validDays)
        result.claim.expires = static_cast<int64_t>(result.claim.serial) + *signing.validDays * aDay;

    const Digest digest = digestOf(body);
    std::vector<std::string> texts;
    std::vector<std::string> publicTexts;
    for (const SecretKey *key : keys) {
        texts.push_back(makeSignatureText(*key, digest, feedComment(result.claim)));
        publicTexts.push_back("minisign-feed:" + keyLine(key->publicKey()));
    }
    const Outcome<std::string> firstLine = makeFirstLine(format, texts);
    if (!firstLine)
        return firstLine.fault();
    result.document = *firstLine + body;

    // As a host reads it.
    const Outcome<PublicKeys> publicKeys = PublicKeys::parse(publicTexts);
    if (!publicKeys)
        return input("the keys cannot sign together: " + publicKeys.fault().what);
    std::string copy = result.document;
    const Outcome<VerifiedFeed> verified =
        VerifiedFeed::verify(*publicKeys, {copy.data(), copy.size()}, {signing.bundle, signing.feed});
    if (!verified)
        return verified.fault();
    if (verified->claim() != result.claim)
        return input("the signature does not say what was asked for");
    return result;
}

} // namespace tx::trust

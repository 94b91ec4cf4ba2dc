// SPDX-License-Identifier: MIT
#include "trust/archives.h"

#include "trust/encoding.h"

#include <sodium/crypto_sign_ed25519.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace tx::trust {

namespace {

Fault malformed(const std::string &what) { return {FaultKind::Signature, what}; }

Fault mismatch(const std::string &what, const std::string &found, const std::string &expected) {
    return {FaultKind::Mismatch, "the signature is for " + what + " \"" + shown(found) +
                                     "\", expected was \"" + shown(expected) + "\""};
}

/// A word's value decoded; the fault says what is missing.
Outcome<std::string> decoded(const Words &words, std::string_view name) {
    const std::optional<std::string_view> value = words.value(name);
    if (!value)
        return malformed("the word \"" + std::string(name) + ":\" is missing in the trusted comment");
    std::optional<std::string> text = decodeValue(*value);
    if (!text)
        return malformed("the value of \"" + std::string(name) +
                         ":\" in the trusted comment is not UTF-8 with %XX, \"" + shown(*value) + "\"");
    return *text;
}

Verdict compare(const ArchiveClaim &claim, const WantedArchive &wanted) {
    if (claim.bundle != wanted.bundle)
        return mismatch("the application", claim.bundle, wanted.bundle);
    if (wanted.build && claim.build != *wanted.build)
        return mismatch("build", claim.build, *wanted.build);
    if (claim.feed && wanted.feed && *claim.feed != *wanted.feed)
        return mismatch("the feed", *claim.feed, *wanted.feed);
    return std::nullopt;
}

} // namespace

std::string archiveComment(const ArchiveClaim &claim) {
    std::string comment = std::string(archiveWord) + " bundle:" + encodeValue(claim.bundle) +
                          " build:" + encodeValue(claim.build) + " size:" + std::to_string(claim.size);
    if (claim.feed)
        comment += " feed:" + encodeValue(*claim.feed);
    return comment;
}

Outcome<ArchiveClaim> parseArchiveComment(const Words &words) {
    ArchiveClaim claim;
    for (const auto &[name, member] :
         {std::pair{"bundle", &claim.bundle}, std::pair{"build", &claim.build}}) {
        Outcome<std::string> value = decoded(words, name);
        if (!value)
            return value.fault();
        *member = *std::move(value);
    }
    const std::optional<std::string_view> size = words.value("size");
    const std::optional<uint64_t> number = size ? parseNumber(*size) : std::nullopt;
    if (!number)
        return malformed("a number of bytes was expected behind \"size:\" in the trusted comment, \"" +
                         (size ? shown(*size) : "") + "\" was found");
    claim.size = *number;
    if (words.value("feed")) {
        Outcome<std::string> feed = decoded(words, "feed");
        if (!feed)
            return feed.fault();
        claim.feed = *std::move(feed);
    }
    return claim;
}

Outcome<PlainSignature> PlainSignature::parse(std::string_view signature, std::string_view length) {
    PlainSignature result;
    if (!decodeBase64(signature, result.bytes.data(), result.bytes.size()))
        return malformed("the Base64 of 64 bytes was expected as the archive's signature, \"" +
                         shown(signature) + "\" was found");
    const std::optional<uint64_t> size = parseNumber(length);
    if (!size || *size == 0)
        return malformed("a signed archive needs its \"length\", a number of bytes; \"" + shown(length) +
                         "\" was found");
    result.size = *size;
    return result;
}

Outcome<ArchiveProof> ArchiveProof::find(const PublicKeys &keys, const ArchiveSignatures &signatures,
                                         const WantedArchive &wanted) {
    return find(keys, viewsOf(signatures.texts), signatures.plain, wanted, Comments::Verified);
}

Verdict ArchiveProof::examine(const PublicKeys &keys, std::span<const std::string_view> texts,
                              const std::optional<PlainSignature> &plain, const WantedArchive &wanted) {
    const Outcome<ArchiveProof> proof = find(keys, texts, plain, wanted, Comments::Unverified);
    return proof ? Verdict() : proof.fault();
}

Outcome<ArchiveProof> ArchiveProof::find(const PublicKeys &keys, std::span<const std::string_view> given,
                                         const std::optional<PlainSignature> &plain,
                                         const WantedArchive &wanted, Comments comments) {
    ArchiveProof proof;
    Outcome<std::vector<UsableText>> texts =
        usableTexts(given, archiveWord, keys, &PublicKeys::archiveKey, comments);
    if (texts) {
        Outcome<ArchiveClaim> claim = parseArchiveComment(texts->front().text.words());
        if (!claim)
            return claim.fault();
        if (const Verdict refused = compare(*claim, wanted))
            return *refused;
        proof.m_size = claim->size;
        proof.m_claim = *std::move(claim);
        proof.m_texts = *std::move(texts);
        return proof;
    }
    std::copy_if(keys.all().begin(), keys.all().end(), std::back_inserter(proof.m_plainKeys),
                 [](const PublicKey &key) { return key.use == KeyUse::PlainArchives; });
    // A bad signature text is an error, whatever else there is.
    if (texts.fault().kind != FaultKind::Unsigned || !plain || proof.m_plainKeys.empty())
        return texts.fault();
    proof.m_size = plain->size;
    proof.m_plain = plain->bytes;
    return proof;
}

Verdict ArchiveProof::check(const DigestStream &archive) const {
    if (archive.size() != m_size)
        return Fault{FaultKind::Mismatch, "the archive has " + std::to_string(archive.size()) +
                                              " bytes, the signature is for " + std::to_string(m_size)};
    if (needsBytes())
        return std::nullopt;
    return verifyAll(m_texts, archive.digest(), "archive");
}

Verdict ArchiveProof::checkBytes(const unsigned char *bytes, size_t size) const {
    const bool isSigned = std::any_of(m_plainKeys.begin(), m_plainKeys.end(), [&](const PublicKey &key) {
        return crypto_sign_ed25519_verify_detached(m_plain.data(), bytes, size, key.bytes.data()) == 0;
    });
    if (!isSigned)
        return Fault{FaultKind::Forged,
                     "the archive is not the one that the application's plain key has signed"};
    return std::nullopt;
}

} // namespace tx::trust

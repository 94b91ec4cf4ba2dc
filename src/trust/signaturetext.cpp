// SPDX-License-Identifier: MIT
#include "trust/signaturetext.h"

#include "trust/encoding.h"

#include <sodium/crypto_sign_ed25519.h>

#include <algorithm>

namespace tx::trust {

namespace {

constexpr std::string_view legacy = "Ed";
constexpr size_t linesOfText = 4;

Fault malformed(const std::string &what) { return {FaultKind::Signature, what}; }

bool verifyBytes(const SignatureBytes &signature, std::string_view message, const PublicKey &key) {
    return crypto_sign_ed25519_verify_detached(signature.data(),
                                               reinterpret_cast<const unsigned char *>(message.data()),
                                               message.size(), key.bytes.data()) == 0;
}

/// Of a digest, too.
std::string_view viewOf(const std::array<unsigned char, 64> &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// A word of a trusted comment, "name:value".
struct Word {
    std::string_view text;
    std::string_view name;
    std::string_view value;
};

/// Takes the first word and the blank behind it off `rest`, which is null after the last one.
Word takeWord(std::string_view &rest) {
    Word word;
    const size_t end = std::min(rest.find(' '), rest.size());
    word.text = rest.substr(0, end);
    rest = end == rest.size() ? std::string_view() : rest.substr(end + 1);
    const size_t colon = std::min(word.text.find(':'), word.text.size());
    word.name = word.text.substr(0, colon);
    if (colon < word.text.size())
        word.value = word.text.substr(colon + 1);
    return word;
}

std::vector<std::string_view> sortedWords(std::string_view comment) {
    std::vector<std::string_view> words;
    while (comment.data())
        words.push_back(takeWord(comment).text);
    std::sort(words.begin(), words.end());
    return words;
}

bool isWordName(std::string_view name) {
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; });
}

} // namespace

Outcome<Words> Words::parse(std::string_view comment) {
    std::vector<std::string_view> names;
    std::string_view rest = comment;
    do {
        const Word word = takeWord(rest);
        if (!isWordName(word.name) || word.value.empty())
            return malformed(
                "words of the form name:value with one blank between them were expected in the trusted "
                "comment, \"" +
                shown(word.text) + "\" was found");
        names.push_back(word.name);
    } while (rest.data());
    std::sort(names.begin(), names.end());
    if (const auto twice = std::adjacent_find(names.begin(), names.end()); twice != names.end())
        return malformed("the word \"" + shown(*twice) + "\" occurs twice in the trusted comment");
    return Words(comment);
}

std::string_view Words::first() const {
    std::string_view rest = m_comment;
    return takeWord(rest).text;
}

std::optional<std::string_view> Words::value(std::string_view name) const {
    std::string_view rest = m_comment;
    takeWord(rest);
    while (rest.data()) {
        const Word word = takeWord(rest);
        if (word.name == name)
            return word.value;
    }
    return std::nullopt;
}

bool Words::isSame(const Words &other) const {
    return first() == other.first() && sortedWords(m_comment) == sortedWords(other.m_comment);
}

Outcome<SignatureText> SignatureText::parse(std::string_view text) {
    std::array<std::string_view, linesOfText> lines;
    std::string_view rest = text;
    for (std::string_view &line : lines) {
        const size_t end = rest.find('\n');
        if (end == std::string_view::npos)
            return malformed(
                "four lines were expected in a signature, each ended by a line feed; it ends before");
        line = rest.substr(0, end);
        rest.remove_prefix(end + 1);
    }
    if (!rest.empty())
        return malformed("four lines were expected in a signature, there are more");
    if (lines[0] != untrustedLine)
        return malformed("the first line of a signature must be \"untrusted comment: txupdate\", not \"" +
                         shown(lines[0]) + "\". Sign with \"minisign -c txupdate\" or with txupdate");
    SignatureText result;
    std::array<unsigned char, 2 + 8 + 64> bytes{};
    if (!decodeBase64(lines[1], bytes.data(), bytes.size()))
        return malformed("the Base64 of 74 bytes was expected in the second line of a signature, \"" +
                         shown(lines[1]) + "\" was found");
    const std::string_view algorithm(reinterpret_cast<const char *>(bytes.data()), 2);
    if (algorithm == legacy)
        return malformed(
            "the signature has minisign's legacy form, which is not accepted. Sign again without -l, "
            "with minisign 0.10 or newer with -H");
    if (algorithm != prehashed)
        return malformed("the signature is of an unknown kind, \"" + shown(algorithm) + "\"");
    std::copy_n(bytes.begin() + 2, result.number.size(), result.number.begin());
    std::copy_n(bytes.begin() + 10, result.signature.size(), result.signature.begin());
    if (lines[2].substr(0, trustedPrefix.size()) != trustedPrefix)
        return malformed("the third line of a signature must begin with \"trusted comment: \", not \"" +
                         shown(lines[2]) + "\"");
    result.comment = lines[2].substr(trustedPrefix.size());
    if (!decodeBase64(lines[3], result.commentSignature.data(), result.commentSignature.size()))
        return malformed("the Base64 of 64 bytes was expected in the fourth line of a signature, \"" +
                         shown(lines[3]) + "\" was found");
    if (const Outcome<Words> words = Words::parse(result.comment); !words)
        return words.fault();
    return result;
}

bool SignatureText::verifyComment(const PublicKey &key) const {
    return verifyBytes(commentSignature, std::string(viewOf(signature)) + comment, key);
}

bool SignatureText::verify(const Digest &digest, const PublicKey &key) const {
    return verifyBytes(signature, viewOf(digest), key);
}

Outcome<std::vector<std::string>> splitTexts(std::string_view joined) {
    if (joined.size() > mostTextBytes)
        return malformed("at most 64 KiB of signatures were expected, these are " +
                         std::to_string(joined.size()) + " bytes");
    std::vector<std::string> result;
    size_t begin = 0;
    while (begin < joined.size()) {
        size_t end = begin;
        for (size_t line = 0; line < linesOfText; ++line) {
            end = joined.find('\n', end);
            if (end == std::string_view::npos)
                return malformed(
                    "four lines were expected in each signature, each ended by a line feed; the last "
                    "one is not complete");
            ++end;
        }
        result.emplace_back(joined.substr(begin, end - begin));
        begin = end;
    }
    return result;
}

Outcome<std::vector<std::string>> splitEscapedTexts(std::string_view escaped) {
    if (escaped.size() > mostTextBytes)
        return splitTexts(escaped);
    std::string joined;
    for (size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '\n')
            return malformed("line feeds in a signature must be written as \\n here");
        if (escaped[i] != '\\') {
            joined += escaped[i];
            continue;
        }
        ++i;
        if (i == escaped.size() || escaped[i] != 'n')
            return malformed("a backslash in a signature may only be that of \\n");
        joined += '\n';
    }
    return splitTexts(joined);
}

std::string escapeLineFeeds(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n')
            result += "\\n";
        else
            result += c;
    }
    return result;
}

std::vector<std::string_view> viewsOf(const std::vector<std::string> &texts) {
    return {texts.begin(), texts.end()};
}

Outcome<std::vector<UsableText>> usableTexts(std::span<const std::string_view> texts,
                                             std::string_view firstWord, const PublicKeys &keys,
                                             KeyLookup keyOf, Comments comments) {
    if (texts.empty())
        return Fault{FaultKind::Unsigned, "there is no signature"};
    if (texts.size() > mostTexts)
        return malformed("at most 8 signatures were expected, these are " + std::to_string(texts.size()));
    size_t bytes = 0;
    for (const std::string_view text : texts)
        bytes += text.size();
    if (bytes > mostTextBytes)
        return malformed("at most 64 KiB of signatures were expected, these are " + std::to_string(bytes) +
                         " bytes");
    std::vector<UsableText> result;
    std::string skipped;
    for (const std::string_view text : texts) {
        Outcome<SignatureText> parsed = SignatureText::parse(text);
        if (!parsed)
            return parsed.fault();
        const PublicKey *key = (keys.*keyOf)(parsed->number);
        if (!key || parsed->words().first() != firstWord) {
            skipped += "; one is by key " + keyNumberText(parsed->number) + ", \"" +
                       shown(parsed->words().first()) + "\"";
            continue;
        }
        if (comments == Comments::Verified && !parsed->verifyComment(*key))
            return Fault{FaultKind::Forged, "the trusted comment of the signature by key " +
                                                keyNumberText(key->number) +
                                                " was changed after it was signed"};
        if (!result.empty() && !result.front().text.words().isSame(parsed->words()))
            return Fault{FaultKind::Mismatch,
                         "all signatures must have the same words in their trusted comments, these have \"" +
                             shown(result.front().text.comment) + "\" and \"" + shown(parsed->comment) +
                             "\""};
        result.push_back({*key, *std::move(parsed)});
    }
    if (result.empty())
        return Fault{FaultKind::Unsigned, "no signature with \"" + std::string(firstWord) +
                                              "\" is by one of the application's keys" + skipped};
    return result;
}

Verdict verifyAll(const std::vector<UsableText> &texts, const Digest &digest, const std::string &what) {
    if (texts.empty()) // never so; but an empty list must not verify anything
        return Fault{FaultKind::Unsigned, "there is no signature"};
    for (const UsableText &usable : texts) {
        if (!usable.text.verify(digest, usable.key))
            return Fault{FaultKind::Forged, "the " + what + " is not the one that key " +
                                                keyNumberText(usable.key.number) + " has signed"};
    }
    return std::nullopt;
}

} // namespace tx::trust

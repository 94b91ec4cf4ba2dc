// SPDX-License-Identifier: MIT
// Any bytes as signatures, keys and their values. What is read is written again, which gives the same bytes,
// as each has one form only.
#include "tests/fuzz/target.h"
#include "trust/archives.h"
#include "trust/encoding.h"

using namespace tx::trust;

namespace {

std::string joined(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts)
        all += text;
    return all;
}

std::string written(const SignatureText &text) {
    std::string bytes(prehashed);
    bytes.append(text.number.begin(), text.number.end());
    bytes.append(text.signature.begin(), text.signature.end());
    return std::string(untrustedLine) + '\n' +
           base64(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size()) + '\n' +
           std::string(trustedPrefix) + text.comment + '\n' +
           base64(text.commentSignature.data(), text.commentSignature.size()) + '\n';
}

/// A key whose secret half nobody has kept.
const PublicKeys &someKeys() {
    static const auto keys =
        PublicKeys::parse({"minisign:RWSUWpSkgT5NnRzdS5Niy5vMTLJ/i0yPF1dcJIVICwL6oephaIVM64XJ"});
    return *keys;
}

void lookAtTexts(const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
        const auto parsed = SignatureText::parse(text);
        if (!parsed) {
            check(!parsed.fault().what.empty());
            continue;
        }
        check(written(*parsed) == text);
        check(parsed->words().isSame(parsed->words()));
        if (const auto claim = parseArchiveComment(parsed->words())) {
            const std::string comment = archiveComment(*claim);
            const auto again = Words::parse(comment);
            check(again && *parseArchiveComment(*again) == *claim);
        }
    }
    check(!ArchiveProof::find(someKeys(), {texts, {}}, {"org.example.Host", {}, {}}));
}

} // namespace

void fuzz(const QByteArray &input) {
    const std::string text = input.toStdString();
    if (const auto texts = splitTexts(text)) {
        check(joined(*texts) == text);
        lookAtTexts(*texts);
    }
    if (const auto texts = splitEscapedTexts(text)) {
        check(escapeLineFeeds(joined(*texts)) == text);
        lookAtTexts(*texts);
    }
    lookAtTexts({text});
    if (const auto value = decodeValue(text))
        check(encodeValue(*value) == text);
    check(!decodeValue(encodeValue(text)) || *decodeValue(encodeValue(text)) == text);
    if (const auto number = parseNumber(text))
        check(std::to_string(*number) == text);
    if (const auto date = parseDate(text))
        check(formatDate(*date) == text);
    if (const auto key = parseKeyLine(text))
        check(keyLine(*key) == text);
    (void)PublicKeys::parse({text});
    (void)PlainSignature::parse(text, text);
}

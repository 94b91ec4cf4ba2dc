// SPDX-License-Identifier: MIT
#include "model/entrysignatures.h"

#include "model/feedentry.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace tx {

using Member = FeedEntry::Member;

namespace {

std::vector<std::string_view> splitAtNul(std::string_view texts) {
    std::vector<std::string_view> result;
    for (size_t begin = 0, end = 0; end < texts.size(); begin = end + 1) {
        end = std::min(texts.find('\0', begin), texts.size());
        result.push_back(texts.substr(begin, end - begin));
    }
    return result;
}

} // namespace

EntrySignatures EntrySignatures::of(const FeedEntry &entry) {
    const auto text = [&entry](Member member) { return std::string(entry.bytes(member)); };
    return {text(Member::Signature), text(Member::EscapedSignature), text(Member::PlainSignature),
            text(Member::Length)};
}

trust::Outcome<trust::ArchiveSignatures> EntrySignatures::parse() const {
    trust::ArchiveSignatures result;
    for (const std::string_view text : splitAtNul(texts))
        result.texts.emplace_back(text);
    const trust::Outcome<std::vector<std::string>> split = trust::splitEscapedTexts(escaped);
    if (!split)
        return split.fault();
    result.texts.insert(result.texts.end(), split->begin(), split->end());
    if (plain.empty())
        return result;
    const trust::Outcome<trust::PlainSignature> parsed = trust::PlainSignature::parse(plain, length);
    if (parsed)
        result.plain = *parsed;
    else if (result.texts.empty())
        return parsed.fault();
    return result;
}

trust::Verdict examineSignatures(const FeedEntry &entry, const trust::PublicKeys &keys,
                                 const trust::WantedArchive &wanted) {
    if (!entry.has(Member::EscapedSignature) && !entry.has(Member::PlainSignature))
        return trust::ArchiveProof::examine(keys, splitAtNul(entry.bytes(Member::Signature)), {}, wanted);
    const trust::Outcome<trust::ArchiveSignatures> signatures = EntrySignatures::of(entry).parse();
    if (!signatures)
        return signatures.fault();
    return trust::ArchiveProof::examine(keys, trust::viewsOf(signatures->texts), signatures->plain, wanted);
}

} // namespace tx

// SPDX-License-Identifier: MIT
#include "model/entrysignatures.h"

#include "model/feedentry.h"

#include <algorithm>

namespace tx {

using Member = FeedEntry::Member;

EntrySignatures EntrySignatures::of(const FeedEntry &entry) {
    const auto text = [&entry](Member member) { return std::string(entry.bytes(member)); };
    return {text(Member::Signature), text(Member::EscapedSignature), text(Member::PlainSignature),
            text(Member::Length)};
}

trust::Outcome<trust::ArchiveSignatures> EntrySignatures::parse() const {
    trust::ArchiveSignatures result;
    for (size_t begin = 0, end = 0; end < texts.size(); begin = end + 1) {
        end = std::min(texts.find('\0', begin), texts.size());
        result.texts.push_back(texts.substr(begin, end - begin));
    }
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

} // namespace tx

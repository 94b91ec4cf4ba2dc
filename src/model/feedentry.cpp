// SPDX-License-Identifier: MIT
#include "model/feedentry.h"

#include <QStringList>

#include <bit>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr std::array<std::string_view, FeedEntry::memberCount> names{
    "type",
    "title",
    "description",
    "date",
    "build",
    "version",
    "releaseNotesURL",
    "downloadURL",
    "webpageURL",
    "autodownload",
    "preferredDisplaySize",
    "minSystemVersion",
    "maxSystemVersion",
    "minBuild",
    "maxBuild",
    "launch",
    "endDate",
    "display",
    "postURL",
    "url",
    "signature",
    // The following are not members of JSON feeds.
    "",
    "",
    "",
    "",
};

constexpr size_t longestName = 20;

/// For each length, the members whose names have that length, one bit each.
constexpr auto membersOfLength = [] {
    std::array<uint32_t, longestName + 1> result{};
    for (size_t i = 0; i < names.size(); ++i) {
        if (!names[i].empty())
            result[names[i].size()] |= uint32_t(1) << i;
    }
    return result;
}();

} // namespace

std::optional<FeedEntry::Member> FeedEntry::memberNamed(std::string_view name) {
    // This runs for every member of every entry: the length leaves few names to compare with.
    uint32_t candidates = name.size() < membersOfLength.size() ? membersOfLength[name.size()] : 0;
    for (; candidates != 0; candidates &= candidates - 1) {
        const auto i = static_cast<size_t>(std::countr_zero(candidates));
        if (names[i].front() == name.front() && names[i] == name)
            return static_cast<Member>(i);
    }
    return std::nullopt;
}

void FeedEntry::setOwned(Member member, std::string text) {
    for (auto &[owner, owned] : m_owned) {
        if (owner == member) {
            owned = std::move(text);
            set(member, owned);
            return;
        }
    }
    set(member, m_owned.emplace_front(member, std::move(text)).second);
}

std::string_view FeedEntry::nameOf(Member member) { return names[static_cast<size_t>(member)]; }

QString FeedEntry::text(Member member) const {
    const std::string_view utf8 = bytes(member);
    if (!utf8.data())
        return {};
    return utf8.empty() ? u""_s : QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

QString FeedEntry::description() const {
    constexpr size_t longest = 1000; // of each text, for a log line
    QStringList parts;
    for (size_t i = 0; i < memberCount; ++i) {
        const auto member = static_cast<Member>(i);
        if (!has(member))
            continue;
        const std::string_view whole = bytes(member);
        const std::string_view shown = whole.substr(0, longest);
        parts << QString::fromLatin1(names[i].data(), static_cast<qsizetype>(names[i].size())) + u" = "_s +
                     QString::fromUtf8(shown.data(), static_cast<qsizetype>(shown.size()));
        if (shown.size() < whole.size())
            parts.last() += u"... (%1 bytes)"_s.arg(whole.size());
    }
    return u'{' + parts.join(u"; "_s) + u'}';
}

} // namespace tx

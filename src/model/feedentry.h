// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <array>
#include <forward_list>
#include <optional>
#include <string>
#include <string_view>

namespace tx {

/// The members of one feed entry that the parsers know, as strings. It refers to the document's bytes and
/// makes a QString only on request, because most entries of a long feed are dropped after three of their
/// members have been read. Thread: a value; the document must outlive it.
class FeedEntry {
public:
    enum class Member : size_t {
        Type,
        Title,
        Description,
        Date,
        Build,
        Version,
        ReleaseNotesURL,
        DownloadURL,
        WebpageURL,
        Autodownload,
        PreferredDisplaySize,
        MinSystemVersion,
        MaxSystemVersion,
        MinBuild,
        MaxBuild,
        Launch,
        EndDate,
        Display,
        PostURL,
        Url,
        Signature, ///< the signatures, separated by NUL
        // Only in appcasts:
        Extra,
        EscapedSignature,
        PlainSignature,
        Length, ///< the enclosure's length
    };
    FeedEntry() = default;
    FeedEntry(FeedEntry &&) = default;
    FeedEntry(const FeedEntry &) = delete;
    FeedEntry &operator=(const FeedEntry &) = delete;

    static constexpr size_t memberCount = static_cast<size_t>(Member::Length) + 1;

    /// The member of that name in a JSON feed; absent for a name that its reader does not know.
    static std::optional<Member> memberNamed(std::string_view name);
    static std::string_view nameOf(Member member);

    /// `text` must outlive the entry.
    void set(Member member, std::string_view text) { m_texts[static_cast<size_t>(member)] = text; }
    void setOwned(Member member, std::string text);
    void clear(Member member) { m_texts[static_cast<size_t>(member)] = {}; }

    [[nodiscard]] bool has(Member member) const {
        return m_texts[static_cast<size_t>(member)].data() != nullptr;
    }
    [[nodiscard]] std::string_view bytes(Member member) const { return m_texts[static_cast<size_t>(member)]; }
    /// Null when the member is absent.
    [[nodiscard]] QString text(Member member) const;

    /// All members for a log line, the beginnings of long ones.
    [[nodiscard]] QString description() const;

private:
    std::array<std::string_view, memberCount> m_texts{};
    /// One for a member at most. Texts keep their place as more are added.
    std::forward_list<std::pair<Member, std::string>> m_owned;
};

} // namespace tx

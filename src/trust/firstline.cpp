// SPDX-License-Identifier: MIT
#include "trust/firstline.h"

#include "posix/plainpropertylist.h"
#include "trust/encoding.h"
#include "trust/signaturetext.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tx::trust {

namespace {

struct Form {
    FeedFormat format;
    std::string_view prefix;
    std::string_view suffix;
    std::string_view beginning; ///< what the reader is given before the body
};
constexpr std::array<Form, 2> forms{
    {{FeedFormat::Json, R"({"signature":[{"type":"signature","value":")", R"("}],)", "{"},
     {FeedFormat::Xml, R"(<?xml version="1.0" encoding="UTF-8"?><!-- signature )", " -->",
      R"(<?xml version="1.0" encoding="UTF-8"?>)"}}};

const Form &formOf(FeedFormat format) { return format == FeedFormat::Json ? forms[0] : forms[1]; }

const Form *formOf(std::string_view document) {
    for (const Form &form : forms) {
        if (document.substr(0, form.prefix.size()) == form.prefix)
            return &form;
    }
    return nullptr;
}

Fault fault(const std::string &what) {
    return {FaultKind::FeedLine,
            "the first line of the feed is not as it must be for a signed feed: " + what};
}

/// The line without its line feed; absent when it is too long or has no end.
std::optional<std::string_view> lineOf(std::string_view document) {
    const size_t end = document.substr(0, mostLineBytes).find('\n');
    if (end == std::string_view::npos)
        return std::nullopt;
    return document.substr(0, end);
}

bool endsWith(std::string_view line, const Form &form) {
    return line.size() >= form.prefix.size() + form.suffix.size() &&
           line.substr(line.size() - form.suffix.size()) == form.suffix;
}

bool isAllowed(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("+/=:._%- ").find(c) != std::string_view::npos;
}

/// Of the texts as they are in the line. No character may have a meaning in JSON or end an XML comment.
Verdict checkCharacters(std::string_view escaped) {
    for (size_t i = 0; i < escaped.size(); ++i) {
        const bool isLineFeed = escaped[i] == '\\' && escaped.substr(i, 2) == "\\n";
        if (isLineFeed)
            ++i;
        else if (!isAllowed(escaped[i]))
            return fault("a signature there must not hold \"" + shown(escaped.substr(i, 1)) + "\"");
    }
    if (escaped.find("--") != std::string_view::npos)
        return fault("a signature there must not hold \"--\"");
    return std::nullopt;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

} // namespace

Outcome<std::optional<FirstLine>> parseFirstLine(std::string_view document) {
    const Form *form = formOf(document);
    if (!form)
        return std::optional<FirstLine>();
    const std::optional<std::string_view> line = lineOf(document);
    if (!line)
        return fault("it must end within 64 KiB");
    if (!endsWith(*line, *form))
        return fault("it must end with " + std::string(form->suffix) + " and a line feed");
    const std::string_view escaped =
        line->substr(form->prefix.size(), line->size() - form->prefix.size() - form->suffix.size());
    if (const Verdict refused = checkCharacters(escaped))
        return *refused;
    Outcome<std::vector<std::string>> texts = splitEscapedTexts(escaped);
    if (!texts)
        return texts.fault();
    return std::optional(FirstLine{form->format, *std::move(texts), line->size() + 1});
}

Outcome<std::string> makeFirstLine(FeedFormat format, const std::vector<std::string> &texts) {
    const Form &form = formOf(format);
    std::string escaped;
    for (const std::string &text : texts)
        escaped += escapeLineFeeds(text);
    if (const Verdict refused = checkCharacters(escaped))
        return Fault{FaultKind::Input, refused->what};
    std::string line = std::string(form.prefix) + escaped + std::string(form.suffix) + '\n';
    if (line.size() > mostLineBytes)
        return Fault{FaultKind::Input, "the feed's first line would be longer than 64 KiB"};
    return line;
}

std::optional<UnreadLine> findUnreadLine(std::string_view document) {
    const Form *form = formOf(document);
    const std::optional<std::string_view> line = form ? lineOf(document) : std::nullopt;
    if (!line || !endsWith(*line, *form))
        return std::nullopt;
    return UnreadLine{form->format, line->size() + 1};
}

size_t putBeginningBeforeBody(char *document, FeedFormat format, size_t bodyAt) {
    // Always shorter than the line, which began with it.
    const std::string_view beginning = formOf(format).beginning;
    const size_t at = bodyAt - beginning.size();
    std::copy(beginning.begin(), beginning.end(), document + at);
    return at;
}

Verdict checkBody(std::string_view body, FeedFormat format) {
    const auto refused = [](const std::string &what) {
        return Fault{FaultKind::FeedLine,
                     "behind its first line a signed feed must be UTF-8 without " + what};
    };
    if (body.substr(0, 3) == "\xEF\xBB\xBF")
        return refused("a byte order mark");
    if (!plain::detail::isText(body))
        return refused("invalid bytes and NUL characters");
    if (format == FeedFormat::Xml) {
        constexpr std::string_view declaration = "<?xml";
        const auto begin = std::find_if_not(body.begin(), body.end(), isBlank);
        const std::string_view rest = body.substr(static_cast<size_t>(begin - body.begin()));
        if (rest.substr(0, declaration.size()) == declaration && rest.size() > declaration.size() &&
            (isBlank(rest[declaration.size()]) || rest[declaration.size()] == '?'))
            return refused("a declaration of its own");
    }
    return std::nullopt;
}

} // namespace tx::trust

// SPDX-License-Identifier: MIT
#include "report/logparser.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>

namespace tx::report {

namespace {

namespace dom = simdjson::dom;

constexpr size_t maximumVersionSize = 100;
constexpr size_t maximumNameSize = 200;
constexpr size_t maximumSystemSize = 64;

/// The value of each byte as a hexadecimal digit, or -1. A table, because half of a check's line is its
/// identifier.
constexpr std::array<int8_t, 256> hexDigits = [] {
    std::array<int8_t, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 16; ++i) {
        table[static_cast<size_t>("0123456789abcdef"[i])] = static_cast<int8_t>(i);
        table[static_cast<size_t>("0123456789ABCDEF"[i])] = static_cast<int8_t>(i);
    }
    return table;
}();

int hexDigit(char c) { return hexDigits[static_cast<unsigned char>(c)]; }

size_t backslashesBefore(std::string_view text, size_t end) {
    size_t count = 0;
    while (count < end && text[end - count - 1] == '\\')
        ++count;
    return count;
}

/// Parses 8-4-4-4-12 hexadecimal digits.
bool readInstallation(std::string_view text, Installation &installation) {
    constexpr size_t sizeOfText = 36;
    if (text.size() != sizeOfText)
        return false;
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i++] != '-')
                return false;
            continue;
        }
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        installation[byte++] = static_cast<uint8_t>(high * 16 + low);
        i += 2;
    }
    return true;
}

/// Returns whether a string can be shown to people: UTF-8 without control characters, which a terminal would
/// interpret.
bool isPlainText(std::string_view text, size_t maximum) {
    if (text.size() > maximum || !simdjson::validate_utf8(text.data(), text.size()))
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const bool isSecondControl =
            c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (c < 0x20 || c == 0x7F || isSecondControl)
            return false;
    }
    return true;
}

/// Decodes %xx. Returns false for an incomplete escape. A plus sign is not decoded, because checks encode a
/// space as %20.
bool decode(std::string_view text, std::string &decoded) {
    decoded.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t escape = std::min(text.find('%', i), text.size());
        decoded += text.substr(i, escape - i);
        i = escape;
        if (i == text.size())
            break;
        const int high = i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            return false;
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

/// Returns the first of these members that exists.
dom::element firstOf(const dom::object &object, std::initializer_list<const char *> names, bool &found) {
    for (const char *name : names) {
        dom::element element;
        if (object[name].get(element) == simdjson::SUCCESS) {
            found = true;
            return element;
        }
    }
    found = false;
    return {};
}

std::string_view textOf(const dom::object &object, std::initializer_list<const char *> names) {
    bool found = false;
    const dom::element element = firstOf(object, names, found);
    std::string_view text;
    return found && element.get(text) == simdjson::SUCCESS ? text : std::string_view();
}

/// Returns the request target of "GET /feed.json?a=b HTTP/1.1". Returns the whole string if it is not a
/// request line.
std::string_view targetOf(std::string_view request) {
    const size_t start = request.find(' ');
    if (start == std::string_view::npos)
        return request;
    const std::string_view rest = request.substr(start + 1);
    return rest.substr(0, rest.rfind(' '));
}

} // namespace

struct LogParser::Data {
    dom::parser lineParser;
    dom::parser bodyParser;
    std::string application;
    std::string version;
    std::string installation;

    Parsed parseLine(std::string_view line);
    Parsed parseJson(std::string_view text);
    Parsed parseBody(const dom::object &body, std::optional<Day> day);
    /// Parses the parameters of a check's URL. Returns `Other` if it has none.
    Parsed parseTarget(std::string_view target);
    static Parsed checked(Check check, std::string_view installation);
    static Parsed malformed(const char *reason) { return {Record::Malformed, {}, reason}; }
};

LogParser::LogParser()
    : d(std::make_unique<Data>()) {}
LogParser::~LogParser() = default;

Parsed LogParser::parse(std::string_view record) {
    if (record.size() > maximumSize)
        return Data::malformed("longer than 64 KiB");
    return record.starts_with('{') ? d->parseJson(record) : d->parseLine(record);
}

Parsed LogParser::Data::checked(Check check, std::string_view installation) {
    if (!readInstallation(installation, check.installation))
        return malformed("anonymousUUID is not a UUID");
    if (check.version.empty() || !isPlainText(check.version, maximumVersionSize))
        return malformed("appVersion is empty, too long, or has control characters");
    if (check.application.empty() || !isPlainText(check.application, maximumNameSize))
        return malformed("appName is empty, too long, or has control characters");
    if (!isPlainText(check.system, maximumSystemSize))
        return malformed("OSVersion is too long, or has control characters");
    return {Record::Check, check, nullptr};
}

Parsed LogParser::Data::parseTarget(std::string_view target) {
    const size_t question = target.find('?');
    if (question == std::string_view::npos)
        return {};
    bool hasVersion = false;
    bool hasInstallation = false;
    bool isDecoded = true;
    application.clear();
    std::string_view rest = target.substr(question + 1);
    // The framework appends its parameters to the feed's query, so the last one of each name is the
    // framework's.
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('&'), rest.size());
        const std::string_view item = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const size_t equals = std::min(item.find('='), item.size());
        const std::string_view name = item.substr(0, equals);
        const std::string_view value = item.substr(std::min(equals + 1, item.size()));
        if (name == "appName") {
            isDecoded &= decode(value, application);
        } else if (name == "appVersion") {
            hasVersion = true;
            isDecoded &= decode(value, version);
        } else if (name == "anonymousUUID") {
            hasInstallation = true;
            isDecoded &= decode(value, installation);
        }
    }
    if (!hasVersion || !hasInstallation)
        return {};
    if (!isDecoded)
        return malformed("a parameter has an incomplete % escape");
    return checked({application, version, {}, {}, {}}, installation);
}

Parsed LogParser::Data::parseLine(std::string_view line) {
    // A user name may contain spaces and brackets. Use the first bracket that contains a time.
    std::optional<Day> day;
    size_t end = 0;
    for (size_t start = line.find('['); start != std::string_view::npos && !day;
         start = line.find('[', start + 1)) {
        end = line.find(']', start);
        if (end != std::string_view::npos)
            day = dayOfTime(line.substr(start + 1, end - start - 1));
    }
    if (!day)
        return malformed("no time in brackets, such as [22/Nov/2026:16:54:11 +0100]");
    std::string_view rest = line.substr(end + 1);
    if (!rest.starts_with(" \""))
        return malformed("no request in quotes after the time");
    rest.remove_prefix(2);
    size_t close = rest.find('"');
    // A quote after an odd number of backslashes belongs to the request.
    while (close != std::string_view::npos && backslashesBefore(rest, close) % 2 == 1)
        close = rest.find('"', close + 1);
    if (close == std::string_view::npos)
        return malformed("the request has no closing quote");
    const std::string_view request = rest.substr(0, close);
    rest.remove_prefix(close + 1);
    const auto isDigit = [&](size_t i) { return rest[i] >= '0' && rest[i] <= '9'; };
    if (rest.size() < 4 || rest[0] != ' ' || !isDigit(1) || !isDigit(2) || !isDigit(3) ||
        (rest.size() > 4 && rest[4] != ' '))
        return malformed("no status of three digits after the request");
    Parsed parsed = parseTarget(targetOf(request));
    parsed.check.day = day;
    return parsed;
}

Parsed LogParser::Data::parseBody(const dom::object &body, std::optional<Day> day) {
    Check check;
    check.application = textOf(body, {"appName"});
    check.version = textOf(body, {"appVersion"});
    check.day = day;
    dom::object profile;
    if (body["systemProfile"].get(profile) == simdjson::SUCCESS)
        check.system = textOf(profile, {"OSVersion"});
    return checked(check, textOf(body, {"anonymousUUID"}));
}

Parsed LogParser::Data::parseJson(std::string_view text) {
    dom::object line;
    if (lineParser.parse(text.data(), text.size()).get(line) != simdjson::SUCCESS)
        return malformed("not a JSON object");
    bool found = false;
    dom::element element;
    if (line["anonymousUUID"].get(element) == simdjson::SUCCESS)
        return parseBody(line, std::nullopt);

    // A line of a server's log. The member names are those of common servers and of docs/hosting.md.
    std::optional<Day> day;
    const dom::element time = firstOf(
        line, {"time", "time_iso8601", "time_local", "timestamp", "@timestamp", "ts", "EdgeStartTimestamp"},
        found);
    if (found) {
        std::string_view written;
        double number = 0;
        if (time.get(written) == simdjson::SUCCESS)
            day = dayOfTime(written);
        else if (time.get(number) == simdjson::SUCCESS)
            day = dayOfNumber(number);
    }
    if (!day)
        return malformed("no time that can be read, such as \"time\":\"2026-11-22T16:54:11+01:00\"");

    std::string_view target;
    dom::object inner;
    if (line["request"].get(inner) == simdjson::SUCCESS ||
        line["httpRequest"].get(inner) == simdjson::SUCCESS)
        target = textOf(inner, {"uri", "url", "requestUrl"});
    else
        target = textOf(line, {"request_uri", "request", "uri", "url", "ClientRequestURI"});
    if (target.empty())
        return malformed("no request, such as \"request\":\"GET /feed.json HTTP/1.1\"");
    Parsed parsed = parseTarget(targetOf(target));
    parsed.check.day = day;
    const std::string_view body = textOf(line, {"request_body", "body"});
    if (parsed.record == Record::Malformed || body.empty() || body == "-")
        return parsed;
    dom::object members;
    if (bodyParser.parse(body.data(), body.size()).get(members) != simdjson::SUCCESS)
        return parsed.record == Record::Check ? malformed("the request's body is not a JSON object") : parsed;
    if (parsed.record == Record::Other)
        return members["anonymousUUID"].get(element) == simdjson::SUCCESS ? parseBody(members, day) : parsed;
    dom::object profile;
    if (members["systemProfile"].get(profile) == simdjson::SUCCESS)
        parsed.check.system = textOf(profile, {"OSVersion"});
    if (!isPlainText(parsed.check.system, maximumSystemSize))
        return malformed("OSVersion is too long, or has control characters");
    return parsed;
}

void BraceCounter::add(std::string_view text) {
    for (const char c : text) {
        if (m_isEscaped)
            m_isEscaped = false;
        else if (m_isInString && c == '\\')
            m_isEscaped = true;
        else if (c == '"')
            m_isInString = !m_isInString;
        else if (!m_isInString && c == '{')
            ++m_depth;
        else if (!m_isInString && c == '}')
            --m_depth;
    }
}

} // namespace tx::report

// SPDX-License-Identifier: MIT
#include "report/tables.h"

#include "report/jsontext.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tx::report {

namespace {

/// The largest number of rows of a table. All others are combined in one row.
constexpr size_t maximumRows = 20;
constexpr size_t minimumNameWidth = 10;

std::string percentOf(int64_t part, int64_t whole) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%.1f %%",
                  whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole));
    return text.data();
}

/// Counts characters, not bytes.
size_t widthOf(const std::string &text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(const std::string &text, size_t width, bool isRight) {
    const std::string space(width - std::min(width, widthOf(text)), ' ');
    return isRight ? space + text : text + space;
}

void addTable(std::string &result, const char *heading, std::vector<Share> shares, int64_t all) {
    if (shares.size() > maximumRows) {
        Share rest{std::to_string(shares.size() - maximumRows + 1) + " others", 0};
        for (size_t i = maximumRows - 1; i < shares.size(); ++i)
            rest.installations += shares[i].installations;
        shares.resize(maximumRows - 1);
        shares.push_back(rest);
    }
    size_t width = minimumNameWidth;
    for (Share &share : shares) {
        if (share.name.empty())
            share.name = "not known";
        width = std::max(width, widthOf(share.name));
    }
    result += '\n' + padded(heading, width, false) + "  Installations    Share\n";
    for (const Share &share : shares)
        result += padded(share.name, width, false) + "  " +
                  padded(textOfNumber(share.installations), 13, true) + "  " +
                  padded(percentOf(share.installations, all), 7, true) + '\n';
}

std::string sharesAsJson(const std::vector<Share> &shares, const char *member) {
    std::string result = "[";
    for (const Share &share : shares) {
        result += result.size() > 1 ? "," : "";
        result += std::string("{\"") + member + "\":" + (share.name.empty() ? "null" : jsonText(share.name)) +
                  ",\"installations\":" + std::to_string(share.installations) + '}';
    }
    return result += ']';
}

std::string countsAsJson(int64_t installations, const std::vector<Share> &versions,
                         const std::vector<Share> &systems) {
    return "\"installations\":" + std::to_string(installations) +
           ",\"versions\":" + sharesAsJson(versions, "version") +
           ",\"systems\":" + sharesAsJson(systems, "system");
}

std::string logAsJson(const LogResult &log) {
    std::string result =
        "{\"log\":" + jsonText(log.log) + ",\"error\":" + (log.error.empty() ? "null" : jsonText(log.error));
    for (const auto &[name, number] :
         {std::pair("newLines", log.newLines), std::pair("lines", log.state.lines),
          std::pair("checks", log.state.checks), std::pair("others", log.state.others),
          std::pair("malformed", log.state.malformed)})
        result += std::string(",\"") + name + "\":" + std::to_string(number);
    result += std::string(",\"unfinished\":") + (log.hasUnfinishedLine ? "true" : "false") +
              ",\"firstMalformed\":[";
    for (size_t i = 0; i < log.malformed.size(); ++i)
        result += std::string(i > 0 ? "," : "") + "{\"line\":" + std::to_string(log.malformed[i].line) +
                  ",\"reason\":" + jsonText(log.malformed[i].reason) + '}';
    return result += "]}";
}

std::string csvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string result = "\"";
    for (const char c : text) {
        result += c;
        if (c == '"')
            result += c;
    }
    return result += '"';
}

} // namespace

std::string textOfNumber(int64_t number) {
    std::string text = std::to_string(number);
    for (size_t i = text.size(); i > 3; i -= 3)
        text.insert(i - 3, 1, ',');
    return text;
}

std::string tableOf(const std::vector<Summary> &summaries) {
    std::string result;
    for (const Summary &summary : summaries) {
        result += result.empty() ? "" : "\n\n";
        result += summary.application + ": " + textOfNumber(summary.installations) +
                  " active installations from " + textOfDay(summary.first) + " to " +
                  textOfDay(summary.last) + '\n';
        addTable(result, "Version", summary.versions, summary.installations);
        addTable(result, "System", summary.systems, summary.installations);
        result += "\nDay         Installations\n";
        for (const DayCounts &day : summary.days)
            result += textOfDay(day.day) + "  " + padded(textOfNumber(day.installations), 13, true) + '\n';
    }
    return result.empty() ? "No checks were found.\n" : result;
}

std::string jsonOf(const std::vector<Summary> &summaries, const std::vector<LogResult> &logs) {
    std::string result = "{\"applications\":[";
    for (size_t i = 0; i < summaries.size(); ++i) {
        const Summary &summary = summaries[i];
        result += std::string(i > 0 ? "," : "") + "{\"application\":" + jsonText(summary.application) +
                  ",\"from\":\"" + textOfDay(summary.first) + "\",\"to\":\"" + textOfDay(summary.last) +
                  "\"," + countsAsJson(summary.installations, summary.versions, summary.systems) +
                  ",\"days\":[";
        for (size_t j = 0; j < summary.days.size(); ++j) {
            const DayCounts &day = summary.days[j];
            result += std::string(j > 0 ? "," : "") + "{\"day\":\"" + textOfDay(day.day) + "\"," +
                      countsAsJson(day.installations, day.versions, day.systems) + '}';
        }
        result += "]}";
    }
    result += "],\"logs\":[";
    for (size_t i = 0; i < logs.size(); ++i)
        result += (i > 0 ? "," : "") + logAsJson(logs[i]);
    return result += "]}\n";
}

std::string csvHeader() { return "day,application,version,system,installation\n"; }

std::string csvOf(const Row &row) {
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string installation;
    for (size_t i = 0; i < row.installation.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            installation += '-';
        installation += digits[row.installation[i] / 16];
        installation += digits[row.installation[i] % 16];
    }
    return textOfDay(row.day) + ',' + csvField(row.application) + ',' + csvField(row.version) + ',' +
           csvField(row.system) + ',' + installation + '\n';
}

} // namespace tx::report

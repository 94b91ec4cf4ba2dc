// SPDX-License-Identifier: MIT
#include "report/day.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace tx::report {

namespace {

constexpr int64_t secondsOfDay = 86400;
/// The textual forms can express the years 1970 to 9999.
constexpr int64_t lastSecond = 253402300799;

/// Parses a string from start to end.
class Scanner {
public:
    explicit Scanner(std::string_view text)
        : m_rest(text) {}

    /// Reads a number of exactly `digits` digits.
    bool number(size_t digits, int &value) {
        if (m_rest.size() < digits)
            return false;
        value = 0;
        for (const char c : m_rest.substr(0, digits)) {
            if (c < '0' || c > '9')
                return false;
            value = value * 10 + (c - '0');
        }
        m_rest.remove_prefix(digits);
        return true;
    }
    bool one(std::string_view choices) {
        if (m_rest.empty() || choices.find(m_rest.front()) == std::string_view::npos)
            return false;
        m_rest.remove_prefix(1);
        return true;
    }
    bool month(int &value) {
        static constexpr std::array<std::string_view, 12> names{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        for (size_t i = 0; i < names.size(); ++i) {
            if (m_rest.starts_with(names[i])) {
                value = static_cast<int>(i + 1);
                m_rest.remove_prefix(names[i].size());
                return true;
            }
        }
        return false;
    }
    void fraction() {
        if (!one(".,"))
            return;
        while (one("0123456789")) {
        }
    }
    /// Reads "Z", "+0100" or "+01:00".
    bool zone(int &seconds) {
        seconds = 0;
        if (one("Zz"))
            return true;
        const bool isEast = !m_rest.empty() && m_rest.front() == '+';
        int hours = 0;
        int minutes = 0;
        if (!one("+-") || !number(2, hours))
            return false;
        one(":");
        if (!number(2, minutes) || hours > 14 || minutes > 59)
            return false;
        seconds = (hours * 3600 + minutes * 60) * (isEast ? 1 : -1);
        return true;
    }
    [[nodiscard]] bool isAtEnd() const { return m_rest.empty(); }

private:
    std::string_view m_rest;
};

struct Date {
    int year = 0;
    int month = 0;
    int day = 0;
};

std::optional<Day> dayOf(const Date &date) {
    const std::chrono::year_month_day calendar{std::chrono::year(date.year),
                                               std::chrono::month(static_cast<unsigned>(date.month)),
                                               std::chrono::day(static_cast<unsigned>(date.day))};
    if (!calendar.ok() || date.year < 1970)
        return std::nullopt;
    return static_cast<Day>(std::chrono::sys_days(calendar).time_since_epoch().count());
}

} // namespace

std::optional<Day> dayOfTime(std::string_view time) {
    Scanner scanner(time);
    Date date;
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int zone = 0;
    const bool isOfLog = time.size() > 2 && time[2] == '/';
    const bool hasDate =
        isOfLog ? scanner.number(2, date.day) && scanner.one("/") && scanner.month(date.month) &&
                      scanner.one("/") && scanner.number(4, date.year) && scanner.one(":")
                : scanner.number(4, date.year) && scanner.one("-") && scanner.number(2, date.month) &&
                      scanner.one("-") && scanner.number(2, date.day) && scanner.one("T ");
    if (!hasDate || !scanner.number(2, hours) || !scanner.one(":") || !scanner.number(2, minutes) ||
        !scanner.one(":") || !scanner.number(2, seconds) || hours > 23 || minutes > 59 || seconds > 60)
        return std::nullopt;
    scanner.fraction();
    if (isOfLog && !scanner.one(" "))
        return std::nullopt;
    const std::optional<Day> day = dayOf(date);
    if (!scanner.zone(zone) || !scanner.isAtEnd() || !day)
        return std::nullopt;
    const int64_t moment = *day * secondsOfDay + hours * 3600 + minutes * 60 + seconds - zone;
    return moment < 0 ? std::nullopt : std::optional(static_cast<Day>(moment / secondsOfDay));
}

std::optional<Day> dayOfNumber(double time) {
    if (!std::isfinite(time) || time < 0)
        return std::nullopt;
    for (int i = 0; i < 3 && time > static_cast<double>(lastSecond); ++i)
        time /= 1000;
    if (time > static_cast<double>(lastSecond))
        return std::nullopt;
    return static_cast<Day>(static_cast<int64_t>(time) / secondsOfDay);
}

std::string textOfDay(Day day) {
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text.data();
}

std::optional<Day> dayOfText(std::string_view text) {
    Scanner scanner(text);
    Date date;
    if (!scanner.number(4, date.year) || !scanner.one("-") || !scanner.number(2, date.month) ||
        !scanner.one("-") || !scanner.number(2, date.day) || !scanner.isAtEnd())
        return std::nullopt;
    return dayOf(date);
}

} // namespace tx::report

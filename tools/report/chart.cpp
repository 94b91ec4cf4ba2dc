// SPDX-License-Identifier: MIT
#include "report/tables.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tx::report {

namespace {

// All sizes are in pixels.
constexpr int width = 960;
constexpr int heightOfChart = 400;
constexpr int left = 80;
constexpr int top = 60;
constexpr int plotWidth = 700;
constexpr int plotHeight = 280;
constexpr int legendLeft = left + plotWidth + 24;
constexpr int maximumLabels = 8; ///< labels of days

/// Colours that people with red-green colour blindness can distinguish. The last one is for all other
/// versions.
constexpr std::array<const char *, 8> colors{"#0072b2", "#e69f00", "#009e73", "#cc79a7",
                                             "#56b4e9", "#d55e00", "#b8a100", "#999999"};
constexpr size_t namedVersions = colors.size() - 1;

std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string rounded(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", number);
    return text.data();
}

/// Returns the distance of the grid lines: 1, 2 or 5 times a power of ten, so that there are at most five
/// lines.
int64_t stepFor(int64_t most) {
    for (int64_t power = 1;; power *= 10) {
        for (const int64_t factor : {1, 2, 5}) {
            if (factor * power * 5 >= most)
                return factor * power;
        }
    }
}

std::string textAt(int x, double y, const char *anchor, const std::string &text) {
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + rounded(y) + "\" text-anchor=\"" + anchor + "\">" +
           escaped(text) + "</text>\n";
}

std::string rectangle(double x, double y, double w, double h, const char *color, const std::string &title) {
    return "<rect x=\"" + rounded(x) + "\" y=\"" + rounded(y) + "\" width=\"" + rounded(w) + "\" height=\"" +
           rounded(h) + "\" fill=\"" + color + "\"><title>" + escaped(title) + "</title></rect>\n";
}

class Chart {
public:
    Chart(const Summary &summary, int y)
        : m_summary(summary)
        , m_y(y + top) {
        std::vector<Share> byNumber = summary.versions;
        std::stable_sort(byNumber.begin(), byNumber.end(),
                         [](const Share &a, const Share &b) { return a.installations > b.installations; });
        byNumber.resize(std::min(byNumber.size(), namedVersions));
        // The summary lists the newest version first.
        for (const Share &share : summary.versions) {
            if (std::any_of(byNumber.begin(), byNumber.end(),
                            [&](const Share &other) { return other.name == share.name; }))
                m_versions.push_back(share.name);
        }
        int64_t most = 1;
        for (const DayCounts &day : summary.days)
            most = std::max(most, day.installations);
        m_step = stepFor(most);
        m_most = (most + m_step - 1) / m_step * m_step;
    }

    std::string draw() {
        std::string result = "<text x=\"" + std::to_string(left) + "\" y=\"" + std::to_string(m_y - 28) +
                             "\" font-size=\"18\">" + escaped(m_summary.application) +
                             ": active installations by version</text>\n";
        for (int64_t value = 0; value <= m_most; value += m_step) {
            const double y = yOf(value);
            result += "<line x1=\"" + std::to_string(left) + "\" x2=\"" + std::to_string(left + plotWidth) +
                      "\" y1=\"" + rounded(y) + "\" y2=\"" + rounded(y) + "\" stroke=\"#d0d0d0\"/>\n" +
                      textAt(left - 8, y + 4, "end", textOfNumber(value));
        }
        const double step = static_cast<double>(plotWidth) / static_cast<double>(m_summary.days.size());
        const size_t every = (m_summary.days.size() + maximumLabels - 1) / maximumLabels;
        for (size_t i = 0; i < m_summary.days.size(); ++i) {
            const double x = left + step * static_cast<double>(i);
            result += bar(m_summary.days[i], x + step * 0.1, step * 0.8);
            if (i % every == 0)
                result += textAt(static_cast<int>(x + step / 2), m_y + plotHeight + 20, "middle",
                                 textOfDay(m_summary.days[i].day));
        }
        return result + legend();
    }

private:
    [[nodiscard]] double yOf(int64_t value) const {
        return m_y + plotHeight * (1 - static_cast<double>(value) / static_cast<double>(m_most));
    }
    [[nodiscard]] size_t indexOf(const std::string &version) const {
        const auto found = std::find(m_versions.begin(), m_versions.end(), version);
        return found == m_versions.end() ? namedVersions : static_cast<size_t>(found - m_versions.begin());
    }
    std::string bar(const DayCounts &day, double x, double barWidth) {
        std::array<int64_t, colors.size()> parts{};
        for (const Share &share : day.versions)
            parts[indexOf(share.name)] += share.installations;
        m_hasOthers |= parts[namedVersions] > 0;
        std::string result;
        int64_t below = 0;
        // The newest version is at the top, as in the legend.
        for (size_t i = parts.size(); i-- > 0;) {
            if (parts[i] == 0)
                continue;
            const std::string &name = i == namedVersions ? m_others : m_versions[i];
            result += rectangle(x, yOf(below + parts[i]), barWidth, yOf(below) - yOf(below + parts[i]),
                                colors[i], textOfDay(day.day) + ", " + name + ": " + textOfNumber(parts[i]));
            below += parts[i];
        }
        return result;
    }
    [[nodiscard]] std::string legend() const {
        std::vector<std::pair<const char *, std::string>> entries;
        for (size_t i = 0; i < m_versions.size(); ++i)
            entries.emplace_back(colors[i], m_versions[i]);
        if (m_hasOthers)
            entries.emplace_back(colors[namedVersions], m_others);
        std::string result;
        int y = m_y;
        for (const auto &[color, name] : entries) {
            result += rectangle(legendLeft, y, 14, 14, color, name) +
                      textAt(legendLeft + 22, y + 12, "start", name);
            y += 24;
        }
        return result;
    }

    const Summary &m_summary;
    const int m_y;
    const std::string m_others = "other versions";
    std::vector<std::string> m_versions;
    int64_t m_step = 1;
    int64_t m_most = 1;
    bool m_hasOthers = false;
};

} // namespace

std::string chartOf(const std::vector<Summary> &summaries) {
    const std::string height =
        std::to_string(heightOfChart * std::max<int>(1, static_cast<int>(summaries.size())));
    const std::string size = std::to_string(width);
    std::string result = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" height=\"" +
                         height + "\" viewBox=\"0 0 " + size + ' ' + height +
                         "\" font-family=\"sans-serif\" font-size=\"12\" fill=\"#202020\">\n"
                         "<title>Active installations by version</title>\n<rect width=\"" +
                         size + "\" height=\"" + height + "\" fill=\"#ffffff\"/>\n";
    int y = 0;
    for (const Summary &summary : summaries) {
        result += Chart(summary, y).draw();
        y += heightOfChart;
    }
    if (summaries.empty())
        result += textAt(left, top, "start", "No checks were found.");
    return result + "</svg>\n";
}

} // namespace tx::report

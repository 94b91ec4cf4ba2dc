// SPDX-License-Identifier: MIT
#include "report/summary.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace tx::report {

namespace {

using Id = Counts::Id;

struct Scope {
    Id id;
    std::string name;
    Day first;
    Day last;
};

bool scopesOf(Counts &counts, const std::string &application, const Period &period,
              std::vector<Scope> &scopes) {
    std::vector<std::pair<Id, std::string>> applications;
    if (!counts.applications(applications))
        return false;
    for (const auto &[id, name] : applications) {
        if (!application.empty() && application != name)
            continue;
        std::optional<Day> last = period.last;
        if (!last && !counts.lastDay(id, last))
            return false;
        scopes.push_back({id, name, last.value_or(0) - period.days + 1, last.value_or(0)});
    }
    return true;
}

/// Looks up the systems of installations, one installation after the other.
class Systems {
public:
    explicit Systems(Counts &counts)
        : m_counts(counts) {}

    /// Returns the system in the last profile up to `day`, otherwise the one in the first profile after it. 0
    /// if unknown.
    Id on(const Installation &installation, Day day) {
        if (m_of != installation) {
            m_of = installation;
            m_isRead &= m_counts.systemsOf(installation, m_systems);
        }
        Id result = m_systems.empty() ? 0 : m_systems.front().system;
        for (const Counts::SystemSince &since : m_systems) {
            if (since.day <= day)
                result = since.system;
        }
        return result;
    }
    [[nodiscard]] bool isRead() const { return m_isRead; }

private:
    Counts &m_counts;
    std::optional<Installation> m_of;
    std::vector<Counts::SystemSince> m_systems;
    bool m_isRead = true;
};

using Numbers = std::map<Id, int64_t>;

class Summarizer {
public:
    Summarizer(Counts &counts, const Scope &scope, const IsOlder &isOlder)
        : m_counts(counts)
        , m_scope(scope)
        , m_isOlder(isOlder)
        , m_systems(counts)
        , m_days(static_cast<size_t>(scope.last - scope.first + 1)) {}

    std::optional<Summary> run() {
        const bool isRead = m_counts.forEach(m_scope.id, m_scope.first, m_scope.last,
                                             [this](const Counts::Activity &activity) { add(activity); });
        finishDay();
        finishInstallation();
        if (!isRead || !m_systems.isRead())
            return std::nullopt;
        Summary summary{m_scope.name,
                        m_scope.first,
                        m_scope.last,
                        m_installations,
                        versions(m_versions),
                        systems(m_lastSystems),
                        {}};
        for (size_t i = 0; i < m_days.size(); ++i) {
            const OneDay &day = m_days[i];
            summary.days.push_back({m_scope.first + static_cast<Day>(i), day.installations,
                                    versions(day.versions), systems(day.systems)});
        }
        return summary;
    }

private:
    struct OneDay {
        int64_t installations = 0;
        Numbers versions;
        Numbers systems;
    };

    void add(const Counts::Activity &activity) {
        if (m_last && m_last->installation == activity.installation && m_last->day == activity.day) {
            if (isOlder(m_last->version, activity.version))
                m_last->version = activity.version;
            return;
        }
        finishDay();
        if (m_last && m_last->installation != activity.installation)
            finishInstallation();
        m_last = activity;
    }
    void finishDay() {
        if (!m_last)
            return;
        OneDay &day = m_days[static_cast<size_t>(m_last->day - m_scope.first)];
        m_lastSystem = m_systems.on(m_last->installation, m_last->day);
        ++day.installations;
        ++day.versions[m_last->version];
        ++day.systems[m_lastSystem];
    }
    /// Called after the last day of an installation.
    void finishInstallation() {
        if (!m_last)
            return;
        ++m_installations;
        ++m_versions[m_last->version];
        ++m_lastSystems[m_lastSystem];
    }

    bool isOlder(Id a, Id b) { return m_isOlder(m_counts.text(a), m_counts.text(b)); }

    std::vector<Share> versions(const Numbers &numbers) {
        std::vector<Share> shares;
        for (const auto &[id, number] : numbers)
            shares.push_back({m_counts.text(id), number});
        std::sort(shares.begin(), shares.end(), [this](const Share &a, const Share &b) {
            if (m_isOlder(b.name, a.name) != m_isOlder(a.name, b.name))
                return m_isOlder(b.name, a.name);
            return a.name < b.name; // two spellings of the same version
        });
        return shares;
    }
    std::vector<Share> systems(const Numbers &numbers) {
        std::vector<Share> shares;
        for (const auto &[id, number] : numbers)
            shares.push_back({id == 0 ? std::string() : m_counts.text(id), number});
        std::sort(shares.begin(), shares.end(), [](const Share &a, const Share &b) {
            return a.installations != b.installations ? a.installations > b.installations : a.name < b.name;
        });
        return shares;
    }

    Counts &m_counts;
    const Scope &m_scope;
    const IsOlder &m_isOlder;
    Systems m_systems;
    std::optional<Counts::Activity> m_last;
    Id m_lastSystem = 0;
    int64_t m_installations = 0;
    Numbers m_versions;
    Numbers m_lastSystems;
    std::vector<OneDay> m_days;
};

} // namespace

std::optional<std::vector<Summary>> summarize(Counts &counts, const std::string &application,
                                              const Period &period, const IsOlder &isOlder) {
    std::vector<Scope> scopes;
    if (!scopesOf(counts, application, period, scopes))
        return std::nullopt;
    std::vector<Summary> summaries;
    for (const Scope &scope : scopes) {
        std::optional<Summary> summary = Summarizer(counts, scope, isOlder).run();
        if (!summary)
            return std::nullopt;
        summaries.push_back(std::move(*summary));
    }
    return summaries;
}

bool forEachRow(Counts &counts, const std::string &application, const Period &period,
                const std::function<void(const Row &)> &use) {
    std::vector<Scope> scopes;
    if (!scopesOf(counts, application, period, scopes))
        return false;
    for (const Scope &scope : scopes) {
        Systems systems(counts);
        const bool isRead =
            counts.forEach(scope.id, scope.first, scope.last, [&](const Counts::Activity &activity) {
                const Id system = systems.on(activity.installation, activity.day);
                use({activity.day, scope.name, counts.text(activity.version),
                     system == 0 ? std::string_view() : counts.text(system), activity.installation});
            });
        if (!isRead || !systems.isRead())
            return false;
    }
    return true;
}

} // namespace tx::report

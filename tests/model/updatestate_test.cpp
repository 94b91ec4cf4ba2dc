// SPDX-License-Identifier: MIT
#include "model/update_p.h"
#include "model/updatestate.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QRegularExpression>
#include <QSignalSpy>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;
using tx::StateChanger;
using tx::UpdateState;

namespace {

/// A state, the four properties in it, and the states to which the framework and the host can change it.
struct Row {
    const char *name;
    const char *properties; ///< "d" isDownloaded, "l" isDownloading, "g" isInstalling, "i" isInstalled
    const char *byFramework;
    const char *byHost;
};

// Not derived from the table in the code: a mistake there must not be one here.
constexpr Row rows[] = {
    {"Available", "", "Downloading", "Downloaded InstalledWithoutArchive"},
    {"Downloading", "l", "Available Downloaded", ""},
    {"Downloaded", "d", "Preparing", "Available Installed"},
    {"Preparing", "dg", "Downloaded Verifying Unpacking", ""},
    {"Verifying", "dg", "Available Downloaded Unpacking", ""},
    {"Unpacking", "dg", "Available Downloaded AskingToQuit HandingOver", ""},
    {"AskingToQuit", "dg", "Downloaded HandingOver", ""},
    {"HandingOver", "dg", "Downloaded", ""},
    {"Installed", "di", "Preparing", "Downloaded InstalledWithoutArchive"},
    {"InstalledWithoutArchive", "i", "Downloading", "Available Installed"},
};
constexpr int count = int(std::size(rows));

UpdateState stateAt(int index) { return static_cast<UpdateState>(index); }

bool contains(const char *names, const char *name) {
    return QString::fromLatin1(names).split(u' ').contains(QLatin1StringView(name));
}

QString propertiesOf(const TXUpdate &update) {
    QString result;
    if (update.isDownloaded())
        result += u'd';
    if (update.isDownloading())
        result += u'l';
    if (update.isInstalling())
        result += u'g';
    if (update.isInstalled())
        result += u'i';
    return result;
}

/// Emissions of each property's signal, in the same letters.
class Signals {
public:
    explicit Signals(const TXUpdate &update)
        : m_downloaded(&update, &TXUpdate::isDownloadedChanged)
        , m_downloading(&update, &TXUpdate::isDownloadingChanged)
        , m_installing(&update, &TXUpdate::isInstallingChanged)
        , m_installed(&update, &TXUpdate::isInstalledChanged) {}

    [[nodiscard]] QString emitted() const {
        return QString(m_downloaded.size(), u'd') + QString(m_downloading.size(), u'l') +
               QString(m_installing.size(), u'g') + QString(m_installed.size(), u'i');
    }

private:
    QSignalSpy m_downloaded, m_downloading, m_installing, m_installed;
};

/// The letters that are in one of the two only.
QString difference(const QString &a, const QString &b) {
    QString result;
    for (const QChar letter : u"dlgi"_s) {
        if (a.contains(letter) != b.contains(letter))
            result += letter;
    }
    return result;
}

class StateTable : public tx::test::FrameworkTest {};

TEST_F(StateTable, EveryStateHasItsNameAndAnswers) {
    ASSERT_EQ(int(tx::lastUpdateState) + 1, count);
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(tx::nameOf(stateAt(i)), QLatin1StringView(rows[i].name));
        TXUpdate update;
        tx::detailsOf(update).state = stateAt(i);
        EXPECT_EQ(tx::stateOf(update), stateAt(i));
        EXPECT_EQ(propertiesOf(update), QLatin1StringView(rows[i].properties)) << rows[i].name;
    }
}

TEST_F(StateTable, EveryPairOfStatesIsAllowedOrRefused) {
    for (int i = 0; i < count * count * 2; ++i) {
        const Row &from = rows[i / 2 / count];
        const int target = i / 2 % count;
        const Row &to = rows[target];
        const auto by = i % 2 == 0 ? StateChanger::Framework : StateChanger::Host;
        const QString what = u"%1 to %2 by %3"_s.arg(QLatin1StringView(from.name), QLatin1StringView(to.name),
                                                     QString::number(i % 2));
        const bool allowed = contains(by == StateChanger::Host ? from.byHost : from.byFramework, to.name);
        TXUpdate update;
        update.setVersion(u"7"_s);
        tx::detailsOf(update).state = stateAt(i / 2 / count);
        const Signals changes(update);
        const qsizetype logged = logLines().size();
        EXPECT_EQ(tx::changeState(update, stateAt(target), by), allowed) << what.toStdString();
        EXPECT_EQ(tx::stateOf(update), allowed ? stateAt(target) : stateAt(i / 2 / count))
            << what.toStdString();
        EXPECT_EQ(changes.emitted(),
                  allowed ? difference(QLatin1StringView(from.properties), QLatin1StringView(to.properties))
                          : QString())
            << what.toStdString();
        const QString failure = u"TXUpdate: The state of build 7 stays %1: %2 cannot change it to %3."_s.arg(
            QLatin1StringView(from.name),
            by == StateChanger::Host ? u"the application"_s : u"the framework"_s, QLatin1StringView(to.name));
        EXPECT_EQ(logLines().mid(logged).contains(failure), !allowed) << what.toStdString();
    }
}

TEST_F(StateTable, HostsSettersReachExactlyTheStatesOfTheTable) {
    struct Case {
        const char *from;
        std::optional<bool> downloaded, installed; ///< the setter that is called
        const char *to;                            ///< the same state if the setter is refused
        bool isRefused;
    };
    const Case cases[] = {
        {"Available", true, {}, "Downloaded", false},
        {"Available", {}, true, "InstalledWithoutArchive", false},
        {"Downloaded", false, {}, "Available", false},
        {"Downloaded", {}, true, "Installed", false},
        {"Installed", false, {}, "InstalledWithoutArchive", false},
        {"Installed", {}, false, "Downloaded", false},
        {"InstalledWithoutArchive", true, {}, "Installed", false},
        {"InstalledWithoutArchive", {}, false, "Available", false},
        // The value that it has already.
        {"Available", false, {}, "Available", false},
        {"Downloaded", true, {}, "Downloaded", false},
        {"Downloading", false, {}, "Downloading", false},
        {"Unpacking", true, {}, "Unpacking", false},
        {"Unpacking", {}, false, "Unpacking", false},
        // While the framework works with the update.
        {"Downloading", true, {}, "Downloading", true},
        {"Downloading", {}, true, "Downloading", true},
        {"Preparing", false, {}, "Preparing", true},
        {"Unpacking", false, {}, "Unpacking", true},
        {"HandingOver", {}, true, "HandingOver", true},
    };
    for (const Case &c : cases) {
        TXUpdate update;
        const auto *row = std::ranges::find_if(rows, [&c](const Row &r) { return contains(r.name, c.from); });
        tx::detailsOf(update).state = stateAt(int(row - rows));
        const qsizetype logged = logLines().filter(u"the application cannot change it"_s).size();
        if (c.downloaded)
            update.setDownloaded(*c.downloaded);
        if (c.installed)
            update.setInstalled(*c.installed);
        EXPECT_EQ(tx::nameOf(tx::stateOf(update)), QLatin1StringView(c.to)) << c.from;
        EXPECT_EQ(logLines().filter(u"the application cannot change it"_s).size() - logged,
                  c.isRefused ? 1 : 0)
            << c.from;
    }
}

TEST_F(StateTable, ArchitectureDocumentHasTheSameTable) {
    const QString document =
        QString::fromUtf8(tx::test::readFile(tx::test::sourcesFolder() + u"/../docs/architecture.md"_s));
    const auto words = [](QString text) {
        static const QRegularExpression quoted(u"`([A-Za-z]+)`"_s);
        QStringList result;
        for (auto matches = quoted.globalMatch(text); matches.hasNext();)
            result << matches.next().captured(1);
        result.sort();
        return result;
    };
    const auto sorted = [](const char *names) {
        QStringList result = QString::fromLatin1(names).split(u' ', Qt::SkipEmptyParts);
        result.sort();
        return result;
    };
    for (const Row &row : rows) {
        const QString start = u"\n| `%1` |"_s.arg(QLatin1StringView(row.name));
        const qsizetype at = document.indexOf(start);
        ASSERT_GE(at, 0) << row.name;
        const QStringList columns = document.mid(at + 1).section(u'\n', 0, 0).split(u'|');
        ASSERT_EQ(columns.size(), 6) << row.name;
        EXPECT_EQ(words(columns[3]), sorted(row.byFramework)) << row.name;
        QStringList answers;
        for (const auto &[letter, name] : {std::pair("d", u"isDownloaded"_s),
                                           {"l", u"isDownloading"_s},
                                           {"g", u"isInstalling"_s},
                                           {"i", u"isInstalled"_s}}) {
            if (QLatin1StringView(row.properties).contains(QLatin1StringView(letter)))
                answers << name;
        }
        answers.sort();
        EXPECT_EQ(words(columns[4]), answers) << row.name;
    }
}

TEST_F(StateTable, SlotMayDestroyTheUpdateThatChanges) {
    auto *update = new TXUpdate;
    tx::detailsOf(*update).state = UpdateState::Unpacking;
    int announced = 0;
    QObject::connect(update, &TXUpdate::isInstallingChanged, update, [&] {
        ++announced;
        delete update;
    });
    QObject::connect(update, &TXUpdate::isDownloadedChanged, update, [&] { ++announced; });
    EXPECT_TRUE(tx::changeState(*update, UpdateState::Available));
    EXPECT_EQ(announced, 1);
}

} // namespace

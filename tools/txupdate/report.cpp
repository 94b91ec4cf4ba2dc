// SPDX-License-Identifier: MIT
#include "model/versioncomparison.h"
#include "os/filesystem.h"
#include "os/services.h"
#include "publish/progress.h"
#include "report/logs.h"
#include "report/summary.h"
#include "report/tables.h"
#include "txupdate/commands.h"
#include "txupdate/reportwords.h"

#include <TarvixUpdate/TXError.h>

#include <QByteArrayView>
#include <QString>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

constexpr int mostDays = 3660;

QString text(const std::string &value) { return QString::fromStdString(value); }

void tellAbout(const report::LogResult &log) {
    const QString name = text(log.log);
    if (!log.error.empty())
        complain(u"%1 cannot be read%2: %3"_s.arg(name, log.newLines > 0 ? u" to its end"_s : QString(),
                                                  text(log.error)));
    if (!log.malformed.empty()) {
        complain(u"%1: %2 of %3 lines are malformed and were not counted. Those that are new:"_s.arg(
            name, text(report::textOfNumber(log.state.malformed)),
            text(report::textOfNumber(log.state.lines))));
        for (const report::MalformedLine &line : log.malformed)
            complain(u"  line %1: %2"_s.arg(line.line).arg(text(line.reason)));
    }
}

bool write(const std::string &content) {
    return std::fwrite(content.data(), 1, content.size(), stdout) == content.size();
}

std::string checkDay(const std::string &value) {
    return report::dayOfText(value) ? std::string() : "expected a day such as 2026-11-22, found " + value;
}

} // namespace

struct ReportWords::Data {
    std::vector<std::string> logs;
    std::string database = "txupdate-report.sqlite";
    std::string application;
    std::string until;
    std::string dayOfBodies;
    std::string output;
    report::Period period;
    bool json = false;
    bool csv = false;
    bool svg = false;
    CLI::App *command = nullptr;

    [[nodiscard]] int run() const;
    /// Absent if the counts cannot be stored or read.
    std::optional<bool> readLogs(report::Counts &counts, std::vector<report::LogResult> &results) const;
    /// Formats the result as requested. Absent if the counts cannot be read.
    std::optional<std::string> compose(report::Counts &counts,
                                       const std::vector<report::LogResult> &logs) const;
};

ReportWords::ReportWords(CLI::App &program)
    : d(std::make_unique<Data>()) {
    d->command = program.add_subcommand(
        "report",
        "Count the active installations in a server's logs, by version, system and day.\n"
        "Logs are in the common or combined format or JSON lines, or hold the bodies of requests; all "
        "of them may be compressed by gzip. They are read once: the database keeps the counts. "
        "Without LOG, report what it has.");
    d->command->add_option("LOG", d->logs, "a log; \"-\" is standard input");
    d->command->add_option("--database", d->database, "where the counts are kept")->capture_default_str();
    d->command->add_option("--application", d->application, "only this one, by its name");
    d->command->add_option("--days", d->period.days, "the length of the period")
        ->capture_default_str()
        ->check(CLI::Range(1, mostDays));
    d->command->add_option("--until", d->until, "its last day; by default the last on which a check was seen")
        ->check(checkDay);
    d->command
        ->add_option("--day", d->dayOfBodies,
                     "the day of request bodies without a time; without it they only tell the systems")
        ->check(checkDay);
    auto *json = d->command->add_flag("--json", d->json, "print JSON, with what was found in each log");
    auto *csv = d->command->add_flag("--csv", d->csv, "print each installation on each day as CSV");
    auto *svg = d->command->add_flag("--svg", d->svg, "print a chart");
    json->excludes(csv)->excludes(svg);
    csv->excludes(svg);
    d->command->add_option("-o,--output", d->output, "write to this file instead");
}

ReportWords::~ReportWords() = default;

std::optional<int> ReportWords::run() const {
    return d->command->parsed() ? std::optional(d->run()) : std::nullopt;
}

std::optional<bool> ReportWords::Data::readLogs(report::Counts &counts,
                                                std::vector<report::LogResult> &results) const {
    bool isWhole = true;
    publishing::Progress progress(json ? -1 : STDERR_FILENO);
    for (const std::string &log : logs) {
        progress.begin(u"Reading "_s + text(log), 0);
        std::optional<report::LogResult> result =
            report::readLog(log, counts, report::dayOfText(dayOfBodies),
                            [&](int64_t done, int64_t total) { progress.show(done, total); });
        progress.end();
        if (!result)
            return std::nullopt;
        tellAbout(*result);
        isWhole &= result->error.empty();
        results.push_back(std::move(*result));
    }
    return isWhole;
}

std::optional<std::string> ReportWords::Data::compose(report::Counts &counts,
                                                      const std::vector<report::LogResult> &results) const {
    report::Period shown = period;
    shown.last = report::dayOfText(until);
    if (csv) {
        std::string content = report::csvHeader();
        if (!report::forEachRow(counts, application, shown,
                                [&](const report::Row &row) { content += report::csvOf(row); }))
            return std::nullopt;
        return content;
    }
    const auto isOlder = [](const std::string &a, const std::string &b) {
        return compareVersions(text(a), text(b)) < 0;
    };
    const auto summaries = report::summarize(counts, application, shown, isOlder);
    if (!summaries)
        return std::nullopt;
    if (svg)
        return report::chartOf(*summaries);
    return json ? report::jsonOf(*summaries, results) : report::tableOf(*summaries);
}

int ReportWords::Data::run() const {
    std::string error;
    const auto refuse = [&](const std::string &why) {
        complain(u"the counts cannot be kept in %1: %2"_s.arg(text(database), text(why)));
        return ExitFailed;
    };
    if (logs.empty() && !services().fileSystem->exists(text(database))) {
        complain(u"there are no counts in %1 yet; name the logs to read"_s.arg(text(database)));
        return ExitFailed;
    }
    const std::unique_ptr<report::Counts> counts = report::Counts::open(database, error);
    if (!counts)
        return refuse(error);
    std::vector<report::LogResult> results;
    const std::optional<bool> isWhole = readLogs(*counts, results);
    const std::optional<std::string> content = isWhole ? compose(*counts, results) : std::nullopt;
    if (!content)
        return refuse(counts->error());
    if (output.empty()) {
        if (!write(*content) || std::fflush(stdout) != 0) {
            complain(u"standard output cannot be written"_s);
            return ExitFailed;
        }
    } else if (const TXError fault = services().fileSystem->replaceFile(
                   text(output), QByteArrayView(content->data(), static_cast<qsizetype>(content->size())),
                   0644)) {
        complain(u"%1 cannot be written: %2"_s.arg(text(output), fault.localizedDescription()));
        return ExitFailed;
    }
    return *isWhole ? ExitDone : ExitFailed;
}

} // namespace tx::cli

// SPDX-License-Identifier: MIT
// Logs that grow, are rotated, compressed, truncated or damaged, and the effect on the counts.
#include "report/logs.h"
#include "report/summary.h"
#include "report/tables.h"
#include "tests/tools/report/reporttest.h"
#include "tests/tools/txupdate/terminal.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

QByteArray compressed(const QByteArray &content) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    QByteArray result(static_cast<qsizetype>(deflateBound(&stream, static_cast<uLong>(content.size()))) + 64,
                      0);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.constData()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    result.truncate(static_cast<qsizetype>(stream.total_out));
    deflateEnd(&stream);
    return result;
}

/// Makes `count` lines with installations from `first` on. Together they are longer than the compared part.
QByteArray lines(int first, int count) {
    QByteArray result;
    for (int i = first; i < first + count; ++i)
        result += checkLine("22", "1042", i);
    return result;
}

class ReportLogs : public Report {
protected:
    const QString access = path(u"access.log"_s);
    const QString rotated = path(u"access.log.1"_s);

    /// "new lines / all lines / installations"
    QString read(const QString &log) const {
        const QJsonObject all = reported({log});
        const QJsonObject found = firstLog(all);
        return u"%1/%2/%3"_s.arg(found[u"newLines"_s].toInt())
            .arg(found[u"lines"_s].toInt())
            .arg(firstApplication(all)[u"installations"_s].toInt());
    }
};

TEST_F(ReportLogs, GrowingLogIsReadOnce) {
    for (const int before : {1, 100}) { // shorter and longer than the compared part
        QFile::remove(database());
        writeFile(access, lines(0, before));
        EXPECT_EQ(read(access), u"%1/%1/%1"_s.arg(before));
        EXPECT_EQ(read(access), u"0/%1/%1"_s.arg(before));
        writeFile(access, lines(0, before + 1));
        EXPECT_EQ(read(access), u"1/%1/%1"_s.arg(before + 1));
        writeFile(access, lines(0, before + 50));
        EXPECT_EQ(read(access), u"49/%1/%1"_s.arg(before + 50));
        EXPECT_EQ(read(access), u"0/%1/%1"_s.arg(before + 50));
    }
}

TEST_F(ReportLogs, RotatedLogIsKnownByItsContent) {
    writeFile(access, lines(0, 100));
    EXPECT_EQ(read(access), u"100/100/100"_s);
    // The log is renamed after more lines, then compressed. A new log has its old name.
    writeFile(rotated, lines(0, 120));
    writeFile(access, lines(500, 3));
    EXPECT_EQ(read(rotated), u"20/120/120"_s);
    EXPECT_EQ(read(access), u"3/3/123"_s);
    writeFile(path(u"access.log.2.gz"_s), compressed(lines(0, 120)));
    EXPECT_EQ(read(path(u"access.log.2.gz"_s)), u"0/120/123"_s);
    writeFile(rotated, lines(500, 3));
    EXPECT_EQ(read(rotated), u"0/3/123"_s);
}

TEST_F(ReportLogs, CompressedLogIsReadFromWhereThePlainOneEnded) {
    writeFile(access, lines(0, 1500)); // several read buffers
    EXPECT_EQ(read(access), u"1500/1500/1500"_s);
    writeFile(rotated + u".gz"_s, compressed(lines(0, 4000)));
    EXPECT_EQ(read(rotated + u".gz"_s), u"2500/4000/4000"_s);
    EXPECT_EQ(read(rotated + u".gz"_s), u"0/4000/4000"_s);
}

TEST_F(ReportLogs, LogThatWasEmptiedInPlaceBeginsAnew) {
    writeFile(access, lines(0, 100));
    EXPECT_EQ(read(access), u"100/100/100"_s);
    writeFile(access, lines(200, 10));
    EXPECT_EQ(read(access), u"10/10/110"_s);
    writeFile(access, {});
    EXPECT_EQ(read(access), u"0/0/110"_s);
}

TEST_F(ReportLogs, LogThatChangedBeforeItsPlaceIsReadWhole) {
    writeFile(access, lines(0, 100));
    EXPECT_EQ(read(access), u"100/100/100"_s);
    // The same beginning, but different bytes before the position.
    writeFile(access, lines(0, 50) + lines(700, 60));
    EXPECT_EQ(read(access), u"110/110/160"_s);
    // The same beginning, but shorter than the position.
    writeFile(access, lines(0, 50));
    EXPECT_EQ(read(access), u"50/50/160"_s);
}

TEST_F(ReportLogs, UnfinishedLineCountsAndIsReadAgain) {
    writeFile(access, lines(0, 3).chopped(1));
    QJsonObject all = reported({access});
    EXPECT_EQ(firstLog(all)[u"lines"_s], 2);
    EXPECT_EQ(firstLog(all)[u"checks"_s], 2);
    EXPECT_TRUE(firstLog(all)[u"unfinished"_s].toBool());
    EXPECT_EQ(firstApplication(all)[u"installations"_s], 3);
    writeFile(access, lines(0, 3) + lines(3, 1).left(60));
    all = reported({access});
    EXPECT_EQ(firstLog(all)[u"newLines"_s], 1);
    EXPECT_EQ(firstLog(all)[u"malformed"_s], 0);
    EXPECT_TRUE(firstLog(all)[u"unfinished"_s].toBool());
    writeFile(access, lines(0, 4));
    all = reported({access});
    EXPECT_EQ(firstLog(all)[u"newLines"_s], 1);
    EXPECT_FALSE(firstLog(all)[u"unfinished"_s].toBool());
    EXPECT_EQ(firstApplication(all)[u"installations"_s], 4);
}

/// Runs in this process, with the counts in memory. Reading up to any byte and then to the end gives the same
/// result as one run.
TEST_F(ReportLogs, PlaceWhereALogWasCutNeverMatters) {
    const QByteArray log = checkLine("20", "1042", 1) + "garbage\n" + profileLine("21", "12.0.0", "1042", 2) +
                           profileBody("13.0.0", "1042", 1) + "{ \"a\":\n" + checkLine("22", "1043", 1) +
                           "{\n" + profileBody("14.0.0", "1043", 3) + "\r\n" + checkLine("22", "1043", 4);
    const auto result = [&](tx::report::Counts &counts) {
        writeFile(access, log);
        auto found = tx::report::readLog(QFile::encodeName(access).toStdString(), counts, {});
        EXPECT_TRUE(found && found->error.empty());
        found->newLines = 0;
        found->malformed.clear();
        const auto summaries = tx::report::summarize(counts, {}, {}, std::less<>());
        EXPECT_TRUE(summaries);
        return tx::report::jsonOf(*summaries, {*found});
    };
    std::string error;
    const auto whole = tx::report::Counts::open({}, error);
    ASSERT_TRUE(whole) << error;
    const std::string expected = result(*whole);
    EXPECT_NE(expected.find("\"installations\":3"), std::string::npos) << expected;
    EXPECT_NE(expected.find("\"malformed\":3"), std::string::npos) << expected;
    for (qsizetype cut = 0; cut < log.size(); ++cut) {
        const auto counts = tx::report::Counts::open({}, error);
        writeFile(access, log.left(cut));
        ASSERT_TRUE(tx::report::readLog(QFile::encodeName(access).toStdString(), *counts, {}));
        ASSERT_EQ(result(*counts), expected) << "cut after " << cut << " bytes";
    }
}

TEST_F(ReportLogs, DamagedCompressedLogCountsUpToTheDamageAndFails) {
    // Random lines, which do not compress well.
    const QByteArray whole = compressed(lines(0, 20000));
    writeFile(rotated, whole.left(whole.size() / 2));
    const ProcessResult cut = report({rotated, u"--json"_s});
    EXPECT_EQ(cut.status, 1);
    EXPECT_TRUE(
        cut.errors.contains("access.log.1 cannot be read to its end: the compressed log ends too early"))
        << cut.errors.constData();
    const int found = firstApplication(json(cut))[u"installations"_s].toInt();
    EXPECT_GT(found, 1000);
    EXPECT_LT(found, 20000);
    // After the repair, reading resumes at the position.
    writeFile(rotated, whole);
    const QJsonObject repaired = reported({rotated});
    EXPECT_LT(firstLog(repaired)[u"newLines"_s].toInt(), 20000);
    EXPECT_EQ(firstLog(repaired)[u"lines"_s], 20000);
    EXPECT_EQ(firstApplication(repaired)[u"installations"_s], 20000);

    QByteArray changed = compressed(lines(30000, 20000));
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 0x55);
    writeFile(access, changed);
    const ProcessResult damaged = report({access});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_TRUE(damaged.errors.contains("access.log cannot be read")) << damaged.errors.constData();
}

TEST_F(ReportLogs, LogsThatCannotBeReadAreNamedAndTheOthersCounted) {
    writeFile(access, lines(0, 2));
    const ProcessResult result = report({path(u"missing.log"_s), path({}), access, u"--json"_s});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.errors.contains("missing.log cannot be read: No such file or directory\n"))
        << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("cannot be read: it is a folder; name the files in it\n"))
        << result.errors.constData();
    EXPECT_EQ(firstApplication(json(result))[u"installations"_s], 2);
    EXPECT_EQ(json(result)[u"logs"_s].toArray().at(0)[u"error"_s], u"No such file or directory"_s);
    EXPECT_TRUE(json(result)[u"logs"_s].toArray().at(2)[u"error"_s].isNull());
}

TEST_F(ReportLogs, StandardInputIsReadEachTime) {
    for (int i = 0; i < 2; ++i) {
        const ProcessResult result = report({u"-"_s, u"--json"_s}, lines(0, 3));
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(firstLog(json(result))[u"newLines"_s], 3);
        EXPECT_EQ(firstApplication(json(result))[u"installations"_s], 3);
    }
}

TEST_F(ReportLogs, EndlessLineIsOneMalformedLine) {
    QByteArray log = lines(0, 1) + QByteArray(5'000'000, '\0') + '\n' + lines(1, 1) + "{" +
                     QByteArray(3'000'000, 'a') + '\n' + lines(2, 1) + QByteArray(100'000, 'x');
    writeFile(access, log);
    const ProcessResult result = report({access, u"--json"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(firstLog(json(result))[u"malformed"_s], 3) << result.output.constData();
    EXPECT_EQ(firstApplication(json(result))[u"installations"_s], 3);
    EXPECT_TRUE(result.errors.contains("line 2: longer than 64 KiB\n")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("line 4: longer than 64 KiB\n")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("line 6: longer than 64 KiB\n")) << result.errors.constData();
}

/// A log that is a pipe: the process waits in the middle of it.
class ReportFromPipe : public ReportLogs {
protected:
    void SetUp() override {
        ReportLogs::SetUp();
        ASSERT_EQ(mkfifo(QFile::encodeName(pipe()).constData(), 0600), 0);
        process.start(programsFolder() + u"/txupdate"_s,
                      {u"report"_s, u"--json"_s, u"--database"_s, database(), pipe()});
        ASSERT_TRUE(process.waitForStarted());
        // open() returns when the process has opened the other end.
        writer = ::open(QFile::encodeName(pipe()).constData(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(writer, 0);
        // More than the pipe can buffer: once everything is written, the process has read a part of it.
        const QByteArray half = lines(0, 2000);
        ASSERT_EQ(::write(writer, half.constData(), static_cast<size_t>(half.size())), half.size());
    }
    void TearDown() override {
        if (writer >= 0)
            ::close(writer);
        process.kill();
        process.waitForFinished();
    }
    QString pipe() const { return path(u"pipe"_s); }

    QProcess process;
    int writer = -1;
};

TEST_F(ReportFromPipe, KilledProcessLeavesNothingOfTheLogAndTheNextOneIsWhole) {
    process.kill();
    ASSERT_TRUE(process.waitForFinished());
    EXPECT_EQ(report({}).output, QByteArray("No checks were found.\n"));
    writeFile(access, lines(0, 2000));
    EXPECT_EQ(read(access), u"2000/2000/2000"_s);
}

TEST_F(ReportFromPipe, TwoProcessesTakeTurns) {
    writeFile(access, lines(5000, 10));
    QProcess second;
    second.start(programsFolder() + u"/txupdate"_s,
                 {u"report"_s, u"--json"_s, u"--database"_s, database(), access});
    ASSERT_TRUE(second.waitForStarted());
    ::close(writer);
    writer = -1;
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_TRUE(second.waitForFinished(120000));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
    EXPECT_EQ(second.exitCode(), 0) << second.readAllStandardError().constData();
    EXPECT_EQ(firstApplication(reported({}))[u"installations"_s], 2010);
}

TEST_F(ReportLogs, FullDiskStoresNothingAndTheNextRunIsWhole) {
    ASSERT_EQ(report({file(lines(0, 1), u"first.log"_s)}).status, 0);
    writeFile(access, lines(10, 20000));
    // Limits files to 64 KiB.
    const ProcessResult full = runProcess(
        u"sh"_s,
        {u"-c"_s, u"trap '' XFSZ; ulimit -f 64; exec \"$0\" report --json --database \"$1\" \"$2\""_s,
         programsFolder() + u"/txupdate"_s, database(), access});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.output, QByteArray());
    EXPECT_TRUE(full.errors.contains("the counts cannot be kept in ")) << full.errors.constData();
    EXPECT_EQ(firstApplication(reported({}))[u"installations"_s], 1);
    EXPECT_EQ(read(access), u"20000/20000/20001"_s);
}

/// The bar counts what is stored in the file, because the size of the content of a compressed log is not
/// known.
TEST_F(ReportLogs, ProgressCountsBytesOfTheFile) {
    const QByteArray content = lines(0, 20000);
    struct {
        const char *name;
        QByteArray content;
    } const table[] = {{"plain.log", content}, {"compressed.log.gz", compressed(content)}};
    for (const auto &row : table) {
        const QString log = file(row.content, QString::fromLatin1(row.name));
        std::string error;
        const auto counts = tx::report::Counts::open({}, error);
        ASSERT_TRUE(counts) << error;
        std::vector<int64_t> steps;
        const auto result = tx::report::readLog(QFile::encodeName(log).toStdString(), *counts, {},
                                                [&](int64_t done, int64_t total) {
                                                    EXPECT_EQ(total, row.content.size()) << row.name;
                                                    steps.push_back(done);
                                                });
        ASSERT_TRUE(result && result->error.empty()) << row.name;
        EXPECT_EQ(result->newLines, 20000) << row.name;
        EXPECT_EQ(steps.size(), 20000U / 256) << row.name;
        EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end())) << row.name;
        EXPECT_GT(steps.front(), 0) << row.name;
        EXPECT_LE(steps.front(), row.content.size()) << row.name;
        EXPECT_EQ(steps.back(), row.content.size()) << row.name << ": the last block has been read";
    }
}

class ReportAtTerminal : public ReportLogs, protected Terminal {};

TEST_F(ReportAtTerminal, LogThatTakesLongerThanASecondShowsProgressAndThenTheTable) {
    const QString pipe = path(u"log"_s);
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    start({u"report"_s, u"--database"_s, database(), pipe});
    // open() returns when the process has opened the other end.
    const int writer = ::open(QFile::encodeName(pipe).constData(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    const QByteArray block = lines(0, 500);
    constexpr int mostBlocks = 1500;
    bool isShown = false;
    for (int i = 0; i < mostBlocks && !isShown; ++i) {
        ASSERT_EQ(::write(writer, block.constData(), static_cast<size_t>(block.size())), block.size());
        isShown = waitFor("\r\033[KReading " + pipe.toUtf8() + ' ', 20);
    }
    EXPECT_TRUE(isShown) << shown.constData();
    ::close(writer);
    EXPECT_EQ(status(), 0) << shown.constData();
    const QByteArray last = shown.mid(shown.lastIndexOf("\r\033[K") + 4);
    EXPECT_TRUE(last.startsWith("My App: 500 active installations")) << shown.constData();
}

} // namespace

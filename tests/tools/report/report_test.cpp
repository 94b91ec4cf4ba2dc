// SPDX-License-Identifier: MIT
// What `txupdate report` prints about checks.
#include "tests/tools/report/reporttest.h"

#include <QDir>
#include <QXmlStreamReader>

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

/// Three installations. The first one updates on the second day, the second one is active only on the first
/// day, and the third one has a profile.
const QByteArray threeInstallations = checkLine("20", "1042", 1) + checkLine("20", "1042", 2) +
                                      checkLine("20", "1042", 1) + profileLine("20", "12.0.0", "1041", 3) +
                                      checkLine("21", "1042", 1) + checkLine("21", "1043", 1) +
                                      checkLine("22", "1041", 3);

TEST_F(Report, CountsInstallationsByVersionSystemAndDay) {
    const QJsonObject application =
        firstApplication(reported({file(threeInstallations), u"--days"_s, u"4"_s}));
    EXPECT_EQ(application[u"application"_s], u"My App"_s);
    EXPECT_EQ(application[u"from"_s], u"2026-11-19"_s);
    EXPECT_EQ(application[u"to"_s], u"2026-11-22"_s);
    EXPECT_EQ(application[u"installations"_s], 3);
    EXPECT_EQ(versions(application), u"1043: 1, 1042: 1, 1041: 1"_s);
    EXPECT_EQ(systems(application), u"?: 2, 12.0.0: 1"_s);
    ASSERT_EQ(application[u"days"_s].toArray().size(), 4);
    EXPECT_EQ(onDay(application, u"2026-11-19"_s)[u"installations"_s], 0);
    EXPECT_EQ(versions(onDay(application, u"2026-11-20"_s)), u"1042: 2, 1041: 1"_s);
    EXPECT_EQ(systems(onDay(application, u"2026-11-20"_s)), u"?: 2, 12.0.0: 1"_s);
    // Counted once, with the newer of two versions.
    EXPECT_EQ(versions(onDay(application, u"2026-11-21"_s)), u"1043: 1"_s);
    EXPECT_EQ(systems(onDay(application, u"2026-11-22"_s)), u"12.0.0: 1"_s);
}

TEST_F(Report, TableShowsTheSame) {
    const ProcessResult result = report({file(threeInstallations), u"--days"_s, u"3"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, QByteArray());
    EXPECT_EQ(result.output.toStdString(), "My App: 3 active installations from 2026-11-20 to 2026-11-22\n"
                                           "\n"
                                           "Version     Installations    Share\n"
                                           "1043                    1   33.3 %\n"
                                           "1042                    1   33.3 %\n"
                                           "1041                    1   33.3 %\n"
                                           "\n"
                                           "System      Installations    Share\n"
                                           "not known               2   66.7 %\n"
                                           "12.0.0                  1   33.3 %\n"
                                           "\n"
                                           "Day         Installations\n"
                                           "2026-11-20              3\n"
                                           "2026-11-21              1\n"
                                           "2026-11-22              1\n");
}

TEST_F(Report, CsvHasOneRowForEachInstallationDayAndVersion) {
    const ProcessResult result =
        report({file(threeInstallations + checkLine("22", "2.0%2C%20%22beta%22", 9, "A")), u"--csv"_s});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(result.output.toStdString(),
              "day,application,version,system,installation\n"
              "2026-11-22,A,\"2.0, \"\"beta\"\"\",,00000000-0000-0000-0000-000000000009\n"
              "2026-11-20,My App,1042,,00000000-0000-0000-0000-000000000001\n"
              "2026-11-21,My App,1042,,00000000-0000-0000-0000-000000000001\n"
              "2026-11-21,My App,1043,,00000000-0000-0000-0000-000000000001\n"
              "2026-11-20,My App,1042,,00000000-0000-0000-0000-000000000002\n"
              "2026-11-20,My App,1041,12.0.0,00000000-0000-0000-0000-000000000003\n"
              "2026-11-22,My App,1041,12.0.0,00000000-0000-0000-0000-000000000003\n");
}

TEST_F(Report, ChartHasABarForEachDayDividedByVersion) {
    const ProcessResult result =
        report({file(threeInstallations + checkLine("22", "1%3C2%26", 4)), u"--svg"_s});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    QXmlStreamReader reader(result.output);
    QStringList titles;
    double heights = 0;
    double width = 0;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.name() == u"rect" && reader.attributes().hasAttribute(u"x"_s)) {
            const double height = reader.attributes().value(u"height"_s).toDouble();
            width = reader.attributes().value(u"width"_s).toDouble();
            reader.readNextStartElement();
            titles << reader.readElementText();
            if (titles.last().startsWith(u"2026-11-20"))
                heights += height;
        }
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
    EXPECT_EQ(titles, (QStringList{u"2026-11-20, 1041: 1"_s, u"2026-11-20, 1042: 2"_s,
                                   u"2026-11-21, 1043: 1"_s, u"2026-11-22, 1<2&: 1"_s,
                                   u"2026-11-22, 1041: 1"_s, u"1043"_s, u"1042"_s, u"1041"_s, u"1<2&"_s}));
    // Three installations, and the scale ends at three.
    EXPECT_NEAR(heights, 280, 0.1);
    EXPECT_GT(width, 0);
}

TEST_F(Report, ChartGathersRareVersions) {
    QByteArray log;
    for (int version = 1; version <= 9; ++version) {
        for (int i = 0; i < version; ++i)
            log += checkLine("22", QByteArray::number(version), 100 * version + i);
    }
    const ProcessResult result = report({file(log), u"--svg"_s, u"--days"_s, u"1"_s});
    EXPECT_TRUE(result.output.contains("2026-11-22, other versions: 3<")) << result.output.constData();
    EXPECT_TRUE(result.output.contains("2026-11-22, 3: 3<"));
    EXPECT_FALSE(result.output.contains("2026-11-22, 2: 2<"));
}

TEST_F(Report, VersionsAreInTheOrderOfUpdatesNotOfTexts) {
    const QByteArray log = checkLine("22", "9", 1) + checkLine("22", "10", 2) + checkLine("22", "1.10", 3) +
                           checkLine("22", "1.9", 4) + checkLine("22", "1.9", 3);
    EXPECT_EQ(versions(firstApplication(reported({file(log)}))), u"10: 1, 9: 1, 1.10: 1, 1.9: 1"_s);
}

TEST_F(Report, ManyVersionsAreOneLineOfTheTableAndAllInJson) {
    QByteArray log;
    for (int i = 1; i <= 25; ++i)
        log += checkLine("22", QByteArray::number(i), i);
    const ProcessResult result = report({file(log)});
    EXPECT_TRUE(result.output.contains("6 others                6   24.0 %\n")) << result.output.constData();
    EXPECT_EQ(firstApplication(reported({}))[u"versions"_s].toArray().size(), 25);
}

/// Rows are stored in groups. The last ones do not fill a group.
TEST_F(Report, EveryRowIsStoredWhateverTheirNumber) {
    for (const int count : {1, 31, 32, 33, 64, 75}) {
        QFile::remove(database());
        QByteArray log;
        for (int i = count; i > 0; --i)
            log += checkLine("22", "1042", i) + checkLine("21", "1041", i) + checkLine("22", "1042", i);
        const ProcessResult result = report({file(log), u"--csv"_s});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        QByteArray expected = "day,application,version,system,installation\n";
        for (int i = 1; i <= count; ++i) {
            const QByteArray installation =
                ",,00000000-0000-0000-0000-" + QByteArray::number(i).rightJustified(12, '0') + '\n';
            expected += "2026-11-21,My App,1041" + installation + "2026-11-22,My App,1042" + installation;
        }
        EXPECT_EQ(result.output, expected) << count;
    }
}

TEST_F(Report, EachApplicationHasAPartOfItsOwn) {
    const QString log =
        file(checkLine("20", "1", 1) + checkLine("22", "7", 1, "Other") + checkLine("22", "8", 2, "Other"));
    const QJsonArray all = reported({log})[u"applications"_s].toArray();
    ASSERT_EQ(all.size(), 2);
    EXPECT_EQ(all[0][u"to"_s], u"2026-11-20"_s);
    EXPECT_EQ(versions(all[1].toObject()), u"8: 1, 7: 1"_s);
    const QJsonArray one = reported({u"--application"_s, u"Other"_s})[u"applications"_s].toArray();
    ASSERT_EQ(one.size(), 1);
    EXPECT_EQ(one[0][u"application"_s], u"Other"_s);
    EXPECT_EQ(report({u"--application"_s, u"None"_s}).output, QByteArray("No checks were found.\n"));
    EXPECT_EQ(report({u"--svg"_s}).output.count("active installations by version</text>"), 2);
}

TEST_F(Report, PeriodEndsWhereItIsAskedTo) {
    const QString log = file(threeInstallations);
    const QJsonObject early =
        firstApplication(reported({log, u"--days"_s, u"1"_s, u"--until"_s, u"2026-11-20"_s}));
    EXPECT_EQ(early[u"installations"_s], 3);
    EXPECT_EQ(versions(early), u"1042: 2, 1041: 1"_s);
    const QJsonObject late = firstApplication(reported({u"--days"_s, u"2"_s, u"--until"_s, u"2026-12-31"_s}));
    EXPECT_EQ(late[u"from"_s], u"2026-12-30"_s);
    EXPECT_EQ(late[u"installations"_s], 0);
    EXPECT_EQ(report({u"--csv"_s, u"--days"_s, u"1"_s, u"--until"_s, u"2026-11-21"_s}).output.count('\n'), 3);
}

TEST_F(Report, SystemIsThatOfTheLastProfileBeforeOrTheFirstAfter) {
    const QByteArray log = checkLine("18", "1", 3) + profileLine("19", "11.0.0", "1", 3) +
                           checkLine("20", "1", 3) + profileLine("21", "12.0.0", "1", 3) +
                           checkLine("22", "1", 3);
    const QJsonObject application = firstApplication(reported({file(log)}));
    EXPECT_EQ(systems(application), u"12.0.0: 1"_s);
    for (const auto &[day, expected] :
         {std::pair("18", "11.0.0: 1"), std::pair("19", "11.0.0: 1"), std::pair("20", "11.0.0: 1"),
          std::pair("21", "12.0.0: 1"), std::pair("22", "12.0.0: 1")})
        EXPECT_EQ(systems(onDay(application, u"2026-11-"_s + QString::fromLatin1(day))),
                  QString::fromLatin1(expected))
            << day;
}

TEST_F(Report, BodiesTellSystemsAndCountOnTheDayThatIsGiven) {
    const QString bodies =
        file(profileBody("12.0.0", "1042", 1) + '\n' + profileBody("13.0.0", "1042", 2), u"bodies"_s);
    const QString log = file(checkLine("22", "1042", 1), u"access.log"_s);
    EXPECT_EQ(systems(firstApplication(reported({bodies, log}))), u"12.0.0: 1"_s);
    EXPECT_TRUE(QFile::remove(database()));
    const QJsonObject counted = firstApplication(reported({bodies, u"--day"_s, u"2026-11-21"_s}));
    EXPECT_EQ(counted[u"to"_s], u"2026-11-21"_s);
    EXPECT_EQ(systems(counted), u"12.0.0: 1, 13.0.0: 1"_s);
}

TEST_F(Report, BrokenBodyLosesOnlyItself) {
    const QByteArray broken = profileBody("12.0.0", "1042", 1).chopped(8); // without its last two lines
    const QString bodies =
        file(profileBody("11.0.0", "1042", 1) + broken + profileBody("13.0.0", "1042", 2) + broken);
    const ProcessResult result = report({bodies, u"--day"_s, u"2026-11-21"_s, u"--json"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(systems(firstApplication(json(result))), u"11.0.0: 1, 13.0.0: 1"_s);
    EXPECT_TRUE(result.errors.contains("  line 10: a JSON object without its end\n"))
        << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("2 of 32 lines are malformed")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("  line 26: a JSON object without its end\n"))
        << result.errors.constData();
    // The last record may be incomplete, so it is not counted permanently.
    EXPECT_EQ(firstLog(reported({bodies}))[u"malformed"_s], 2);
}

TEST_F(Report, MalformedLinesAreCountedAndNamedButNotFatal) {
    QByteArray log = checkLine("22", "1042", 1) + "garbage\n" + "GET / HTTP/1.1\n" +
                     checkLine("22", "1042", 2) + checkLine("22", "%1B", 3) +
                     "192.0.2.7 - - [22/Nov/2026:16:54:11 +0000] \"GET / HTTP/1.1\" 200 1\n";
    const QString path = file(log, u"access.log"_s);
    const ProcessResult result = report({path, u"--json"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(QString::fromUtf8(result.errors),
              u"txupdate: %1: 3 of 6 lines are malformed and were not counted. Those that are new:\n"
              "txupdate:   line 2: no time in brackets, such as [22/Nov/2026:16:54:11 +0100]\n"
              "txupdate:   line 3: no time in brackets, such as [22/Nov/2026:16:54:11 +0100]\n"
              "txupdate:   line 5: appVersion is empty, too long, or has control characters\n"_s.arg(path));
    const QJsonObject found = firstLog(json(result));
    EXPECT_EQ(found[u"lines"_s], 6);
    EXPECT_EQ(found[u"checks"_s], 2);
    EXPECT_EQ(found[u"others"_s], 1);
    EXPECT_EQ(found[u"malformed"_s], 3);
    EXPECT_EQ(found[u"firstMalformed"_s].toArray().at(2)[u"line"_s], 5);
    EXPECT_EQ(firstApplication(json(result))[u"installations"_s], 2);
}

TEST_F(Report, OnlyTenMalformedLinesAreNamed) {
    const ProcessResult result = report({file(QByteArray("garbage\n").repeated(100000))});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors.count('\n'), 11) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("100,000 of 100,000 lines are malformed"));
    EXPECT_EQ(result.output, QByteArray("No checks were found.\n"));
}

TEST_F(Report, AddressesAndMachinesAreNotStored) {
    ASSERT_EQ(report({file(threeInstallations)}).status, 0);
    ASSERT_FALSE(QDir(path({})).entryList({u"counts.sqlite"_s}).isEmpty());
    for (const QString &name : QDir(path({})).entryList({u"counts.sqlite*"_s}, QDir::Files)) {
        const QByteArray stored = readFile(path(name));
        for (const char *secret :
             {"192.0.2.7", "jane", "TarvixUpdate/", "20XW0026GE", "feed.json", "access.log"})
            EXPECT_FALSE(stored.contains(secret)) << name.toStdString() << ' ' << secret;
        EXPECT_TRUE(stored.contains("My App"));
    }
}

TEST_F(Report, DatabaseIsReadableOnlyByItsOwner) {
    const mode_t before = umask(0);
    const ProcessResult result = report({file(threeInstallations)});
    umask(before);
    ASSERT_EQ(result.status, 0);
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(database()).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST_F(Report, DatabaseOfSomethingElseIsLeftAlone) {
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(database().toUtf8().constData(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "CREATE TABLE letters (a TEXT)", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);
    const QByteArray before = readFile(database());
    const ProcessResult result = report({file(threeInstallations)});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.errors.contains("it is a database of something else; name another file"))
        << result.errors.constData();
    EXPECT_EQ(result.output, QByteArray());
    EXPECT_EQ(readFile(database()), before);
}

TEST_F(Report, UnusableDatabasesAreRefusedWithAReason) {
    const QString log = file(threeInstallations);
    const auto refusal = [&] {
        const ProcessResult result = report({log});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, QByteArray());
        EXPECT_TRUE(
            result.errors.startsWith("txupdate: the counts cannot be kept in " + database().toUtf8() + ": "));
        return result.errors;
    };
    writeFile(database(), QByteArray("not a database at all").repeated(1000));
    EXPECT_TRUE(refusal().contains("file is not a database"));
    EXPECT_EQ(readFile(database()).size(), 21000);

    ASSERT_TRUE(QFile::remove(database()));
    ASSERT_EQ(report({log}).status, 0);
    sqlite3 *own = nullptr;
    ASSERT_EQ(sqlite3_open(database().toUtf8().constData(), &own), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(own, "PRAGMA user_version = 2", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(own);
    EXPECT_TRUE(refusal().contains("it was made by a newer version of this program"));

    ASSERT_TRUE(QFile::rename(database(), path(u"elsewhere"_s)));
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), database()));
    EXPECT_TRUE(refusal().contains("it is a link; name the file itself"));

    ASSERT_TRUE(QFile::remove(database()));
    ASSERT_TRUE(QDir().mkpath(database()));
    EXPECT_TRUE(refusal().contains("Is a directory"));
}

TEST_F(Report, WithoutLogsItShowsTheCountsThatThereAre) {
    const ProcessResult nothing = report({});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_TRUE(nothing.errors.contains("yet; name the logs to read")) << nothing.errors.constData();
    EXPECT_FALSE(QFile::exists(database()));
    const ProcessResult first = report({file(threeInstallations)});
    EXPECT_EQ(report({}).output, first.output);
}

TEST_F(Report, OutputGoesToAFileOrFails) {
    const QString log = file(threeInstallations);
    const ProcessResult shown = report({log, u"--json"_s, u"--days"_s, u"2"_s});
    for (const QString &form : {u"--json"_s, u"--csv"_s, u"--svg"_s}) {
        const ProcessResult result = report({form, u"-o"_s, path(u"out"_s)});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_EQ(result.output, QByteArray());
        EXPECT_EQ(readFile(path(u"out"_s)), report({form}).output);
    }
    const ProcessResult nowhere = report({u"-o"_s, path(u"missing/out"_s)});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(nowhere.errors.contains("missing/out cannot be written: ")) << nowhere.errors.constData();
    const ProcessResult full =
        runProcess(u"sh"_s, {u"-c"_s, u"exec \"$0\" report --database \"$1\" > /dev/full"_s,
                             programsFolder() + u"/txupdate"_s, database()});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.errors, QByteArray("txupdate: standard output cannot be written\n"));
}

TEST_F(Report, WrongWordsAreRefused) {
    const QString log = file(threeInstallations);
    for (const QStringList &words : {QStringList{u"--json"_s, u"--svg"_s},
                                     {u"--csv"_s, u"--svg"_s},
                                     {u"--json"_s, u"--csv"_s},
                                     {u"--days"_s, u"0"_s},
                                     {u"--days"_s, u"3661"_s},
                                     {u"--until"_s, u"22.11.2026"_s},
                                     {u"--day"_s, u"today"_s}}) {
        const ProcessResult result = report(QStringList{log} + words);
        EXPECT_EQ(result.status, 64) << words.join(u' ').toStdString();
        EXPECT_FALSE(result.errors.isEmpty());
    }
    EXPECT_FALSE(QFile::exists(database()));
}

} // namespace

// SPDX-License-Identifier: MIT
// The recipes of docs/hosting.md, as they are printed.
#include "tests/tools/report/reporttest.h"

#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <sqlite3.h>

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

/// The blocks of a language.
QStringList recipes(const QString &language) {
    QStringList result;
    const QString page = QString::fromUtf8(readFile(sourcesFolder() + u"/../docs/hosting.md"_s));
    const QRegularExpression block(u"^```%1\\n(.*?)^```$"_s.arg(language),
                                   QRegularExpression::MultilineOption |
                                       QRegularExpression::DotMatchesEverythingOption);
    for (auto match = block.globalMatch(page); match.hasNext();)
        result << match.next().captured(1);
    return result;
}

/// What a reader replaces by names of his own; each of them must be there.
QString adapted(QString recipe, const QList<std::pair<QString, QString>> &replacements) {
    for (const auto &[from, to] : replacements) {
        EXPECT_TRUE(recipe.contains(from)) << from.toStdString();
        recipe.replace(from, to);
    }
    return recipe;
}

quint16 freePort() {
    QTcpServer server;
    EXPECT_TRUE(server.listen(QHostAddress::LocalHost));
    return server.serverPort();
}

bool answers(quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    return socket.waitForConnected(1000);
}

class Hosting : public Report {
protected:
    void SetUp() override {
        Report::SetUp();
        writeFile(path(u"www/feed.json"_s),
                  R"({"release":[{"type":"build","build":"1043","downloadURL":"https://e.org/a.zip"}]})");
        becomeHost(u"1042"_s);
    }
    void TearDown() override {
        server.kill();
        server.waitForFinished();
    }
    /// Starts the server anew, with other ports, while something else takes one of them before it does.
    void start(const std::function<void()> &startOnNewPorts) {
        for (int i = 0; i < 5; ++i) {
            startOnNewPorts();
            ASSERT_TRUE(server.waitForStarted()) << server.errorString().toStdString();
            if (waitUntil([this] { return server.state() == QProcess::NotRunning || answers(port); }) &&
                server.state() == QProcess::Running)
                return;
            server.kill();
            server.waitForFinished();
        }
        FAIL() << server.readAllStandardError().constData();
    }
    QString url() const { return u"http://127.0.0.1:%1/feed.json"_s.arg(port); }

    /// A check, with a profile or without.
    FetchedFeed fetch(bool withProfile) {
        TXUpdateSystemProfilePtr profile;
        if (withProfile) {
            profile = std::make_shared<TXUpdateSystemProfile>(TXUpdateSystemProfile::Contents::Empty);
            profile->setOSVersion(u"12.0.0"_s);
        }
        std::optional<FetchedFeed> result;
        TXUpdateFeed::fetchFeedAtURL(QUrl(url()), {}, profile,
                                     [&](const TXUpdateFeedPtr &feed, const TXError &error) {
                                         result = {feed, error};
                                     });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }));
        return result.value_or(FetchedFeed());
    }
    void expectFeed(bool withProfile) {
        const FetchedFeed fetched = fetch(withProfile);
        EXPECT_TRUE(fetched.error.isNull()) << fetched.error.localizedDescription().toStdString();
        ASSERT_TRUE(fetched.feed);
        ASSERT_TRUE(fetched.feed->updates());
        EXPECT_EQ(fetched.feed->updates()->size(), 1);
    }
    /// What the page's commands print that tell whether a server fits.
    QByteArray printedByCommands() {
        const QString commands =
            adapted(recipes(u"sh"_s).value(0), {{u"https://updates.example.org/feed.json"_s, url()}});
        const ProcessResult result = runProcess(u"sh"_s, {u"-c"_s, commands});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        return result.output.toLower().replace("\r", "");
    }

    QProcess server;
    quint16 port = 0;
};

TEST_F(Hosting, NginxAnswersAPostWithTheFeedAndLogsWhatReportReads) {
    const QString nginx =
        QStandardPaths::findExecutable(u"nginx"_s, {u"/usr/sbin"_s, u"/usr/bin"_s, u"/usr/local/sbin"_s});
    ASSERT_FALSE(nginx.isEmpty()) << "nginx is in the group [test] of scripts/packages.txt";
    ASSERT_EQ(recipes(u"nginx"_s).size(), 1);
    const QString log = path(u"updates.log"_s);
    start([&] {
        port = freePort();
        QString recipe =
            adapted(recipes(u"nginx"_s).first(), {{u"listen 443 ssl;"_s, u"listen 127.0.0.1:%1;"_s.arg(port)},
                                                  {u"127.0.0.1:8081"_s, u"127.0.0.1:%1"_s.arg(freePort())},
                                                  {u"/srv/updates"_s, path(u"www"_s)},
                                                  {u"/var/log/nginx/updates.log"_s, log}});
        recipe.remove(QRegularExpression(u"^.*ssl_certificate.*$"_s, QRegularExpression::MultilineOption));
        QString places;
        for (const char *name : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            places += u"%1_temp_path %2;\n"_s.arg(QString::fromLatin1(name), path(QString::fromLatin1(name)));
        writeFile(path(u"nginx.conf"_s), u"daemon off;\nmaster_process off;\npid %1;\nevents {}\nhttp {\n"
                                         "include /etc/nginx/mime.types;\naccess_log off;\n%2%3}\n"_s
                                             .arg(path(u"nginx.pid"_s), places, recipe)
                                             .toUtf8());
        server.start(nginx,
                     {u"-p"_s, path({}), u"-e"_s, path(u"error.log"_s), u"-c"_s, path(u"nginx.conf"_s)});
    });
    ASSERT_FALSE(HasFailure()) << readFile(path(u"error.log"_s)).constData();
    expectFeed(true);
    expectFeed(false);
    EXPECT_EQ(printedByCommands(), QByteArray("content-type: application/json\n200\n"));
    // The log is written after the response.
    ASSERT_TRUE(waitUntil([&] { return readFile(log).count('\n') == 4; })) << readFile(log).constData();
    EXPECT_FALSE(readFile(log).contains("127.0.0.1")) << readFile(log).constData();
    EXPECT_TRUE(readFile(log).contains("systemProfile"));
    const QJsonObject all = reported({log});
    EXPECT_EQ(firstLog(all)[u"checks"_s], 2);
    EXPECT_EQ(firstLog(all)[u"others"_s], 2);
    EXPECT_EQ(versions(firstApplication(all)), u"1042: 1"_s);
    EXPECT_EQ(systems(firstApplication(all)), u"12.0.0: 1"_s);
}

TEST_F(Hosting, StaticHostServesAFeedToAHostWithAProfile) {
    const QString command = recipes(u"sh"_s).value(1).trimmed();
    ASSERT_TRUE(command.startsWith(u"python3 ")) << command.toStdString();
    start([&] {
        port = freePort();
        const QString line =
            adapted(command, {{u"/srv/updates"_s, path(u"www"_s)}, {u"8000"_s, QString::number(port)}});
        server.start(u"sh"_s, {u"-c"_s, u"exec "_s + line + u" --bind 127.0.0.1"_s});
    });
    ASSERT_FALSE(HasFailure());
    expectFeed(true);
    expectFeed(false);
    EXPECT_EQ(printedByCommands(), QByteArray("content-type: application/json\n501\n"));
}

/// Lines as "a|b|c", of each query.
QStringList rowsOf(sqlite3 *database, const QString &queries) {
    QStringList rows;
    const auto add = [](void *result, int count, char **values, char **) {
        QStringList columns;
        for (int i = 0; i < count; ++i)
            columns << QString::fromUtf8(values[i] ? values[i] : "NULL");
        *static_cast<QStringList *>(result) << columns.join(u'|');
        return 0;
    };
    char *error = nullptr;
    EXPECT_EQ(sqlite3_exec(database, queries.toUtf8().constData(), add, &rows, &error), SQLITE_OK) << error;
    sqlite3_free(error);
    return rows;
}

TEST_F(Hosting, QueriesForSeveralMachinesCountAsReportDoes) {
    const QStringList sql = recipes(u"sql"_s);
    ASSERT_EQ(sql.size(), 2);
    // Installation 1 checks on both machines and sends its profile to the first one only; 4 has another
    // application.
    const QByteArray logs[2] = {profileLine("20", "12.0.0", "1042", 1) + checkLine("20", "1042", 2) +
                                    checkLine("21", "1043", 2),
                                checkLine("20", "1042", 1) + checkLine("22", "1043", 1) +
                                    checkLine("22", "1042", 3) + checkLine("22", "7", 4, "Other")};
    sqlite3 *engine = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &engine), SQLITE_OK);
    rowsOf(engine, sql[0]);
    for (int machine = 0; machine < 2; ++machine) {
        const QString counts = path(u"machine%1"_s.arg(machine));
        const ProcessResult rows =
            run({u"report"_s, u"--database"_s, counts, u"--csv"_s, file(logs[machine], u"log"_s)});
        ASSERT_EQ(rows.status, 0);
        const QByteArrayList lines = rows.output.trimmed().split('\n');
        for (qsizetype i = 1; i < lines.size(); ++i)
            rowsOf(engine, u"INSERT INTO activity VALUES ('%1')"_s.arg(
                               QString::fromUtf8(lines[i]).replace(u","_s, u"','"_s)));
    }
    const QStringList found = rowsOf(engine, sql[1]);
    sqlite3_close(engine);

    QStringList days;
    QStringList byVersion;
    QStringList bySystem;
    const QJsonObject all =
        reported({file(logs[0], u"a.log"_s), file(logs[1], u"b.log"_s), u"--until"_s, u"2026-11-22"_s});
    for (const QJsonValue &value : all[u"applications"_s].toArray()) {
        const QJsonObject application = value.toObject();
        const QString name = application[u"application"_s].toString();
        for (const QJsonValue &day : application[u"days"_s].toArray()) {
            if (day[u"installations"_s].toInt() > 0)
                days
                    << u"%1|%2|%3"_s.arg(name, day[u"day"_s].toString()).arg(day[u"installations"_s].toInt());
        }
        for (const QJsonValue &share : application[u"versions"_s].toArray())
            byVersion << u"%1|%2|%3"_s.arg(name, share[u"version"_s].toString())
                             .arg(share[u"installations"_s].toInt());
        for (const QJsonValue &share : application[u"systems"_s].toArray())
            bySystem << u"%1|%2|%3"_s.arg(name, share[u"system"_s].toString(u"not known"_s))
                            .arg(share[u"installations"_s].toInt());
    }
    EXPECT_EQ(days.size(), 4);
    EXPECT_EQ(found, days + byVersion + bySystem);
}

} // namespace

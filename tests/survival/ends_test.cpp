// SPDX-License-Identifier: MIT
// Real host processes that end by every way there is, whatever the framework does meanwhile.
#include "model/settings.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QElapsedTimer>
#include <QProcess>

#include <csignal>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::namesIn;
using tx::test::readFile;
using tx::test::waitUntil;

namespace {

constexpr int status = 7;
constexpr auto executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

/// A host application in a home of its own. The program that unpacks hangs, and leaves its number in a file.
/// The files that describe the system hang as well.
class EndingHost : public tx::test::FrameworkTest {
protected:
    const QString root = path(u"ending"_s);
    const QString app = root + u"/My Host.app"_s;
    const QString cache = root + u"/home/.cache/TarvixUpdate/org.example.Host.TXUpdater"_s;
    const QString resources = root + u"/resources"_s;
    const QString hanging = root + u"/hanging"_s;
    FeedServer server;
    QProcess host;

    EndingHost() {
        tx::test::makeBundle(app, {.build = u"1"_s});
        QDir().mkpath(resources);
        QDir().mkpath(root + u"/home"_s);
        const QString real = tx::test::resourcesFolder();
        for (const QString &name : namesIn(real)) {
            if (name != u"TXUpdateUnpacker")
                QFile::link(real + u'/' + name, resources + u'/' + name);
        }
        tx::test::writeFile(resources + u"/TXUpdateUnpacker"_s,
                            "#!/bin/sh\necho $$ > '" + hanging.toUtf8() + ".new'\nmv '" + hanging.toUtf8() +
                                ".new' '" + hanging.toUtf8() + "'\nwhile :; do sleep 1000; done\n",
                            executable);
        server.always([this](const HttpRequest &request) {
            if (request.path() == "/New.zip") {
                HttpReply reply = HttpReply::file(QByteArray(100000, 'x'), "application/zip");
                if (request.target.endsWith("?slow")) {
                    reply.announcedLength = 200000;
                    reply.stalls = true;
                }
                return reply;
            }
            HttpReply reply = HttpReply::json(
                "{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\",\"downloadURL\":\"" +
                server.url(u"/New.zip"_s).toUtf8() + (request.path() == "/slow" ? "?slow" : "") + "\"}]}");
            if (request.path() == "/stalls") {
                reply.announcedLength = reply.body.size() + 1;
                reply.stalls = true;
            }
            return reply;
        });
    }
    ~EndingHost() override {
        host.kill();
        host.waitForFinished();
        if (const qint64 process = hangingProcess(); process > 1)
            ::kill(static_cast<pid_t>(process), SIGKILL);
    }

    qint64 hangingProcess() const { return readFile(hanging).trimmed().toLongLong(); }

    void start(const QString &stage, const QString &way, const QString &feed = u"/feed"_s) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString home = root + u"/home"_s;
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/.config"_s);
        environment.insert(u"XDG_CACHE_HOME"_s, home + u"/.cache"_s);
        environment.insert(u"XDG_DATA_HOME"_s, home + u"/.local/share"_s);
        environment.insert(u"TXUPDATE_RESOURCES"_s, resources);
        host.setProcessEnvironment(environment);
        host.start(tx::test::helpersFolder() + u"/survival/ending_host"_s,
                   {app, stage, way, server.url(feed)});
        ASSERT_TRUE(host.waitForStarted());
    }

    /// Whether the process has more than one thread and all of them wait.
    bool isQuiet() const {
        const QString tasks = u"/proc/%1/task"_s.arg(host.processId());
        const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        if (threads.size() < 2)
            return false;
        for (const QString &thread : threads) {
            const QByteArray state = readFile(tasks + u'/' + thread + u"/stat"_s);
            if (!state.mid(state.lastIndexOf(')')).startsWith(") S"))
                return false;
        }
        return true;
    }

    QByteArray said() {
        m_said += host.readAllStandardOutput();
        return m_said;
    }

    /// Waits for the end, which must be soon, and checks how it came.
    void expectItEnds(int expectedStatus = status, int limit = 20000) {
        ASSERT_TRUE(host.state() == QProcess::NotRunning || host.waitForFinished(limit))
            << "it hangs; so far: " << said().constData();
        const QByteArray errors = host.readAllStandardError();
        EXPECT_EQ(host.exitStatus(), QProcess::NormalExit) << said().constData() << errors.constData();
        EXPECT_EQ(host.exitCode(), expectedStatus) << said().constData() << errors.constData();
        EXPECT_TRUE(said().endsWith("static objects gone\n")) << said().constData();
        EXPECT_FALSE(said().contains("late")) << said().constData();
        EXPECT_THAT(errors.toStdString(), testing::Not(testing::HasSubstr("left behind")));
    }

private:
    QByteArray m_said;
};

struct End {
    const char *stage;
    const char *way;
    friend void PrintTo(const End &end, std::ostream *out) { *out << end.stage << ' ' << end.way; }
};

class Ends : public EndingHost, public testing::WithParamInterface<End> {
protected:
    /// Whether the framework has come to where the host is to end.
    bool hasArrived() {
        const QByteArray stage = GetParam().stage;
        if (stage == "check")
            return !server.requests().isEmpty();
        if (stage == "profile")
            return said().contains("reading");
        if (stage == "download")
            return namesIn(cache).contains(u".txupdate-download"_s);
        return hangingProcess() > 1;
    }
};

TEST_P(Ends, AtOnceWhateverTheFrameworkDoes) {
    const QByteArray stage = GetParam().stage;
    start(QLatin1StringView(GetParam().stage), QLatin1StringView(GetParam().way),
          stage == "check"      ? u"/stalls"_s
          : stage == "download" ? u"/slow"_s
                                : u"/feed"_s);
    ASSERT_TRUE(waitUntil([this] { return hasArrived() || host.state() == QProcess::NotRunning; }))
        << said().constData();
    ASSERT_EQ(host.state(), QProcess::Running)
        << said().constData() << host.readAllStandardError().constData();
    if (QByteArray(GetParam().way).startsWith("term"))
        host.terminate();
    else
        host.write("\n");
    expectItEnds();
    EXPECT_FALSE(namesIn(cache).contains(u".txupdate-download"_s)) << "half an archive";
    if (const qint64 process = hangingProcess(); process > 1) {
        EXPECT_TRUE(waitUntil([&] { return !tx::test::isAlive(process); })) << "a program goes on";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ways, Ends,
    testing::Values(End{"check", "exit"}, End{"check", "quit"}, End{"check", "term-quit"},
                    End{"check", "term-exit"}, End{"check", "thread-exit"}, End{"profile", "exit"},
                    End{"profile", "quit"}, End{"profile", "term-quit"}, End{"profile", "term-exit"},
                    End{"profile", "thread-exit"}, End{"download", "exit"}, End{"download", "quit"},
                    End{"download", "term-quit"}, End{"download", "term-exit"},
                    End{"download", "thread-exit"}, End{"unpack", "exit"}, End{"unpack", "quit"},
                    End{"unpack", "term-quit"}, End{"unpack", "term-exit"}, End{"unpack", "thread-exit"}));

class EndsWhileBusy : public EndingHost, public testing::WithParamInterface<const char *> {};

TEST_P(EndsWhileBusy, ThoughACheckWaitsForTheMainThread) {
    start(u"busy"_s, QLatin1StringView(GetParam()));
    ASSERT_TRUE(waitUntil([this] { return said().contains("started") && isQuiet(); }));
    host.write("\n");
    expectItEnds();
    EXPECT_FALSE(said().contains("asked"));
    EXPECT_FALSE(said().contains("answered"));
}

INSTANTIATE_TEST_SUITE_P(Ways, EndsWhileBusy, testing::Values("exit", "return"));

TEST_F(EndingHost, MayCallExitWhenItIsAskedForParameters) {
    start(u"asked"_s, u"none"_s);
    ASSERT_TRUE(waitUntil([this] { return said().contains("started") && isQuiet(); }));
    host.write("\n");
    expectItEnds();
    EXPECT_TRUE(said().contains("asked"));
}

TEST_F(EndingHost, MovesItselfWhileACheckWaitsForTheMainThread) {
    const QString old = root + u"/home/Applications/My Host.app"_s;
    tx::test::makeBundle(old, {.build = u"0"_s}); // goes to the Trash
    start(u"move"_s, u"none"_s);
    ASSERT_TRUE(waitUntil([this] { return said().contains("started") && isQuiet(); }));
    host.write("\n");
    expectItEnds(0);
    EXPECT_TRUE(readFile(old + u"/Contents/Info.plist"_s).contains("<string>1</string>"))
        << said().constData();
    EXPECT_FALSE(QFileInfo::exists(app));
}

TEST_F(EndingHost, ChecksThoughItsOwnThreadPoolIsFull) {
    start(u"full-pool"_s, u"quit"_s);
    ASSERT_TRUE(waitUntil([this] { return said().contains("checked"); })) << said().constData();
    host.write("\n");
    expectItEnds();
}

TEST_F(EndingHost, LeavesBehindWhatCannotBeInterrupted) {
    for (const auto &[stage, words] :
         {std::pair("stuck-network", "the network thread does not end and is left behind"),
          std::pair("stuck-job", "a background job does not end and is left behind")}) {
        start(QLatin1StringView(stage), u"exit"_s);
        ASSERT_TRUE(waitUntil([this] { return host.readAllStandardOutput().contains("stuck"); }));
        host.write("\n");
        ASSERT_TRUE(host.waitForFinished(40000)) << stage;
        EXPECT_EQ(host.exitStatus(), QProcess::NormalExit) << stage;
        EXPECT_EQ(host.exitCode(), status) << stage;
        EXPECT_THAT(host.readAllStandardError().toStdString(), testing::HasSubstr(words));
    }
}

TEST_F(EndingHost, ChecksAtItsIntervalAsSoonAsTheUpdaterIsMade) {
    // The settings are those of an earlier start.
    start(u"scheduled"_s, u"none"_s);
    expectItEnds(0);
    EXPECT_TRUE(server.requests().isEmpty());
    host.setProcessEnvironment({});
    start(u"made"_s, u"quit"_s);
    EXPECT_TRUE(waitUntil([this] { return !server.requests().isEmpty(); }));
    host.write("\n");
    ASSERT_TRUE(host.waitForFinished(20000));
    EXPECT_EQ(host.exitCode(), status);
}

} // namespace

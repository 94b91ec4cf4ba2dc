// SPDX-License-Identifier: MIT
// Real processes of a host application and of its installer, in which each change of the file system, each
// program that is started and each hand-over fails, is killed or hangs, once or always; started again until
// the update has settled.
#include "platform/propertylist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/processes.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QSet>

#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::HttpReply;
using tx::test::namesIn;
using tx::test::readFile;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

constexpr auto executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

struct Outcome {
    int status = -1; ///< -1: killed
    QByteArray text;
};

class Survival : public tx::test::FrameworkTest {
protected:
    const QString root = path(u"survival"_s);
    const QString app = root + u"/Applications/My Host.app"_s;
    const QString plan = root + u"/plan"_s;
    const QString launches = root + u"/launches"_s;
    const QString cache = root + u"/home/.cache/TarvixUpdate/org.example.Host.TXUpdater"_s;
    const QString settings = root + u"/home/.config/org.example.Host.plist"_s;
    const QString resources = root + u"/resources"_s;
    QStringList oldTree;
    QStringList newTree;
    QByteArray archive;
    tx::test::FeedServer server;

    Survival() {
        const QString fresh = path(u"staging/My Host.app"_s);
        tx::test::makeBundle(fresh, {.build = u"2"_s, .displayVersion = u"2.0"_s, .program = program("2")});
        writeFile(fresh + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        newTree = treeOf(fresh);
        tx::test::makeArchive(path(u"archive"_s), tx::test::ArchiveKind::Zip, tx::test::entriesOf(fresh));
        archive = readFile(path(u"archive"_s));
        server.always([this](const tx::test::HttpRequest &request) {
            if (request.path() == "/New.zip")
                return HttpReply::file(archive, "application/zip");
            return HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\","
                                   "\"downloadURL\":\"" +
                                   server.url(u"/New.zip"_s).toUtf8() + "\"}]}");
        });
    }
    ~Survival() override { endSurvivors(0); }

    /// An application that records that it was opened, and is the fault host when it is given a command.
    QByteArray program(const QByteArray &build) const {
        return "#!/bin/sh\n[ $# = 0 ] && { echo " + build + " >> '" + launches.toUtf8() +
               "'; exit 0; }\nexec '" + TEST_HELPERS + "/survival/fault_host' '" + app.toUtf8() +
               "' \"$@\"\n";
    }
    void prepare() {
        QDir(root).removeRecursively();
        tx::test::makeBundle(app, {.build = u"1"_s, .displayVersion = u"1.0"_s, .program = program("1")});
        writeFile(app + u"/Contents/Resources/only-old"_s, "x");
        oldTree = treeOf(app);
        QDir().mkpath(root + u"/home"_s);
        const QString real = QStringLiteral(TEST_RESOURCES);
        QDir().mkpath(resources);
        for (const QString &name : namesIn(real)) {
            if (name != u"TXUpdateInstaller.app" && name != u"ditto")
                QFile::link(real + u'/' + name, resources + u'/' + name);
        }
        const QString tool = resources + u"/TXUpdateInstaller.app/Contents"_s;
        QDir().mkpath(tool + u"/MacOS"_s);
        QFile::link(plan, tool + u"/plan"_s);
        QFile::copy(QStringLiteral(TEST_HELPERS) + u"/survival/fault_installer"_s,
                    tool + u"/MacOS/TXUpdateInstaller"_s);
        writeFile(
            resources + u"/ditto"_s,
            "#!/bin/sh\necho 'ditto #1' >> \"$FAULT_PLAN.trace\"\n{ read -r how; read -r point; } < "
            "\"$FAULT_PLAN\"\nif [ \"$point\" = 'ditto #1' ]; then\n  case $how in\n  *-once) mkdir "
            "\"$FAULT_PLAN.taken\" 2> /dev/null || how=none;;\n  esac\n  case $how in\n  fail-*) exit 1;;\n  "
            "kill-*) kill -9 $$;;\n  hang-*) exec sleep 1000;;\n  esac\nfi\nexec '" +
                real.toUtf8() + "/ditto' \"$@\"\n",
            executable);
        setPlan({}, {});
    }
    void setPlan(const QString &how, const QString &point) const {
        writeFile(plan, how.toUtf8() + '\n' + point.toUtf8() + '\n');
        QDir(plan + u".taken"_s).removeRecursively();
    }
    QStringList trace() const {
        QStringList points = QString::fromUtf8(readFile(plan + u".trace"_s)).split(u'\n', Qt::SkipEmptyParts);
        points.removeDuplicates();
        return points;
    }
    /// Processes that came out of a host of this test.
    QList<pid_t> survivors() const {
        QList<pid_t> result;
        const QByteArray mark = root.toUtf8();
        for (const QString &name : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
            const auto pid = static_cast<pid_t>(name.toLong());
            if (pid <= 1 || pid == getpid())
                continue;
            const QString folder = u"/proc/"_s + name;
            const bool ours = QFile::symLinkTarget(folder + u"/exe"_s).startsWith(root + u'/') ||
                              readFile(folder + u"/environ"_s).contains("FAULT_PLAN=" + mark);
            if (ours && !readFile(folder + u"/cmdline"_s).isEmpty())
                result.append(pid);
        }
        return result;
    }
    /// Waits for the processes of this test to end, and ends those that take longer.
    bool endSurvivors(int milliseconds) const {
        QElapsedTimer timer;
        timer.start();
        while (!survivors().isEmpty()) {
            if (timer.elapsed() >= milliseconds) {
                for (const pid_t pid : survivors())
                    kill(pid, SIGKILL);
                (void)tx::test::waitUntil([this] { return survivors().isEmpty(); });
                return false;
            }
            usleep(5000);
        }
        return true;
    }
    Outcome run(const QStringList &words, bool hangs, const QString &bundle = {}) const {
        QProcess host;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const QString home = root + u"/home"_s;
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/.config"_s);
        environment.insert(u"XDG_CACHE_HOME"_s, home + u"/.cache"_s);
        environment.insert(u"XDG_DATA_HOME"_s, home + u"/.local/share"_s);
        environment.insert(u"TXUPDATE_RESOURCES"_s, resources);
        environment.insert(u"FAULT_PLAN"_s, plan);
        host.setProcessEnvironment(environment);
        host.setProcessChannelMode(QProcess::MergedChannels);
        host.setProgram(QStringLiteral(TEST_HELPERS) + u"/survival/fault_host"_s);
        host.setArguments(QStringList{bundle.isNull() ? app : bundle} + words);
        host.start();
        const int patience = hangs ? 700 : 20000;
        if (!host.waitForFinished(patience)) {
            EXPECT_TRUE(hangs) << "it hangs";
            host.kill();
            host.waitForFinished();
        }
        const bool ended = endSurvivors(patience);
        EXPECT_TRUE(ended || hangs) << "something of it hangs";
        return {host.exitStatus() == QProcess::NormalExit ? host.exitCode() : -1, host.readAll()};
    }
    Outcome update(bool hangs = false) const { return run({u"update"_s, server.url(u"/feed"_s)}, hangs); }

    void expectComplete() const {
        const QStringList tree = treeOf(app);
        EXPECT_TRUE(tree == oldTree || tree == newTree) << tree.join(u'\n').toStdString();
    }
    void expectReadableSettings() const {
        if (QFileInfo::exists(settings)) {
            EXPECT_TRUE(tx::readPropertyList(readFile(settings))) << readFile(settings).constData();
        }
    }
    void expectNoStrays() const {
        EXPECT_EQ(namesIn(root + u"/Applications"_s), QStringList{u"My Host.app"_s});
        EXPECT_TRUE(namesIn(cache).isEmpty()) << namesIn(cache).join(u' ').toStdString();
        QStringList settingsFiles = namesIn(root + u"/home/.config"_s);
        EXPECT_EQ(settingsFiles,
                  (QStringList{u".org.example.Host.plist.lock"_s, u"org.example.Host.plist"_s}));
    }
    qsizetype launched() const { return readFile(launches).count('\n'); }
    QByteArray log() const { return readFile(plan + u".log"_s); }

    /// Plans a fault, starts the host until it has nothing more to do, and looks after each time.
    void survive(const QString &how, const QString &point) {
        SCOPED_TRACE((how + u" at "_s + point).toStdString());
        prepare();
        setPlan(how, point);
        const bool hangs = how.startsWith(u"hang"_s);
        const bool once = how.endsWith(u"-once"_s);
        constexpr int most = 4;
        int runs = 0;
        bool explained = false;
        Outcome last;
        while (runs < (once ? most : 2) && last.status != 10) {
            last = update(hangs);
            ++runs;
            expectComplete();
            expectReadableSettings();
            EXPECT_LE(launched(), runs) << "no restart loop";
            explained = explained || last.status != 0 || !log().isEmpty() || treeOf(app) == newTree ||
                        last.text.contains("An earlier installation did not come to its end.");
        }
        EXPECT_TRUE(explained) << "somebody says why\n" << last.text.constData() << log().constData();
        if (once) {
            EXPECT_EQ(last.status, 10) << "it has settled\n" << last.text.constData() << log().constData();
        }
        // The fault goes, and the next run comes through.
        setPlan({}, {});
        Outcome then = update();
        if (then.status != 10)
            then = update();
        EXPECT_EQ(then.status, 10) << then.text.constData() << log().constData();
        EXPECT_EQ(treeOf(app), newTree);
        expectReadableSettings();
        expectNoStraysAfterCleaning();
    }
    /// What is left is left for the next update, and gone after it.
    void expectNoStraysAfterCleaning() {
        if (!namesIn(cache).isEmpty() || namesIn(root + u"/Applications"_s).size() > 1) {
            tx::test::makeBundle(app, {.build = u"1"_s, .displayVersion = u"1.0"_s, .program = program("1")});
            EXPECT_EQ(update().status, 0);
            EXPECT_EQ(treeOf(app), newTree);
        }
        expectNoStrays();
    }
};

TEST_F(Survival, WithoutAFaultTheUpdateComesThroughAndOpensOnce) {
    prepare();
    const Outcome outcome = update();
    EXPECT_EQ(outcome.status, 0) << outcome.text.constData();
    EXPECT_EQ(treeOf(app), newTree);
    EXPECT_EQ(readFile(launches), QByteArray("2\n"));
    EXPECT_TRUE(log().isEmpty()) << log().constData();
    expectNoStrays();
    EXPECT_EQ(update().status, 10);
    const QStringList points = trace();
    for (const QString &point :
         {u"create .txupdate-download #1"_s, u"write .txupdate-download #1"_s, u"rename New - 2.zip #1"_s,
          u"start sh #1"_s, u"ditto #1"_s, u"copy TXUpdateInstaller.app #1"_s,
          u"start TXUpdateInstaller #1"_s, u"exit #1"_s, u"installer exchange My Host.app #1"_s,
          u"installer open #1"_s})
        EXPECT_TRUE(points.contains(point)) << point.toStdString() << " is not among\n"
                                            << points.join(u'\n').toStdString();
}

TEST_F(Survival, NewBuildThatDiesAtItsStartIsOpenedOnce) {
    prepare();
    const QString fresh = path(u"staging/My Host.app"_s);
    writeFile(fresh + u"/Contents/Linux/Program"_s,
              "#!/bin/sh\necho died >> '" + launches.toUtf8() + "'\nkill -9 $$\n", executable);
    tx::test::makeArchive(path(u"archive"_s), tx::test::ArchiveKind::Zip, tx::test::entriesOf(fresh));
    archive = readFile(path(u"archive"_s));
    EXPECT_EQ(update().status, 0);
    EXPECT_EQ(treeOf(app), treeOf(fresh));
    EXPECT_EQ(readFile(launches), QByteArray("died\n"));
    expectNoStrays();
}

/// A downloaded application that moves into the user's Applications folder.
class SurvivingMove : public Survival {
protected:
    const QString source = root + u"/home/Downloads/My Host.app"_s;
    const QString places = root + u"/home/Applications"_s;
    const QString destination = places + u"/My Host.app"_s;

    void prepareMove() {
        prepare();
        tx::test::makeBundle(source, {.build = u"2"_s, .program = program("2")});
        writeFile(source + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        newTree = treeOf(source);
        tx::test::makeBundle(places + u"/Other.app"_s, {.identifier = u"org.example.Other"_s});
        tx::test::makeBundle(destination, {.build = u"1"_s, .program = program("1")});
        oldTree = treeOf(destination);
    }
    Outcome move(bool hangs = false) const { return run({u"move"_s}, hangs, source); }
    void survive(const QString &how, const QString &point) {
        SCOPED_TRACE((how + u" at "_s + point).toStdString());
        prepareMove();
        setPlan(how, point);
        const bool hangs = how.startsWith(u"hang"_s);
        int runs = 0;
        for (Outcome last; runs < 3 && last.status != 0 && QFileInfo::exists(source);) {
            last = move(hangs);
            ++runs;
            EXPECT_LE(launched(), runs) << "no restart loop";
            if (QFileInfo::exists(source)) {
                EXPECT_EQ(treeOf(source), newTree) << "the one that runs stays whole";
            } else {
                EXPECT_EQ(treeOf(destination), newTree);
            }
            if (QFileInfo::exists(destination)) {
                EXPECT_TRUE(treeOf(destination) == oldTree || treeOf(destination) == newTree);
            }
            EXPECT_TRUE(last.status != 0 || treeOf(destination) == newTree) << last.text.constData();
        }
        setPlan({}, {});
        if (QFileInfo::exists(source)) {
            EXPECT_EQ(move().status, 0);
        }
        EXPECT_EQ(treeOf(destination), newTree);
        EXPECT_FALSE(QFileInfo::exists(source));
        EXPECT_EQ(namesIn(places), (QStringList{u"My Host.app"_s, u"Other.app"_s}));
    }
};

class MoveMatrix : public SurvivingMove, public testing::WithParamInterface<const char *> {};

TEST_P(MoveMatrix, LosesNothingAndSettles) {
    prepareMove();
    const Outcome clean = move();
    ASSERT_EQ(clean.status, 0) << clean.text.constData();
    ASSERT_EQ(treeOf(destination), newTree);
    const QStringList points = trace();
    EXPECT_GT(points.size(), 8);
    for (const QString &point : points) {
        survive(QString::fromLatin1(GetParam()), point);
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Matrix, MoveMatrix,
                         testing::Values("fail-once", "fail-always", "kill-once", "kill-always", "hang-once"),
                         [](const testing::TestParamInfo<const char *> &each) {
                             std::string name = each.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

struct Row {
    const char *how;
    const char *part; ///< "host", or "tool" for the programs that it starts
};
void PrintTo(const Row &row, std::ostream *out) { *out << row.part << ' ' << row.how; }

class KillMatrix : public Survival, public testing::WithParamInterface<Row> {};

TEST_P(KillMatrix, LosesNothingAndSettles) {
    prepare();
    ASSERT_EQ(update().status, 0);
    int points = 0;
    for (const QString &point : trace()) {
        const bool isTool = point.startsWith(u"installer"_s) || point.startsWith(u"ditto"_s);
        if (isTool != (GetParam().part == QByteArrayView("tool")))
            continue;
        survive(QString::fromLatin1(GetParam().how), point);
        ++points;
        if (HasFailure())
            return;
    }
    EXPECT_GT(points, 8);
}

INSTANTIATE_TEST_SUITE_P(Matrix, KillMatrix,
                         testing::Values(Row{"fail-once", "host"}, Row{"fail-always", "host"},
                                         Row{"kill-once", "host"}, Row{"kill-always", "host"},
                                         Row{"hang-once", "host"}, Row{"fail-once", "tool"},
                                         Row{"fail-always", "tool"}, Row{"kill-once", "tool"},
                                         Row{"kill-always", "tool"}, Row{"hang-once", "tool"}),
                         [](const testing::TestParamInfo<Row> &each) {
                             std::string name = std::string(each.param.part) + '_' + each.param.how;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

} // namespace

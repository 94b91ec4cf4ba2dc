// SPDX-License-Identifier: MIT
#pragma once

#include "base/propertylist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QElapsedTimer>
#include <QProcess>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;

inline constexpr auto executable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

struct Outcome {
    int status = -1; ///< -1: killed
    QByteArray text;
};

/// A host application in a home of its own, real processes of it and of its installer, and a fault plan.
class Survival : public FrameworkTest {
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
    FeedServer server;

    Survival() {
        const QString fresh = path(u"staging/My Host.app"_s);
        makeBundle(fresh, {.build = u"2"_s, .displayVersion = u"2.0"_s, .program = program("2")});
        writeFile(fresh + u"/Contents/Resources/data"_s, QByteArray(50000, 'n'));
        newTree = treeOf(fresh);
        makeArchive(path(u"archive"_s), ArchiveKind::Zip, entriesOf(fresh));
        archive = readFile(path(u"archive"_s));
        server.always([this](const HttpRequest &request) {
            if (request.path() == "/New.zip")
                return HttpReply::file(archive, "application/zip");
            return HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\","
                                   "\"downloadURL\":\"" +
                                   server.url(u"/New.zip"_s).toUtf8() + "\"}]}");
        });
    }
    ~Survival() override {
        endSurvivors(0);
        openFolder();
    }

    /// The folder around the application is somebody else's: its contents are replaced in their place.
    bool inPlace = false;
    QString subject() const { return inPlace ? app + u"/Contents"_s : app; }
    /// Only the application and the user's own folders belong to the user as whom the host runs then.
    void closeFolder() const {
        const QByteArray folder = QFile::encodeName(root + u"/Applications"_s);
        if (geteuid() == 0) {
            (void)runProcess(u"chown"_s, {u"-R"_s, u"65534:65534"_s, path(u""_s)});
            (void)chown(folder.constData(), 0, 0);
        }
        EXPECT_EQ(chmod(folder.constData(), geteuid() == 0 ? 0755 : 0555), 0);
    }
    void openFolder() const { chmod(QFile::encodeName(root + u"/Applications"_s).constData(), 0755); }

    /// The host, and the framework's resources. Another user may not be able to enter the folders of this
    /// build.
    QString faultHost() const {
        return inPlace ? path(u"programs/fault_host"_s)
                       : tx::test::helpersFolder() + u"/survival/fault_host"_s;
    }
    QString realResources() const {
        return inPlace ? path(u"programs/Resources"_s) : tx::test::resourcesFolder();
    }
    void copyPrograms() const {
        if (!inPlace || QFileInfo::exists(path(u"programs"_s)))
            return;
        QDir().mkpath(path(u"programs"_s));
        EXPECT_EQ(
            runProcess(u"cp"_s, {u"-R"_s, tx::test::resourcesFolder(), path(u"programs/Resources"_s)}).status,
            0);
        EXPECT_TRUE(QFile::copy(tx::test::helpersFolder() + u"/survival/fault_host"_s, faultHost()));
    }

    /// An application that records that it was opened, and is the fault host when it is given a command.
    QByteArray program(const QByteArray &build) const {
        return "#!/bin/sh\n[ $# = 0 ] && { echo " + build + " >> '" + launches.toUtf8() +
               "'; exit 0; }\nexec '" + faultHost().toUtf8() + "' '" + app.toUtf8() + "' \"$@\"\n";
    }
    void prepare() {
        openFolder();
        copyPrograms();
        QDir(root).removeRecursively();
        makeBundle(app, {.build = u"1"_s, .displayVersion = u"1.0"_s, .program = program("1")});
        writeFile(app + u"/Contents/Resources/only-old"_s, "x");
        oldTree = treeOf(subject());
        QDir().mkpath(root + u"/home"_s);
        const QString real = realResources();
        QDir().mkpath(resources);
        for (const QString &name : namesIn(real)) {
            if (name != u"TXUpdateInstaller.app" && name != u"TXUpdateUnpacker")
                QFile::link(real + u'/' + name, resources + u'/' + name);
        }
        const QString tool = resources + u"/TXUpdateInstaller.app/Contents"_s;
        QDir().mkpath(tool + u"/MacOS"_s);
        QFile::link(plan, tool + u"/plan"_s);
        QFile::copy(tx::test::helpersFolder() + u"/survival/fault_installer"_s,
                    tool + u"/MacOS/TXUpdateInstaller"_s);
        writeFile(
            resources + u"/TXUpdateUnpacker"_s,
            "#!/bin/sh\necho 'unpacker #1' >> \"$FAULT_PLAN.trace\"\n{ read -r how; read -r point; } < "
            "\"$FAULT_PLAN\"\nif [ \"$point\" = 'unpacker #1' ]; then\n  case $how in\n  *-once) mkdir "
            "\"$FAULT_PLAN.taken\" 2> /dev/null || how=none;;\n  esac\n  case $how in\n  fail-*) exit 1;;\n  "
            "kill-*) kill -9 $$;;\n  hang-*) exec sleep 1000;;\n  esac\nfi\nexec '" +
                real.toUtf8() + "/TXUpdateUnpacker' \"$@\"\n",
            executable);
        setPlan({}, {});
        if (inPlace)
            closeFolder();
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
    /// Looks more than once: while one process starts the next and ends, a single look may miss both.
    bool hasSurvivors() const {
        for (int look = 0; look < 4; ++look) {
            if (!survivors().isEmpty())
                return true;
            usleep(3000);
        }
        return false;
    }
    /// Waits for the processes of this test to end, and ends those that take longer.
    bool endSurvivors(int milliseconds) const {
        QElapsedTimer timer;
        timer.start();
        while (hasSurvivors()) {
            if (timer.elapsed() >= milliseconds) {
                for (const pid_t pid : survivors())
                    kill(pid, SIGKILL);
                (void)waitUntil([this] { return !hasSurvivors(); });
                return false;
            }
            usleep(5000);
        }
        return true;
    }
    void setUp(QProcess &host, const QStringList &words, const QString &bundle) const {
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
        const QString program = faultHost();
        const bool asUser = inPlace && geteuid() == 0;
        host.setProgram(asUser ? u"setpriv"_s : program);
        const QStringList user{u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program};
        host.setArguments((asUser ? user : QStringList()) + QStringList{bundle} + words);
    }
    Outcome run(const QStringList &words, bool hangs, const QString &bundle = {}) const {
        QProcess host;
        setUp(host, words, bundle.isNull() ? app : bundle);
        host.start();
        // A hang that is planned has come when its mark is there; nothing else may take long.
        const QString mark = plan + u".taken"_s;
        const bool planned = hangs && !QFileInfo::exists(mark);
        const auto hasHung = [&] {
            if (!planned || !QFileInfo::exists(mark))
                return false;
            usleep(100000); // let the rest come to where it waits for it
            return true;
        };
        constexpr int longest = 60000;
        QElapsedTimer timer;
        timer.start();
        while (!host.waitForFinished(20)) {
            const bool hung = hasHung();
            if (!hung && timer.elapsed() < longest)
                continue;
            EXPECT_TRUE(hung) << "the host hangs";
            host.kill();
            host.waitForFinished();
            break;
        }
        while (hasSurvivors()) {
            const bool hung = hasHung();
            if (!hung && timer.elapsed() < longest) {
                usleep(5000);
                continue;
            }
            EXPECT_TRUE(hung) << "what it started hangs";
            (void)endSurvivors(0);
        }
        return {host.exitStatus() == QProcess::NormalExit ? host.exitCode() : -1, host.readAll()};
    }
    /// Starts an update after so many milliseconds and waits for the host alone; may be called on any thread.
    /// In between it is stopped `suspensions` times, as a machine that sleeps.
    Outcome startAndWait(int delay, int suspensions = 0) const {
        usleep(static_cast<useconds_t>(delay) * 1000);
        QProcess host;
        setUp(host, {u"update"_s, server.url(u"/feed"_s)}, app);
        host.start();
        for (int i = 0; i < suspensions && host.waitForStarted(); ++i) {
            kill(static_cast<pid_t>(host.processId()), SIGSTOP);
            usleep(200000);
            kill(static_cast<pid_t>(host.processId()), SIGCONT);
            usleep(3000);
        }
        if (!host.waitForFinished(30000)) {
            host.kill();
            host.waitForFinished();
        }
        return {host.exitStatus() == QProcess::NormalExit ? host.exitCode() : -1, host.readAll()};
    }
    Outcome update(bool hangs = false) const { return run({u"update"_s, server.url(u"/feed"_s)}, hangs); }

    void expectComplete() const {
        const QStringList tree = treeOf(subject());
        EXPECT_TRUE(tree == oldTree || tree == newTree) << tree.join(u'\n').toStdString();
    }
    void expectReadableSettings() const {
        if (QFileInfo::exists(settings)) {
            EXPECT_TRUE(tx::readPropertyList(readFile(settings))) << readFile(settings).constData();
        }
    }
    void expectNoStrays() const {
        EXPECT_EQ(namesIn(root + u"/Applications"_s), QStringList{u"My Host.app"_s});
        EXPECT_EQ(namesIn(app), QStringList{u"Contents"_s});
        EXPECT_TRUE(namesIn(cache).isEmpty()) << namesIn(cache).join(u' ').toStdString();
        QStringList settingsFiles = namesIn(root + u"/home/.config"_s);
        EXPECT_EQ(settingsFiles,
                  (QStringList{u".org.example.Host.plist.lock"_s, u"org.example.Host.plist"_s}));
    }
    qsizetype launched() const { return readFile(launches).count('\n'); }
    QByteArray log() const { return readFile(plan + u".log"_s); }
};

} // namespace tx::test

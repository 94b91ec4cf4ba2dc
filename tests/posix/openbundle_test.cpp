// SPDX-License-Identifier: MIT
#include "posix/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QThread>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::waitUntil;

namespace {

class OpenBundle : public tx::test::FrameworkTest {
protected:
    const QString app = path(u"it's \"new\" $HOME.app"_s);
    const QString starts = path(u"starts"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};

    /// An application that notes each start and stays.
    void makeApp() {
        tx::test::makeBundle(app, {.program = "#!/bin/sh\necho \"$$ $MARK\" >> '" + starts.toUtf8() +
                                              "'\nwhile :; do sleep 1000; done\n"});
    }
    QList<QByteArray> started() const { return tx::test::readFile(starts).split('\n'); }
    size_t running() const {
        return tx::processesRunning((app + u"/Contents/Linux/Program"_s).toStdString()).size();
    }
    int count() const { return static_cast<int>(tx::test::readFile(starts).count('\n')); }
};

TEST_F(OpenBundle, StartsTheExecutableOnce) {
    makeApp();
    const tx::OpenResult first = tx::openBundle(app.toStdString());
    EXPECT_EQ(first.error, "");
    EXPECT_FALSE(first.wasRunning);
    ASSERT_TRUE(waitUntil([this] { return count() == 1; }));
    const tx::OpenResult second = tx::openBundle(app.toStdString());
    EXPECT_EQ(second.error, "");
    EXPECT_TRUE(second.wasRunning);
    EXPECT_EQ(count(), 1);
    // A shell that is about to run a command is two for a moment.
    EXPECT_TRUE(waitUntil([this] { return running() == 1; }));
}

TEST_F(OpenBundle, RacingOpenersStartOne) {
    makeApp();
    std::vector<std::thread> openers;
    for (int i = 0; i < 8; ++i)
        openers.emplace_back([this] { EXPECT_EQ(tx::openBundle(app.toStdString()).error, ""); });
    for (std::thread &opener : openers)
        opener.join();
    EXPECT_TRUE(waitUntil([this] { return count() > 0 && running() == 1; }));
    EXPECT_EQ(count(), 1);
}

TEST_F(OpenBundle, EnvironmentIsTheGivenOne) {
    makeApp();
    tx::OpenOptions options;
    options.environment = {"PATH=/usr/bin:/bin", "MARK=here"};
    EXPECT_EQ(tx::openBundle(app.toStdString(), options).error, "");
    ASSERT_TRUE(waitUntil([this] { return count() == 1; }));
    EXPECT_TRUE(started().first().endsWith(" here")) << started().first().constData();
}

TEST_F(OpenBundle, ApplicationGetsTheUsualSignalsAndTheGivenMask) {
    tx::test::makeBundle(app, {.program = "#!/bin/sh\ngrep -E '^(Sig(Ign|Blk)|Umask)' /proc/self/status > '" +
                                          starts.toUtf8() + ".part'; mv '" + starts.toUtf8() + ".part' '" +
                                          starts.toUtf8() + "'\n"});
    // As in a tool that must outlive the session that it was started in.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int number : {SIGTERM, SIGUSR1, SIGRTMIN})
        sigaddset(&blocked, number);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    for (const int number : {SIGHUP, SIGPIPE, SIGINT, SIGQUIT, SIGRTMAX})
        std::signal(number, SIG_IGN);
    const mode_t ownMask = umask(077);
    const auto opened = [&](const tx::OpenOptions &options) {
        QFile::remove(starts);
        EXPECT_EQ(tx::openBundle(app.toStdString(), options).error, "");
        EXPECT_TRUE(waitUntil([this] { return QFileInfo::exists(starts); }));
        EXPECT_TRUE(waitUntil([this] { return running() == 0; }));
        // Two signals belong to the C library, whose posix_spawn() leaves them ignored.
        return tx::test::readFile(starts)
            .replace("SigIgn:\t0000000180000000", "SigIgn:\t0000000000000000")
            .toStdString();
    };
    const std::string untouched = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";
    EXPECT_EQ(opened({}), "Umask:\t0077\n" + untouched);
    tx::OpenOptions options;
    options.mask = 0027;
    EXPECT_EQ(opened(options), "Umask:\t0027\n" + untouched);
    umask(ownMask);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    for (const int number : {SIGHUP, SIGPIPE, SIGINT, SIGQUIT, SIGRTMAX})
        std::signal(number, SIG_DFL);
}

TEST_F(OpenBundle, ArgumentsAndFolderAreThoseHandedOver) {
    // Prints each argument and the folder on a line of its own.
    tx::test::makeBundle(app,
                         {.program = "#!/bin/sh\n{ printf '<%s>\\n' \"$@\"; pwd; } > '" + starts.toUtf8() +
                                     ".new'\nmv '" + starts.toUtf8() + ".new' '" + starts.toUtf8() + "'\n"});
    const QString folder = QDir(path(u""_s)).canonicalPath() + u"/with space"_s;
    QDir().mkpath(folder);
    const auto opened = [&](const std::string &in, std::vector<std::string> arguments) {
        QFile::remove(starts);
        tx::OpenOptions options;
        options.handover = {std::move(arguments), in};
        EXPECT_EQ(tx::openBundle(app.toStdString(), options).error, "");
        EXPECT_TRUE(waitUntil([this] { return QFileInfo::exists(starts); }));
        EXPECT_TRUE(waitUntil([this] { return running() == 0; }));
        return tx::test::readFile(starts);
    };
    EXPECT_EQ(opened(folder.toStdString(), {"-n", "", "a b", "$(x)", "--help"}),
              "<-n>\n<>\n<a b>\n<$(x)>\n<--help>\n" + folder.toUtf8() + '\n');
    EXPECT_EQ(opened("", {"x"}), "<x>\n/\n");
    EXPECT_EQ(opened((folder + u"/gone"_s).toStdString(), {"x"}), "<x>\n/\n") << "it does not exist";
}

TEST_F(OpenBundle, NothingIsStartedWithoutALock) {
    makeApp();
    const QString folder = path(u"home/.cache/TarvixUpdate"_s);
    // Another opener would hold it in a process of its own; to the system that is the same.
    const auto hold = [](const QString &file) {
        tx::posix::Descriptor held(open(QFile::encodeName(file).constData(), O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(flock(held.get(), LOCK_EX | LOCK_NB), 0) << file.toStdString();
        return held;
    };
    tx::OpenOptions options;
    options.patience = std::chrono::milliseconds(100);
    // The lock's name is known once it was used.
    ASSERT_EQ(tx::openBundle(app.toStdString(), options).error, "");
    ASSERT_TRUE(waitUntil([this] { return count() == 1; }));
    const QStringList names = QDir(folder).entryList({u"open-*.lock"_s}, QDir::Files);
    ASSERT_EQ(names.size(), 1);
    const auto endAll = [this] {
        for (const pid_t process : tx::processesRunning((app + u"/Contents/Linux/Program"_s).toStdString()))
            kill(process, SIGKILL);
        ASSERT_TRUE(waitUntil([this] { return running() == 0; }));
    };
    endAll();
    tx::posix::Descriptor held = hold(folder + u'/' + names.first());
    EXPECT_THAT(tx::openBundle(app.toStdString(), options).error,
                testing::HasSubstr("another process has been starting it for too long"));
    EXPECT_EQ(count(), 1);
    held.reset();
    ASSERT_EQ(tx::openBundle(app.toStdString(), options).error, "");
    ASSERT_TRUE(waitUntil([this] { return count() == 2; }));
    endAll();
    // A user without a folder of their own locks the bundle itself.
    ASSERT_TRUE(QDir(folder).removeRecursively());
    tx::test::writeFile(folder, "not a folder");
    held = hold(app);
    EXPECT_THAT(tx::openBundle(app.toStdString(), options).error,
                testing::HasSubstr("another process has been starting it for too long"));
    EXPECT_EQ(count(), 2);
    held.reset();
    std::vector<std::thread> openers;
    for (int i = 0; i < 8; ++i)
        openers.emplace_back([this] { EXPECT_EQ(tx::openBundle(app.toStdString()).error, ""); });
    for (std::thread &opener : openers)
        opener.join();
    ASSERT_TRUE(waitUntil([this] { return count() > 2 && running() == 1; }));
    EXPECT_EQ(count(), 3) << "two openers at once start one";
}

TEST_F(OpenBundle, PrivilegesAreDropped) {
    if (geteuid() != 0) {
        // An ordinary user cannot become another one: nothing is started as the wrong one.
        makeApp();
        tx::OpenOptions other;
        other.dropPrivileges = true;
        other.user = 65534;
        other.group = 65534;
        EXPECT_THAT(tx::openBundle(app.toStdString(), other).error,
                    testing::HasSubstr("could not be started"));
        EXPECT_EQ(count(), 0);
        return;
    }
    tx::test::makeBundle(app, {.program = "#!/bin/sh\nid -u > /tmp/tarvix-id-$MARK\n"});
    QFile::setPermissions(path(u""_s), QFile::Permissions(0x7755));
    tx::OpenOptions options;
    const QString mark = QString::number(getpid());
    options.environment = {"PATH=/usr/bin:/bin", "MARK=" + mark.toStdString()};
    options.dropPrivileges = true;
    options.user = 65534;
    options.group = 65534;
    EXPECT_EQ(tx::openBundle(app.toStdString(), options).error, "");
    const QString file = u"/tmp/tarvix-id-"_s + mark;
    ASSERT_TRUE(waitUntil([&] { return tx::test::readFile(file).endsWith('\n'); }));
    EXPECT_EQ(tx::test::readFile(file), QByteArray("65534\n"));
    QFile::remove(file);
}

TEST_F(OpenBundle, ErrorsSayWhatIsWrong) {
    EXPECT_THAT(tx::openBundle(path(u"none.app"_s).toStdString()).error,
                testing::HasSubstr("is not an application"));
    tx::test::makeBundle(app, {});
    QFile::remove(app + u"/Contents/Linux/Program"_s);
    EXPECT_THAT(tx::openBundle(app.toStdString()).error, testing::HasSubstr("has no executable"));
    tx::test::makeBundle(app, {.program = "neither a script nor a program"});
    EXPECT_THAT(tx::openBundle(app.toStdString()).error, testing::HasSubstr("could not be started"));
}

TEST_F(OpenBundle, InterruptedInstallationIsUndoneFirst) {
    makeApp();
    ASSERT_TRUE(QDir().rename(app, QString::fromStdString(tx::backupPathFor(app.toStdString()))));
    EXPECT_EQ(tx::openBundle(app.toStdString()).error, "");
    EXPECT_TRUE(QFileInfo(app).isDir());
    EXPECT_FALSE(tx::restoreBackup(app.toStdString())) << "nothing more to undo";
}

TEST_F(OpenBundle, NamesBesideABundleAreHidden) {
    EXPECT_EQ(tx::stagedPathFor("/opt/A.app"), "/opt/.A.app.txupdate-new");
    EXPECT_EQ(tx::backupPathFor("/opt/A.app/"), "/opt/.A.app.txupdate-old");
    EXPECT_EQ(tx::stagedPathFor("/A.app"), "/.A.app.txupdate-new");
}

} // namespace

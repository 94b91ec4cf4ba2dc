// SPDX-License-Identifier: MIT
#include "platform/linux/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/processes.h"

#include <QThread>

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

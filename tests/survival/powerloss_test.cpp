// SPDX-License-Identifier: MIT
// The power goes at each step of an installation, a move, a download and a change of the settings.
#include "tests/survival/powerloss.h"

#include "base/propertylist.h"
#include "installer/contents.h"
#include "installer/installer.h"
#include "model/host_p.h"
#include "model/updatefolder.h"
#include "os/mainbundle.h"
#include "os/userdefaults.h"
#include "posix/openbundle.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"
#include "tests/tools/installer/stepfiles.h"

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateAppMover.h>

#include <cerrno>
#include <mutex>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::PowerLoss;
using tx::test::readFile;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

/// What the file system can do.
struct Road {
    bool exchanges;
    bool crosses;          ///< the new application comes from another one
    bool layered;          ///< the folders of the installed application cannot be renamed
    bool contents = false; ///< what is replaced are the contents of the application, in their place
};

/// The installer's file system on a disk that loses its power; before each change all that could be left is
/// looked at.
class LosingFiles final : public tx::test::StepFiles {
public:
    LosingFiles(PowerLoss &disk, Road road, std::function<void(const std::string &)> look)
        : m_disk(disk)
        , m_road(road)
        , m_look(std::move(look)) {}

private:
    FileError step(const Step &step, const std::function<FileError()> &work) override {
        if (step.name != "lock" && step.name != "make" && step.name != "owner" && step.name != "bits")
            m_look("before " + step.name + ' ' + step.place);
        if (step.name == "sync")
            m_disk.syncAll();
        if (step.name == "syncDirectory")
            m_disk.syncDirectory(step.place);
        const bool staging = step.place.find(".txupdate-new") != std::string::npos;
        const bool leaving =
            step.from.find("/.") == std::string::npos && step.place.find("/.") != std::string::npos;
        if (step.name == "rename" && ((m_road.crosses && staging) || (m_road.layered && leaving && !staging)))
            return FileError{EXDEV, step.from};
        if (step.name == "exchange" && (m_road.layered || !m_road.exchanges))
            return FileError{m_road.layered ? EXDEV : EINVAL, step.place};
        return work();
    }

    PowerLoss &m_disk;
    Road m_road;
    std::function<void(const std::string &)> m_look;
};

class InstallerPowerLoss : public tx::test::FrameworkTest, public testing::WithParamInterface<Road> {
protected:
    const QString disk = path(u"disk"_s);
    const QString after = path(u"after"_s);
    QStringList oldTree;
    QStringList newTree;

    static QString appOn(const QString &root) { return root + u"/Applications/My Host.app"_s; }
    static QString freshOn(const QString &root) { return root + u"/cache/New.app"_s; }
    static void makeFresh(const QString &bundle) {
        QDir(bundle).removeRecursively();
        tx::test::makeBundle(bundle, {.build = u"2"_s});
        writeFile(bundle + u"/Contents/Resources/data"_s, QByteArray(5000, 'n'));
        EXPECT_EQ(symlink("data", QFile::encodeName(bundle + u"/Contents/Resources/link"_s).constData()), 0);
    }
    /// What is replaced of a bundle.
    static QString replacedOf(const QString &bundle) {
        return GetParam().contents ? bundle + u"/Contents"_s : bundle;
    }
    static int install(const QString &root, tx::installer::Files &files) {
        tx::installer::Context context{.files = &files};
        context.session.user = getuid();
        context.log = [](const std::string &) {};
        context.open = [](const std::string &, const tx::installer::Session &) { return std::string(); };
        const tx::installer::Arguments arguments{0x7FFFFFFE, freshOn(root).toStdString(),
                                                 appOn(root).toStdString(),
                                                 (root + u"/cache/New - 2.zip"_s).toStdString()};
        if (!GetParam().contents)
            return tx::installer::install(arguments, context);
        // As where the folder around the application belongs to others, which root's never does.
        tx::installer::Context inside = tx::installer::contentsContext(arguments, context);
        return tx::installer::install(tx::installer::contentsArguments(arguments), inside);
    }
};

TEST_P(InstallerPowerLoss, LeavesACompleteApplicationAndTheNextRunComesThrough) {
    const bool exchanges = GetParam().exchanges;
    tx::test::makeBundle(appOn(disk), {.build = u"1"_s});
    writeFile(appOn(disk) + u"/Contents/Resources/only-old"_s, "x");
    makeFresh(freshOn(disk));
    writeFile(disk + u"/cache/New - 2.zip"_s, "archive");
    oldTree = treeOf(replacedOf(appOn(disk)));
    newTree = treeOf(replacedOf(freshOn(disk)));
    PowerLoss power(disk.toStdString());
    int gaps = 0;
    const auto look = [&](const std::string &when) {
        if (HasFailure())
            return;
        power.forEachState(after.toStdString(), [&](const std::string &what) {
            SCOPED_TRACE(when + ": " + what);
            const QString app = appOn(after);
            // Without an exchange in one step there is a gap, which the next start closes.
            gaps += !QFileInfo::exists(replacedOf(app));
            if (!exchanges)
                (void)tx::restoreBackup(app.toStdString());
            const QStringList tree = treeOf(replacedOf(app));
            EXPECT_TRUE(tree == oldTree || tree == newTree) << tree.join(u'\n').toStdString();
            makeFresh(freshOn(after));
            tx::installer::Files files;
            EXPECT_EQ(install(after, files), 0);
            EXPECT_EQ(treeOf(replacedOf(app)), newTree);
            EXPECT_EQ(namesIn(app), QStringList{u"Contents"_s});
            EXPECT_FALSE(QFileInfo::exists(freshOn(after)));
            EXPECT_EQ(namesIn(after + u"/Applications"_s), QStringList{u"My Host.app"_s});
        });
    };
    LosingFiles files(power, GetParam(), look);
    EXPECT_EQ(install(disk, files), 0);
    look("at the end");
    EXPECT_EQ(treeOf(replacedOf(appOn(disk))), newTree);
    EXPECT_GT(power.states(), 25);
    EXPECT_EQ(gaps > 0, !exchanges) << gaps;
}

INSTANTIATE_TEST_SUITE_P(Roads, InstallerPowerLoss,
                         testing::Values(Road{true, false, false}, Road{true, true, false},
                                         Road{false, false, false}, Road{false, true, false},
                                         Road{false, false, true}, Road{false, true, true},
                                         Road{true, false, false, true}, Road{true, true, false, true},
                                         Road{false, false, false, true}, Road{false, true, false, true},
                                         Road{false, false, true, true}, Road{false, true, true, true}),
                         [](const testing::TestParamInfo<Road> &each) {
                             const Road &road = each.param;
                             return std::string(road.contents ? "contents_" : "") +
                                    std::string(road.exchanges ? "exchange"
                                                : road.layered ? "layered"
                                                               : "rename") +
                                    (road.crosses ? "_copy" : "_move");
                         });

/// The framework's file system on such a disk.
class LosingFileSystem final : public tx::test::FaultFileSystem {
public:
    LosingFileSystem(PowerLoss &disk, std::function<void(const std::string &)> look)
        : m_disk(disk) {
        observer = [this, look = std::move(look)](const QString &operation, const QString &path) {
            const std::lock_guard lock(m_mutex);
            look("before " + operation.toStdString() + ' ' + path.toStdString());
            if (operation == u"syncFile")
                m_disk.syncFile(path.toStdString());
        };
    }
    TXError sync(const QString &path) override {
        TXError error = FaultFileSystem::sync(path);
        m_disk.syncAll();
        return error;
    }
    TXError syncFolder(const QString &path) override {
        TXError error = FaultFileSystem::syncFolder(path);
        m_disk.syncDirectory(path.toStdString());
        return error;
    }
    TXError replaceFile(const QString &path, QByteArrayView content, int mode) override {
        TXError error = FaultFileSystem::replaceFile(path, content, mode);
        m_disk.syncFile(path.toStdString()); // its content is, its name need not be
        return error;
    }

private:
    PowerLoss &m_disk;
    std::mutex m_mutex;
};

class PowerLossTest : public tx::test::FrameworkTest {
protected:
    const QString after = path(u"after"_s);
};

TEST_F(PowerLossTest, MoveLeavesACompleteApplication) {
    const QString source = path(u"home/Downloads/Host.app"_s);
    const QString destination = path(u"home/Applications/Host.app"_s);
    tx::test::makeBundle(source, {.build = u"2"_s});
    writeFile(source + u"/Contents/Resources/data"_s, QByteArray(5000, 'n'));
    tx::test::makeBundle(destination, {.build = u"1"_s});
    const QStringList oldTree = treeOf(destination);
    const QStringList newTree = treeOf(source);
    tx::services().folders.userApplications = [this] { return path(u"home/Applications"_s); };
    tx::services().folders.localApplications = [] { return u"/nonexistent"_s; };
    tx::services().exitProcess = [](int) {};
    tx::services().presentAlert = [](const tx::Alert &) { return 0; };
    tx::setMainBundle(TXBundle(source));
    tx::resetHost();
    PowerLoss power(path(u"home"_s).toStdString());
    const auto look = [&](const std::string &when) {
        if (HasFailure())
            return;
        power.forEachState(after.toStdString(), [&](const std::string &what) {
            SCOPED_TRACE(when + ": " + what);
            const QString from = after + u"/Downloads/Host.app"_s;
            const QString to = after + u"/Applications/Host.app"_s;
            const bool stays = QFileInfo::exists(from);
            if (stays) {
                EXPECT_EQ(treeOf(from), newTree);
            }
            EXPECT_TRUE(treeOf(to) == newTree || treeOf(to) == oldTree)
                << treeOf(to).join(u'\n').toStdString();
            EXPECT_TRUE(stays || treeOf(to) == newTree) << "the one that ran is somewhere";
        });
    };
    {
        const LosingFileSystem files(power, look);
        const tx::test::RecordingTasks tasks;
        EXPECT_EQ(TXUpdateAppMover::moveToApplicationsFolderWithoutAsking(), 1);
    }
    look("at the end");
    EXPECT_EQ(treeOf(destination), newTree);
    EXPECT_GT(power.states(), 25);
}

TEST_F(PowerLossTest, ArchiveUnderItsNameIsComplete) {
    const QByteArray body(100000, 'a');
    tx::test::FeedServer server;
    server.expect("GET", "/App.zip", tx::test::HttpReply::file(body));
    const QString cache = tx::UpdateFolder::ofHost().path();
    PowerLoss power(path(u"home"_s).toStdString());
    int complete = 0;
    const auto look = [&](const std::string &when) {
        power.forEachState(after.toStdString(), [&](const std::string &what) {
            const QString file = after + cache.mid(path(u"home"_s).size()) + u"/App - 5.zip"_s;
            if (QFileInfo::exists(file)) {
                EXPECT_EQ(readFile(file), body) << when << ": " << what;
                ++complete;
            }
        });
    };
    {
        const LosingFileSystem files(power, look);
        const auto update = std::make_shared<TXUpdate>();
        update->setVersion(u"5"_s);
        update->setFileURL(QUrl(server.url(u"/App.zip"_s)));
        bool done = false;
        update->downloadWithProgress(nullptr, [&](const TXError &error) {
            EXPECT_TRUE(error.isNull());
            done = true;
        });
        ASSERT_TRUE(tx::test::waitUntil([&] { return done; }));
    }
    look("at the end");
    EXPECT_GT(complete, 0);
    EXPECT_GT(power.states(), 25);
}

TEST_F(PowerLossTest, SettingsAreTheOldOrTheNewOnes) {
    const QString file = path(u"home/settings/Host.plist"_s);
    ASSERT_FALSE(tx::UserDefaults(file).setValue(u"key"_s, u"old"_s));
    PowerLoss power(path(u"home"_s).toStdString());
    QSet<QString> seen;
    const auto look = [&](const std::string &when) {
        power.forEachState(after.toStdString(), [&](const std::string &what) {
            const auto settings = tx::readPropertyList(readFile(after + u"/settings/Host.plist"_s));
            ASSERT_TRUE(settings) << when << ": " << what;
            seen.insert(settings->toMap().value(u"key"_s).toString());
        });
    };
    {
        const LosingFileSystem files(power, look);
        EXPECT_FALSE(tx::UserDefaults(file).setValue(u"key"_s, u"new"_s));
    }
    look("at the end");
    EXPECT_EQ(seen, (QSet<QString>{u"old"_s, u"new"_s}));
}

TEST_F(PowerLossTest, DiskForgetsWhatWasNotSynced) {
    // The simulation itself: without a sync, each of the losses is among the states.
    writeFile(path(u"disk/a/kept"_s), "kept");
    PowerLoss power(path(u"disk"_s).toStdString());
    writeFile(path(u"disk/a/new"_s), "content");
    QFile::remove(path(u"disk/a/kept"_s));
    QStringList states;
    const auto collect = [&](const std::string &) {
        states << namesIn(after + u"/a"_s).join(u' ') + u':' +
                      QString::fromUtf8(readFile(after + u"/a/new"_s));
    };
    power.forEachState(after.toStdString(), collect);
    EXPECT_THAT(states, testing::IsSupersetOf({u"kept:"_s, u"new:"_s, u"new:content"_s}));
    states.clear();
    power.syncDirectory(path(u"disk/a"_s).toStdString());
    power.forEachState(after.toStdString(), collect);
    EXPECT_THAT(states, testing::UnorderedElementsAre(u"new:"_s, u"new:"_s, u"new:content"_s));
    states.clear();
    power.syncFile(path(u"disk/a/new"_s).toStdString());
    power.forEachState(after.toStdString(), collect);
    EXPECT_THAT(states, testing::Each(u"new:content"_s));
}

} // namespace

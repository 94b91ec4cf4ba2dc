// SPDX-License-Identifier: MIT
#pragma once

#include "install/buildcheck.h"
#include "install/installerclient.h"
#include "install/updateinstallation.h"
#include "model/updatefolder.h"
#include "model/versioncomparison.h"
#include "os/directories.h"
#include "os/filesystem.h"
#include "os/packageowner.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QDir>
#include <QSignalSpy>

#include <atomic>
#include <semaphore>
#include <sys/stat.h>

namespace tx::test {

using namespace Qt::StringLiterals;

class Installing : public tx::test::FrameworkTest {
protected:
    TXUpdatePtr update = std::make_shared<TXUpdate>();
    const QString cache = tx::UpdateFolder::ofHost().path();
    tx::test::RecordingWorkspace workspace;
    QList<int> exits;
    QList<tx::Alert> alerts;
    int calls = 0;
    TXError error;

    Installing() {
        tx::services().exitProcess = [this](int status) { exits << status; };
        tx::services().presentAlert = [this](const tx::Alert &alert) {
            alerts << alert;
            return 0;
        };
        update->setVersion(u"2000"_s);
        update->setDisplayVersion(u"2.1"_s);
        tx::test::makeBundle(path(u"staging/MyApp.app"_s), {.build = u"2000"_s});
        tx::test::makeArchive(cache + u"/MyApp - 2000.zip"_s, tx::test::ArchiveKind::Zip,
                              tx::test::entriesOf(path(u"staging/MyApp.app"_s)));
        chmod(cache.toUtf8().constData(), 0700);
        downloaded(cache + u"/MyApp - 2000.zip"_s);
    }
    ~Installing() override {
        update.reset(); // tells a handler that is still kept
        tx::test::drainEvents();
    }
    void downloaded(const QString &file) {
        update->setDownloadPath(file);
        update->setDownloaded(true);
    }
    void install() {
        update->installWithErrorHandler([this](const TXError &e) {
            error = e;
            ++calls;
        });
    }
    /// The states of an update since the test began, as logged: "Unpacking, Downloaded".
    [[nodiscard]] QString states() const {
        QStringList result;
        for (const QString &line : logLines().filter(u" changes from "_s))
            result << line.section(u' ', -1).chopped(1);
        return result.join(u", "_s);
    }
    /// Whether an update could take the folder now.
    [[nodiscard]] bool folderIsFree() const {
        return bool(tx::services().fileSystem->tryLock(cache + u".lock"_s));
    }
    void installAndWait() {
        install();
        ASSERT_TRUE(waitUntil([this] { return calls > 0; }));
        tx::test::drainEvents();
        EXPECT_EQ(calls, 1);
        EXPECT_FALSE(update->isInstalling());
        EXPECT_FALSE(update->isInstalled());
        EXPECT_TRUE(update->isDownloaded()) << "the user may try again";
    }
};

/// The installer tool cannot be started; everything else can.
class WithoutInstaller : public Installing {
protected:
    tx::test::RecordingTasks tasks;
    WithoutInstaller() {
        tasks.runsForReal = true;
        tasks.failing = [](const tx::TaskRequest &r) {
            return r.program.endsWith(u"/TXUpdateInstaller"_s) ? EACCES : 0;
        };
    }
};

} // namespace tx::test

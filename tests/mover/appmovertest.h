// SPDX-License-Identifier: MIT
#pragma once

#include "base/propertylist.h"
#include "model/host_p.h"
#include "mover/applicationplaces.h"
#include "mover/movejob.h"
#include "mover/movequestion.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "os/userdefaults.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QFile>

#include <cstring>
#include <unistd.h>

namespace tx::test {

using namespace Qt::StringLiterals;

class AppMover : public tx::test::FrameworkTest {
protected:
    tx::test::FaultFileSystem files;
    tx::test::RecordingTasks tasks;
    tx::test::RecordingWorkspace workspace;
    QList<tx::Alert> alerts;
    int answer = 0;
    bool ticks = false;
    QList<int> exits;
    const QString user = path(u"home/Apps"_s);
    const QString local = path(u"opt"_s);
    const QString trash = path(u"home/.local/share/Trash/files"_s);

    AppMover() {
        tx::services().folders.userApplications = [this] { return user; };
        tx::services().folders.localApplications = [this] { return local; };
        tx::services().folders.downloads = [this] { return path(u"home/Loads"_s); };
        tx::services().folders.desktop = [this] { return path(u"home/Table"_s); };
        tx::services().exitProcess = [this](int status) { exits.append(status); };
        tx::services().presentAlert = [this](const tx::Alert &alert) {
            alerts.append(alert);
            if (alert.suppressed)
                *alert.suppressed = ticks;
            return answer;
        };
        tx::services().volumeInfo = [](const QString &) { return std::optional<tx::VolumeInfo>(); };
        QDir().mkpath(local);
        startFrom(u"home/Loads"_s);
    }
    /// Makes the host an application in this folder of the test's own.
    QString startFrom(const QString &folder, const QString &build = u"1042"_s,
                      const QString &bundleName = u"Host.app"_s) {
        const QString bundle = path(folder + u'/' + bundleName);
        tx::test::makeBundle(bundle, {.build = build, .name = u"My Host"_s});
        tx::setMainBundle(TXBundle(bundle));
        tx::resetHost();
        return bundle;
    }
    /// An empty ~/Applications is ignored; this one holds something.
    void useUserFolder() { tx::test::makeBundle(user + u"/Other.app"_s, {}); }
    static int ask() { return TXUpdater::moveToApplicationsFolderIfNecessary(); }
    static int move() { return TXUpdateAppMover::moveToApplicationsFolderWithoutAsking(); }
    QStringList programs() const {
        QStringList result;
        for (const tx::TaskRequest &task : tasks.started)
            result << task.program.section(u'/', -1) + u' ' + task.arguments.join(u' ');
        return result;
    }
    QString stored(const QString &key) const { return tx::UserDefaults::standard().stringValue(key); }
};

inline const QString suppressionKey = u"TXUpdateAppMoverAlertSuppression"_s;
inline const QString previousKey = u"TXUpdateAppMover.PreviousParentDirectoryOfApplication"_s;

} // namespace tx::test

// SPDX-License-Identifier: MIT
#pragma once

#include "model/host_p.h"
#include "mover/movejob.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdateAppMover.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace tx::test {

using namespace Qt::StringLiterals;

/// An application that moves into a folder of the test's own, with the real Trash of its home.
class MoverFault : public tx::test::FrameworkTest {
protected:
    tx::test::FaultFileSystem files;
    const QString source = path(u"home/Loads/Host.app"_s);
    QString local = path(u"opt"_s);
    const QString trash = path(u"home/.local/share/Trash"_s);
    int exits = 0;
    QString told;                   ///< the text of the last alert
    QList<tx::TaskRequest> started; ///< by the last move

    MoverFault() {
        tx::services().folders.userApplications = [this] { return path(u"home/Apps"_s); };
        tx::services().folders.localApplications = [this] { return local; };
        tx::services().exitProcess = [this](int) { ++exits; };
        tx::services().presentAlert = [this](const tx::Alert &alert) {
            told = alert.informative;
            return 0;
        };
        QDir().mkpath(local);
        makeSource();
        tx::setMainBundle(TXBundle(source));
        tx::resetHost();
    }
    void makeSource() {
        tx::test::makeBundle(source, {.build = u"8"_s});
        for (int i = 0; i < 20; ++i)
            tx::test::writeFile(source + u"/Contents/Resources/%1"_s.arg(i), QByteArray(5000, 'x'));
    }
    /// Moves without starting anything.
    int move() {
        const tx::test::RecordingTasks tasks;
        const int result = TXUpdateAppMover::moveToApplicationsFolderWithoutAsking();
        started = tasks.started;
        return result;
    }
    QString destination() const { return local + u"/Host.app"_s; }
};

} // namespace tx::test

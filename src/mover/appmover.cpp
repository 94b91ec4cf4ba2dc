// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdateAppMover.h>

#include "mover/menuentry.h"
#include "mover/movejob.h"
#include "mover/movequestion.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXBundle.h>
#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace {

const QString suppressionKey = u"TXUpdateAppMoverAlertSuppression"_s;
const QString previousParentKey = u"TXUpdateAppMover.PreviousParentDirectoryOfApplication"_s;

class Mover {
public:
    using Result = TXUpdateAppMover::Result;

    Result moveIfNecessary() {
        tx::UserDefaults &defaults = tx::UserDefaults::standard();
        const QString suppressed = defaults.stringValue(suppressionKey);
        if (!suppressed.isNull() && suppressed == build())
            return Result::NothingToDo;
        if (m_places.isInApplicationsFolder())
            return Result::NothingToDo;
        const QString parent = m_places.parentDirectory();
        const QString previous = defaults.stringValue(previousParentKey);
        if (!previous.isNull() && previous == parent)
            return Result::NothingToDo;
        (void)defaults.setValue(previousParentKey, parent);
        return applicationShouldMove() ? moveWithoutAsking() : Result::Declined;
    }

    Result moveWithoutAsking() {
        tx::MoveJob job(m_places, name());
        switch (job.performMove()) {
        case tx::MoveJob::Outcome::Failed:
            (void)tx::services().presentAlert(
                {.message = tx::moverText(u"Could not move to Applications folder."_s),
                 .informative = job.failureText()});
            return Result::Failed;
        case tx::MoveJob::Outcome::Moved:
            job.setupRelaunchAfterExit();
            job.moveOldCopyToTrash();
            tx::putMenuEntryAfterMove(TXBundle(m_places.destinationPath()), m_places.bundlePath());
            break;
        case tx::MoveJob::Outcome::OtherCopyRuns:
            break;
        }
        tx::services().exitProcess(0);
        return Result::NothingToDo;
    }

private:
    bool applicationShouldMove() const {
        bool suppresses = false;
        tx::Alert alert = tx::moveQuestion(m_places, name(), TXUpdateHost::host()->isRunningTranslocated());
        alert.suppressed = &suppresses;
        if (tx::services().presentAlert(alert) == 0)
            return true;
        if (suppresses)
            (void)tx::UserDefaults::standard().setValue(suppressionKey, build());
        return false;
    }

    QString name() const {
        const QString own = m_bundle.infoString(u"CFBundleName"_s);
        return own.isNull() ? TXUpdateHost::host()->name() : own;
    }
    QString build() const { return m_bundle.infoString(u"CFBundleVersion"_s); }

    const TXBundle m_bundle = TXBundle::mainBundle();
    const tx::ApplicationPlaces m_places{m_bundle.bundlePath()};
};

} // namespace

TXUpdateAppMover::Result TXUpdateAppMover::moveToApplicationsFolderIfNecessary() {
    return Mover().moveIfNecessary();
}

TXUpdateAppMover::Result TXUpdateAppMover::moveToApplicationsFolderWithoutAsking() {
    return Mover().moveWithoutAsking();
}

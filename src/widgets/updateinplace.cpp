// SPDX-License-Identifier: MIT
// Refuses to update an application that cannot be replaced where it is.
#include "widgets/updateinplace.h"

#include "base/format.h"
#include "os/localization.h"
#include "os/services.h"

#include <TarvixUpdate/TXStandardUpdateController.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QFileInfo>
#include <QWidget>

using namespace Qt::StringLiterals;

namespace tx {

Alert cannotUpdateInPlaceAlert(const QString &name, bool isTranslocated,
                               const std::optional<VolumeInfo> &volume) {
    Alert alert{.buttons = {localizedString(u"Move to Applications Folder"_s), localizedString(u"Cancel"_s)},
                .critical = true,
                .answerWithoutWindow = 1};
    if (isTranslocated) {
        alert.message =
            formatText(u"%@ must be moved to your Applications folder before updating."_s, {name});
        alert.informative = formatText(
            u"This copy of %@ is in your downloads folder and cannot be updated. Move %@ into your "
            "Applications folder, and then relaunch %@ from there."_s,
            {name, name, name});
        return alert;
    }
    const QString volumeName = volume ? QFileInfo(volume->rootPath).fileName() : QString();
    const QString suffix =
        volume ? formatText(u" named \"%@\""_s, {volumeName.isEmpty() ? u"/"_s : volumeName}) : u""_s;
    alert.message = formatText(u"%@ is in a read-only volume and cannot be updated."_s, {name});
    alert.informative = formatText(
        u"This copy of %@ is in a read-only volume%@. Copy %@ out of the read-only volume into your "
        "Applications folder, and then relaunch %@ from there."_s,
        {name, suffix, name, name});
    return alert;
}

} // namespace tx

QWidget *TXStandardUpdateController::visibleSheetParent() {
    QWidget *parent = delegate() ? delegate()->sheetParentWindowForUpdater(this) : nullptr;
    return parent && parent->isVisible() ? parent : nullptr;
}

bool TXStandardUpdateController::complainIfInReadOnlyVolume() {
    const TXUpdateHost *host = TXUpdateHost::host();
    const bool translocated = host->isRunningTranslocated();
    if (!translocated && !host->isRunningOnReadOnlyVolume())
        return false;
    const tx::Alert alert = tx::cannotUpdateInPlaceAlert(
        applicationName(), translocated, tx::services().volumeInfo(host->bundle().bundlePath()));
    const auto act = [](int button) {
        if (button == 0)
            (void)TXUpdateAppMover::moveToApplicationsFolderWithoutAsking();
    };
    if (QWidget *parent = visibleSheetParent())
        tx::services().presentSheet(alert, parent, act);
    else
        act(tx::services().presentAlert(alert));
    return true;
}

// SPDX-License-Identifier: MIT
// The strings that the update panel shows for its update, and the actions of its buttons.
#include "widgets/updatepanel_p.h"

#include "base/format.h"
#include "os/localization.h"
#include "os/openaddress.h"
#include "os/services.h"
#include "widgets/alert.h"
#include "widgets/appearance.h"
#include "widgets/updatestate.h"
#include "widgets/versionrows.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdateHost.h>

#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

constexpr int steps = 1000; // the bar counts in whole numbers; 1.0 is this many

} // namespace

void TXUpdatePanel::setAllowsDownloadingInBackground(bool allows) {
    d->allowsDownloadingInBackground = allows;
    if (d->designatedUpdate)
        updateStatusField();
}

void TXUpdatePanel::setUpdatesAndDesignatedUpdate(const QList<TXUpdatePtr> &updates,
                                                  const TXUpdatePtr &designatedUpdate) {
    d->updates = updates;
    d->updates.removeAll(nullptr);
    chooseUpdate(designatedUpdate);
}

void TXUpdatePanel::unobserveUpdate() {
    for (QMetaObject::Connection &observation : d->observations)
        disconnect(observation);
    d->designatedUpdate.reset();
}

void TXUpdatePanel::chooseUpdate(const TXUpdatePtr &chosen) {
    if (d->designatedUpdate)
        unobserveUpdate();
    // Every check creates new update objects, equal to those of the previous check.
    TXUpdatePtr update = chosen;
    for (const TXUpdatePtr &listed : d->updates) {
        if (update && listed->isEqual(*update) && tx::hasState(*listed) && !tx::hasState(*update))
            update = listed;
    }
    for (TXUpdatePtr &listed : d->updates) {
        if (update && listed->isEqual(*update))
            listed = update;
    }
    d->designatedUpdate = update;
    d->rate.reset();
    if (update) {
        d->observations[0] =
            connect(update.get(), &TXUpdate::downloadProgressChanged, this, &TXUpdatePanel::observeProgress);
        d->observations[1] =
            connect(update.get(), &TXUpdate::isDownloadingChanged, this, &TXUpdatePanel::observeProgress);
    }
    d->needsToShowBuilds = update && TXUpdateHost::host()->displayVersion() == update->displayVersion();
    willDisplay();
}

void TXUpdatePanel::willDisplay() {
    const TXUpdateHost *host = TXUpdateHost::host();
    const TXUpdatePtr update = d->designatedUpdate;
    // Without a designated update the user can choose one, even if there is only one to choose.
    const bool single = update ? d->updates.size() == 1 : d->updates.isEmpty();

    d->sidebarContainer->setVisible(!single);
    if (update)
        d->installVersionLabel->setText(
            tx::localizedFormat(u"Version %@ will be installed."_s, {update->displayVersion()}));
    d->installVersionLabel->setVisible(update && !single);
    if (d->updates.size() >= 2)
        d->secondaryField->setText(tx::localizedPlural(u"You are %d updates behind!"_s, d->updates.size(),
                                                       {QString::number(d->updates.size())}));
    d->secondaryField->setVisible(d->updates.size() >= 2);
    d->installButton->setDefault(true);
    d->titleField->setText(tx::localizedFormat(u"%@ Update"_s, {host->name()}));
    d->infoField->setToolTip({});
    if (update) {
        const auto sentence = [host](const QString &running, const QString &available) {
            return tx::localizedFormat(u"You are running %@ %@. Version %@ is now available."_s,
                                       {host->name(), running, available});
        };
        const QString running = d->needsToShowBuilds ? host->version() : host->displayVersion();
        const QString available = d->needsToShowBuilds ? update->version() : update->displayVersion();
        d->infoField->setText(sentence(tx::shortened(running), tx::shortened(available)));
        if (const QString whole = sentence(running, available); whole != d->infoField->text())
            d->infoField->setToolTip(tx::plainToolTip(whole));
    } else if (d->updates.isEmpty())
        d->infoField->setText(
            tx::localizedFormat(u"You are running the latest version of %@."_s, {host->name()}));
    else
        d->infoField->clear();
    // The title bar names the application; the heading below it names the purpose.
    setWindowTitle(QGuiApplication::applicationDisplayName());
    setAccessibleName(d->titleField->text());
    setAccessibleDescription(d->infoField->text());
    updateStatusField();

    const auto stateOf = [this](int row) {
        const bool designated = d->updates[row] == d->designatedUpdate;
        return tx::VersionRowState{designated, d->needsToShowBuilds,
                                   !d->didChooseToInstall && !designated &&
                                       (d->updates.size() >= 2 || !d->designatedUpdate)};
    };
    d->versionsTableView->reloadData(
        int(d->updates.size()),
        [this, stateOf](int row) { return tx::versionRowText(*d->updates[row], stateOf(row)); },
        [this, stateOf](TXUpdateVersionRow *view, int row) {
            tx::fillVersionRow(view, *d->updates[row], stateOf(row));
            auto *choose = qobject_cast<QPushButton *>(view->viewWithTag(TXUpdateVersionRow::ChooseButton));
            connect(choose, &QPushButton::clicked, this, [this, choose] { chooseUpdateAction(choose); });
        });
    const auto row = int(d->updates.indexOf(d->designatedUpdate));
    if (row < 0) {
        if (update)
            displaySelectedUpdate(update);
        return;
    }
    d->versionsTableView->selectOnly(row);
    if (isVisible())
        d->versionsTableView->scrollToCenter(row); // otherwise when it is shown, with its real size
}

void TXUpdatePanel::setInstallTitle(const QString &key, bool enabled) {
    tx::setButtonTitle(d->installButton, tx::localizedString(key));
    tx::setButtonEnabled(d->installButton, enabled);
}

void TXUpdatePanel::showProgress(bool shows) {
    d->progressIndicator->setVisible(shows);
    if (!shows)
        d->progressIndicator->setRange(0, steps); // an indeterminate bar keeps moving
}

void TXUpdatePanel::showNothingDesignated() {
    d->statusField->setVisible(true);
    d->statusField->clear();
    d->statusField->setAccessibleName({});
    setInstallTitle(u"Download Update"_s, false);
    d->skipButton->setEnabled(false);
    tx::setButtonTitle(d->cancelButton, tx::localizedString(u"Close"_s));
    d->cancelButton->setEnabled(true);
    showProgress(false);
}

void TXUpdatePanel::updateStatusField() {
    if (!d->designatedUpdate) {
        showNothingDesignated();
        return;
    }
    d->skipButton->setEnabled(true);
    const TXUpdate &update = *d->designatedUpdate;
    const auto say = [this](const QString &text, Qt::Alignment alignment) {
        d->statusField->setText(text);
        d->statusField->setAlignment(alignment | Qt::AlignVCenter);
    };
    const auto setCancelTitle = [this](const QString &key) {
        tx::setButtonTitle(d->cancelButton, tx::localizedString(key));
    };
    d->statusField->setVisible(true);
    d->progressIndicator->setToolTip({});
    if (!update.canBeDownloaded()) {
        say({}, Qt::AlignLeft);
        setInstallTitle(u"Show Update"_s, true);
        setCancelTitle(u"Not Now"_s);
        d->cancelButton->setEnabled(true);
        showProgress(false);
    } else if (update.isInstalling()) {
        say(tx::localizedString(u"Installing"_s), Qt::AlignLeft);
        tx::setButtonEnabled(d->installButton, false);
        tx::setButtonEnabled(d->cancelButton, false);
        showProgress(true);
    } else if (update.isInstalled()) {
        say(tx::localizedString(u"Installed"_s), Qt::AlignLeft);
        setInstallTitle(u"Restart"_s, true);
        tx::setButtonEnabled(d->cancelButton, false);
        showProgress(false);
    } else if (update.isDownloaded()) {
        say(tx::localizedString(u"Downloaded"_s), Qt::AlignLeft);
        setInstallTitle(u"Install & Relaunch"_s, true);
        setCancelTitle(u"Not Now"_s);
        showProgress(false);
    } else if (!update.isDownloading()) {
        say({}, Qt::AlignLeft);
        setInstallTitle(u"Download Update"_s, true);
        setCancelTitle(u"Not Now"_s);
        showProgress(false);
    } else {
        say(tx::formatText(u"%@%% %@"_s, {QString::number(update.downloadProgress() * 100, 'f', 1),
                                          tx::localizedString(u"downloaded"_s)}),
            Qt::AlignRight);
        if (d->allowsDownloadingInBackground)
            setInstallTitle(u"Install Later"_s, true);
        else
            setInstallTitle(u"Download Update"_s, false);
        setCancelTitle(u"Cancel"_s);
        d->progressIndicator->setToolTip(d->rate.text(update.downloadSize()));
        showProgress(true);
    }
    d->statusField->setAccessibleName(d->statusField->text());
}

void TXUpdatePanel::observeProgress() {
    if (!d->designatedUpdate || sender() != d->designatedUpdate.get())
        return;
    const TXUpdate &update = *d->designatedUpdate;
    if (update.isDownloading()) {
        d->rate.add(update.downloadProgress(), tx::services().secondsSinceReferenceDate());
        d->progressIndicator->setRange(0, steps);
    }
    showProgress(update.isDownloading());
    d->progressIndicator->setValue(qRound(update.downloadProgress() * steps));
    updateStatusField();
}

void TXUpdatePanel::chooseUpdateAction(QObject *sender) {
    const int row = d->versionsTableView->rowForView(sender);
    if (row < 0 || row >= d->updates.size())
        return;
    // The button is destroyed with its row.
    QMetaObject::invokeMethod(
        this, [this, update = d->updates[row]] { chooseUpdate(update); }, Qt::QueuedConnection);
}

void TXUpdatePanel::install() {
    const auto alive = shared_from_this();
    if (!d->designatedUpdate)
        return;
    if (!d->didChooseToInstall) {
        d->didChooseToInstall = true;
        if (d->updates.size() >= 2)
            willDisplay();
    }
    const TXUpdatePtr update = d->designatedUpdate;
    // The panel may be destroyed, or show another update, when the answer comes.
    const std::weak_ptr<TXUpdatePanel> weak = alive;
    if (const TXError refusal = update->downloadRefusal()) {
        tx::presentError(refusal);
        if (update->linkURL().isEmpty())
            return; // nothing else to show
    }
    if (!update->canBeDownloaded()) {
        (void)tx::openAddress(update->linkURL(), tx::OpenedBy::User);
        closeWithCode(1);
    } else if (update->isInstalled()) {
        closeWithCode(1);
        update->launch();
    } else if (update->isDownloaded()) {
        update->installWithErrorHandler([weak, update](const TXError &error) {
            const auto panel = weak.lock();
            if (panel)
                panel->updateStatusField();
            if (error.domain() == TXCocoaErrorDomain && error.code() == TXErrorCancelled) {
                // The user knows; the panel offers to install later.
                if (panel)
                    panel->d->cancelButton->setEnabled(true);
                return;
            }
            if (error)
                tx::presentError(error);
            if (panel)
                panel->closeWithCode(0);
        });
        d->progressIndicator->setRange(0, 0);
        showProgress(true);
        d->progressIndicator->setRange(0, 0);
        updateStatusField();
    } else if (!update->isDownloading()) {
        update->downloadWithProgress(nullptr, [update](const TXError &error) {
            if (error)
                tx::presentError(error);
        });
    } else if (d->allowsDownloadingInBackground) {
        closeWithCode(1);
    }
}

void TXUpdatePanel::cancel() {
    const auto alive = shared_from_this();
    if (d->designatedUpdate && d->designatedUpdate->isDownloading()) {
        d->designatedUpdate->cancelDownload();
        closeWithCode(0);
        return;
    }
    if (d->designatedUpdate && d->designatedUpdate->canBeDownloaded() && d->updates.size() >= 5) {
        (void)tx::services().presentAlert(
            {.message = tx::localizedString(u"Consider updating soon."_s),
             .informative = tx::localizedPlural(
                 u"The version of %@ you have is %d versions behind. The latest version "
                 u"is recommended because it "
                 "often contains new useful features and important fixes for problems "
                 "you could be experiencing or "
                 "may experience."_s,
                 d->updates.size(), {TXUpdateHost::host()->name(), QString::number(d->updates.size())}),
             .buttons = {tx::localizedString(u"OK"_s)}});
    }
    closeWithCode(0);
}

void TXUpdatePanel::skip() {
    if (!d->designatedUpdate)
        return;
    if (d->designatedUpdate->isDownloading())
        d->designatedUpdate->cancelDownload();
    d->designatedUpdate->ignore();
    closeWithCode(0);
}

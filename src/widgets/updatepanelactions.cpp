// SPDX-License-Identifier: MIT
// The strings that the update panel shows for its update, and the actions of its buttons.
#include "base/format.h"
#include "os/localization.h"
#include "os/openaddress.h"
#include "os/services.h"
#include "widgets/alert.h"
#include "widgets/appearance.h"
#include "widgets/downloadrate.h"
#include "widgets/updatestate.h"
#include "widgets/versionrows.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdatePanel.h>

#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

constexpr int steps = 1000; // the bar counts in whole numbers; 1.0 is this many

} // namespace

void TXUpdatePanel::setAllowsDownloadingInBackground(bool allows) {
    m_allowsDownloadingInBackground = allows;
    if (m_designatedUpdate)
        updateStatusField();
}

void TXUpdatePanel::setUpdatesAndDesignatedUpdate(const QList<TXUpdatePtr> &updates,
                                                  const TXUpdatePtr &designatedUpdate) {
    m_updates = updates;
    m_updates.removeAll(nullptr);
    chooseUpdate(designatedUpdate);
}

void TXUpdatePanel::unobserveUpdate() {
    for (QMetaObject::Connection &observation : m_observations)
        disconnect(observation);
    m_designatedUpdate.reset();
}

void TXUpdatePanel::chooseUpdate(const TXUpdatePtr &chosen) {
    if (m_designatedUpdate)
        unobserveUpdate();
    // Every check creates new update objects, equal to those of the previous check.
    TXUpdatePtr update = chosen;
    for (const TXUpdatePtr &listed : m_updates) {
        if (update && listed->isEqual(*update) && tx::hasState(*listed) && !tx::hasState(*update))
            update = listed;
    }
    for (TXUpdatePtr &listed : m_updates) {
        if (update && listed->isEqual(*update))
            listed = update;
    }
    m_designatedUpdate = update;
    m_rate->reset();
    if (update) {
        m_observations[0] =
            connect(update.get(), &TXUpdate::downloadProgressChanged, this, &TXUpdatePanel::observeProgress);
        m_observations[1] =
            connect(update.get(), &TXUpdate::isDownloadingChanged, this, &TXUpdatePanel::observeProgress);
    }
    m_needsToShowBuilds = update && TXUpdateHost::host()->displayVersion() == update->displayVersion();
    willDisplay();
}

void TXUpdatePanel::willDisplay() {
    const TXUpdateHost *host = TXUpdateHost::host();
    const TXUpdatePtr update = m_designatedUpdate;
    // Without a designated update the user can choose one, even if there is only one to choose.
    const bool single = update ? m_updates.size() == 1 : m_updates.isEmpty();

    sidebarContainer->setVisible(!single);
    if (update)
        installVersionLabel->setText(
            tx::localizedFormat(u"Version %@ will be installed."_s, {update->displayVersion()}));
    installVersionLabel->setVisible(update && !single);
    if (m_updates.size() >= 2)
        secondaryField->setText(tx::localizedPlural(u"You are %d updates behind!"_s, m_updates.size(),
                                                    {QString::number(m_updates.size())}));
    secondaryField->setVisible(m_updates.size() >= 2);
    installButton->setDefault(true);
    titleField->setText(tx::localizedFormat(u"%@ Update"_s, {host->name()}));
    infoField->setToolTip({});
    if (update) {
        const auto sentence = [host](const QString &running, const QString &available) {
            return tx::localizedFormat(u"You are running %@ %@. Version %@ is now available."_s,
                                       {host->name(), running, available});
        };
        const QString running = m_needsToShowBuilds ? host->version() : host->displayVersion();
        const QString available = m_needsToShowBuilds ? update->version() : update->displayVersion();
        infoField->setText(sentence(tx::shortened(running), tx::shortened(available)));
        if (const QString whole = sentence(running, available); whole != infoField->text())
            infoField->setToolTip(tx::plainToolTip(whole));
    } else if (m_updates.isEmpty())
        infoField->setText(
            tx::localizedFormat(u"You are running the latest version of %@."_s, {host->name()}));
    else
        infoField->clear();
    // The title bar names the application; the heading below it names the purpose.
    setWindowTitle(QGuiApplication::applicationDisplayName());
    setAccessibleName(titleField->text());
    setAccessibleDescription(infoField->text());
    updateStatusField();

    const auto stateOf = [this](int row) {
        const bool designated = m_updates[row] == m_designatedUpdate;
        return tx::VersionRowState{designated, m_needsToShowBuilds,
                                   !m_didChooseToInstall && !designated &&
                                       (m_updates.size() >= 2 || !m_designatedUpdate)};
    };
    versionsTableView->reloadData(
        int(m_updates.size()),
        [this, stateOf](int row) { return tx::versionRowText(*m_updates[row], stateOf(row)); },
        [this, stateOf](TXUpdateVersionRow *view, int row) {
            tx::fillVersionRow(view, *m_updates[row], stateOf(row));
            auto *choose = qobject_cast<QPushButton *>(view->viewWithTag(TXUpdateVersionRow::ChooseButton));
            connect(choose, &QPushButton::clicked, this, [this, choose] { chooseUpdateAction(choose); });
        });
    const auto row = int(m_updates.indexOf(m_designatedUpdate));
    if (row < 0) {
        if (update)
            displaySelectedUpdate(update);
        return;
    }
    versionsTableView->selectOnly(row);
    if (isVisible())
        versionsTableView->scrollToCenter(row); // otherwise when it is shown, with its real size
}

void TXUpdatePanel::setInstallTitle(const QString &key, bool enabled) {
    tx::setButtonTitle(installButton, tx::localizedString(key));
    tx::setButtonEnabled(installButton, enabled);
}

void TXUpdatePanel::showProgress(bool shows) {
    progressIndicator->setVisible(shows);
    if (!shows)
        progressIndicator->setRange(0, steps); // an indeterminate bar keeps moving
}

void TXUpdatePanel::showNothingDesignated() {
    statusField->setVisible(true);
    statusField->clear();
    statusField->setAccessibleName({});
    setInstallTitle(u"Download Update"_s, false);
    skipButton->setEnabled(false);
    tx::setButtonTitle(cancelButton, tx::localizedString(u"Close"_s));
    cancelButton->setEnabled(true);
    showProgress(false);
}

void TXUpdatePanel::updateStatusField() {
    if (!m_designatedUpdate) {
        showNothingDesignated();
        return;
    }
    skipButton->setEnabled(true);
    const TXUpdate &update = *m_designatedUpdate;
    const auto say = [this](const QString &text, Qt::Alignment alignment) {
        statusField->setText(text);
        statusField->setAlignment(alignment | Qt::AlignVCenter);
    };
    const auto setCancelTitle = [this](const QString &key) {
        tx::setButtonTitle(cancelButton, tx::localizedString(key));
    };
    statusField->setVisible(true);
    progressIndicator->setToolTip({});
    if (!update.canBeDownloaded()) {
        say({}, Qt::AlignLeft);
        setInstallTitle(u"Show Update"_s, true);
        setCancelTitle(u"Not Now"_s);
        cancelButton->setEnabled(true);
        showProgress(false);
    } else if (update.isInstalling()) {
        say(tx::localizedString(u"Installing"_s), Qt::AlignLeft);
        tx::setButtonEnabled(installButton, false);
        tx::setButtonEnabled(cancelButton, false);
        showProgress(true);
    } else if (update.isInstalled()) {
        say(tx::localizedString(u"Installed"_s), Qt::AlignLeft);
        setInstallTitle(u"Restart"_s, true);
        tx::setButtonEnabled(cancelButton, false);
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
        if (m_allowsDownloadingInBackground)
            setInstallTitle(u"Install Later"_s, true);
        else
            setInstallTitle(u"Download Update"_s, false);
        setCancelTitle(u"Cancel"_s);
        progressIndicator->setToolTip(m_rate->text(update.downloadSize()));
        showProgress(true);
    }
    statusField->setAccessibleName(statusField->text());
}

void TXUpdatePanel::observeProgress() {
    if (!m_designatedUpdate || sender() != m_designatedUpdate.get())
        return;
    const TXUpdate &update = *m_designatedUpdate;
    if (update.isDownloading()) {
        m_rate->add(update.downloadProgress(), tx::services().secondsSinceReferenceDate());
        progressIndicator->setRange(0, steps);
    }
    showProgress(update.isDownloading());
    progressIndicator->setValue(qRound(update.downloadProgress() * steps));
    updateStatusField();
}

void TXUpdatePanel::chooseUpdateAction(QObject *sender) {
    const int row = versionsTableView->rowForView(sender);
    if (row < 0 || row >= m_updates.size())
        return;
    // The button is destroyed with its row.
    QMetaObject::invokeMethod(
        this, [this, update = m_updates[row]] { chooseUpdate(update); }, Qt::QueuedConnection);
}

void TXUpdatePanel::install() {
    const auto alive = shared_from_this();
    if (!m_designatedUpdate)
        return;
    if (!m_didChooseToInstall) {
        m_didChooseToInstall = true;
        if (m_updates.size() >= 2)
            willDisplay();
    }
    const TXUpdatePtr update = m_designatedUpdate;
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
                    panel->cancelButton->setEnabled(true);
                return;
            }
            if (error)
                tx::presentError(error);
            if (panel)
                panel->closeWithCode(0);
        });
        progressIndicator->setRange(0, 0);
        showProgress(true);
        progressIndicator->setRange(0, 0);
        updateStatusField();
    } else if (!update->isDownloading()) {
        update->downloadWithProgress(nullptr, [update](const TXError &error) {
            if (error)
                tx::presentError(error);
        });
    } else if (m_allowsDownloadingInBackground) {
        closeWithCode(1);
    }
}

void TXUpdatePanel::cancel() {
    const auto alive = shared_from_this();
    if (m_designatedUpdate && m_designatedUpdate->isDownloading()) {
        m_designatedUpdate->cancelDownload();
        closeWithCode(0);
        return;
    }
    if (m_designatedUpdate && m_designatedUpdate->canBeDownloaded() && m_updates.size() >= 5) {
        (void)tx::services().presentAlert(
            {.message = tx::localizedString(u"Consider updating soon."_s),
             .informative = tx::localizedPlural(
                 u"The version of %@ you have is %d versions behind. The latest version "
                 u"is recommended because it "
                 "often contains new useful features and important fixes for problems "
                 "you could be experiencing or "
                 "may experience."_s,
                 m_updates.size(), {TXUpdateHost::host()->name(), QString::number(m_updates.size())}),
             .buttons = {tx::localizedString(u"OK"_s)}});
    }
    closeWithCode(0);
}

void TXUpdatePanel::skip() {
    if (!m_designatedUpdate)
        return;
    if (m_designatedUpdate->isDownloading())
        m_designatedUpdate->cancelDownload();
    m_designatedUpdate->ignore();
    closeWithCode(0);
}

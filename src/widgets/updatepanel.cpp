// SPDX-License-Identifier: MIT
// The panel's window: its widgets, showing and closing. What it does with updates is in
// updatepanelactions.cpp.
#include "widgets/updatepanel_p.h"

#include "base/queues.h"
#include "os/localization.h"
#include "os/memory.h"
#include "os/openaddress.h"
#include "widgets/appearance.h"
#include "widgets/interfacefile.h"
#include "widgets/lifetime.h"
#include "widgets/modalsession.h"
#include "widgets/screens.h"
#include "widgets/versionrows.h"
#include "widgets/versionstable.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateHost.h>

#include <QCloseEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

std::shared_ptr<TXUpdatePanel> TXUpdatePanel::panel() {
    std::shared_ptr<TXUpdatePanel> made(new TXUpdatePanel, tx::deleteWidget);
    try {
        made->load();
    } catch (const std::exception &exception) {
        TXLog(TXLogLevelStep, u"TXUpdatePanel: %@"_s, {QString::fromUtf8(exception.what())});
        made->d->mainView = nullptr;
    }
    if (!made->d->mainView) {
        TXLog(TXLogLevelFailure, u"Could not load TXUpdatePanel xib."_s);
        return nullptr;
    }
    tx::whenApplicationQuits(made.get(), [panel = made.get()] { panel->endWithApplication(); });
    return made;
}

TXUpdatePanel::TXUpdatePanel()
    : d(std::make_unique<TXUpdatePanelPrivate>()) {}

QList<TXUpdatePtr> TXUpdatePanel::updates() const { return d->updates; }
TXUpdatePtr TXUpdatePanel::designatedUpdate() const { return d->designatedUpdate; }
bool TXUpdatePanel::needsToShowBuilds() const { return d->needsToShowBuilds; }
bool TXUpdatePanel::didChooseToInstall() const { return d->didChooseToInstall; }
bool TXUpdatePanel::allowsDownloadingInBackground() const { return d->allowsDownloadingInBackground; }

TXUpdatePanel::~TXUpdatePanel() {
    unobserveUpdate();
    // Once the window's widgets are destroyed too, the memory is returned to the system.
    tx::postToMain(tx::returnFreedMemory);
}

void TXUpdatePanel::load() {
    std::unique_ptr<QWidget> root = tx::loadInterface(u"TXUpdatePanel"_s);
    if (!root)
        return;
    const auto outlet = [&](auto *&member, const QString &name) {
        tx::connectOutlet(member, root.get(), name);
    };
    outlet(d->mainSplitView, u"mainSplitView"_s);
    outlet(d->titleField, u"titleField"_s);
    outlet(d->secondaryField, u"secondaryField"_s);
    outlet(d->infoField, u"infoField"_s);
    outlet(d->sidebarContainer, u"sidebarContainer"_s);
    outlet(d->webViewContainer, u"webViewContainer"_s);
    outlet(d->versionsTableView, u"versionsTableView"_s);
    outlet(d->installVersionLabel, u"installVersionLabel"_s);
    outlet(d->installButton, u"installButton"_s);
    outlet(d->cancelButton, u"cancelButton"_s);
    outlet(d->skipButton, u"skipButton"_s);
    outlet(d->statusField, u"statusField"_s);
    outlet(d->progressIndicator, u"progressIndicator"_s);
    outlet(d->titleBoxView, u"titleBoxView"_s);
    outlet(d->mainView, u"mainView"_s);

    tx::makeAlertPanel(this);
    tx::applyDirection(this);
    d->titleBoxView->setAutoFillBackground(false);
    d->interfaceSize = root->size();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(root.release());
    resize(d->interfaceSize);
    tx::makeLinesThin(this);
    didChangeEffectiveAppearance();

    // Notes without their own style start below the heading.
    d->webView = tx::makeWebView(
        d->webViewContainer,
        {.linkActivated = [](const QUrl &url) { (void)tx::openAddress(url, tx::OpenedBy::User); },
         .loadFailed = [this] { notesDidNotLoad(); },
         .margins = d->titleBoxView->layout()->contentsMargins()});
    d->webView->widget()->setAccessibleName(tx::localizedString(u"Release Notes"_s));
    d->versionsTableView->setAccessibleName(tx::localizedString(u"Versions"_s));
    d->progressIndicator->setAccessibleName(tx::localizedString(u"Progress"_s));

    tx::setButtonTitle(d->skipButton, tx::localizedString(u"Skip This Version"_s));
    for (QPushButton *button : {d->installButton, d->cancelButton, d->skipButton})
        button->setAutoDefault(false);
    connect(d->installButton, &QPushButton::clicked, this, &TXUpdatePanel::install);
    connect(d->cancelButton, &QPushButton::clicked, this, &TXUpdatePanel::cancel);
    connect(d->skipButton, &QPushButton::clicked, this, &TXUpdatePanel::skip);
    connect(d->versionsTableView, &TXUpdateVersionsTableView::selectionDidChange, this, [this](int row) {
        if (row >= 0 && row < d->updates.size())
            displaySelectedUpdate(d->updates[row]);
    });
}

void TXUpdatePanel::didChangeEffectiveAppearance() {
    tx::applyAppearance(this);
    if (d->webView)
        d->webView->setDark(tx::appearanceIsDark());
}

void TXUpdatePanel::changeEvent(QEvent *event) {
    QDialog::changeEvent(event);
    if (d->mainView && tx::isAppearanceChange(event))
        didChangeEffectiveAppearance();
}

void TXUpdatePanel::mousePressEvent(QMouseEvent *event) { tx::moveByBackground(this, event); }

void TXUpdatePanel::reject() {
    if (d->cancelButton->isEnabled())
        cancel();
}

void TXUpdatePanel::closeEvent(QCloseEvent *event) {
    if (!isVisible())
        return;
    // The desktop's close button counts as the Cancel button while that is enabled. The panel does not keep
    // the application from quitting, and does not ask.
    if (event->spontaneous())
        reject();
    else
        closeWithCode(0);
    event->setAccepted(!isVisible());
}

int TXUpdatePanel::runModal() {
    d->displayedAsModal = true;
    d->displayedAsSheet = false;
    willDisplay();
    showDesignatedRow();
    tx::centerWindow(this);
    const auto alive = shared_from_this();
    d->isOpen = true;
    const int code = tx::runModalForWindow(this);
    d->isOpen = false; // also when the application quits
    return code;
}

void TXUpdatePanel::showWindow(const CodeHandler &handler) {
    d->displayedAsModal = false;
    d->displayedAsSheet = false;
    d->completionHandler = handler;
    d->retained = shared_from_this();
    willDisplay();
    adoptPreferredSize();
    showDesignatedRow();
    tx::centerWindow(this);
    setWindowModality(Qt::NonModal);
    d->floating = std::make_unique<tx::Floating>(this);
    d->isOpen = true;
    show();
    raise();
    activateWindow();
}

void TXUpdatePanel::adoptPreferredSize() {
    const QSizeF preferred = d->designatedUpdate ? d->designatedUpdate->preferredDisplaySize() : QSizeF(0, 0);
    if (preferred.isNull()) {
        resize(d->updates.size() == 1 ? QSize(750, height()) : d->interfaceSize);
        return;
    }
    // The size around the notes is known only after the layout, which another size may change.
    for (int attempt = 0; attempt < 4; ++attempt) {
        d->mainSplitView->refresh();
        (void)grab(QRect(0, 0, 1, 1));
        if (d->webViewContainer->size() == preferred.toSize())
            return;
        // A splitter distributes additional space; here the notes get all of it.
        if (!d->sidebarContainer->isHidden()) {
            const int all = d->mainSplitView->width() - d->mainSplitView->handleWidth();
            const int notes = std::min(all, preferred.toSize().width());
            d->mainSplitView->setSizes({all - notes, notes});
        }
        resize(tx::contentSizeOnScreen(size() + preferred.toSize() - d->webViewContainer->size(), this));
    }
}

void TXUpdatePanel::showDesignatedRow() {
    // The positions of rows are known only after the layout.
    (void)grab(QRect(0, 0, 1, 1));
    const auto row = int(d->updates.indexOf(d->designatedUpdate));
    if (row >= 0)
        d->versionsTableView->scrollToCenter(row);
    tx::focusVisibly(d->installButton->isEnabled() ? d->installButton : d->cancelButton);
}

void TXUpdatePanel::beginSheetModalForWindow(QWidget *parent, const CodeHandler &handler) {
    d->displayedAsModal = false;
    d->displayedAsSheet = true;
    willDisplay();
    d->retained = shared_from_this();
    d->sheetHandler = handler;
    // The sheet is closed with its window.
    connect(parent, &QObject::destroyed, this, [this] { closeWithCode(0); });
    showDesignatedRow();
    tx::attachSheet(this, parent);
    d->isOpen = true;
    show();
}

void TXUpdatePanel::closeWithCode(int code) {
    const auto alive = shared_from_this();
    d->isOpen = false;
    d->floating.reset();
    if (d->displayedAsModal)
        tx::stopModalOfWindow(this, code);
    hide();
    if (d->displayedAsSheet) {
        if (const CodeHandler handler = std::exchange(d->sheetHandler, nullptr))
            handler(code);
    }
    if (const CodeHandler handler = std::exchange(d->completionHandler, nullptr))
        handler(code);
    d->retained.reset();
    // The caller may be part of the panel.
    tx::releaseLater(alive);
}

void TXUpdatePanel::endWithApplication() {
    const auto alive = shared_from_this();
    if (d->isOpen)
        closeWithCode(0);
    // Even if a host keeps the panel: no page may outlive the application object.
    d->webView.reset();
}

void TXUpdatePanelPrivate::comeBack(TXUpdatePanel &panel) {
    if (!panel.d->isOpen || panel.isVisible())
        return;
    panel.show();
    panel.raise();
    panel.activateWindow();
}

void TXUpdatePanel::displaySelectedUpdate(const TXUpdatePtr &update) {
    if (!d->webView)
        return; // the application is quitting
    d->shownUpdate = update;
    if (!update->releaseNotesURL().isEmpty())
        d->webView->load(update->releaseNotesURL());
    else
        d->webView->setHtml(update->itemDescription()); // the notes are in the feed
}

void TXUpdatePanel::notesDidNotLoad() {
    // Show what is available: the notes in the feed, otherwise what the server sent.
    if (d->shownUpdate && !d->shownUpdate->itemDescription().isEmpty())
        d->webView->setHtml(d->shownUpdate->itemDescription());
}

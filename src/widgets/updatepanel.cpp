// SPDX-License-Identifier: MIT
// The panel's window: its widgets, showing and closing. What it does with updates is in
// updatepanelactions.cpp.
#include "base/queues.h"
#include "os/localization.h"
#include "os/memory.h"
#include "os/openaddress.h"
#include "widgets/appearance.h"
#include "widgets/downloadrate.h"
#include "widgets/floating.h"
#include "widgets/interfacefile.h"
#include "widgets/lifetime.h"
#include "widgets/modalsession.h"
#include "widgets/screens.h"
#include "widgets/versionrows.h"
#include "widgets/versionstable.h"
#include "widgets/webview.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateHost.h>
#include <TarvixUpdate/TXUpdatePanel.h>

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
        made->mainView = nullptr;
    }
    if (!made->mainView) {
        TXLog(TXLogLevelFailure, u"Could not load TXUpdatePanel xib."_s);
        return nullptr;
    }
    tx::whenApplicationQuits(made.get(), [panel = made.get()] { panel->endWithApplication(); });
    return made;
}

TXUpdatePanel::TXUpdatePanel()
    : m_rate(std::make_unique<tx::DownloadRate>()) {}

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
    outlet(mainSplitView, u"mainSplitView"_s);
    outlet(titleField, u"titleField"_s);
    outlet(secondaryField, u"secondaryField"_s);
    outlet(infoField, u"infoField"_s);
    outlet(sidebarContainer, u"sidebarContainer"_s);
    outlet(webViewContainer, u"webViewContainer"_s);
    outlet(versionsTableView, u"versionsTableView"_s);
    outlet(installVersionLabel, u"installVersionLabel"_s);
    outlet(installButton, u"installButton"_s);
    outlet(cancelButton, u"cancelButton"_s);
    outlet(skipButton, u"skipButton"_s);
    outlet(statusField, u"statusField"_s);
    outlet(progressIndicator, u"progressIndicator"_s);
    outlet(titleBoxView, u"titleBoxView"_s);
    outlet(mainView, u"mainView"_s);

    tx::makeAlertPanel(this);
    tx::applyDirection(this);
    titleBoxView->setAutoFillBackground(false);
    m_interfaceSize = root->size();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(root.release());
    resize(m_interfaceSize);
    tx::makeLinesThin(this);
    didChangeEffectiveAppearance();

    // Notes without their own style start below the heading.
    webView = tx::makeWebView(
        webViewContainer,
        {.linkActivated = [](const QUrl &url) { (void)tx::openAddress(url, tx::OpenedBy::User); },
         .loadFailed = [this] { notesDidNotLoad(); },
         .margins = titleBoxView->layout()->contentsMargins()});
    webView->widget()->setAccessibleName(tx::localizedString(u"Release Notes"_s));
    versionsTableView->setAccessibleName(tx::localizedString(u"Versions"_s));
    progressIndicator->setAccessibleName(tx::localizedString(u"Progress"_s));

    tx::setButtonTitle(skipButton, tx::localizedString(u"Skip This Version"_s));
    for (QPushButton *button : {installButton, cancelButton, skipButton})
        button->setAutoDefault(false);
    connect(installButton, &QPushButton::clicked, this, &TXUpdatePanel::install);
    connect(cancelButton, &QPushButton::clicked, this, &TXUpdatePanel::cancel);
    connect(skipButton, &QPushButton::clicked, this, &TXUpdatePanel::skip);
    connect(versionsTableView, &TXUpdateVersionsTableView::selectionDidChange, this, [this](int row) {
        if (row >= 0 && row < m_updates.size())
            displaySelectedUpdate(m_updates[row]);
    });
}

void TXUpdatePanel::didChangeEffectiveAppearance() {
    tx::applyAppearance(this);
    if (webView)
        webView->setDark(tx::appearanceIsDark());
}

void TXUpdatePanel::changeEvent(QEvent *event) {
    QDialog::changeEvent(event);
    if (mainView && tx::isAppearanceChange(event))
        didChangeEffectiveAppearance();
}

void TXUpdatePanel::mousePressEvent(QMouseEvent *event) { tx::moveByBackground(this, event); }

void TXUpdatePanel::reject() {
    if (cancelButton->isEnabled())
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
    mDisplayedAsModal = true;
    mDisplayedAsSheet = false;
    willDisplay();
    showDesignatedRow();
    tx::centerWindow(this);
    const auto alive = shared_from_this();
    m_isOpen = true;
    const int code = tx::runModalForWindow(this);
    m_isOpen = false; // also when the application quits
    return code;
}

void TXUpdatePanel::showWindow(const CodeHandler &handler) {
    mDisplayedAsModal = false;
    mDisplayedAsSheet = false;
    mCompletionHandler = handler;
    mRetained = shared_from_this();
    willDisplay();
    adoptPreferredSize();
    showDesignatedRow();
    tx::centerWindow(this);
    setWindowModality(Qt::NonModal);
    m_floating = std::make_unique<tx::Floating>(this);
    m_isOpen = true;
    show();
    raise();
    activateWindow();
}

void TXUpdatePanel::adoptPreferredSize() {
    const QSizeF preferred = m_designatedUpdate ? m_designatedUpdate->preferredDisplaySize() : QSizeF(0, 0);
    if (preferred.isNull()) {
        resize(m_updates.size() == 1 ? QSize(750, height()) : m_interfaceSize);
        return;
    }
    // The size around the notes is known only after the layout, which another size may change.
    for (int attempt = 0; attempt < 4; ++attempt) {
        mainSplitView->refresh();
        (void)grab(QRect(0, 0, 1, 1));
        if (webViewContainer->size() == preferred.toSize())
            return;
        // A splitter distributes additional space; here the notes get all of it.
        if (!sidebarContainer->isHidden()) {
            const int all = mainSplitView->width() - mainSplitView->handleWidth();
            const int notes = std::min(all, preferred.toSize().width());
            mainSplitView->setSizes({all - notes, notes});
        }
        resize(tx::contentSizeOnScreen(size() + preferred.toSize() - webViewContainer->size(), this));
    }
}

void TXUpdatePanel::showDesignatedRow() {
    // The positions of rows are known only after the layout.
    (void)grab(QRect(0, 0, 1, 1));
    const auto row = int(m_updates.indexOf(m_designatedUpdate));
    if (row >= 0)
        versionsTableView->scrollToCenter(row);
    tx::focusVisibly(installButton->isEnabled() ? installButton : cancelButton);
}

void TXUpdatePanel::beginSheetModalForWindow(QWidget *parent, const CodeHandler &handler) {
    mDisplayedAsModal = false;
    mDisplayedAsSheet = true;
    willDisplay();
    mRetained = shared_from_this();
    m_sheetHandler = handler;
    // The sheet is closed with its window.
    connect(parent, &QObject::destroyed, this, [this] { closeWithCode(0); });
    showDesignatedRow();
    tx::attachSheet(this, parent);
    m_isOpen = true;
    show();
}

void TXUpdatePanel::closeWithCode(int code) {
    const auto alive = shared_from_this();
    m_isOpen = false;
    m_floating.reset();
    if (mDisplayedAsModal)
        tx::stopModalOfWindow(this, code);
    hide();
    if (mDisplayedAsSheet) {
        if (const CodeHandler handler = std::exchange(m_sheetHandler, nullptr))
            handler(code);
    }
    if (const CodeHandler handler = std::exchange(mCompletionHandler, nullptr))
        handler(code);
    mRetained.reset();
    // The caller may be part of the panel.
    tx::releaseLater(alive);
}

void TXUpdatePanel::endWithApplication() {
    const auto alive = shared_from_this();
    if (m_isOpen)
        closeWithCode(0);
    // Even if a host keeps the panel: no page may outlive the application object.
    webView.reset();
}

void TXUpdatePanel::stepAside() { hide(); }

void TXUpdatePanel::comeBack() {
    if (!m_isOpen || isVisible())
        return;
    show();
    raise();
    activateWindow();
}

void TXUpdatePanel::displaySelectedUpdate(const TXUpdatePtr &update) {
    if (!webView)
        return; // the application is quitting
    m_shownUpdate = update;
    if (!update->releaseNotesURL().isEmpty())
        webView->load(update->releaseNotesURL());
    else
        webView->setHtml(update->itemDescription()); // the notes are in the feed
}

void TXUpdatePanel::notesDidNotLoad() {
    // Show what is available: the notes in the feed, otherwise what the server sent.
    if (m_shownUpdate && !m_shownUpdate->itemDescription().isEmpty())
        webView->setHtml(m_shownUpdate->itemDescription());
}

// SPDX-License-Identifier: MIT
#include "platform/format.h"
#include "platform/localization.h"
#include "platform/osversion.h"
#include "platform/services.h"
#include "ui/alert.h"
#include "ui/appearance.h"
#include "ui/interfacefile.h"
#include "ui/modalsession.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>

#include <QCloseEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

TXUpdateCheckingPanelContentView::TXUpdateCheckingPanelContentView(QWidget *parent)
    : QWidget(parent) {}

void TXUpdateCheckingPanelContentView::viewDidChangeEffectiveAppearance() {
    if (auto *panel = qobject_cast<TXUpdateCheckingPanel *>(window()))
        panel->didChangeEffectiveAppearance();
}

bool TXUpdateCheckingPanelContentView::event(QEvent *event) {
    if (tx::isAppearanceChange(event))
        viewDidChangeEffectiveAppearance();
    return QWidget::event(event);
}

std::unique_ptr<TXUpdateCheckingPanel> TXUpdateCheckingPanel::updateCheckingPanel() {
    std::unique_ptr<TXUpdateCheckingPanel> panel(new TXUpdateCheckingPanel);
    try {
        panel->load();
    } catch (const std::exception &exception) {
        const QString what = QString::fromUtf8(exception.what());
        TXLog(TXLogLevelFailure,
              u"Could not load TXUpdateCheckingPanel nib because it threw the exception: %@"_s, {what});
        tx::presentError(
            TXError(u"TXUpdate"_s, -999,
                    tx::formatText(
                        u"A problem in %@ was encountered which requires you to move this application."_s,
                        {tx::operatingSystemName()}),
                    {},
                    u"Quit the application and move it into your Applications folder before relaunching."_s)
                .withUserInfo({{u"exception"_s, what}, {u"email"_s, u"YES"_s}}));
        tx::services().exitProcess(0);
        return nullptr;
    }
    if (!panel->theContentView) {
        TXLog(TXLogLevelFailure, u"Could not load TXUpdateCheckingPanel nib"_s);
        return nullptr;
    }
    return panel;
}

TXUpdateCheckingPanel::TXUpdateCheckingPanel() = default;
TXUpdateCheckingPanel::~TXUpdateCheckingPanel() { cancel(); }

void TXUpdateCheckingPanel::load() {
    std::unique_ptr<QWidget> root = tx::loadInterface(u"TXUpdateCheckingPanel"_s);
    if (!root)
        return;
    tx::connectOutlet(titleField, root.get(), u"titleField"_s);
    tx::connectOutlet(messageField, root.get(), u"messageField"_s);
    tx::connectOutlet(button, root.get(), u"button"_s);
    tx::connectOutlet(progressIndicator, root.get(), u"progressIndicator"_s);
    tx::connectOutlet(theContentView, root.get(), u"theContentView"_s);

    setWindowTitle({});
    tx::makeAlertPanel(this);
    tx::applyDirection(this);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(root.release());
    connect(button, &QPushButton::clicked, this, &TXUpdateCheckingPanel::cancel);
    resize(theContentView->size());
    setMinimumSize(size());
    didChangeEffectiveAppearance();
}

void TXUpdateCheckingPanel::didChangeEffectiveAppearance() { tx::applyAppearance(this); }

int TXUpdateCheckingPanel::runModal() {
    const QString title = tx::localizedString(u"Checking for update\u2026"_s);
    titleField->setText(title);
    setAccessibleName(title);
    tx::setButtonTitle(button, tx::localizedString(u"Cancel"_s));
    button->setDefault(false);
    button->setAutoDefault(false);
    messageField->hide();
    progressIndicator->setRange(0, 0);
    progressIndicator->setAccessibleName(title);
    progressIndicator->show();
    _running = true;
    tx::centerWindow(this);
    const int code = tx::runModalForWindow(this);
    _running = false; // also when the application quits
    progressIndicator->setRange(0, 1);
    return code;
}

void TXUpdateCheckingPanel::close() {
    if (!_running)
        return;
    _running = false;
    tx::stopModalOfWindow(this, 1);
    hide();
}

void TXUpdateCheckingPanel::cancel() {
    if (!_running)
        return;
    _running = false;
    tx::stopModalOfWindow(this, 0);
    hide();
}

void TXUpdateCheckingPanel::showUpToDate() {
    const QString name = QGuiApplication::applicationDisplayName();
    titleField->setText(tx::localizedFormat(u"%@ is up to date."_s, {name}));
    messageField->setText(tx::localizedFormat(u"You are running the latest version of %@."_s, {name}));
    setAccessibleName(titleField->text());
    messageField->show();
    tx::setButtonTitle(button, tx::localizedString(u"OK"_s));
    button->setDefault(true);
    button->setFocus();
    progressIndicator->hide();
    progressIndicator->setRange(0, 1); // an endless one keeps moving
    // A long name or language takes more lines.
    theContentView->layout()->activate();
    resize(width(), std::max(height(), layout()->totalHeightForWidth(width())));
}

void TXUpdateCheckingPanel::closeEvent(QCloseEvent *event) {
    cancel(); // also when the application quits, which an ignored event would forbid
    event->accept();
}

void TXUpdateCheckingPanel::mousePressEvent(QMouseEvent *event) { tx::moveByBackground(this, event); }

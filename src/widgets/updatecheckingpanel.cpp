// SPDX-License-Identifier: MIT
#include "base/format.h"
#include "os/localization.h"
#include "os/osversion.h"
#include "os/services.h"
#include "widgets/alert.h"
#include "widgets/appearance.h"
#include "widgets/interfacefile.h"
#include "widgets/modalsession.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateCheckingPanel.h>

#include <QCloseEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

/// The panel owns the widgets.
struct TXUpdateCheckingPanel::Private {
    std::unique_ptr<QWidget> topLevelObjectsInNib; ///< what is not shown in the panel
    QWidget *theContentView = nullptr;
    QLabel *titleField = nullptr;
    QLabel *messageField = nullptr;
    QPushButton *button = nullptr;
    QProgressBar *progressIndicator = nullptr;
    bool isRunning = false;
};

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
    bool isLoaded = false;
    try {
        isLoaded = panel->load();
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
    if (!isLoaded) {
        TXLog(TXLogLevelFailure, u"Could not load TXUpdateCheckingPanel nib"_s);
        return nullptr;
    }
    return panel;
}

TXUpdateCheckingPanel::TXUpdateCheckingPanel()
    : d(std::make_unique<Private>()) {}
TXUpdateCheckingPanel::~TXUpdateCheckingPanel() { cancel(); }

bool TXUpdateCheckingPanel::load() {
    std::unique_ptr<QWidget> root = tx::loadInterface(u"TXUpdateCheckingPanel"_s);
    if (!root)
        return false;
    tx::connectOutletIfThere(d->titleField, root.get(), u"titleField"_s);
    tx::connectOutletIfThere(d->messageField, root.get(), u"messageField"_s);
    tx::connectOutletIfThere(d->button, root.get(), u"button"_s);
    tx::connectOutletIfThere(d->progressIndicator, root.get(), u"progressIndicator"_s);
    tx::connectOutletIfThere(d->theContentView, root.get(), u"theContentView"_s);

    setWindowTitle({});
    tx::makeAlertPanel(this);
    tx::applyDirection(this);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    const QSize contentSize = d->theContentView ? d->theContentView->size() : QSize(0, 0);
    if (d->theContentView)
        layout->addWidget(d->theContentView);
    if (root.get() == d->theContentView)
        (void)root.release(); // owned by the layout now
    else
        d->topLevelObjectsInNib = std::move(root);
    if (d->button)
        connect(d->button, &QPushButton::clicked, this, &TXUpdateCheckingPanel::cancel);
    resize(contentSize);
    setMinimumSize(contentSize);
    didChangeEffectiveAppearance();
    return true;
}

void TXUpdateCheckingPanel::didChangeEffectiveAppearance() { tx::applyAppearance(this); }

int TXUpdateCheckingPanel::runModal() {
    const QString title = tx::localizedString(u"Checking for update\u2026"_s);
    if (d->titleField)
        d->titleField->setText(title);
    setAccessibleName(title);
    if (d->button) {
        tx::setButtonTitle(d->button, tx::localizedString(u"Cancel"_s));
        d->button->setDefault(false);
        d->button->setAutoDefault(false);
    }
    if (d->messageField)
        d->messageField->hide();
    if (d->progressIndicator) {
        d->progressIndicator->setRange(0, 0);
        d->progressIndicator->setAccessibleName(tx::localizedString(u"Progress"_s));
        d->progressIndicator->show();
    }
    d->isRunning = true;
    tx::centerWindow(this);
    const int code = tx::runModalForWindow(this);
    d->isRunning = false; // also when the application quits
    if (d->progressIndicator)
        d->progressIndicator->setRange(0, 1);
    return code;
}

void TXUpdateCheckingPanel::close() {
    if (!d->isRunning)
        return;
    d->isRunning = false;
    tx::stopModalOfWindow(this, 1);
    hide();
}

void TXUpdateCheckingPanel::cancel() {
    if (!d->isRunning)
        return;
    d->isRunning = false;
    tx::stopModalOfWindow(this, 0);
    hide();
}

void TXUpdateCheckingPanel::showUpToDate() {
    const QString name = QGuiApplication::applicationDisplayName();
    const QString title = tx::localizedFormat(u"%@ is up to date."_s, {name});
    if (d->titleField)
        d->titleField->setText(title);
    setAccessibleName(title);
    if (d->messageField) {
        d->messageField->setText(tx::localizedFormat(u"You are running the latest version of %@."_s, {name}));
        d->messageField->show();
    }
    if (d->button) {
        tx::setButtonTitle(d->button, tx::localizedString(u"OK"_s));
        d->button->setDefault(true);
        tx::focusVisibly(d->button);
    }
    if (d->progressIndicator) {
        d->progressIndicator->hide();
        d->progressIndicator->setRange(0, 1); // an indeterminate bar keeps moving
    }
    if (!d->theContentView)
        return;
    // A long name or translation needs more lines.
    if (d->theContentView->layout())
        d->theContentView->layout()->activate();
    resize(width(), std::max(height(), layout()->totalHeightForWidth(width())));
}

void TXUpdateCheckingPanel::closeEvent(QCloseEvent *event) {
    cancel(); // also when the application quits, which an ignored event would forbid
    event->accept();
}

void TXUpdateCheckingPanel::mousePressEvent(QMouseEvent *event) { tx::moveByBackground(this, event); }

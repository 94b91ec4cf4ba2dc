// SPDX-License-Identifier: MIT
#include "widgets/interfacefile.h"
#include "widgets/lifetime.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateAppMoverPanel.h>
#include <TarvixUpdate/TXWindowController.h>

#include <QVBoxLayout>

using namespace Qt::StringLiterals;

struct TXWindowController::Private {
    std::unique_ptr<QDialog> window;
    QWidget *contentView = nullptr; ///< belongs to the window
    bool hasFailed = false;
};

TXWindowController::TXWindowController(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>()) {}

TXWindowController::~TXWindowController() { tx::deleteWidget(d->window.release()); }

bool TXWindowController::isWindowLoaded() const { return d->window != nullptr; }
QWidget *TXWindowController::contentView() const { return d->contentView; }

QDialog *TXWindowController::window() {
    if (d->window || d->hasFailed)
        return d->window.get();
    std::unique_ptr<QWidget> content = tx::loadInterface(windowNibName());
    if (!content) {
        d->hasFailed = true;
        TXLog(TXLogLevelFailure, u"Could not load the interface file %@"_s, {windowNibName()});
        return nullptr;
    }
    d->window = std::make_unique<QDialog>();
    d->window->setWindowTitle(content->windowTitle());
    d->window->resize(content->size());
    d->contentView = content.get();
    auto *layout = new QVBoxLayout(d->window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content.release());
    try {
        windowDidLoad();
    } catch (const std::exception &exception) {
        TXLog(TXLogLevelFailure, u"Could not load the interface file %@: %@"_s,
              {windowNibName(), QString::fromUtf8(exception.what())});
        d->hasFailed = true;
        d->contentView = nullptr;
        d->window.reset();
    }
    return d->window.get();
}

void TXWindowController::windowDidLoad() {}

void TXWindowController::unloadWindow() {
    d->contentView = nullptr;
    d->window.reset();
}

TXUpdateAppMoverPanel::TXUpdateAppMoverPanel(QObject *parent)
    : TXWindowController(parent) {}
QString TXUpdateAppMoverPanel::windowNibName() const { return u"TXUpdateAppMoverPanel"_s; }
void TXUpdateAppMoverPanel::windowDidLoad() { TXWindowController::windowDidLoad(); }

// SPDX-License-Identifier: MIT
#include "widgets/interfacefile.h"
#include "widgets/lifetime.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateAppMoverPanel.h>
#include <TarvixUpdate/TXWindowController.h>

#include <QVBoxLayout>

using namespace Qt::StringLiterals;

TXWindowController::TXWindowController() = default;
TXWindowController::~TXWindowController() { tx::deleteWidget(m_window.release()); }

QDialog *TXWindowController::window() {
    if (m_window || m_failed)
        return m_window.get();
    std::unique_ptr<QWidget> content = tx::loadInterface(windowNibName());
    if (!content) {
        m_failed = true;
        TXLog(TXLogLevelFailure, u"Could not load the interface file %@"_s, {windowNibName()});
        return nullptr;
    }
    m_window = std::make_unique<QDialog>();
    m_window->setWindowTitle(content->windowTitle());
    m_window->resize(content->size());
    m_contentView = content.get();
    auto *layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content.release());
    try {
        windowDidLoad();
    } catch (const std::exception &exception) {
        TXLog(TXLogLevelFailure, u"Could not load the interface file %@: %@"_s,
              {windowNibName(), QString::fromUtf8(exception.what())});
        m_failed = true;
        m_contentView = nullptr;
        m_window.reset();
    }
    return m_window.get();
}

void TXWindowController::windowDidLoad() {}

void TXWindowController::unloadWindow() {
    m_contentView = nullptr;
    m_window.reset();
}

TXUpdateAppMoverPanel::TXUpdateAppMoverPanel() = default;
QString TXUpdateAppMoverPanel::windowNibName() const { return u"TXUpdateAppMoverPanel"_s; }
void TXUpdateAppMoverPanel::windowDidLoad() { TXWindowController::windowDidLoad(); }

// SPDX-License-Identifier: MIT
#include "widgets/floating.h"

#include "widgets/interfacefile.h"
#include "widgets/interfaceloader.h"

#include <QGuiApplication>
#include <QWindow>

namespace tx {

Floating::Floating(QWidget *window)
    : m_window(window) {
    window->winId(); // the native window
    follow(QGuiApplication::focusWindow());
    // In the background, or while a window closes: the first visible window.
    for (QWindow *other : QGuiApplication::topLevelWindows()) {
        if (!window->windowHandle()->transientParent())
            follow(other);
    }
    // Queued: not while the focus still moves.
    connect(
        qGuiApp, &QGuiApplication::focusWindowChanged, this,
        [this] { follow(QGuiApplication::focusWindow()); }, Qt::QueuedConnection);
}

bool Floating::canBeBelow(const QWindow *other) const {
    if (!other->isVisible() || other->modality() != Qt::NonModal ||
        (other->type() != Qt::Window && other->type() != Qt::Dialog))
        return false;
    for (const QWindow *above = other; above; above = above->transientParent()) {
        if (above == m_window->windowHandle())
            return false; // the window itself, or one that belongs to it
    }
    return true;
}

void Floating::follow(QWindow *active) {
    if (!active || !m_window || !m_window->windowHandle())
        return; // another program is active
    while (QWindow *outer = active->parent())
        active = outer;
    QWindow *handle = m_window->windowHandle();
    if (active == handle->transientParent() || !canBeBelow(active))
        return;
    handle->setTransientParent(active);
    // Qt would apply the change if the window were hidden and shown again. But then desktops give it the
    // keyboard focus, and the user's next Return would press its default button.
    static const auto tell =
        reinterpret_cast<TransientParentTeller>(interfaceFunction("txTellTransientParent"));
    if (tell && m_window->isVisible())
        tell(handle);
}

} // namespace tx

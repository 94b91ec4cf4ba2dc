// SPDX-License-Identifier: MIT
#include "widgets/recentinput.h"

#include "os/services.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QWidget>

#include <utility>

namespace tx {

void RecentInput::watch(QWidget *widget) {
    m_widget = widget;
    // The engine may replace the widget that gets the events at any time.
    QCoreApplication::instance()->installEventFilter(this);
}

bool RecentInput::take() {
    constexpr double seconds = 1;
    const double elapsed = services().secondsSinceReferenceDate() - m_time;
    return std::exchange(m_pressed, false) && elapsed >= 0 && elapsed <= seconds;
}

// The web engine's objects have no type information, which UBSan reports as a broken object.
__attribute__((no_sanitize("vptr"))) bool RecentInput::eventFilter(QObject *object, QEvent *event) {
    bool press = false;
    switch (event->type()) {
    case QEvent::KeyPress:
        press = !static_cast<QKeyEvent *>(event)->isAutoRepeat();
        break;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::TouchBegin:
    case QEvent::TabletPress:
        press = true;
        break;
    case QEvent::MouseButtonRelease:
    case QEvent::TouchEnd:
    case QEvent::TabletRelease:
        break;
    default:
        return false;
    }
    // Only events from the window system; the engine creates others itself.
    const auto *widget = object->isWidgetType() ? static_cast<QWidget *>(object) : nullptr;
    if (!widget || !m_widget || !event->spontaneous())
        return false;
    if (widget != m_widget && !m_widget->isAncestorOf(widget))
        return false;
    m_pressed = m_pressed || press;
    m_time = services().secondsSinceReferenceDate();
    return false;
}

} // namespace tx

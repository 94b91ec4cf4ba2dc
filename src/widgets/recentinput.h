// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>

class QWidget;

namespace tx {

/// Knows whether the user has just pressed a key or a mouse button in a widget. This distinguishes actions of
/// a page's scripts from actions of the user. Thread: main.
class RecentInput final : public QObject {
public:
    /// In this widget, and in those within it. Watching ends with this object.
    void watch(QWidget *widget);
    /// True once for each press, within one second of it or of the button's release.
    [[nodiscard]] bool take();

    bool eventFilter(QObject *object, QEvent *event) override;

private:
    QPointer<QWidget> m_widget;
    bool m_pressed = false; ///< and nothing came of it so far
    double m_time = 0;      ///< of the press or release, as secondsSinceReferenceDate
};

} // namespace tx

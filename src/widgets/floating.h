// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QWidget>

class QWindow;

namespace tx {

/// Keeps a window above the application's other windows, but not above those of other programs: the window is
/// a transient of the application's active window, and follows when another one becomes active, which keeps
/// the keyboard's focus. Modal windows stay above it. Make it before the window is shown, and destroy it when
/// the window closes. Thread: main.
class Floating final : public QObject {
public:
    explicit Floating(QWidget *window);

private:
    void follow(QWindow *active);
    [[nodiscard]] bool canBeBelow(const QWindow *other) const;

    QPointer<QWidget> m_window;
};

} // namespace tx

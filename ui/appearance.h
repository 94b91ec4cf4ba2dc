// SPDX-License-Identifier: MIT
#pragma once

class QColor;
class QPushButton;
class QWidget;
class QEvent;
class QMouseEvent;
class QString;

namespace tx {

/// Looks and habits that the framework's windows share. Thread: main.

/// Whether the application's palette is a dark one.
[[nodiscard]] bool appearanceIsDark();
/// The window's background: the desktop's own when it is dark, else white. It is painted, and no palette
/// changed: styles keep what they draw for every palette that they see.
void applyAppearance(QWidget *window);
/// What applyAppearance() chose.
[[nodiscard]] QColor backgroundColor(const QWidget *window);
/// Lays the window out in the direction in which the framework's texts are written here.
void applyDirection(QWidget *window);
/// Whether this event tells of another appearance.
[[nodiscard]] bool isAppearanceChange(const QEvent *event);

/// Leaves the title bar without buttons; the window can be moved by its background.
void makeAlertPanel(QWidget *window);
/// The application quits when its own windows are closed, even while this one is still open. makeAlertPanel()
/// includes this.
void makeSecondary(QWidget *window);
/// Moves the window when the event pressed its background.
void moveByBackground(QWidget *window, QMouseEvent *event);
/// In the middle of `parent`, or of the screen.
void centerWindow(QWidget *window, const QWidget *parent = nullptr);
/// Makes the window a sheet of `parent`: above it, and blocking only it.
void attachSheet(QWidget *window, const QWidget *parent);

/// A title that is shown as it stands, with Alt and one of its letters as a shortcut.
void setButtonTitle(QPushButton *button, const QString &title);
/// The title as it was set.
[[nodiscard]] QString buttonTitle(const QPushButton *button);

} // namespace tx

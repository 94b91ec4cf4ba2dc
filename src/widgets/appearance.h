// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QString>

class QCheckBox;
class QPushButton;
class QWidget;
class QEvent;
class QMouseEvent;

namespace tx {

/// Looks and habits that the framework's windows share. Thread: main.

/// Whether the application's palette is a dark one.
[[nodiscard]] bool appearanceIsDark();
/// Sets the window's background: the desktop's own in a dark appearance, otherwise white. Paints it instead
/// of changing the palette, because styles cache data for every palette that they see.
void applyAppearance(QWidget *window);
/// What applyAppearance() chose.
[[nodiscard]] QColor backgroundColor(const QWidget *window);
/// The contrast ratio of two colours by WCAG 2, from 1 (equal) to 21 (black and white). Parts that carry
/// information need at least 3.
[[nodiscard]] double contrast(const QColor &one, const QColor &other);
/// `share` (0 to 1) of a colour on another one.
[[nodiscard]] QColor mixed(const QColor &base, const QColor &colour, double share);
/// A colour for the frame of a control, which can be seen on the window that the control is in.
[[nodiscard]] QColor frameColor(const QWidget *control);
/// Draws a frame around the box of a check box in a dark appearance, where styles fill it with almost the
/// window's colour.
void frameBox(QCheckBox *checkBox);
/// Makes the lines of an interface file one pixel thick. Those of the styles have a bright edge, and a gap
/// where they meet.
void makeLinesThin(QWidget *window);
/// Lays the window out in the writing direction of the framework's current language.
void applyDirection(QWidget *window);
/// Returns whether this event reports a change of the appearance.
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

/// The height of the buttons at the bottom of the framework's windows and alerts.
constexpr int buttonHeight = 34;
/// A title that is shown as it is, with Alt and one of its letters as a shortcut. The button gets
/// buttonHeight.
void setButtonTitle(QPushButton *button, const QString &title);
/// The title as it was set.
[[nodiscard]] QString buttonTitle(const QPushButton *button);
/// Enables or disables a button. One that is disabled does not pass the focus on to the next button, which a
/// second press of the same key would press; the window keeps it until its default button is enabled again.
void setButtonEnabled(QPushButton *button, bool enabled);
/// Lets a button show that it has the focus; setButtonTitle() includes this.
void showFocus(QPushButton *button);
/// Gives a button the focus, and shows that as if the user had come to it with the keyboard.
void focusVisibly(QPushButton *button);

/// A tool tip that shows this text as it is, and not as markup.
[[nodiscard]] QString plainToolTip(const QString &text);
/// The text, ending in an ellipsis if it is longer than what a sentence in a window has room for.
[[nodiscard]] QString shortened(const QString &text);

} // namespace tx

// SPDX-License-Identifier: MIT
#include "widgets/appearance.h"

#include "os/localization.h"

#include <QApplication>
#include <QCheckBox>
#include <QFrame>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QStyleOptionButton>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace tx {

bool appearanceIsDark() {
    const QPalette palette = QGuiApplication::palette();
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

namespace {

constexpr auto backgroundProperty = "tx_backgroundColor";

/// Paints the backgrounds of the windows that it filters.
class Background final : public QObject {
public:
    bool eventFilter(QObject *object, QEvent *event) override {
        auto *window = qobject_cast<QWidget *>(object);
        if (window && event->type() == QEvent::Paint)
            QPainter(window).fillRect(window->rect(), backgroundColor(window));
        return false;
    }
};

} // namespace

void applyAppearance(QWidget *window) {
    static Background background;
    if (!window->property(backgroundProperty).isValid())
        window->installEventFilter(&background);
    const QColor color =
        appearanceIsDark() ? QGuiApplication::palette().color(QPalette::Window) : QColor(Qt::white);
    if (backgroundColor(window) == color)
        return;
    window->setProperty(backgroundProperty, color);
    window->update();
}

QColor backgroundColor(const QWidget *window) { return window->property(backgroundProperty).value<QColor>(); }

namespace {

double luminance(const QColor &colour) {
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

/// Paints frames as plain areas in the colour of a line.
class Line final : public QObject {
public:
    bool eventFilter(QObject *object, QEvent *event) override {
        auto *line = qobject_cast<QFrame *>(object);
        if (!line || event->type() != QEvent::Paint)
            return false;
        constexpr double share = 0.2;
        QPainter(line).fillRect(line->rect(), mixed(backgroundColor(line->window()),
                                                    line->palette().color(QPalette::WindowText), share));
        return true;
    }
};

} // namespace

double contrast(const QColor &one, const QColor &other) {
    const auto [darker, lighter] = std::minmax({luminance(one), luminance(other)});
    return (lighter + 0.05) / (darker + 0.05);
}

QColor mixed(const QColor &base, const QColor &colour, double share) {
    const auto part = [share](int a, int b) { return int(std::lround(a * (1 - share) + b * share)); };
    return {part(base.red(), colour.red()), part(base.green(), colour.green()),
            part(base.blue(), colour.blue())};
}

QColor frameColor(const QWidget *control) {
    const QColor own = backgroundColor(control->window());
    const QColor background = own.isValid() ? own : control->palette().color(QPalette::Window);
    const QColor text = control->palette().color(QPalette::WindowText);
    double share = 0.3;
    while (share < 1 && contrast(mixed(background, text, share), background) < 3)
        share += 0.05;
    return mixed(background, text, share);
}

namespace {

class BoxFrame final : public QObject {
public:
    bool eventFilter(QObject *object, QEvent *event) override {
        auto *checkBox = qobject_cast<QCheckBox *>(object);
        if (!checkBox || event->type() != QEvent::Paint || !appearanceIsDark())
            return false;
        object->event(event); // the frame is painted on top
        QStyleOptionButton option;
        option.initFrom(checkBox);
        const QRect box = checkBox->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, checkBox);
        QPainter painter(checkBox);
        painter.setPen(frameColor(checkBox));
        painter.drawRect(box.adjusted(0, 0, -1, -1));
        return true;
    }
};

} // namespace

void frameBox(QCheckBox *checkBox) {
    static BoxFrame frame;
    checkBox->installEventFilter(&frame);
}

void makeLinesThin(QWidget *window) {
    static Line painting;
    for (QFrame *line : window->findChildren<QFrame *>()) {
        if (line->frameShape() == QFrame::HLine)
            line->setFixedHeight(1);
        else if (line->frameShape() == QFrame::VLine)
            line->setFixedWidth(1);
        else
            continue;
        line->installEventFilter(&painting);
    }
}

void applyDirection(QWidget *window) {
    // The strings may be in a language that the application itself does not have.
    if (localizedString(QStringLiteral("Cancel")).isRightToLeft())
        window->setLayoutDirection(Qt::RightToLeft);
}

bool isAppearanceChange(const QEvent *event) {
    return event->type() == QEvent::ApplicationPaletteChange || event->type() == QEvent::PaletteChange ||
           event->type() == QEvent::StyleChange;
}

void makeAlertPanel(QWidget *window) {
    window->setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint);
    makeSecondary(window);
}

void makeSecondary(QWidget *window) { window->setAttribute(Qt::WA_QuitOnClose, false); }

void moveByBackground(QWidget *window, QMouseEvent *event) {
    if (event->button() == Qt::LeftButton && window->windowHandle())
        window->windowHandle()->startSystemMove();
}

void centerWindow(QWidget *window, const QWidget *parent) {
    const QScreen *screen = parent ? parent->screen() : window->screen();
    if (!screen)
        return;
    const QRect available = screen->availableGeometry();
    const QRect area = parent ? parent->frameGeometry() : available;
    QRect place(QPoint(), window->size());
    place.moveCenter(area.center());
    place.moveLeft(std::max(available.left(), std::min(place.left(), available.right() - place.width())));
    place.moveTop(std::max(available.top(), std::min(place.top(), available.bottom() - place.height())));
    window->move(place.topLeft());
}

void attachSheet(QWidget *window, const QWidget *parent) {
    window->setWindowModality(Qt::WindowModal);
    window->winId();
    parent->window()->winId();
    // The native parent and not a widget's: nobody but the window's owner deletes it.
    window->windowHandle()->setTransientParent(parent->window()->windowHandle());
    centerWindow(window, parent->window());
}

void setButtonTitle(QPushButton *button, const QString &title) {
    button->setText(QString(title).replace(u'&', QStringLiteral("&&")));
    button->setMinimumHeight(buttonHeight);
    showFocus(button);
    // Room on both sides, in every style and language; a shorter title does not make it jump.
    constexpr int margins = 40;
    button->setMinimumWidth(
        std::max(button->minimumWidth(), button->fontMetrics().horizontalAdvance(title) + margins));
    // Skips letters that neighbouring buttons already use.
    QString taken;
    for (const QPushButton *other : button->window()->findChildren<QPushButton *>()) {
        if (other != button && other->shortcut().count() == 1)
            taken += QChar(int(other->shortcut()[0].key()));
    }
    for (const QChar letter : title.toUpper()) {
        if (letter.unicode() < 128 && letter.isLetter() && !taken.contains(letter)) {
            button->setShortcut(QKeySequence(Qt::ALT | Qt::Key(letter.unicode())));
            return;
        }
    }
}

QString buttonTitle(const QPushButton *button) {
    return button->text().replace(QStringLiteral("&&"), QStringLiteral("&"));
}

void setButtonEnabled(QPushButton *button, bool enabled) {
    QWidget *window = button->window();
    if (!enabled && window->focusWidget() == button)
        window->setFocus();
    button->setEnabled(enabled);
    if (enabled && button->isDefault() && window->focusWidget() == window)
        focusVisibly(button);
}

namespace {

/// Shows which button has the focus. Styles do so only after a key has moved the focus, and a new window
/// forgets that. Fusion, the default style, paints a default button in the same way with and without the
/// focus.
class FocusRing final : public QObject {
public:
    bool eventFilter(QObject *object, QEvent *event) override {
        auto *button = qobject_cast<QPushButton *>(object);
        if (!button)
            return false; // the base class of a button that is being destroyed
        if (event->type() == QEvent::FocusIn &&
            static_cast<QFocusEvent *>(event)->reason() != Qt::MouseFocusReason)
            button->window()->setAttribute(Qt::WA_KeyboardFocusChange);
        if (event->type() != QEvent::Paint || !button->hasFocus() ||
            !button->window()->testAttribute(Qt::WA_KeyboardFocusChange) ||
            !button->style()->inherits("QFusionStyle"))
            return false;
        object->event(event); // the ring is painted on top
        QPainter painter(button);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(button->palette().color(QPalette::Highlight), 2));
        painter.drawRoundedRect(QRectF(button->rect()).adjusted(3, 3, -3, -3), 2, 2);
        return true;
    }
};

} // namespace

void showFocus(QPushButton *button) {
    static FocusRing ring;
    button->installEventFilter(&ring);
}

void focusVisibly(QPushButton *button) {
    showFocus(button);
    button->window()->setAttribute(Qt::WA_KeyboardFocusChange);
    button->setFocus(Qt::TabFocusReason);
    button->update();
}

QString plainToolTip(const QString &text) { return QStringLiteral("<p>%1</p>").arg(text.toHtmlEscaped()); }

QString shortened(const QString &text) {
    constexpr int longest = 48;
    if (text.size() <= longest)
        return text;
    const qsizetype kept = text[longest - 2].isHighSurrogate() ? longest - 2 : longest - 1;
    return text.left(kept) + QChar(0x2026);
}

} // namespace tx

// SPDX-License-Identifier: MIT
#include "widgets/elidedlabel.h"

#include "widgets/appearance.h"

#include <QHelpEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

#include <cmath>

TXElidedLabel::TXElidedLabel(QWidget *parent)
    : QLabel(parent) {
    setTextFormat(Qt::PlainText);
}

// A string from a feed may contain line breaks.
QString TXElidedLabel::line() const { return text().simplified(); }

QString TXElidedLabel::shownText() const {
    return fontMetrics().elidedText(line(), Qt::ElideRight, contentsRect().width());
}

bool TXElidedLabel::isElided() const { return shownText() != line(); }

QSize TXElidedLabel::sizeHint() const {
    const QMargins margins = contentsMargins();
    // Widths of letters are fractions: with a rounded width the text would be elided.
    const int width = int(std::ceil(QFontMetricsF(font()).horizontalAdvance(line()))) + 1;
    return {width + margins.left() + margins.right(),
            fontMetrics().height() + margins.top() + margins.bottom()};
}

QSize TXElidedLabel::minimumSizeHint() const {
    // Some characters and the ellipsis.
    return {std::min(sizeHint().width(), 6 * fontMetrics().averageCharWidth()), sizeHint().height()};
}

bool TXElidedLabel::event(QEvent *event) {
    if (event->type() == QEvent::ToolTip && isElided()) {
        QToolTip::showText(static_cast<QHelpEvent *>(event)->globalPos(), tx::plainToolTip(text()), this);
        return true;
    }
    return QLabel::event(event);
}

void TXElidedLabel::paintEvent(QPaintEvent *) {
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(),
                          int(QStyle::visualAlignment(layoutDirection(), alignment())) | Qt::TextSingleLine,
                          palette(), isEnabled(), shownText(), foregroundRole());
}

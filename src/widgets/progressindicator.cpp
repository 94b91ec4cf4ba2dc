// SPDX-License-Identifier: MIT
#include "widgets/progressindicator.h"

#include "widgets/appearance.h"

#include <QPainter>
#include <QStyleOptionProgressBar>
#include <QStylePainter>
#include <QTimerEvent>

#include <cmath>
#include <numbers>

namespace {

constexpr int frame = 40;              // milliseconds
constexpr qint64 thereAndBack = 2600;  // milliseconds
constexpr double shareOfTheBar = 0.25; // of the piece

} // namespace

TXProgressIndicator::TXProgressIndicator(QWidget *parent)
    : QProgressBar(parent) {}

QRect TXProgressIndicator::pieceAfter(qint64 milliseconds) const {
    QStyleOptionProgressBar option;
    initStyleOption(&option);
    const QRect groove = style()->subElementRect(QStyle::SE_ProgressBarContents, &option, this);
    const int width = int(groove.width() * shareOfTheBar);
    // Slower at both ends, where it turns around.
    const double turn = 2 * std::numbers::pi * double(milliseconds % thereAndBack) / double(thereAndBack);
    const double way = (1 - std::cos(turn)) / 2;
    return {groove.left() + int(std::lround((groove.width() - width) * way)), groove.top(), width,
            groove.height()};
}

void TXProgressIndicator::paintEvent(QPaintEvent *event) {
    if (isIndeterminate()) {
        paintBar();
    } else {
        m_frames.stop();
        QProgressBar::paintEvent(event);
    }
    if (tx::appearanceIsDark())
        paintFrame();
}

void TXProgressIndicator::paintFrame() {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(tx::frameColor(this));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 2, 2);
}

void TXProgressIndicator::paintBar() {
    // If the desktop disables animations, the piece stays in the middle.
    const bool moves = style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this) > 0;
    if (moves && !m_frames.isActive()) {
        m_since.start();
        m_frames.start(frame, this);
    }
    QStylePainter painter(this);
    QStyleOptionProgressBar option;
    initStyleOption(&option);
    option.minimum = 0;
    option.maximum = 1;
    option.progress = 0;
    QStyleOptionProgressBar part = option;
    part.rect = style()->subElementRect(QStyle::SE_ProgressBarGroove, &option, this);
    painter.drawControl(QStyle::CE_ProgressBarGroove, part);
    part.rect = pieceAfter(moves ? m_since.elapsed() : thereAndBack / 4);
    part.progress = 1;
    painter.drawControl(QStyle::CE_ProgressBarContents, part);
}

void TXProgressIndicator::hideEvent(QHideEvent *event) {
    m_frames.stop();
    QProgressBar::hideEvent(event);
}

void TXProgressIndicator::timerEvent(QTimerEvent *event) {
    if (event->timerId() != m_frames.timerId()) {
        QProgressBar::timerEvent(event);
        return;
    }
    update();
    if (!isIndeterminate())
        m_frames.stop();
}

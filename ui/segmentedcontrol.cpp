// SPDX-License-Identifier: MIT
#include "ui/segmentedcontrol.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QToolButton>

TXSegmentedControl::TXSegmentedControl(QWidget *parent)
    : QWidget(parent) {
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    for (int i = 0; i < 2; ++i) {
        m_segments[i] = new QToolButton(this);
        m_segments[i]->setFocusPolicy(Qt::StrongFocus);
        layout->addWidget(m_segments[i]);
        connect(m_segments[i], &QToolButton::clicked, this, [this, i] {
            m_selected = i;
            Q_EMIT action();
        });
    }
    m_segments[0]->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
    m_segments[1]->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Right));
    pointArrows();
}

void TXSegmentedControl::setEnabledForSegment(bool enabled, int segment) {
    m_segments[segment]->setEnabled(enabled);
}

bool TXSegmentedControl::isEnabledForSegment(int segment) const { return m_segments[segment]->isEnabled(); }

void TXSegmentedControl::setLabels(const QString &previous, const QString &next) {
    for (int i = 0; i < 2; ++i) {
        m_segments[i]->setAccessibleName(i == 0 ? previous : next);
        m_segments[i]->setToolTip(i == 0 ? previous : next);
    }
}

void TXSegmentedControl::changeEvent(QEvent *event) {
    if (event->type() == QEvent::LayoutDirectionChange)
        pointArrows();
    QWidget::changeEvent(event);
}

void TXSegmentedControl::pointArrows() {
    const bool mirrored = isRightToLeft();
    m_segments[0]->setArrowType(mirrored ? Qt::RightArrow : Qt::LeftArrow);
    m_segments[1]->setArrowType(mirrored ? Qt::LeftArrow : Qt::RightArrow);
}

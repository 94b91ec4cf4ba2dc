// SPDX-License-Identifier: MIT
#include "widgets/segmentedcontrol.h"

#include "os/localization.h"
#include "widgets/appearance.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

using namespace Qt::StringLiterals;

TXSegmentedControl::TXSegmentedControl(QWidget *parent)
    : QWidget(parent)
    , m_place(new QLabel(this)) {
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    for (int i = 0; i < 2; ++i) {
        m_segments[i] = new QToolButton(this);
        m_segments[i]->setFocusPolicy(Qt::StrongFocus);
        m_segments[i]->setFixedSize(tx::buttonHeight, tx::buttonHeight);
        connect(m_segments[i], &QToolButton::clicked, this, [this, i] {
            m_selected = i;
            Q_EMIT action();
        });
    }
    m_place->setTextFormat(Qt::PlainText);
    m_place->setAlignment(Qt::AlignCenter);
    layout->addWidget(m_segments[0]);
    layout->addWidget(m_place);
    layout->addWidget(m_segments[1]);
    m_segments[0]->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Left));
    m_segments[1]->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Right));
    pointArrows();
}

void TXSegmentedControl::setPosition(qsizetype index, qsizetype count) {
    const auto textFor = [count](qsizetype number) {
        return tx::localizedFormat(u"%d of %d"_s, {QString::number(number), QString::number(count)});
    };
    m_place->setText(textFor(index + 1));
    // The arrow does not move under the pointer when the number gets another digit.
    m_place->setMinimumWidth(m_place->fontMetrics().horizontalAdvance(textFor(count)));
    const bool mayGo[] = {index > 0, index + 1 < count};
    for (int i = 0; i < 2; ++i) {
        // An arrow at its end passes the focus to the other one.
        if (!mayGo[i] && mayGo[1 - i] && m_segments[i]->hasFocus())
            m_segments[1 - i]->setFocus(Qt::TabFocusReason);
    }
    for (int i = 0; i < 2; ++i)
        m_segments[i]->setEnabled(mayGo[i]);
    setVisible(count > 1);
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

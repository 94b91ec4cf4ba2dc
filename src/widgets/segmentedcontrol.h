// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class QLabel;
class QToolButton;

/// Two arrows, previous (0) and next (1), with the place among all pages between them ("1 of 3"). A single
/// page has neither. Thread: main.
class TXSegmentedControl final : public QWidget {
    Q_OBJECT
public:
    explicit TXSegmentedControl(QWidget *parent = nullptr);

    /// Page `index` (from 0) of `count` is shown.
    void setPosition(qsizetype index, qsizetype count);
    [[nodiscard]] bool isEnabledForSegment(int segment) const;
    void setLabels(const QString &previous, const QString &next);
    /// The segment that was pressed last; -1 before the first.
    [[nodiscard]] int selectedSegment() const { return m_selected; }
    [[nodiscard]] QToolButton *segment(int index) const { return m_segments[index]; }
    [[nodiscard]] QLabel *place() const { return m_place; }

Q_SIGNALS:
    void action();

protected:
    void changeEvent(QEvent *event) override;

private:
    void pointArrows();
    QToolButton *m_segments[2];
    QLabel *m_place;
    int m_selected = -1;
};

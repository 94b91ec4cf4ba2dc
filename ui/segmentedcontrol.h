// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class QToolButton;

/// Two buttons side by side: previous (0) and next (1). Thread: main.
class TXSegmentedControl final : public QWidget {
    Q_OBJECT
public:
    explicit TXSegmentedControl(QWidget *parent = nullptr);

    void setEnabledForSegment(bool enabled, int segment);
    [[nodiscard]] bool isEnabledForSegment(int segment) const;
    void setLabels(const QString &previous, const QString &next);
    /// The segment that was pressed last; -1 before the first.
    [[nodiscard]] int selectedSegment() const { return m_selected; }
    [[nodiscard]] QToolButton *segment(int index) const { return m_segments[index]; }

Q_SIGNALS:
    void action();

protected:
    void changeEvent(QEvent *event) override;

private:
    void pointArrows();
    QToolButton *m_segments[2];
    int m_selected = -1;
};

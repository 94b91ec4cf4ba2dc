// SPDX-License-Identifier: MIT
#pragma once

#include <QLabel>

/// A plain text on one line. Where it does not fit, it ends in an ellipsis and has the whole text as its tool
/// tip. Thread: main.
class TXElidedLabel final : public QLabel {
    Q_OBJECT
public:
    explicit TXElidedLabel(QWidget *parent = nullptr);

    /// What can be seen of the text at the present width.
    [[nodiscard]] QString shownText() const;
    [[nodiscard]] bool isElided() const;
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    [[nodiscard]] QString line() const;
};

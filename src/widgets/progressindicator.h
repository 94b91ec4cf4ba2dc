// SPDX-License-Identifier: MIT
#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QProgressBar>

/// A progress bar that does not look full while there is no end to measure (minimum and maximum are equal): a
/// short piece moves from one end to the other and back. Desktop styles fill the whole bar then. In a dark
/// appearance, where styles draw the empty part in almost the window's colour, a frame shows how long the bar
/// is. Thread: main.
class TXProgressIndicator final : public QProgressBar {
    Q_OBJECT
public:
    explicit TXProgressIndicator(QWidget *parent = nullptr);

    [[nodiscard]] bool isIndeterminate() const { return minimum() == maximum(); }
    /// Where the piece is `milliseconds` after it set out.
    [[nodiscard]] QRect pieceAfter(qint64 milliseconds) const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void timerEvent(QTimerEvent *event) override;

private:
    void paintBar();
    void paintFrame();

    QBasicTimer m_frames; ///< runs only while the piece can be seen
    QElapsedTimer m_since;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QProgressBar>

/// A progress bar for work of unknown length (minimum and maximum are equal): a short bar moves from one end
/// to the other and back, whereas desktop styles would fill the whole bar. In a dark appearance a frame shows
/// the length of the bar, because styles draw its empty part almost in the window's colour. Thread: main.
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

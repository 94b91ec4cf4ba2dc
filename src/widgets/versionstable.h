// SPDX-License-Identifier: MIT
#pragma once

#include "widgets/elidedlabel.h"

#include <TarvixUpdate/TXUpdate.h>

#include <QTableView>

#include <functional>

class QPushButton;

/// What a row of the list of versions shows. Parts that a program looks up have a number.
class TXUpdateVersionRow final : public QWidget {
    Q_OBJECT
public:
    enum Tag { ChosenImage = 994, ChooseButton = 995, DateField = 997, BuildField = 998 };

    explicit TXUpdateVersionRow(QWidget *parent);
    [[nodiscard]] QLabel *imageView() const { return m_image; }
    [[nodiscard]] TXElidedLabel *textField() const { return m_text; }
    [[nodiscard]] QWidget *viewWithTag(int tag) const;

private:
    QLabel *m_image;
    TXElidedLabel *m_text;
};

/// One row for each update; rows are made for what can be seen only. Thread: main.
class TXUpdateVersionsTableView final : public QTableView {
    Q_OBJECT
public:
    /// Fills the row for an update.
    using RowFiller = std::function<void(TXUpdateVersionRow *row, int index)>;

    explicit TXUpdateVersionsTableView(QWidget *parent = nullptr);
    ~TXUpdateVersionsTableView() override;

    /// `textForRow` returns the string for a screen reader. Removes all earlier rows.
    void reloadData(int rows, const std::function<QString(int)> &textForRow, const RowFiller &fill);
    [[nodiscard]] int numberOfRows() const;
    /// Selects exactly one row, and emits the signal even if it is already selected.
    void selectOnly(int row);
    /// -1 without a selection.
    [[nodiscard]] int selectedRow() const;
    /// The row that contains this widget; -1 if there is none.
    [[nodiscard]] int rowForView(const QObject *view) const;
    /// The row's view, made when it is not there yet.
    TXUpdateVersionRow *viewForRow(int row);
    /// Scrolls so that the row is in the middle, unless a part of it can be seen.
    void scrollToCenter(int row);

Q_SIGNALS:
    void selectionDidChange(int row);

protected:
    void initViewItemOption(QStyleOptionViewItem *option) const override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void showEvent(QShowEvent *event) override;

private:
    void makeVisibleRows();
    class Model;
    Model *m_model;
    RowFiller m_fill;
};

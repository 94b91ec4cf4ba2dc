// SPDX-License-Identifier: MIT
#include "widgets/versionstable.h"

#include "widgets/appearance.h"

#include <QAbstractTableModel>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

#include <cmath>

namespace {

/// The rows' widgets show everything; the desktop's style paints the selection behind them.
class NoText final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *, const QStyleOptionViewItem &, const QModelIndex &) const override {}
};

/// The marks' images have several colours of this one's lightness.
constexpr QColor markColor(0x2f, 0x7f, 0xd6);

void setTag(QWidget *widget, int tag) { widget->setProperty("tag", tag); }

} // namespace

TXUpdateVersionRow::TXUpdateVersionRow(QWidget *parent)
    : QWidget(parent)
    , m_image(new QLabel(this))
    , m_text(new TXElidedLabel(this)) {
    auto *chosen = new QLabel(this);
    setTag(chosen, ChosenImage);
    auto *button = new QPushButton(this);
    setTag(button, ChooseButton);
    auto *date = new QLabel(this);
    setTag(date, DateField);
    auto *build = new TXElidedLabel(this);
    setTag(build, BuildField);

    m_image->setFixedSize(20, 20);
    chosen->setFixedSize(18, 18);
    button->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    auto *first = new QHBoxLayout;
    first->setSpacing(6);
    first->addWidget(m_text);
    first->addWidget(chosen);
    first->addStretch();
    auto *texts = new QVBoxLayout;
    texts->setSpacing(1);
    texts->addLayout(first);
    texts->addWidget(build);
    texts->addWidget(date);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(10, 6, 10, 6);
    row->setSpacing(8);
    row->addWidget(m_image, 0, Qt::AlignTop);
    row->addLayout(texts, 1);
    row->addWidget(button, 0, Qt::AlignVCenter);
}

QWidget *TXUpdateVersionRow::viewWithTag(int tag) const {
    for (QWidget *child : findChildren<QWidget *>()) {
        if (child->property("tag").toInt() == tag)
            return child;
    }
    return nullptr;
}

class TXUpdateVersionsTableView::Model final : public QAbstractTableModel {
public:
    using QAbstractTableModel::QAbstractTableModel;
    int rowCount(const QModelIndex &parent) const override { return parent.isValid() ? 0 : m_rows; }
    int columnCount(const QModelIndex &parent) const override { return parent.isValid() ? 0 : 1; }
    QVariant data(const QModelIndex &index, int role) const override {
        return role == Qt::AccessibleTextRole && m_text ? QVariant(m_text(index.row())) : QVariant();
    }
    void reset(int rows, const std::function<QString(int)> &text) {
        beginResetModel();
        m_rows = rows;
        m_text = text;
        endResetModel();
    }

private:
    int m_rows = 0;
    std::function<QString(int)> m_text;
};

TXUpdateVersionsTableView::TXUpdateVersionsTableView(QWidget *parent)
    : QTableView(parent)
    , m_model(new Model(this)) {
    setModel(m_model);
    horizontalHeader()->hide();
    horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    setShowGrid(false);
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabKeyNavigation(false);
    setItemDelegate(new NoText(this));
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { Q_EMIT selectionDidChange(selectedRow()); });
}

TXUpdateVersionsTableView::~TXUpdateVersionsTableView() = default;

void TXUpdateVersionsTableView::initViewItemOption(QStyleOptionViewItem *option) const {
    QTableView::initViewItemOption(option);
    // A row has labels and images in their own colours, so they are shown on a light tint of the selection's
    // colour, lighter still if the marks would not be visible on it.
    const QColor base = option->palette.color(QPalette::Base);
    const QColor highlight = option->palette.color(QPalette::Highlight);
    double share = 0.25;
    while (share > 0.1 && tx::contrast(tx::mixed(base, highlight, share), markColor) < 3)
        share -= 0.01;
    option->palette.setColor(QPalette::Highlight, tx::mixed(base, highlight, share));
}

void TXUpdateVersionsTableView::reloadData(int rows, const std::function<QString(int)> &textForRow,
                                           const RowFiller &fill) {
    const int position = verticalScrollBar()->value();
    m_fill = fill;
    {
        const QSignalBlocker quiet(this);
        m_model->reset(rows, textForRow);
    }
    if (rows > 0) {
        TXUpdateVersionRow sample(viewport());
        m_fill(&sample, 0);
        verticalHeader()->setDefaultSectionSize(sample.sizeHint().height());
    }
    verticalScrollBar()->setValue(position);
    makeVisibleRows();
}

int TXUpdateVersionsTableView::numberOfRows() const { return m_model->rowCount({}); }

void TXUpdateVersionsTableView::selectOnly(int row) {
    const bool selectedAlready = row == selectedRow();
    // scrollToCenter() decides the row's position.
    setAutoScroll(false);
    selectionModel()->setCurrentIndex(m_model->index(row, 0), QItemSelectionModel::ClearAndSelect);
    setAutoScroll(true);
    if (selectedAlready)
        Q_EMIT selectionDidChange(row);
}

int TXUpdateVersionsTableView::selectedRow() const {
    const QModelIndexList rows = selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

int TXUpdateVersionsTableView::rowForView(const QObject *view) const {
    for (const QObject *object = view; object && object != viewport(); object = object->parent()) {
        if (const auto *row = qobject_cast<const TXUpdateVersionRow *>(object))
            return row->property("row").toInt();
    }
    return -1;
}

TXUpdateVersionRow *TXUpdateVersionsTableView::viewForRow(int row) {
    const QModelIndex index = m_model->index(row, 0);
    auto *view = qobject_cast<TXUpdateVersionRow *>(indexWidget(index));
    if (!view && index.isValid() && m_fill) {
        view = new TXUpdateVersionRow(viewport());
        view->setProperty("row", row);
        m_fill(view, row);
        setIndexWidget(index, view);
    }
    return view;
}

void TXUpdateVersionsTableView::scrollToCenter(int row) {
    doItemsLayout(); // a list that was never shown has no layout yet
    const QRect place = visualRect(m_model->index(row, 0));
    if (place.intersects(viewport()->rect()))
        return;
    const double top = double(place.top()) + verticalScrollBar()->value();
    const double middle = top + place.height() / 2.0 - viewport()->height() / 2.0;
    verticalScrollBar()->setValue(int(std::floor(middle)));
}

void TXUpdateVersionsTableView::makeVisibleRows() {
    if (numberOfRows() == 0)
        return;
    const int first = std::max(0, rowAt(0) - 1);
    const int below = rowAt(viewport()->height() - 1);
    const int last = std::min(numberOfRows() - 1, below < 0 ? numberOfRows() - 1 : below + 1);
    // Rows that are scrolled out of view are destroyed, so that a long list takes little memory.
    for (auto *view : viewport()->findChildren<TXUpdateVersionRow *>(QString(), Qt::FindDirectChildrenOnly)) {
        const int row = view->property("row").toInt();
        if ((row < first || row > last) && !view->isAncestorOf(focusWidget()))
            setIndexWidget(m_model->index(row, 0), nullptr);
    }
    for (int row = first; row <= last; ++row)
        viewForRow(row);
}

void TXUpdateVersionsTableView::resizeEvent(QResizeEvent *event) {
    QTableView::resizeEvent(event);
    makeVisibleRows();
}

void TXUpdateVersionsTableView::scrollContentsBy(int dx, int dy) {
    QTableView::scrollContentsBy(dx, dy);
    makeVisibleRows();
}

void TXUpdateVersionsTableView::showEvent(QShowEvent *event) {
    QTableView::showEvent(event);
    makeVisibleRows();
}

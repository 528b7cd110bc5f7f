// Layout, scrolling, keyboard navigation and painting.
// SPDX-License-Identifier: Apache-2.0
#include "element_grid.h"

#include <QAccessibleWidget>
#include <QApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>

#include "element_delegate.h"
#include "models/element_model.h"
#include "painting.h"

namespace Browser {
namespace {
constexpr int Margin = 6;
constexpr int TileStep = 20;
} // namespace

namespace {
/// For screen readers, a list whose value is the current element: Qt knows none of its own for other views than its.
class AccessibleGrid : public QAccessibleWidget
{
public:
    explicit AccessibleGrid(ElementGrid* grid) : QAccessibleWidget(grid, QAccessible::List) {}

    QString text(QAccessible::Text kind) const override
    {
        if (kind != QAccessible::Value)
            return QAccessibleWidget::text(kind);
        return static_cast<ElementGrid*>(widget())->currentIndex().data(Qt::AccessibleTextRole).toString();
    }
};

QAccessibleInterface* makeAccessible(const QString& /*name*/, QObject* object)
{
    auto* const grid = qobject_cast<ElementGrid*>(object);
    return grid ? new AccessibleGrid(grid) : nullptr;
}
} // namespace

ElementGrid::ElementGrid(QWidget* parent) : QAbstractItemView(parent)
{
    QAccessible::installFactory(makeAccessible);
    setItemDelegate(new ElementDelegate(this));
    setSelectionMode(SingleSelection);
    setEditTriggers(NoEditTriggers);
    setVerticalScrollMode(ScrollPerPixel);
    setDragDropMode(DragOnly);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setTabKeyNavigation(false);
}

void ElementGrid::setMessage(const QString& message)
{
    if (message == m_message)
        return;
    m_message = message;
    viewport()->update();
}

int ElementGrid::rows() const
{
    return model() ? model()->rowCount() : 0;
}

QSize ElementGrid::tile() const
{
    if (m_tile.isEmpty()) {
        QStyleOptionViewItem option;
        option.initFrom(this);
        option.font = font();
        option.fontMetrics = fontMetrics();
        m_tile = itemDelegate()->sizeHint(option, {}).expandedTo(QSize(16, 16));
    }
    return m_tile;
}

int ElementGrid::columns() const
{
    return qMax(1, (viewport()->width() - 2 * Margin) / tile().width());
}

// The columns are centred.
int ElementGrid::margin() const
{
    return qMax(Margin, (viewport()->width() - columns() * tile().width()) / 2);
}

QRect ElementGrid::visualRect(const QModelIndex& index) const
{
    if (!index.isValid())
        return {};
    const int column = index.row() % columns();
    const int line = index.row() / columns();
    return {QPoint(margin() + column * tile().width(), Margin + line * tile().height() - verticalOffset()), tile()};
}

void ElementGrid::scrollTo(const QModelIndex& index, ScrollHint hint)
{
    const QRect rect = visualRect(index);
    if (!rect.isValid())
        return;
    const int height = viewport()->height();
    int by = 0;
    if (hint == PositionAtCenter)
        by = rect.center().y() - height / 2;
    else if (hint == PositionAtTop || rect.top() < 0)
        by = rect.top() - Margin;
    else if (hint == PositionAtBottom || rect.bottom() >= height)
        by = rect.bottom() - height + Margin;
    verticalScrollBar()->setValue(verticalScrollBar()->value() + by);
}

QModelIndex ElementGrid::indexAt(const QPoint& point) const
{
    const int x = point.x() - margin();
    const int y = point.y() + verticalOffset() - Margin;
    if (x < 0 || y < 0 || x >= columns() * tile().width())
        return {};
    const int row = y / tile().height() * columns() + x / tile().width();
    return row < rows() ? model()->index(row, 0) : QModelIndex();
}

std::pair<int, int> ElementGrid::visibleRows() const
{
    const int first = qMax(0, verticalOffset() - Margin) / tile().height() * columns();
    const int lastLine = qMax(0, verticalOffset() + viewport()->height() - Margin - 1) / tile().height();
    return {first, qMin(rows(), (lastLine + 1) * columns()) - 1};
}

void ElementGrid::emitVisibleRows()
{
    const std::pair<int, int> visible = visibleRows();
    if (visible == m_reportedRows)
        return;
    m_reportedRows = visible;
    Q_EMIT visibleRowsChanged(visible.first, visible.second);
}

void ElementGrid::reset()
{
    QAbstractItemView::reset();
    m_reportedRows = {0, -1};
    verticalScrollBar()->setValue(0);
    updateGeometries();
    viewport()->update();
}

void ElementGrid::dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight, const QVector<int>& /*roles*/)
{
    const std::pair<int, int> visible = visibleRows();
    if (bottomRight.row() >= visible.first && topLeft.row() <= visible.second)
        viewport()->update();
}

void ElementGrid::keyboardSearch(const QString& search)
{
    if (!m_sinceKey.isValid() || m_sinceKey.hasExpired(QApplication::keyboardInputInterval()))
        m_typed.clear();
    m_sinceKey.start();
    m_typed += search;
    // A longer text may still be found in the same element.
    const int first = m_typed.size() > search.size() ? qMax(0, currentIndex().row()) : currentIndex().row() + 1;
    for (int i = 0; i < rows(); ++i) {
        const QModelIndex index = model()->index((first + i) % rows(), 0);
        if (index.data(ElementModel::NameRole).toString().startsWith(m_typed, Qt::CaseInsensitive) ||
            index.data(ElementModel::NumberRole).toString().startsWith(m_typed)) {
            setCurrentIndex(index);
            return;
        }
    }
}

QModelIndex ElementGrid::moveCursor(CursorAction action, Qt::KeyboardModifiers /*modifiers*/)
{
    if (rows() == 0)
        return {};
    const int page = qMax(1, viewport()->height() / tile().height()) * columns();
    int row = currentIndex().row();
    if (row < 0)
        return model()->index(visibleRows().first, 0);
    switch (action) {
        case MoveLeft:
        case MovePrevious:
            row -= 1;
            break;
        case MoveRight:
        case MoveNext:
            row += 1;
            break;
        case MoveUp:
            row -= row >= columns() ? columns() : 0;
            break;
        case MoveDown:
            // qBound() below limits the row if the last line is incomplete.
            row += row / columns() < (rows() - 1) / columns() ? columns() : 0;
            break;
        case MovePageUp:
            row = row >= page ? row - page : row % columns();
            break;
        case MovePageDown:
            row += page;
            break;
        case MoveHome:
            row = 0;
            break;
        case MoveEnd:
            row = rows() - 1;
            break;
    }
    return model()->index(qBound(0, row, rows() - 1), 0);
}

int ElementGrid::verticalOffset() const
{
    return verticalScrollBar()->value();
}

bool ElementGrid::isIndexHidden(const QModelIndex& /*index*/) const
{
    return false;
}

void ElementGrid::currentChanged(const QModelIndex& current, const QModelIndex& previous)
{
    QAbstractItemView::currentChanged(current, previous);
    QAccessibleValueChangeEvent event(this, current.data(Qt::AccessibleTextRole));
    QAccessible::updateAccessibility(&event);
}

void ElementGrid::setSelection(const QRect& rect, QItemSelectionModel::SelectionFlags flags)
{
    const QModelIndex index = indexAt(rect.center());
    selectionModel()->select(index.isValid() ? QItemSelection(index, index) : QItemSelection(), flags);
}

QRegion ElementGrid::visualRegionForSelection(const QItemSelection& selection) const
{
    QRegion region;
    for (const QItemSelectionRange& range : selection) {
        const std::pair<int, int> visible = visibleRows();
        for (int row = qMax(range.top(), visible.first); row <= qMin(range.bottom(), visible.second); ++row)
            region += visualRect(model()->index(row, 0));
    }
    return region;
}

void ElementGrid::paintEvent(QPaintEvent* event)
{
    QPainter painter(viewport());
    if (rows() == 0) {
        painter.setPen(dimmed(palette()));
        painter.drawText(viewport()->rect().adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap, m_message);
        return;
    }
    QStyleOptionViewItem option;
    option.initFrom(this);
    option.font = font();
    option.fontMetrics = fontMetrics();
    option.widget = this;
    const QStyle::State state = option.state & ~QStyle::State_HasFocus;
    const std::pair<int, int> visible = visibleRows();
    for (int row = visible.first; row <= visible.second; ++row) {
        const QModelIndex index = model()->index(row, 0);
        option.rect = visualRect(index);
        if (!event->region().intersects(option.rect))
            continue;
        option.state = state;
        option.state.setFlag(QStyle::State_Selected, selectionModel()->isSelected(index));
        option.state.setFlag(QStyle::State_HasFocus, hasFocus() && index == currentIndex());
        itemDelegate()->paint(&painter, option, index);
    }
}

// Keeps the first visible tile in view when the number of columns changes.
void ElementGrid::layOutAgain()
{
    const int first = m_reportedRows.first;
    updateGeometries();
    if (first > 0)
        verticalScrollBar()->setValue(first / columns() * tile().height());
}

void ElementGrid::resizeEvent(QResizeEvent* event)
{
    QAbstractItemView::resizeEvent(event);
    layOutAgain();
}

void ElementGrid::setTileWidth(int width)
{
    width = qBound(MinTileWidth, width, MaxTileWidth);
    if (width == m_tileWidth)
        return;
    m_tileWidth = width;
    static_cast<ElementDelegate*>(itemDelegate())->setPictureWidth(width);
    m_tile = QSize();
    layOutAgain();
    viewport()->update();
    Q_EMIT tileWidthChanged(width);
}

void ElementGrid::wheelEvent(QWheelEvent* event)
{
    if (!event->modifiers().testFlag(Qt::ControlModifier)) {
        QAbstractItemView::wheelEvent(event);
        return;
    }
    constexpr int Notch = 120;
    m_wheel += event->angleDelta().y();
    setTileWidth(m_tileWidth + m_wheel / Notch * TileStep);
    m_wheel %= Notch;
    event->accept();
}

void ElementGrid::changeEvent(QEvent* event)
{
    QAbstractItemView::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        m_tile = QSize();
        updateGeometries();
    }
}

void ElementGrid::scrollContentsBy(int dx, int dy)
{
    viewport()->scroll(dx, dy);
    emitVisibleRows();
}

void ElementGrid::updateGeometries()
{
    const int lines = (rows() + columns() - 1) / columns();
    verticalScrollBar()->setSingleStep(tile().height() / 4);
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, qMax(0, lines * tile().height() + 2 * Margin - viewport()->height()));
    QAbstractItemView::updateGeometries();
    emitVisibleRows();
}

void ElementGrid::rowsInserted(const QModelIndex& parent, int start, int end)
{
    QAbstractItemView::rowsInserted(parent, start, end);
    scheduleDelayedItemsLayout();
}

void ElementGrid::rowsAboutToBeRemoved(const QModelIndex& parent, int start, int end)
{
    QAbstractItemView::rowsAboutToBeRemoved(parent, start, end);
    scheduleDelayedItemsLayout();
}
} // namespace Browser

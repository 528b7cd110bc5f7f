// ElementGrid: a view that shows the elements as a grid of tiles of one size.
//
// A tile's position is computed from its row, so that the layout does not depend on the number of elements: the icon
// mode of QListView lays out every item.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractItemView>
#include <QElapsedTimer>

namespace Browser {
class ElementGrid : public QAbstractItemView
{
    Q_OBJECT

public:
    explicit ElementGrid(QWidget* parent = nullptr);

    static constexpr int MinTileWidth = 80;
    static constexpr int DefaultTileWidth = 160;
    static constexpr int MaxTileWidth = 320;
    /// Sets the width of the pictures; also by Ctrl and the mouse wheel.
    void setTileWidth(int width);
    int tileWidth() const { return m_tileWidth; }

    /// Sets the text that is shown while there are no tiles.
    void setMessage(const QString& message);

    QRect visualRect(const QModelIndex& index) const override;
    void scrollTo(const QModelIndex& index, ScrollHint hint = EnsureVisible) override;
    QModelIndex indexAt(const QPoint& point) const override;
    void reset() override;
    void dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                     const QVector<int>& roles = QVector<int>()) override;
    /// Goes to the next element whose name or number begins with what is typed.
    void keyboardSearch(const QString& search) override;

Q_SIGNALS:
    /// The visible rows have changed; @p last < @p first if none is visible.
    void visibleRowsChanged(int first, int last);
    void tileWidthChanged(int width);

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    int horizontalOffset() const override { return 0; }
    int verticalOffset() const override;
    bool isIndexHidden(const QModelIndex& index) const override;
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;
    void setSelection(const QRect& rect, QItemSelectionModel::SelectionFlags flags) override;
    QRegion visualRegionForSelection(const QItemSelection& selection) const override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void updateGeometries() override;
    void rowsInserted(const QModelIndex& parent, int start, int end) override;
    void rowsAboutToBeRemoved(const QModelIndex& parent, int start, int end) override;

private:
    int rows() const;
    QSize tile() const;
    int columns() const;
    int margin() const;
    std::pair<int, int> visibleRows() const;
    void emitVisibleRows();
    void layOutAgain();

    QString m_message;
    int m_tileWidth = DefaultTileWidth;
    QString m_typed;
    QElapsedTimer m_sinceKey; ///< since the last of #m_typed
    int m_wheel = 0;          ///< turn of the wheel that has not made a step yet
    std::pair<int, int> m_reportedRows{0, -1};
    mutable QSize m_tile; ///< cached size hint of the delegate; empty if unknown
};
} // namespace Browser

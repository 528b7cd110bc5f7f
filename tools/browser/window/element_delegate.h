// ElementDelegate: paints an element's tile: picture, number, name and details.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStyledItemDelegate>

namespace Browser {
class ElementDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    /// @param width of the pictures, whose height is three quarters of it
    void setPictureWidth(int width) { m_pictureWidth = width; }

    /// The same size for every tile.
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    void paintPicture(QPainter* painter, const QStyleOptionViewItem& option, const QRect& frame,
                      const QModelIndex& index) const;
    QSize pictureSize() const { return {m_pictureWidth, m_pictureWidth * 3 / 4}; }

    int m_pictureWidth = 160;
};
} // namespace Browser

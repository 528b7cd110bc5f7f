// LibraryDelegate: a tree's row as usual, with a mark on what is new and what went wrong set apart.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStyledItemDelegate>

namespace Browser {
class LibraryDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};
} // namespace Browser

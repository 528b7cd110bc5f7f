// Fonts, row height and the mark.
// SPDX-License-Identifier: Apache-2.0
#include "library_delegate.h"

#include "models/library_model.h"
#include "painting.h"

namespace Browser {
void LibraryDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (!index.data(LibraryModel::ProblemRole).toString().isEmpty())
        option->font.setItalic(true);
    else if (index.data(LibraryModel::TypeRole).isValid() && !index.parent().isValid())
        option->font.setBold(true);
    if (index.column() == 1)
        option->palette.setColor(QPalette::Text, dimmed(option->palette));
}

QSize LibraryDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    // The mark stands before the count.
    return QStyledItemDelegate::sizeHint(option, index) + QSize(index.column() == 1 ? 14 : 0, 6);
}

void LibraryDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyledItemDelegate::paint(painter, option, index);
    if (index.column() != 1 || !index.data(LibraryModel::IsNewRole).toBool())
        return;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(option.state.testFlag(QStyle::State_Selected) ? option.palette.highlightedText()
                                                                    : option.palette.highlight());
    painter->drawEllipse(QRectF(option.rect.left() + 4, option.rect.center().y() - 3, 8, 8));
    painter->restore();
}
} // namespace Browser

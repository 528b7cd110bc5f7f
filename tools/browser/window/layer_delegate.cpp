// Painting of the picture and of the progress bar.
// SPDX-License-Identifier: Apache-2.0
#include "layer_delegate.h"

#include <QPainter>

#include "models/layer_model.h"
#include "painting.h"

namespace Browser {
void LayerDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.data(LayerModel::IsOldRole).toBool())
        option->palette.setColor(QPalette::Text, dimmed(option->palette, 0.5));
}

void LayerDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (index.column() != LayerModel::Picture && index.column() != LayerModel::Position) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QPalette& palette = option.palette;
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    painter->save();
    if (isSelected)
        painter->fillRect(option.rect, palette.highlight());
    if (index.column() == LayerModel::Picture) {
        const QRect frame = option.rect.adjusted(2, 2, -2, -2);
        painter->fillRect(frame, pictureBackground(palette));
        const QImage image = index.data(LayerModel::PictureRole).value<QImage>();
        if (!image.isNull())
            drawFitted(painter, frame, image);
        painter->restore();
        return;
    }
    const QRect inner = option.rect.adjusted(6, 0, -6, 0);
    const int line = option.fontMetrics.height();
    QRect text(inner.left(), inner.center().y() - (line + 8) / 2, inner.width(), line);
    painter->setPen(palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text));
    painter->setFont(option.font);
    painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter,
                      option.fontMetrics.elidedText(index.data().toString(), Qt::ElideMiddle, text.width()));
    const QRectF track(inner.left(), text.bottom() + 3, inner.width(), 5);
    const double fraction = index.data(LayerModel::FractionRole).toDouble();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(pictureBackground(palette));
    painter->drawRoundedRect(track, 2, 2);
    painter->setBrush(isSelected ? palette.highlightedText() : palette.highlight());
    painter->drawRoundedRect(QRectF(track.topLeft(), QSizeF(track.width() * fraction, track.height())), 2, 2);
    painter->restore();
}
} // namespace Browser

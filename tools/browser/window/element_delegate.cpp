// The layout of a tile.
// SPDX-License-Identifier: Apache-2.0
#include "element_delegate.h"

#include <QPainter>

#include "models/element_model.h"
#include "painting.h"

namespace Browser {
namespace {
constexpr int Gap = 4;     ///< between tiles
constexpr int Padding = 6; ///< between a tile's edge and its content
} // namespace

QSize ElementDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& /*index*/) const
{
    return {pictureSize().width() + 2 * (Padding + Gap),
            pictureSize().height() + 2 * option.fontMetrics.height() + 3 * Padding + 2 * Gap};
}

void ElementDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QRect card = option.rect.adjusted(Gap, Gap, -Gap, -Gap);
    const QRect inner = card.adjusted(Padding, Padding, -Padding, -Padding);
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    const QPalette& palette = option.palette;
    const int line = option.fontMetrics.height();

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(Qt::NoPen);
    painter->setBrush(isSelected ? palette.highlight() : palette.alternateBase());
    painter->drawRoundedRect(card, 5, 5);
    paintFocus(painter, option, card, 4);

    const QRect frame(inner.left() + (inner.width() - pictureSize().width()) / 2, inner.top(), pictureSize().width(),
                      pictureSize().height());
    paintPicture(painter, option, frame, index);

    const QString number = QString::number(index.data(ElementModel::NumberRole).toInt());
    const int numberWidth = option.fontMetrics.horizontalAdvance(QStringLiteral("000")) + Padding;
    const QRect upper(inner.left(), frame.bottom() + 1 + Padding, inner.width(), line);
    painter->setPen(isSelected ? palette.color(QPalette::HighlightedText) : dimmed(palette));
    painter->setFont(option.font);
    painter->drawText(upper, Qt::AlignLeft | Qt::AlignVCenter, number);
    const QRect lower = upper.translated(0, line);
    painter->drawText(lower, Qt::AlignLeft | Qt::AlignVCenter,
                      option.fontMetrics.elidedText(index.data(ElementModel::DetailsRole).toString(), Qt::ElideMiddle,
                                                    lower.width()));
    painter->setPen(palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text));
    const QRect name = upper.adjusted(numberWidth, 0, 0, 0);
    painter->drawText(
        name, Qt::AlignLeft | Qt::AlignVCenter,
        option.fontMetrics.elidedText(index.data(ElementModel::NameRole).toString(), Qt::ElideMiddle, name.width()));
    if (index.data(ElementModel::IsNewRole).toBool())
        paintBadge(painter, option, frame.topRight() + QPoint(-3, 4), tr("new"));
    painter->restore();
}

void ElementDelegate::paintPicture(QPainter* painter, const QStyleOptionViewItem& option, const QRect& frame,
                                   const QModelIndex& index) const
{
    painter->fillRect(frame, pictureBackground(option.palette));
    const QImage image = index.data(ElementModel::PictureRole).value<QImage>();
    const auto state = static_cast<PictureStore::State>(index.data(ElementModel::PictureStateRole).toInt());
    if (!image.isNull())
        drawFitted(painter, frame, image);
    QString text;
    if (state == PictureStore::State::Failed)
        text = index.data(ElementModel::ProblemRole).toString();
    else if (state == PictureStore::State::Cancelled)
        text = tr("not loaded");
    else if (image.isNull())
        text = tr("loading…");
    // An outdated picture is more useful than a text about its missing update.
    if (text.isEmpty() || !image.isNull())
        return;
    painter->setPen(dimmed(option.palette));
    painter->setFont(option.font);
    painter->drawText(frame.adjusted(6, 6, -6, -6), Qt::AlignCenter | Qt::TextWordWrap, text);
}
} // namespace Browser

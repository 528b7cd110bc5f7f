// The state light, which differs by state in shape as well as in colour, and the text.
// SPDX-License-Identifier: Apache-2.0
#include "server_delegate.h"

#include <QPainter>

#include "models/server_model.h"
#include "painting.h"

namespace Browser {
namespace {
constexpr int Margin = 6;
constexpr int LightSize = 12;

// Signal colours, readable on light and dark backgrounds.
const QColor Green(46, 160, 67);
const QColor Amber(219, 142, 0);

void paintLight(QPainter* painter, const QRectF& place, ServerModel::State state, const QColor& plain)
{
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setBrush(Qt::NoBrush);
    switch (state) {
        case ServerModel::State::Heard:
            painter->setPen(QPen(Amber, 2));
            painter->drawEllipse(place);
            break;
        case ServerModel::State::Failing:
        case ServerModel::State::Connecting:
            painter->setPen(QPen(Amber, 2));
            painter->drawEllipse(place);
            painter->setBrush(Amber);
            painter->drawPie(place, 90 * 16, 180 * 16);
            break;
        case ServerModel::State::Up:
            painter->setPen(QPen(Green, 2));
            painter->setBrush(Green);
            painter->drawEllipse(place);
            break;
        case ServerModel::State::Lost:
            painter->setPen(QPen(plain, 2));
            painter->drawEllipse(place);
            painter->drawLine(place.topLeft() + QPointF(2, 2), place.bottomRight() - QPointF(2, 2));
            break;
    }
}
} // namespace

QSize ServerDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& /*index*/) const
{
    return {100, 3 * option.fontMetrics.height() + 2 * Margin};
}

void ServerDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const bool isSilent = index.data(ServerModel::IsSilentRole).toBool();
    const auto state = static_cast<ServerModel::State>(index.data(ServerModel::StateRole).toInt());
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    const bool isLost = state == ServerModel::State::Lost;
    const QPalette& palette = option.palette;
    // Grey, but still readable.
    const QColor grey = dimmed(palette, 0.5);
    const QColor textColour = isSelected ? palette.color(QPalette::HighlightedText)
                              : isLost   ? grey
                                         : palette.color(QPalette::Text);
    const QColor dimColour = isSelected || isLost ? textColour : dimmed(palette);

    painter->save();
    if (isSelected)
        painter->fillRect(option.rect, palette.highlight());
    paintFocus(painter, option, option.rect);
    const QRect inner = option.rect.adjusted(Margin, Margin, -Margin, -Margin);
    const int line = option.fontMetrics.height();
    if (isSelected) {
        // A background that keeps the light's colours distinct from the selection's.
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        painter->setBrush(palette.base());
        painter->drawEllipse(
            QRectF(inner.left() - 1, inner.top() + (line - LightSize) / 2.0 - 3, LightSize + 6, LightSize + 6));
    }
    paintLight(painter, QRectF(inner.left() + 2, inner.top() + (line - LightSize) / 2.0, LightSize, LightSize),
               isSilent ? ServerModel::State::Connecting : state, grey);

    QRect text = inner.adjusted(LightSize + 3 * Margin, 0, 0, 0);
    text.setHeight(line);
    QFont bold = option.font;
    bold.setBold(true);
    const QString product = index.data(ServerModel::ProductRole).toString();
    const QString stateText = index.data(ServerModel::StateTextRole).toString();
    const bool showsState = isSilent || state != ServerModel::State::Up;
    painter->setPen(textColour);
    painter->setFont(bold);
    painter->drawText(
        text, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(bold).elidedText(index.data(ServerModel::NameRole).toString(), Qt::ElideMiddle, text.width()));
    painter->setFont(option.font);
    painter->setPen(dimColour);
    text.translate(0, line);
    const QString second = !showsState ? product
                           : product.isEmpty()
                               ? stateText
                               : tr("%1 · %2", "state of a server, and its product").arg(stateText, product);
    painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter,
                      option.fontMetrics.elidedText(second, Qt::ElideMiddle, text.width()));
    text.translate(0, line);
    painter->drawText(
        text, Qt::AlignLeft | Qt::AlignVCenter,
        option.fontMetrics.elidedText(index.data(ServerModel::AddressRole).toString(), Qt::ElideMiddle, text.width()));
    painter->restore();
}
} // namespace Browser

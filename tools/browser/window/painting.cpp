// Mixed colours, scaled images and badges.
// SPDX-License-Identifier: Apache-2.0
#include "painting.h"

namespace Browser {
namespace {
QColor mixed(const QColor& one, const QColor& other, double share)
{
    const auto mix = [share](int a, int b) { return static_cast<int>(a + (b - a) * share); };
    return {mix(one.red(), other.red()), mix(one.green(), other.green()), mix(one.blue(), other.blue())};
}
} // namespace

QColor dimmed(const QPalette& palette, double share)
{
    return mixed(palette.color(QPalette::Text), palette.color(QPalette::Base), share);
}

QColor pictureBackground(const QPalette& palette)
{
    return mixed(palette.color(QPalette::Base), palette.color(QPalette::Text), 0.12);
}

void drawFitted(QPainter* painter, const QRect& frame, const QImage& image)
{
    QSize size = image.size();
    if (size.width() > frame.width() || size.height() > frame.height())
        size.scale(frame.size(), Qt::KeepAspectRatio);
    QRect place(QPoint(), size);
    place.moveCenter(frame.center());
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->drawImage(place, image);
}

void paintBadge(QPainter* painter, const QStyleOptionViewItem& option, const QPoint& corner, const QString& text)
{
    const int width = option.fontMetrics.horizontalAdvance(text) + 10;
    const QRect badge(corner.x() - width, corner.y(), width, option.fontMetrics.height() + 2);
    painter->setPen(QPen(option.palette.color(QPalette::HighlightedText), 1));
    painter->setBrush(option.palette.highlight());
    painter->drawRoundedRect(badge, 4, 4);
    painter->drawText(badge, Qt::AlignCenter, text);
}
} // namespace Browser

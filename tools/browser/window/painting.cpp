// Mixed colours, scaled images and badges.
// SPDX-License-Identifier: Apache-2.0
#include "painting.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace Browser {
namespace {
QColor mixed(const QColor& one, const QColor& other, double share)
{
    const auto mix = [share](int a, int b) { return static_cast<int>(a + (b - a) * share); };
    return {mix(one.red(), other.red()), mix(one.green(), other.green()), mix(one.blue(), other.blue())};
}

double luminance(const QColor& colour)
{
    const auto linear = [](double part) {
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) + 0.0722 * linear(colour.blueF());
}
} // namespace

double contrast(const QColor& one, const QColor& other)
{
    const double a = luminance(one);
    const double b = luminance(other);
    return (qMax(a, b) + 0.05) / (qMin(a, b) + 0.05);
}

QColor dimmed(const QPalette& palette, double share)
{
    constexpr double Step = 0.05;
    const QColor text = palette.color(QPalette::Text);
    const QColor backgrounds[] = {palette.color(QPalette::Base), palette.color(QPalette::AlternateBase),
                                  pictureBackground(palette)};
    const auto isReadable = [&](const QColor& colour) {
        return std::all_of(std::begin(backgrounds), std::end(backgrounds),
                           [&](const QColor& background) { return contrast(colour, background) >= MinContrast; });
    };
    QColor colour = mixed(text, palette.color(QPalette::Base), share);
    for (; share > 0 && !isReadable(colour); share -= Step)
        colour = mixed(text, palette.color(QPalette::Base), qMax(0.0, share - Step));
    return colour;
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

void paintFocus(QPainter* painter, const QStyleOptionViewItem& option, const QRect& item, int radius)
{
    if (!option.state.testFlag(QStyle::State_HasFocus))
        return;
    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    painter->setBrush(Qt::NoBrush);
    painter->setPen(QPen(option.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Highlight), 1));
    painter->drawRoundedRect(QRectF(item).adjusted(1.5, 1.5, -1.5, -1.5), radius, radius);
}
} // namespace Browser

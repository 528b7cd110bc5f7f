// What the delegates paint alike.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QStyleOptionViewItem>

namespace Browser {
/// For what is less important: a colour between the text's and the background's, by this @p share of the latter.
QColor dimmed(const QPalette& palette, double share = 0.35);
/// The ground behind a picture: a little off the tile's own, to either side.
QColor pictureBackground(const QPalette& palette);
/// Draws @p image as large as it fits into @p frame, in the middle, in its own proportions; never enlarged.
void drawFitted(QPainter* painter, const QRect& frame, const QImage& image);
/// Draws a small mark with @p text, its upper right corner at @p corner.
void paintBadge(QPainter* painter, const QStyleOptionViewItem& option, const QPoint& corner, const QString& text);
} // namespace Browser

// Painting functions that the delegates share.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QStyleOptionViewItem>

namespace Browser {
/// The contrast of two colours as the Web Content Accessibility Guidelines define it, 1 to 21.
double contrast(const QColor& one, const QColor& other);
/// For small text on any background.
constexpr double MinContrast = 4.5;
/// The text's colour mixed with @p share of the background's, for secondary text; with less if the contrast to a
/// background of the lists would be below MinContrast.
QColor dimmed(const QPalette& palette, double share = 0.35);
/// The colour behind a picture, slightly different from the tile's background.
QColor pictureBackground(const QPalette& palette);
/// Draws @p image centred in @p frame, scaled down if it does not fit, with its aspect ratio kept.
void drawFitted(QPainter* painter, const QRect& frame, const QImage& image);
/// Draws a small badge with @p text; its top right corner is at @p corner.
void paintBadge(QPainter* painter, const QStyleOptionViewItem& option, const QPoint& corner, const QString& text);
/// Draws a frame in @p item, with round corners of @p radius, if the view has the focus and the item is the current
/// one.
void paintFocus(QPainter* painter, const QStyleOptionViewItem& option, const QRect& item, int radius = 0);
} // namespace Browser

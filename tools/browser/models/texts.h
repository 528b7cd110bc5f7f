// Texts of servers in a form that is quick and safe to show.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractItemModel>
#include <QString>

namespace Browser {
/// How long a new row stays marked as new, and how often expired marks are removed.
constexpr int NewMarkMs = 8000;
constexpr int MarkCheckMs = 500;

/// @p text as a single line, at most @p longest characters and an ellipsis: longer texts are slow to lay out.
/// Characters that break a line or change its direction become blanks. Of many combining marks on one character, those
/// that would be painted over other lines are left out.
QString toSingleLine(const QString& text, int longest = 160);
/// @p name as the name of a file, safe on every file system; may be empty.
QString fileNameOf(const QString& name);
/// A name for the file of the picture of the element @p name, safe on every file system.
QString pictureFileName(const QString& name);
/// @p frames as hours:minutes:seconds.frames; without a frame rate, their number.
QString frameTime(quint32 frames, int frameRate);
/// The rows of @p model with its headings as text, with a tab between two columns.
QString tableText(const QAbstractItemModel& model);
/// @p lines as rich text for a tooltip.
QString toToolTip(const QStringList& lines);
} // namespace Browser

// The terminal: its size, and how many of its columns a text occupies.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>

namespace Console {
/// The size of the terminal in columns and rows. Empty if @p descriptor, by default standard output, is not a terminal
/// or has no size.
QSize terminalSize(int descriptor = 1);

/// The number of columns that @p text occupies on a terminal: 2 for each wide character, such as most East Asian ones,
/// and 0 for each combining mark.
int columnsOf(const QString& text);

/// Returns the start of @p text that fits into @p columns. If the rest is cut off, the last column shows "…".
QString clipped(const QString& text, int columns);
/// Breaks @p text at spaces into lines of at most @p columns. A word that is wider has a line of its own.
QStringList wrapped(const QString& text, int columns);
/// Returns @p text with spaces before it (if @p isRight) or after it, so that it occupies at least @p columns.
QString padded(const QString& text, int columns, bool isRight = false);
} // namespace Console

// Output: escapes control characters in text from the network, and prints and flushes whole lines.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace Console {
/// Replaces every character that could move the cursor, change the terminal's state or reorder the text by "\uXXXX":
/// control characters (C0, DEL, C1), line and paragraph separators, bidirectional and other invisible formatting
/// characters, and lone surrogates. Thread-safe.
QString escapeControls(const QString& text, bool keepLineFeeds = false);

/// Prints @p line and a line feed on standard output and flushes it, so that the reader of a pipe receives it
/// immediately. The caller must escape text from the network with escapeControls().
void printLine(const QString& line);
/// Calls printLine() for each of @p lines.
void printLines(const QStringList& lines);

/// Prints @p object as one line of JSON on standard output. The characters that escapeControls() replaces are written
/// as JSON escape sequences.
void printJson(const QJsonObject& object);

/// Prints "citp-console: ", @p line and a line feed on standard error. Thread-safe.
void warn(const QString& line);

/// A duration in seconds with the unit, e.g. "2.5 s".
QString secondsText(qint64 milliseconds);
/// Local time of day with milliseconds, for text output.
QString timeOfDay();
/// Local date and time with milliseconds and the UTC offset in ISO 8601 format, for JSON output.
QString isoTime();

/// Prints the log lines of the library and of Qt on standard error from now on, each with time and category and with
/// control characters escaped.
void installLogHandler();
} // namespace Console

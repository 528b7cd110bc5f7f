// What the program prints: text from the network made harmless, and whole lines that come out at once.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>

namespace Console {
/// @p text with everything replaced that could move the cursor, change the terminal's state, or reorder what is read:
/// control characters (C0, DEL, C1), line and paragraph separators, bidirectional and other invisible formatting
/// characters, and lone surrogates appear as "\uXXXX". Any thread.
QString harmless(const QString& text);

/// Prints @p line and a line feed on standard output and flushes it, so that a reader of a pipe has it at once. The
/// caller has made what came from the network harmless().
void printLine(const QString& line);

/// Prints @p object as one line of JSON on standard output. Harmless as it is: what harmless() would escape is escaped
/// in JSON's own way.
void printJson(const QJsonObject& object);

/// Prints "citp-console: ", @p line and a line feed on standard error. Any thread.
void complain(const QString& line);

/// Local time of day with milliseconds, for people.
QString timeOfDay();
/// Local date and time with milliseconds and the offset from UTC, as ISO 8601 writes it, for programs.
QString isoTime();

/// From here on log lines of the library and of Qt go to standard error, one time, category and text a line, with the
/// text made harmless.
void printLogOnStandardError();
} // namespace Console

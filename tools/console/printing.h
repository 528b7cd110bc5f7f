// Output: escapes control characters in text from the network, and writes whole lines to standard output and standard
// error without ever blocking the program's end.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace Console {
/// Exception: standard output cannot be written.
struct OutputFailure
{
    bool isClosed; ///< the reader of the pipe has closed it, as in `| head -1`
};

/// Replaces every character that could move the cursor, change the terminal's state or reorder the text by "\uXXXX":
/// control characters (C0, DEL, C1), line and paragraph separators, bidirectional and other invisible formatting
/// characters, and lone surrogates. Thread-safe.
QString escapeControls(const QString& text);

/// Writes @p text to standard output at once, so that the reader of a pipe receives it immediately. Waits as long as
/// the reader does not read. The caller must escape text from the network with escapeControls().
/// @throws OutputFailure, or Interrupted if a signal arrives or the time limit passes while it waits
void print(const QString& text);
/// Calls print() for @p line and a line feed.
void printLine(const QString& line);
/// Calls printLine() for each of @p lines.
void printLines(const QStringList& lines);

/// Prints @p object as one line of JSON on standard output. The characters that escapeControls() replaces are written
/// as JSON escape sequences.
void printJson(const QJsonObject& object);

/// @throws OutputFailure if standard output is a pipe whose reader has closed it
void checkOutput();

/// Writes @p text to standard error. If nobody reads standard error, the text is left out after a short wait, and later
/// texts immediately; once it is read again, the number of texts left out is printed. Thread-safe.
void printError(const QString& text);
/// Calls printError() for "citp-console: ", @p line and a line feed.
void warn(const QString& line);

/// Says on standard error what is waited for, until the end of this object, if standard error is a terminal. Other
/// output goes above that line. Do not nest.
class WaitLine
{
public:
    explicit WaitLine(const QString& text) { show(text); }
    /// @param text with control characters escaped; cut to the width of the terminal
    void show(const QString& text);
    ~WaitLine();
    WaitLine(const WaitLine&) = delete;
    WaitLine& operator=(const WaitLine&) = delete;
};

/// A duration in seconds with the unit, e.g. "2.5 s".
QString secondsText(qint64 milliseconds);
/// Local time of day with milliseconds, for text output.
QString timeOfDay();
/// UTC date and time with milliseconds in ISO 8601 format, for JSON output. By default, the current time.
QString isoTime(qint64 msSince1970 = QDateTime::currentMSecsSinceEpoch());
} // namespace Console

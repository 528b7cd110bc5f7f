// Log lines of the library and of Qt on standard error. Equal lines are counted instead of repeated.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

namespace Console {
/// Counts equal lines. A line is passed on at most once a second; those left out meanwhile are passed on as a count.
/// Memory is bounded: beyond 256 different lines a second, lines are passed on uncounted.
class RepeatFilter
{
public:
    /// Adds @p line at the time @p nowMs, which must not decrease.
    /// @return the lines to print now
    QStringList add(const QString& line, qint64 nowMs);
    /// Ends the counts that have run for a second, or all counts if @p isEnd.
    /// @return the lines to print now
    QStringList flush(qint64 nowMs, bool isEnd = false);

private:
    struct Count
    {
        qint64 sinceMs;
        qint64 repeated;
    };

    QHash<QString, Count> m_counts;
    qint64 m_dueMs = 0; ///< no count ends before this time
};

/// Prints the log lines of the library on standard error from now on, each as one line with time and category and with
/// control characters escaped. Lines of Qt itself are printed if the log mask of "Qt" enables them; it is 0 by default.
void installLogHandler();
/// Prints the counts of repeated lines that are due. Call it regularly, because counts are otherwise printed only with
/// the next line.
void flushLog();
/// Prints the counts of all repeated lines. Later lines are left out, so that the reason for ending stays the last one.
void endLog();
} // namespace Console

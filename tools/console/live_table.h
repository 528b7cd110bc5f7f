// LiveTable: a table that is redrawn in place on a terminal.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

namespace Console {
/// Draws lines on standard output. On a terminal they replace the previous ones, otherwise they are appended.
class LiveTable
{
public:
    LiveTable();

    bool isTerminal() const { return m_isTerminal; }
    /// @param lines with control characters escaped; on a terminal they are fitted to its window, and the last
    /// line says how many are left out
    void draw(const QStringList& lines);

private:
    QStringList fitted(const QStringList& lines) const;

    bool m_isTerminal;
    int m_lines = 0; ///< number of lines to draw over
};
} // namespace Console

// Clipping and redrawing of live tables.
// SPDX-License-Identifier: Apache-2.0
#include "live_table.h"

#include <unistd.h>

#include "printing.h"
#include "terminal.h"

namespace Console {
LiveTable::LiveTable() : m_isTerminal(isatty(STDOUT_FILENO) != 0) {}

void LiveTable::draw(const QStringList& lines)
{
    const QStringList shown = fitted(lines);
    if (m_isTerminal && m_lines > 0)
        print(QString("\x1b[%1A\x1b[J").arg(m_lines));
    printLines(shown);
    m_lines = static_cast<int>(shown.size());
}

// Lines that wrap or scroll cannot be drawn over. The last one says how many do not fit.
QStringList LiveTable::fitted(const QStringList& lines) const
{
    const QSize terminal = m_isTerminal ? terminalSize() : QSize();
    const int rows = terminal.height() - 1;
    if (rows < 1 || terminal.width() < 1)
        return lines;
    const auto leftOut = static_cast<int>(lines.size()) - rows;
    QStringList out = lines.mid(0, leftOut > 0 ? rows - 1 : rows);
    if (leftOut > 0)
        out << QString("(%1 more lines: enlarge the window)").arg(leftOut + 1);
    for (QString& line : out)
        line = clipped(line, terminal.width());
    return out;
}
} // namespace Console

// Clipping and redrawing of live tables.
// SPDX-License-Identifier: Apache-2.0
#include "live_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "printing.h"

namespace Console {
LiveTable::LiveTable() : m_isTerminal(isatty(STDOUT_FILENO) != 0) {}

void LiveTable::draw(const QStringList& lines)
{
    const QStringList shown = clipped(lines);
    if (m_isTerminal && m_lines > 0)
        print(QString("\x1b[%1A\x1b[J").arg(m_lines));
    printLines(shown);
    m_lines = static_cast<int>(shown.size());
}

// Lines that wrap or scroll cannot be drawn over.
QStringList LiveTable::clipped(const QStringList& lines) const
{
    winsize window{};
    if (!m_isTerminal || ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_row < 2)
        return lines;
    QStringList out;
    for (const QString& line : lines.mid(0, window.ws_row - 1))
        out << line.left(window.ws_col);
    return out;
}
} // namespace Console

// Layout of tables.
// SPDX-License-Identifier: Apache-2.0
#include "table.h"

#include "printing.h"

namespace Console {
Table::Table(const QStringList& titles)
{
    QStringList row;
    for (const QString& title : titles) {
        m_isRightAligned.push_back(title.startsWith(' '));
        row << title.trimmed();
    }
    m_rows.push_back(row);
}

void Table::add(const QStringList& cells)
{
    QStringList row;
    for (const QString& cell : cells)
        row << escapeControls(cell);
    m_rows.push_back(row);
}

QStringList Table::lines() const
{
    std::vector<int> widths(m_isRightAligned.size());
    for (const QStringList& row : m_rows) {
        for (int column = 0; column < row.size(); ++column) {
            int& width = widths[static_cast<std::size_t>(column)];
            width = qMax(width, static_cast<int>(row.at(column).size()));
        }
    }
    QStringList lines;
    for (const QStringList& row : m_rows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            const auto index = static_cast<std::size_t>(column);
            const bool isLast = column == row.size() - 1;
            const QString& cell = row.at(column);
            line += m_isRightAligned[index] ? cell.rightJustified(widths[index])
                                            : cell.leftJustified(isLast ? 0 : widths[index]);
            line += isLast ? "" : "  ";
        }
        lines << line;
    }
    return lines;
}
} // namespace Console

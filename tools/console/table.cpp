// Layout of tables.
// SPDX-License-Identifier: Apache-2.0
#include "table.h"

#include "printing.h"
#include "terminal.h"

namespace Console {
namespace {
constexpr int MaxWidthWithoutTerminal = 256;
constexpr int MinLastWidth = 12;
} // namespace

Table::Table(const QStringList& titles) : m_maxWidth(terminalSize().width())
{
    if (m_maxWidth <= 0)
        m_maxWidth = MaxWidthWithoutTerminal;
    QStringList row;
    for (const QString& title : titles) {
        m_isRightAligned.push_back(title.startsWith(' '));
        row << title.trimmed();
    }
    m_widths.resize(m_isRightAligned.size());
    add(row);
}

void Table::add(const QStringList& cells)
{
    QStringList row;
    for (int column = 0; column < cells.size(); ++column) {
        row << clipped(escapeControls(cells.at(column)), m_maxWidth);
        int& width = m_widths[static_cast<std::size_t>(column)];
        width = qMax(width, columnsOf(row.constLast()));
    }
    m_rows.push_back(row);
}

QStringList Table::lines(const QStringList& dispensable) const
{
    std::vector<bool> isLeftOut(m_widths.size());
    int width = qMin(m_widths.back(), MinLastWidth) - m_widths.back() - 2;
    for (const int column : m_widths)
        width += column + 2;
    for (const QString& title : dispensable) {
        if (width <= m_maxWidth)
            break;
        const auto column = static_cast<std::size_t>(m_rows.front().indexOf(title));
        isLeftOut[column] = true;
        width -= m_widths[column] + 2;
    }
    QStringList lines;
    for (const QStringList& row : m_rows)
        lines << line(row, isLeftOut);
    return lines;
}

void Table::print() const
{
    const std::vector<bool> isLeftOut(m_widths.size());
    for (const QStringList& row : m_rows)
        printLine(line(row, isLeftOut));
}

QString Table::line(const QStringList& row, const std::vector<bool>& isLeftOut) const
{
    QString line;
    for (int column = 0; column < row.size(); ++column) {
        const auto index = static_cast<std::size_t>(column);
        if (isLeftOut[index])
            continue;
        const bool isLast = column == row.size() - 1;
        const bool isRight = m_isRightAligned[index];
        line += padded(row.at(column), isLast && !isRight ? 0 : m_widths[index], isRight);
        line += isLast ? "" : "  ";
    }
    return line;
}
} // namespace Console

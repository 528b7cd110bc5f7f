// LiveTable: lines that stay in place on a terminal.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

namespace Console {
/// Draws on standard output over what it drew before, so that a table stands still and its numbers move. Where that is
/// no terminal, one block follows the other.
class LiveTable
{
public:
    LiveTable();

    bool isTerminal() const { return m_isTerminal; }
    /// @param lines harmless to a terminal; there, what does not fit into its window is left out
    void draw(const QStringList& lines);

private:
    QStringList clipped(const QStringList& lines) const;

    bool m_isTerminal;
    int m_lines = 0; ///< drawn last, to be drawn over
};
} // namespace Console

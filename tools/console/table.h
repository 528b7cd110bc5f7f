// Table: formats rows of text in aligned columns.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>
#include <vector>

namespace Console {
/// Collects rows and aligns their columns. The last column is not padded, so it suits long names. Control characters in
/// cells are escaped. No cell is wider than the terminal, or than 256 columns without one.
class Table
{
public:
    /// @param titles one for each column; a leading space right-aligns the column
    explicit Table(const QStringList& titles);

    /// @param cells one for each column
    void add(const QStringList& cells);
    /// The lines of the table, starting with the titles.
    /// @param dispensable titles of columns that are left out on a terminal that is too narrow, in this order, until
    /// the others and the start of the last one fit
    QStringList lines(const QStringList& dispensable = {}) const;
    /// Prints the lines, without keeping all of them.
    void print() const;

private:
    QString line(const QStringList& row, const std::vector<bool>& isLeftOut) const;

    int m_maxWidth;
    std::vector<int> m_widths;       ///< columns of the terminal for each column of the table
    std::vector<QStringList> m_rows; ///< the titles first
    std::vector<bool> m_isRightAligned;
};
} // namespace Console

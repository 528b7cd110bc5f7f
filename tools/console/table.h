// Table: rows of text in columns as wide as they need to be.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>
#include <vector>

namespace Console {
/// Collects rows and lays them out. The last column is not padded, so long names go there. Cells are made harmless.
class Table
{
public:
    /// @param titles one for each column; one that begins with a blank makes its column flush right
    explicit Table(const QStringList& titles);

    /// @param cells one for each column
    void add(const QStringList& cells);
    /// The titles and the rows, one line each.
    QStringList lines() const;

private:
    std::vector<QStringList> m_rows; ///< the titles first
    std::vector<bool> m_isRight;
};
} // namespace Console

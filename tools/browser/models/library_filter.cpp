// Case-insensitive matching of names.
// SPDX-License-Identifier: Apache-2.0
#include "library_filter.h"

namespace Browser {
LibraryFilter::LibraryFilter()
{
    setRecursiveFilteringEnabled(true);
}

void LibraryFilter::setText(const QString& text)
{
    m_text = text.trimmed();
    invalidateFilter();
}

bool LibraryFilter::hasHits() const
{
    bool hasRows = m_text.isEmpty();
    for (int type = 0; type < rowCount(); ++type)
        hasRows = hasRows || rowCount(index(type, 0)) > 0;
    return hasRows;
}

bool LibraryFilter::filterAcceptsRow(int row, const QModelIndex& parent) const
{
    if (m_text.isEmpty() || !parent.isValid())
        return true;
    return sourceModel()->index(row, 0, parent).data().toString().contains(m_text, Qt::CaseInsensitive);
}
} // namespace Browser

// LibraryFilter: the library tree reduced to the libraries whose name contains a text, and their parents.
//
// It searches the loaded libraries only; the rows of the types always remain. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSortFilterProxyModel>

namespace Browser {
class LibraryFilter : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    LibraryFilter();

    void setText(const QString& text);
    /// Whether a library is shown, or all are.
    bool hasHits() const;

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    QString m_text;
};
} // namespace Browser

// LibraryFilter: the library tree cut down to what has a text in its name, with all that is above it.
//
// It looks at what is loaded; the types themselves always stay. Window's thread.
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

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    QString m_text;
};
} // namespace Browser

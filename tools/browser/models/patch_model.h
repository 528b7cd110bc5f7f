// PatchModel: the fixtures that the chosen server has reported. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractTableModel>

#include "values.h"

namespace Browser {
class PatchModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Identifier, Universe, Channel, Channels, Make, Name, ColumnCount };

    /// Adds @p fixtures; a fixture with a known identifier replaces the former one.
    void addFixtures(const Fixtures& fixtures);
    void clear();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    Fixtures m_fixtures; ///< sorted by identifier
};
} // namespace Browser

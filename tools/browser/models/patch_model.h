// PatchModel: the fixtures that the chosen server has reported. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/layers.h>

#include <QAbstractTableModel>

namespace Browser {
class PatchModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Identifier, Universe, Channel, Channels, Make, Name, ColumnCount };

    /// @param patch must outlive its use; null for none
    void setPatch(CITP::Patch* patch);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    std::vector<CITP::Fixture> m_fixtures; ///< sorted by identifier
};
} // namespace Browser

// LayerModel: the status of the chosen server's layers. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>
#include <citp_client/layers.h>

#include <QAbstractTableModel>
#include <QPointer>

#include "picture_store.h"

namespace Browser {
class LayerModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Layer, Picture, Name, Position, FrameRate, Place, Output, Flags, ColumnCount };

    enum Role {
        FractionRole = Qt::UserRole, ///< double, 0 to 1: position in the element
        PictureRole,                 ///< QImage; null if there is none yet
        IsOldRole                    ///< bool: see age()
    };

    /// @param pictures must outlive this object
    explicit LayerModel(PictureStore& pictures);

    /// @param layers of the chosen server, must outlive its use; null for none
    /// @param catalogue of the same server, which tells the versions of the pictures
    void setLayers(CITP::Layers* layers, CITP::Catalogue* catalogue);
    const CITP::Layer& layer(int row) const { return m_layers[static_cast<std::size_t>(row)]; }
    /// How old the status is, for the user; empty if it is up to date, or if there is none.
    QString age() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    /// age() has changed.
    void ageChanged();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    void show();
    void wantPictures();
    CITP::PictureId pictureOf(const CITP::Layer& layer) const;

    PictureStore& m_pictures;
    QPointer<CITP::Layers> m_source;
    QPointer<CITP::Catalogue> m_catalogue;
    std::vector<CITP::Layer> m_layers;
    std::vector<CITP::PictureId> m_wanted;
    int m_loads = 0; ///< of elements, for their versions
};
} // namespace Browser

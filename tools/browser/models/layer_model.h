// LayerModel: the status of the chosen server's layers. GUI thread.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractTableModel>

#include "picture_store.h"

namespace Browser {
class LayerModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Layer, Picture, Name, Position, FrameRate, Place, Output, Flags, ColumnCount };

    enum Role {
        FractionRole = Qt::UserRole, ///< double, 0 to 1: position in the element
        PictureRole                  ///< QImage; null if there is none yet
    };

    /// @param pictures must outlive this object
    explicit LayerModel(PictureStore& pictures);

    void setLayers(const LayerStates& layers);
    void clear() { setLayers({}); }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    static PictureId pictureOf(const LayerState& layer) { return {layer.type, layer.library, layer.element, false}; }

    PictureStore& m_pictures;
    LayerStates m_layers;
};
} // namespace Browser

// Updates the layers' rows in place, so that views keep their selection.
// SPDX-License-Identifier: Apache-2.0
#include "layer_model.h"

namespace Browser {
namespace {
QString timeText(quint32 frames, int frameRate)
{
    if (frameRate == 0)
        return QString::number(frames);
    const quint32 rate = static_cast<quint32>(frameRate);
    const quint32 seconds = frames / rate;
    return QStringLiteral("%1:%2.%3")
        .arg(seconds / 60)
        .arg(seconds % 60, 2, 10, QLatin1Char('0'))
        .arg(frames % rate, 2, 10, QLatin1Char('0'));
}
} // namespace

LayerModel::LayerModel(PictureStore& pictures) : m_pictures(pictures)
{
    const auto emitPicturesChanged = [this] {
        if (!m_layers.empty())
            Q_EMIT dataChanged(index(0, Picture), index(rowCount() - 1, Picture));
    };
    connect(&m_pictures, &PictureStore::changed, this, [this, emitPicturesChanged](const PictureId& id) {
        for (const LayerState& layer : m_layers) {
            if (pictureOf(layer) == id)
                return emitPicturesChanged();
        }
    });
    connect(&m_pictures, &PictureStore::manyChanged, this, emitPicturesChanged);
}

void LayerModel::setLayers(const LayerStates& layers)
{
    const int before = rowCount();
    const int now = static_cast<int>(layers.size());
    std::vector<PictureId> ids;
    for (const LayerState& layer : layers)
        ids.push_back(pictureOf(layer));
    if (now < before) {
        beginRemoveRows({}, now, before - 1);
        m_layers.resize(layers.size());
        endRemoveRows();
    } else if (now > before) {
        beginInsertRows({}, before, now - 1);
        m_layers.resize(layers.size());
        endInsertRows();
    }
    m_layers = layers;
    if (now > 0)
        Q_EMIT dataChanged(index(0, 0), index(now - 1, ColumnCount - 1));
    m_pictures.setWanted(PictureStore::Priority::Layers, std::move(ids));
}

int LayerModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_layers.size());
}

int LayerModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant LayerModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const LayerState& layer = m_layers[static_cast<std::size_t>(index.row())];
    if (role == FractionRole)
        return layer.length == 0 ? 0.0 : qBound(0.0, layer.position / double(layer.length), 1.0);
    if (role == PictureRole)
        return m_pictures.find(pictureOf(layer));
    if (role == Qt::TextAlignmentRole &&
        (index.column() == Layer || index.column() == FrameRate || index.column() == Output))
        return int(Qt::AlignCenter);
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    switch (index.column()) {
        case Layer:
            return layer.layer;
        case Name:
            return layer.name;
        case Position:
            return QStringLiteral("%1 / %2").arg(timeText(layer.position, layer.frameRate),
                                                 timeText(layer.length, layer.frameRate));
        case FrameRate:
            return layer.frameRate;
        case Place:
            return tr("%1 / %2").arg(layer.library).arg(layer.element);
        case Output:
            return layer.output;
        case Flags:
            return QStringLiteral("0x%1").arg(layer.flags, 8, 16, QLatin1Char('0'));
        default:
            return {};
    }
}

QVariant LayerModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole &&
        (section == Layer || section == FrameRate || section == Output))
        return int(Qt::AlignCenter);
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
        case Layer:
            return tr("Layer");
        case Picture:
            return tr("Picture");
        case Name:
            return tr("Element");
        case Position:
            return tr("Position");
        case FrameRate:
            return tr("fps");
        case Place:
            return tr("Library / no.");
        case Output:
            return tr("Output");
        case Flags:
            return tr("Flags");
        default:
            return {};
    }
}
} // namespace Browser

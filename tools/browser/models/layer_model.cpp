// Updates the layers' rows in place, so that views keep their selection, and marks what is old.
// SPDX-License-Identifier: Apache-2.0
#include "layer_model.h"

#include <QCoreApplication>

#include <algorithm>
#include <utility>

#include "texts.h"

namespace Browser {
namespace {
using CITP::Catalogue;
using CITP::PictureId;

constexpr int AgeIntervalMs = 1000;
constexpr int MaxLoads = 256;

struct LayerTexts
{
    Q_DECLARE_TR_FUNCTIONS(Browser::LayerModel)
};

// Bits without a meaning here are shown as a number.
QString flagsText(quint32 flags)
{
    const std::pair<quint32, QString> words[] = {{0x01, LayerTexts::tr("playing")}, {0x02, LayerTexts::tr("backwards")},
                                                 {0x04, LayerTexts::tr("looping")}, {0x08, LayerTexts::tr("bouncing")},
                                                 {0x10, LayerTexts::tr("random")},  {0x20, LayerTexts::tr("paused")}};
    QStringList set;
    for (const auto& [bit, word] : words) {
        if ((flags & bit) != 0)
            set << word;
        flags &= ~bit;
    }
    if (flags != 0)
        set << QStringLiteral("0x%1").arg(flags, 8, 16, QLatin1Char('0'));
    return set.isEmpty() ? LayerTexts::tr("none") : set.join(QStringLiteral(", "));
}
} // namespace

LayerModel::LayerModel(PictureStore& pictures) : m_pictures(pictures)
{
    const auto emitPicturesChanged = [this] {
        if (!m_layers.empty())
            Q_EMIT dataChanged(index(0, Picture), index(rowCount() - 1, Picture));
    };
    connect(&m_pictures, &PictureStore::changed, this, [this, emitPicturesChanged](const PictureId& id) {
        if (std::find(m_wanted.begin(), m_wanted.end(), id) != m_wanted.end())
            emitPicturesChanged();
    });
    connect(&m_pictures, &PictureStore::manyChanged, this, emitPicturesChanged);
    startTimer(AgeIntervalMs);
}

void LayerModel::setLayers(CITP::Layers* layers, Catalogue* catalogue)
{
    m_source = layers;
    m_catalogue = catalogue;
    m_loads = 0;
    if (m_source)
        connect(m_source, &CITP::Layers::changed, this, &LayerModel::show);
    if (m_catalogue)
        connect(m_catalogue, &Catalogue::idle, this, &LayerModel::wantPictures);
    show();
}

void LayerModel::show()
{
    const std::vector<CITP::Layer> layers = m_source ? m_source->layers() : std::vector<CITP::Layer>();
    const int before = rowCount();
    const int now = static_cast<int>(layers.size());
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
    wantPictures();
    Q_EMIT ageChanged();
}

// The elements are loaded first: with its version, a picture is the same one as that of the element's tile.
void LayerModel::wantPictures()
{
    std::vector<PictureId> ids;
    for (const CITP::Layer& layer : m_layers) {
        const Catalogue::State state = m_catalogue->elementsState(layer.type, layer.library);
        if (state == Catalogue::Unknown && m_loads < MaxLoads) {
            // One after the other, because a server may name other libraries with each status.
            if (m_catalogue->isIdle()) {
                ++m_loads;
                m_catalogue->loadElements(layer.type, layer.library);
            }
        } else if (state != Catalogue::Loading) {
            ids.push_back(pictureOf(layer));
        }
    }
    if (ids == m_wanted)
        return;
    m_wanted = ids;
    m_pictures.setWanted(PictureStore::Priority::Layers, std::move(ids));
}

PictureId LayerModel::pictureOf(const CITP::Layer& layer) const
{
    const std::vector<CITP::Element>& elements = m_catalogue->elements(layer.type, layer.library);
    const auto element = std::find_if(elements.begin(), elements.end(),
                                      [&layer](const CITP::Element& other) { return other.number == layer.element; });
    return {m_catalogue->server(),
            layer.type,
            layer.library,
            layer.element,
            element == elements.end() ? 0 : CITP::versionOf(*element),
            TilePixels};
}

QString LayerModel::age() const
{
    return m_source && m_source->isStale() && m_source->age() >= 0 ? tr("%1 s old").arg(m_source->age() / 1000)
                                                                   : QString();
}

void LayerModel::timerEvent(QTimerEvent* /*event*/)
{
    if (!age().isEmpty())
        Q_EMIT ageChanged();
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
    const CITP::Layer& layer = m_layers[static_cast<std::size_t>(index.row())];
    if (role == FractionRole)
        return layer.length == 0 ? 0.0 : qBound(0.0, layer.position / double(layer.length), 1.0);
    if (role == PictureRole)
        return m_pictures.find(pictureOf(layer));
    if (role == IsOldRole)
        return !age().isEmpty();
    if (role == Qt::TextAlignmentRole &&
        (index.column() == Layer || index.column() == FrameRate || index.column() == Output))
        return int(Qt::AlignCenter);
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    switch (index.column()) {
        case Layer:
            return layer.number;
        case Name:
            return role == Qt::ToolTipRole ? toToolTip({toSingleLine(layer.name, CITP::maxNameLength)})
                                           : toSingleLine(layer.name);
        case Position:
            return QStringLiteral("%1 / %2").arg(frameTime(layer.position, layer.frameRate),
                                                 frameTime(layer.length, layer.frameRate));
        case FrameRate:
            return layer.frameRate;
        case Place:
            return tr("%1 / %2").arg(layer.library).arg(layer.element);
        case Output:
            return layer.output;
        case Flags:
            return role == Qt::ToolTipRole ? QStringLiteral("0x%1").arg(layer.flags, 8, 16, QLatin1Char('0'))
                                           : flagsText(layer.flags);
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
            return tr("Position (h:min:s.frames)");
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

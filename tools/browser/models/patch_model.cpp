// Merges fixtures by identifier.
// SPDX-License-Identifier: Apache-2.0
#include "patch_model.h"

#include <algorithm>
#include <map>

namespace Browser {
void PatchModel::addFixtures(const Fixtures& fixtures)
{
    std::map<int, Fixture> all;
    for (const Fixture& fixture : m_fixtures)
        all[fixture.identifier] = fixture;
    for (const Fixture& fixture : fixtures)
        all[fixture.identifier] = fixture;
    const bool isLonger = all.size() != m_fixtures.size();
    if (isLonger)
        beginResetModel();
    m_fixtures.clear();
    for (const auto& [identifier, fixture] : all)
        m_fixtures.push_back(fixture);
    if (isLonger)
        endResetModel();
    else if (!m_fixtures.empty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}

void PatchModel::clear()
{
    beginResetModel();
    m_fixtures.clear();
    endResetModel();
}

int PatchModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_fixtures.size());
}

int PatchModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant PatchModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    if (role == Qt::TextAlignmentRole)
        return index.column() < Make ? int(Qt::AlignCenter) : int(Qt::AlignLeft | Qt::AlignVCenter);
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    const Fixture& fixture = m_fixtures[static_cast<std::size_t>(index.row())];
    switch (index.column()) {
        case Identifier:
            return fixture.identifier;
        case Universe:
            return fixture.universe;
        case Channel:
            return fixture.channel;
        case Channels:
            return fixture.channels;
        case Make:
            return fixture.make;
        case Name:
            return fixture.name;
        default:
            return {};
    }
}

QVariant PatchModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::TextAlignmentRole && (section < Make))
        return int(Qt::AlignCenter);
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
        case Identifier:
            return tr("Fixture");
        case Universe:
            return tr("Universe");
        case Channel:
            return tr("Channel");
        case Channels:
            return tr("Channels");
        case Make:
            return tr("Make");
        case Name:
            return tr("Name");
        default:
            return {};
    }
}
} // namespace Browser

// The fixtures of the client layer as a table.
// SPDX-License-Identifier: Apache-2.0
#include "patch_model.h"

#include <citp_client/values.h>

#include "texts.h"

namespace Browser {
void PatchModel::setPatch(CITP::Patch* patch)
{
    const auto show = [this, patch] {
        beginResetModel();
        m_fixtures = patch ? patch->fixtures() : std::vector<CITP::Fixture>();
        endResetModel();
    };
    if (patch)
        connect(patch, &CITP::Patch::changed, this, show);
    show();
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
    const auto textOf = [role](const QString& text) {
        return role == Qt::ToolTipRole ? toToolTip({toSingleLine(text, CITP::maxNameLength)}) : toSingleLine(text);
    };
    const CITP::Fixture& fixture = m_fixtures[static_cast<std::size_t>(index.row())];
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
            return textOf(fixture.make);
        case Name:
            return textOf(fixture.name);
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

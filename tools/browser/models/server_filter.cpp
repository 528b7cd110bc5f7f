// What counts as a problem, and the count of lost servers.
// SPDX-License-Identifier: Apache-2.0
#include "server_filter.h"

#include "server_model.h"

namespace Browser {
namespace {
ServerModel::State stateOf(const QModelIndex& server)
{
    return static_cast<ServerModel::State>(server.data(ServerModel::StateRole).toInt());
}
} // namespace

ServerFilter::ServerFilter()
{
    m_count.setSingleShot(true);
    connect(&m_count, &QTimer::timeout, this, &ServerFilter::countLost);
}

void ServerFilter::setSourceModel(QAbstractItemModel* servers)
{
    QSortFilterProxyModel::setSourceModel(servers);
    const auto count = [this] { m_count.start(); };
    connect(servers, &QAbstractItemModel::rowsInserted, this, count);
    connect(servers, &QAbstractItemModel::rowsRemoved, this, count);
    connect(servers, &QAbstractItemModel::dataChanged, this, count);
}

void ServerFilter::countLost()
{
    const int before = folded();
    m_lost = 0;
    for (int row = 0; row < sourceModel()->rowCount(); ++row)
        m_lost += stateOf(sourceModel()->index(row, 0)) == ServerModel::State::Lost ? 1 : 0;
    if (folded() == before)
        return;
    if ((folded() > 0) != (before > 0))
        invalidateFilter();
    Q_EMIT foldedChanged();
}

void ServerFilter::setOnlyProblems(bool on)
{
    m_onlyProblems = on;
    invalidateFilter();
}

void ServerFilter::setShowsLost(bool on)
{
    m_showsLost = on;
    invalidateFilter();
}

void ServerFilter::setChosen(const QString& key)
{
    m_chosen = key;
    invalidateFilter();
}

bool ServerFilter::filterAcceptsRow(int row, const QModelIndex& parent) const
{
    const QModelIndex server = sourceModel()->index(row, 0, parent);
    if (server.data(ServerModel::KeyRole).toString() == m_chosen)
        return true;
    const ServerModel::State state = stateOf(server);
    if (state == ServerModel::State::Lost)
        return folded() == 0 || m_showsLost;
    return !m_onlyProblems || state == ServerModel::State::Failing || server.data(ServerModel::IsSilentRole).toBool();
}
} // namespace Browser

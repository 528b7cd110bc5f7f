// What counts as a problem, and the count of lost servers.
// SPDX-License-Identifier: Apache-2.0
#include "server_filter.h"

#include <QGuiApplication>

#include "server_model.h"

namespace Browser {
namespace {
constexpr int ButtonIntervalMs = 50;

ServerModel::State stateOf(const QModelIndex& server)
{
    return static_cast<ServerModel::State>(server.data(ServerModel::StateRole).toInt());
}
} // namespace

ServerFilter::ServerFilter()
{
    m_count.setSingleShot(true);
    connect(&m_count, &QTimer::timeout, this, &ServerFilter::countLost);
    m_letGo.setSingleShot(true);
    connect(&m_letGo, &QTimer::timeout, this, &ServerFilter::letGo);
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
    m_chosen << key;
    invalidateFilter();
    m_letGo.start(0);
}

// Not in the middle of a click, or the row that moves to where the pointer is would be selected.
void ServerFilter::letGo()
{
    if (QGuiApplication::mouseButtons() != Qt::NoButton) {
        m_letGo.start(ButtonIntervalMs);
        return;
    }
    m_chosen = QStringList{m_chosen.last()};
    invalidateFilter();
}

bool ServerFilter::filterAcceptsRow(int row, const QModelIndex& parent) const
{
    const QModelIndex server = sourceModel()->index(row, 0, parent);
    if (m_chosen.contains(server.data(ServerModel::KeyRole).toString()))
        return true;
    const ServerModel::State state = stateOf(server);
    if (state == ServerModel::State::Lost)
        return folded() == 0 || m_showsLost;
    return !m_onlyProblems || state == ServerModel::State::Failing || server.data(ServerModel::IsSilentRole).toBool();
}
} // namespace Browser

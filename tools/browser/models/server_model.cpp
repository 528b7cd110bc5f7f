// The servers' states, their order, and the removal of old ones.
// SPDX-License-Identifier: Apache-2.0
#include "server_model.h"

#include <citp/citp_stack.h>

#include <QHostAddress>

#include <algorithm>
#include <limits>
#include <utility>

namespace Browser {
namespace {
constexpr int CleanupIntervalMs = 500;
// Servers announce themselves every second or so.
constexpr int AnnouncementTimeoutMs = 10000;
// More than any network has. Without the limit, forged announcements could fill the list.
constexpr std::size_t MaxRows = 1000;

std::pair<quint32, int> orderOf(const QString& key)
{
    return {CITP::citp_stack::getHostAddressFromSERV_ID(key).toIPv4Address(), key.section(QLatin1Char(':'), 1).toInt()};
}
} // namespace

ServerModel::ServerModel()
{
    m_clock.start();
    connect(&m_cleanupTimer, &QTimer::timeout, this, &ServerModel::removeExpired);
    m_cleanupTimer.start(CleanupIntervalMs);
}

int ServerModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QString ServerModel::textFor(State state)
{
    switch (state) {
        case State::Seen:
            return tr("seen");
        case State::Connecting:
            return tr("connecting");
        case State::Up:
            return tr("up");
        case State::Lost:
            break;
    }
    return tr("lost");
}

QVariant ServerModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Row& row = m_rows[static_cast<std::size_t>(index.row())];
    const Server& server = row.server;
    const QString name = server.name.isEmpty() ? server.key : server.name;
    const QString product = server.product.isEmpty() && server.version.isEmpty()
                                ? QString()
                                : QStringLiteral("%1 %2").arg(server.product, server.version).trimmed();
    switch (role) {
        case KeyRole:
        case AddressRole:
            return server.key;
        case StateRole:
            return static_cast<int>(row.state);
        case Qt::DisplayRole:
        case NameRole:
            return name;
        case ProductRole:
            return product;
        case Qt::AccessibleTextRole:
            return QStringList{name, textFor(row.state), product, server.key}.join(QStringLiteral(", "));
        case Qt::ToolTipRole: {
            QStringList lines{name, tr("State: %1").arg(textFor(row.state)), tr("Address: %1").arg(server.key)};
            if (!product.isEmpty())
                lines << tr("Product: %1").arg(product)
                      << tr("MSEX 1.%1, layers: %2").arg(server.msexMinor).arg(server.layers);
            return lines.join(QLatin1Char('\n')).toHtmlEscaped().replace(QLatin1Char('\n'), QStringLiteral("<br>"));
        }
        default:
            return {};
    }
}

int ServerModel::rowOf(const QString& key) const
{
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [&](const Row& row) { return row.server.key == key; });
    return found == m_rows.end() ? -1 : static_cast<int>(found - m_rows.begin());
}

Server ServerModel::server(const QString& key) const
{
    const int row = rowOf(key);
    Server none;
    none.key = key;
    return row < 0 ? none : m_rows[static_cast<std::size_t>(row)].server;
}

ServerModel::State ServerModel::stateOf(const QString& key) const
{
    const int row = rowOf(key);
    return row < 0 ? State::Lost : m_rows[static_cast<std::size_t>(row)].state;
}

int ServerModel::countUp() const
{
    return static_cast<int>(
        std::count_if(m_rows.begin(), m_rows.end(), [](const Row& row) { return row.state == State::Up; }));
}

// The server's row, inserted if it is new; -1 if there are already @p maxRows rows.
int ServerModel::rowFor(const Server& server, std::size_t maxRows)
{
    const int known = rowOf(server.key);
    if (known >= 0)
        return known;
    if (m_rows.size() >= maxRows)
        return -1;
    const auto place = std::find_if(m_rows.begin(), m_rows.end(),
                                    [&](const Row& row) { return orderOf(server.key) < orderOf(row.server.key); });
    const int row = static_cast<int>(place - m_rows.begin());
    Row added;
    added.server = server;
    added.since = m_clock.elapsed();
    beginInsertRows({}, row, row);
    m_rows.insert(place, added);
    endInsertRows();
    return row;
}

void ServerModel::setState(int row, State state)
{
    Row& changed = m_rows[static_cast<std::size_t>(row)];
    changed.state = state;
    changed.since = m_clock.elapsed();
    Q_EMIT dataChanged(index(row), index(row));
}

void ServerModel::setAnnounced(const QString& key, const QString& name)
{
    Server server;
    server.key = key;
    server.name = name;
    const bool isNew = rowOf(key) < 0;
    const int row = rowFor(server, MaxRows);
    if (row < 0)
        return;
    Row& announced = m_rows[static_cast<std::size_t>(row)];
    announced.lastAnnounced = m_clock.elapsed();
    // A lost server keeps its row and its values while the stack connects to it again.
    if (announced.state == State::Lost || (announced.state == State::Seen && !isNew))
        setState(row, State::Connecting);
}

void ServerModel::setUp(const Server& server)
{
    // No limit here: a connected server is real, and the stack reports it only once.
    const int row = rowFor(server, std::numeric_limits<std::size_t>::max());
    m_rows[static_cast<std::size_t>(row)].server = server;
    setState(row, State::Up);
}

void ServerModel::setDown(const QString& key)
{
    const int row = rowOf(key);
    if (row >= 0 && m_rows[static_cast<std::size_t>(row)].state == State::Up)
        setState(row, State::Lost);
}

void ServerModel::removeUnconnected()
{
    for (int row = rowCount() - 1; row >= 0; --row) {
        const State state = m_rows[static_cast<std::size_t>(row)].state;
        if (state != State::Seen && state != State::Connecting)
            continue;
        beginRemoveRows({}, row, row);
        m_rows.erase(m_rows.begin() + row);
        endRemoveRows();
    }
}

void ServerModel::removeExpired()
{
    const qint64 now = m_clock.elapsed();
    for (int row = rowCount() - 1; row >= 0; --row) {
        const Row& old = m_rows[static_cast<std::size_t>(row)];
        const bool isStale = now - old.lastAnnounced >= AnnouncementTimeoutMs;
        const bool wasUp = !old.server.version.isEmpty();
        if (old.state == State::Connecting && isStale && wasUp) {
            setState(row, State::Lost);
            continue;
        }
        const bool isExpired =
            old.state == State::Lost ? now - old.since >= m_retentionMs : old.state != State::Up && isStale;
        if (!isExpired)
            continue;
        beginRemoveRows({}, row, row);
        m_rows.erase(m_rows.begin() + row);
        endRemoveRows();
    }
}
} // namespace Browser

// The order of the servers and the texts about them.
// SPDX-License-Identifier: Apache-2.0
#include "server_model.h"

#include <citp/citp_stack.h>
#include <citp_client/values.h>

#include <QHostAddress>

#include <algorithm>
#include <utility>

#include "texts.h"

namespace Browser {
namespace {
constexpr int SilenceIntervalMs = 1000;

std::pair<quint32, int> orderOf(const QString& key)
{
    return {CITP::citp_stack::getHostAddressFromSERV_ID(key).toIPv4Address(), key.section(QLatin1Char(':'), 1).toInt()};
}
} // namespace

ServerModel::ServerModel(CITP::Directory& directory) : m_directory(directory)
{
    connect(&m_directory, &CITP::Directory::changed, this, &ServerModel::update);
    const QStringList keys = m_directory.keys();
    for (const QString& key : keys)
        update(key);
    startTimer(SilenceIntervalMs);
}

void ServerModel::update(const QString& key)
{
    const int known = rowOf(key);
    if (m_directory.server(key).key.isEmpty()) {
        if (known < 0)
            return;
        beginRemoveRows({}, known, known);
        m_keys.removeAt(known);
        endRemoveRows();
        return;
    }
    if (known >= 0) {
        Q_EMIT dataChanged(index(known), index(known));
        return;
    }
    const auto place =
        std::find_if(m_keys.begin(), m_keys.end(), [&](const QString& other) { return orderOf(key) < orderOf(other); });
    const int row = static_cast<int>(place - m_keys.begin());
    beginInsertRows({}, row, row);
    m_keys.insert(row, key);
    endInsertRows();
}

void ServerModel::timerEvent(QTimerEvent* /*event*/)
{
    QStringList silent;
    for (const QString& key : std::as_const(m_keys)) {
        if (isSilent(m_directory.server(key)))
            silent << key;
    }
    // Those that were silent are not any more.
    const QStringList changed = silent + std::exchange(m_silent, silent);
    for (const QString& key : changed)
        update(key);
}

bool ServerModel::isSilent(const CITP::Server& server) const
{
    return server.state == State::Up && m_directory.silence(server.key) >= SilentMs;
}

QString ServerModel::stateText(const CITP::Server& server) const
{
    switch (server.state) {
        case State::Heard:
            return tr("seen");
        case State::Connecting:
            return tr("connecting");
        case State::Failing:
            return tr("failing");
        case State::Up:
            return isSilent(server) ? tr("no sign of life for %1 s").arg(m_directory.silence(server.key) / 1000)
                                    : tr("up");
        case State::Lost:
            break;
    }
    return tr("lost");
}

int ServerModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_keys.size());
}

QVariant ServerModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const QString& key = m_keys.at(index.row());
    const CITP::Server server = m_directory.server(key);
    const QString product = toSingleLine(QStringLiteral("%1 %2").arg(server.product, server.version).trimmed(), 200);
    switch (role) {
        case KeyRole:
        case AddressRole:
            return key;
        case StateRole:
            return static_cast<int>(server.state);
        case Qt::DisplayRole:
        case NameRole:
            return nameOf(key);
        case ProductRole:
            return product;
        case StateTextRole:
            return stateText(server);
        case IsSilentRole:
            return isSilent(server);
        case Qt::AccessibleTextRole:
            return QStringList{nameOf(key), stateText(server), product, key}.join(QStringLiteral(", "));
        case Qt::ToolTipRole: {
            const QString name = toSingleLine(server.name, CITP::maxNameLength);
            QStringList lines{name.isEmpty() ? key : name, tr("State: %1").arg(stateText(server)),
                              tr("Address: %1").arg(key)};
            if (!server.problem.isEmpty())
                lines << toSingleLine(server.problem, 400);
            if (!product.isEmpty())
                lines << tr("Product: %1").arg(product)
                      << tr("MSEX 1.%1, layers: %2").arg(server.msexMinor).arg(server.layers.size());
            return toToolTip(lines);
        }
        default:
            return {};
    }
}

int ServerModel::rowOf(const QString& key) const
{
    return static_cast<int>(m_keys.indexOf(key));
}

QString ServerModel::nameOf(const QString& key) const
{
    const QString name = toSingleLine(m_directory.server(key).name);
    return name.isEmpty() ? key : name;
}

ServerModel::State ServerModel::stateOf(const QString& key) const
{
    const CITP::Server server = m_directory.server(key);
    return server.key.isEmpty() ? State::Lost : server.state;
}

int ServerModel::countUp() const
{
    return static_cast<int>(
        std::count_if(m_keys.begin(), m_keys.end(), [this](const QString& key) { return stateOf(key) == State::Up; }));
}
} // namespace Browser

// The registry's keys, its records, what applications ask of it, and its observers. citp_stack.cpp adds the records.
// SPDX-License-Identifier: Apache-2.0
#include "citp_lifetime_p.h"
#include "citp_lock_p.h"
#include "citp_stack_p.h"

#include <citp/citp_stack.h>

#include <QTcpSocket>

#include <algorithm>
#include <utility>

namespace CITP {
citp_stack::SERV_ID citp_stack::buildServerKey(const QString& host, unsigned short port)
{
    return host + QLatin1Char(':') + QString::number(port);
}

citp_stack::SERV_ID citp_stack::buildServerKey(QTcpSocket* socket)
{
    return buildServerKey(socket->peerName(), socket->peerPort());
}

QHostAddress citp_stack::getHostAddressFromSERV_ID(const SERV_ID& key)
{
    return QHostAddress(key.section(QLatin1Char(':'), 0, 0));
}

std::vector<citp_stack::SERV_ID> citp_stack::getServers()
{
    std::vector<SERV_ID> keys;
    const Caller caller;
    if (isShuttingDown()) {
        return keys;
    }
    const StackLock lock(m_mutex);
    for (auto server = m_servers.cbegin(); server != m_servers.cend(); ++server) {
        if (server.value()->m_notified) {
            keys.push_back(server.key());
        }
    }
    return keys;
}

bool citp_stack::getServerInfo(const SERV_ID& key, Msg_MSEX_SINF* sinf, Msg_PEER_PLOC* ploc)
{
    const Caller caller;
    if (isShuttingDown()) {
        return false;
    }
    const StackLock lock(m_mutex);
    const Record* const record = d->find(key);
    if (!record || !record->m_notified) {
        return false;
    }
    if (ploc) {
        *ploc = record->m_ploc;
    }
    if (sinf) {
        *sinf = record->m_sinf;
    }
    return true;
}

int citp_stack::getNumNotified()
{
    const Caller caller;
    if (isShuttingDown()) {
        return 0;
    }
    const StackLock lock(m_mutex);
    return d->countNotified();
}

int citp_stack::Private::countNotified() const
{
    int count = 0;
    for (const ServerInfo* info : std::as_const(q->m_servers)) {
        count += info->m_notified ? 1 : 0;
    }
    return count;
}

std::shared_ptr<const void> citp_stack::observeDiscovery(const DiscoveryObserver& observer)
{
    const Caller caller;
    if (isShuttingDown() || !observer) {
        return nullptr;
    }
    auto kept = std::make_shared<const DiscoveryObserver>(observer);
    const std::lock_guard<std::mutex> lock(d->observersMutex);
    const auto isGone = [](const std::weak_ptr<const DiscoveryObserver>& other) { return other.expired(); };
    d->observers.erase(std::remove_if(d->observers.begin(), d->observers.end(), isGone), d->observers.end());
    d->observers.push_back(kept);
    d->hasObservers = true;
    return kept;
}

void citp_stack::Private::removeAllServers()
{
    const StackLock lock(q->m_mutex);
    const auto first = [this]() -> const ServerInfo* {
        for (const ServerInfo* info : std::as_const(q->m_servers)) {
            if (!static_cast<const Record*>(info)->isLeaving) {
                return info;
            }
        }
        return nullptr;
    };
    while (const ServerInfo* const next = first()) {
        const SERV_ID key = static_cast<const Record*>(next)->key;
        tell(DiscoveryEvent::Failed, key);
        if (const Record* const record = find(key)) {
            q->removeTCP(static_cast<int>(record->m_socket->socketDescriptor()));
        }
    }
}

void citp_stack::Private::tell(DiscoveryEvent::Kind kind, const SERV_ID& server, const QString& text)
{
    // The key of a server that was announced over a connection contains the key of that connection.
    if (!hasObservers || server.count(QLatin1Char(':')) > 1) {
        return;
    }
    std::unique_lock<std::mutex> lock(observersMutex);
    const std::vector<std::weak_ptr<const DiscoveryObserver>> current = observers;
    lock.unlock();
    // Copied: the record that the key belongs to may go while an observer is called.
    const DiscoveryEvent event{kind, server, text};
    bool isObserved = false;
    for (const auto& each : current) {
        // Not before: an observer may end the observation of the next one.
        if (const std::shared_ptr<const DiscoveryObserver> observer = each.lock()) {
            isObserved = true;
            (*observer)(event);
        }
    }
    if (!isObserved) {
        lock.lock();
        hasObservers =
            std::any_of(observers.cbegin(), observers.cend(), [](const auto& each) { return !each.expired(); });
    }
}

citp_stack::ServerInfo::ServerInfo(const Msg_PEER_PLOC& ploc, Net::Socket* netSocket)
    : m_socket(nullptr), m_netSocket(netSocket), m_notified(false), m_ploc(ploc), m_noDelay(false), m_inProgress(false)
{
}

citp_stack::ServerInfo::~ServerInfo()
{
    delete m_netSocket;
    if (m_socket) {
        m_socket->deleteLater();
    }
}

void citp_stack::ServerInfo::SetNoDelay(bool enable)
{
    m_noDelay = enable;
    if (enable && m_socket) {
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    }
}
} // namespace CITP

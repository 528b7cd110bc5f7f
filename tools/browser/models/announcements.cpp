// The socket beside the library's own, and the adapter that both are to be on.
// SPDX-License-Identifier: Apache-2.0
#include "announcements.h"

#include <citp/citp_msg_peer.h>
#include <citp/citp_stack.h>

#include <QNetworkInterface>

#include "adapters.h"

namespace Browser {
namespace {
constexpr quint16 Port = 4809;
constexpr int FollowMs = 1000;
constexpr int TellAgainMs = 500;
constexpr int LongestAnnouncement = 2048;
// Nobody has so many; a forger could fill the memory.
constexpr int MostServers = 5000;
constexpr int DatagramsAtOnce = 500;

// Anything else the library reports itself; parsing it here would put each fault into the log twice.
bool isAnnouncement(const QByteArray& datagram)
{
    return datagram.startsWith(QByteArray("CITP\x01\x00", 6)) &&
           CITP::Msg_Header::messageSize(datagram) == datagram.size() &&
           CITP::Msg_Header::contentType(datagram) == QLatin1String("PINF") &&
           CITP::Msg_PEER::contentType(datagram) == QLatin1String("PLoc");
}
} // namespace

Announcements::Announcements(QObject* parent) : QObject(parent), m_follow(this)
{
    connect(&m_follow, &QTimer::timeout, this, &Announcements::followAdapter);
}

void Announcements::start()
{
    m_clock.start();
    m_follow.start(FollowMs);
    followAdapter();
}

void Announcements::followAdapter()
{
    const AdapterState adapter = adapterInUse();
    if (m_isStarted && adapter == m_adapter)
        return;
    const bool isElsewhere = !m_isStarted || adapter.name != m_adapter.name || adapter.address != m_adapter.address;
    m_isStarted = true;
    m_adapter = adapter;
    if (isElsewhere)
        open(adapter);
    Q_EMIT adapterChanged(adapter);
}

void Announcements::open(const AdapterState& adapter)
{
    m_socket.reset();
    if (adapter.address.isEmpty())
        return;
    m_socket = std::make_unique<QUdpSocket>();
    connect(m_socket.get(), &QUdpSocket::readyRead, this, &Announcements::read);
    // Without it servers are shown once they are up; the library says in the log what is wrong with the port.
    if (m_socket->bind(QHostAddress(QHostAddress::AnyIPv4), Port,
                       QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint))
        m_socket->joinMulticastGroup(QHostAddress(QStringLiteral("224.0.0.180")),
                                     QNetworkInterface::interfaceFromName(adapter.name));
}

// Notes it as told if so.
bool Announcements::mayTell(const QString& key)
{
    const qint64 now = m_clock.elapsed();
    const auto told = m_lastTold.constFind(key);
    if (told != m_lastTold.constEnd() && now - *told < TellAgainMs)
        return false;
    // Those of a while ago make room; looked for at intervals only, or a flood would be looked through for each of its
    // datagrams.
    if (m_lastTold.size() >= MostServers && now - m_lastPurge >= TellAgainMs) {
        m_lastPurge = now;
        for (auto old = m_lastTold.begin(); old != m_lastTold.end();)
            old = now - *old >= TellAgainMs ? m_lastTold.erase(old) : std::next(old);
    }
    if (m_lastTold.size() >= MostServers && !m_lastTold.contains(key))
        return false;
    m_lastTold.insert(key, now);
    return true;
}

void Announcements::read()
{
    QByteArray datagram;
    for (int i = 0; i < DatagramsAtOnce && m_socket->hasPendingDatagrams(); ++i) {
        QHostAddress sender;
        datagram.resize(LongestAnnouncement);
        const qint64 size = m_socket->readDatagram(datagram.data(), datagram.size(), &sender);
        datagram.resize(static_cast<int>(qMax<qint64>(size, 0)));
        if (!isAnnouncement(datagram))
            continue;
        const CITP::Msg_PEER_PLOC announcement(datagram);
        if (announcement.type != QLatin1String("MediaServer") || announcement.port == 0)
            continue;
        const QString key = CITP::citp_stack::buildServerKey(sender.toString(), announcement.port);
        if (mayTell(key))
            Q_EMIT heard(key, oneLine(announcement.name));
    }
    if (m_socket->hasPendingDatagrams())
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_socket)
                    read();
            },
            Qt::QueuedConnection);
}
} // namespace Browser

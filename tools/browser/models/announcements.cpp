// A UDP socket beside the library's own, on the same adapter.
// SPDX-License-Identifier: Apache-2.0
#include "announcements.h"

#include <citp/citp_msg_peer.h>
#include <citp/citp_stack.h>

#include <QNetworkInterface>

#include "adapters.h"

namespace Browser {
namespace {
constexpr quint16 DiscoveryPort = 4809;
constexpr int AdapterPollMs = 1000;
constexpr int ReportIntervalMs = 500;
constexpr int MaxAnnouncementSize = 2048;
// More than any network has. Without the limit, forged announcements could fill the memory.
constexpr int MaxTrackedServers = 5000;
constexpr int MaxDatagramsPerBatch = 500;

// The library logs malformed messages itself; parsing them here would log each fault twice.
bool isAnnouncement(const QByteArray& datagram)
{
    return datagram.startsWith(QByteArray("CITP\x01\x00", 6)) &&
           CITP::Msg_Header::messageSize(datagram) == datagram.size() &&
           CITP::Msg_Header::contentType(datagram) == QLatin1String("PINF") &&
           CITP::Msg_PEER::contentType(datagram) == QLatin1String("PLoc");
}
} // namespace

Announcements::Announcements(QObject* parent) : QObject(parent), m_pollTimer(this)
{
    connect(&m_pollTimer, &QTimer::timeout, this, &Announcements::checkAdapter);
    connect(&m_pollTimer, &QTimer::timeout, this, &Announcements::reportNamedServers);
}

void Announcements::start(const Tools::StackOptions& options)
{
    m_options = options;
    m_clock.start();
    m_pollTimer.start(AdapterPollMs);
    checkAdapter();
    reportNamedServers();
}

void Announcements::reportNamedServers()
{
    for (const QString& key : std::as_const(m_options.servers))
        Q_EMIT announced(key, QString());
}

void Announcements::checkAdapter()
{
    const AdapterState adapter = adapterInUse();
    if (m_isStarted && adapter == m_adapter)
        return;
    const bool isMoved = !m_isStarted || adapter.name != m_adapter.name || adapter.address != m_adapter.address;
    m_isStarted = true;
    m_adapter = adapter;
    if (isMoved)
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
    // If this fails, servers are still shown once they are up, and the library logs what is wrong with the port.
    if (!m_socket->bind(QHostAddress(QHostAddress::AnyIPv4), DiscoveryPort,
                        QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint))
        return;
    const QNetworkInterface network = QNetworkInterface::interfaceFromName(adapter.name);
    const QStringList groups = Tools::addressesOf(m_options.options.discoveryGroups());
    for (const QString& group : groups)
        m_socket->joinMulticastGroup(QHostAddress(group), network);
}

// Returns whether the announcement may be reported now, and records its time if so.
bool Announcements::passesRateLimit(const QString& key)
{
    const qint64 now = m_clock.elapsed();
    const auto told = m_lastReported.constFind(key);
    if (told != m_lastReported.constEnd() && now - *told < ReportIntervalMs)
        return false;
    // Purge expired entries, but not for every datagram: during a flood each purge would scan the full table.
    if (m_lastReported.size() >= MaxTrackedServers && now - m_lastPurge >= ReportIntervalMs) {
        m_lastPurge = now;
        for (auto old = m_lastReported.begin(); old != m_lastReported.end();)
            old = now - *old >= ReportIntervalMs ? m_lastReported.erase(old) : std::next(old);
    }
    if (m_lastReported.size() >= MaxTrackedServers && !m_lastReported.contains(key))
        return false;
    m_lastReported.insert(key, now);
    return true;
}

void Announcements::read()
{
    QByteArray datagram;
    for (int i = 0; i < MaxDatagramsPerBatch && m_socket->hasPendingDatagrams(); ++i) {
        QHostAddress sender;
        datagram.resize(MaxAnnouncementSize);
        const qint64 size = m_socket->readDatagram(datagram.data(), datagram.size(), &sender);
        datagram.resize(static_cast<int>(qMax<qint64>(size, 0)));
        if (!isAnnouncement(datagram))
            continue;
        const CITP::Msg_PEER_PLOC announcement(datagram);
        if (announcement.type != QLatin1String("MediaServer") || announcement.port == 0)
            continue;
        const QString key = CITP::citp_stack::buildServerKey(sender.toString(), announcement.port);
        if (passesRateLimit(key))
            Q_EMIT announced(key, toSingleLine(announcement.name));
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

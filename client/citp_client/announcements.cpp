// A UDP socket beside the stack's own: the stack reports servers only once they are up.
// SPDX-License-Identifier: Apache-2.0
#include "announcements_p.h"

#include <citp/citp_msg_peer.h>
#include <citp/citp_stack.h>

#include <citp_system/artnet_adapter.h>

#include <QHostAddress>
#include <QNetworkInterface>

namespace CITP {
namespace {
constexpr quint16 announcementPort = 4809;
constexpr const char* announcementGroup = "224.0.0.180";
constexpr int adapterInterval = 1000; // ms
// A flood leaves time for everything else in the thread: the socket signals again for the rest.
constexpr int maxAnnouncementsPerBatch = 100;
constexpr int maxAnnouncementLength = 2048;

// The stack logs malformed messages; parsing them here would log each of them twice.
bool isAnnouncement(const QByteArray& datagram)
{
    return datagram.startsWith(QByteArray("CITP\x01\x00", 6)) && Msg_Header::messageSize(datagram) == datagram.size() &&
           Msg_Header::contentType(datagram) == QLatin1String("PINF") &&
           Msg_PEER::contentType(datagram) == QLatin1String("PLoc");
}
} // namespace

Announcements::Announcements()
{
    connect(&m_adapterTimer, &QTimer::timeout, this, &Announcements::checkAdapter);
    m_adapterTimer.start(adapterInterval);
    checkAdapter();
}

void Announcements::checkAdapter()
{
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    if (adapter.GetName() == m_adapter && adapter.GetIpAddress() == m_address) {
        return;
    }
    m_adapter = adapter.GetName();
    m_address = adapter.GetIpAddress();
    m_socket.reset();
    if (m_address == 0) {
        return;
    }
    m_socket = std::make_unique<QUdpSocket>();
    connect(m_socket.get(), &QUdpSocket::readyRead, this, &Announcements::read);
    // If this fails, servers are still reported once they are up, and the stack logs what is wrong with the port.
    if (m_socket->bind(QHostAddress(QHostAddress::AnyIPv4), announcementPort,
                       QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint)) {
        m_socket->joinMulticastGroup(QHostAddress(QLatin1String(announcementGroup)),
                                     QNetworkInterface::interfaceFromName(QString::fromStdString(m_adapter)));
    }
}

void Announcements::read()
{
    QByteArray datagram;
    for (int i = 0; i < maxAnnouncementsPerBatch && m_socket->hasPendingDatagrams(); ++i) {
        QHostAddress sender;
        datagram.resize(maxAnnouncementLength);
        const qint64 size = m_socket->readDatagram(datagram.data(), datagram.size(), &sender);
        datagram.resize(static_cast<int>(qMax<qint64>(size, 0)));
        if (!isAnnouncement(datagram)) {
            continue;
        }
        const Msg_PEER_PLOC ploc(datagram);
        if (ploc.type == QLatin1String("MediaServer") && ploc.port != 0) {
            Q_EMIT heard(citp_stack::buildServerKey(sender.toString(), ploc.port), ploc.name);
        }
    }
}
} // namespace CITP

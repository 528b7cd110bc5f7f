// The discovery socket and the parsing of its datagrams.
// SPDX-License-Identifier: Apache-2.0
#include "discovery.h"

#include <citp_system/net_address.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <QHostAddress>
#include <cerrno>

#include "printing.h"

namespace Console {
namespace {
// Bounds the time of one call of read() during a flood of announcements.
constexpr int MaxDatagramsPerBatch = 500;
constexpr int MaxDatagramBytes = 65536;
constexpr int MaxOtherPeers = 5;
// More than any show has. Bounds the memory during a flood of announcements from different servers.
constexpr int MaxServers = 1024;
constexpr int MaxNameLength = 256;
// Servers announce themselves about once a second.
constexpr qint64 LostMs = 5000;

int errorOf(bool isOk)
{
    return isOk ? 0 : errno;
}

int joinGroup(Net::Socket& socket, quint32 adapterIp)
{
    return errorOf(socket.JoinMulticastGroup(Net::Address(Discovery::Group).GetHostIp(), adapterIp));
}
} // namespace

int Discovery::tryToJoin(quint32 adapterIp)
{
    Net::Socket socket;
    const int error = errorOf(socket.Open(Net::Socket::UDP));
    return error != 0 ? error : joinGroup(socket, adapterIp);
}

int Discovery::open()
{
    return errorOf(m_socket.Open(Net::Socket::UDP) && m_socket.SetBlocking(false) && m_socket.SetAddressReuse(true) &&
                   m_socket.Bind(Port));
}

int Discovery::join(quint32 adapterIp)
{
    return joinGroup(m_socket, adapterIp);
}

void Discovery::read()
{
    QByteArray buffer(MaxDatagramBytes, '\0');
    for (int count = 0; count < MaxDatagramsPerBatch; ++count) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t size = recvfrom(m_socket.GetDescriptor(), buffer.data(), static_cast<std::size_t>(buffer.size()),
                                      0, reinterpret_cast<sockaddr*>(&sender), &length);
        if (size < 0)
            return;
        handleDatagram(buffer.left(static_cast<int>(size)), QHostAddress(ntohl(sender.sin_addr.s_addr)).toString());
    }
}

// The library connects to a peer if its type is "MediaServer" and it announces a port.
void Discovery::handleDatagram(const QByteArray& datagram, const QString& sender)
{
    if (!datagram.startsWith("CITP") || CITP::Msg_Header::contentType(datagram) != "PINF" ||
        CITP::Msg_PEER::contentType(datagram) != "PLoc") {
        ++m_otherDatagrams;
        return;
    }
    const CITP::Msg_PEER_PLOC location(datagram);
    if (location.type == "MediaServer" && location.port != 0) {
        ServerText server;
        server.key = CITP::citp_stack::buildServerKey(sender, location.port);
        server.name = location.name.left(MaxNameLength);
        server.isKnown = true;
        if (m_servers.size() < MaxServers || m_servers.contains(server.key)) {
            m_servers.insert(server.key, server);
            Heard& heard = m_heard[server.key];
            heard.sinceLast.start();
            if (!heard.sinceFirst.isValid())
                heard.sinceFirst.start();
        }
        return;
    }
    const QString peer = escapeControls(QString("%1 (%2) at %3%4")
                                            .arg(location.type.isEmpty() ? QString("something") : location.type,
                                                 location.name, sender, location.port == 0 ? ", without a port" : ""));
    if (!m_otherPeers.contains(peer) && m_otherPeers.size() < MaxOtherPeers)
        m_otherPeers << peer;
}

void Discovery::forget(const QString& key)
{
    m_servers.remove(key);
    m_heard.remove(key);
}

bool Discovery::isHeardFor(const QString& key, qint64 milliseconds) const
{
    const auto heard = m_heard.constFind(key);
    return heard != m_heard.constEnd() && heard->sinceFirst.elapsed() >= milliseconds &&
           heard->sinceLast.elapsed() < LostMs;
}

QString Discovery::overdueText(const QString& key) const
{
    return QString("%1 has announced itself for %2, but has sent no SInf")
        .arg(toText(m_servers.value(key), true), secondsText(m_heard.value(key).sinceFirst.elapsed()));
}

QString Discovery::others() const
{
    QStringList texts = m_otherPeers;
    if (m_otherDatagrams > 0)
        texts << QString("%1 other datagrams").arg(m_otherDatagrams);
    return texts.join("; ");
}
} // namespace Console

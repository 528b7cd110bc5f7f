// The discovery socket, and what its datagrams say.
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
// A storm of announcements shall not keep the caller from its time limit.
constexpr int DatagramsAtOnce = 500;
constexpr int LargestDatagram = 65536;
constexpr int MostOtherPeers = 5;
// More than any show has. A flood of announcements, each of another server, shall not fill the memory.
constexpr int MostServers = 1024;
constexpr int LongestName = 256;

int errorOf(bool good)
{
    return good ? 0 : errno;
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
    QByteArray buffer(LargestDatagram, '\0');
    for (int count = 0; count < DatagramsAtOnce; ++count) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t size = recvfrom(m_socket.GetDescriptor(), buffer.data(), static_cast<std::size_t>(buffer.size()),
                                      0, reinterpret_cast<sockaddr*>(&sender), &length);
        if (size < 0)
            return;
        take(buffer.left(static_cast<int>(size)), QHostAddress(ntohl(sender.sin_addr.s_addr)).toString());
    }
}

// What makes a peer a media server to connect to is the library's rule: its type, and a port.
void Discovery::take(const QByteArray& datagram, const QString& sender)
{
    if (!datagram.startsWith("CITP") || CITP::Msg_Header::contentType(datagram) != "PINF" ||
        CITP::Msg_PEER::contentType(datagram) != "PLoc") {
        ++m_strange;
        return;
    }
    const CITP::Msg_PEER_PLOC location(datagram);
    if (location.type == "MediaServer" && location.port != 0) {
        ServerText server;
        server.key = CITP::citp_stack::buildServerKey(sender, location.port);
        server.name = location.name.left(LongestName);
        server.isKnown = true;
        if (m_servers.size() < MostServers || m_servers.contains(server.key))
            m_servers.insert(server.key, server);
        return;
    }
    const QString peer = harmless(QString("%1 (%2) at %3%4")
                                      .arg(location.type.isEmpty() ? QString("something") : location.type,
                                           location.name, sender, location.port == 0 ? ", without a port" : ""));
    if (!m_otherPeers.contains(peer) && m_otherPeers.size() < MostOtherPeers)
        m_otherPeers << peer;
}

QString Discovery::others() const
{
    QStringList texts = m_otherPeers;
    if (m_strange > 0)
        texts << QString("%1 datagrams that are no announcement").arg(m_strange);
    return texts.join("; ");
}
} // namespace Console

// The discovery socket and the parsing of its datagrams.
// SPDX-License-Identifier: Apache-2.0
#include "discovery.h"

#include <citp_system/net_address.h>
#include <citp_system/os_network_adapter.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <QHostAddress>
#include <cerrno>
#include <cstring>

#include "printing.h"
#include "stack_options.h"

namespace Console {
namespace {
using CITP::citp_options;

// Bounds the time of one call of read() during a flood of announcements.
constexpr int MaxDatagramsPerBatch = 500;
constexpr int MaxDatagramBytes = 65536;
constexpr int MaxOtherPeers = 5;
// More than any show has. Bounds the memory during a flood of announcements from different servers.
constexpr int MaxServers = CITP::Directory::maxServers;
constexpr int MaxNameLength = 256;

int errorOf(bool isOk)
{
    return isOk ? 0 : errno;
}

// Joins groups, a bit set, until one fails: sets its address and returns an errno value.
int joinGroups(Net::Socket& socket, quint32 adapterIp, int groups, QString* failed = nullptr)
{
    for (const Tools::DiscoveryGroup& group : Tools::DiscoveryGroups) {
        if ((groups & group.bit) == 0)
            continue;
        const int error = errorOf(socket.JoinMulticastGroup(Net::Address(group.address).GetHostIp(), adapterIp));
        if (error == 0)
            continue;
        if (failed)
            *failed = group.address;
        return error;
    }
    return 0;
}

// Where a datagram arrived.
struct Arrival
{
    int adapterIndex = 0;
    quint32 destination = 0; // host byte order
};

Arrival arrivalOf(msghdr& message)
{
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO)
            continue;
        in_pktinfo information{};
        std::memcpy(&information, CMSG_DATA(part), sizeof information);
        return {information.ipi_ifindex, ntohl(information.ipi_addr.s_addr)};
    }
    return {};
}

QString adapterNameOf(int index)
{
    char name[IF_NAMESIZE] = {};
    return if_indextoname(static_cast<unsigned>(index), name) ? escapeControls(QString::fromLocal8Bit(name))
                                                              : QString("another adapter");
}
} // namespace

int Discovery::tryToJoin(quint32 adapterIp, Groups groups, QString& failed)
{
    Net::Socket socket;
    const int error = errorOf(socket.Open(Net::Socket::UDP));
    return error != 0 ? error : joinGroups(socket, adapterIp, groups, &failed);
}

int Discovery::open()
{
    return errorOf(m_socket.Open(Net::Socket::UDP) && m_socket.SetBlocking(false) && m_socket.SetAddressReuse(true) &&
                   m_socket.Bind(Port));
}

int Discovery::join(const ArtNet::Adapter& adapter, Groups groups)
{
    m_groups = groups;
    m_adapterIndex = static_cast<int>(if_nametoindex(adapter.GetName().c_str()));
    const int on = 1;
    int error = errorOf(setsockopt(m_socket.GetDescriptor(), IPPROTO_IP, IP_PKTINFO, &on, sizeof on) == 0);
    if (error == 0)
        error = joinGroups(m_socket, adapter.GetIpAddress(), groups);
    return error;
}

void Discovery::joinOthers(const ArtNet::Adapter& adapter)
{
    joinGroups(m_socket, adapter.GetIpAddress(), citp_options::BothGroups & ~m_groups);
    for (const Os::NetworkAdapter& other : Os::NetworkAdapter::GetAll()) {
        if (other.GetState().IsUsable() && other.GetName() != adapter.GetName())
            joinGroups(m_socket, other.GetState().ipAddress, citp_options::BothGroups);
    }
}

void Discovery::read()
{
    QByteArray buffer(MaxDatagramBytes, '\0');
    for (int count = 0; count < MaxDatagramsPerBatch; ++count) {
        sockaddr_in sender{};
        iovec data{buffer.data(), static_cast<std::size_t>(buffer.size())};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
        msghdr message{};
        message.msg_name = &sender;
        message.msg_namelen = sizeof sender;
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = recvmsg(m_socket.GetDescriptor(), &message, 0);
        if (size < 0)
            return;
        const Arrival arrival = arrivalOf(message);
        const QByteArray datagram = buffer.left(static_cast<int>(size));
        const QString address = QHostAddress(ntohl(sender.sin_addr.s_addr)).toString();
        handleDatagram(datagram, address, arrival.adapterIndex, arrival.destination);
        if (m_observer)
            m_observer(datagram, address, arrival.destination);
    }
}

// The library connects to a peer if its type is "MediaServer" and it announces a port.
void Discovery::handleDatagram(const QByteArray& datagram, const QString& sender, int adapterIndex, quint32 destination)
{
    if (!datagram.startsWith("CITP") || CITP::Msg_Header::contentType(datagram) != "PINF" ||
        CITP::Msg_PEER::contentType(datagram) != "PLoc") {
        ++m_otherDatagrams;
        return;
    }
    const CITP::Msg_PEER_PLOC location(datagram);
    if (location.type == "MediaServer" && location.port != 0) {
        const QString key = CITP::citp_stack::buildServerKey(sender, location.port);
        if (m_heard.size() < MaxServers || m_heard.contains(key)) {
            Heard& heard = m_heard[key];
            heard.server.key = key;
            heard.server.name = location.name.left(MaxNameLength);
            addArrival(heard, adapterIndex, destination);
        }
        return;
    }
    const QString peer = escapeControls(QString("%1 (%2) at %3%4")
                                            .arg(location.type.isEmpty() ? QString("something") : location.type,
                                                 location.name, sender, location.port == 0 ? ", without a port" : ""));
    if (!m_otherPeers.contains(peer) && m_otherPeers.size() < MaxOtherPeers)
        m_otherPeers << peer;
}

void Discovery::addArrival(Heard& heard, int adapterIndex, quint32 destination)
{
    // What is sent to this machine alone or to all machines is received without a group, on every adapter.
    int groups = citp_options::BothGroups;
    for (const Tools::DiscoveryGroup& group : Tools::DiscoveryGroups) {
        if (destination == Net::Address(group.address).GetHostIp())
            groups = adapterIndex == m_adapterIndex ? group.bit : 0;
    }
    heard.groups |= groups;
    if (groups == 0) {
        const QString adapter = adapterNameOf(adapterIndex);
        if (!heard.adapters.contains(adapter))
            heard.adapters << adapter;
    }
}

QMap<QString, CITP::Server> Discovery::serversThatAre(bool reached) const
{
    QMap<QString, CITP::Server> servers;
    for (const Heard& heard : m_heard) {
        if (((heard.groups & m_groups) != 0) == reached)
            servers.insert(heard.server.key, heard.server);
    }
    return servers;
}

QString Discovery::remarkOn(const QString& key) const
{
    const Heard heard = m_heard.value(key);
    if (heard.groups == 0)
        return heard.adapters.isEmpty()
                   ? QString()
                   : QString("heard on %1, not on the adapter in use").arg(heard.adapters.join(" and "));
    if (heard.groups == citp_options::NewGroup || (heard.groups & m_groups) == 0)
        return QString("heard on %1 only: a console that listens on %2 alone will not see it")
            .arg(Tools::addressesOf(heard.groups).join(""),
                 Tools::addressesOf(citp_options::BothGroups & ~heard.groups).join(""));
    return {};
}

QString Discovery::others() const
{
    QStringList texts = m_otherPeers;
    if (m_otherDatagrams > 0)
        texts << QString("%1 other datagrams").arg(m_otherDatagrams);
    return texts.join("; ");
}
} // namespace Console

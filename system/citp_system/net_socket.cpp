// Net::Socket: an IPv4 socket that owns its descriptor.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/net_socket.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace Net {
namespace {

template <typename Value>
bool setOption(int descriptor, int level, int option, const Value& value)
{
    return ::setsockopt(descriptor, level, option, &value, sizeof value) == 0;
}

} // namespace

Socket::~Socket()
{
    Close();
}

bool Socket::Open(Protocol protocol)
{
    Close();
    const int type = protocol == UDP ? SOCK_DGRAM : SOCK_STREAM;
    const int descriptor = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    const std::lock_guard lock(m_mutex);
    m_descriptor = descriptor;
    return descriptor >= 0;
}

bool Socket::SetBlocking(bool blocking)
{
    const int flags = ::fcntl(m_descriptor, F_GETFL);
    if (flags < 0) {
        return false;
    }
    return ::fcntl(m_descriptor, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

bool Socket::SetAddressReuse(bool reuse)
{
    return setOption(m_descriptor, SOL_SOCKET, SO_REUSEADDR, int{reuse});
}

bool Socket::SetReceiveBufferCapacity(int bytes)
{
    return setOption(m_descriptor, SOL_SOCKET, SO_RCVBUF, bytes);
}

bool Socket::Bind(std::uint16_t port)
{
    return Bind(Address(std::uint32_t{INADDR_ANY}, port));
}

bool Socket::Bind(const Address& address)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(address.GetHostIp());
    name.sin_port = htons(address.GetPort());
    return ::bind(m_descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

bool Socket::JoinMulticastGroup(std::uint32_t groupIp, std::uint32_t adapterIp)
{
    if (adapterIp == 0) {
        errno = ENODEV;
        return false;
    }
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(groupIp);
    request.imr_address.s_addr = htonl(adapterIp);
    return setOption(m_descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, request);
}

bool Socket::SetMulticastTtl(int hops)
{
    // The kernel takes -1 as a request for its default.
    if (hops < 0) {
        errno = EINVAL;
        return false;
    }
    return setOption(m_descriptor, IPPROTO_IP, IP_MULTICAST_TTL, hops);
}

bool Socket::SetMulticastLoopback(bool loopback)
{
    return setOption(m_descriptor, IPPROTO_IP, IP_MULTICAST_LOOP, int{loopback});
}

void Socket::Cancel()
{
    const std::lock_guard lock(m_mutex);
    // On a datagram socket without a peer this fails, but still wakes its readers.
    if (m_descriptor >= 0) {
        ::shutdown(m_descriptor, SHUT_RDWR);
    }
}

void Socket::Close()
{
    const std::lock_guard lock(m_mutex);
    if (m_descriptor < 0) {
        return;
    }
    // Not repeated after EINTR: Linux has already released the number, and another thread may have reused it.
    ::close(m_descriptor);
    m_descriptor = -1;
}

} // namespace Net

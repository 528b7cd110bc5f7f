// A desk's own system library in place of the bundled one: logger, selection of the adapter, sockets. The installed
// headers document each member.
//
// This desk has one built-in network adapter, which never changes, so that the monitor has nothing to report. With
// removable adapters, the desk's own monitor would call the callbacks here.
// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <citp_system/artnet_adapter.h>
#include <citp_system/fatal_error.h>
#include <citp_system/net_address.h>
#include <citp_system/net_socket.h>
#include <citp_system/os_log.h>
#include <citp_system/os_network_adapter.h>
#include <citp_system/os_thread.h>
#include <citp_system/text_base.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// ---- The logger: one line on standard error for each entry, in the format of this desk's log collector

namespace Os {
namespace Log {
// The names are never freed: a thread that is still running at exit may write to a context whose destructor has run.
Context::Context(const char* name, Context* parent, unsigned mask)
    : m_name(*new std::string(parent ? parent->GetName() + '.' + name : std::string(name))),
      m_parent(parent),
      m_mask(mask)
{
    // Logs every message, for troubleshooting on this desk.
    if (std::getenv("DESK_TRACE"))
        m_mask = DefaultMask | Traffic;
}

Context::~Context() = default;

void Context::Write(unsigned level, const text_base& text, const char*, const char* file, int line,
                    const CallStack&) const
{
    if (IsEnabled(level))
        std::fprintf(stderr, "desk-log %u %s %s:%d %s\n", level, m_name.c_str(), file, line, text.c_str());
}
} // namespace Log

// This desk's logger prints no call stacks, so none is recorded.
CallStack Thread::GetCallStack() noexcept
{
    return {};
}

// ---- The adapters

NetworkAdapterMonitor::Callback::~Callback() = default;

class NetworkAdapterMonitor::Private
{
};

NetworkAdapterMonitor::NetworkAdapterMonitor() = default;
NetworkAdapterMonitor::~NetworkAdapterMonitor() = default;

NetworkAdapterMonitor* NetworkAdapterMonitor::Get()
{
    static NetworkAdapterMonitor monitor;
    return &monitor;
}

void NetworkAdapterMonitor::Register(const std::string&, int, Callback*) {}
void NetworkAdapterMonitor::Unregister(const std::string&, int, Callback*) {}
void NetworkAdapterMonitor::Unregister(Callback*) {}
} // namespace Os

namespace ArtNet {
// The desk's settings name the adapter; no other adapter is ever selected.
Adapter Adapter::Get()
{
    const char* const setting = std::getenv("DESK_SHOW_ADAPTER");
    Adapter chosen;
    chosen.m_name = setting ? setting : "show0";

    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0)
        return chosen;
    for (const ifaddrs* each = all; each; each = each->ifa_next) {
        if (!each->ifa_addr || each->ifa_addr->sa_family != AF_INET || !(each->ifa_flags & IFF_UP) ||
            chosen.m_name != each->ifa_name)
            continue;
        sockaddr_in address{};
        std::memcpy(&address, each->ifa_addr, sizeof address);
        chosen.m_ipAddress = ntohl(address.sin_addr.s_addr);
        chosen.m_reason = Reason::Explicit;
        break;
    }
    ::freeifaddrs(all);
    return chosen;
}
} // namespace ArtNet

// ---- Sockets

namespace Net {
Address::Address(std::uint32_t hostIp, std::uint16_t port) noexcept : m_hostIp(hostIp), m_port(port) {}

Address::Address(const char* text, std::uint16_t port) noexcept : m_port(port)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text, &address) == 1)
        m_hostIp = ntohl(address.s_addr);
}

std::string Address::ToString() const
{
    const in_addr address{htonl(m_hostIp)};
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return std::string(text) + ':' + std::to_string(m_port);
}

namespace {
template <typename Value>
bool setOption(int descriptor, int level, int name, const Value& value)
{
    return ::setsockopt(descriptor, level, name, &value, sizeof value) == 0;
}
} // namespace

Socket::~Socket()
{
    Close();
}

bool Socket::Open(Protocol protocol)
{
    Close();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_descriptor = ::socket(AF_INET, (protocol == UDP ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
    return m_descriptor >= 0;
}

bool Socket::SetBlocking(bool blocking)
{
    const int flags = ::fcntl(m_descriptor, F_GETFL);
    return flags >= 0 && ::fcntl(m_descriptor, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
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
    return setOption(m_descriptor, IPPROTO_IP, IP_MULTICAST_TTL, hops);
}

bool Socket::SetMulticastLoopback(bool loopback)
{
    return setOption(m_descriptor, IPPROTO_IP, IP_MULTICAST_LOOP, int{loopback});
}

void Socket::Cancel()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_descriptor >= 0)
        ::shutdown(m_descriptor, SHUT_RDWR);
}

void Socket::Close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
}
} // namespace Net

// ---- Text and fatal errors

text_base::text_base() noexcept : m_length(0)
{
    m_text[0] = '\0';
}

text_base& text_base::operator<<(std::string_view text) noexcept
{
    const std::size_t count = std::min(text.size(), Capacity - m_length);
    std::copy_n(text.data(), count, m_text + m_length);
    m_length += count;
    m_text[m_length] = '\0';
    return *this;
}

text_base& text_base::operator<<(char character) noexcept
{
    return *this << std::string_view(&character, 1);
}

text_base& text_base::operator<<(long long number) noexcept
{
    char digits[24];
    return *this << std::string_view(digits,
                                     static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%lld", number)));
}

text_base& text_base::operator<<(unsigned long long number) noexcept
{
    char digits[24];
    return *this << std::string_view(digits,
                                     static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%llu", number)));
}

void _FatalError(const char* text, int line, const char* file)
{
    std::fprintf(stderr, "desk-log fatal %s:%d %s\n", file, line, text);
    std::abort();
}

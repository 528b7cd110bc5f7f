// Net::Address: an IPv4 address with a port.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/net_address.h>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace Net {

Address::Address(std::uint32_t hostIp, std::uint16_t port) noexcept : m_hostIp(hostIp), m_port(port) {}

Address::Address(const char* text, std::uint16_t port) noexcept : m_port(port)
{
    in_addr address{};
    if (text && inet_pton(AF_INET, text, &address) == 1) {
        m_hostIp = ntohl(address.s_addr);
    }
}

std::string Address::ToString() const
{
    const in_addr address{htonl(m_hostIp)};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return std::string(text) + ':' + std::to_string(m_port);
}

} // namespace Net

// Net::Address: an IPv4 address with a port.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstdint>
#include <string>

namespace Net {
/// An IPv4 address and a port, both in host byte order. A value.
class CITP_SYSTEM_EXPORT Address
{
public:
    Address() = default; ///< 0.0.0.0, port 0: any address, any port
    /// An address from numbers in host byte order. Port 0 means any port.
    explicit Address(std::uint32_t hostIp, std::uint16_t port = 0) noexcept;
    /// An address in dotted decimal ("224.0.0.180"). Any other text gives 0.0.0.0.
    explicit Address(const char* text, std::uint16_t port = 0) noexcept;

    std::uint32_t GetHostIp() const noexcept { return m_hostIp; } ///< the address, host byte order
    std::uint16_t GetPort() const noexcept { return m_port; }     ///< the port, host byte order
    /// The address in dotted decimal, a colon and the port: "2.0.0.10:4809".
    std::string ToString() const;

private:
    std::uint32_t m_hostIp = 0;
    std::uint16_t m_port = 0;
};
} // namespace Net

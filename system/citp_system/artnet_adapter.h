// ArtNet::Adapter: the network adapter selected for Art-Net and for the media servers.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstdint>
#include <string>

/// The network adapter that Art-Net and the media servers share.
namespace ArtNet {
/// The network adapter selected for Art-Net. A value: it holds the result of one call of Get() and does not follow
/// later changes.
///
/// Get() returns the adapter that is set explicitly: by Choose() or, until Choose() is called, by the environment
/// variable ARTNET_ADAPTER. Without an explicit choice it returns the first adapter that matches, in this order:
/// 1. up, multicast-capable, with an address in 2.0.0.0/8 (the primary Art-Net range)
/// 2. up, multicast-capable, with an address in 10.0.0.0/8 (the secondary Art-Net range)
/// 3. up, multicast-capable, with any IPv4 address
/// 4. the loopback adapter
///
/// If the explicit choice does not exist, no other adapter takes its place: the traffic of a show must not move to
/// another network, such as that of the office, by itself.
class CITP_SYSTEM_EXPORT Adapter
{
public:
    /// Why an adapter was selected, highest priority first.
    enum class Reason {
        Explicit,       ///< set by name or address
        PrimaryRange,   ///< has an address in 2.0.0.0/8
        SecondaryRange, ///< has an address in 10.0.0.0/8
        AnyAddress,     ///< has another IPv4 address
        Loopback,       ///< no other adapter is usable
        None            ///< no adapter: the explicit choice is missing or has no address, or the machine has no adapter
    };

    /// Selects the adapter. Queries the kernel each time, so do not call it on a hot path. Thread-safe.
    static Adapter Get();

    /// Sets the explicit choice, which takes effect at the next Get(). Thread-safe.
    /// @param nameOrAddress an adapter name ("eth0") or an IPv4 address of this machine ("2.0.0.10"); empty removes the
    ///   choice
    static void Choose(const std::string& nameOrAddress);
    /// The current explicit choice; empty if there is none. Thread-safe.
    static std::string GetChoice();

    /// False if no adapter was selected. The address is then 0, and the name is that of the explicit choice or empty.
    bool IsValid() const noexcept { return m_reason != Reason::None; }
    const std::string& GetName() const noexcept { return m_name; }      ///< the kernel's name, e.g. "eth0"
    std::uint32_t GetIpAddress() const noexcept { return m_ipAddress; } ///< IPv4 address, host byte order; 0 for none
    Reason GetReason() const noexcept { return m_reason; }              ///< why the adapter was selected

private:
    std::string m_name;
    std::uint32_t m_ipAddress = 0;
    Reason m_reason = Reason::None;
};
} // namespace ArtNet

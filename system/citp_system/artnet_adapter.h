// ArtNet::Adapter: the network adapter that is chosen for Art-Net, and with it for the media servers.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstdint>
#include <string>

/// What Art-Net and the media servers share: the network adapter.
namespace ArtNet {
/// The adapter chosen for Art-Net, as it was at Get(). A value; the choice is made afresh at each Get().
///
/// The choice: the adapter named explicitly, by Choose() or, as long as that has not been called, by the environment
/// variable ARTNET_ADAPTER; without one, the first adapter that is up, multicast-capable and has an address in
/// 2.0.0.0/8 (the primary Art-Net range), else in 10.0.0.0/8 (the secondary), else any other such adapter with an IPv4
/// address, else the loopback. An explicit choice that is not there is never replaced by another adapter: a show must
/// not wander off to the office network.
class CITP_SYSTEM_EXPORT Adapter
{
public:
    /// Why an adapter was chosen, best first.
    enum class Reason {
        Explicit,       ///< chosen by name or address
        PrimaryRange,   ///< has an address in 2.0.0.0/8
        SecondaryRange, ///< has an address in 10.0.0.0/8
        AnyAddress,     ///< the first other one with an address
        Loopback,       ///< nothing else is usable
        None            ///< no adapter; the explicit choice is missing or has no address, or the machine has none
    };

    /// Makes the choice now. Any thread; asks the kernel, so not for a hot path.
    static Adapter Get();

    /// Sets the explicit choice: an adapter's name ("eth0") or an IPv4 address of this machine ("2.0.0.10"); the empty
    /// text takes it back. Holds from the next Get() on. Any thread.
    static void Choose(const std::string& nameOrAddress);
    /// The explicit choice in force, empty for none.
    static std::string GetChoice();

    /// False when there is no adapter; the address is then 0 and the name is the explicit choice's, or empty.
    bool IsValid() const noexcept { return m_reason != Reason::None; }
    const std::string& GetName() const noexcept { return m_name; }      ///< the kernel's name, e.g. "eth0"
    std::uint32_t GetIpAddress() const noexcept { return m_ipAddress; } ///< IPv4, host byte order; 0 for none
    Reason GetReason() const noexcept { return m_reason; }              ///< why it was chosen

private:
    std::string m_name;
    std::uint32_t m_ipAddress = 0;
    Reason m_reason = Reason::None;
};
} // namespace ArtNet

// Os::NetworkAdapter and Os::NetworkAdapterMonitor: the network adapters of the machine, and notifications of changes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Os {
/// A snapshot of one network adapter. A value; IPv4 only.
class CITP_SYSTEM_EXPORT NetworkAdapter
{
public:
    /// The state of an adapter at one moment, as the kernel reports it.
    struct CITP_SYSTEM_EXPORT State
    {
        bool present = false;                   ///< the adapter exists
        bool up = false;                        ///< administratively up (IFF_UP)
        bool running = false;                   ///< operational (IFF_RUNNING): has a carrier
        bool multicast = false;                 ///< supports multicast (IFF_MULTICAST)
        bool loopback = false;                  ///< is the loopback adapter (IFF_LOOPBACK)
        std::uint32_t ipAddress = 0;            ///< first IPv4 address, host byte order; 0 for none
        std::vector<std::uint32_t> ipAddresses; ///< all IPv4 addresses, host byte order, #ipAddress first

        /// Whether the adapter can carry IPv4 traffic: it is present, up and running and has an address.
        bool IsUsable() const noexcept { return present && up && running && ipAddress != 0; }
    };

    NetworkAdapter() = default; ///< an adapter without a name that is not present
    /// A snapshot with the given content; @p name is the kernel's name.
    NetworkAdapter(std::string name, const State& state);

    const std::string& GetName() const noexcept { return m_name; } ///< the kernel's name, e.g. "eth0"
    const State& GetState() const noexcept { return m_state; }     ///< the state at that moment; owned by this object

    /// All adapters of the machine in the kernel's order; empty if the kernel does not answer. Thread-safe.
    static std::vector<NetworkAdapter> GetAll();

private:
    std::string m_name;
    State m_state;
};

/// Monitors the adapters of the machine on its own thread and notifies the registered callbacks.
///
/// All functions are thread-safe and may be called from inside a callback.
class CITP_SYSTEM_EXPORT NetworkAdapterMonitor
{
public:
    /// Kinds of changes, as bits: those that a registration asks for, and those that a notification reports.
    enum Event : int {
        LinkEvent = 1,    ///< link up or down, adapter added or removed
        AddressEvent = 2, ///< IPv4 address added or removed
        AllEvents = 65535 ///< with Unregister(): all registered events
    };

    /// Receives notifications. The destructor of this class unregisters the object. A derived class that can be
    /// notified while its own destructor runs must unregister itself at the start of that destructor.
    class CITP_SYSTEM_EXPORT Callback
    {
    public:
        virtual ~Callback();
        /// Called on the monitor thread after an adapter has changed, without any lock of the monitor held. Must not
        /// throw. Messages of the kernel about one change are collected, so that one change causes one call. A change
        /// that was reverted meanwhile (address removed and added again) is reported too, because it ends multicast
        /// memberships.
        /// @param adapter the adapter that changed
        /// @param state its current state
        /// @param reason the Event bits that occurred
        virtual void Changed(const NetworkAdapter& adapter, const NetworkAdapter::State& state, int reason) = 0;
    };

    /// The only monitor of the process. The first call starts its thread, which stops at process exit. In a forked
    /// child it is inactive: registering and unregistering do nothing and do not block.
    static NetworkAdapterMonitor* Get();

    /// Registers @p callback for changes of the adapter @p name.
    ///
    /// If @p name is empty, does not exist (yet), or is the loopback adapter (only a fallback), the registration is
    /// also notified of every adapter that is added, comes up or gets an address.
    ///
    /// A change is reported to the callbacks that are registered when the messages of the kernel have paused for 100
    /// ms, or after 1 s if they do not pause. Repeating a registration has no effect; other @p events are added.
    /// @param name the kernel's name of the adapter, e.g. "eth0"
    /// @param events the requested Event bits
    /// @param callback notified on the monitor thread; owned by the caller, who unregisters it before destroying it
    void Register(const std::string& name, int events, Callback* callback);

    /// Removes @p events from the registrations of @p callback that match the adapter @p name: the one with that name
    /// and those that match any adapter (see Register()). Waits for a running call of @p callback, unless called on the
    /// monitor thread. Afterwards @p callback is not called for these events, even if the running call registered them
    /// again.
    void Unregister(const std::string& name, int events, Callback* callback);

    /// Removes all registrations of @p callback. Waits for a running call as above.
    void Unregister(Callback* callback);

    ~NetworkAdapterMonitor();
    NetworkAdapterMonitor(const NetworkAdapterMonitor&) = delete;
    NetworkAdapterMonitor& operator=(const NetworkAdapterMonitor&) = delete;

private:
    CITP_SYSTEM_HIDDEN NetworkAdapterMonitor();
    class CITP_SYSTEM_HIDDEN Private;
    std::unique_ptr<Private> d;
};
} // namespace Os

// Os::NetworkAdapter and Os::NetworkAdapterMonitor: the machine's network adapters and notices of their changes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Os {
/// One network adapter as it was when this object was made. A value; IPv4 only.
class CITP_SYSTEM_EXPORT NetworkAdapter
{
public:
    /// What the kernel says of an adapter at one moment.
    struct CITP_SYSTEM_EXPORT State
    {
        bool present = false;                   ///< the adapter exists
        bool up = false;                        ///< switched on by the administrator
        bool running = false;                   ///< has a carrier: the cable is in
        bool multicast = false;                 ///< can send and receive multicast
        bool loopback = false;                  ///< is the machine's loopback
        std::uint32_t ipAddress = 0;            ///< first IPv4 address in host byte order; 0 if it has none
        std::vector<std::uint32_t> ipAddresses; ///< all its IPv4 addresses in host byte order, #ipAddress first

        /// Can carry IPv4 traffic now.
        bool IsUsable() const noexcept { return present && up && running && ipAddress != 0; }
    };

    NetworkAdapter() = default;
    /// As told; @p name is the kernel's name.
    NetworkAdapter(std::string name, const State& state);

    const std::string& GetName() const noexcept { return m_name; } ///< the kernel's name, e.g. "eth0"
    const State& GetState() const noexcept { return m_state; }     ///< how it was then; owned by this object

    /// All adapters of the machine, in the kernel's order. Any thread. Empty if the kernel does not answer.
    static std::vector<NetworkAdapter> GetAll();

private:
    std::string m_name;
    State m_state;
};

/// Watches the machine's adapters on a thread of its own and tells those who registered.
///
/// All operations may be called from any thread, from inside a callback too.
class CITP_SYSTEM_EXPORT NetworkAdapterMonitor
{
public:
    /// What a registration wants to hear of, and what a notice reports; bits to be combined.
    enum Event : int {
        LinkEvent = 1,    ///< link up or down, adapter appeared or vanished
        AddressEvent = 2, ///< IPv4 address added or removed
        AllEvents = 65535 ///< with Unregister: whatever was registered
    };

    /// To be derived from by whoever wants notices. Its destructor unregisters it; a class whose notices may come
    /// while it is being destroyed unregisters itself first.
    class CITP_SYSTEM_EXPORT Callback
    {
    public:
        virtual ~Callback();
        /// An adapter has changed. Called on the monitor's thread with none of the monitor's locks held; must not
        /// throw. The kernel's messages about one change are collected until they pause, so one change gives one call.
        /// A change that undid itself meanwhile (address removed and added again) is reported too, since multicast
        /// memberships do not survive it.
        /// @param adapter the adapter that changed
        /// @param state how it is now
        /// @param reason the NetworkAdapterMonitor::Event bits that happened
        virtual void Changed(const NetworkAdapter& adapter, const NetworkAdapter::State& state, int reason) = 0;
    };

    /// The process's monitor; made, with its thread, at the first call and ended at process exit. In a forked child it
    /// is silent: registering and unregistering do nothing there and wait for nothing.
    static NetworkAdapterMonitor* Get();

    /// Asks for notices of the adapter called @p name. A registration whose name does not exist (yet), the empty name
    /// included, and one for the loopback (which is used only for want of anything better) hears also of any adapter
    /// that appears or becomes usable: that comes up or gets an address. A change is reported when the kernel's
    /// messages have paused for 100 ms, or after 1 s if they do not, to those who are registered then. Registering the
    /// same again changes nothing.
    /// @param name the kernel's name of the adapter, e.g. "eth0"
    /// @param events the Event bits wanted
    /// @param callback told on the monitor's thread; stays the caller's and is to be unregistered before it goes
    void Register(const std::string& name, int events, Callback* callback);

    /// Takes back the @p events of @p callback's registrations that hear of the adapter @p name: the one under that
    /// name and those that stand for any adapter. When this returns on a thread other than the monitor's, no call of
    /// @p callback is running or will come for them, even if the call that was running registered again.
    void Unregister(const std::string& name, int events, Callback* callback);

    /// Takes back all registrations of @p callback; waits as above.
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

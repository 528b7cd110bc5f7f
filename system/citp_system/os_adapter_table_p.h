// Os::AdapterTable: the network adapters of the machine, from the kernel's rtnetlink messages. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_network_adapter.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct nlmsghdr;

namespace Os {
/// The adapters with their state, updated with apply() for each rtnetlink message. Not thread-safe.
class AdapterTable
{
public:
    struct Entry
    {
        int index; ///< the kernel's interface index; does not change when the adapter is renamed
        std::string name;
        NetworkAdapter::State state;
    };

    /// A change of one adapter.
    struct Change
    {
        std::string name;
        int events;  ///< NetworkAdapterMonitor::Event bits
        bool gained; ///< the adapter was added, came up or got an address
    };

    /// Requests all adapters from the kernel.
    /// @return no value if the kernel does not answer
    static std::optional<AdapterTable> dump();

    /// Applies one message: a notification or a part of a dump.
    /// @return the resulting changes: none if IPv4 traffic is not affected, two if an adapter was renamed
    std::vector<Change> apply(const nlmsghdr* message);

    /// The changes from this table to @p newer.
    std::vector<Change> differences(const AdapterTable& newer) const;

    const std::vector<Entry>& entries() const noexcept { return m_entries; }
    /// The state of the adapter @p name; not present if it does not exist.
    NetworkAdapter::State state(const std::string& name) const;

private:
    Entry* find(int index);
    std::vector<Change> applyLink(const nlmsghdr* message);
    std::vector<Change> applyAddress(const nlmsghdr* message);

    std::vector<Entry> m_entries; // in the kernel's order
};
} // namespace Os

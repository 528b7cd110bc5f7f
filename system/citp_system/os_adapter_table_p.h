// Os::AdapterTable: the machine's adapters as the kernel's rtnetlink messages tell of them. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_network_adapter.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct nlmsghdr;

namespace Os {
/// The adapters with their state, kept up to date by applying the kernel's messages one by one. Not synchronised.
class AdapterTable
{
public:
    struct Entry
    {
        int index; ///< the kernel's number for the adapter; stays when it is renamed
        std::string name;
        NetworkAdapter::State state;
    };

    /// What a message changed.
    struct Change
    {
        std::string name;
        int events;  ///< NetworkAdapterMonitor::Event bits
        bool gained; ///< the adapter appeared, came up or got an address
    };

    /// Asks the kernel for all adapters.
    /// @return nothing if the kernel does not answer
    static std::optional<AdapterTable> dump();

    /// Takes in one message, a notice or a part of a dump.
    /// @return the changes it made: none for what does not concern IPv4 traffic, two for a change of name
    std::vector<Change> apply(const nlmsghdr* message);

    /// The changes that lead from this table to @p newer.
    std::vector<Change> differences(const AdapterTable& newer) const;

    const std::vector<Entry>& entries() const noexcept { return m_entries; }
    /// The adapter's state; one with nothing present if there is no such adapter.
    NetworkAdapter::State state(const std::string& name) const;

private:
    Entry* find(int index);
    std::vector<Change> applyLink(const nlmsghdr* message);
    std::vector<Change> applyAddress(const nlmsghdr* message);

    std::vector<Entry> m_entries; // in the kernel's order
};
} // namespace Os

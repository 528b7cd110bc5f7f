// Os::AdapterTable: rtnetlink dumps and notifications, parsed with libmnl.
// SPDX-License-Identifier: Apache-2.0
#include "os_adapter_table_p.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace Os {
namespace {

using Event = NetworkAdapterMonitor::Event;
using State = NetworkAdapter::State;
using Socket = std::unique_ptr<mnl_socket, decltype(&mnl_socket_close)>;

// Larger than any part of a dump that the kernel sends.
constexpr std::size_t dumpBufferSize = 32768;
// A dump is repeated if the adapters changed during it.
constexpr int maxDumpAttempts = 10;

// The attributes of a message by type; larger types are ignored.
using Attributes = std::array<const nlattr*, 16>;

int collectAttribute(const nlattr* attribute, void* data)
{
    auto& attributes = *static_cast<Attributes*>(data);
    const std::size_t type = mnl_attr_get_type(attribute);
    if (type < attributes.size()) {
        attributes[type] = attribute;
    }
    return MNL_CB_OK;
}

void appendChange(std::vector<AdapterTable::Change>& changes, const std::string& name, const State& before,
                  const State& after)
{
    int events = 0;
    if (before.present != after.present || before.up != after.up || before.running != after.running ||
        before.multicast != after.multicast) {
        events |= Event::LinkEvent;
    }
    if (before.ipAddress != after.ipAddress ||
        !std::is_permutation(before.ipAddresses.begin(), before.ipAddresses.end(), after.ipAddresses.begin(),
                             after.ipAddresses.end())) {
        events |= Event::AddressEvent;
    }
    if (events == 0) {
        return;
    }
    const bool cameUp = after.up && after.running && !(before.up && before.running);
    const bool gotAddress = std::any_of(after.ipAddresses.begin(), after.ipAddresses.end(), [&](std::uint32_t address) {
        return std::find(before.ipAddresses.begin(), before.ipAddresses.end(), address) == before.ipAddresses.end();
    });
    changes.push_back({name, events, (!before.present && after.present) || cameUp || gotAddress});
}

int applyDumped(const nlmsghdr* message, void* data)
{
    static_cast<AdapterTable*>(data)->apply(message);
    return MNL_CB_OK;
}

// Adds the result of one dump request to the table; returns false with the reason in errno.
bool dumpInto(AdapterTable& table, mnl_socket* socket, std::uint16_t type, unsigned char family, unsigned sequence)
{
    alignas(nlmsghdr) std::array<char, 256> request{};
    nlmsghdr* const header = mnl_nlmsg_put_header(request.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    header->nlmsg_seq = sequence;
    // Both request bodies begin with the family, so the longer of the two structures serves both.
    auto* const body = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)));
    body->ifi_family = family;
    if (mnl_socket_sendto(socket, header, header->nlmsg_len) < 0) {
        return false;
    }

    std::vector<char> buffer(dumpBufferSize);
    int result = MNL_CB_OK;
    while (result > MNL_CB_STOP) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (size < 0) {
            return false;
        }
        result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), sequence, mnl_socket_get_portid(socket),
                            applyDumped, &table);
    }
    return result == MNL_CB_STOP;
}

} // namespace

std::optional<AdapterTable> AdapterTable::dump()
{
    for (int attempt = 0; attempt < maxDumpAttempts; ++attempt) {
        const Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
        if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
            return std::nullopt;
        }
        AdapterTable table;
        if (dumpInto(table, socket.get(), RTM_GETLINK, AF_UNSPEC, 1) &&
            dumpInto(table, socket.get(), RTM_GETADDR, AF_INET, 2)) {
            return table;
        }
        // EINTR: the kernel marked the dump as inconsistent.
        if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

std::vector<AdapterTable::Change> AdapterTable::apply(const nlmsghdr* message)
{
    switch (message->nlmsg_type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            return applyLink(message);
        case RTM_NEWADDR:
        case RTM_DELADDR:
            return applyAddress(message);
        default:
            return {};
    }
}

std::vector<AdapterTable::Change> AdapterTable::applyLink(const nlmsghdr* message)
{
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) {
        return {};
    }
    const auto* const body = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    // Bridges report their ports in messages of the same type. A port that leaves a bridge is not a removed adapter.
    if (body->ifi_family != AF_UNSPEC) {
        return {};
    }

    std::vector<Change> changes;
    Entry* entry = find(body->ifi_index);
    if (message->nlmsg_type == RTM_DELLINK) {
        if (entry) {
            appendChange(changes, entry->name, entry->state, State());
            m_entries.erase(m_entries.begin() + (entry - m_entries.data()));
        }
        return changes;
    }

    Attributes attributes{};
    mnl_attr_parse(message, sizeof(ifinfomsg), collectAttribute, &attributes);
    const nlattr* const nameAttribute = attributes[IFLA_IFNAME];
    // Wireless drivers send messages that carry neither a name nor a change of state.
    if (!nameAttribute || mnl_attr_validate(nameAttribute, MNL_TYPE_NUL_STRING) < 0) {
        return {};
    }
    const std::string name = mnl_attr_get_str(nameAttribute);

    if (!entry) {
        m_entries.push_back({body->ifi_index, name, State()});
        entry = &m_entries.back();
    }
    State before = entry->state;
    State& state = entry->state;
    state.present = true;
    state.up = (body->ifi_flags & IFF_UP) != 0;
    state.running = (body->ifi_flags & IFF_RUNNING) != 0;
    state.multicast = (body->ifi_flags & IFF_MULTICAST) != 0;
    state.loopback = (body->ifi_flags & IFF_LOOPBACK) != 0;
    if (entry->name != name) {
        appendChange(changes, entry->name, before, State());
        entry->name = name;
        before = State();
    }
    appendChange(changes, name, before, state);
    return changes;
}

std::vector<AdapterTable::Change> AdapterTable::applyAddress(const nlmsghdr* message)
{
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifaddrmsg)) {
        return {};
    }
    const auto* const body = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
    Entry* const entry = find(static_cast<int>(body->ifa_index));
    if (body->ifa_family != AF_INET || !entry) {
        return {};
    }
    Attributes attributes{};
    mnl_attr_parse(message, sizeof(ifaddrmsg), collectAttribute, &attributes);
    // On a point-to-point link, IFA_ADDRESS is the address of the peer.
    const nlattr* const attribute = attributes[IFA_LOCAL] ? attributes[IFA_LOCAL] : attributes[IFA_ADDRESS];
    if (!attribute || mnl_attr_validate(attribute, MNL_TYPE_U32) < 0) {
        return {};
    }
    const std::uint32_t address = ntohl(mnl_attr_get_u32(attribute));

    const State before = entry->state;
    std::vector<std::uint32_t>& addresses = entry->state.ipAddresses;
    const auto position = std::find(addresses.begin(), addresses.end(), address);
    if (message->nlmsg_type == RTM_DELADDR) {
        if (position != addresses.end()) {
            addresses.erase(position);
        }
    } else if (position == addresses.end()) {
        addresses.push_back(address);
    }
    entry->state.ipAddress = addresses.empty() ? 0 : addresses.front();
    std::vector<Change> changes;
    appendChange(changes, entry->name, before, entry->state);
    return changes;
}

std::vector<AdapterTable::Change> AdapterTable::differences(const AdapterTable& newer) const
{
    std::vector<Change> changes;
    const auto stateIn = [](const AdapterTable& table, const Entry& entry) {
        // Another index with the same name is another adapter: the multicast memberships ended with the old one.
        const bool exists = std::any_of(table.m_entries.begin(), table.m_entries.end(), [&](const Entry& candidate) {
            return candidate.name == entry.name && candidate.index == entry.index;
        });
        return exists ? table.state(entry.name) : State();
    };
    for (const Entry& entry : m_entries) {
        appendChange(changes, entry.name, entry.state, stateIn(newer, entry));
    }
    for (const Entry& entry : newer.m_entries) {
        if (!stateIn(*this, entry).present) {
            appendChange(changes, entry.name, State(), entry.state);
        }
    }
    return changes;
}

NetworkAdapter::State AdapterTable::state(const std::string& name) const
{
    const auto entry = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const Entry& candidate) { return candidate.name == name; });
    return entry != m_entries.end() ? entry->state : State();
}

AdapterTable::Entry* AdapterTable::find(int index)
{
    const auto entry = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const Entry& candidate) { return candidate.index == index; });
    return entry != m_entries.end() ? &*entry : nullptr;
}

} // namespace Os

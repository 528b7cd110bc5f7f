// ArtNet::Adapter: selecting one of the machine's adapters.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/artnet_adapter.h>

#include <citp_system/net_address.h>
#include <citp_system/os_network_adapter.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace ArtNet {
namespace {

using Os::NetworkAdapter;

// The explicit choice. Never destroyed: it is read while the static objects of the process are destroyed.
struct Choice
{
    std::mutex mutex;
    std::string text;

    Choice()
    {
        if (const char* environment = std::getenv("ARTNET_ADAPTER")) {
            text = environment;
        }
    }

    static Choice& get()
    {
        static auto* const choice = new Choice;
        return *choice;
    }
};

// The first address of the adapter in the range firstByte.0.0.0/8; 0 if it has none.
std::uint32_t addressInRange(const NetworkAdapter& adapter, std::uint32_t firstByte)
{
    const auto& addresses = adapter.GetState().ipAddresses;
    const auto address = std::find_if(addresses.begin(), addresses.end(),
                                      [&](std::uint32_t candidate) { return candidate >> 24 == firstByte; });
    return address != addresses.end() ? *address : 0;
}

bool hasAddress(const NetworkAdapter& adapter, std::uint32_t address)
{
    const auto& addresses = adapter.GetState().ipAddresses;
    return std::find(addresses.begin(), addresses.end(), address) != addresses.end();
}

} // namespace

Adapter Adapter::Get()
{
    const std::vector<NetworkAdapter> all = NetworkAdapter::GetAll();
    Adapter selected;
    // An address of 0 means that the adapter does not match.
    const auto select = [&selected](const NetworkAdapter& adapter, std::uint32_t address, Reason reason) {
        if (address == 0) {
            return false;
        }
        selected.m_name = adapter.GetName();
        selected.m_ipAddress = address;
        selected.m_reason = reason;
        return true;
    };

    const std::string choice = GetChoice();
    if (!choice.empty()) {
        selected.m_name = choice;
        const std::uint32_t address = Net::Address(choice.c_str()).GetHostIp();
        for (const NetworkAdapter& adapter : all) {
            const bool nameMatches = adapter.GetName() == choice;
            if (select(adapter,
                       nameMatches                    ? adapter.GetState().ipAddress
                       : hasAddress(adapter, address) ? address
                                                      : 0,
                       Reason::Explicit)) {
                break;
            }
        }
        return selected;
    }

    const auto eligible = [](const NetworkAdapter& adapter) {
        return adapter.GetState().up && adapter.GetState().multicast && !adapter.GetState().loopback;
    };
    for (const auto& [firstByte, reason] :
         {std::pair(2U, Reason::PrimaryRange), std::pair(10U, Reason::SecondaryRange)}) {
        for (const NetworkAdapter& adapter : all) {
            if (eligible(adapter) && select(adapter, addressInRange(adapter, firstByte), reason)) {
                return selected;
            }
        }
    }
    for (const NetworkAdapter& adapter : all) {
        if (eligible(adapter) && select(adapter, adapter.GetState().ipAddress, Reason::AnyAddress)) {
            return selected;
        }
    }
    for (const NetworkAdapter& adapter : all) {
        if (adapter.GetState().loopback && adapter.GetState().up &&
            select(adapter, adapter.GetState().ipAddress, Reason::Loopback)) {
            return selected;
        }
    }
    return selected;
}

void Adapter::Choose(const std::string& nameOrAddress)
{
    Choice& choice = Choice::get();
    const std::lock_guard lock(choice.mutex);
    choice.text = nameOrAddress;
}

std::string Adapter::GetChoice()
{
    Choice& choice = Choice::get();
    const std::lock_guard lock(choice.mutex);
    return choice.text;
}

} // namespace ArtNet

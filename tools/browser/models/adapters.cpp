// Queries the adapters and formats them as text.
// SPDX-License-Identifier: Apache-2.0
#include "adapters.h"

#include <citp_system/artnet_adapter.h>
#include <citp_system/os_network_adapter.h>

#include <QCoreApplication>
#include <QHostAddress>

#include <algorithm>

namespace Browser {
namespace {
struct AdapterTexts
{
    Q_DECLARE_TR_FUNCTIONS(Browser::Adapters)
};

QString reasonFor(const ArtNet::Adapter& adapter)
{
    switch (adapter.GetReason()) {
        case ArtNet::Adapter::Reason::Explicit:
            return AdapterTexts::tr("chosen");
        case ArtNet::Adapter::Reason::PrimaryRange:
            return AdapterTexts::tr("first adapter with an address in 2.0.0.0/8");
        case ArtNet::Adapter::Reason::SecondaryRange:
            return AdapterTexts::tr("first adapter with an address in 10.0.0.0/8");
        case ArtNet::Adapter::Reason::AnyAddress:
            return AdapterTexts::tr("first adapter with an address");
        case ArtNet::Adapter::Reason::Loopback:
            return AdapterTexts::tr("no other adapter is up with multicast and an address");
        case ArtNet::Adapter::Reason::None:
            break;
    }
    return ArtNet::Adapter::GetChoice().empty() ? AdapterTexts::tr("no adapter has an address")
                                                : AdapterTexts::tr("it is chosen, and no other takes its place");
}

// What keeps servers from being heard: the chosen adapter, or the one that was passed over.
QString problemOf(const ArtNet::Adapter& adapter)
{
    const std::vector<Os::NetworkAdapter> all = Os::NetworkAdapter::GetAll();
    const auto isDown = [](const Os::NetworkAdapter& other) {
        return !other.GetState().loopback && !(other.GetState().up && other.GetState().running);
    };
    const auto named = std::find_if(
        all.begin(), all.end(), [&](const Os::NetworkAdapter& other) { return other.GetName() == adapter.GetName(); });
    if (!adapter.IsValid() && !adapter.GetName().empty())
        return named == all.end() ? AdapterTexts::tr("missing") : AdapterTexts::tr("no address");
    if (named != all.end() && isDown(*named))
        return AdapterTexts::tr("link down");
    const auto down = std::find_if(all.begin(), all.end(), [&](const Os::NetworkAdapter& other) {
        return isDown(other) && other.GetState().ipAddress != 0;
    });
    if (adapter.GetReason() == ArtNet::Adapter::Reason::Loopback && down != all.end())
        return AdapterTexts::tr("%1 is down").arg(QString::fromStdString(down->GetName()));
    return {};
}
} // namespace

AdapterState adapterInUse()
{
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    return {QString::fromStdString(adapter.GetName()),
            adapter.IsValid() ? QHostAddress(adapter.GetIpAddress()).toString() : QString(), reasonFor(adapter),
            problemOf(adapter)};
}

std::vector<AdapterOption> availableAdapters()
{
    std::vector<AdapterOption> options;
    for (const Os::NetworkAdapter& adapter : Os::NetworkAdapter::GetAll()) {
        const Os::NetworkAdapter::State& state = adapter.GetState();
        if (state.ipAddresses.empty())
            continue;
        AdapterOption option;
        for (const std::uint32_t address : state.ipAddresses)
            option.addresses << QHostAddress(address).toString();
        const QString addresses = option.addresses.join(QStringLiteral(", "));
        option.name = QString::fromStdString(adapter.GetName());
        option.isUp = state.up && state.running;
        option.text = option.isUp ? AdapterTexts::tr("%1 (%2)").arg(option.name, addresses)
                                  : AdapterTexts::tr("%1 (%2), down").arg(option.name, addresses);
        options.push_back(option);
    }
    return options;
}

QString adapterChoice()
{
    return QString::fromStdString(ArtNet::Adapter::GetChoice());
}

void chooseAdapter(const QString& name)
{
    ArtNet::Adapter::Choose(name.toStdString());
}
} // namespace Browser

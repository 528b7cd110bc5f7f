// The command "adapters", and functions for other commands to select and describe an adapter.
// SPDX-License-Identifier: Apache-2.0
#include "adapters.h"

#include <QHostAddress>
#include <QJsonArray>

#include "commands.h"

namespace Console {
namespace {
using Os::NetworkAdapter;

QStringList addressesOf(const NetworkAdapter::State& state)
{
    QStringList addresses;
    for (const std::uint32_t address : state.ipAddresses)
        addresses << QHostAddress(address).toString();
    return addresses;
}

QString stateText(const NetworkAdapter::State& state)
{
    QStringList words{state.up ? "up" : "down"};
    if (state.up && !state.running)
        words << "no carrier";
    if (state.loopback)
        words << "loopback";
    else if (!state.multicast)
        words << "no multicast";
    return words.join(", ");
}

void printAsText(const std::vector<NetworkAdapter>& all, const ArtNet::Adapter& used)
{
    int width = 7;
    for (const NetworkAdapter& adapter : all)
        width = qMax(width, static_cast<int>(adapterName(adapter).size()));
    const auto row = [width](const QString& mark, const QString& name, const QString& state, const QString& addresses) {
        printLine(QString("%1 %2  %3  %4").arg(mark, name.leftJustified(width), state.leftJustified(24), addresses));
    };
    row(" ", "ADAPTER", "STATE", "ADDRESSES");
    for (const NetworkAdapter& adapter : all) {
        const QStringList addresses = addressesOf(adapter.GetState());
        row(used.IsValid() && adapter.GetName() == used.GetName() ? "*" : " ", adapterName(adapter),
            stateText(adapter.GetState()), addresses.isEmpty() ? "-" : addresses.join(", "));
    }
    printLine(QString("used: %1 (%2)").arg(nameAndAddress(used), reasonFor(used)));
}

void printAsJson(const std::vector<NetworkAdapter>& all, const ArtNet::Adapter& used)
{
    for (const NetworkAdapter& adapter : all) {
        const NetworkAdapter::State& state = adapter.GetState();
        const bool isUsed = used.IsValid() && adapter.GetName() == used.GetName();
        QJsonObject object{{"record", "adapter"},
                           {"adapter", QString::fromStdString(adapter.GetName())},
                           {"addresses", QJsonArray::fromStringList(addressesOf(state))},
                           {"up", state.up},
                           {"carrier", state.running},
                           {"multicast", state.multicast},
                           {"loopback", state.loopback},
                           {"used", isUsed}};
        if (isUsed) {
            object.insert("address", QHostAddress(used.GetIpAddress()).toString());
            object.insert("reason", reasonFor(used));
        }
        printJson(object);
    }
}
} // namespace

QString chooseAdapter(const QString& nameOrAddress)
{
    const QHostAddress wanted(nameOrAddress);
    for (const NetworkAdapter& adapter : NetworkAdapter::GetAll()) {
        bool matches = QString::fromStdString(adapter.GetName()) == nameOrAddress;
        for (const std::uint32_t address : adapter.GetState().ipAddresses)
            matches = matches || QHostAddress(address) == wanted;
        if (matches) {
            ArtNet::Adapter::Choose(nameOrAddress.toStdString());
            return {};
        }
    }
    return QString("--adapter: '%1' is no adapter or IPv4 address of this machine; 'citp-console adapters' lists them")
        .arg(escapeControls(nameOrAddress));
}

std::optional<NetworkAdapter> findAdapter(const ArtNet::Adapter& used)
{
    for (const NetworkAdapter& adapter : NetworkAdapter::GetAll()) {
        if (adapter.GetName() == used.GetName())
            return adapter;
    }
    return std::nullopt;
}

QString reasonFor(const ArtNet::Adapter& adapter)
{
    switch (adapter.GetReason()) {
        case ArtNet::Adapter::Reason::Explicit:
            return "chosen by --adapter or the environment variable ARTNET_ADAPTER";
        case ArtNet::Adapter::Reason::PrimaryRange:
            return "the first that is up with an address in 2.0.0.0/8";
        case ArtNet::Adapter::Reason::SecondaryRange:
            return "the first that is up with an address in 10.0.0.0/8; none has one in 2.0.0.0/8";
        case ArtNet::Adapter::Reason::AnyAddress:
            return "the first that is up with an address; none has one in 2.0.0.0/8 or 10.0.0.0/8";
        case ArtNet::Adapter::Reason::Loopback:
            return "no other adapter is up with multicast and an address";
        case ArtNet::Adapter::Reason::None:
            break;
    }
    if (ArtNet::Adapter::GetChoice().empty())
        return "no adapter has an address";
    return "it was chosen, but does not exist or has no address";
}

QString nameAndAddress(const ArtNet::Adapter& adapter)
{
    const QString name = adapterName(adapter);
    if (adapter.IsValid())
        return QString("%1, %2").arg(name, QHostAddress(adapter.GetIpAddress()).toString());
    return name.isEmpty() ? QString("none") : QString("none, not '%1'").arg(name);
}

int listAdapters(const Options& options)
{
    const std::vector<NetworkAdapter> all = NetworkAdapter::GetAll();
    const ArtNet::Adapter used = ArtNet::Adapter::Get();
    if (options.json)
        printAsJson(all, used);
    else
        printAsText(all, used);
    return 0;
}
} // namespace Console

// Selection of the adapter and of addresses on it.
// SPDX-License-Identifier: Apache-2.0
#include "addresses.h"

#include <algorithm>

namespace MediaServer {
namespace {
bool isUp(const QNetworkInterface& adapter)
{
    return adapter.flags().testFlag(QNetworkInterface::IsUp);
}

bool isLoopback(const QNetworkInterface& adapter)
{
    return adapter.flags().testFlag(QNetworkInterface::IsLoopBack);
}

std::vector<QHostAddress> addressesOf(const QNetworkInterface& adapter)
{
    std::vector<QHostAddress> addresses;
    const auto entries = adapter.addressEntries();
    for (const QNetworkAddressEntry& entry : entries) {
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
            addresses.push_back(entry.ip());
    }
    return addresses;
}

// Lower is better: the order in which a console selects its adapter.
int rank(const QNetworkInterface& adapter)
{
    if (isLoopback(adapter))
        return 3;
    int best = 2;
    for (const QHostAddress& address : addressesOf(adapter)) {
        const quint32 network = address.toIPv4Address() >> 24;
        best = std::min(best, network == 2 ? 0 : network == 10 ? 1 : 2);
    }
    return best;
}

bool matches(const QNetworkInterface& adapter, const QString& wanted)
{
    if (adapter.name() == wanted)
        return true;
    const QHostAddress address(wanted);
    if (address.protocol() != QAbstractSocket::IPv4Protocol)
        return false;
    if (isLoopback(adapter))
        return address.isLoopback();
    const std::vector<QHostAddress> own = addressesOf(adapter);
    return std::find(own.begin(), own.end(), address) != own.end();
}
} // namespace

QNetworkInterface findAdapter(const QString& wanted, bool multicast, QString& problem)
{
    QNetworkInterface best;
    const auto adapters = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& adapter : adapters) {
        if (!wanted.isEmpty() && !matches(adapter, wanted))
            continue;
        if (!isUp(adapter)) {
            problem = QString("the adapter %1 is down: bring it up (ip link set %1 up)").arg(adapter.name());
            continue;
        }
        if (addressesOf(adapter).empty()) {
            problem = QString("the adapter %1 has no IPv4 address: assign one").arg(adapter.name());
            continue;
        }
        if (multicast && !isLoopback(adapter) && !adapter.flags().testFlag(QNetworkInterface::CanMulticast)) {
            problem = QString("the adapter %1 does not support multicast: choose another, or --group none")
                          .arg(adapter.name());
            continue;
        }
        if (!best.isValid() || rank(adapter) < rank(best))
            best = adapter;
    }
    if (best.isValid())
        problem.clear();
    else if (wanted.isEmpty())
        problem = "no usable adapter: bring one up and assign an IPv4 address";
    else if (problem.isEmpty())
        problem =
            QString("no adapter has the name or address '%1': choose one of those that 'ip addr' lists").arg(wanted);
    return best;
}

std::vector<Endpoint> assignEndpoints(const QNetworkInterface& adapter, const QHostAddress& first, quint16 port,
                                      int count, QString& problem)
{
    std::vector<QHostAddress> addresses;
    if (isLoopback(adapter)) {
        const quint32 begin = first.isNull() ? 0x7F000002U : first.toIPv4Address();
        if (begin >> 24 != 127 || (begin + static_cast<quint32>(count) - 1) >> 24 != 127) {
            problem = QString("'%1': some addresses would be outside of 127.0.0.0/8; choose a lower one")
                          .arg(first.toString());
            return {};
        }
        for (int i = 0; i < count; ++i)
            addresses.emplace_back(begin + static_cast<quint32>(i));
    } else {
        addresses = addressesOf(adapter);
        const auto begin = std::find(addresses.begin(), addresses.end(), first);
        if (!first.isNull() && begin == addresses.end()) {
            problem = QString("'%1' is not an address of the adapter %2: assign it, or choose another")
                          .arg(first.toString(), adapter.name());
            return {};
        }
        if (!first.isNull())
            std::rotate(addresses.begin(), begin, addresses.end());
    }
    std::vector<Endpoint> endpoints;
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<std::size_t>(i) % addresses.size();
        endpoints.push_back({addresses[index], static_cast<quint16>(port + i)});
    }
    return endpoints;
}
} // namespace MediaServer

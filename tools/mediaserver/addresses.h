// Selects the network adapter for announcements and assigns an address and a port to each server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHostAddress>
#include <QNetworkInterface>
#include <QString>
#include <vector>

namespace MediaServer {
/// Address and port of a server.
struct Endpoint
{
    QHostAddress address;
    quint16 port = 0;
};

/// Finds the adapter for announcements.
/// @param wanted name or IPv4 address of the adapter; if empty, the first adapter with an address in 2.0.0.0/8, else in
/// 10.0.0.0/8, else any other, else loopback, like a console on this machine
/// @param multicast whether the adapter must support multicast
/// @param problem set to an error message of one line if no adapter is found
/// @return an invalid interface if no adapter is found
QNetworkInterface findAdapter(const QString& wanted, bool multicast, QString& problem);

/// Assigns endpoints to @p count servers. Ports count up from @p port. On loopback, addresses count up from 127.0.0.2;
/// on other adapters, the addresses of the adapter are used in turn.
/// @param first the first address; null for the default
/// @param problem set if @p first is not an address of the adapter
/// @return empty on error
std::vector<Endpoint> assignEndpoints(const QNetworkInterface& adapter, const QHostAddress& first, quint16 port,
                                      int count, QString& problem);
} // namespace MediaServer

// The adapter to announce on, and an address and port for each server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHostAddress>
#include <QNetworkInterface>
#include <QString>
#include <vector>

namespace MediaServer {
/// Where one server lives.
struct Place
{
    QHostAddress address;
    quint16 port = 0;
};

/// Finds the adapter that servers are announced on.
/// @param wanted its name or one of its IPv4 addresses; empty takes the first adapter with an address in 2.0.0.0/8,
///        else in 10.0.0.0/8, else any other, else loopback, so that a console on this machine chooses the same one
/// @param problem set if none is found: one line that says what to do
/// @return an invalid interface if none is found
QNetworkInterface findAdapter(const QString& wanted, QString& problem);

/// Gives each of @p count servers a place. Ports count up from @p port. Addresses count up on loopback, from
/// 127.0.0.2; on other adapters its addresses are used in turn.
/// @param first where addresses begin; null for the default
/// @param problem set if @p first is not an address of the adapter
/// @return empty if there is a problem
std::vector<Place> placeServers(const QNetworkInterface& adapter, const QHostAddress& first, quint16 port, int count,
                                QString& problem);
} // namespace MediaServer

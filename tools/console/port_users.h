// Finds the programs on this machine that have a UDP port open.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Console {
/// The programs with a socket on UDP @p port (IPv4) in this network namespace, except this one, as a list separated by
/// commas: "citp-console (process 123)". Control characters are escaped. The kernel lists the sockets of all users, but
/// hides which process owns the socket of another user; the list then ends with "a program of another user". Empty if
/// the port is free.
QString programsOnUdpPort(quint16 port);
} // namespace Console

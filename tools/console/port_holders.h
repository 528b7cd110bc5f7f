// Which programs of this machine have a UDP port open.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Console {
/// The programs that have a socket on UDP @p port (IPv4) in this network namespace, this one left out, for people and
/// harmless: "citp-console (process 123)", with commas between. The kernel shows the sockets of all users, but whose
/// they are only to those who may know: what is left over is "a program of another user". Empty if the port is free.
QString programsOnUdpPort(quint16 port);
} // namespace Console

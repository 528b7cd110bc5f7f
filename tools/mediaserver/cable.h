// Simulates a network cable that is pulled, for the sockets of a server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

namespace MediaServer {
/// Disconnects a TCP socket from the network or connects it again. A disconnected socket receives nothing: its kernel
/// neither acknowledges nor answers anything, connection attempts and keep-alive probes included. What was sent before
/// and is not acknowledged is still repeated, so the caller must have stopped sending. Needs no privileges.
void setCable(qintptr socket, bool isConnected);
} // namespace MediaServer

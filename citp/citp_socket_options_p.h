// TCP options that neither Qt nor the system library offers. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CITP {
/// The keep-alive times of a connection, in seconds, and the limit for unacknowledged data, in ms.
struct PeerTimeout
{
    int idle;           ///< TCP_KEEPIDLE
    int interval;       ///< TCP_KEEPINTVL
    int probes;         ///< TCP_KEEPCNT
    int unacknowledged; ///< TCP_USER_TIMEOUT, which also ends keep-alive; 0: the time of the system
};

/// The times with which the end of a peer is seen after @p milliseconds; 0: the times of a new socket.
PeerTimeout peerTimeout(int milliseconds);

/// Errors are ignored: the connection then has the times of the system.
void setPeerTimeout(int descriptor, const PeerTimeout& timeout);
} // namespace CITP

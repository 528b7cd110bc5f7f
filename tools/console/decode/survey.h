// Survey: which of a capture's packets belong to CITP, and which end of a connection is the server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <set>
#include <utility>

#include "packet.h"

namespace Console {
constexpr quint16 DiscoveryPort = 4809;

/// Learns from the packets of a capture, in their order. A connection is taken for CITP if one of its ends has been
/// announced (PLoc), or if the header of a message was seen in it.
class Survey
{
public:
    /// Both ends of a connection, the lower one first.
    using Connection = std::pair<Endpoint, Endpoint>;

    static Connection connectionOf(const Packet& packet);

    /// Learns from @p packet.
    /// @return whether it belongs to CITP as far as is known by now
    bool take(const Packet& packet);

    /// Whether what has been learnt makes @p packet one of CITP's.
    bool isCitp(const Packet& packet) const;
    /// Which end of @p connection, one of CITP's, is the server: the announced one, or else the likely one.
    Endpoint serverOf(const Connection& connection) const;
    /// Whether that is more than likely.
    bool isServerSure(const Connection& connection) const;

private:
    struct Guess
    {
        Endpoint server;
        bool isSure = false; ///< it has said something that only a server says, or was asked for it
    };

    void learnFromDatagram(const Packet& packet);
    void learnFromSegment(const Packet& packet);

    std::set<Endpoint> m_announced;
    std::map<Connection, Guess> m_connections; ///< those in which a header was seen; an announced end needs no guess
};
} // namespace Console

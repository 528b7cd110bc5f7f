// Packets: what a captured frame carries, from the link layer up to the payload of UDP or TCP.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <tuple>

namespace Console {
/// One end of a datagram or connection.
struct Endpoint
{
    quint32 address = 0; ///< IPv4, the first byte highest
    quint16 port = 0;

    bool operator==(const Endpoint& other) const { return address == other.address && port == other.port; }
    bool operator<(const Endpoint& other) const
    {
        return std::tie(address, port) < std::tie(other.address, other.port);
    }
};

/// "2.0.0.10:4811", as the keys of servers are written.
QString toText(const Endpoint& endpoint);

/// What one captured frame carries.
struct Packet
{
    enum class Kind {
        Other,    ///< neither UDP nor TCP over IPv4; nothing but the time is filled in
        Damaged,  ///< its headers are cut short or contradict one another; the same
        Fragment, ///< one of the pieces of an IPv4 packet; ports are filled in for the first piece alone
        Udp,
        Tcp,
    };
    Kind kind = Kind::Other;
    qint64 timeUs = 0;  ///< microseconds since 1970, UTC
    bool isUdp = false; ///< of a fragment: what it is a fragment of; otherwise as #kind says
    Endpoint from;
    Endpoint to;
    quint32 sequence = 0;     ///< TCP: number of the first byte of #data, or of the SYN before it
    quint32 acknowledged = 0; ///< TCP: number of the next byte that the sender expects, if #hasAcknowledged
    bool hasAcknowledged = false;
    bool isSyn = false;
    bool isFin = false;
    bool isReset = false;
    /// The payload as far as it was captured. It refers to the frame's bytes and is good as long as those are.
    QByteArray data;
    int length = 0; ///< bytes of payload that were on the wire; at least those of #data
};

/// Whether frames of this libpcap link type (DLT_...) can be read.
bool isKnownLinkType(int linkType);

/// Reads a frame of @p linkType. Never looks beyond @p frame, whatever the lengths in it say.
/// @param timeUs when it was captured; passed on
Packet readPacket(int linkType, const QByteArray& frame, qint64 timeUs);
} // namespace Console

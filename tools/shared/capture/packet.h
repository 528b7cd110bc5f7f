// Parsing of captured frames, from the link layer to the payload of UDP or TCP.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <tuple>

namespace Tools {
/// Source or destination of a packet.
struct Endpoint
{
    quint32 address = 0; ///< IPv4, host byte order
    quint16 port = 0;

    bool operator==(const Endpoint& other) const { return address == other.address && port == other.port; }
    bool operator<(const Endpoint& other) const
    {
        return std::tie(address, port) < std::tie(other.address, other.port);
    }
};

/// "2.0.0.10:4811", the format of server keys.
QString toText(const Endpoint& endpoint);

/// A parsed frame.
struct Packet
{
    enum class Kind {
        Other,    ///< neither UDP nor TCP over IPv4; only the time is set
        Damaged,  ///< headers truncated or inconsistent; only the time is valid
        Fragment, ///< IPv4 fragment; the ports are set only for the first fragment
        Udp,
        Tcp,
    };
    Kind kind = Kind::Other;
    qint64 timeUs = 0;  ///< microseconds since 1970, UTC
    bool isUdp = false; ///< UDP or, if false, TCP; also set for fragments
    Endpoint from;
    Endpoint to;
    quint32 sequence = 0;     ///< TCP sequence number
    quint32 acknowledged = 0; ///< TCP acknowledgement number, valid if #hasAcknowledged
    bool hasAcknowledged = false;
    bool isSyn = false;
    bool isFin = false;
    bool isReset = false;
    /// The captured part of the payload. Refers to the bytes of the frame and is valid only as long as they are.
    QByteArray data;
    int length = 0; ///< length of the payload on the wire, at least the size of #data
};

/// Whether readPacket() supports this libpcap link type (DLT_...).
bool isKnownLinkType(int linkType);

/// Parses a frame of @p linkType. Never reads beyond @p frame, whatever lengths it contains.
/// @param timeUs capture time, copied to the packet
Packet readPacket(int linkType, const QByteArray& frame, qint64 timeUs);
} // namespace Tools

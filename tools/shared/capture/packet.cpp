// Parsing of frames: link layers, VLAN tags, IPv4, UDP and TCP.
// SPDX-License-Identifier: Apache-2.0
#include "packet.h"

#include <pcap/dlt.h>

#include <QHostAddress>
#include <QtEndian>

namespace Tools {
namespace {
constexpr quint16 Ipv4 = 0x0800;

// The remaining bytes of a frame.
class Bytes
{
public:
    Bytes(const char* data, int size) : m_data(data), m_size(size) {}

    int size() const { return m_size; }
    const char* data() const { return m_data; }
    bool has(int count) const { return m_size >= count; }
    quint8 u8(int offset) const { return static_cast<quint8>(m_data[offset]); }
    quint16 u16(int offset) const { return qFromBigEndian<quint16>(m_data + offset); }
    quint32 u32(int offset) const { return qFromBigEndian<quint32>(m_data + offset); }
    void skip(int count)
    {
        m_data += count;
        m_size -= count;
    }
    void keep(int count) { m_size = qMin(m_size, count); }

private:
    const char* m_data;
    int m_size;
};

bool isVlanTag(quint16 type)
{
    return type == 0x8100 || type == 0x88a8 || type == 0x9100 || type == 0x9200;
}

// Skips a header and the VLAN tags after it. Returns the protocol number at @p typeOffset, or 0 if truncated.
// @p typeOffset, or 0 if the frame is truncated.
quint16 skipHeader(Bytes& bytes, int typeOffset, int length)
{
    if (!bytes.has(length))
        return 0;
    quint16 type = bytes.u16(typeOffset);
    bytes.skip(length);
    while (isVlanTag(type)) {
        if (!bytes.has(4))
            return 0;
        type = bytes.u16(2);
        bytes.skip(4);
    }
    return type;
}

// Loopback headers are four bytes in the byte order of the capturing machine, so both byte orders are accepted.
quint16 skipFamily(Bytes& bytes)
{
    constexpr quint32 Inet = 2;
    if (!bytes.has(4))
        return 0;
    const quint32 big = bytes.u32(0);
    const bool isInet = big == Inet || big == Inet << 24;
    bytes.skip(4);
    return isInet ? Ipv4 : 1;
}

// Returns the protocol number, or 0 if the frame is truncated.
quint16 skipLinkLayer(int linkType, Bytes& bytes)
{
    switch (linkType) {
        case DLT_EN10MB:
            return skipHeader(bytes, 12, 14);
        case DLT_LINUX_SLL:
            return skipHeader(bytes, 14, 16);
        case DLT_LINUX_SLL2:
            return skipHeader(bytes, 0, 20);
        case DLT_NULL:
        case DLT_LOOP:
            return skipFamily(bytes);
        default:
            return !bytes.has(1) ? 0 : bytes.u8(0) >> 4 == 4 ? Ipv4 : 1;
    }
}

void readUdp(Bytes bytes, int length, Packet& packet)
{
    constexpr int HeaderLength = 8;
    const int declared = bytes.has(HeaderLength) ? bytes.u16(4) : 0;
    if (declared < HeaderLength || declared > length) {
        packet.kind = Packet::Kind::Damaged;
        return;
    }
    packet.kind = Packet::Kind::Udp;
    packet.isUdp = true;
    packet.from.port = bytes.u16(0);
    packet.to.port = bytes.u16(2);
    packet.length = declared - HeaderLength;
    bytes.skip(HeaderLength);
    bytes.keep(packet.length);
    packet.data = QByteArray::fromRawData(bytes.data(), bytes.size());
}

void readTcp(Bytes bytes, int length, Packet& packet)
{
    constexpr int MinLength = 20;
    const int headerLength = bytes.has(MinLength) ? (bytes.u8(12) >> 4) * 4 : 0;
    if (headerLength < MinLength || headerLength > length) {
        packet.kind = Packet::Kind::Damaged;
        return;
    }
    const quint8 flags = bytes.u8(13);
    packet.kind = Packet::Kind::Tcp;
    packet.from.port = bytes.u16(0);
    packet.to.port = bytes.u16(2);
    packet.sequence = bytes.u32(4);
    packet.acknowledged = bytes.u32(8);
    packet.isFin = flags & 0x01;
    packet.isSyn = flags & 0x02;
    packet.isReset = flags & 0x04;
    packet.hasAcknowledged = flags & 0x10;
    packet.length = length - headerLength;
    // The capture may be truncated within the options.
    bytes.skip(qMin(headerLength, bytes.size()));
    packet.data = QByteArray::fromRawData(bytes.data(), bytes.size());
}

void readIpv4(Bytes bytes, Packet& packet)
{
    constexpr int MinLength = 20;
    constexpr quint8 Tcp = 6;
    constexpr quint8 Udp = 17;
    const int headerLength = bytes.has(MinLength) ? (bytes.u8(0) & 0x0f) * 4 : 0;
    if (headerLength < MinLength || bytes.u8(0) >> 4 != 4 || !bytes.has(headerLength)) {
        packet.kind = Packet::Kind::Damaged;
        return;
    }
    // With segmentation offload, outgoing packets can have a length of 0. The packet then extends to the end of the
    // frame.
    const int declared = bytes.u16(2);
    const int total = declared == 0 ? bytes.size() : declared;
    const quint16 fragment = bytes.u16(6);
    const quint8 protocol = bytes.u8(9);
    if (total < headerLength) {
        packet.kind = Packet::Kind::Damaged;
        return;
    }
    if (protocol != Udp && protocol != Tcp)
        return;
    packet.from.address = bytes.u32(12);
    packet.to.address = bytes.u32(16);
    packet.isUdp = protocol == Udp;
    bytes.keep(total);
    bytes.skip(headerLength);
    if ((fragment & 0x3fff) != 0) {
        packet.kind = Packet::Kind::Fragment;
        if ((fragment & 0x1fff) == 0 && bytes.has(4)) {
            packet.from.port = bytes.u16(0);
            packet.to.port = bytes.u16(2);
        }
        return;
    }
    if (protocol == Udp)
        readUdp(bytes, total - headerLength, packet);
    else
        readTcp(bytes, total - headerLength, packet);
}
} // namespace

QString toText(const Endpoint& endpoint)
{
    return QString("%1:%2").arg(QHostAddress(endpoint.address).toString()).arg(endpoint.port);
}

bool isKnownLinkType(int linkType)
{
    switch (linkType) {
        case DLT_EN10MB:
        case DLT_LINUX_SLL:
        case DLT_LINUX_SLL2:
        case DLT_NULL:
        case DLT_LOOP:
        case DLT_RAW:
        case DLT_IPV4:
            return true;
        default:
            return false;
    }
}

Packet readPacket(int linkType, const QByteArray& frame, qint64 timeUs)
{
    Packet packet;
    packet.timeUs = timeUs;
    Bytes bytes(frame.constData(), static_cast<int>(frame.size()));
    const quint16 type = skipLinkLayer(linkType, bytes);
    if (type == 0)
        packet.kind = Packet::Kind::Damaged;
    else if (type == Ipv4)
        readIpv4(bytes, packet);
    return packet;
}
} // namespace Tools

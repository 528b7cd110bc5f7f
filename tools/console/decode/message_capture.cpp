// Building of IP packets from messages.
// SPDX-License-Identifier: Apache-2.0
#include "message_capture.h"

#include <netinet/in.h>

#include <QtEndian>
#include <algorithm>

#include "printing.h"
#include "shutdown.h"

namespace Console {
namespace {
constexpr int IpHeaderBytes = 20;
constexpr int TcpHeaderBytes = 20;
constexpr int UdpHeaderBytes = 8;
constexpr int MaxSegmentBytes = 60000;
constexpr int MaxPacketBytes = 65535;
constexpr quint8 TimeToLive = 64;
constexpr quint32 FirstSequence = 1000000;
enum TcpFlag : quint8 { Fin = 1, Syn = 2, Reset = 4, Ack = 16 };

constexpr int SizeOffset = 8;          // of a CITP message
constexpr int MinorVersionOffset = 21; // of an MSEX message
constexpr int MsexHeaderBytes = 26;

void append16(QByteArray& bytes, int value)
{
    const quint16 raw = qToBigEndian(static_cast<quint16>(value));
    bytes.append(reinterpret_cast<const char*>(&raw), sizeof raw);
}

void append32(QByteArray& bytes, quint32 value)
{
    const quint32 raw = qToBigEndian(value);
    bytes.append(reinterpret_cast<const char*>(&raw), sizeof raw);
}

// The checksum of RFC 1071.
int checksum(const QByteArray& bytes)
{
    quint64 sum = 0;
    for (int at = 0; at < bytes.size(); at += 2) {
        const int low = at + 1 < bytes.size() ? static_cast<quint8>(bytes.at(at + 1)) : 0;
        sum += static_cast<quint64>(static_cast<quint8>(bytes.at(at)) << 8 | low);
    }
    while (sum >> 16 != 0)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<int>(~sum & 0xffff);
}

// TCP and UDP sum up these fields of the IP header, too.
int checksum(const Tools::Endpoint& from, const Tools::Endpoint& to, quint8 protocol, const QByteArray& payload)
{
    QByteArray summed;
    append32(summed, from.address);
    append32(summed, to.address);
    append16(summed, protocol);
    append16(summed, static_cast<int>(payload.size()));
    return checksum(summed + payload);
}

void setChecksum(QByteArray& bytes, int offset, int sum)
{
    qToBigEndian(static_cast<quint16>(sum), bytes.data() + offset);
}
} // namespace

QByteArray withoutPicture(const QByteArray& message, const QString& code)
{
    const bool isElement = code == QLatin1String("EThn");
    if ((!isElement && code != QLatin1String("ELTh")) || message.size() < MsexHeaderBytes)
        return message;
    // Behind the header: library type, library (a number in MSEX 1.0, else an id), element, format, width and height.
    const int libraryBytes = message.at(MinorVersionOffset) == 0 ? 1 : 4;
    const int sizeOffset = MsexHeaderBytes + 1 + libraryBytes + (isElement ? 1 : 0) + 4 + 2 + 2;
    if (message.size() < sizeOffset)
        return message;
    QByteArray shortened = message.left(sizeOffset) + QByteArray(2, '\0');
    qToLittleEndian(static_cast<quint32>(shortened.size()), shortened.data() + SizeOffset);
    return shortened;
}

MessageCapture::MessageCapture(const QString& file, bool hasPictures)
    : m_hasPictures(hasPictures), m_capture(pcap_open_dead(DLT_RAW, MaxPacketBytes)), m_file(m_capture.get(), file)
{
}

void MessageCapture::add(const Event& event)
{
    const Direction direction{event.from, event.to};
    switch (event.kind) {
        case Tools::StreamItem::Kind::Message:
            addMessage(event);
            return;
        case Tools::StreamItem::Kind::Gap:
            if (event.direction != Event::Direction::Discovery)
                m_next[direction] += static_cast<quint32>(std::max<qint64>(event.missing, 1));
            return;
        case Tools::StreamItem::Kind::Note:
            addNote(event);
            return;
        case Tools::StreamItem::Kind::Error:
            ++m_marks;
            return;
    }
}

void MessageCapture::addNote(const Event& event)
{
    const Direction direction{event.from, event.to};
    const Direction reverse{event.to, event.from};
    if (event.isConnecting) {
        // Not those of an earlier connection, whose SYN would be sent again.
        m_next[direction] += FirstSequence;
        m_next[reverse] += FirstSequence;
        writeSegment(direction, Syn, {}, event.timeUs);
        writeSegment(reverse, Syn | Ack, {}, event.timeUs);
    } else if (event.isReset) {
        writeSegment(direction, Reset | Ack, {}, event.timeUs);
    } else if (event.isEnding) {
        writeSegment(direction, Fin | Ack, {}, event.timeUs);
    } else {
        ++m_marks;
    }
}

void MessageCapture::addMessage(const Event& event)
{
    // A frame of a stream is a picture as a whole.
    const bool isFrame = event.code == QLatin1String("StFr");
    const QByteArray message = m_hasPictures ? event.message : withoutPicture(event.message, event.code);
    if (message.size() < event.message.size() || (isFrame && !m_hasPictures))
        ++m_pictures;
    if (isFrame && !m_hasPictures)
        return;
    ++m_messages;
    const Direction direction{event.from, event.to};
    if (event.direction != Event::Direction::Discovery) {
        for (int at = 0; at < message.size(); at += MaxSegmentBytes)
            writeSegment(direction, Ack, message.mid(at, MaxSegmentBytes), event.timeUs);
        return;
    }
    QByteArray datagram;
    append16(datagram, event.from.port);
    append16(datagram, event.to.port);
    append16(datagram, static_cast<int>(UdpHeaderBytes + message.size()));
    append16(datagram, 0);
    datagram += message;
    setChecksum(datagram, 6, checksum(event.from, event.to, IPPROTO_UDP, datagram));
    writePacket(direction, IPPROTO_UDP, datagram, event.timeUs);
}

void MessageCapture::writeSegment(const Direction& direction, quint8 flags, const QByteArray& data, qint64 timeUs)
{
    quint32& next = m_next[direction];
    QByteArray segment;
    append16(segment, direction.first.port);
    append16(segment, direction.second.port);
    append32(segment, next);
    append32(segment, (flags & Ack) != 0 ? m_next[{direction.second, direction.first}] : 0);
    segment.append(static_cast<char>(TcpHeaderBytes / 4 << 4)).append(static_cast<char>(flags));
    append16(segment, 65535); // window
    append32(segment, 0);     // checksum, urgent pointer
    segment += data;
    setChecksum(segment, 16, checksum(direction.first, direction.second, IPPROTO_TCP, segment));
    writePacket(direction, IPPROTO_TCP, segment, timeUs);
    // What was lost before the end can follow it, so that a FIN takes no number.
    next += static_cast<quint32>(data.size()) + ((flags & Syn) != 0 ? 1 : 0);
}

void MessageCapture::writePacket(const Direction& direction, quint8 protocol, const QByteArray& payload, qint64 timeUs)
{
    QByteArray packet;
    append16(packet, 0x4500); // version 4, header of 5 words
    append16(packet, static_cast<int>(IpHeaderBytes + payload.size()));
    append32(packet, 0); // identification, fragment
    packet.append(static_cast<char>(TimeToLive)).append(static_cast<char>(protocol));
    append16(packet, 0);
    append32(packet, direction.first.address);
    append32(packet, direction.second.address);
    setChecksum(packet, 10, checksum(packet));
    packet += payload;
    pcap_pkthdr header{};
    header.ts.tv_sec = static_cast<time_t>(timeUs / 1000000);
    header.ts.tv_usec = static_cast<suseconds_t>(timeUs % 1000000);
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;
    m_file.write(header, packet);
}

void MessageCapture::finish()
{
    if (!m_file.commit())
        throw Failure{m_file.problem()};
    QString text = QString("%1 messages written to %2").arg(QString::number(m_messages), m_file.name());
    if (!m_hasPictures)
        text += QString(", %1 pictures left out").arg(m_pictures);
    if (m_marks > 0)
        text += QString("; %1 errors and notes are not in it").arg(m_marks);
    if (m_file.isPiped())
        warn(text);
    else
        printLine(text);
}
} // namespace Console

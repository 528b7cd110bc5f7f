// Building of IP packets from messages.
// SPDX-License-Identifier: Apache-2.0
#include "message_capture.h"

#include <netinet/in.h>

#include <QtEndian>
#include <algorithm>
#include <utility>

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
constexpr quint32 SequenceStep = 1000000;
// So far back that it is no retransmission.
constexpr quint32 UnknownGapBytes = 32 << 20;
constexpr qint64 MaxGapBytes = 16 << 20;
enum TcpFlag : quint8 { Fin = 1, Syn = 2, Reset = 4, Ack = 16 };

constexpr int SizeOffset = 8; // of a CITP message
constexpr int PartCountOffset = 12;
constexpr int PartOffset = 14;
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

// Cuts the picture off an ELTh or EThn.
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

// Whether pictures could stay in @p message: in another message that it swallows, because it declares too many bytes,
// or in a part without the fields of the first.
bool canHidePicture(const QByteArray& message)
{
    const bool isFurtherPart = qFromLittleEndian<quint16>(message.constData() + PartCountOffset) > 1 &&
                               qFromLittleEndian<quint16>(message.constData() + PartOffset) > 0;
    return isFurtherPart || Tools::MessageHeader::find(message, 1) >= 0;
}
} // namespace

MessageCapture::MessageCapture(const QString& file, bool hasPictures)
    : m_hasPictures(hasPictures), m_capture(pcap_open_dead(DLT_RAW, MaxPacketBytes)), m_file(m_capture.get(), file)
{
}

MessageCapture::Flow& MessageCapture::flow(const Direction& direction)
{
    const auto known = m_flows.find(direction);
    if (known != m_flows.end())
        return known->second;
    // What still follows the end of a connection follows soon. The decoder limits those that have not ended.
    while (m_flows.size() >= 4 * Tools::Decoder::MaxConnections && !m_ended.empty()) {
        m_flows.erase(m_ended.front());
        m_ended.pop_front();
    }
    return m_flows[direction];
}

void MessageCapture::add(const Event& event)
{
    switch (event.kind) {
        case Tools::StreamItem::Kind::Message:
            addMessage(event);
            return;
        case Tools::StreamItem::Kind::Gap:
            addGap(event);
            return;
        case Tools::StreamItem::Kind::Note:
            addNote(event);
            return;
        case Tools::StreamItem::Kind::Error:
            ++m_others;
            return;
    }
}

void MessageCapture::addNote(const Event& event)
{
    const Direction direction{event.from, event.to};
    const Direction reverse{event.to, event.from};
    if (event.isConnecting) {
        // Not that of an earlier connection, whose SYN would be sent again.
        m_first += SequenceStep;
        flow(direction) = {m_first, false};
        flow(reverse) = {m_first, false};
        writeSegment(direction, Syn, {}, event.timeUs);
        flow(reverse).isAwaited = true;
    } else if (event.isReset) {
        if (!event.isRefused)
            accept(direction, event.timeUs);
        writeSegment(direction, Reset | Ack, {}, event.timeUs);
        m_flows.erase(direction);
        m_flows.erase(reverse);
    } else if (event.isEnding) {
        accept(direction, event.timeUs);
        accept(reverse, event.timeUs);
        writeSegment(direction, Fin | Ack, {}, event.timeUs);
        m_ended.push_back(direction);
    } else {
        ++m_others;
    }
}

void MessageCapture::addGap(const Event& event)
{
    if (event.direction == Event::Direction::Discovery) {
        ++m_others;
        return;
    }
    const Direction direction{event.from, event.to};
    accept(direction, event.timeUs);
    if (event.missing < 0)
        flow(direction).next -= UnknownGapBytes;
    // More than are written as packets only occur if the start of a connection is missing.
    if (event.missing > MaxGapBytes) {
        flow(direction).next += static_cast<quint32>(event.missing);
        return;
    }
    for (qint64 left = event.missing; left > 0; left -= MaxSegmentBytes)
        writeSegment(direction, Ack, {}, event.timeUs, static_cast<int>(std::min<qint64>(left, MaxSegmentBytes)));
}

void MessageCapture::addMessage(const Event& event)
{
    const bool isDiscovery = event.direction == Event::Direction::Discovery;
    QByteArray message = event.message;
    if (!m_hasPictures) {
        // A datagram can be longer than its message.
        message.truncate(static_cast<int>(std::min<qint64>(Tools::MessageHeader::read(message).size, message.size())));
        if (message.size() < Tools::MessageHeader::Length || canHidePicture(message)) {
            ++m_others;
            return;
        }
        // A frame of a stream is a picture as a whole.
        const bool isFrame = event.code == QLatin1String("StFr");
        const auto size = message.size();
        message = withoutPicture(message, event.code);
        m_pictures += isFrame || message.size() < size ? 1 : 0;
        if (isFrame)
            return;
    }
    ++m_messages;
    const Direction direction{event.from, event.to};
    if (!isDiscovery) {
        accept(direction, event.timeUs);
        accept({event.to, event.from}, event.timeUs);
        for (int at = 0; at < message.size(); at += MaxSegmentBytes)
            writeSegment(direction, Ack, message.mid(at, MaxSegmentBytes), event.timeUs);
    } else {
        QByteArray datagram;
        append16(datagram, event.from.port);
        append16(datagram, event.to.port);
        append16(datagram, static_cast<int>(UdpHeaderBytes + message.size()));
        append16(datagram, 0);
        datagram += message;
        setChecksum(datagram, 6, checksum(event.from, event.to, IPPROTO_UDP, datagram));
        writePacket(direction, IPPROTO_UDP, datagram, event.timeUs);
    }
    // For those that read it as it comes.
    if (m_file.isPiped() && !m_file.flush())
        throw Failure{m_file.problem()};
}

// Answers the SYN of the peer.
void MessageCapture::accept(const Direction& direction, qint64 timeUs)
{
    if (std::exchange(flow(direction).isAwaited, false))
        writeSegment(direction, Syn | Ack, {}, timeUs);
}

// @param missing the number of bytes behind @p data that are not in the capture
void MessageCapture::writeSegment(const Direction& direction, quint8 flags, const QByteArray& data, qint64 timeUs,
                                  int missing)
{
    const quint32 next = flow(direction).next;
    QByteArray segment;
    append16(segment, direction.first.port);
    append16(segment, direction.second.port);
    append32(segment, next);
    append32(segment, (flags & Ack) != 0 ? flow({direction.second, direction.first}).next : 0);
    segment.append(static_cast<char>(TcpHeaderBytes / 4 << 4)).append(static_cast<char>(flags));
    append16(segment, 65535); // window
    append32(segment, 0);     // checksum, urgent pointer
    segment += data;
    setChecksum(segment, 16, checksum(direction.first, direction.second, IPPROTO_TCP, segment));
    writePacket(direction, IPPROTO_TCP, segment, timeUs, missing);
    // What was lost before the end can follow it, so that a FIN takes no number.
    flow(direction).next = next + static_cast<quint32>(data.size() + missing) + ((flags & Syn) != 0 ? 1 : 0);
}

void MessageCapture::writePacket(const Direction& direction, quint8 protocol, const QByteArray& payload, qint64 timeUs,
                                 int missing)
{
    QByteArray packet;
    append16(packet, 0x4500); // version 4, header of 5 words
    append16(packet, static_cast<int>(IpHeaderBytes + payload.size() + missing));
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
    header.len = header.caplen + static_cast<bpf_u_int32>(missing);
    m_file.write(header, packet);
}

void MessageCapture::finish()
{
    if (m_messages == 0)
        throw Failure{m_file.isPiped()
                          ? QString("there is no message to write")
                          : QString("'%1' was not written: there is no message for it").arg(m_file.name())};
    if (!m_file.commit())
        throw Failure{m_file.problem()};
    QString text = QString("%1 messages written to %2").arg(QString::number(m_messages), m_file.name());
    if (!m_hasPictures)
        text += QString(", %1 pictures left out").arg(m_pictures);
    if (m_others > 0)
        text += QString("; %1 errors, notes and doubtful messages are not in it").arg(m_others);
    if (m_file.isPiped())
        warn(text);
    else
        printLine(text);
}
} // namespace Console

// Frames and capture files, byte by byte.
// SPDX-License-Identifier: Apache-2.0
#include "capture_writer.h"

#include <QFile>
#include <QtEndian>

namespace cap {
namespace {
void big16(QByteArray& out, unsigned value)
{
    out.append(static_cast<char>(value >> 8)).append(static_cast<char>(value));
}

void big32(QByteArray& out, quint32 value)
{
    big16(out, value >> 16);
    big16(out, value & 0xffff);
}

void little32(QByteArray& out, quint32 value)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.append(static_cast<char>(value >> shift));
}

void little16(QByteArray& out, unsigned value)
{
    out.append(static_cast<char>(value)).append(static_cast<char>(value >> 8));
}

QByteArray kept(const Frame& frame)
{
    return frame.cutTo < 0 ? frame.bytes : frame.bytes.left(frame.cutTo);
}

QByteArray block(quint32 type, QByteArray body)
{
    while (body.size() % 4 != 0)
        body.append('\0');
    const auto length = static_cast<quint32>(body.size() + 12);
    QByteArray out;
    little32(out, type);
    little32(out, length);
    out += body;
    little32(out, length);
    return out;
}
} // namespace

QByteArray ipv4(quint8 protocol, quint32 from, quint32 to, const QByteArray& payload, int optionBytes, quint16 fragment)
{
    QByteArray out;
    out.append(static_cast<char>(0x45 + optionBytes / 4)).append('\0');
    big16(out, static_cast<unsigned>(20 + optionBytes + payload.size()));
    big16(out, 1);
    big16(out, fragment);
    out.append('\x40').append(static_cast<char>(protocol));
    big16(out, 0);
    big32(out, from);
    big32(out, to);
    return out + QByteArray(optionBytes, '\x01') + payload;
}

QByteArray udp(Address from, Address to, const QByteArray& payload, int optionBytes)
{
    QByteArray out;
    big16(out, from.port);
    big16(out, to.port);
    big16(out, static_cast<unsigned>(8 + payload.size()));
    big16(out, 0);
    return ipv4(17, from.ip, to.ip, out + payload, optionBytes);
}

QByteArray tcp(Address from, Address to, quint32 sequence, quint32 acknowledged, quint8 flags,
               const QByteArray& payload)
{
    QByteArray out;
    big16(out, from.port);
    big16(out, to.port);
    big32(out, sequence);
    big32(out, acknowledged);
    // 24 bytes of header: one option word, a time stamp's padding.
    out.append('\x60').append(static_cast<char>(flags));
    big16(out, 0xffff);
    big32(out, 0);
    big32(out, 0x01010101);
    return ipv4(6, from.ip, to.ip, out + payload);
}

QByteArray framed(LinkType linkType, const QByteArray& packet, int vlanTags)
{
    QByteArray out;
    switch (linkType) {
        case Ethernet:
            out = QByteArray(12, '\x02');
            for (int tag = 0; tag < vlanTags; ++tag) {
                big16(out, tag == 0 && vlanTags > 1 ? 0x88a8 : 0x8100);
                big16(out, 7);
            }
            big16(out, 0x0800);
            out += packet;
            // What is shorter than an Ethernet frame is filled up.
            return out + QByteArray(qMax(0, 60 - static_cast<int>(out.size())), '\0');
        case LinuxCooked:
            out = QByteArray(14, '\0');
            big16(out, 0x0800);
            return out + packet;
        case LinuxCooked2:
            big16(out, 0x0800);
            return out + QByteArray(18, '\0') + packet;
        case Null:
            little32(out, 2);
            return out + packet;
        case Loop:
            big32(out, 2);
            return out + packet;
        case RawIp:
            break;
    }
    return packet;
}

QByteArray pcap(LinkType linkType, const std::vector<Frame>& frames)
{
    QByteArray out;
    little32(out, 0xa1b2c3d4);
    little16(out, 2);
    little16(out, 4);
    little32(out, 0);
    little32(out, 0);
    little32(out, 262144);
    little32(out, linkType);
    for (const Frame& frame : frames) {
        little32(out, static_cast<quint32>(frame.timeUs / 1000000));
        little32(out, static_cast<quint32>(frame.timeUs % 1000000));
        little32(out, static_cast<quint32>(kept(frame).size()));
        little32(out, static_cast<quint32>(frame.bytes.size()));
        out += kept(frame);
    }
    return out;
}

QByteArray pcapng(LinkType linkType, const std::vector<Frame>& frames)
{
    QByteArray section;
    little32(section, 0x1a2b3c4d);
    little16(section, 1);
    little16(section, 0);
    section += QByteArray(8, '\xff');
    QByteArray interface;
    little16(interface, linkType);
    little16(interface, 0);
    little32(interface, 262144);
    QByteArray out = block(0x0a0d0d0a, section) + block(1, interface);
    for (const Frame& frame : frames) {
        QByteArray body;
        little32(body, 0);
        little32(body, static_cast<quint32>(frame.timeUs >> 32));
        little32(body, static_cast<quint32>(frame.timeUs));
        little32(body, static_cast<quint32>(kept(frame).size()));
        little32(body, static_cast<quint32>(frame.bytes.size()));
        out += block(6, body + kept(frame));
    }
    return out;
}

Talk& Talk::announce(const QByteArray& message)
{
    return add(udp({Server.ip, 50000}, {0xe00000b4, 4809}, message));
}

Talk& Talk::connect()
{
    add(tcp(Console, Server, m_console - 1, 0, Syn));
    add(tcp(Server, Console, m_server - 1, m_console, Syn | Ack));
    return acknowledge();
}

Talk& Talk::fromServer(const QByteArray& bytes)
{
    fromServerAt(0, bytes);
    return lose(static_cast<int>(bytes.size()));
}

Talk& Talk::toServer(const QByteArray& bytes)
{
    add(tcp(Console, Server, m_console, m_server, Ack, bytes));
    m_console += static_cast<quint32>(bytes.size());
    return *this;
}

Talk& Talk::fromServerAt(int ahead, const QByteArray& bytes)
{
    return add(tcp(Server, Console, m_server + static_cast<quint32>(ahead), m_console, Ack, bytes));
}

Talk& Talk::lose(int count)
{
    m_server += static_cast<quint32>(count);
    return *this;
}

Talk& Talk::acknowledge()
{
    return add(tcp(Console, Server, m_console, m_server, Ack));
}

Talk& Talk::end(quint8 flags)
{
    return add(tcp(Server, Console, m_server, m_console, flags | Ack));
}

Talk& Talk::wait(qint64 milliseconds)
{
    m_timeUs += milliseconds * 1000;
    return *this;
}

Talk& Talk::add(const QByteArray& packet)
{
    frames.push_back({m_timeUs, framed(Ethernet, packet)});
    return wait(1);
}

QString Files::write(const QString& name, const QByteArray& content) const
{
    QFile file(path(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(file.fileName()));
    return file.fileName();
}
} // namespace cap

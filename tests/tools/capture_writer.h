// Capture files made by the tests: frames with chosen headers, written as pcap or pcapng by hand.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <vector>

namespace cap {
/// The link types that the tests use, as the files number them.
enum LinkType : quint32 { Null = 0, Ethernet = 1, RawIp = 101, LinuxCooked = 113, LinuxCooked2 = 276, Loop = 108 };

struct Address
{
    quint32 ip;
    quint16 port;
};

struct Frame
{
    qint64 timeUs;
    QByteArray bytes;
    int cutTo = -1; ///< how many bytes the capture kept; -1: all
};

enum TcpFlags : quint8 { Fin = 1, Syn = 2, Reset = 4, Ack = 16 };

/// An IPv4 packet.
/// @param optionBytes length of options, a multiple of 4, at most 40
/// @param fragment the field with the fragment's flags and offset
QByteArray ipv4(quint8 protocol, quint32 from, quint32 to, const QByteArray& payload, int optionBytes = 0,
                quint16 fragment = 0);
QByteArray udp(Address from, Address to, const QByteArray& payload, int optionBytes = 0);
QByteArray tcp(Address from, Address to, quint32 sequence, quint32 acknowledged, quint8 flags,
               const QByteArray& payload = {});
/// @p packet, IPv4, with the header of @p linkType; on Ethernet with as many VLAN tags.
QByteArray framed(LinkType linkType, const QByteArray& packet, int vlanTags = 0);

/// A whole file.
QByteArray pcap(LinkType linkType, const std::vector<Frame>& frames);
QByteArray pcapng(LinkType linkType, const std::vector<Frame>& frames);

/// A capture of one console and one server on Ethernet, that grows call by call, a millisecond each.
class Talk
{
public:
    static constexpr Address Server{0x0200000a, 4811};
    static constexpr Address Console{0x02000005, 40000};
    static constexpr qint64 StartUs = 1700000000000000; ///< 2023-11-14 22:13:20 UTC

    explicit Talk(quint32 serverSequence = 1000, quint32 consoleSequence = 9000)
        : m_server(serverSequence), m_console(consoleSequence)
    {
    }

    /// A datagram of the server's to the discovery group.
    Talk& announce(const QByteArray& message);
    /// SYN, SYN and ACK, ACK.
    Talk& connect();
    /// A segment; the numbers go on behind it.
    Talk& fromServer(const QByteArray& bytes);
    Talk& toServer(const QByteArray& bytes);
    /// The same segment @p ahead bytes further on (or, negative, back), without the numbers going on.
    Talk& fromServerAt(int ahead, const QByteArray& bytes);
    /// Bytes that the server sent and the console got, but nobody captured.
    Talk& lose(int count);
    /// An empty segment of the console's that acknowledges all.
    Talk& acknowledge();
    Talk& end(quint8 flags);
    Talk& wait(qint64 milliseconds);
    Talk& add(const QByteArray& packet);

    std::vector<Frame> frames;

private:
    quint32 m_server;
    quint32 m_console;
    qint64 m_timeUs = StartUs;
};

/// A folder of its own for a test's files.
class Files
{
public:
    /// @return the path of a file with @p content
    QString write(const QString& name, const QByteArray& content) const;
    QString path(const QString& name) const { return m_folder.filePath(name); }

private:
    QTemporaryDir m_folder;
};
} // namespace cap

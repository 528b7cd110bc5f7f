// Detects CITP by announcements and by the headers in TCP segments.
// SPDX-License-Identifier: Apache-2.0
#include "classifier.h"

#include <QStringList>
#include <QtEndian>

#include "message_cutter.h"

namespace Tools {
namespace {
// More than any show network has. Bounds the memory for a malicious capture.
constexpr std::size_t MaxAnnounced = 4096;
constexpr std::size_t MaxConnections = 16384;
constexpr int MaxNameLength = 256;

const QStringList& serverMessageCodes()
{
    static const QStringList codes{"SInf", "ELIn", "ELUp", "MEIn", "EEIn", "GLEI", "LSta", "ELTh", "EThn", "Ptch"};
    return codes;
}

const QStringList& consoleMessageCodes()
{
    static const QStringList codes{"CInf", "GELI", "GEIn", "GELT", "GETh", "SPtc"};
    return codes;
}
} // namespace

Announcement Announcement::read(const QByteArray& message)
{
    constexpr int PortOffset = 24;
    constexpr int TextsOffset = 26;
    Announcement announcement;
    if (message.size() < TextsOffset)
        return announcement;
    announcement.port = qFromLittleEndian<quint16>(message.constData() + PortOffset);
    // The texts end with a zero byte each, or with the message.
    const QList<QByteArray> texts = message.mid(TextsOffset).split('\0');
    announcement.type = QString::fromLatin1(texts.value(0));
    announcement.name = QString::fromLatin1(texts.value(1));
    return announcement;
}

Classifier::Connection Classifier::connectionOf(const Packet& packet)
{
    return packet.from < packet.to ? Connection{packet.from, packet.to} : Connection{packet.to, packet.from};
}

bool Classifier::learn(const Packet& packet)
{
    if (packet.kind == Packet::Kind::Udp)
        learnFromDatagram(packet);
    else if (packet.kind == Packet::Kind::Tcp)
        learnFromSegment(packet);
    return isCitp(packet);
}

bool Classifier::isCitp(const Packet& packet) const
{
    if (packet.kind == Packet::Kind::Other || packet.kind == Packet::Kind::Damaged)
        return false;
    if (packet.isUdp)
        return packet.from.port == DiscoveryPort || packet.to.port == DiscoveryPort;
    return m_announced.count(packet.from) != 0 || m_announced.count(packet.to) != 0 ||
           m_connections.count(connectionOf(packet)) != 0;
}

Endpoint Classifier::serverOf(const Connection& connection) const
{
    if (m_announced.count(connection.first) != 0)
        return connection.first;
    if (m_announced.count(connection.second) != 0)
        return connection.second;
    const auto guess = m_connections.find(connection);
    return guess == m_connections.end() ? connection.second : guess->second.server;
}

bool Classifier::isMatch(const QString& server, const QString& wanted) const
{
    return server == wanted || server.section(':', 0, 0) == wanted ||
           nameOf(server).contains(wanted, Qt::CaseInsensitive);
}

bool Classifier::isServerKnown(const Connection& connection) const
{
    if (m_announced.count(connection.first) != 0 || m_announced.count(connection.second) != 0)
        return true;
    const auto guess = m_connections.find(connection);
    return guess != m_connections.end() && guess->second.isKnown;
}

void Classifier::learnFromDatagram(const Packet& packet)
{
    if (!isCitp(packet) || packet.data.size() < MessageHeader::Length)
        return;
    const MessageHeader header = MessageHeader::read(packet.data);
    if (!header.hasCookie || header.layer != QLatin1String("PINF") || header.code != QLatin1String("PLoc"))
        return;
    const Announcement announcement = Announcement::read(packet.data);
    const Endpoint server{packet.from.address, announcement.port};
    if (server.port == 0 || (m_announced.size() >= MaxAnnounced && m_announced.count(server) == 0))
        return;
    m_announced.insert(server);
    m_names[toText(server)] = announcement.name.left(MaxNameLength);
}

void Classifier::learnFromSegment(const Packet& packet)
{
    const int at = MessageHeader::find(packet.data);
    if (at < 0)
        return;
    const Connection connection = connectionOf(packet);
    auto known = m_connections.find(connection);
    if (known == m_connections.end()) {
        if (m_connections.size() >= MaxConnections)
            return;
        // Ephemeral client ports are usually higher than server ports.
        const Endpoint likely = packet.from.port < packet.to.port ? packet.from : packet.to;
        known = m_connections.insert({connection, {likely, false}}).first;
    }
    if (known->second.isKnown)
        return;
    const QString code = MessageHeader::read(packet.data.mid(at, 28)).code;
    if (serverMessageCodes().contains(code))
        known->second = {packet.from, true};
    else if (consoleMessageCodes().contains(code))
        known->second = {packet.to, true};
}
} // namespace Tools

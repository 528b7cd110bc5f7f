// Tracks the connections and creates the events.
// SPDX-License-Identifier: Apache-2.0
#include "decoder.h"

#include <QHostAddress>

namespace Tools {
namespace {
void setMessage(const QByteArray& bytes, Event& event)
{
    const MessageHeader header = MessageHeader::read(bytes);
    event.message = bytes;
    event.layer = header.layer;
    event.code = header.code;
}
} // namespace

struct Decoder::Direction
{
    Direction(Endpoint source, Endpoint target, std::function<void(const StreamItem&)> out, Budget& budget)
        : from(source), to(target), cutter(std::move(out), budget, false), stream(cutter, budget)
    {
    }

    const Endpoint from;
    const Endpoint to;
    MessageCutter cutter;
    TcpStream stream;
    quint32 first = 0; ///< sequence number of the first byte, if the stream has started
    bool hasFin = false;
    quint32 end = 0; ///< sequence number after the last byte, if #hasFin
    bool isEnded = false;
};

struct Decoder::Connection
{
    Endpoint server;
    std::unique_ptr<Direction> directions[2]; ///< from the lower endpoint, and to it
};

Decoder::Decoder(const Classifier& classifier, std::function<void(const Event&)> out)
    : m_classifier(classifier), m_out(std::move(out))
{
}

Decoder::~Decoder() = default;

void Decoder::add(const Packet& packet)
{
    switch (packet.kind) {
        case Packet::Kind::Other:
            return;
        case Packet::Kind::Damaged:
            ++m_damaged;
            return;
        case Packet::Kind::Fragment:
            addFragment(packet);
            return;
        case Packet::Kind::Udp:
            if (m_classifier.isCitp(packet))
                addDatagram(packet);
            return;
        case Packet::Kind::Tcp:
            if (m_classifier.isCitp(packet))
                addSegment(packet);
            return;
    }
}

void Decoder::finish()
{
    for (const auto& entry : m_connections)
        close(*entry.second);
    m_connections.clear();
    m_closed.clear();
}

Event Decoder::makeEvent(const Packet& packet)
{
    Event event;
    event.timeUs = packet.timeUs;
    event.from = packet.from;
    event.to = packet.to;
    event.server = QHostAddress(packet.from.address).toString();
    return event;
}

void Decoder::addDatagram(const Packet& packet)
{
    Event event = makeEvent(packet);
    if (packet.data.size() < packet.length) {
        event.kind = StreamItem::Kind::Gap;
        event.missing = packet.length - packet.data.size();
        event.text =
            QString("the capture contains %1 of the datagram's %2 bytes").arg(packet.data.size()).arg(packet.length);
    } else if (packet.length < MessageHeader::Length || !packet.data.startsWith("CITP")) {
        event.kind = StreamItem::Kind::Error;
        event.text = QString("a datagram of %1 bytes that is not a CITP message").arg(packet.length);
    } else {
        setMessage(QByteArray(packet.data.constData(), static_cast<int>(packet.data.size())), event);
        if (event.code == QLatin1String("PLoc")) {
            const quint16 port = Announcement::read(event.message).port;
            if (port != 0)
                event.server = toText(Endpoint{packet.from.address, port});
        }
    }
    m_out(event);
}

void Decoder::addFragment(const Packet& packet)
{
    ++m_fragments;
    // Only the first fragment contains the ports.
    if ((packet.from.port == 0 && packet.to.port == 0) || !m_classifier.isCitp(packet))
        return;
    Event event = makeEvent(packet);
    event.kind = StreamItem::Kind::Note;
    event.text = "a fragmented packet, which is not reassembled";
    if (!packet.isUdp) {
        const Endpoint server = m_classifier.serverOf(Classifier::connectionOf(packet));
        event.server = toText(server);
        event.direction = server == packet.from ? Event::Direction::FromServer : Event::Direction::ToServer;
    }
    m_out(event);
}

void Decoder::addSegment(const Packet& packet)
{
    Connection* const connection = findOrAddConnection(packet);
    if (!connection) {
        ++m_untrackedSegments;
        return;
    }
    if (packet.isSyn)
        open(*connection, packet);
    const bool isFromLower = packet.from < packet.to;
    Direction& direction = *connection->directions[isFromLower ? 0 : 1];
    Direction& reverse = *connection->directions[isFromLower ? 1 : 0];
    // A SYN occupies one sequence number.
    const quint32 sequence = packet.sequence + (packet.isSyn ? 1 : 0);
    if (packet.length > 0) {
        if (!direction.stream.isStarted())
            direction.first = sequence;
        direction.stream.add(sequence, packet.data, packet.length, packet.timeUs);
    }
    if (packet.hasAcknowledged)
        reverse.stream.acknowledge(packet.acknowledged, packet.timeUs);
    if (packet.isReset) {
        const bool isRefused =
            !direction.stream.isStarted() && reverse.stream.isStarted() && reverse.stream.next() == reverse.first;
        close(*connection);
        emitNote(*connection, packet, isRefused ? "refuses the connection" : "resets the connection", isRefused);
        m_connections.erase(Classifier::connectionOf(packet));
        return;
    }
    if (packet.isFin && !direction.hasFin) {
        emitNote(*connection, packet, "ends the connection");
        direction.hasFin = true;
        direction.end = sequence + static_cast<quint32>(packet.length);
        if (reverse.hasFin)
            m_closed.push_back(Classifier::connectionOf(packet));
    }
    for (Direction* const each : {&direction, &reverse}) {
        if (each->hasFin && !each->isEnded && (!each->stream.isStarted() || each->stream.next() == each->end)) {
            each->isEnded = true;
            each->cutter.finish(true);
        }
    }
}

// Returns null if there are too many connections.
Decoder::Connection* Decoder::findOrAddConnection(const Packet& packet)
{
    const Classifier::Connection key = Classifier::connectionOf(packet);
    const auto known = m_connections.find(key);
    if (known != m_connections.end()) {
        // From standard input, the server may announce itself after its first segment.
        if (m_classifier.isServerKnown(key))
            known->second->server = m_classifier.serverOf(key);
        return known->second.get();
    }
    while (m_connections.size() >= MaxConnections && !m_closed.empty()) {
        const auto oldest = m_connections.find(m_closed.front());
        m_closed.pop_front();
        if (oldest != m_connections.end()) {
            close(*oldest->second);
            m_connections.erase(oldest);
        }
    }
    if (m_connections.size() >= MaxConnections)
        return nullptr;
    auto added = std::make_unique<Connection>();
    Connection* const connection = added.get();
    connection->server = m_classifier.serverOf(key);
    makeDirections(*connection, key);
    m_connections.insert({key, std::move(added)});
    return connection;
}

// A SYN with the same sequence number is a retransmission; another one opens a new connection of the same endpoints.
void Decoder::open(Connection& connection, const Packet& packet)
{
    const Classifier::Connection key = Classifier::connectionOf(packet);
    const int own = packet.from < packet.to ? 0 : 1;
    const quint32 first = packet.sequence + 1;
    if (connection.directions[own]->stream.isStarted()) {
        if (connection.directions[own]->first == first)
            return;
        close(connection);
        makeDirections(connection, key);
    }
    if (!m_classifier.isServerKnown(key))
        connection.server = packet.hasAcknowledged ? packet.from : packet.to;
    Direction& direction = *connection.directions[own];
    direction.first = first;
    direction.stream.start(first);
    direction.cutter.startAtMessage();
    if (!packet.hasAcknowledged)
        emitNote(connection, packet, "connects");
}

void Decoder::makeDirections(Connection& connection, const Classifier::Connection& key)
{
    for (int i = 0; i < 2; ++i) {
        connection.directions[i] = std::make_unique<Direction>(
            i == 0 ? key.first : key.second, i == 0 ? key.second : key.first,
            [this, &connection, i](const StreamItem& item) { emitItem(connection, *connection.directions[i], item); },
            m_budget);
    }
}

void Decoder::close(Connection& connection)
{
    for (const std::unique_ptr<Direction>& direction : connection.directions) {
        direction->stream.finish();
        direction->cutter.finish(false);
    }
}

void Decoder::emitItem(const Connection& connection, const Direction& direction, const StreamItem& item)
{
    Event event = makeEvent(connection, direction.from, direction.to);
    event.kind = item.kind;
    event.timeUs = item.timeUs;
    event.text = item.text;
    event.missing = item.missing;
    if (item.kind == StreamItem::Kind::Message)
        setMessage(item.message, event);
    m_out(event);
}

void Decoder::emitNote(const Connection& connection, const Packet& packet, const QString& text, bool isRefused)
{
    Event event = makeEvent(connection, packet.from, packet.to);
    event.kind = StreamItem::Kind::Note;
    event.timeUs = packet.timeUs;
    event.text = text;
    event.isConnecting = packet.isSyn;
    event.isEnding = packet.isFin || packet.isReset;
    event.isReset = packet.isReset;
    event.isRefused = isRefused;
    m_out(event);
}

Event Decoder::makeEvent(const Connection& connection, const Endpoint& from, const Endpoint& to)
{
    Event event;
    event.from = from;
    event.to = to;
    event.direction = connection.server == from ? Event::Direction::FromServer : Event::Direction::ToServer;
    event.server = toText(connection.server);
    return event;
}
} // namespace Tools

// Following connections, and putting events together.
// SPDX-License-Identifier: Apache-2.0
#include "decoder.h"

#include <citp/citp_msg_peer.h>

#include <QHostAddress>

#include "message_text.h"

namespace Console {
namespace {
void describe(const QByteArray& bytes, Event& event)
{
    const MessageText message = describeMessage(bytes);
    event.message = bytes;
    event.layer = message.layer;
    event.code = message.code;
    event.text = message.text;
    event.problem = message.problem;
}
} // namespace

struct Decoder::Direction
{
    Direction(Endpoint source, Endpoint target, std::function<void(const Cut&)> out, Budget& budget)
        : from(source), to(target), cutter(std::move(out), budget, false), stream(cutter, budget)
    {
    }

    const Endpoint from;
    const Endpoint to;
    MessageCutter cutter;
    TcpStream stream;
    quint32 first = 0; ///< number of the first byte, once the stream has started
    bool isEnding = false;
    quint32 end = 0; ///< while ending: the number behind the last byte
    bool isEnded = false;
};

struct Decoder::Connection
{
    Endpoint server;
    std::unique_ptr<Direction> directions[2]; ///< from the lower end, and to it
};

Decoder::Decoder(const Survey& survey, std::function<void(const Event&)> out) : m_survey(survey), m_out(std::move(out))
{
}

Decoder::~Decoder() = default;

void Decoder::take(const Packet& packet)
{
    switch (packet.kind) {
        case Packet::Kind::Other:
            return;
        case Packet::Kind::Damaged:
            ++m_damaged;
            return;
        case Packet::Kind::Fragment:
            takeFragment(packet);
            return;
        case Packet::Kind::Udp:
            if (m_survey.isCitp(packet))
                takeDatagram(packet);
            return;
        case Packet::Kind::Tcp:
            if (m_survey.isCitp(packet))
                takeSegment(packet);
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

Event Decoder::eventOf(const Packet& packet)
{
    Event event;
    event.timeUs = packet.timeUs;
    event.from = packet.from;
    event.to = packet.to;
    event.server = QHostAddress(packet.from.address).toString();
    return event;
}

void Decoder::takeDatagram(const Packet& packet)
{
    Event event = eventOf(packet);
    if (packet.data.size() < packet.length) {
        event.kind = Cut::Kind::Gap;
        event.missing = packet.length - packet.data.size();
        event.text =
            QString("the capture holds %1 of the datagram's %2 bytes").arg(packet.data.size()).arg(packet.length);
    } else if (packet.length < MessageHeader::Length || !packet.data.startsWith("CITP")) {
        event.kind = Cut::Kind::Error;
        event.text = QString("a datagram of %1 bytes that is no CITP message").arg(packet.length);
    } else {
        describe(QByteArray(packet.data.constData(), static_cast<int>(packet.data.size())), event);
        if (event.code == QLatin1String("PLoc")) {
            const quint16 port = CITP::Msg_PEER_PLOC(event.message).port;
            if (port != 0)
                event.server = toText(Endpoint{packet.from.address, port});
        }
    }
    m_out(event);
}

void Decoder::takeFragment(const Packet& packet)
{
    ++m_fragments;
    // Only the first piece tells the ports.
    if ((packet.from.port == 0 && packet.to.port == 0) || !m_survey.isCitp(packet))
        return;
    Event event = eventOf(packet);
    event.kind = Cut::Kind::Note;
    event.text = "a fragmented packet: its pieces are not put together";
    if (!packet.isUdp) {
        const Endpoint server = m_survey.serverOf(Survey::connectionOf(packet));
        event.server = toText(server);
        event.direction = server == packet.from ? Event::Direction::FromServer : Event::Direction::ToServer;
    }
    m_out(event);
}

void Decoder::takeSegment(const Packet& packet)
{
    Connection* const connection = follow(packet);
    if (!connection) {
        ++m_notFollowed;
        return;
    }
    if (packet.isSyn)
        open(*connection, packet);
    const bool isUpwards = packet.from < packet.to;
    Direction& direction = *connection->directions[isUpwards ? 0 : 1];
    Direction& back = *connection->directions[isUpwards ? 1 : 0];
    // A SYN has a number of its own.
    const quint32 sequence = packet.sequence + (packet.isSyn ? 1 : 0);
    if (packet.length > 0) {
        if (!direction.stream.isStarted())
            direction.first = sequence;
        direction.stream.add(sequence, packet.data, packet.length, packet.timeUs);
    }
    if (packet.hasAcknowledged)
        back.stream.acknowledge(packet.acknowledged, packet.timeUs);
    if (packet.isReset) {
        const bool isRefused =
            !direction.stream.isStarted() && back.stream.isStarted() && back.stream.next() == back.first;
        note(*connection, packet, isRefused ? "refuses the connection" : "resets the connection");
        close(*connection);
        m_connections.erase(Survey::connectionOf(packet));
        return;
    }
    if (packet.isFin && !direction.isEnding) {
        note(*connection, packet, "ends the connection");
        direction.isEnding = true;
        direction.end = sequence + static_cast<quint32>(packet.length);
        if (back.isEnding)
            m_closed.push_back(Survey::connectionOf(packet));
    }
    for (Direction* const each : {&direction, &back}) {
        if (each->isEnding && !each->isEnded && (!each->stream.isStarted() || each->stream.next() == each->end)) {
            each->isEnded = true;
            each->cutter.finish(true);
        }
    }
}

// Null if there are too many.
Decoder::Connection* Decoder::follow(const Packet& packet)
{
    const Survey::Connection key = Survey::connectionOf(packet);
    const auto known = m_connections.find(key);
    if (known != m_connections.end())
        return known->second.get();
    while (m_connections.size() >= MostConnections && !m_closed.empty()) {
        const auto oldest = m_connections.find(m_closed.front());
        m_closed.pop_front();
        if (oldest != m_connections.end()) {
            close(*oldest->second);
            m_connections.erase(oldest);
        }
    }
    if (m_connections.size() >= MostConnections)
        return nullptr;
    auto made = std::make_unique<Connection>();
    Connection* const connection = made.get();
    connection->server = m_survey.serverOf(key);
    makeDirections(*connection, key);
    m_connections.insert({key, std::move(made)});
    return connection;
}

// The same SYN may come again; another one begins another connection between the same ends.
void Decoder::open(Connection& connection, const Packet& packet)
{
    const Survey::Connection key = Survey::connectionOf(packet);
    const int own = packet.from < packet.to ? 0 : 1;
    const quint32 first = packet.sequence + 1;
    if (connection.directions[own]->stream.isStarted()) {
        if (connection.directions[own]->first == first)
            return;
        close(connection);
        makeDirections(connection, key);
    }
    if (!m_survey.isServerSure(key))
        connection.server = packet.hasAcknowledged ? packet.from : packet.to;
    Direction& direction = *connection.directions[own];
    direction.first = first;
    direction.stream.start(first);
    direction.cutter.startHere();
    if (!packet.hasAcknowledged)
        note(connection, packet, "connects");
}

void Decoder::makeDirections(Connection& connection, const Survey::Connection& key)
{
    for (int i = 0; i < 2; ++i) {
        connection.directions[i] = std::make_unique<Direction>(
            i == 0 ? key.first : key.second, i == 0 ? key.second : key.first,
            [this, &connection, i](const Cut& cut) { say(connection, *connection.directions[i], cut); }, m_budget);
    }
}

void Decoder::close(Connection& connection)
{
    for (const std::unique_ptr<Direction>& direction : connection.directions) {
        direction->stream.finish();
        direction->cutter.finish(false);
    }
}

void Decoder::say(const Connection& connection, const Direction& direction, const Cut& cut)
{
    Event event = eventOf(connection, direction.from, direction.to);
    event.kind = cut.kind;
    event.timeUs = cut.timeUs;
    event.text = cut.text;
    event.missing = cut.missing;
    if (cut.kind == Cut::Kind::Message)
        describe(cut.message, event);
    m_out(event);
}

void Decoder::note(const Connection& connection, const Packet& packet, const QString& text)
{
    Event event = eventOf(connection, packet.from, packet.to);
    event.kind = Cut::Kind::Note;
    event.timeUs = packet.timeUs;
    event.text = text;
    event.isConnecting = packet.isSyn;
    m_out(event);
}

Event Decoder::eventOf(const Connection& connection, const Endpoint& from, const Endpoint& to)
{
    Event event;
    event.from = from;
    event.to = to;
    event.direction = connection.server == from ? Event::Direction::FromServer : Event::Direction::ToServer;
    event.server = toText(connection.server);
    return event;
}
} // namespace Console

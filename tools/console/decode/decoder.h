// Decoder: from the packets of a capture to what was said, message by message, and what stood in the way of it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "message_cutter.h"
#include "packet.h"
#include "survey.h"
#include "tcp_stream.h"

namespace Console {
/// One thing that was said or found.
struct Event
{
    enum class Direction { Discovery, FromServer, ToServer };
    Cut::Kind kind = Cut::Kind::Message;
    qint64 timeUs = 0;
    Endpoint from;
    Endpoint to;
    Direction direction = Direction::Discovery;
    QString server;     ///< key of the server that it belongs to; a peer that announces no port: its address alone
    QByteArray message; ///< of a message: its bytes
    QString layer;      ///< of a message
    QString code;       ///< of a message
    QString text;       ///< a message's debug text; else what is to be said
    QString problem;    ///< of a message: why the library would not use it; empty if it would
    qint64 missing = 0; ///< of a gap: its bytes; -1 if unknown
    bool isConnecting = false; ///< a note that a connection is begun
};

/// Takes the packets of a capture in their order. What it holds back is bounded: Budget for the bytes, and the number
/// of connections that it follows at a time.
class Decoder
{
public:
    static constexpr qint64 MostHeldBytes = 64 << 20;
    static constexpr std::size_t MostConnections = 8192;

    /// @param survey has seen the capture before, so that the first packets of a connection are known for CITP; used
    /// until the end of this object
    Decoder(const Survey& survey, std::function<void(const Event&)> out);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    void take(const Packet& packet);
    /// The capture is over: says what is left.
    void finish();

    qint64 fragments() const { return m_fragments; }     ///< pieces of packets, which are not put together
    qint64 damaged() const { return m_damaged; }         ///< packets whose headers could not be read
    qint64 notFollowed() const { return m_notFollowed; } ///< segments left out because of too many connections
    qint64 heldBytes() const { return MostHeldBytes - m_budget.left(); }

private:
    struct Direction;
    struct Connection;

    void takeDatagram(const Packet& packet);
    void takeFragment(const Packet& packet);
    void takeSegment(const Packet& packet);
    Connection* follow(const Packet& packet);
    void makeDirections(Connection& connection, const Survey::Connection& key);
    void open(Connection& connection, const Packet& packet);
    void close(Connection& connection);
    void say(const Connection& connection, const Direction& direction, const Cut& cut);
    void note(const Connection& connection, const Packet& packet, const QString& text);
    static Event eventOf(const Packet& packet);
    static Event eventOf(const Connection& connection, const Endpoint& from, const Endpoint& to);

    const Survey& m_survey;
    const std::function<void(const Event&)> m_out;
    Budget m_budget{MostHeldBytes};
    std::map<Survey::Connection, std::unique_ptr<Connection>> m_connections;
    std::deque<Survey::Connection> m_closed; ///< may make room for others; some may be gone, or open again
    qint64 m_fragments = 0;
    qint64 m_damaged = 0;
    qint64 m_notFollowed = 0;
};
} // namespace Console

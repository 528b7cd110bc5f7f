// Decoder: converts the packets of a capture to messages, errors and gaps.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "classifier.h"
#include "message_cutter.h"
#include "packet.h"
#include "tcp_stream.h"

namespace Tools {
/// A message, or something else found in the capture.
struct Event
{
    enum class Direction { Discovery, FromServer, ToServer };
    StreamItem::Kind kind = StreamItem::Kind::Message;
    qint64 timeUs = 0;
    Endpoint from;
    Endpoint to;
    Direction direction = Direction::Discovery;
    QString server;            ///< key of the server; for a peer that announces no port, only the address
    QByteArray message;        ///< bytes of a message
    QString layer;             ///< of a message, e.g. "MSEX"
    QString code;              ///< of a message, e.g. "SInf"
    QString text;              ///< a description of what is not a message
    qint64 missing = 0;        ///< size of a gap in bytes; -1 if unknown
    bool isConnecting = false; ///< for a note: a connection was opened
    bool isEnding = false;     ///< for a note: one side has ended a connection
    bool isReset = false;      ///< for a note: by a reset
    bool isRefused = false;    ///< for a note: by a reset before the server has answered
};

/// Decodes the packets of a capture, which are passed in the order of the capture. Memory is bounded by a Budget for
/// buffered bytes and by the maximum number of simultaneous connections.
class Decoder
{
public:
    static constexpr qint64 MaxHeldBytes = 64 << 20;
    static constexpr std::size_t MaxConnections = 8192;

    /// @param classifier has already processed the capture, so that it recognises the first packets of a connection as
    /// CITP; must outlive this object
    /// @param out is called for each event
    Decoder(const Classifier& classifier, std::function<void(const Event&)> out);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    void add(const Packet& packet);
    /// Ends the capture: reports incomplete messages.
    void finish();

    qint64 fragments() const { return m_fragments; }                 ///< IP fragments, which are not reassembled
    qint64 damaged() const { return m_damaged; }                     ///< packets with malformed headers
    qint64 untrackedSegments() const { return m_untrackedSegments; } ///< ignored because of too many connections
    qint64 heldBytes() const { return MaxHeldBytes - m_budget.left(); }

private:
    struct Direction;
    struct Connection;

    void addDatagram(const Packet& packet);
    void addFragment(const Packet& packet);
    void addSegment(const Packet& packet);
    Connection* findOrAddConnection(const Packet& packet);
    void makeDirections(Connection& connection, const Classifier::Connection& key);
    void open(Connection& connection, const Packet& packet);
    void close(Connection& connection);
    void emitItem(const Connection& connection, const Direction& direction, const StreamItem& item);
    void emitNote(const Connection& connection, const Packet& packet, const QString& text, bool isRefused = false);
    static Event makeEvent(const Packet& packet);
    static Event makeEvent(const Connection& connection, const Endpoint& from, const Endpoint& to);

    const Classifier& m_classifier;
    const std::function<void(const Event&)> m_out;
    Budget m_budget{MaxHeldBytes};
    std::map<Classifier::Connection, std::unique_ptr<Connection>> m_connections;
    std::deque<Classifier::Connection> m_closed; ///< can be removed for new ones; may be removed or reopened already
    qint64 m_fragments = 0;
    qint64 m_damaged = 0;
    qint64 m_untrackedSegments = 0;
};
} // namespace Tools

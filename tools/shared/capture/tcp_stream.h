// TcpStream: reassembles one direction of a TCP connection from its segments.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <map>

namespace Tools {
/// Memory limit for the bytes that are buffered for all connections together.
class Budget
{
public:
    explicit Budget(qint64 bytes) : m_left(bytes) {}

    /// Reserves @p bytes. If fewer are left, reserves nothing and returns false.
    bool take(qint64 bytes)
    {
        if (bytes > m_left)
            return false;
        m_left -= bytes;
        return true;
    }
    void release(qint64 bytes) { m_left += bytes; }
    qint64 left() const { return m_left; }

private:
    qint64 m_left;
};

/// Receives the bytes of a stream in order.
class StreamSink
{
public:
    virtual ~StreamSink() = default;

    /// The next bytes. @p data is valid only during the call.
    /// @param timeUs capture time of the packet that completed them; never decreases
    virtual void bytes(const QByteArray& data, qint64 timeUs) = 0;
    /// The next @p missing bytes are missing from the capture; -1 if their number is unknown.
    virtual void gap(qint64 missing, qint64 timeUs) = 0;
};

/// One direction of a connection. Segments may be lost, repeated, reordered and overlapping, and the capture may start
/// in the middle of the stream. Sequence numbers may wrap. Segments after missing bytes are held until the bytes arrive
/// or are given up: one second after the receiver acknowledged them, after half a minute, or when too much data is
/// held.
class TcpStream
{
public:
    static constexpr int MaxHeldBytes = 1 << 20;
    static constexpr int MaxHeldSegments = 2048;

    /// Both parameters must outlive this object.
    TcpStream(StreamSink& sink, Budget& budget) : m_sink(sink), m_budget(budget) {}
    ~TcpStream();
    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    /// Whether the first sequence number is known.
    bool isStarted() const { return m_isStarted; }
    /// The sequence number of the next byte.
    quint32 next() const { return m_next; }
    /// Starts the stream at sequence number @p sequence.
    void start(quint32 sequence);

    /// Adds a segment.
    /// @param data the captured part of its payload
    /// @param length length of the payload on the wire, at least the size of @p data
    void add(quint32 sequence, const QByteArray& data, int length, qint64 timeUs);
    /// The receiver acknowledged all bytes before sequence number @p sequence.
    void acknowledge(quint32 sequence, qint64 timeUs);
    /// Ends the stream: delivers all held segments and the gaps between them.
    void finish();

private:
    struct Held
    {
        QByteArray data;
        int length;
        qint64 timeUs;
    };

    void deliver(const QByteArray& data, int length, qint64 skip, qint64 timeUs);
    void deliverHeld();
    void hold(qint64 position, const QByteArray& data, int length, qint64 timeUs);
    void release(std::map<qint64, Held>::iterator held);
    void skipGap();
    void skipOldGaps(qint64 timeUs);

    StreamSink& m_sink;
    Budget& m_budget;
    bool m_isStarted = false;
    quint32 m_next = 0;                  ///< sequence number of the next byte
    qint64 m_position = 0;               ///< the same as an offset from the start, which does not wrap
    qint64 m_acknowledged = 0;           ///< acknowledged offset, like #m_position
    qint64 m_acknowledgedUs = INT64_MIN; ///< time of the last acknowledgement of new bytes
    qint64 m_timeUs = INT64_MIN;         ///< time of the latest delivered segment
    std::map<qint64, Held> m_held;       ///< by offset, all beyond #m_position
    qint64 m_heldBytes = 0;
    qint64 m_waitsSinceUs = 0; ///< since when the stream waits for the byte at #m_position, while segments are held
};
} // namespace Tools

// TcpStream: puts the segments of one direction of a TCP connection back into the stream of bytes that they came from.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <map>

namespace Console {
/// How many bytes of a capture may be held back at a time, all connections together. Owned by whoever owns the streams.
class Budget
{
public:
    explicit Budget(qint64 bytes) : m_left(bytes) {}

    /// @return whether so much was left; if not, nothing is taken
    bool take(qint64 bytes)
    {
        if (bytes > m_left)
            return false;
        m_left -= bytes;
        return true;
    }
    void giveBack(qint64 bytes) { m_left += bytes; }
    qint64 left() const { return m_left; }

private:
    qint64 m_left;
};

/// Where a stream's bytes go, in their order.
class StreamSink
{
public:
    virtual ~StreamSink() = default;

    /// The next bytes; @p data is good during the call alone.
    /// @param timeUs when the last of what was needed for them was captured; never goes back
    virtual void bytes(const QByteArray& data, qint64 timeUs) = 0;
    /// The next @p missing bytes are not in the capture, or (-1) nobody knows how many.
    virtual void gap(qint64 missing, qint64 timeUs) = 0;
};

/// One direction of a connection. Segments may be lost, repeated, out of order, overlap one another, and begin anywhere
/// in the stream; numbers may wrap. What is missing is waited for until it cannot be expected any more: the receiver
/// has acknowledged it and a second has passed, or half a minute has passed, or too much is held back behind it.
class TcpStream
{
public:
    static constexpr int MostHeldBytes = 1 << 20;
    static constexpr int MostHeldSegments = 2048;

    /// Both are used until the end of this object.
    TcpStream(StreamSink& sink, Budget& budget) : m_sink(sink), m_budget(budget) {}
    ~TcpStream();
    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    /// Whether anything has come yet.
    bool isStarted() const { return m_isStarted; }
    /// The number of the next byte.
    quint32 next() const { return m_next; }
    /// Says that the stream begins with byte number @p sequence.
    void start(quint32 sequence);

    /// Takes a segment.
    /// @param data what was captured of it
    /// @param length its bytes on the wire, at least those of @p data
    void add(quint32 sequence, const QByteArray& data, int length, qint64 timeUs);
    /// The receiver has all before byte number @p sequence.
    void acknowledge(quint32 sequence, qint64 timeUs);
    /// Nothing more will come: hands on what is held back, with the gaps in it.
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
    quint32 m_next = 0;                  ///< number of the next byte
    qint64 m_position = 0;               ///< the same, counted from the start and never wrapping
    qint64 m_acknowledged = 0;           ///< like #m_position: the receiver has all before it
    qint64 m_acknowledgedUs = INT64_MIN; ///< when the receiver last said that it has more
    qint64 m_timeUs = INT64_MIN;         ///< of the latest segment handed on
    std::map<qint64, Held> m_held;       ///< by position; all beyond #m_position
    qint64 m_heldBytes = 0;
    qint64 m_waitsSinceUs = 0; ///< while something is held back: since when for the same byte
};
} // namespace Console

// Splits the byte stream of a connection into messages. Uses no socket, so that tests and fuzzers can call it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace MediaServer {
/// Buffers received bytes and returns complete messages in order.
///
/// After an invalid header or a size out of bounds, no further messages are returned, because the start of the next
/// message is unknown.
class MessageCutter
{
public:
    /// Maximum size of a message in bytes. Valid requests are much shorter.
    static constexpr int MaxSize = 1024 * 1024;

    void append(const QByteArray& received) { m_buffer.append(received); }

    /// Removes the next complete message from the buffer.
    /// @return false if more bytes are needed or the stream is invalid
    bool next(QByteArray& message);

    /// Forgets what is buffered.
    void clear() { m_buffer.clear(); }

    /// Why the stream is invalid; empty if it is valid.
    const QString& problem() const { return m_problem; }
    /// Buffered bytes of an incomplete message.
    int pending() const { return static_cast<int>(m_buffer.size()); }

private:
    QByteArray m_buffer;
    QString m_problem;
};
} // namespace MediaServer

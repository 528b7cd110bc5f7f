// Cuts the byte stream of one connection into messages. Holds no socket, so that tests and fuzzers can feed it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace MediaServer {
/// Gathers received bytes and gives whole messages back, in order.
///
/// A stream that does not begin with a good header, or that announces a size out of bounds, is broken for good:
/// nothing in it tells where the next message begins.
class MessageCutter
{
public:
    /// The longest message accepted, in bytes. The longest request that any table allows stays well below it.
    static constexpr int MaximumSize = 1024 * 1024;

    void append(const QByteArray& received) { m_buffer.append(received); }

    /// Takes the next whole message.
    /// @return false if more bytes are needed or the stream is broken
    bool next(QByteArray& message);

    /// Why the stream is broken; empty while it is not.
    const QString& problem() const { return m_problem; }
    /// Bytes received of a message that is not complete yet.
    int pending() const { return static_cast<int>(m_buffer.size()); }

private:
    QByteArray m_buffer;
    QString m_problem;
};
} // namespace MediaServer

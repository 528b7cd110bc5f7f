// Probe: a console's connection to the server under test, with control over the bytes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpSocket>
#include <cstddef>
#include <deque>

namespace Console::ServerTests {
class Bench;

/// A message that was sent or received during a test.
struct Exchange
{
    bool isSent;
    QByteArray message; ///< at most #MaxBytes
    int size;           ///< of the whole message
    static constexpr int MaxBytes = 4096;
};

class Probe
{
public:
    explicit Probe(Bench& bench);

    /// Waits for the connection.
    bool open();
    bool isOpen() const { return m_socket.state() == QAbstractSocket::ConnectedState; }
    /// Why no further message is expected, for a failure text, such as ", because it has reset the connection"; empty
    /// if there is no reason.
    QString endText() const;
    /// After open(): why this machine cannot connect to any server there; empty if it is not to blame.
    QString localProblem() const;

    /// Writes whole messages at once.
    void send(const QByteArray& messages);
    /// Writes @p bytes in pieces of @p size, each in a segment of its own.
    void sendInPieces(const QByteArray& bytes, int size);
    /// Waits for a message with the content code @p code, and takes it.
    /// @return empty if none comes
    QByteArray next(const char* code, int milliseconds = -1);
    /// Whether a message did not come in time. It may still come, and answer a later request.
    bool hasMissed() const { return m_hasMissed; }
    void setMissed() { m_hasMissed = true; }
    /// The messages that were received and not taken.
    const std::deque<QByteArray>& received() const { return m_received; }
    /// How many of them came before the message that next() has just taken.
    std::size_t before() const { return m_before; }
    /// Forgets them.
    void clear();
    /// Waits, and reads what comes. Returns early if the connection ends.
    void wait(int milliseconds);

    /// Stops reading, so that the kernel's buffers fill, or reads again.
    void setReading(bool isReading);
    /// Ends the connection without the usual handshake.
    void reset();

private:
    void read();
    void cut();
    void forgetOldest();

    Bench& m_bench;
    QTcpSocket m_socket;
    bool m_isReading = true;
    bool m_hasMissed = false;
    QByteArray m_buffer;
    std::deque<QByteArray> m_received;
    std::size_t m_before = 0;
    QString m_problem; ///< the stream has no further messages
};

/// The content code of a message.
QByteArray codeOf(const QByteArray& message);
/// Splits @p bytes, which consists of whole messages.
QList<QByteArray> messagesIn(const QByteArray& bytes);
} // namespace Console::ServerTests

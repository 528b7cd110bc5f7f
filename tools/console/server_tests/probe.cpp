// Sending in pieces, receiving, and the end of a connection.
// SPDX-License-Identifier: Apache-2.0
#include "probe.h"

#include <citp/citp_msg_header.h>

#include <sys/socket.h>
#include <QCoreApplication>
#include <QNetworkProxy>
#include <QThread>

#include "../session.h"
#include "capture/message_cutter.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
// Bounds the memory for a server that sends without end.
constexpr std::size_t MaxReceived = 2000;
constexpr qint64 MaxReceivedBytes = qint64{64} * 1024 * 1024;
constexpr int SmallBuffer = 32 * 1024;
constexpr int PieceMs = 2;
} // namespace

Probe::Probe(Bench& bench) : m_bench(bench)
{
    m_socket.setProxy(QNetworkProxy::NoProxy);
    QObject::connect(&m_socket, &QTcpSocket::readyRead, &m_socket, [this] { read(); });
}

bool Probe::open()
{
    m_socket.connectToHost(m_bench.address(), m_bench.port());
    const auto isDecided = [this] { return isOpen() || m_socket.state() == QAbstractSocket::UnconnectedState; };
    processEventsUntil(isDecided, m_bench.timeoutMs());
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    return isOpen();
}

QString Probe::endText() const
{
    if (!m_problem.isEmpty())
        return ", because " + m_problem;
    if (isOpen())
        return {};
    return m_socket.error() == QAbstractSocket::RemoteHostClosedError
               ? QString(", because the server has ended the connection")
               : QString(", because the connection has ended: %1").arg(m_socket.errorString());
}

QString Probe::localProblem() const
{
    switch (m_socket.error()) {
        case QAbstractSocket::SocketAccessError:
        case QAbstractSocket::SocketResourceError:
        case QAbstractSocket::NetworkError:
        case QAbstractSocket::UnsupportedSocketOperationError:
            return m_socket.errorString();
        default:
            return {};
    }
}

void Probe::send(const QByteArray& messages)
{
    for (const QByteArray& message : messagesIn(messages))
        m_bench.record(true, message);
    m_socket.write(messages);
    processEventsUntil([this] { return m_socket.bytesToWrite() == 0 || !isOpen(); }, m_bench.timeoutMs());
}

void Probe::sendInPieces(const QByteArray& bytes, int size)
{
    for (const QByteArray& message : messagesIn(bytes))
        m_bench.record(true, message);
    for (int at = 0; at < bytes.size() && isOpen(); at += size) {
        m_socket.write(bytes.mid(at, size));
        m_socket.flush();
        // Otherwise the kernel puts pieces together, and the server sees fewer of them.
        QThread::msleep(PieceMs);
        QCoreApplication::processEvents();
    }
}

QByteArray Probe::next(const char* code, int milliseconds)
{
    QByteArray found;
    const auto isThere = [&] {
        for (auto message = m_received.begin(); message != m_received.end(); ++message) {
            if (codeOf(*message) != code)
                continue;
            found = *message;
            m_before = static_cast<std::size_t>(message - m_received.begin());
            m_received.erase(message);
            return true;
        }
        forgetOldest();
        return !isOpen() || !m_problem.isEmpty();
    };
    processEventsUntil(isThere, milliseconds < 0 ? m_bench.timeoutMs() : milliseconds);
    m_hasMissed = m_hasMissed || found.isEmpty();
    return found;
}

void Probe::clear()
{
    wait(0);
    m_received.clear();
}

void Probe::wait(int milliseconds)
{
    const auto hasEnded = [this] {
        forgetOldest();
        return !isOpen();
    };
    processEventsUntil(hasEnded, milliseconds);
    QCoreApplication::processEvents();
    read();
}

void Probe::setReading(bool isReading)
{
    m_isReading = isReading;
    m_socket.setReadBufferSize(isReading ? 0 : 1);
    const int bytes = isReading ? 1 << 20 : SmallBuffer;
    setsockopt(static_cast<int>(m_socket.socketDescriptor()), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    if (isReading)
        read();
}

void Probe::reset()
{
    const linger none{1, 0};
    setsockopt(static_cast<int>(m_socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
    m_socket.abort();
}

void Probe::read()
{
    if (!m_isReading)
        return;
    m_buffer += m_socket.readAll();
    cut();
}

void Probe::cut()
{
    while (m_problem.isEmpty() && m_buffer.size() >= Tools::MessageHeader::Length) {
        const Tools::MessageHeader header = Tools::MessageHeader::read(m_buffer);
        if (!header.hasCookie) {
            m_problem = "the stream has bytes that do not begin with CITP";
        } else if (header.size < Tools::MessageHeader::Length || header.size > Tools::MessageHeader::MaxBytes) {
            m_problem = QString("a message of layer %1 declares %2 bytes").arg(header.layer).arg(header.size);
        } else if (m_buffer.size() < static_cast<int>(header.size)) {
            return;
        } else {
            const QByteArray message = m_buffer.left(static_cast<int>(header.size));
            m_buffer.remove(0, static_cast<int>(header.size));
            m_bench.record(false, message);
            m_received.push_back(message);
        }
    }
}

// Not while they are cut: next() must have seen them.
void Probe::forgetOldest()
{
    qint64 bytes = 0;
    std::size_t kept = 0;
    for (auto message = m_received.rbegin(); message != m_received.rend() && kept < MaxReceived; ++message, ++kept) {
        bytes += message->size();
        if (bytes > MaxReceivedBytes)
            break;
    }
    m_received.erase(m_received.begin(), m_received.end() - static_cast<std::ptrdiff_t>(kept));
}

QByteArray codeOf(const QByteArray& message)
{
    return message.mid(message.mid(16, 4) == "MSEX" ? 22 : 20, 4);
}

QList<QByteArray> messagesIn(const QByteArray& bytes)
{
    QList<QByteArray> messages;
    for (int at = 0; at < bytes.size();) {
        const int size = qMax(CITP::Msg_Header::messageSize(bytes.mid(at)), Tools::MessageHeader::Length);
        messages << bytes.mid(at, size);
        at += size;
    }
    return messages;
}
} // namespace Console::ServerTests

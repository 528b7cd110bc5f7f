// The end of citp-mediaserver, and the sockets that its tests use.
// SPDX-License-Identifier: Apache-2.0
#include "mediaserver_fixture.h"

#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QtEndian>

#include <csignal>

namespace {
// For the children. The leak check takes arbitrary memory for the dynamic thread-local storage of a picture plugin, and
// crashes there.
[[maybe_unused]] const bool hasOptions = qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":intercept_tls_get_addr=0");
} // namespace

Program::~Program()
{
    if (!isRunning())
        return;
    signal(SIGTERM);
    EXPECT_EQ(waitForEnd(), 0);
    EXPECT_EQ(errors().toStdString(), "");
}

Outcome runToEnd(const QStringList& arguments)
{
    Program program(arguments);
    return outcomeOf(program);
}

GroupListener::GroupListener(const QString& adapterAddress, const QString& group)
{
    QNetworkInterface adapter;
    const auto all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& candidate : all) {
        const auto entries = candidate.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip() == QHostAddress(adapterAddress))
                adapter = candidate;
        }
    }
    EXPECT_TRUE(adapter.isValid());
    EXPECT_TRUE(
        m_socket.bind(QHostAddress(group), 4809, QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint));
    EXPECT_TRUE(m_socket.joinMulticastGroup(QHostAddress(group), adapter));
}

GroupListener::Datagram GroupListener::next()
{
    if (!m_socket.hasPendingDatagrams() && !m_socket.waitForReadyRead(TestTimeout))
        return {};
    Datagram datagram;
    datagram.data.resize(static_cast<int>(m_socket.pendingDatagramSize()));
    m_socket.readDatagram(datagram.data.data(), datagram.data.size(), &datagram.sender);
    return datagram;
}

GroupListener::Datagram GroupListener::nextFrom(const QString& sender)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < TestTimeout) {
        const Datagram datagram = next();
        if (datagram.sender == QHostAddress(sender))
            return datagram;
    }
    return {};
}

void GroupListener::drain()
{
    while (m_socket.hasPendingDatagrams())
        next();
}

Console::Console(const QString& address, quint16 port)
{
    m_socket.connectToHost(address, port);
    EXPECT_TRUE(m_socket.waitForConnected(TestTimeout)) << m_socket.errorString().toStdString();
}

void Console::send(const QByteArray& bytes)
{
    m_socket.write(bytes);
    while (m_socket.bytesToWrite() > 0 && m_socket.waitForBytesWritten(TestTimeout)) {
    }
}

QByteArray Console::nextBytes(int count)
{
    while (m_socket.bytesAvailable() < count && m_socket.waitForReadyRead(TestTimeout)) {
    }
    return m_socket.read(count);
}

QByteArray Console::nextMessage()
{
    QByteArray message = nextBytes(20);
    if (message.size() < 20)
        return {};
    const auto size = static_cast<int>(qFromLittleEndian<quint32>(message.constData() + 8));
    message += nextBytes(size - 20);
    return message.size() == size ? message : QByteArray();
}

QByteArray Console::nextMessage(const char* code)
{
    for (int i = 0; i < 10000; ++i) {
        const QByteArray message = nextMessage();
        const int at = message.mid(16, 4) == "MSEX" ? 22 : 20;
        if (message.isEmpty() || message.mid(at, 4) == code)
            return message;
    }
    return {};
}

bool Console::waitForEnd(int milliseconds)
{
    return m_socket.state() == QAbstractSocket::UnconnectedState || m_socket.waitForDisconnected(milliseconds);
}

FaultyPair::FaultyPair(const QString& faults, const QStringList& arguments)
    : program(QStringList{"--adapter", "lo", "--fault", faults} + arguments)
{
    program.waitForLine("listens on");
    console = std::make_unique<Console>("127.0.0.2", 4811);
}

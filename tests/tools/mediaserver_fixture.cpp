// Child process and sockets of the tests of citp-mediaserver, and main(), which gives Qt its application object.
// SPDX-License-Identifier: Apache-2.0
#include "mediaserver_fixture.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QtEndian>

Program::Program(const QStringList& arguments)
{
    m_process.start(MEDIASERVER_PROGRAM, arguments);
    EXPECT_TRUE(m_process.waitForStarted(Patience)) << m_process.errorString().toStdString();
}

Program::~Program()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(Patience))
        m_process.kill();
    m_process.waitForFinished(Patience);
    EXPECT_EQ(m_process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(m_process.exitCode(), 0);
    EXPECT_EQ(m_process.readAllStandardError().toStdString(), "");
}

QString Program::waitForLine(const QString& part)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < Patience) {
        while (m_process.canReadLine()) {
            const QString line = QString::fromUtf8(m_process.readLine()).trimmed();
            if (line.contains(part))
                return line;
        }
        if (!m_process.waitForReadyRead(Patience) && m_process.state() == QProcess::NotRunning)
            break;
    }
    ADD_FAILURE() << "no line with: " << part.toStdString();
    return {};
}

int Program::waitForEnd()
{
    if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(Patience))
        return -1;
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

Outcome runToEnd(const QStringList& arguments)
{
    Program program(arguments);
    const int status = program.waitForEnd();
    return {status, QString::fromUtf8(program.process().readAllStandardOutput()),
            QString::fromUtf8(program.process().readAllStandardError())};
}

GroupListener::GroupListener(const QString& adapterAddress)
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
    EXPECT_TRUE(m_socket.bind(QHostAddress(QHostAddress::AnyIPv4), 4809,
                              QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint));
    EXPECT_TRUE(m_socket.joinMulticastGroup(QHostAddress("224.0.0.180"), adapter));
}

GroupListener::Datagram GroupListener::next()
{
    if (!m_socket.hasPendingDatagrams() && !m_socket.waitForReadyRead(Patience))
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
    while (timer.elapsed() < Patience) {
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
    EXPECT_TRUE(m_socket.waitForConnected(Patience)) << m_socket.errorString().toStdString();
}

void Console::send(const QByteArray& bytes)
{
    m_socket.write(bytes);
    while (m_socket.bytesToWrite() > 0 && m_socket.waitForBytesWritten(Patience)) {
    }
}

QByteArray Console::nextBytes(int count)
{
    while (m_socket.bytesAvailable() < count && m_socket.waitForReadyRead(Patience)) {
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

bool Console::waitForEnd()
{
    return m_socket.state() == QAbstractSocket::UnconnectedState || m_socket.waitForDisconnected(Patience);
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

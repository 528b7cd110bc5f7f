// What the tests of citp-mediaserver share: the program as a child process, and bare sockets that speak bytes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QHostAddress>
#include <QStringList>
#include <QTcpSocket>
#include <QUdpSocket>

#include "child.h"

/// Bytes from hexadecimal digits; blanks are for the reader.
inline QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

/// citp-mediaserver as a child process. One that still runs is ended with the object, and must end without an error.
class Program : public Child
{
public:
    explicit Program(const QStringList& arguments) : Child(MEDIASERVER_PROGRAM, arguments) {}
    ~Program();
};

/// Runs the program to its end.
Outcome runToEnd(const QStringList& arguments);

/// A socket that has joined the discovery group on one adapter.
class GroupListener
{
public:
    /// @param adapterAddress an address of the adapter to listen on
    explicit GroupListener(const QString& adapterAddress = "127.0.0.1");

    struct Datagram
    {
        QByteArray data;
        QHostAddress sender;
    };
    /// Waits for one datagram; empty if none comes.
    Datagram next();
    /// Waits for a datagram from @p sender, leaving out others; empty if none comes.
    Datagram nextFrom(const QString& sender);
    /// Forgets what has been received so far.
    void drain();

private:
    QUdpSocket m_socket;
};

/// A console's connection, one byte like another.
class Console
{
public:
    Console(const QString& address, quint16 port);

    void send(const QByteArray& bytes);
    /// Waits for one whole message, cut by the size in its header; empty if it does not come whole.
    QByteArray nextMessage();
    /// Waits for a message with this MSEX, FPTC or PINF code, leaving out others; empty if it does not come.
    QByteArray nextMessage(const char* code);
    /// Waits for exactly this many bytes; fewer if the connection ends.
    QByteArray nextBytes(int count);
    /// Waits for the server to end the connection.
    bool waitForEnd();
    QTcpSocket& socket() { return m_socket; }

private:
    QTcpSocket m_socket;
};

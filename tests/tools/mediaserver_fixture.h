// What the tests of citp-mediaserver share: the program as a child process, and bare sockets that speak bytes.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QHostAddress>
#include <QStringList>
#include <QTcpSocket>
#include <QUdpSocket>

#include <memory>

#include "child.h"

/// CInf.
inline const char* const Greeting = "43495450 01 00 0000 21000000 0100 0000 4D534558 01 02 43496E66 03 0001 0101 0201";
/// GELI, media, all of the first level, 1.0.
inline const char* const AskLibraries = "43495450 01 00 0000 1C000000 0100 0000 4D534558 01 00 47454C49 01 00";
/// GETh in 1.0: element 0 of library 2 as rows of 4 x 3 pixels.
inline const char* const AskThumbnail =
    "43495450 01 00 0000 27000000 0100 0000 4D534558 01 00 47455468 52474238 0400 0300 01 01 02 01 00";
/// GETh in 1.0: all ten elements of library 3, likewise.
inline const char* const AskThumbnails =
    "43495450 01 00 0000 26000000 0100 0000 4D534558 01 00 47455468 52474238 0400 0300 01 01 03 00";
/// A message that media servers do not answer.
inline const char* const UnknownMessage = "43495450 01 00 0000 1A000000 0100 0000 4D534558 01 02 58787878";

/// The sizes of the answers.
constexpr int ThumbnailSize = 39 + 36;
constexpr int LibrariesSize = 28 + (3 + 20 + 1) + (3 + 22 + 1) + (3 + 32 + 1);

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

/// A socket that has joined a discovery group on one adapter, and hears that group alone.
class GroupListener
{
public:
    /// @param adapterAddress an address of the adapter to listen on
    explicit GroupListener(const QString& adapterAddress = "127.0.0.1", const QString& group = "224.0.0.180");

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
    /// Whether nothing has been received that was not taken.
    bool isEmpty() const { return !m_socket.hasPendingDatagrams(); }

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
    bool waitForEnd(int milliseconds = TestTimeout);
    QTcpSocket& socket() { return m_socket; }

private:
    QTcpSocket m_socket;
};

/// A misbehaving server and a console connected to it.
struct FaultyPair
{
    /// @param faults names, for --fault
    explicit FaultyPair(const QString& faults, const QStringList& arguments = {});

    Program program;
    std::unique_ptr<Console> console;
};

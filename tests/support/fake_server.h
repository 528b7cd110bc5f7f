// FakeServer: a media server made of bare sockets, which does what a test tells it to and nothing by itself.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A descriptor with one owner.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    int get() const { return m_number; }
    int release();
    void close();

private:
    int m_number;
};

/// Closes what the servers and connections that have been destroyed since the last call had open. They leave it open
/// so that the end of a test, where they go out of scope, is no event for the console.
void closeLeftovers();

/// The server's end of a connection. What goes wrong or does not happen in time is thrown as std::runtime_error, which
/// fails the test.
class Connection
{
public:
    explicit Connection(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}
    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&& other) noexcept;
    /// Leaves the connection open until closeLeftovers().
    ~Connection();

    void send(const QByteArray& bytes);
    /// Sends @p bytes as one segment of their own, which has arrived when this returns.
    void sendSegment(const QByteArray& bytes);
    /// Sends without waiting and without complaint. @return false once the connection is gone
    bool trySend(const QByteArray& bytes);
    /// The next whole message, cut from the stream by its size field.
    QByteArray receive();
    /// The same, but nothing if none has come within @p milliseconds or the connection has ended.
    std::optional<QByteArray> tryReceive(int milliseconds);
    /// Waits for the console to end the connection; what it sent before is dropped.
    void waitForEnd();
    void close() { m_descriptor.close(); }
    /// Ends the connection with a TCP reset.
    void reset();
    /// The address and port of the console's end.
    QString peer() const;
    int descriptor() const { return m_descriptor.get(); }

private:
    Descriptor m_descriptor;
    QByteArray m_received;
};

/// Announces itself to the group from an address of its own and listens on a port of its own.
class FakeServer
{
public:
    /// @param host a local address, e.g. "127.0.0.2"
    /// @param receiveBuffer SO_RCVBUF of its connections, in bytes; 0 for the system's
    explicit FakeServer(const std::string& host = "127.0.0.2", int receiveBuffer = 0);
    FakeServer(FakeServer&&) noexcept = default;
    /// Goes on listening until closeLeftovers().
    ~FakeServer();

    QString host() const { return QString::fromStdString(m_host); }
    quint16 port() const { return m_port; }
    /// The key under which the console knows this server.
    QString key() const { return host() + QLatin1Char(':') + QString::number(m_port); }

    void announce(const char* name = "Server") const;
    void sendDatagram(const QByteArray& datagram, const char* group = "224.0.0.180") const;
    /// Takes the next connection.
    Connection accept();
    std::optional<Connection> tryAccept(int milliseconds);
    /// From now on connections are refused.
    void stopListening() { m_listener.close(); }
    /// Listens on the same port again.
    void listenAgain() { listen(16); }
    /// From now on connections are neither accepted nor refused: the console's attempt stays unanswered.
    void leaveUnanswered();
    /// Ends that; the console's next attempt, which the kernel makes by itself within seconds, succeeds.
    void answerAgain();

private:
    void listen(int backlog);

    std::string m_host;
    int m_receiveBuffer;
    quint16 m_port = 0;
    Descriptor m_listener;
    Descriptor m_announcer;
    Descriptor m_blockers[4];
    std::optional<Connection> m_early; ///< accepted before it was asked for
};

/// A UDP socket on the discovery port that is a member of the group; not open if the port cannot be had.
/// @param share with other sockets that share the port too
Descriptor openDiscoveryPort(bool share);

/// This process's descriptors of the stack's end of connections to @p server. The stack runs in the same process, so
/// its sockets can be inspected.
std::vector<int> stackDescriptors(const FakeServer& server);
/// The first of them; -1 if there is none.
int stackDescriptor(const FakeServer& server);
/// Fills what the kernel buffers for that connection, so that the next write of the stack cannot go out.
void fillStackSocket(const FakeServer& server);

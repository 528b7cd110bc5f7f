// FakeServer: bare IPv4 sockets.
// SPDX-License-Identifier: Apache-2.0
#include "fake_server.h"

#include "wait.h"
#include "wire.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <linux/sockios.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {
[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(what + (errno ? std::string(": ") + std::strerror(errno) : std::string()));
}

/// The port of one end of a connection: getsockname's or getpeername's.
quint16 portOf(int descriptor, int (*name)(int, sockaddr*, socklen_t*))
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    return name(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? ntohs(address.sin_port) : 0;
}

sockaddr_in addressOf(const std::string& host, quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    return address;
}

void bindTo(int descriptor, const std::string& host, quint16 port)
{
    const sockaddr_in address = addressOf(host, port);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("bind " + host);
    }
}

void setOption(int descriptor, int level, int option, int value)
{
    if (setsockopt(descriptor, level, option, &value, sizeof value) != 0) {
        fail("setsockopt");
    }
}

bool waitUntilReady(int descriptor, short events, int milliseconds)
{
    pollfd entry = {descriptor, events, 0};
    int ready = -1;
    do {
        ready = poll(&entry, 1, milliseconds);
    } while (ready < 0 && errno == EINTR); // a fuzzer's alarm ticks meanwhile
    return ready == 1;
}

std::mutex leftoversMutex;
std::vector<Descriptor> leftovers;

void leaveOpen(Descriptor descriptor)
{
    const std::lock_guard<std::mutex> lock(leftoversMutex);
    leftovers.push_back(std::move(descriptor));
}
} // namespace

void closeLeftovers()
{
    const std::lock_guard<std::mutex> lock(leftoversMutex);
    leftovers.clear();
}

Connection& Connection::operator=(Connection&& other) noexcept
{
    std::swap(m_descriptor, other.m_descriptor);
    std::swap(m_received, other.m_received);
    return *this;
}

Connection::~Connection()
{
    leaveOpen(std::move(m_descriptor));
}

FakeServer::~FakeServer()
{
    leaveOpen(std::move(m_listener));
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    close();
    m_number = other.release();
    return *this;
}

int Descriptor::release()
{
    return std::exchange(m_number, -1);
}

void Descriptor::close()
{
    if (m_number >= 0) {
        ::close(std::exchange(m_number, -1));
    }
}

void Connection::send(const QByteArray& bytes)
{
    const char* at = bytes.constData();
    auto left = bytes.size();
    while (left > 0) {
        errno = 0;
        if (!waitUntilReady(m_descriptor.get(), POLLOUT, TestTimeout)) {
            fail("the console does not take what is sent");
        }
        const ssize_t sent = ::send(m_descriptor.get(), at, static_cast<std::size_t>(left), MSG_NOSIGNAL);
        if (sent < 0) {
            fail("send");
        }
        at += sent;
        left -= static_cast<decltype(left)>(sent);
    }
}

void Connection::sendSegment(const QByteArray& bytes)
{
    setOption(m_descriptor.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    send(bytes);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(TestTimeout);
    int unacknowledged = 0;
    while (ioctl(m_descriptor.get(), SIOCOUTQ, &unacknowledged) == 0 && unacknowledged > 0 &&
           std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool Connection::trySend(const QByteArray& bytes)
{
    return ::send(m_descriptor.get(), bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL) > 0;
}

QByteArray Connection::receive()
{
    errno = 0;
    const std::optional<QByteArray> message = tryReceive(TestTimeout);
    if (!message) {
        fail("no message from the console");
    }
    return *message;
}

std::optional<QByteArray> Connection::tryReceive(int milliseconds)
{
    for (;;) {
        if (m_received.size() >= 20) {
            quint32 size = 0;
            for (int index = 3; index >= 0; --index) {
                size = size << 8 | static_cast<unsigned char>(m_received.at(8 + index));
            }
            if (!m_received.startsWith("CITP") || size < 20) {
                throw std::runtime_error("the console sent what is no CITP message");
            }
            if (m_received.size() >= static_cast<int>(size)) {
                const QByteArray message = m_received.left(static_cast<int>(size));
                m_received.remove(0, static_cast<int>(size));
                return message;
            }
        }
        if (!waitUntilReady(m_descriptor.get(), POLLIN, milliseconds)) {
            return std::nullopt;
        }
        char part[65536];
        const ssize_t count = recv(m_descriptor.get(), part, sizeof part, 0);
        if (count <= 0) {
            return std::nullopt;
        }
        m_received.append(part, static_cast<int>(count));
    }
}

void Connection::waitForEnd()
{
    for (;;) {
        errno = 0;
        if (!waitUntilReady(m_descriptor.get(), POLLIN, TestTimeout)) {
            fail("the console does not end the connection");
        }
        char part[4096];
        if (recv(m_descriptor.get(), part, sizeof part, 0) <= 0) {
            return;
        }
    }
}

void Connection::reset()
{
    const linger now = {1, 0};
    setsockopt(m_descriptor.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    m_descriptor.close();
}

QString Connection::peer() const
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getpeername(m_descriptor.get(), reinterpret_cast<sockaddr*>(&address), &size);
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return QString::fromLatin1(text) + QLatin1Char(':') + QString::number(ntohs(address.sin_port));
}

FakeServer::FakeServer(const std::string& host, int receiveBuffer)
    : m_host(host), m_receiveBuffer(receiveBuffer), m_announcer(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    listen(16);
    bindTo(m_announcer.get(), m_host, 0);
    const in_addr interface = addressOf(m_host, 0).sin_addr;
    if (setsockopt(m_announcer.get(), IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) != 0) {
        fail("IP_MULTICAST_IF");
    }
}

void FakeServer::listen(int backlog)
{
    m_listener = Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    setOption(m_listener.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (m_receiveBuffer > 0) {
        setOption(m_listener.get(), SOL_SOCKET, SO_RCVBUF, m_receiveBuffer);
    }
    bindTo(m_listener.get(), m_host, m_port);
    if (::listen(m_listener.get(), backlog) != 0) {
        fail("listen");
    }
    m_port = portOf(m_listener.get(), getsockname);
}

void FakeServer::announce(const char* name) const
{
    sendDatagram(Wire::ploc(m_port, "MediaServer", name));
}

void FakeServer::sendDatagram(const QByteArray& datagram, const char* group) const
{
    const sockaddr_in address = addressOf(group, 4809);
    if (sendto(m_announcer.get(), datagram.constData(), static_cast<std::size_t>(datagram.size()), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof address) != datagram.size()) {
        fail("sendto the group");
    }
}

Connection FakeServer::accept()
{
    errno = 0;
    std::optional<Connection> connection = tryAccept(TestTimeout);
    if (!connection) {
        fail("the console does not connect");
    }
    return std::move(*connection);
}

std::optional<Connection> FakeServer::tryAccept(int milliseconds)
{
    if (m_early) {
        return std::exchange(m_early, std::nullopt);
    }
    if (!waitUntilReady(m_listener.get(), POLLIN, milliseconds)) {
        return std::nullopt;
    }
    return Connection(Descriptor(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

void FakeServer::leaveUnanswered()
{
    ::listen(m_listener.get(), 0);
    const sockaddr_in address = addressOf(m_host, m_port);
    for (Descriptor& blocker : m_blockers) {
        blocker = Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connect(blocker.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
}

void FakeServer::answerAgain()
{
    ::listen(m_listener.get(), 16);
    std::set<quint16> ports;
    for (Descriptor& blocker : m_blockers) {
        ports.insert(portOf(blocker.get(), getsockname));
        blocker.close();
    }
    // The blockers' own connections are first in the queue, and are at their end. The console's may be behind them.
    while (!m_early && waitUntilReady(m_listener.get(), POLLIN, 0)) {
        Descriptor accepted(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (ports.count(portOf(accepted.get(), getpeername)) == 0) {
            m_early.emplace(std::move(accepted));
        }
    }
}

Descriptor openDiscoveryPort(bool share)
{
    Descriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    if (share) {
        setsockopt(descriptor.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(4809);
    if (bind(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Descriptor();
    }
    ip_mreq membership = {};
    inet_pton(AF_INET, "224.0.0.180", &membership.imr_multiaddr);
    inet_pton(AF_INET, "127.0.0.1", &membership.imr_interface);
    setsockopt(descriptor.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);
    return descriptor;
}

std::vector<int> stackDescriptors(const FakeServer& server)
{
    const sockaddr_in wanted = addressOf(server.host().toStdString(), server.port());
    std::vector<int> found;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.sin_addr.s_addr == wanted.sin_addr.s_addr && address.sin_port == wanted.sin_port) {
            found.push_back(descriptor);
        }
    }
    return found;
}

int stackDescriptor(const FakeServer& server)
{
    const std::vector<int> descriptors = stackDescriptors(server);
    return descriptors.empty() ? -1 : descriptors.front();
}

void fillStackSocket(const FakeServer& server)
{
    const int descriptor = stackDescriptor(server);
    const char part[4096] = {};
    // Twice with a pause: what is under way to the server makes room once more.
    for (int round = 0; round < 3; ++round) {
        while (::send(descriptor, part, sizeof part, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        }
        while (::send(descriptor, part, 1, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

// Tests of Net::Socket: whose the descriptor is, binding, multicast, and ending another thread's wait.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/net_socket.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

namespace {

using Net::Address;
using Net::Socket;

constexpr std::uint32_t loopback = 0x7F000001;
constexpr std::uint32_t group = 0xE00000B4; // 224.0.0.180

bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

int intOption(const Socket& socket, int level, int option)
{
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(socket.GetDescriptor(), level, option, &value, &size), 0);
    return value;
}

sockaddr_in localName(const Socket& socket)
{
    sockaddr_in name{};
    socklen_t size = sizeof name;
    EXPECT_EQ(getsockname(socket.GetDescriptor(), reinterpret_cast<sockaddr*>(&name), &size), 0);
    return name;
}

bool becomesReadable(const Socket& socket, int milliseconds)
{
    pollfd descriptor{socket.GetDescriptor(), POLLIN, 0};
    return poll(&descriptor, 1, milliseconds) == 1;
}

TEST(NetSocket, IsNotOpenAtFirst)
{
    Socket socket;
    EXPECT_FALSE(socket.IsValid());
    EXPECT_EQ(socket.GetDescriptor(), -1);
}

TEST(NetSocket, FailsWithAReasonWhenNotOpen)
{
    Socket socket;
    const auto fails = [](bool result) { return !result && errno == EBADF; };
    EXPECT_TRUE(fails(socket.SetBlocking(false)));
    EXPECT_TRUE(fails(socket.SetAddressReuse(true)));
    EXPECT_TRUE(fails(socket.SetReceiveBufferCapacity(65536)));
    EXPECT_TRUE(fails(socket.Bind(0)));
    EXPECT_TRUE(fails(socket.Bind(Address(loopback))));
    EXPECT_TRUE(fails(socket.JoinMulticastGroup(group, loopback)));
    EXPECT_TRUE(fails(socket.SetMulticastTtl(1)));
    EXPECT_TRUE(fails(socket.SetMulticastLoopback(true)));
    socket.Cancel();
    socket.Close();
}

TEST(NetSocket, OpensEitherProtocol)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_EQ(intOption(socket, SOL_SOCKET, SO_TYPE), SOCK_DGRAM);
    ASSERT_TRUE(socket.Open(Socket::TCP));
    EXPECT_EQ(intOption(socket, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
}

TEST(NetSocket, IsNotInheritedByChildPrograms)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_NE(fcntl(socket.GetDescriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(NetSocket, ClosesItsDescriptorWhenItDies)
{
    int descriptor = -1;
    {
        Socket socket;
        ASSERT_TRUE(socket.Open(Socket::TCP));
        descriptor = socket.GetDescriptor();
        EXPECT_TRUE(isOpen(descriptor));
    }
    EXPECT_FALSE(isOpen(descriptor));
}

TEST(NetSocket, ClosesItsDescriptorExactlyOnce)
{
    int descriptor = -1;
    {
        Socket socket;
        ASSERT_TRUE(socket.Open(Socket::UDP));
        descriptor = socket.GetDescriptor();
        socket.Close();
        EXPECT_FALSE(socket.IsValid());
        EXPECT_EQ(socket.GetDescriptor(), -1);
        // The number now belongs to somebody else.
        ASSERT_EQ(dup2(STDERR_FILENO, descriptor), descriptor);
        socket.Close();
        socket.Cancel();
        EXPECT_TRUE(isOpen(descriptor));
    }
    EXPECT_TRUE(isOpen(descriptor));
    close(descriptor);
}

TEST(NetSocket, OpeningAgainClosesTheFormerDescriptor)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    ASSERT_TRUE(socket.Bind(Address(loopback, 0)));
    const std::uint16_t port = ntohs(localName(socket).sin_port);
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_TRUE(socket.Bind(Address(loopback, port)));
}

TEST(NetSocket, LeavesADuplicateOpenWhenItCloses)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    const int duplicate = dup(socket.GetDescriptor());
    socket.Close();
    EXPECT_TRUE(isOpen(duplicate));
    close(duplicate);
}

TEST(NetSocket, SaysWhenTheSystemHasNoDescriptorLeft)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
    const rlimit none{0, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool opened = socket.Open(Socket::UDP);
    const int reason = errno;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
    EXPECT_FALSE(opened);
    EXPECT_EQ(reason, EMFILE);
    EXPECT_FALSE(socket.IsValid());
}

TEST(NetSocket, SetsAndClearsBlocking)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::TCP));
    EXPECT_TRUE(socket.SetBlocking(false));
    EXPECT_NE(fcntl(socket.GetDescriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_TRUE(socket.SetBlocking(true));
    EXPECT_EQ(fcntl(socket.GetDescriptor(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(NetSocket, SetsItsOptions)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_TRUE(socket.SetAddressReuse(true));
    EXPECT_NE(intOption(socket, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_TRUE(socket.SetReceiveBufferCapacity(65536));
    EXPECT_GE(intOption(socket, SOL_SOCKET, SO_RCVBUF), 65536);
    EXPECT_TRUE(socket.SetMulticastTtl(38));
    EXPECT_EQ(intOption(socket, IPPROTO_IP, IP_MULTICAST_TTL), 38);
    EXPECT_TRUE(socket.SetMulticastLoopback(false));
    EXPECT_EQ(intOption(socket, IPPROTO_IP, IP_MULTICAST_LOOP), 0);
}

TEST(NetSocket, RefusesATtlOutsideItsRange)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    for (const int hops : {-1, 256}) {
        EXPECT_FALSE(socket.SetMulticastTtl(hops));
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(NetSocket, BindsAPortOnEveryAdapter)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    ASSERT_TRUE(socket.Bind(0));
    EXPECT_EQ(localName(socket).sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_NE(localName(socket).sin_port, 0);
}

TEST(NetSocket, BindsToOneAddress)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::TCP));
    ASSERT_TRUE(socket.Bind(Address("127.0.0.1")));
    EXPECT_EQ(localName(socket).sin_addr.s_addr, htonl(loopback));
    EXPECT_NE(localName(socket).sin_port, 0);
}

TEST(NetSocket, FailsToBindToAnAddressOfAnotherMachine)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_FALSE(socket.Bind(Address("192.0.2.1", 0)));
    EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST(NetSocket, SharesAPortOnlyIfBothReuseAddresses)
{
    Socket first;
    ASSERT_TRUE(first.Open(Socket::UDP) && first.SetAddressReuse(true) && first.Bind(0));
    const std::uint16_t port = ntohs(localName(first).sin_port);
    Socket second;
    ASSERT_TRUE(second.Open(Socket::UDP));
    EXPECT_FALSE(second.Bind(port));
    EXPECT_EQ(errno, EADDRINUSE);
    ASSERT_TRUE(second.SetAddressReuse(true));
    EXPECT_TRUE(second.Bind(port));
}

TEST(NetSocket, HearsAMulticastGroupOnlyOnceItHasJoined)
{
    Socket receiver;
    ASSERT_TRUE(receiver.Open(Socket::UDP) && receiver.Bind(0));
    // Otherwise the kernel hands this socket what any socket of the machine has joined.
    const int onlyOwn = 0;
    ASSERT_EQ(setsockopt(receiver.GetDescriptor(), IPPROTO_IP, IP_MULTICAST_ALL, &onlyOwn, sizeof onlyOwn), 0);
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = htonl(group);
    destination.sin_port = localName(receiver).sin_port;
    Socket sender;
    ASSERT_TRUE(sender.Open(Socket::UDP) && sender.Bind(Address(loopback)));
    const in_addr adapter{htonl(loopback)};
    ASSERT_EQ(setsockopt(sender.GetDescriptor(), IPPROTO_IP, IP_MULTICAST_IF, &adapter, sizeof adapter), 0);
    const auto send = [&] {
        return sendto(sender.GetDescriptor(), "x", 1, 0, reinterpret_cast<const sockaddr*>(&destination),
                      sizeof destination);
    };
    ASSERT_EQ(send(), 1);
    EXPECT_FALSE(becomesReadable(receiver, 50));
    ASSERT_TRUE(receiver.JoinMulticastGroup(group, loopback));
    ASSERT_EQ(send(), 1);
    EXPECT_TRUE(becomesReadable(receiver, 30000));
}

TEST(NetSocket, DoesNotJoinWithoutAnAdapter)
{
    Socket socket;
    ASSERT_TRUE(socket.Open(Socket::UDP));
    EXPECT_FALSE(socket.JoinMulticastGroup(group, 0));
    EXPECT_EQ(errno, ENODEV);
    EXPECT_FALSE(socket.JoinMulticastGroup(group, 0xC0000201)); // 192.0.2.1, no adapter's address
    EXPECT_EQ(errno, ENODEV);
    EXPECT_FALSE(socket.JoinMulticastGroup(loopback, loopback));
    EXPECT_EQ(errno, EINVAL);
}

TEST(NetSocket, CancelEndsAnotherThreadsWait)
{
    for (const Socket::Protocol protocol : {Socket::UDP, Socket::TCP}) {
        Socket socket;
        ASSERT_TRUE(socket.Open(protocol) && socket.Bind(Address(loopback)));
        if (protocol == Socket::TCP) {
            ASSERT_EQ(listen(socket.GetDescriptor(), 1), 0);
        }
        std::atomic<bool> waiting{false};
        ssize_t result = 1;
        std::thread thread([&] {
            char byte;
            waiting = true;
            result = protocol == Socket::UDP ? recv(socket.GetDescriptor(), &byte, 1, 0)
                                             : accept(socket.GetDescriptor(), nullptr, nullptr);
        });
        while (!waiting)
            std::this_thread::yield();
        socket.Cancel();
        thread.join();
        EXPECT_LE(result, 0);
        EXPECT_TRUE(socket.IsValid());
    }
}

TEST(NetSocket, CancelNeverReachesADescriptorThatHasBeenClosed)
{
    // Each round closes a socket and at once opens a pair that gets its number; a late Cancel would shut that down.
    Socket socket;
    std::atomic<bool> ending{false};
    std::thread canceller([&] {
        while (!ending)
            socket.Cancel();
    });
    int broken = 0;
    for (int round = 0; round < 3000; ++round) {
        ASSERT_TRUE(socket.Open(Socket::UDP));
        socket.Close();
        int pair[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        if (send(pair[0], "x", 1, MSG_NOSIGNAL) != 1 || send(pair[1], "x", 1, MSG_NOSIGNAL) != 1)
            ++broken;
        close(pair[0]);
        close(pair[1]);
    }
    ending = true;
    canceller.join();
    EXPECT_EQ(broken, 0);
}

} // namespace

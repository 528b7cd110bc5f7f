// The switch, the heartbeat, the discovery socket and the reaction to adapter changes.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <QThread>
#include <QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <thread>

using CITP::citp_stack;

namespace {
using Texts = std::vector<std::string>;

/// The descriptors of this process that are UDP sockets on the discovery port.
std::vector<int> discoveryDescriptors()
{
    std::vector<int> found;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == 4809) {
            found.push_back(descriptor);
        }
    }
    return found;
}

int option(int descriptor, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(descriptor, level, name, &value, &size);
    return value;
}
} // namespace

class LifecycleTest : public StackTest
{
};

TEST_F(LifecycleTest, GetGivesTheSameStackToEveryThread)
{
    citp_stack* other = nullptr;
    std::thread([&other] { other = citp_stack::Get(); }).join();
    EXPECT_EQ(other, stack);
}

TEST_F(LifecycleTest, TheWorkerThreadRunsAtLowPriorityWithATickOfTwoSeconds)
{
    EXPECT_EQ(stack->thread()->priority(), QThread::LowPriority);
    EXPECT_NE(stack->thread(), QThread::currentThread());
    runOnWorker([this] {
        const auto timers = stack->findChildren<QTimer*>();
        ASSERT_EQ(timers.size(), 1);
        EXPECT_EQ(timers.front()->interval(), 2000);
        EXPECT_EQ(timers.front()->timerType(), Qt::PreciseTimer);
        EXPECT_FALSE(timers.front()->isSingleShot());
        EXPECT_TRUE(timers.front()->isActive());
    });
}

TEST_F(LifecycleTest, TheTimerTicksByItself)
{
    stack->setEnabled(true);
    EXPECT_TRUE(waitForLine("UDP socket started "));
}

TEST_F(LifecycleTest, EnablingOpensDiscoveryAtTheNextTick)
{
    stack->setEnabled(true);
    tick();
    EXPECT_EQ(log.texts(),
              (Texts{"CITP processing now enabled", "Binding to address 127.0.0.1:4809", "UDP socket started "}));
    for (const LogCapture::Entry& line : log.entries()) {
        EXPECT_EQ(line.level, 2u) << line.text;
        EXPECT_EQ(line.file, "citp_stack.cpp") << line.text;
        EXPECT_NE(line.function.find("citp_stack::"), std::string::npos) << line.text;
        EXPECT_GT(line.line, 0) << line.text;
        EXPECT_GT(line.callStackDepth, 0) << line.text;
    }
}

TEST_F(LifecycleTest, TheDiscoverySocketIsSetUpForTheGroup)
{
    enable();
    const std::vector<int> descriptors = discoveryDescriptors();
    ASSERT_FALSE(descriptors.empty());
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(descriptors.front(), reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(option(descriptors.front(), SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(option(descriptors.front(), SOL_SOCKET, SO_RCVBUF), 2 * 65536); // the kernel doubles what is asked for
    EXPECT_EQ(option(descriptors.front(), IPPROTO_IP, IP_MULTICAST_TTL), 38);
    EXPECT_EQ(option(descriptors.front(), IPPROTO_IP, IP_MULTICAST_LOOP), 0);
}

TEST_F(LifecycleTest, DisablingDropsEveryServerAndClosesDiscovery)
{
    holdTicks();
    enable();
    FakeServer server;
    Connection connection = admit(server);
    stack->setEnabled(false);
    EXPECT_TRUE(isListed(server));
    tick();
    EXPECT_FALSE(isListed(server));
    EXPECT_EQ(recorder->count("serverDown " + server.key().toStdString()), 1);
    connection.waitForEnd();
    EXPECT_TRUE(discoveryDescriptors().empty());
    EXPECT_GE(openDiscoveryPort(false).get(), 0);
    EXPECT_EQ(log.count("CITP processing now disabled"), 1);
}

TEST_F(LifecycleTest, EnablingThenDisablingBeforeTheTickOpensNothing)
{
    holdTicks();
    stack->setEnabled(true);
    stack->setEnabled(false);
    tick();
    tick();
    EXPECT_EQ(log.texts(), (Texts{"CITP processing now enabled", "CITP processing now disabled"}));
    EXPECT_TRUE(discoveryDescriptors().empty());
}

TEST_F(LifecycleTest, EnablingThenDisablingBeforeTheTickDropsTheServers)
{
    holdTicks();
    enable();
    FakeServer server;
    Connection connection = admit(server);
    armReset();
    stack->setEnabled(false);
    tick();
    EXPECT_FALSE(isListed(server));
    EXPECT_TRUE(discoveryDescriptors().empty());
}

TEST_F(LifecycleTest, EnablingTwiceSaysItOnceAndResetsNothing)
{
    enable();
    FakeServer server;
    Connection connection = admit(server);
    log.clear();
    stack->setEnabled(true);
    tick();
    EXPECT_TRUE(log.entries().empty());
    EXPECT_TRUE(isListed(server));
}

TEST_F(LifecycleTest, TwoThreadsMaySwitchAtTheSameTime)
{
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < 2; ++index) {
        threads.emplace_back([this, index] {
            for (int round = 0; round < 2000; ++round) {
                stack->setEnabled((round + index) % 2 == 0);
            }
        });
    }
    std::thread ticker([this, &done] {
        while (!done) {
            tick();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    done = true;
    ticker.join();
    // Every change is said once, so the two texts take turns.
    Texts switches;
    for (const std::string& text : log.texts()) {
        if (text.rfind("CITP processing now ", 0) == 0) {
            switches.push_back(text);
        }
    }
    const auto enabled = std::count(switches.begin(), switches.end(), "CITP processing now enabled");
    const auto disabled = std::count(switches.begin(), switches.end(), "CITP processing now disabled");
    EXPECT_GE(enabled, 1);
    EXPECT_TRUE(enabled == disabled || enabled == disabled + 1) << enabled << " " << disabled;
    stack->setEnabled(false);
    enable();
    FakeServer server;
    Connection connection = admit(server);
}

TEST_F(LifecycleTest, AnAdapterChangeDropsEveryServerAtTheNextTickAndTheyAreFoundAgain)
{
    holdTicks();
    enable();
    FakeServer first("127.0.0.2");
    FakeServer second("127.0.0.3");
    FakeServer unannounced("127.0.0.4");
    Connection firstConnection = admit(first);
    Connection secondConnection = admit(second);
    Connection unannouncedConnection = connectTo(unannounced);
    recorder->clear();
    log.clear();
    stack->Changed(Os::NetworkAdapter("lo", {}), {}, 1);
    EXPECT_TRUE(isListed(first));
    tick();
    EXPECT_EQ(recorder->events(),
              (Texts{"serverDown " + first.key().toStdString(), "serverDown " + second.key().toStdString()}));
    EXPECT_EQ(log.texts(),
              (Texts{"Network adapter change detected", "removed " + first.key().toStdString() + " Server (total=1)",
                     "removed " + second.key().toStdString() + " Server (total=0)", "Binding to address 127.0.0.1:4809",
                     "UDP socket started "}));
    firstConnection.waitForEnd();
    secondConnection.waitForEnd();
    unannouncedConnection.waitForEnd();
    Connection again = admit(first);
    Connection alsoAgain = admit(second);
    EXPECT_EQ(stack->getNumNotified(), 2);
}

TEST_F(LifecycleTest, ABindFailureIsLoggedAndTheSocketIsStartedAllTheSame)
{
    const Descriptor taken = openDiscoveryPort(false);
    ASSERT_GE(taken.get(), 0);
    log.expectFailureLine("Bind failed");
    enable();
    EXPECT_EQ(log.texts(), (Texts{"CITP processing now enabled", "Binding to address 127.0.0.1:4809", "Bind failed",
                                  "UDP socket started "}));
}

TEST_F(LifecycleTest, OnlyAResetTriesADiscoverySocketAgainThatCouldNotBeOpened)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    log.expectFailureLine("Bind failed");
    log.expectFailureLine("Multicast join failed");
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    enable();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(log.count("UDP socket started "), 0);
    tick();
    EXPECT_EQ(log.count("UDP socket started "), 0);
    stack->Changed(Os::NetworkAdapter("lo", {}), {}, 1);
    tick();
    EXPECT_EQ(log.count("UDP socket started "), 1);
    FakeServer server;
    Connection connection = admit(server);
}

TEST_F(LifecycleTest, NothingIsEverSentOnTheGroup)
{
    const Descriptor listener = openDiscoveryPort(true);
    ASSERT_GE(listener.get(), 0);
    enable();
    tick();
    FakeServer server;
    Connection connection = admit(server);
    tick();
    armReset();
    tick();
    tick();
    stack->setEnabled(false);
    tick();
    const QByteArray last = Wire::ploc(0, "End");
    server.sendDatagram(last);
    std::vector<QByteArray> heard;
    while (heard.empty() || heard.back() != last) {
        pollfd entry = {listener.get(), POLLIN, 0};
        ASSERT_EQ(poll(&entry, 1, TestTimeout), 1);
        char datagram[2048];
        const ssize_t size = recv(listener.get(), datagram, sizeof datagram, 0);
        ASSERT_GE(size, 0);
        heard.emplace_back(datagram, static_cast<int>(size));
    }
    EXPECT_EQ(heard, (std::vector<QByteArray>{Wire::ploc(server.port()), last}));
}

TEST_F(LifecycleTest, AZeroLengthDatagramIsHandedOnAsAnEmptyBuffer)
{
    enable();
    logEverything();
    log.expectFailureLine("invalid size for CITP");
    FakeServer server;
    server.sendDatagram(QByteArray());
    EXPECT_TRUE(waitForLine("invalid size for CITP"));
    EXPECT_EQ(log.texts("CITP.Stack.Traffic"), Texts{"<- 127.0.0.2 "});
    logEverything();
    Connection connection = admit(server);
}

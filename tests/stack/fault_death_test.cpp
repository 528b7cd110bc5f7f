// Servers that die in every way a network has for it, and come back.
// SPDX-License-Identifier: Apache-2.0
#include "fault_network.h"

#include <citp/citp_msg_msex_requests.h>

#include <QTest>

#include <netinet/tcp.h>

#include <csignal>
#include <fstream>

namespace {
const std::string Key = "2.0.0.20:4811";
const char* const ClosedByPeer = "The remote host closed the connection";

/// Shortens the kernel's keep-alive from hours to seconds.
void hurryKeepAlive()
{
    for (const char* const name : {"time", "intvl", "probes"}) {
        std::ofstream(std::string("/proc/sys/net/ipv4/tcp_keepalive_") + name) << 2;
    }
}
} // namespace

class ServerDeathTest : public FaultNetworkTest
{
protected:
    void SetUp() override
    {
        FaultNetworkTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        addConsoleAdapter("show");
        addConsoleAdapter("office");
        addHost("stage", "2.0.0.20");
        enable();
        waitForQuiet();
    }

    CITP::Msg_MSEX_GELI request() const { return {2, 1, QStringLiteral("0,0,0,0"), {}}; }
    bool send() { return stack->sendMsg(QString::fromStdString(Key), request()); }
};

TEST_F(ServerDeathTest, AKilledServerGoesDownAndComesBackWithTheSameKeyAndAnotherSInf)
{
    log.allowFailureLines(ClosedByPeer);
    log.allowFailureLines("Connection reset by peer");
    log.allowFailureLines("Connection refused"); // an announcement that was still to be read when its sender died
    for (int round = 1; round <= 5; ++round) {
        const std::string product = "Release " + std::to_string(round);
        ChildProcess& server = startServer("stage", {"--product", product, "--layer-rate", "100"});
        ASSERT_TRUE(tickUntilUp(Key, round));
        EXPECT_EQ(productOf(Key), product);
        EXPECT_EQ(consoleAddressTowards("2.0.0.20"), "2.0.0.1") << "not from the Art-Net adapter";
        ASSERT_TRUE(waitForEvent("layerStatus " + Key + " 0", 10 * round));
        server.kill();
        ASSERT_TRUE(tickUntilDown(Key, round));
    }
    EXPECT_EQ(upsOf(Key), 5);
    EXPECT_EQ(downsOf(Key), 5);
    EXPECT_FALSE(isListed(Key));
}

TEST_F(ServerDeathTest, AServerThatResetsTheConnectionGoesDownAndComesBack)
{
    log.allowFailureLines(ClosedByPeer);
    startServer("stage", {"--fault", "reset"});
    for (int round = 1; round <= 5; ++round) {
        ASSERT_TRUE(tickUntilUp(Key, round));
        ASSERT_TRUE(send());
        ASSERT_TRUE(tickUntilDown(Key, round));
    }
    EXPECT_EQ(downsOf(Key), 5);
}

TEST_F(ServerDeathTest, AServerWhoseCableIsPulledStaysListedAndGoesOnWhenItIsBack)
{
    startServer("stage", {"--layer-rate", "20"});
    ASSERT_TRUE(tickUntilUp(Key));
    setHostCable("stage", false);
    goOn();
    EXPECT_TRUE(isListed(Key));
    EXPECT_TRUE(send());
    goOn();
    setHostCable("stage", true);
    // The request went out while the cable was out; TCP sends it again.
    EXPECT_TRUE(waitForEvent("libraryInfo " + Key + " 1,1,0,0"));
    EXPECT_EQ(downsOf(Key), 0);
    EXPECT_EQ(upsOf(Key), 1);
}

TEST_F(ServerDeathTest, AServerWhoseCableIsPulledGoesDownWhenKeepAliveGivesUp)
{
    hurryKeepAlive();
    // Which of them depends on whether the neighbour's address is still remembered.
    log.allowFailureLines("Connection timed out");
    log.allowFailureLines("Host unreachable");
    log.allowFailureLines("No route to host");
    startServer("stage");
    ASSERT_TRUE(tickUntilUp(Key));
    setHostCable("stage", false);
    ASSERT_TRUE(tickUntilDown(Key));
    setHostCable("stage", true);
    ASSERT_TRUE(tickUntilUp(Key, 2));
    EXPECT_EQ(downsOf(Key), 1);
}

TEST_F(ServerDeathTest, ASilentServerStaysListedAndGoesOn)
{
    ChildProcess& server = startServer("stage");
    ASSERT_TRUE(tickUntilUp(Key));
    server.signal(SIGSTOP);
    EXPECT_TRUE(send());
    goOn();
    EXPECT_TRUE(isListed(Key));
    EXPECT_EQ(recorder->count("libraryInfo " + Key + " 1,1,0,0"), 0);
    server.signal(SIGCONT);
    EXPECT_TRUE(waitForEvent("libraryInfo " + Key + " 1,1,0,0"));
    EXPECT_EQ(downsOf(Key), 0);
}

TEST_F(ServerDeathTest, AServerThatLostItsPowerIsTheOldOneUntilSomethingIsSentToIt)
{
    log.allowFailureLines(ClosedByPeer);
    ChildProcess& before = startServer("stage", {"--product", "Before"});
    ASSERT_TRUE(tickUntilUp(Key));
    removeHost("stage");
    before.kill();
    goOn();
    EXPECT_TRUE(isListed(Key));

    addHost("stage", "2.0.0.20");
    ip("neigh flush dev show0");
    startServer("stage", {"--product", "After"});
    goOn();
    // Its announcements are those of a server that is known.
    EXPECT_EQ(upsOf(Key), 1);
    EXPECT_EQ(productOf(Key), "Before");
    // The new host has no such connection and says so.
    EXPECT_TRUE(send());
    ASSERT_TRUE(tickUntilDown(Key));
    ASSERT_TRUE(tickUntilUp(Key, 2));
    EXPECT_EQ(productOf(Key), "After");
}

TEST_F(ServerDeathTest, AServerHeardOnTwoAddressesIsTwoServersOfWhichOneCanGo)
{
    log.allowFailureLines(ClosedByPeer);
    log.allowFailureLines("Connection refused"); // an announcement that was still to be read when its sender died
    const std::string second = "2.0.0.21:4811";
    FarHost& host = addHost("twin", "2.0.0.22");
    host.ip("addr add 2.0.0.21/24 dev net0");
    startServer("twin", {"--address", "2.0.0.22"});
    ChildProcess& again = startServer("twin", {"--address", "2.0.0.21"});
    ASSERT_TRUE(tickUntilUp("2.0.0.22:4811"));
    ASSERT_TRUE(tickUntilUp(second));
    EXPECT_EQ(stack->getNumNotified(), 2);
    again.kill();
    ASSERT_TRUE(tickUntilDown(second));
    goOn();
    EXPECT_TRUE(isListed("2.0.0.22:4811"));
    EXPECT_EQ(downsOf("2.0.0.22:4811"), 0);
}

TEST_F(ServerDeathTest, AServerOfTheOtherNetworkIsNotHeard)
{
    addHost("desk", "192.168.7.20");
    startServer("desk");
    startServer("stage");
    ASSERT_TRUE(tickUntilUp(Key));
    goOn();
    EXPECT_EQ(stack->getNumNotified(), 1);
}

// The end of processes that use the stack: whenever and however it comes, it comes, and without a crash.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"
#include "fake_server.h"
#include "wire.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace {
constexpr int Rounds = 20;

/// Two servers that announce themselves all the time, take every connection and stream layer status as fast as they
/// can, until destroyed.
class StreamingServers
{
public:
    StreamingServers()
    {
        for (FakeServer& server : m_servers) {
            m_threads.emplace_back([this, &server] { serve(server); });
        }
    }

    ~StreamingServers()
    {
        m_done = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        closeLeftovers();
    }

private:
    void serve(FakeServer& server)
    {
        const QByteArray status = Wire::lsta(1) + Wire::elin(2) + Wire::lsta(3) + Wire::ptch(4);
        while (!m_done) {
            server.announce();
            std::optional<Connection> connection = server.tryAccept(20);
            if (!connection || !connection->trySend(Wire::sinf("arkaos"))) {
                continue;
            }
            while (!m_done && connection->trySend(status)) {
                while (connection->tryReceive(0)) {
                }
            }
            connection->close();
        }
    }

    std::atomic<bool> m_done{false};
    FakeServer m_servers[2] = {FakeServer("127.0.0.2"), FakeServer("127.0.0.3")};
    std::vector<std::thread> m_threads;
};

void expectEveryRoundToEnd(const char* how)
{
    StreamingServers servers;
    for (int round = 0; round < Rounds; ++round) {
        ChildProcess child({TEST_CHILD, "exit", how});
        ASSERT_EQ(child.waitForEnd(), "exit 7") << "round " << round;
    }
}

void expectEndlessLines(FakeServer& server, ChildProcess& child)
{
    std::optional<Connection> connection;
    while (!connection && child.isRunning()) {
        server.announce();
        connection = server.tryAccept(100);
    }
    ASSERT_TRUE(connection);
    connection->send(Wire::withSize(Wire::message("MSEX", {}), 0));
    child.waitForLine("X");
}
} // namespace

TEST(StackExit, ByReturnFromMain)
{
    expectEveryRoundToEnd("return");
}

TEST(StackExit, ByReturnFromMainWithEventsPending)
{
    expectEveryRoundToEnd("return-with-events-pending");
}

TEST(StackExit, ByExitWhileTheApplicationObjectLives)
{
    expectEveryRoundToEnd("exit");
}

TEST(StackExit, ByExitFromAnotherThread)
{
    expectEveryRoundToEnd("from-thread");
}

TEST(StackExit, ServersThatAreRemovedMeanwhileAreCountedRight)
{
    StreamingServers servers;
    ChildProcess child({TEST_CHILD, "exit", "remove-at-exit"});
    ASSERT_EQ(child.waitForEnd(), "exit 7");
    const std::string lines = child.output();
    EXPECT_NE(lines.find("removed 127.0.0.2:"), std::string::npos) << lines;
    EXPECT_NE(lines.find(" Server (total=1)\nremoved 127.0.0.3:"), std::string::npos) << lines;
    EXPECT_NE(lines.find(" Server (total=0)\n"), std::string::npos) << lines;
}

TEST(StackExit, ByExitFromAReceiverOnTheWorkerThread)
{
    expectEveryRoundToEnd("from-receiver");
}

TEST(StackExit, RightAfterTheFirstGet)
{
    expectEveryRoundToEnd("at-once");
}

TEST(StackExit, RightAfterEnabling)
{
    expectEveryRoundToEnd("at-once-enabled");
}

TEST(StackSizeZero, IsReportedWithoutEndUntilTheProcessIsKilled)
{
    FakeServer server;
    ChildProcess child({TEST_CHILD, "endless"});
    expectEndlessLines(server, child);
    EXPECT_TRUE(child.isRunning());
    child.kill();
    EXPECT_EQ(child.waitForEnd(), "signal 9");
}

TEST(StackSizeZero, DoesNotKeepTheProcessFromExiting)
{
    for (int round = 0; round < 5; ++round) {
        FakeServer server;
        ChildProcess child({TEST_CHILD, "endless", "exit"});
        expectEndlessLines(server, child);
        ASSERT_EQ(child.waitForEnd(), "exit 7") << "round " << round;
    }
}

TEST(StackSizeZero, DoesNotKeepTheThreadFromRestingWhenTheApplicationObjectGoes)
{
    FakeServer server;
    ChildProcess child({TEST_CHILD, "endless", "exit-at-rest"});
    expectEndlessLines(server, child);
    EXPECT_EQ(child.waitForEnd(), "exit 7");
}

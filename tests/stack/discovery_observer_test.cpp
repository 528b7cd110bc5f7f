// What observers of discovery are told: announcements, and connections that open and fail.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>

#include <mutex>

using CITP::citp_options;
using CITP::citp_stack;

namespace {
using Events = std::vector<std::string>;
} // namespace

class DiscoveryObserverTest : public StackTest
{
protected:
    /// What one observer was told. Shared with it, because a call may still run when the observation ends.
    struct Told
    {
        std::mutex mutex;
        Events events;
    };

    void SetUp() override
    {
        StackTest::SetUp();
        enable();
    }

    void TearDown() override
    {
        stack->setOptions(citp_options());
        StackTest::TearDown();
    }

    std::shared_ptr<const void> observe(const std::shared_ptr<Told>& told)
    {
        return stack->observeDiscovery([told, this](const citp_stack::DiscoveryEvent& event) {
            const bool isUp = stack->getServerInfo(event.server, nullptr, nullptr);
            const std::lock_guard<std::mutex> lock(told->mutex);
            const char* const kinds[] = {"heard ", "connected ", "failed "};
            told->events.push_back(kinds[event.kind] + event.server.toStdString() + (isUp ? " up: " : ": ") +
                                   event.text.toStdString());
        });
    }

    static bool waitForEvents(const std::shared_ptr<Told>& told, const Events& expected)
    {
        const bool isEqual = waitFor([&] {
            const std::lock_guard<std::mutex> lock(told->mutex);
            return told->events.size() >= expected.size();
        });
        const std::lock_guard<std::mutex> lock(told->mutex);
        EXPECT_EQ(told->events, expected);
        return isEqual;
    }

    const std::shared_ptr<Told> m_told = std::make_shared<Told>();
    FakeServer m_server;
    const std::string m_key = m_server.key().toStdString();
};

TEST_F(DiscoveryObserverTest, AnnouncementsAndConnectionsAreTold)
{
    const auto observation = observe(m_told);
    {
        Connection connection = admit(m_server, "Product", "Stage");
        m_server.announce("Again");
        ASSERT_TRUE(waitForEvents(
            m_told, {"heard " + m_key + ": Stage", "connected " + m_key + ": ", "heard " + m_key + " up: Again"}));
        log.expectFailureLine("The remote host closed the connection");
        connection.close();
    }
    // While it is told, the server is still up.
    waitForEvents(m_told, {"heard " + m_key + ": Stage", "connected " + m_key + ": ", "heard " + m_key + " up: Again",
                           "failed " + m_key + " up: The remote host closed the connection"});
}

TEST_F(DiscoveryObserverTest, ARefusedConnectionIsToldWithItsReason)
{
    const auto observation = observe(m_told);
    m_server.stopListening();
    log.expectFailureLine("Connection refused");
    m_server.announce("Stage");
    waitForEvents(m_told, {"heard " + m_key + ": Stage", "failed " + m_key + ": Connection refused"});
}

TEST_F(DiscoveryObserverTest, AResetIsToldWithoutAReason)
{
    Connection connection = connectTo(m_server);
    const auto observation = observe(m_told);
    armReset();
    tick();
    waitForEvents(m_told, {"failed " + m_key + ": "});
}

TEST_F(DiscoveryObserverTest, GuardsAreReasons)
{
    citp_options options;
    options.setSmallMessageGuard(true);
    options.setMaxServers(1);
    stack->setOptions(options);
    tick();
    Connection connection = admit(m_server);
    const auto observation = observe(m_told);
    const FakeServer ignored("127.0.0.3");
    ignored.announce("Ignored");
    const std::string other = ignored.key().toStdString();
    const Events expected{"heard " + other + ": Ignored",
                          "failed " + other + ": 1 servers are known or were tried within a second (limit 1)"};
    ASSERT_TRUE(waitForEvents(m_told, expected));
    connection.send(Wire::withSize(Wire::lsta(1), 0));
    waitForEvents(m_told, {expected[0], expected[1], "failed " + m_key + " up: a message states 0 bytes (minimum 20)"});
}

TEST_F(DiscoveryObserverTest, AServerNamedByHandIsHeardWhenItIsTriedAndGivenUpWithoutAnAnswer)
{
    holdTicks();
    m_server.leaveUnanswered();
    citp_options options;
    options.addServer(QHostAddress(m_server.host()), m_server.port());
    const auto observation = observe(m_told);
    stack->setOptions(options);
    tick();
    ASSERT_TRUE(waitForEvents(m_told, {"heard " + m_key + ": "}));
    EXPECT_TRUE(waitFor([this] {
        tick();
        const std::lock_guard<std::mutex> lock(m_told->mutex);
        return m_told->events.size() >= 3;
    }));
    waitForEvents(m_told, {"heard " + m_key + ": ", "failed " + m_key + ": No answer", "heard " + m_key + ": "});
    m_server.answerAgain();
}

TEST_F(DiscoveryObserverTest, EachObserverIsToldUntilItsObservationEnds)
{
    EXPECT_EQ(stack->observeDiscovery({}), nullptr);
    const auto early = std::make_shared<Told>();
    auto first = observe(early);
    const auto second = observe(m_told);
    Connection connection = admit(m_server);
    const Events events{"heard " + m_key + ": Server", "connected " + m_key + ": "};
    ASSERT_TRUE(waitForEvents(early, events));
    first.reset();
    m_server.announce("Again");
    ASSERT_TRUE(waitForEvents(m_told, {events[0], events[1], "heard " + m_key + " up: Again"}));
    runOnWorker([] {});
    waitForEvents(early, events);
    EXPECT_EQ(early.use_count(), 1);
}

TEST_F(DiscoveryObserverTest, AnObservationMayEndInsideTheCallOfAnotherObserver)
{
    std::shared_ptr<const void> second;
    const auto first = stack->observeDiscovery([&second](const citp_stack::DiscoveryEvent&) { second.reset(); });
    // On the thread that ends it.
    runOnWorker([&] { second = observe(m_told); });
    m_server.stopListening();
    log.expectFailureLine("Connection refused");
    m_server.announce("Stage");
    ASSERT_TRUE(waitForLine("Connection refused"));
    runOnWorker([] {});
    EXPECT_TRUE(m_told->events.empty());
}

TEST_F(DiscoveryObserverTest, WhatAnObserverSendsFollowsTheGreeting)
{
    const auto observation = stack->observeDiscovery([this](const citp_stack::DiscoveryEvent& event) {
        if (event.kind == citp_stack::DiscoveryEvent::Connected) {
            EXPECT_TRUE(stack->sendMsg(event.server, CITP::Msg_MSEX_GELI(0, 1, QString(), {})));
        }
    });
    m_server.announce("Stage");
    Connection connection = m_server.accept();
    for (const char* const code : {"PNam", "CInf", "SPtc", "GELI"}) {
        EXPECT_EQ(Wire::code(connection.receive()), code);
    }
}

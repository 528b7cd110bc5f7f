// The stack on adapters that come and go: a pair of virtual cables whose far end, with the servers, is in a network
// namespace of its own, and the real monitor in between.
// SPDX-License-Identifier: Apache-2.0
#include "far_host.h"
#include "stack_fixture.h"

#include <citp_system/artnet_adapter.h>

#include <QTest>

#include <cstdlib>

class AdapterTest : public StackTest
{
protected:
    void SetUp() override
    {
        if (!hasNamespace()) {
            GTEST_SKIP() << "needs a network namespace";
        }
        StackTest::SetUp();
        // A change that is told late would otherwise take a server again that has only just been found.
        holdTicks();
        ArtNet::Adapter::Choose("");
        log.allowFailureLines("Multicast join failed");
    }

    void TearDown() override
    {
        if (hasNamespace()) {
            StackTest::TearDown();
        }
    }

    /// Lays the cable: 2.0.0.1 on this side, 2.0.0.20 on the far side.
    void addCable()
    {
        ip("link add show0 type veth peer name far0 netns " + m_far.id());
        ip("addr add 2.0.0.1/24 dev show0");
        ip("link set show0 up");
        m_far.ip("addr add 2.0.0.20/24 dev far0");
        plugIn();
    }

    void plugIn()
    {
        m_far.ip("link set far0 up");
        // Lost with the link each time.
        m_far.run([] { std::system("ip route replace 224.0.0.0/4 dev far0"); });
    }

    void pullOut() { m_far.ip("link set far0 down"); }

    /// Waits until the monitor has nothing more to tell of what was done before.
    void waitForQuiet()
    {
        int before = -1;
        while (before != log.count("Network adapter change detected")) {
            before = log.count("Network adapter change detected");
            QTest::qWait(1200); // the kernel may keep a change of the carrier to itself for a second
        }
    }

    static bool isPluggedIn()
    {
        for (const Os::NetworkAdapter& adapter : Os::NetworkAdapter::GetAll()) {
            if (adapter.GetName() == "show0") {
                return adapter.GetState().running;
            }
        }
        return false;
    }

    /// Ticks until the server is not listed any more.
    void waitForDown()
    {
        ASSERT_TRUE(waitFor([this] {
            tick();
            return !isListed(*m_server);
        }));
        EXPECT_EQ(recorder->count("serverDown " + m_server->key().toStdString()), 1);
    }

    void openServer()
    {
        m_far.run([this] { m_server.emplace("2.0.0.20"); });
    }

    /// Has the server found, by ticks and announcements until it is.
    Connection admitServer()
    {
        std::optional<Connection> connection;
        for (int tries = 0; !connection && tries < TestTimeout / 100; ++tries) {
            tick();
            try {
                m_server->announce();
            } catch (const std::runtime_error&) {
                // The link is not up yet.
            }
            connection = m_server->tryAccept(100);
        }
        if (!connection) {
            throw std::runtime_error("the server is not found");
        }
        connection->send(Wire::sinf("Product"));
        EXPECT_TRUE(waitFor([this] { return isListed(*m_server); }));
        return std::move(*connection);
    }

    /// Has the server found, again if an adapter change of before is reported so late that it removes the server.
    Connection admitForGood()
    {
        for (;;) {
            waitForQuiet();
            const int changes = log.count("Network adapter change detected");
            Connection connection = admitServer();
            waitForQuiet();
            tick();
            if (isListed(*m_server) || log.count("Network adapter change detected") == changes) {
                return connection;
            }
        }
    }

    FarHost m_far;
    std::optional<FakeServer> m_server;
};

TEST_F(AdapterTest, ServersGoWithTheCableAtTheNextTickAndComeBackWithIt)
{
    addCable();
    openServer();
    enable();
    for (int round = 1; round <= 2; ++round) {
        Connection connection = admitForGood();
        EXPECT_EQ(connection.peer().section(QLatin1Char(':'), 0, 0), QStringLiteral("2.0.0.1"));
        ASSERT_TRUE(isListed(*m_server)) << "gone although the cable is in";
        recorder->clear();
        pullOut();
        ASSERT_TRUE(waitFor([] { return !isPluggedIn(); }));
        waitForDown();
        plugIn();
        ASSERT_TRUE(waitFor(isPluggedIn));
        Connection again = admitServer();
        sendMarker(*m_server, again);
        armReset();
        tick();
    }
}

TEST_F(AdapterTest, AConsoleThatBootsWithoutAnyAdapterComesToLifeWithTheCable)
{
    ip("link set lo down");
    ASSERT_FALSE(ArtNet::Adapter::Get().IsValid());
    enable();
    EXPECT_EQ(log.count("Multicast join failed"), 1);
    EXPECT_EQ(log.count("UDP socket started "), 1);
    addCable();
    openServer();
    Connection connection = admitServer();
    sendMarker(*m_server, connection);
}

TEST_F(AdapterTest, AnAdapterThatIsRemovedAndMadeAnewIsUsedAgain)
{
    addCable();
    openServer();
    enable();
    {
        Connection connection = admitForGood();
        ASSERT_TRUE(isListed(*m_server)) << "gone although the adapter is there";
        recorder->clear();
        ip("link del show0");
        waitForDown();
    }
    m_server.reset();
    closeLeftovers();
    addCable();
    openServer();
    Connection again = admitServer();
    sendMarker(*m_server, again);
}

TEST_F(AdapterTest, ConnectionsAreMadeFromTheChosenAdaptersAddress)
{
    addCable();
    ip("addr add 2.0.0.9/24 dev show0");
    openServer();
    ArtNet::Adapter::Choose("2.0.0.9");
    enable();
    Connection connection = admitServer();
    EXPECT_EQ(connection.peer().section(QLatin1Char(':'), 0, 0), QStringLiteral("2.0.0.9"));
}

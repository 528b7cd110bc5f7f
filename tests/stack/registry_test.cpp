// Which announcements make a server, what it is called, and what the application can ask.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <atomic>

using CITP::citp_stack;

class RegistryTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
    }

    /// Has another server found: announcements before this one have been handled.
    void findAnother()
    {
        FakeServer another("127.0.0.99");
        Connection connection = connectTo(another);
    }

    int connectsStarted() const
    {
        int count = 0;
        for (const std::string& text : log.texts()) {
            count += text.rfind("start connect to ", 0) == 0 ? 1 : 0;
        }
        return count;
    }
};

TEST_F(RegistryTest, APlocWithPortZeroIsIgnored)
{
    logEverything();
    FakeServer server;
    server.sendDatagram(Wire::ploc(0));
    findAnother();
    EXPECT_FALSE(server.tryAccept(0));
    EXPECT_EQ(connectsStarted(), 1);
}

TEST_F(RegistryTest, ThePeerTypeIsComparedWithItsCase)
{
    logEverything();
    FakeServer server;
    server.sendDatagram(Wire::ploc(server.port(), "mediaserver"));
    findAnother();
    EXPECT_FALSE(server.tryAccept(0));
    EXPECT_EQ(connectsStarted(), 1);
}

TEST_F(RegistryTest, OtherKindsOfPeersAreIgnored)
{
    FakeServer server;
    for (const char* type : {"LightingConsole", "MediaServer ", "MediaServers", "MediaServe", ""}) {
        server.sendDatagram(Wire::ploc(server.port(), type));
    }
    findAnother();
    EXPECT_FALSE(server.tryAccept(0));
}

TEST_F(RegistryTest, TheSamePlocAgainMakesNoSecondConnection)
{
    logEverything();
    FakeServer server;
    Connection connection = admit(server, "Product", "First");
    for (int round = 0; round < 5; ++round) {
        server.announce("Later");
    }
    findAnother();
    EXPECT_FALSE(server.tryAccept(0));
    EXPECT_EQ(log.count("start connect to 127.0.0.2 port " + std::to_string(server.port())), 1);
    CITP::Msg_PEER_PLOC ploc;
    ASSERT_TRUE(stack->getServerInfo(server.key(), nullptr, &ploc));
    EXPECT_EQ(ploc.name, QStringLiteral("First"));
    sendMarker(server, connection);
}

TEST_F(RegistryTest, ANewServerIsAbsentUntilItsSinf)
{
    FakeServer server;
    Connection connection = connectTo(server);
    EXPECT_TRUE(stack->getServers().empty());
    EXPECT_EQ(stack->getNumNotified(), 0);
    CITP::Msg_MSEX_SINF sinf;
    CITP::Msg_PEER_PLOC ploc;
    ploc.name = QStringLiteral("untouched");
    EXPECT_FALSE(stack->getServerInfo(server.key(), &sinf, &ploc));
    EXPECT_EQ(ploc.name, QStringLiteral("untouched"));
    connection.send(Wire::sinf("Product"));
    ASSERT_TRUE(waitForEvent("serverUp " + server.key().toStdString()));
    EXPECT_TRUE(isListed(server));
    EXPECT_EQ(stack->getNumNotified(), 1);
    EXPECT_TRUE(stack->getServerInfo(server.key(), &sinf, &ploc));
}

TEST_F(RegistryTest, TheInformationOfAServerIsWhatItSent)
{
    FakeServer server;
    Connection connection = admit(server, "Some Product", "Some Name");
    CITP::Msg_MSEX_SINF sinf;
    CITP::Msg_PEER_PLOC ploc;
    ASSERT_TRUE(stack->getServerInfo(server.key(), &sinf, &ploc));
    EXPECT_EQ(sinf.ProductName, QStringLiteral("Some Product"));
    EXPECT_EQ(sinf.ProductVersionMajor, 3);
    EXPECT_EQ(sinf.ProductVersionMinor, 4);
    EXPECT_EQ(sinf.GetHighestMsexVersion(), 2);
    EXPECT_EQ(ploc.name, QStringLiteral("Some Name"));
    EXPECT_EQ(ploc.type, QStringLiteral("MediaServer"));
    EXPECT_EQ(ploc.state, QStringLiteral("Running"));
    EXPECT_EQ(ploc.port, server.port());
}

TEST_F(RegistryTest, TheInformationMayBeAskedForWithNullPointers)
{
    FakeServer server;
    Connection connection = admit(server);
    EXPECT_TRUE(stack->getServerInfo(server.key(), nullptr, nullptr));
    CITP::Msg_MSEX_SINF sinf;
    EXPECT_TRUE(stack->getServerInfo(server.key(), &sinf, nullptr));
    EXPECT_EQ(sinf.ProductName, QStringLiteral("Product"));
}

TEST_F(RegistryTest, AnUnknownKeyLeavesTheOutputsUntouched)
{
    CITP::Msg_MSEX_SINF sinf;
    sinf.ProductName = QStringLiteral("untouched");
    CITP::Msg_PEER_PLOC ploc;
    ploc.name = QStringLiteral("untouched");
    EXPECT_FALSE(stack->getServerInfo(QStringLiteral("127.0.0.2:1"), &sinf, &ploc));
    EXPECT_FALSE(stack->getServerInfo(QString(), nullptr, nullptr));
    EXPECT_EQ(sinf.ProductName, QStringLiteral("untouched"));
    EXPECT_EQ(ploc.name, QStringLiteral("untouched"));
}

TEST_F(RegistryTest, TwoPortsOfOneAddressAreTwoServers)
{
    FakeServer one("127.0.0.2");
    FakeServer other("127.0.0.2");
    Connection first = admit(one);
    Connection second = admit(other);
    EXPECT_EQ(stack->getNumNotified(), 2);
}

TEST_F(RegistryTest, ServersAreListedInKeyOrder)
{
    FakeServer c("127.0.0.9");
    FakeServer a("127.0.0.10");
    FakeServer b("127.0.0.2");
    Connection first = admit(c);
    Connection second = admit(a);
    Connection third = admit(b);
    EXPECT_EQ(stack->getServers(), (std::vector<citp_stack::SERV_ID>{a.key(), b.key(), c.key()}));
}

TEST_F(RegistryTest, AKeyIsTheHostAColonAndThePortInDecimal)
{
    EXPECT_EQ(citp_stack::buildServerKey(QStringLiteral("2.0.0.10"), 4811), QStringLiteral("2.0.0.10:4811"));
    EXPECT_EQ(citp_stack::buildServerKey(QStringLiteral("h"), 65535), QStringLiteral("h:65535"));
    EXPECT_EQ(citp_stack::buildServerKey(QString(), 0), QStringLiteral(":0"));
}

TEST_F(RegistryTest, TheAddressInAKeyStandsBeforeTheFirstColon)
{
    EXPECT_EQ(citp_stack::getHostAddressFromSERV_ID(QStringLiteral("2.0.0.10:4811")),
              QHostAddress(QStringLiteral("2.0.0.10")));
    EXPECT_EQ(citp_stack::getHostAddressFromSERV_ID(QStringLiteral("2.0.0.10:1:2")),
              QHostAddress(QStringLiteral("2.0.0.10")));
    EXPECT_EQ(citp_stack::getHostAddressFromSERV_ID(QStringLiteral("2.0.0.10")),
              QHostAddress(QStringLiteral("2.0.0.10")));
    EXPECT_TRUE(citp_stack::getHostAddressFromSERV_ID(QStringLiteral("server:4811")).isNull());
    EXPECT_TRUE(citp_stack::getHostAddressFromSERV_ID(QStringLiteral(":4811")).isNull());
    EXPECT_TRUE(citp_stack::getHostAddressFromSERV_ID(QString()).isNull());
}

TEST_F(RegistryTest, APlocWithABadHeaderStillConnects)
{
    log.expectFailureLine("error reading CITP header: wrong CITP minor");
    FakeServer server;
    server.sendDatagram(Wire::withCitpMinor(Wire::ploc(server.port()), 1));
    Connection connection = server.accept();
    EXPECT_EQ(connection.receive(), Wire::greeting().front());
}

TEST_F(RegistryTest, APlocOverTcpIsTakenWithTheConnectionsKeyAsItsHost)
{
    if (!hasNamespace()) {
        GTEST_SKIP() << "the key is looked up as a host name, which would leave this machine";
    }
    logEverything();
    log.expectFailureLine("Host not found");
    // The socket must rest while the name is looked up. One that is handed a descriptor fires, and complains, till
    // then.
    static std::atomic<int> complaints;
    complaints = 0;
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            complaints += text.startsWith(QLatin1String("QNativeSocketEngine")) ? 1 : 0;
        });
    FakeServer server;
    Connection connection = admit(server);
    connection.send(Wire::ploc(4711));
    EXPECT_TRUE(waitForLine("start connect to " + server.key().toStdString() + " port 4711"));
    EXPECT_TRUE(waitForLine("Host not found"));
    qInstallMessageHandler(previous);
    EXPECT_EQ(complaints, 0);
    EXPECT_EQ(recorder->count("serverDown " + server.key().toStdString() + ":4711"), 0);
    sendMarker(server, connection);
    EXPECT_TRUE(isListed(server));
}

TEST_F(RegistryTest, ThePlocIsLoggedInItsOwnContext)
{
    logEverything();
    FakeServer server;
    Connection connection = connectTo(server, "Some Name");
    const std::vector<std::string> lines = log.texts("CITP.Stack.Ploc");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines.front().rfind("PLOC: ( rindex=0 ", 0), 0u) << lines.front();
    EXPECT_NE(
        lines.front().find(" port=" + std::to_string(server.port()) + " type=MediaServer name=Some Name state=Running"),
        std::string::npos)
        << lines.front();
}

// Directory: the states of servers, what is known of them, and the bounds.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"
#include "wire.h"

#include <citp/citp_msg_msex_lsta.h>
#include <citp_client/directory.h>

#include <gtest/gtest.h>

using namespace CITP;

namespace {
const QString key = QStringLiteral("2.0.0.10:4811");
const QString stage = QStringLiteral("Stage");
} // namespace

class DirectoryTest : public testing::Test
{
protected:
    DirectoryTest()
    {
        QObject::connect(&m_directory, &Directory::changed, [this](const QString& changed) { m_changes << changed; });
    }

    void announceEverySecondUntil(qint64 time)
    {
        for (qint64 next = m_net.now(); next < time; next += 1000)
            m_net.at(next, [this] { Q_EMIT m_net.serverHeard(key, stage); });
    }
    Server::State state() const { return m_directory.server(key).state; }

    FakeTransport m_net;
    Directory m_directory{m_net};
    QStringList m_changes;
};

TEST_F(DirectoryTest, AServerIsHeardThenConnectingThenUpThenLost)
{
    Q_EMIT m_net.serverHeard(key, stage);
    EXPECT_EQ(state(), Server::Heard);
    EXPECT_EQ(m_directory.server(key).name, stage);
    Q_EMIT m_net.serverHeard(key, stage);
    EXPECT_EQ(state(), Server::Connecting);
    m_net.setUp(key);
    EXPECT_EQ(state(), Server::Up);
    Q_EMIT m_net.serverHeard(key, stage);
    EXPECT_EQ(state(), Server::Up);
    m_net.run(3000);
    m_net.setDown(key);
    EXPECT_EQ(state(), Server::Lost);
    EXPECT_EQ(m_directory.server(key).since, 3000);
    EXPECT_EQ(m_directory.server(key).product, QStringLiteral("Product"));
    EXPECT_EQ(m_changes.size(), 4);
}

TEST_F(DirectoryTest, TheTextsOfAServersInformationAreBounded)
{
    const std::string longText(1000, 'x');
    QByteArray message = Wire::sinf(longText.c_str());
    const QByteArray layer = Wire::text8("ArtNet/0/1/1");
    ASSERT_TRUE(message.endsWith(layer));
    message.chop(layer.size());
    message += Wire::text8(longText.c_str());
    Q_EMIT m_net.serverHeard(key, stage);
    m_net.setUp(key, Msg_MSEX_SINF(Wire::withSize(message, static_cast<quint32>(message.size()))));
    EXPECT_EQ(m_directory.server(key).product.size(), Transport::maxNameLength);
    ASSERT_EQ(m_directory.server(key).layers.size(), 1);
    EXPECT_EQ(m_directory.server(key).layers.constFirst().size(), Transport::maxNameLength);
}

TEST_F(DirectoryTest, AServerThatNeverComesUpIsFailing)
{
    announceEverySecondUntil(30000);
    m_net.run(9000);
    EXPECT_EQ(state(), Server::Connecting);
    m_net.run(3000);
    EXPECT_EQ(state(), Server::Failing);
    EXPECT_TRUE(m_directory.server(key).problem.contains(stage));
    EXPECT_EQ(m_changes.size(), 3);
    m_net.setUp(key);
    EXPECT_EQ(state(), Server::Up);
    EXPECT_TRUE(m_directory.server(key).problem.isEmpty());
}

TEST_F(DirectoryTest, AServerThatIsConnectedAndNeverComesUpIsFailingForAnotherReason)
{
    announceEverySecondUntil(30000);
    m_net.at(500, [this] { Q_EMIT m_net.serverConnected(key); });
    m_net.run(5000);
    EXPECT_EQ(state(), Server::Connecting);
    EXPECT_TRUE(m_directory.server(key).isConnected);
    m_net.run(7000);
    EXPECT_EQ(state(), Server::Failing);
    EXPECT_EQ(m_directory.server(key).problem,
              QStringLiteral("Server \"Stage\" (2.0.0.10:4811) accepts the connection, but does not send its "
                             "information (SInf)"));
}

TEST_F(DirectoryTest, AFailedConnectionIsAProblemAtOnceUntilTheServerIsConnected)
{
    Q_EMIT m_net.serverFailed(key, QStringLiteral("unknown"));
    EXPECT_TRUE(m_changes.isEmpty());
    announceEverySecondUntil(30000);
    m_net.at(1500, [this] { Q_EMIT m_net.serverFailed(key, QStringLiteral("Connection refused")); });
    m_net.at(2500, [this] { Q_EMIT m_net.serverFailed(key, QStringLiteral("Connection refused")); });
    m_net.run(5000);
    EXPECT_EQ(state(), Server::Failing);
    EXPECT_EQ(m_directory.server(key).since, 1500);
    EXPECT_EQ(m_directory.server(key).firstHeard, 0);
    EXPECT_EQ(m_directory.server(key).lastHeard, 5000);
    EXPECT_EQ(m_directory.server(key).problem,
              QStringLiteral("Server \"Stage\" (2.0.0.10:4811) does not come up: Connection refused"));
    EXPECT_EQ(m_changes.size(), 3);
    // Then it has its time from the beginning.
    m_net.run(1000);
    Q_EMIT m_net.serverConnected(key);
    m_net.run(9000);
    EXPECT_EQ(state(), Server::Connecting);
    EXPECT_TRUE(m_directory.server(key).problem.isEmpty());
    m_net.run(3000);
    EXPECT_EQ(state(), Server::Failing);
}

TEST_F(DirectoryTest, AConnectionThatTheStackItselfEndedIsNoProblem)
{
    announceEverySecondUntil(3000);
    m_net.run(2000);
    Q_EMIT m_net.serverConnected(key);
    Q_EMIT m_net.serverFailed(key, QString());
    EXPECT_EQ(state(), Server::Connecting);
    EXPECT_FALSE(m_directory.server(key).isConnected);
}

TEST_F(DirectoryTest, AServerIsLostForAReasonAndLostAgainWhenItFallsSilent)
{
    m_net.setUp(key);
    Q_EMIT m_net.serverFailed(key, QStringLiteral("Reset"));
    EXPECT_EQ(state(), Server::Up);
    m_net.setDown(key);
    EXPECT_EQ(state(), Server::Lost);
    EXPECT_TRUE(m_directory.server(key).problem.endsWith(QStringLiteral(" was lost: Reset")));
    announceEverySecondUntil(2000);
    m_net.run(9000);
    EXPECT_EQ(state(), Server::Connecting);
    EXPECT_TRUE(m_directory.server(key).problem.isEmpty());
    m_net.run(4000);
    EXPECT_EQ(state(), Server::Lost);
    EXPECT_TRUE(m_directory.server(key).problem.endsWith(QStringLiteral(" does not announce itself any more")));
}

TEST_F(DirectoryTest, ServersThatAreSilentAreRemovedUnlessTheyAreUp)
{
    const QString up = QStringLiteral("2.0.0.11:4811");
    m_net.setUp(up);
    Q_EMIT m_net.serverHeard(key, stage);
    m_net.run(59000);
    EXPECT_EQ(m_directory.keys(), (QStringList{key, up}));
    m_net.run(2000);
    EXPECT_EQ(m_directory.keys(), QStringList{up});
    EXPECT_EQ(m_changes.last(), key);
    EXPECT_TRUE(m_directory.server(key).key.isEmpty());
}

TEST_F(DirectoryTest, ServersThatAreUpReplaceOthersWhenItIsFull)
{
    for (int i = 0; i < Directory::maxServers + 10; ++i)
        Q_EMIT m_net.serverHeard(QStringLiteral("3.0.0.%1:1").arg(i), stage);
    EXPECT_EQ(m_directory.keys().size(), Directory::maxServers);
    EXPECT_FALSE(m_directory.server(QStringLiteral("3.0.0.0:1")).key.isEmpty());
    m_net.setUp(key);
    EXPECT_EQ(m_directory.keys().size(), Directory::maxServers);
    EXPECT_EQ(state(), Server::Up);
}

TEST_F(DirectoryTest, AnnouncementsAndAnswersAreSignsOfLife)
{
    EXPECT_EQ(m_directory.silence(key), -1);
    m_net.setUp(key);
    m_net.run(3000);
    EXPECT_EQ(m_directory.silence(key), 3000);
    Q_EMIT m_net.serverHeard(key, stage);
    EXPECT_EQ(m_directory.silence(key), 0);
    m_net.run(2000);
    Q_EMIT m_net.elementThumbnail(key, ethn(2, 1, QStringLiteral("1,1,0,0"), 1, {}));
    EXPECT_EQ(m_directory.silence(key), 0);
    m_net.run(2000);
    Q_EMIT m_net.layerStatus(key, {});
    EXPECT_EQ(m_directory.silence(key), 2000);
    m_directory.followLayers();
    Q_EMIT m_net.layerStatus(key, {});
    EXPECT_EQ(m_directory.silence(key), 0);
}

TEST_F(DirectoryTest, TheTimeThatServersAreKeptCanBeSet)
{
    m_directory.setKeepTime(5000);
    m_net.setUp(key);
    m_net.setDown(key);
    m_net.run(4000);
    EXPECT_EQ(m_directory.keys().size(), 1);
    m_net.run(2000);
    EXPECT_TRUE(m_directory.keys().isEmpty());
}

TEST_F(DirectoryTest, ItTellsWhatAServerIs)
{
    m_net.setUp(key);
    Server server = m_directory.server(key);
    EXPECT_EQ(server.version, QStringLiteral("3.4.5"));
    EXPECT_EQ(server.msexMinor, 2);
    EXPECT_EQ(server.uuid.size(), 36);
    EXPECT_EQ(server.types, (std::vector<quint8>{1, 2}));
    EXPECT_EQ(server.pictureFormats, QStringList{QStringLiteral("JPEG")});
    EXPECT_EQ(server.layers, QStringList{QStringLiteral("ArtNet/0/1/1")});
    m_net.setUp(key, 0);
    server = m_directory.server(key);
    EXPECT_EQ(server.version, QStringLiteral("1.0"));
    EXPECT_EQ(server.types, (std::vector<quint8>{1, 2}));
    m_net.setUp(key, 1);
    EXPECT_EQ(m_directory.server(key).types, (std::vector<quint8>{1, 2, 3}));
}

TEST_F(DirectoryTest, ServersThatAreUpAlreadyAreKnownAtOnce)
{
    m_net.setUp(key);
    const Directory later(m_net);
    EXPECT_EQ(later.server(key).state, Server::Up);
}

TEST_F(DirectoryTest, ServersAreFoundByKeyNameOrPartOfTheName)
{
    const QStringList keys{QStringLiteral("a:1"), QStringLiteral("b:1"), QStringLiteral("c:1")};
    Q_EMIT m_net.serverHeard(keys[0], QStringLiteral("Stage"));
    Q_EMIT m_net.serverHeard(keys[1], QStringLiteral("Stage left"));
    Q_EMIT m_net.serverHeard(keys[2], QStringLiteral("Pit"));
    EXPECT_EQ(m_directory.find(QStringLiteral("c:1")), QStringList{keys[2]});
    EXPECT_EQ(m_directory.find(QStringLiteral("stage")), QStringList{keys[0]});
    EXPECT_EQ(m_directory.find(QStringLiteral("left")), QStringList{keys[1]});
    EXPECT_EQ(m_directory.find(QStringLiteral("t")), keys);
}

TEST_F(DirectoryTest, AServerMayHaveAnotherOnesKeyForAName)
{
    Server liar;
    liar.key = QStringLiteral("2.0.0.12:4811");
    liar.name = QStringLiteral("2.0.0.99:4811");
    const std::vector<Server> servers{liar};
    EXPECT_EQ(Directory::find(servers, liar.name), QStringList());
    EXPECT_EQ(Directory::find(servers, liar.key), QStringList{liar.key});
    EXPECT_EQ(Directory::find(servers, QStringLiteral("2.0.0.9")), QStringList{liar.key});
}

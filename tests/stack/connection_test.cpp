// The life of a connection: greeting, framing of the stream, refusal, loss.
// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"
#include "stack_fixture.h"

#include <citp/citp_msg_msex_requests.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

using CITP::citp_stack;

namespace {
using Texts = std::vector<std::string>;
constexpr const char* RemoteClosed = "The remote host closed the connection";

int option(int descriptor, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(descriptor, level, name, &value, &size);
    return value;
}
} // namespace

class ConnectionTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.clear();
    }

    static std::string keyOf(const FakeServer& server) { return server.key().toStdString(); }

    /// Sends @p stream in the pieces that begin at 0 and at @p cuts, each handled before the next one is sent.
    void sendInPieces(FakeServer& server, Connection& connection, const QByteArray& stream, std::vector<int> cuts)
    {
        cuts.push_back(static_cast<int>(stream.size()));
        int from = 0;
        for (const int to : cuts) {
            connection.sendSegment(stream.mid(from, to - from));
            settle(server, connection);
            from = to;
        }
    }
};

TEST_F(ConnectionTest, AServerIsGreetedWithNameVersionsAndPatchRequest)
{
    logEverything();
    FakeServer server;
    server.announce();
    Connection connection = server.accept();
    EXPECT_EQ(connection.receive().toHex(), Wire::greeting().at(0).toHex());
    EXPECT_EQ(connection.receive().toHex(), Wire::greeting().at(1).toHex());
    EXPECT_EQ(connection.receive().toHex(), Wire::greeting().at(2).toHex());
    EXPECT_EQ(log.texts(), (Texts{"start connect to 127.0.0.2 port " + std::to_string(server.port()),
                                  "connected to " + keyOf(server)}));
    EXPECT_EQ(log.texts("CITP.Stack.Traffic").at(1).rfind("-> " + keyOf(server) + " ", 0), 0u);
}

TEST_F(ConnectionTest, KeepAliveIsOnFromTheStartAndNoDelayIsNot)
{
    FakeServer server;
    Connection connection = connectTo(server);
    const int descriptor = stackDescriptor(server);
    EXPECT_EQ(option(descriptor, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_NODELAY), 0);
}

TEST_F(ConnectionTest, AConnectionTakesOneDescriptor)
{
    FakeServer first("127.0.0.2");
    FakeServer second("127.0.0.3");
    Connection firstConnection = admit(first);
    Connection secondConnection = connectTo(second);
    EXPECT_EQ(stackDescriptors(first).size(), 1U);
    EXPECT_EQ(stackDescriptors(second).size(), 1U);
    armReset();
    tick();
    firstConnection.waitForEnd();
    secondConnection.waitForEnd();
    EXPECT_TRUE(waitFor([&] { return stackDescriptors(first).empty() && stackDescriptors(second).empty(); }));
}

TEST_F(ConnectionTest, TwoMessagesInOneSegmentAreHandedOnInOrder)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    connection.sendSegment(Wire::lsta(1) + Wire::elup(2));
    ASSERT_TRUE(waitForEvent("libraryUpdated " + keyOf(server) + " 2"));
    EXPECT_EQ(recorder->events(),
              (Texts{"layerStatus " + keyOf(server) + " 1", "libraryUpdated " + keyOf(server) + " 2"}));
}

TEST_F(ConnectionTest, AMessageInSeveralSegmentsIsHandedOnOnceWithItsLastByte)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    const QByteArray message = Wire::lsta(1);
    sendInPieces(server, connection, message.left(static_cast<int>(message.size()) - 1), {5, 20, 30});
    EXPECT_TRUE(recorder->events().empty());
    connection.sendSegment(message.right(1));
    ASSERT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1"));
    sendMarker(server, connection);
    EXPECT_EQ(recorder->events().size(), 2u);
}

TEST_F(ConnectionTest, AMessageOfMegabytesIsTakenWholeAndTheNextOneAfterIt)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    const QByteArray message = Wire::mein(1) + QByteArray(3 * 1024 * 1024, 'x');
    connection.send(Wire::withSize(message, static_cast<quint32>(message.size())));
    connection.send(Wire::mein(2));
    ASSERT_TRUE(waitForEvent("mediaInfo " + keyOf(server) + " 2"));
    EXPECT_EQ(recorder->events(), (Texts{"mediaInfo " + keyOf(server) + " 1", "mediaInfo " + keyOf(server) + " 2"}));
}

TEST_F(ConnectionTest, NineteenBytesWaitForMore)
{
    logEverything();
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    log.clear();
    const QByteArray message = Wire::lsta(1);
    connection.sendSegment(message.left(19));
    settle(server, connection);
    EXPECT_TRUE(log.entries().empty());
    connection.sendSegment(message.mid(19));
    EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1"));
}

TEST_F(ConnectionTest, AStreamMayBeCutAnywhere)
{
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray stream = Wire::lsta(1) + Wire::ptch(2);
    const Texts expected{"layerStatus " + keyOf(server) + " 1", "patchMessage " + keyOf(server) + " 2"};
    for (int cut = 1; cut < stream.size(); ++cut) {
        recorder->clear();
        sendInPieces(server, connection, stream, {cut});
        ASSERT_TRUE(waitFor([&] { return recorder->events().size() >= 2; })) << "cut at " << cut;
        ASSERT_EQ(recorder->events(), expected) << "cut at " << cut;
    }
}

TEST_F(ConnectionTest, AStreamMayComeByteByByte)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    const QByteArray stream = Wire::lsta(1) + Wire::ptch(2);
    std::vector<int> cuts;
    for (int cut = 1; cut < stream.size(); ++cut) {
        cuts.push_back(cut);
    }
    sendInPieces(server, connection, stream, cuts);
    ASSERT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 2"));
    EXPECT_EQ(recorder->events(),
              (Texts{"layerStatus " + keyOf(server) + " 1", "patchMessage " + keyOf(server) + " 2"}));
}

TEST_F(ConnectionTest, ASizeOfTenDropsTenBytesAndCarriesOnBehindThem)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    log.expectFailureLine("invalid size for CITP");
    log.expectFailureLine("lost in the byte stream");
    // The size field's upper half, two zero bytes, already belongs to what is taken next: 30 bytes that are no message.
    const QByteArray ten = Wire::withSize(Wire::lsta(1), 10).left(10);
    const QByteArray next = Wire::u16(0) + QByteArray(6, 'x') + Wire::u32(30) + QByteArray(18, 'x');
    connection.sendSegment(ten + next + Wire::lsta(2));
    ASSERT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 2"));
    EXPECT_EQ(recorder->events(), Texts{"layerStatus " + keyOf(server) + " 2"});
    EXPECT_EQ(log.texts().back(), "lost in the byte stream");
}

TEST_F(ConnectionTest, ASizeOfTwentyIsAWholeMessage)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    connection.sendSegment(Wire::message("NONE", {}) + Wire::lsta(3));
    EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 3"));
}

TEST_F(ConnectionTest, WhatDoesNotBeginAMessageIsDroppedByItsSizeAndTheNextOneIsTaken)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    log.expectFailureLine("lost in the byte stream");
    QByteArray garbage = Wire::lsta(1);
    garbage[3] = 'Q';
    connection.sendSegment(garbage + Wire::lsta(2));
    ASSERT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 2"));
    EXPECT_EQ(recorder->events(), Texts{"layerStatus " + keyOf(server) + " 2"});
}

TEST_F(ConnectionTest, TheStreamIsNeverSearchedForTheNextMessage)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    // Twelve bytes too many: the garbage's size field covers the first twelve bytes of the good message behind it.
    QByteArray garbage = Wire::lsta(1);
    garbage[0] = 'X';
    garbage = Wire::withSize(garbage, static_cast<quint32>(garbage.size() + 12));
    log.expectFailureLine("lost in the byte stream");
    connection.sendSegment(garbage + Wire::lsta(2));
    ASSERT_TRUE(waitForLine("lost in the byte stream"));
    settle(server, connection);
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(ConnectionTest, ASizeBeyondWhatComesWaitsForEver)
{
    FakeServer server;
    Connection connection = admit(server);
    for (const quint32 size : {0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        FakeServer other("127.0.0.3");
        Connection otherConnection = admit(other);
        recorder->clear();
        otherConnection.sendSegment(Wire::withSize(Wire::lsta(1), size) + Wire::lsta(2) + Wire::lsta(3));
        settle(other, otherConnection);
        EXPECT_TRUE(recorder->events().empty()) << size;
        EXPECT_TRUE(isListed(other)) << size;
    }
    sendMarker(server, connection);
}

TEST_F(ConnectionTest, ARefusedConnectionLeavesOneLineAndNoServer)
{
    logEverything();
    FakeServer server;
    server.stopListening();
    log.expectFailureLine("Connection refused");
    const int descriptors = ProcessFigures::now().descriptors;
    server.announce();
    ASSERT_TRUE(waitForLine("Connection refused"));
    tick();
    EXPECT_EQ(log.texts(),
              (Texts{"start connect to 127.0.0.2 port " + std::to_string(server.port()), "Connection refused"}));
    EXPECT_TRUE(recorder->events().empty());
    EXPECT_EQ(ProcessFigures::now().descriptors, descriptors);
    // Nothing retries by itself; a later announcement does.
    server.listenAgain();
    EXPECT_FALSE(server.tryAccept(0));
    Connection connection = admit(server);
}

TEST_F(ConnectionTest, AnAnnouncedServerThatClosesIsRemovedOnce)
{
    FakeServer server;
    Connection connection = admit(server, "Product", "Some Name");
    logEverything();
    log.clear();
    recorder->clear();
    log.expectFailureLine(RemoteClosed);
    connection.close();
    ASSERT_TRUE(waitForLine("disconnected"));
    tick();
    EXPECT_EQ(log.texts(), (Texts{RemoteClosed, "removed " + keyOf(server) + " Some Name (total=0)", "disconnected"}));
    EXPECT_EQ(recorder->events(), Texts{"serverDown " + keyOf(server)});
    EXPECT_TRUE(stack->getServers().empty());
    EXPECT_FALSE(stack->getServerInfo(server.key(), nullptr, nullptr));
    const std::vector<LogCapture::Entry> lines = log.entries();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].level, 8u);
    EXPECT_EQ(lines[1].level, 2u);
    EXPECT_EQ(lines[2].level, 1u);
}

TEST_F(ConnectionTest, AnUnannouncedServerThatClosesIsRemovedWithoutAWord)
{
    FakeServer server;
    Connection connection = connectTo(server);
    logEverything();
    log.clear();
    log.expectFailureLine(RemoteClosed);
    connection.close();
    ASSERT_TRUE(waitForLine("disconnected"));
    EXPECT_EQ(log.texts(), (Texts{RemoteClosed, "disconnected"}));
    EXPECT_TRUE(recorder->events().empty());
}

TEST_F(ConnectionTest, AServerThatResetsIsRemovedOnce)
{
    FakeServer server;
    Connection connection = admit(server);
    log.expectFailureLine(RemoteClosed);
    connection.reset();
    ASSERT_TRUE(waitForEvent("serverDown " + keyOf(server)));
    tick();
    EXPECT_EQ(recorder->count("serverDown " + keyOf(server)), 1);
    EXPECT_EQ(log.count("removed " + keyOf(server) + " Server (total=0)"), 1);
}

TEST_F(ConnectionTest, OnlyTheLostServerGoes)
{
    FakeServer first("127.0.0.2");
    FakeServer second("127.0.0.3");
    FakeServer third("127.0.0.4");
    FakeServer silent("127.0.0.5");
    FakeServer earlySilent("127.0.0.1");
    earlySilent.leaveUnanswered();
    silent.leaveUnanswered();
    earlySilent.announce();
    Connection firstConnection = admit(first);
    Connection secondConnection = admit(second);
    Connection thirdConnection = admit(third);
    silent.announce();
    Connection unannounced = [&] {
        FakeServer other("127.0.0.6");
        return connectTo(other);
    }();
    log.expectFailureLine(RemoteClosed);
    secondConnection.close();
    ASSERT_TRUE(waitForEvent("serverDown " + keyOf(second)));
    tick();
    EXPECT_EQ(stack->getServers(), (std::vector<citp_stack::SERV_ID>{first.key(), third.key()}));
    EXPECT_EQ(log.count("removed " + keyOf(second) + " Server (total=2)"), 1);
    sendMarker(first, firstConnection);
    sendMarker(third, thirdConnection);
    // The connections that are still being made are still being made.
    silent.answerAgain();
    earlySilent.answerAgain();
    Connection late = silent.accept();
    EXPECT_EQ(late.receive(), Wire::greeting().front());
    Connection early = earlySilent.accept();
    EXPECT_EQ(early.receive(), Wire::greeting().front());
}

TEST_F(ConnectionTest, ALostServerIsFoundAgainAndStartsAfresh)
{
    FakeServer server;
    for (int round = 1; round <= 5; ++round) {
        Connection connection = admit(server, ("Product " + std::to_string(round)).c_str());
        CITP::Msg_MSEX_SINF sinf;
        ASSERT_TRUE(stack->getServerInfo(server.key(), &sinf, nullptr));
        EXPECT_EQ(sinf.ProductName, QStringLiteral("Product %1").arg(round));
        log.expectFailureLine(RemoteClosed);
        connection.close();
        ASSERT_TRUE(waitForEvent("serverDown " + keyOf(server), round));
    }
}

TEST_F(ConnectionTest, MessagesThatCameBeforeTheEndAreHandedOnBeforeIt)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    log.expectFailureLine(RemoteClosed);
    connection.send(Wire::lsta(1) + Wire::lsta(2) + Wire::lsta(3).left(30));
    connection.close();
    ASSERT_TRUE(waitForEvent("serverDown " + keyOf(server)));
    EXPECT_EQ(recorder->events(), (Texts{"layerStatus " + keyOf(server) + " 1", "layerStatus " + keyOf(server) + " 2",
                                         "serverDown " + keyOf(server)}));
}

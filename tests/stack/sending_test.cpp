// The way out: what may be sent, and the pacing of the requests to servers that need it.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <thread>

using CITP::citp_stack;

namespace {
using Texts = std::vector<std::string>;
using Codes = std::vector<QByteArray>;

/// Requests that tell their number: as the library's first level.
QString library(unsigned number)
{
    return QString::number(number) + QStringLiteral(",0,0,0");
}

CITP::Msg_MSEX_GELI geli(unsigned number)
{
    return {2, 1, library(number), {}};
}

CITP::Msg_MSEX_GEIN gein(unsigned number)
{
    return {2, 1, library(number), {}};
}

CITP::Msg_MSEX_GELT gelt(unsigned number)
{
    return {2, 1, {library(number)}, 60, 80, QStringLiteral("JPEG")};
}

CITP::Msg_MSEX_GETH geth(unsigned number)
{
    return {2, 1, QStringLiteral("%1,10,10,10").arg(number), 60, 80, QStringLiteral("JPEG"), {}};
}

/// A request's code and number, e.g. "GELI 3".
std::string request(const QByteArray& message)
{
    const QByteArray code = Wire::code(message);
    const int at = code == "GELT" ? 38 : code == "GETh" ? 36 : 27;
    return code.toStdString() + " " + std::to_string(static_cast<unsigned char>(message.at(at)));
}
} // namespace

class SendingTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.clear();
    }

    bool send(const CITP::Msg_Header& message) { return stack->sendMsg(m_server.key(), message); }
    static std::string next(Connection& connection) { return request(connection.receive()); }

    static int stackOption(const FakeServer& server)
    {
        int value = -1;
        socklen_t size = sizeof value;
        getsockopt(stackDescriptor(server), IPPROTO_TCP, TCP_NODELAY, &value, &size);
        return value;
    }

    FakeServer m_server;
};

TEST_F(SendingTest, AnInvalidMessageIsRefused)
{
    Connection connection = admit(m_server);
    log.expectFailureLine("sendMsg failed: message err");
    CITP::Msg_MSEX_GELI message = geli(1);
    message.valid = false;
    EXPECT_FALSE(send(message));
    EXPECT_EQ(log.texts(),
              (Texts{"added " + m_server.key().toStdString() + " Server (total=1)", "sendMsg failed: message err"}));
    EXPECT_EQ(log.entries().back().level, 8u);
    EXPECT_TRUE(send(geli(2)));
    EXPECT_EQ(next(connection), "GELI 2");
}

TEST_F(SendingTest, WhatTheConsoleNeverSendsIsRefused)
{
    Connection connection = admit(m_server);
    log.expectFailureLine("sendMsg failed: cannot send this message type");
    log.expectFailureLine("sendMsg failed: cannot send this message type");
    log.expectFailureLine("sendMsg failed: cannot send this message type");
    EXPECT_FALSE(send(CITP::Msg_MSEX_ELIN()));
    EXPECT_FALSE(send(CITP::Msg_PEER_PLOC(QStringLiteral("MediaServer"), QStringLiteral("n"), QString(), 1)));
    EXPECT_FALSE(send(CITP::Msg_MSEX(2, QStringLiteral("GELI"))));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_EQ(next(connection), "GELI 2");
}

TEST_F(SendingTest, AnUnknownServerIsRefused)
{
    log.expectFailureLine("sendMsg failed: server not found");
    EXPECT_FALSE(stack->sendMsg(QStringLiteral("127.0.0.2:1"), geli(1)));
}

TEST_F(SendingTest, TheReasonsForARefusalAreLookedForInOrder)
{
    log.expectFailureLine("sendMsg failed: message err");
    log.expectFailureLine("sendMsg failed: cannot send this message type");
    CITP::Msg_MSEX_ELIN message;
    EXPECT_FALSE(stack->sendMsg(QStringLiteral("nobody"), message));
    message.valid = false;
    EXPECT_FALSE(stack->sendMsg(QStringLiteral("nobody"), message));
}

TEST_F(SendingTest, EveryMessageThatMayBeSentArrivesAsItIsWritten)
{
    Connection connection = admit(m_server);
    const std::vector<unsigned short> fixtures{1, 258};
    EXPECT_TRUE(send(CITP::Msg_MSEX_GELT(1, 1, {QStringLiteral("1,2,3,4")}, 120, 160, QStringLiteral("jpeg"))));
    EXPECT_TRUE(send(CITP::Msg_MSEX_GETH(0, 1, QStringLiteral("7"), 120, 160, QStringLiteral("png"), {3})));
    EXPECT_TRUE(send(CITP::Msg_MSEX_GELI(0, 1, QString(), {0, 1})));
    EXPECT_TRUE(send(CITP::Msg_MSEX_GEIN(0, 1, QStringLiteral("3"), {5})));
    EXPECT_TRUE(send(CITP::Msg_PEER_PNAM(QStringLiteral("X"))));
    EXPECT_TRUE(send(CITP::Msg_MSEX_CInf()));
    EXPECT_TRUE(send(CITP::Msg_FPTC_SPTC(&fixtures)));
    using namespace Wire;
    const QByteArray size = u16(160) + u16(120) + u8(1);
    EXPECT_EQ(connection.receive().toHex(),
              msex(1, "GELT", "JPEG" + size + u8(1) + u8(1) + u8(1) + u8(2) + u8(3) + u8(4)).toHex());
    EXPECT_EQ(connection.receive().toHex(), msex(0, "GETh", "PNG " + size + u8(1) + u8(7) + u8(1) + u8(3)).toHex());
    EXPECT_EQ(connection.receive().toHex(), msex(0, "GELI", u8(1) + u8(2) + u8(0) + u8(1)).toHex());
    EXPECT_EQ(connection.receive().toHex(), msex(0, "GEIn", u8(1) + u8(3) + u8(1) + u8(5)).toHex());
    EXPECT_EQ(connection.receive().toHex(), pinf("PNam", text8("X")).toHex());
    EXPECT_EQ(connection.receive().toHex(), greeting().at(1).toHex());
    EXPECT_EQ(connection.receive().toHex(), fptc("SPtc", u16(2) + u16(1) + u16(258)).toHex());
}

TEST_F(SendingTest, RequestsToAPacedServerGoOneAtATime)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_TRUE(send(gein(2)));
    EXPECT_TRUE(send(geli(3)));
    EXPECT_TRUE(send(gelt(4)));
    EXPECT_EQ(next(connection), "GELI 1");
    EXPECT_EQ(next(connection), "GELT 4"); // what is queued is not before it
    connection.send(Wire::elin(1));
    EXPECT_EQ(next(connection), "GEIn 2");
    connection.send(Wire::mein(1));
    EXPECT_EQ(next(connection), "GELI 3");
    connection.send(Wire::elin(2));
    ASSERT_TRUE(waitForEvent("libraryInfo " + m_server.key().toStdString() + " 2"));
    sendMarker(m_server, connection);
    EXPECT_TRUE(send(geli(5)));
    EXPECT_EQ(next(connection), "GELI 5");
    EXPECT_TRUE(send(geli(6)));
    EXPECT_TRUE(send(gelt(7)));
    EXPECT_EQ(next(connection), "GELT 7"); // busy again
}

TEST_F(SendingTest, TwoQueuedRequestsAreReleasedByTwoAnswersAndTheThirdAnswerMakesIdle)
{
    Connection connection = admitPaced(m_server);
    for (unsigned number = 1; number <= 3; ++number) {
        EXPECT_TRUE(send(gein(number)));
    }
    EXPECT_EQ(next(connection), "GEIn 1");
    connection.send(Wire::mein(1));
    EXPECT_EQ(next(connection), "GEIn 2");
    connection.send(Wire::mein(2));
    EXPECT_EQ(next(connection), "GEIn 3");
    connection.send(Wire::mein(3));
    sendMarker(m_server, connection);
    connection.send(Wire::mein(4)); // changes nothing: it grants no second request in advance
    sendMarker(m_server, connection);
    EXPECT_TRUE(send(gein(5)));
    EXPECT_EQ(next(connection), "GEIn 5");
    EXPECT_TRUE(send(gein(6)));
    EXPECT_TRUE(send(gelt(7)));
    EXPECT_EQ(next(connection), "GELT 7");
    connection.send(Wire::mein(5));
    EXPECT_EQ(next(connection), "GEIn 6");
}

TEST_F(SendingTest, ThumbnailRequestsAndOthersPassABusyServersQueue)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_TRUE(send(geth(3)));
    EXPECT_TRUE(send(gelt(4)));
    EXPECT_TRUE(send(CITP::Msg_PEER_PNAM(QStringLiteral("X"))));
    EXPECT_EQ(next(connection), "GELI 1");
    EXPECT_EQ(next(connection), "GETh 3");
    EXPECT_EQ(next(connection), "GELT 4");
    EXPECT_EQ(Wire::code(connection.receive()), "PNam");
    connection.send(Wire::elin(1));
    EXPECT_EQ(next(connection), "GELI 2");
}

TEST_F(SendingTest, AnUnpacedRequestPassesABusyServersQueueAndMakesNoServerBusy)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(stack->sendUnpaced(m_server.key(), gein(1)));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_TRUE(send(geli(3)));
    EXPECT_TRUE(stack->sendUnpaced(m_server.key(), geli(4)));
    EXPECT_EQ(next(connection), "GEIn 1");
    EXPECT_EQ(next(connection), "GELI 2");
    EXPECT_EQ(next(connection), "GELI 4");
    connection.send(Wire::elin(1));
    EXPECT_EQ(next(connection), "GELI 3");
}

TEST_F(SendingTest, AnUnpacedMessageIsRefusedLikeOthersUnderItsOwnName)
{
    const Connection connection = admit(m_server);
    log.expectFailureLine("sendUnpaced failed: cannot send this message type");
    EXPECT_FALSE(stack->sendUnpaced(m_server.key(), CITP::Msg_MSEX_ELIN()));
    log.expectFailureLine("sendUnpaced failed: server not found");
    EXPECT_FALSE(stack->sendUnpaced(QStringLiteral("127.0.0.9:1"), geli(1)));
}

TEST_F(SendingTest, AnEeinOrGleiReleasesNothing)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(gein(1)));
    EXPECT_TRUE(send(gein(2)));
    EXPECT_EQ(next(connection), "GEIn 1");
    connection.send(Wire::eein(1) + Wire::glei(1) + Wire::elup(1) + Wire::lsta(1) + Wire::elth(1) + Wire::ethn(1));
    sendMarker(m_server, connection);
    EXPECT_TRUE(send(gelt(3)));
    EXPECT_EQ(next(connection), "GELT 3");
    connection.send(Wire::mein(1));
    EXPECT_EQ(next(connection), "GEIn 2");
}

TEST_F(SendingTest, AnElinThatFailsToParseStillReleasesTheNextRequest)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_EQ(next(connection), "GELI 1");
    recorder->clear();
    log.expectFailureLine("error reading CITP header: wrong CITP minor");
    connection.send(Wire::withCitpMinor(Wire::elin(1), 1));
    EXPECT_EQ(next(connection), "GELI 2");
    EXPECT_TRUE(recorder->events().empty());
    log.expectFailureLine("error reading CITP header: wrong CITP minor");
    EXPECT_TRUE(send(geli(3)));
    connection.send(Wire::withCitpMinor(Wire::mein(1), 1));
    EXPECT_EQ(next(connection), "GELI 3");
}

TEST_F(SendingTest, AnUnpacedServerGetsEverythingAtOnce)
{
    Connection connection = admit(m_server, "Product");
    for (unsigned number = 1; number <= 3; ++number) {
        EXPECT_TRUE(send(geli(number)));
    }
    EXPECT_EQ(next(connection), "GELI 1");
    EXPECT_EQ(next(connection), "GELI 2");
    EXPECT_EQ(next(connection), "GELI 3");
    connection.send(Wire::elin(1));
    sendMarker(m_server, connection);
    EXPECT_TRUE(send(geli(4)));
    EXPECT_EQ(next(connection), "GELI 4");
}

TEST_F(SendingTest, RequestsBeforeTheSinfAreNotPaced)
{
    Connection connection = connectTo(m_server);
    for (unsigned number = 1; number <= 3; ++number) {
        EXPECT_TRUE(send(geli(number)));
    }
    EXPECT_EQ(next(connection), "GELI 1");
    EXPECT_EQ(next(connection), "GELI 2");
    EXPECT_EQ(next(connection), "GELI 3");
    connection.send(Wire::sinf("arkaos"));
    ASSERT_TRUE(waitForEvent("serverUp " + m_server.key().toStdString()));
    // None of them counts as outstanding.
    EXPECT_TRUE(send(geli(4)));
    EXPECT_EQ(next(connection), "GELI 4");
    EXPECT_TRUE(send(geli(5)));
    EXPECT_TRUE(send(gelt(6)));
    EXPECT_EQ(next(connection), "GELT 6");
}

TEST_F(SendingTest, ARefusedMessageLeavesThePacingAsItWas)
{
    Connection connection = admitPaced(m_server);
    log.expectFailureLine("sendMsg failed: message err");
    CITP::Msg_MSEX_GELI message = geli(1);
    message.valid = false;
    EXPECT_FALSE(send(message));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_EQ(next(connection), "GELI 2");
    log.expectFailureLine("sendMsg failed: message err");
    EXPECT_FALSE(send(message));
    connection.send(Wire::elin(1));
    sendMarker(m_server, connection);
    EXPECT_TRUE(send(geli(3)));
    EXPECT_EQ(next(connection), "GELI 3");
}

TEST_F(SendingTest, PacingIsEachServersOwn)
{
    FakeServer other("127.0.0.3");
    Connection connection = admitPaced(m_server);
    Connection otherConnection = admitPaced(other);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_TRUE(stack->sendMsg(other.key(), geli(3)));
    EXPECT_TRUE(stack->sendMsg(other.key(), geli(4)));
    EXPECT_EQ(next(connection), "GELI 1");
    EXPECT_EQ(next(otherConnection), "GELI 3");
    otherConnection.send(Wire::elin(1));
    EXPECT_EQ(next(otherConnection), "GELI 4");
    EXPECT_TRUE(send(gelt(5)));
    EXPECT_EQ(next(connection), "GELT 5");
}

TEST_F(SendingTest, QueuedRequestsDieWithTheServer)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_TRUE(send(geli(2)));
    EXPECT_EQ(next(connection), "GELI 1");
    armReset();
    tick();
    Connection again = admitPaced(m_server);
    again.send(Wire::elin(1));
    sendMarker(m_server, again);
    EXPECT_TRUE(send(geli(3)));
    EXPECT_EQ(next(again), "GELI 3");
}

TEST_F(SendingTest, AReceiverOnTheWorkerThreadMaySendFromInsideTheAnswer)
{
    Connection connection = admitPaced(m_server);
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::libraryInfo, [this](const QString& key, const CITP::Msg_MSEX_ELIN&) {
        stack->sendMsg(key, gein(8));
        stack->sendMsg(key, gelt(9));
    });
    EXPECT_TRUE(send(geli(1)));
    EXPECT_EQ(next(connection), "GELI 1");
    connection.send(Wire::elin(1));
    EXPECT_EQ(next(connection), "GELT 9"); // the answer's release comes after the notification
    EXPECT_EQ(next(connection), "GEIn 8");
    receiver.disconnect();
}

TEST_F(SendingTest, APacedRequestDoesNotOvertakeWhatItsThreadSentBefore)
{
    Connection connection = admitPaced(m_server);
    EXPECT_TRUE(send(geli(1)));
    EXPECT_EQ(next(connection), "GELI 1");
    // The answer is at the socket when the worker is let go, and so is handled before what waits in the event queue.
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::libraryInfo, [this](const QString&, const CITP::Msg_MSEX_ELIN&) {
        std::thread application([this] {
            EXPECT_TRUE(send(gelt(2)));
            EXPECT_TRUE(send(geli(3)));
        });
        application.join();
    });
    connection.send(Wire::elin(1));
    EXPECT_EQ(next(connection), "GELT 2");
    EXPECT_EQ(next(connection), "GELI 3");
    receiver.disconnect();
}

TEST_F(SendingTest, AMessageForAConnectionThatIsNotOpenIsDroppedAfterItsTrafficLine)
{
    logEverything();
    m_server.leaveUnanswered();
    m_server.announce();
    const std::string key = m_server.key().toStdString();
    ASSERT_TRUE(waitForLine("start connect to 127.0.0.2 port " + std::to_string(m_server.port())));
    log.clear();
    EXPECT_TRUE(send(gelt(1)));
    EXPECT_TRUE(send(geli(2)));
    runOnWorker([] {});
    const Texts lines = log.texts("CITP.Stack.Traffic");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("-> " + key + " ", 0), 0u);
    EXPECT_TRUE(log.texts().empty());
    // Nothing ever goes out before the greeting, and what was dropped does not come afterwards.
    m_server.answerAgain();
    Connection connection = m_server.accept();
    for (const QByteArray& expected : Wire::greeting()) {
        EXPECT_EQ(connection.receive(), expected);
    }
    EXPECT_TRUE(send(geli(3)));
    EXPECT_EQ(next(connection), "GELI 3");
}

TEST_F(SendingTest, ThePacedMakersGetTcpNoDelayToo)
{
    for (const char* product : {"Pandoras Box by COOLUX", "ArKaOs GrandVJ"}) {
        FakeServer server("127.0.0.3");
        Connection connection = admit(server, product);
        EXPECT_EQ(stackOption(server), 1) << product;
        stack->sendMsg(server.key(), geli(1));
        stack->sendMsg(server.key(), geli(2));
        stack->sendMsg(server.key(), gelt(3));
        EXPECT_EQ(next(connection), "GELI 1") << product;
        EXPECT_EQ(next(connection), "GELT 3") << product;
    }
    for (const char* product : {"cool ux", "arkao", "", "Product"}) {
        FakeServer server("127.0.0.3");
        Connection connection = admit(server, product);
        EXPECT_EQ(stackOption(server), 0) << product;
        stack->sendMsg(server.key(), geli(1));
        stack->sendMsg(server.key(), geli(2));
        EXPECT_EQ(next(connection), "GELI 1") << product;
        EXPECT_EQ(next(connection), "GELI 2") << product;
    }
}

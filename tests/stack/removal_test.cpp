// Servers that vanish in the middle of something: inside emissions, writes, and the release of a paced request.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>

#include <QCoreApplication>
#include <QTcpSocket>
#include <QThread>

#include <atomic>
#include <chrono>
#include <future>

using CITP::citp_stack;

namespace {
using Texts = std::vector<std::string>;
constexpr const char* RemoteClosed = "The remote host closed the connection";
constexpr const char* TimedOut = "Network operation timed out";

CITP::Msg_MSEX_GELI geli()
{
    return {2, 1, QStringLiteral("1,0,0,0"), {}};
}

CITP::Msg_MSEX_GETH geth()
{
    return {2, 1, QStringLiteral("1,0,0,0"), 60, 80, QStringLiteral("JPEG"), {}};
}
} // namespace

class RemovalTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.clear();
    }

    static std::string up(const FakeServer& server) { return "serverUp " + server.key().toStdString(); }
    static std::string down(const FakeServer& server) { return "serverDown " + server.key().toStdString(); }
    static std::string status(const FakeServer& server, int layer)
    {
        return "layerStatus " + server.key().toStdString() + " " + std::to_string(layer);
    }

    /// Runs @p work on the stack's thread, inside the first layer status.
    template <typename Work>
    void onFirstStatus(Work work)
    {
        m_receiver.connect(&citp_stack::layerStatus, [work, isFirst = true](const QString& key) mutable {
            if (std::exchange(isFirst, false)) {
                work(key);
            }
        });
    }

    void dropAllServersNow()
    {
        armReset();
        QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection);
    }

    DirectReceiver<citp_stack> m_receiver{stack};
};

TEST_F(RemovalTest, NothingMoreOfTheConnectionIsEmittedAfterServerDown)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    onFirstStatus([this](const QString&) { dropAllServersNow(); });
    connection.sendSegment(Wire::lsta(1) + Wire::lsta(2) + Wire::elin(3));
    ASSERT_TRUE(waitForEvent(down(server)));
    connection.waitForEnd();
    tick();
    EXPECT_EQ(recorder->events(), (Texts{status(server, 1), down(server)}));
}

TEST_F(RemovalTest, NorWhenTheSameKeyHasComeBackMeanwhile)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    onFirstStatus([this, &server](const QString&) {
        dropAllServersNow();
        server.announce();
        QMetaObject::invokeMethod(stack, "processPendingUDP", Qt::DirectConnection);
    });
    connection.sendSegment(Wire::lsta(1) + Wire::lsta(2) + Wire::elin(3) + Wire::sinf("Stale"));
    Connection again = server.accept();
    connection.waitForEnd();
    again.send(Wire::sinf("Fresh") + Wire::lsta(4));
    ASSERT_TRUE(waitForEvent(status(server, 4)));
    EXPECT_EQ(recorder->events(), (Texts{status(server, 1), down(server), up(server), status(server, 4)}));
    CITP::Msg_MSEX_SINF sinf;
    ASSERT_TRUE(stack->getServerInfo(server.key(), &sinf, nullptr));
    EXPECT_EQ(sinf.ProductName, QStringLiteral("Fresh"));
}

TEST_F(RemovalTest, TheEndOfTheOldConnectionDoesNotTouchTheNewOne)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    armReset();
    tick();
    Connection again = admit(server);
    connection.reset();
    for (int round = 0; round < 20; ++round) {
        sendMarker(server, again);
    }
    EXPECT_EQ(recorder->count(down(server)), 1);
    EXPECT_TRUE(isListed(server));
}

TEST_F(RemovalTest, AReceiverInServerDownStillSeesTheServer)
{
    FakeServer server;
    Connection connection = admit(server, "Product", "Some Name");
    std::vector<citp_stack::SERV_ID> listed;
    int announced = 0;
    QString name;
    m_receiver.connect(&citp_stack::serverDown, [&](const QString& key) {
        listed = stack->getServers();
        announced = stack->getNumNotified();
        CITP::Msg_PEER_PLOC ploc;
        stack->getServerInfo(key, nullptr, &ploc);
        name = ploc.name;
    });
    log.expectFailureLine(RemoteClosed);
    connection.close();
    ASSERT_TRUE(waitForEvent(down(server)));
    tick();
    EXPECT_EQ(listed, std::vector<citp_stack::SERV_ID>{server.key()});
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(name, QStringLiteral("Some Name"));
    EXPECT_TRUE(stack->getServers().empty());
    m_receiver.disconnect();
}

TEST_F(RemovalTest, WhatAReceiverInServerDownSendsToDyingServersDeletesNothingTwice)
{
    FakeServer first("127.0.0.2", 4096);
    FakeServer second("127.0.0.3", 4096);
    FakeServer third("127.0.0.4", 4096);
    Connection firstConnection = admitPaced(first);
    Connection secondConnection = admitPaced(second);
    Connection thirdConnection = admitPaced(third);
    // The second one cannot be written to, so that a message for it ends it.
    fillStackSocket(second);
    recorder->clear();
    m_receiver.connect(&citp_stack::serverDown, [&](const QString&) {
        for (const FakeServer* server : {&first, &second, &third}) {
            stack->sendMsg(server->key(), geli());
            stack->sendMsg(server->key(), geth());
        }
    });
    log.allowFailureLines(RemoteClosed);
    log.allowFailureLines(TimedOut);
    log.allowFailureLines("sendMsg failed: server not found");
    firstConnection.reset();
    ASSERT_TRUE(waitForEvent(down(first)));
    ASSERT_TRUE(waitForEvent(down(second)));
    tick();
    EXPECT_EQ(recorder->count(down(first)), 1);
    EXPECT_EQ(recorder->count(down(second)), 1);
    EXPECT_EQ(recorder->count(down(third)), 0);
    EXPECT_EQ(stack->getServers(), std::vector<citp_stack::SERV_ID>{third.key()});
    m_receiver.disconnect();
}

TEST_F(RemovalTest, AResetOnWhichReceiversSendDeletesNothingTwice)
{
    FakeServer first("127.0.0.2", 4096);
    FakeServer second("127.0.0.3", 4096);
    FakeServer third("127.0.0.4", 4096);
    Connection firstConnection = admitPaced(first);
    Connection secondConnection = admitPaced(second);
    Connection thirdConnection = admitPaced(third);
    for (const FakeServer* server : {&first, &second, &third}) {
        fillStackSocket(*server);
    }
    recorder->clear();
    m_receiver.connect(&citp_stack::serverDown, [&](const QString&) {
        for (const FakeServer* server : {&third, &second, &first}) {
            stack->sendMsg(server->key(), geth());
        }
    });
    log.allowFailureLines(TimedOut);
    log.allowFailureLines("sendMsg failed: server not found");
    armReset();
    tick();
    m_receiver.disconnect();
    for (const FakeServer* server : {&first, &second, &third}) {
        EXPECT_EQ(recorder->count(down(*server)), 1) << server->key().toStdString();
        EXPECT_EQ(log.count("removed " + server->key().toStdString() + " Server (total=0)") +
                      log.count("removed " + server->key().toStdString() + " Server (total=1)") +
                      log.count("removed " + server->key().toStdString() + " Server (total=2)"),
                  1);
    }
    EXPECT_TRUE(stack->getServers().empty());
    FakeServer fresh("127.0.0.5");
    Connection connection = admit(fresh);
}

TEST_F(RemovalTest, ADropInsideServerDownDeletesNothingTwice)
{
    FakeServer first("127.0.0.2");
    FakeServer second("127.0.0.3");
    Connection firstConnection = admit(first);
    Connection secondConnection = admit(second);
    recorder->clear();
    m_receiver.connect(&citp_stack::serverDown, [this](const QString&) { dropAllServersNow(); });
    log.expectFailureLine(RemoteClosed);
    firstConnection.close();
    ASSERT_TRUE(waitForEvent(down(second)));
    tick();
    m_receiver.disconnect();
    EXPECT_EQ(recorder->count(down(first)), 1);
    EXPECT_EQ(recorder->count(down(second)), 1);
    EXPECT_TRUE(stack->getServers().empty());
}

TEST_F(RemovalTest, APacedServerThatDoesNotReadIsRemovedInTheMiddleOfAWrite)
{
    FakeServer server("127.0.0.2", 4096);
    FakeServer other("127.0.0.3");
    Connection otherConnection = admit(other);
    Connection connection = admitPaced(server);
    fillStackSocket(server);
    log.expectFailureLine(TimedOut);
    EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    ASSERT_TRUE(waitForEvent(down(server)));
    EXPECT_FALSE(isListed(server));
    EXPECT_TRUE(isListed(other));
    sendMarker(other, otherConnection);
    EXPECT_EQ(recorder->count(down(server)), 1);
}

TEST_F(RemovalTest, APacedServerThatDoesNotReadDuringAReleaseIsRemovedAfterWhatItSent)
{
    FakeServer server("127.0.0.2", 4096);
    Connection connection = admitPaced(server);
    for (int count = 0; count < 5; ++count) {
        EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    }
    connection.receive();
    runOnWorker([] {});
    fillStackSocket(server);
    recorder->clear();
    log.expectFailureLine(TimedOut);
    connection.send(Wire::elin(1) + Wire::elin(2) + Wire::lsta(3));
    ASSERT_TRUE(waitForEvent(down(server)));
    tick();
    const std::string key = server.key().toStdString();
    EXPECT_EQ(recorder->events(),
              (Texts{"libraryInfo " + key + " 1", "libraryInfo " + key + " 2", status(server, 3), down(server)}));
    FakeServer fresh("127.0.0.5");
    Connection freshConnection = admit(fresh);
}

TEST_F(RemovalTest, APacedServerThatAnswersInTheMiddleOfAWriteStays)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    connection.receive();
    // The wait for the write reads the answer too; the request that it releases must not be what the wait waits for.
    runOnWorker([&] {
        connection.sendSegment(Wire::elin(1));
        stack->sendMsg(server.key(), geth());
    });
    EXPECT_EQ(Wire::code(connection.receive()), "GETh");
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    sendMarker(server, connection);
    EXPECT_TRUE(isListed(server));
}

TEST_F(RemovalTest, AReceiverOfAnAnswerInTheMiddleOfAWriteMayWaitForOtherThreads)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    std::atomic<bool> wasLocked{false};
    std::future<int> other;
    m_receiver.connect(&citp_stack::libraryInfo, [&](const QString&, const CITP::Msg_MSEX_ELIN&) {
        other = std::async(std::launch::async, [this] { return stack->getNumNotified(); });
        wasLocked = other.wait_for(std::chrono::milliseconds(TestTimeout / 10)) != std::future_status::ready;
    });
    runOnWorker([&] {
        connection.sendSegment(Wire::elin(1));
        stack->sendMsg(server.key(), geth());
    });
    ASSERT_TRUE(waitForEvent("libraryInfo " + server.key().toStdString() + " 1"));
    runOnWorker([] {});
    EXPECT_FALSE(wasLocked);
    m_receiver.disconnect();
}

TEST_F(RemovalTest, ReceiversHearOfAnAnswerBeforeTheyHearOfTheEndThatAnotherOfThemFound)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    connection.receive();
    std::promise<void> sent; // from then on the connection is the receiver's
    std::future<void> handedOver = sent.get_future();
    m_receiver.connect(&citp_stack::libraryInfo, [&](const QString& key, const CITP::Msg_MSEX_ELIN&) {
        if (handedOver.valid()) {
            handedOver.get();
            connection.reset();
        }
        // The first write may still go out; then the reset is there.
        for (int count = 0; count < 3; ++count) {
            EXPECT_TRUE(stack->sendMsg(key, geth()));
        }
    });
    const Recorder later(stack); // connected behind the one that sends
    log.allowFailureLines(RemoteClosed);
    log.allowFailureLines("Unable to write");
    connection.send(Wire::elin(1) + Wire::elin(2) + Wire::lsta(3));
    sent.set_value();
    ASSERT_TRUE(waitForEvent(down(server)));
    tick();
    m_receiver.disconnect();
    const std::string key = server.key().toStdString();
    EXPECT_EQ(later.events(),
              (Texts{"libraryInfo " + key + " 1", "libraryInfo " + key + " 2", status(server, 3), down(server)}));
}

TEST_F(RemovalTest, ReceiversHearOfAServerBeforeTheyHearOfTheEndThatAnotherOfThemFound)
{
    FakeServer server;
    Connection connection = connectTo(server);
    std::promise<void> sent;
    std::future<void> handedOver = sent.get_future();
    m_receiver.connect(&citp_stack::serverUp, [&](const QString& key) {
        handedOver.get();
        connection.reset();
        for (int count = 0; count < 3; ++count) {
            EXPECT_TRUE(stack->sendMsg(key, geth()));
        }
    });
    const Recorder later(stack);
    log.allowFailureLines(RemoteClosed);
    log.allowFailureLines("Unable to write");
    connection.send(Wire::sinf("ArKaos"));
    sent.set_value();
    ASSERT_TRUE(waitForEvent(down(server)));
    tick();
    m_receiver.disconnect();
    EXPECT_EQ(later.events(), (Texts{"serverUp " + server.key().toStdString(), down(server)}));
}

TEST_F(RemovalTest, AReceiverThatRunsTheEventLoopLetsNoMessageOvertakeItsOwn)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    std::promise<void> sent; // from then on the connection is the receiver's
    std::future<void> handedOver = sent.get_future();
    onFirstStatus([&](const QString& key) {
        handedOver.get();
        connection.sendSegment(Wire::lsta(2));
        stack->sendMsg(key, geth()); // the wait for this write reads the second status
        QCoreApplication::processEvents();
    });
    const Recorder later(stack);
    connection.send(Wire::lsta(1));
    sent.set_value();
    ASSERT_TRUE(waitFor([&later] { return later.events().size() >= 2; }));
    EXPECT_EQ(later.events(), (Texts{status(server, 1), status(server, 2)}));
}

TEST_F(RemovalTest, AnEndThatAReceiverInServerDownMeetsInTheEventLoopDeletesNothingTwice)
{
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    int rounds = 0;
    m_receiver.connect(&citp_stack::serverDown, [&](const QString&) {
        if (rounds != 0) {
            return;
        }
        connection.close();
        for (; rounds < TestTimeout && log.count(RemoteClosed) == 0; ++rounds) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
            QThread::msleep(1);
        }
    });
    log.expectFailureLine(RemoteClosed);
    armReset();
    tick();
    m_receiver.disconnect();
    EXPECT_EQ(recorder->count(down(server)), 1);
    EXPECT_TRUE(stack->getServers().empty());
}

TEST_F(RemovalTest, AnEndedConnectionIsNotTakenForOneWithoutADescriptor)
{
    if (!hasNamespace()) {
        GTEST_SKIP() << "a key is looked up as a host name, which would leave this machine";
    }
    FakeServer server("127.0.0.2");
    FakeServer ending("127.0.0.3");
    Connection connection = admit(server);
    Connection endingConnection = admitPaced(ending);
    logEverything();
    std::promise<int> ended;
    std::promise<bool> known;
    onFirstStatus([&](const QString&) {
        endingConnection.reset();
        for (int count = 0; count < 3; ++count) {
            stack->sendMsg(ending.key(), geth());
        }
        // Its end is dealt with at once: the loop does not turn, and the server found before still waits for the
        // look-up of its name, without a descriptor.
        const auto sockets = stack->findChildren<QTcpSocket*>();
        for (QTcpSocket* socket : sockets) {
            if (socket->peerPort() == ending.port() || socket->state() == QAbstractSocket::UnconnectedState) {
                QCoreApplication::sendPostedEvents(socket, QEvent::MetaCall);
            }
        }
        ended.set_value(log.count("disconnected"));
        known.set_value(stack->sendMsg(server.key() + QStringLiteral(":4711"), geli()));
    });
    log.expectFailureLine("Host not found");
    log.allowFailureLines(RemoteClosed);
    log.allowFailureLines("Unable to write");
    log.allowFailureLines("sendMsg failed: server not found");
    connection.sendSegment(Wire::ploc(4711) + Wire::lsta(1));
    ASSERT_TRUE(waitForEvent(status(server, 1)));
    EXPECT_EQ(ended.get_future().get(), 1);
    EXPECT_TRUE(known.get_future().get());
    ASSERT_TRUE(waitForEvent(down(ending)));
    EXPECT_TRUE(waitForLine("Host not found"));
    EXPECT_TRUE(isListed(server));
}

TEST_F(RemovalTest, AnUnpacedServerThatDoesNotReadHoldsUpNobody)
{
    FakeServer server("127.0.0.2", 4096);
    FakeServer other("127.0.0.3");
    Connection connection = admit(server);
    Connection otherConnection = admit(other);
    fillStackSocket(server);
    for (int count = 0; count < 100; ++count) {
        EXPECT_TRUE(stack->sendMsg(server.key(), geli()));
    }
    EXPECT_TRUE(stack->sendMsg(other.key(), geli()));
    EXPECT_EQ(Wire::code(otherConnection.receive()), "GELI");
    EXPECT_TRUE(isListed(server));
}

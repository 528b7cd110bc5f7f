// What the application is told: servers coming up, counts, and copies of messages in its own threads.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>

#include <QObject>
#include <QThread>

using CITP::citp_stack;

namespace {
using Texts = std::vector<std::string>;
}

class NotificationTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.clear();
    }
};

TEST_F(NotificationTest, TwoSinfMessagesAnnounceOnceAndTheFirstStays)
{
    FakeServer server;
    Connection connection = connectTo(server);
    connection.send(Wire::sinf("First") + Wire::sinf("arkaos"));
    sendMarker(server, connection);
    EXPECT_EQ(recorder->count("serverUp " + server.key().toStdString()), 1);
    CITP::Msg_MSEX_SINF sinf;
    ASSERT_TRUE(stack->getServerInfo(server.key(), &sinf, nullptr));
    EXPECT_EQ(sinf.ProductName, QStringLiteral("First"));
    EXPECT_EQ(log.texts(), Texts{"added " + server.key().toStdString() + " Server (total=1)"});
}

TEST_F(NotificationTest, TheTotalCountsTheAnnouncedServersOnly)
{
    FakeServer first("127.0.0.2");
    FakeServer second("127.0.0.3");
    FakeServer third("127.0.0.4");
    Connection firstConnection = admit(first);
    Connection secondConnection = connectTo(second);
    Connection thirdConnection = admit(third, "Product", "Third");
    EXPECT_EQ(stack->getNumNotified(), 2);
    EXPECT_EQ(log.texts(), (Texts{"added " + first.key().toStdString() + " Server (total=1)",
                                  "added " + third.key().toStdString() + " Third (total=2)"}));
    EXPECT_EQ(log.entries().back().level, 2u);
}

TEST_F(NotificationTest, ASinfThatFailsToParseStillAnnounces)
{
    FakeServer server;
    Connection connection = connectTo(server);
    connection.send(Wire::sinfOfUnknownVersion());
    ASSERT_TRUE(waitForEvent("serverUp " + server.key().toStdString()));
    CITP::Msg_MSEX_SINF sinf;
    ASSERT_TRUE(stack->getServerInfo(server.key(), &sinf, nullptr));
    EXPECT_TRUE(sinf.ProductName.isEmpty());
}

TEST_F(NotificationTest, ASinfWithABadCitpHeaderStillAnnounces)
{
    FakeServer server;
    Connection connection = connectTo(server);
    log.expectFailureLine("error reading CITP header: wrong CITP minor");
    connection.send(Wire::withCitpMinor(Wire::sinf("Product"), 1));
    EXPECT_TRUE(waitForEvent("serverUp " + server.key().toStdString()));
}

TEST_F(NotificationTest, MessagesBeforeTheSinfAreEmittedToo)
{
    FakeServer server;
    Connection connection = connectTo(server);
    connection.send(Wire::lsta(1));
    EXPECT_TRUE(waitForEvent("layerStatus " + server.key().toStdString() + " 1"));
    EXPECT_EQ(stack->getNumNotified(), 0);
}

TEST_F(NotificationTest, AReceiverInServerUpMayAskTheStack)
{
    QString product;
    int announced = 0;
    std::size_t listed = 0;
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::serverUp, [&](const QString& key) {
        CITP::Msg_MSEX_SINF sinf;
        stack->getServerInfo(key, &sinf, nullptr);
        product = sinf.ProductName;
        announced = stack->getNumNotified();
        listed = stack->getServers().size();
    });
    FakeServer server;
    Connection connection = connectTo(server);
    connection.send(Wire::sinf("Product"));
    sendMarker(server, connection);
    receiver.disconnect();
    EXPECT_EQ(product, QStringLiteral("Product"));
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(listed, 1u);
}

TEST_F(NotificationTest, ReceiversInTheApplicationsThreadGetIndependentCopies)
{
    QObject application;
    std::vector<CITP::Msg_MSEX_ELIN> libraries;
    Texts order;
    QThread* receivedIn = nullptr;
    QObject::connect(stack, &citp_stack::serverUp, &application, [&](const QString&) { order.push_back("up"); });
    QObject::connect(stack, &citp_stack::serverDown, &application, [&](const QString&) { order.push_back("down"); });
    QObject::connect(stack, &citp_stack::layerStatus, &application,
                     [&](const QString&, const CITP::Msg_MSEX_LSTA&) { order.push_back("status"); });
    QObject::connect(stack, &citp_stack::libraryInfo, &application,
                     [&](const QString&, const CITP::Msg_MSEX_ELIN& message) {
                         receivedIn = QThread::currentThread();
                         libraries.push_back(message);
                         order.push_back("libraries");
                     });
    FakeServer server;
    server.announce();
    Connection connection = server.accept();
    connection.send(Wire::sinf("Product") + Wire::elin(1) + Wire::lsta(1) + Wire::elin(2));
    // The application does not look before the stack's own messages and the server are long gone.
    while (recorder->count("libraryInfo " + server.key().toStdString() + " 2") == 0) {
        QThread::msleep(1);
    }
    armReset();
    tick();
    EXPECT_TRUE(libraries.empty());
    ASSERT_TRUE(waitFor([&] { return order.size() >= 5; }));
    EXPECT_EQ(order, (Texts{"up", "libraries", "status", "libraries", "down"}));
    EXPECT_EQ(receivedIn, QThread::currentThread());
    ASSERT_EQ(libraries.size(), 2u);
    EXPECT_EQ(libraries[0].Libraries.at(0).LIBID, QStringLiteral("1"));
    EXPECT_EQ(libraries[1].Libraries.at(0).LIBID, QStringLiteral("2"));
    EXPECT_EQ(libraries[1].Libraries.at(0).Name, QStringLiteral("Library"));
    EXPECT_TRUE(libraries[0].valid);
}

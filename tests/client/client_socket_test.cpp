// The client layer on the stack, with bare servers.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include "random_request.h"

#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>
#include <citp_client/directory.h>
#include <citp_client/layers.h>
#include <citp_client/requests.h>

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <atomic>
#include <functional>
#include <optional>
#include <random>
#include <thread>
#include <utility>

using namespace CITP;

namespace {
/// How a reply has ended.
struct End
{
    Reply::Status status = Reply::Pending;
    QString text;
};

std::shared_ptr<End> follow(Reply* reply)
{
    auto end = std::make_shared<End>();
    QObject::connect(reply, &Reply::finished, [reply, end] {
        end->status = reply->status();
        end->text = !reply->libraries().empty()  ? reply->libraries().front().id
                    : !reply->elements().empty() ? reply->elements().front().name
                                                 : reply->picture().format;
    });
    return end;
}

bool waitForEnd(const std::shared_ptr<End>& end)
{
    return waitFor([&end] { return end->status != Reply::Pending; });
}

/// Waits while this thread handles no event.
void waitWithoutEvents(const std::function<bool()>& condition)
{
    QElapsedTimer time;
    for (time.start(); !condition() && time.elapsed() < TestTimeout;)
        std::this_thread::yield();
    EXPECT_TRUE(condition());
}
} // namespace

class ClientSocketTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
    }

    FakeServer m_server;
    StackTransport m_transport;
};

TEST_F(ClientSocketTest, AnswersReachTheirRequests)
{
    Connection connection = admit(m_server);
    Requests requests(m_transport);
    const auto libraries = follow(requests.libraries(m_server.key(), 1));
    const auto media = follow(requests.elements(m_server.key(), 1, QStringLiteral("1,2,0,0")));
    const auto effects = follow(requests.elements(m_server.key(), 2, QStringLiteral("1,2,0,0")));
    const auto generic = follow(requests.elements(m_server.key(), 3, QStringLiteral("1,0,0,0")));
    const auto library = follow(requests.get({m_server.key(), Request::LibraryPicture, 1, QStringLiteral("1,5,0,0")}));
    const auto element = follow(requests.picture(m_server.key(), 1, QStringLiteral("1,5,0,0"), 6));
    QByteArray codes;
    for (int i = 0; i < 6; ++i)
        codes += Wire::code(connection.receive()) + ' ';
    EXPECT_EQ(codes, "GELI GEIn GEIn GEIn GELT GETh ");
    // In another order than the requests.
    connection.send(Wire::ethn(5) + Wire::elth(5) + Wire::glei(1) + Wire::eein(2) + Wire::mein(2) + Wire::elin(7));
    EXPECT_TRUE(waitForEnd(libraries) && waitForEnd(media) && waitForEnd(effects));
    EXPECT_TRUE(waitForEnd(generic) && waitForEnd(library) && waitForEnd(element));
    EXPECT_EQ(libraries->text, QStringLiteral("1,7,0,0"));
    EXPECT_EQ(media->text, QStringLiteral("Clip"));
    EXPECT_EQ(effects->text, QStringLiteral("Blur"));
    EXPECT_EQ(generic->text, QStringLiteral("Thing"));
    EXPECT_EQ(library->text, QStringLiteral("JPEG"));
    EXPECT_EQ(element->text, QStringLiteral("JPEG"));
}

TEST_F(ClientSocketTest, EffectsOfAPacedServerDoNotStopTheQueue)
{
    Connection connection = admitPaced(m_server);
    Requests requests(m_transport);
    const auto effects = follow(requests.elements(m_server.key(), 2, QStringLiteral("1,1,0,0")));
    const auto generic = follow(requests.elements(m_server.key(), 3, QStringLiteral("1,0,0,0")));
    const auto libraries = follow(requests.libraries(m_server.key(), 1));
    EXPECT_EQ(Wire::code(connection.receive()), "GEIn");
    connection.send(Wire::eein(1));
    EXPECT_TRUE(waitForEnd(effects));
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    connection.send(Wire::elin(7));
    EXPECT_TRUE(waitForEnd(libraries));
    EXPECT_EQ(Wire::code(connection.receive()), "GEIn");
    connection.send(Wire::glei(1));
    EXPECT_TRUE(waitForEnd(generic));
    const auto again = follow(requests.libraries(m_server.key(), 1));
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    connection.send(Wire::elin(7));
    EXPECT_TRUE(waitForEnd(again));
    EXPECT_EQ(generic->status, Reply::Answered);
    EXPECT_EQ(libraries->status, Reply::Answered);
}

namespace {
constexpr int bodyOffset = 26;

template <typename Message>
QByteArray bodyOf(const Message& message)
{
    QByteArray bytes;
    bytes >> message;
    return bytes.mid(bodyOffset).toHex();
}

/// What a server of MSEX 1.2 is sent for @p request, in hex.
QByteArray bodyOf(const Request& request)
{
    const auto width = static_cast<unsigned short>(request.size.width());
    const auto height = static_cast<unsigned short>(request.size.height());
    switch (request.kind) {
        case Request::Libraries:
            return bodyOf(Msg_MSEX_GELI(2, request.type, request.library, request.numbers));
        case Request::Elements:
            return bodyOf(Msg_MSEX_GEIN(2, request.type, request.library, request.numbers));
        case Request::LibraryPicture:
            return bodyOf(Msg_MSEX_GELT(2, request.type, {request.library}, height, width, request.format));
        case Request::ElementPicture:
            break;
    }
    return bodyOf(Msg_MSEX_GETH(2, request.type, request.library, height, width, request.format, request.numbers));
}

/// The answer to @p request, with the request in every name and in the picture.
QByteArray answerTo(const QByteArray& request)
{
    using namespace Wire;
    const QByteArray code = Wire::code(request);
    const QByteArray mark = request.mid(bodyOffset).toHex();
    const QByteArray picture = QByteArray("JPEG") + u16(1) + u16(1) + u16(static_cast<unsigned>(mark.size())) + mark;
    if (code == "GETh")
        return msex(2, "EThn", request.mid(35, 5) + request.mid(42, 1) + picture);
    if (code == "GELT")
        return msex(2, "ELTh", request.mid(35, 1) + request.mid(38, 4) + picture);
    const int type = request.at(26);
    const QByteArray library = request.mid(27, 4);
    QByteArray items;
    for (unsigned number = 0; number < 6; ++number) {
        if (code == "GELI") {
            QByteArray child = library;
            child[0] = static_cast<char>(child.at(0) + 1);
            child[static_cast<int>(child.at(0))] = static_cast<char>(number);
            items += child;
        } else {
            items += u8(number);
        }
        items += u32(1) + u8(0) + u8(255) + ucs2(mark.constData());
        items += code == "GELI" ? u16(0) + u16(0)
                 : type == 1    ? u32(1) + u32(0) + u16(1) + u16(1) + u32(1) + u8(25)
                 : type == 2    ? u8(0)
                                : u32(1) + u32(0);
    }
    if (code == "GELI")
        return msex(2, "ELIn", request.mid(26, 1) + u16(6) + items);
    const QByteArray type3 = type > 2 ? request.mid(26, 1) : QByteArray();
    return msex(2, type == 1 ? "MEIn" : type == 2 ? "EEIn" : "GLEI", type3 + library + u16(6) + items);
}

QByteArray markOf(const Reply& reply)
{
    return !reply.libraries().empty()  ? reply.libraries().front().name.toLatin1()
           : !reply.elements().empty() ? reply.elements().front().name.toLatin1()
                                       : reply.picture().data;
}
} // namespace

// A server that answers everything, in any order; a user who gives up, and connections that end.
TEST_F(ClientSocketTest, AnswersInAnyOrderReachTheirRequests)
{
    log.allowFailureLines("The remote host closed the connection");
    log.allowFailureLines("sendUnpaced failed: server not found"); // its end is told a moment later
    Connection connection = admit(m_server);
    Requests requests(m_transport);
    // Longer than the test waits: no request is taken for lost because the machine is busy.
    requests.setTimeout(2 * TestTimeout);
    int answered = 0;
    std::vector<QByteArray> asked; // of all seeds: what was cancelled is answered later
    for (unsigned seed = 1; seed <= 50 && !HasFailure(); ++seed) {
        std::mt19937 random(seed);
        std::vector<std::shared_ptr<int>> ends; // how often each has ended
        std::vector<Reply*> pending;
        const auto forget = [&pending](Reply* reply) {
            pending.erase(std::remove(pending.begin(), pending.end(), reply), pending.end());
        };
        const auto ask = [&] {
            Reply* const reply = requests.get(randomRequest(random, m_server.key(), 2));
            const auto end = std::make_shared<int>(0);
            ends.push_back(end);
            pending.push_back(reply);
            QObject::connect(reply, &Reply::finished, [&, reply, end, seed] {
                ++*end;
                forget(reply);
                if (reply->status() == Reply::Answered) {
                    ++answered;
                    EXPECT_EQ(markOf(*reply), bodyOf(reply->request())) << "seed " << seed;
                }
            });
        };
        const auto step = [&] {
            while (const std::optional<QByteArray> request = connection.tryReceive(0))
                asked.push_back(*request);
            // Otherwise more would be cancelled the longer an event takes.
            if (ends.size() == 200 && asked.empty())
                return;
            const int what = randomBelow(random, 1000);
            if (what < 500 && ends.size() < 200) {
                ask();
            } else if (what < 550 && !pending.empty()) {
                pending[random() % pending.size()]->cancel();
            } else if (what == 550) {
                connection.close();
                EXPECT_TRUE(waitFor([&] { return pending.empty() && !isListed(m_server); }));
                asked.clear();
                connection = admit(m_server);
            } else if (!asked.empty()) {
                std::swap(asked[random() % asked.size()], asked.back());
                connection.send(answerTo(asked.back()));
                asked.pop_back();
            }
        };
        EXPECT_TRUE(waitFor([&] {
            for (int i = 0; i < 50; ++i) {
                step();
                QCoreApplication::processEvents();
            }
            return ends.size() == 200 && pending.empty();
        }));
        for (const auto& end : ends)
            EXPECT_EQ(*end, 1) << "seed " << seed;
    }
    EXPECT_GT(answered, 5000);
}

TEST_F(ClientSocketTest, LayersAndFixturesCrossThreads)
{
    const Layers layers(m_transport, m_server.key());
    const Patch patch(m_transport, m_server.key());
    Connection connection = admit(m_server);
    connection.send(Wire::lsta(3) + Wire::ptch(7));
    EXPECT_TRUE(waitFor([&] { return patch.state() == Patch::Complete && !layers.layers().empty(); }));
    EXPECT_EQ(layers.layers().front().number, 3);
    EXPECT_EQ(patch.fixtures().front().identifier, 7);
}

TEST_F(ClientSocketTest, TheEndOfAConnectionEndsItsRequests)
{
    Connection connection = admit(m_server);
    Requests requests(m_transport);
    const auto end = follow(requests.libraries(m_server.key(), 1));
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    log.expectFailureLine("The remote host closed the connection");
    connection.close();
    EXPECT_TRUE(waitForEnd(end));
    EXPECT_EQ(end->status, Reply::ServerLost);
}

TEST_F(ClientSocketTest, ARequestTimesOutByTheRealClock)
{
    const Connection connection = admit(m_server);
    Requests requests(m_transport);
    requests.setTimeout(20);
    const auto end = follow(requests.libraries(m_server.key(), 1));
    EXPECT_TRUE(waitForEnd(end));
    EXPECT_EQ(end->status, Reply::TimedOut);
}

TEST_F(ClientSocketTest, AServerIsFollowedFromItsAnnouncementToItsEnd)
{
    Directory directory(m_transport);
    const auto server = [&] { return directory.server(m_server.key()); };
    const auto state = [&] { return server().state; };
    m_server.leaveUnanswered();
    m_server.announce("Stage");
    EXPECT_TRUE(waitFor([&] { return server().name == QStringLiteral("Stage"); }));
    EXPECT_EQ(state(), Server::Heard);
    m_server.announce("Stage");
    EXPECT_TRUE(waitFor([&] { return state() == Server::Connecting; }));
    EXPECT_FALSE(server().isConnected);
    m_server.answerAgain();
    Connection connection = m_server.accept();
    EXPECT_TRUE(waitFor([&] { return server().isConnected; }));
    EXPECT_EQ(state(), Server::Connecting);
    connection.send(Wire::sinf("Product"));
    EXPECT_TRUE(waitFor([&] { return state() == Server::Up; }));
    EXPECT_EQ(server().product, QStringLiteral("Product"));
    log.expectFailureLine("The remote host closed the connection");
    connection.close();
    EXPECT_TRUE(waitFor([&] { return state() == Server::Lost; }));
    EXPECT_EQ(
        server().problem,
        QStringLiteral("Server \"Stage\" (%1) was lost: The remote host closed the connection").arg(m_server.key()));
    log.allowFailureLines("Connection refused");
    m_server.stopListening();
    m_server.announce("Stage");
    EXPECT_TRUE(waitFor([&] { return state() == Server::Failing; }));
    EXPECT_EQ(server().problem,
              QStringLiteral("Server \"Stage\" (%1) does not come up: Connection refused").arg(m_server.key()));
}

TEST_F(ClientSocketTest, WhatDiscoveryTellsWaitsInBoundedMemory)
{
    const Directory directory(m_transport);
    log.allowFailureLines("Connection refused");
    const auto heard = std::make_shared<std::atomic<int>>(0);
    const auto observation = stack->observeDiscovery([heard](const citp_stack::DiscoveryEvent& event) {
        *heard += event.kind == citp_stack::DiscoveryEvent::Heard ? 1 : 0;
    });
    // This thread handles no event meanwhile. The discovery socket holds some 170 announcements.
    constexpr int firstPort = 50000;
    constexpr int batches = 11;
    m_server.sendDatagram(Wire::ploc(firstPort, "MediaServer", std::string(30000, 'x').c_str()));
    for (int batch = 0; batch < batches; ++batch) {
        for (int i = 1; i <= 100; ++i)
            m_server.sendDatagram(Wire::ploc(static_cast<unsigned>(firstPort + 100 * batch + i)));
        waitWithoutEvents([&] { return *heard == 1 + 100 * (batch + 1); });
    }
    // The directory has the same limit.
    int told = 0;
    QObject::connect(&m_transport, &Transport::serverHeard, [&told] { ++told; });
    EXPECT_TRUE(waitFor([&] { return told >= 1024; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(told, 1024);
    EXPECT_EQ(directory.server(QStringLiteral("127.0.0.2:50000")).name.size(), Transport::maxNameLength);
}

TEST_F(ClientSocketTest, OfReportsTheNewestWaitAndOfFixturesAll)
{
    constexpr int reports = 100;
    constexpr int fixtures = 3000;
    Connection connection = admit(m_server);
    std::vector<int> layers;
    int received = 0;
    QObject::connect(&m_transport, &Transport::layerStatus, [&](const QString&, const Msg_MSEX_LSTA& message) {
        layers.push_back(message.Layers.front().LayerNumber);
    });
    QObject::connect(&m_transport, &Transport::patchMessage, [&] { ++received; });
    std::atomic<int> told{0};
    DirectReceiver receiver(stack);
    // After the transport.
    receiver.connect(&citp_stack::layerStatus, [&] { ++told; });
    receiver.connect(&citp_stack::patchMessage, [&] { ++told; });
    // This thread handles no event meanwhile, and none of these may count as unread: the guard would stop the reading.
    citp_options options;
    ASSERT_TRUE(options.setMaxUnreadBytes(1 << 16));
    stack->setOptions(options);
    tick();
    QByteArray bytes;
    for (int number = 0; number < reports; ++number)
        bytes += Wire::lsta(static_cast<unsigned>(number));
    for (int number = 0; number < fixtures; ++number)
        bytes += Wire::ptch(static_cast<unsigned>(number));
    connection.send(bytes);
    waitWithoutEvents([&] { return told == reports + fixtures; });
    EXPECT_TRUE(waitFor([&] { return received == fixtures; }));
    EXPECT_EQ(layers.size(), 16u);
    EXPECT_EQ(layers.back(), reports - 1);
    stack->setOptions({});
}

TEST_F(ClientSocketTest, WhatBecomesOfAServerIsToldInOrder)
{
    QStringList told;
    const auto tell = [&](auto signal, const char* name) {
        QObject::connect(&m_transport, signal, [&told, name] { told << QLatin1String(name); });
    };
    tell(&Transport::serverHeard, "heard");
    tell(&Transport::serverConnected, "connected");
    tell(&Transport::serverUp, "up");
    tell(&Transport::layerStatus, "layers");
    tell(&Transport::libraryInfo, "libraries");
    tell(&Transport::serverFailed, "failed");
    tell(&Transport::serverDown, "down");
    std::atomic<bool> isListedNow{false};
    std::atomic<bool> isDown{false};
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::libraryInfo, [&] { isListedNow = true; });
    receiver.connect(&citp_stack::serverDown, [&] { isDown = true; });
    // All of it waits for this thread.
    m_server.announce();
    Connection connection = m_server.accept();
    connection.send(Wire::sinf("Product") + Wire::lsta(1) + Wire::elin(7));
    waitWithoutEvents([&] { return isListedNow.load(); });
    log.expectFailureLine("The remote host closed the connection");
    connection.close();
    waitWithoutEvents([&] { return isDown.load(); });
    EXPECT_TRUE(waitFor([&] { return told.contains(QStringLiteral("down")); }));
    EXPECT_EQ(told.join(QLatin1Char(' ')).toStdString(), "heard connected up layers libraries failed down");
}

TEST_F(ClientSocketTest, AReceiverMayRunAnEventLoopOrDeleteTheTransport)
{
    auto transport = std::make_unique<StackTransport>();
    Connection connection = admit(m_server);
    std::vector<int> begun;
    std::vector<int> ended;
    QObject::connect(transport.get(), &Transport::libraryInfo, [&](const QString&, const Msg_MSEX_ELIN& message) {
        const int number = message.Libraries.front().LIBID.toInt();
        begun.push_back(number);
        if (number == 1) {
            EXPECT_TRUE(waitFor([&] { return ended.size() == 2; }));
        }
        ended.push_back(number);
        if (number == 4)
            transport.reset();
    });
    std::atomic<int> told{0};
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::libraryInfo, [&] { ++told; });
    connection.send(Wire::elin(1) + Wire::elin(2) + Wire::elin(3));
    waitWithoutEvents([&] { return told == 3; });
    EXPECT_TRUE(waitFor([&] { return ended.size() == 3; }));
    EXPECT_EQ(begun, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ended, (std::vector<int>{2, 3, 1}));
    connection.send(Wire::elin(4) + Wire::elin(5));
    waitWithoutEvents([&] { return told == 5; });
    EXPECT_TRUE(waitFor([&] { return !transport; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(begun.back(), 4);
}

// Not with the thread sanitizer, which does not see the locks by which Qt orders a connection before what is emitted.
#ifndef __SANITIZE_THREAD__
TEST_F(ClientSocketTest, TransportsMayBeDestroyedDuringAFlood)
{
    constexpr int transports = 5000;
    Connection connection = admit(m_server);
    recorder.reset(); // would keep every message
    std::atomic<bool> isDone{false};
    std::atomic<bool> isCut{false};
    std::thread flood([&] {
        const QByteArray batch = Wire::lsta(1).repeated(200);
        while (!isDone && !isCut)
            isCut = !connection.trySend(batch);
    });
    std::atomic<bool> hasBegun{false};
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::layerStatus, [&] { hasBegun = true; });
    waitWithoutEvents([&] { return hasBegun.load(); });
    for (int count = 0; count < transports; ++count) {
        StackTransport transport;
        for (int receivers = 0; receivers < 3; ++receivers)
            QObject::connect(&transport, &Transport::layerStatus, [] {});
        QCoreApplication::processEvents();
    }
    isDone = true;
    flood.join();
    EXPECT_FALSE(isCut);
}
#endif

TEST_F(ClientSocketTest, AnswersThatWaitCountAsUnread)
{
    constexpr int answers = 1000;
    Connection connection = admit(m_server);
    int received = 0;
    QObject::connect(&m_transport, &Transport::libraryInfo, [&received] { ++received; });
    std::atomic<int> told{0};
    DirectReceiver receiver(stack);
    receiver.connect(&citp_stack::libraryInfo, [&] { ++told; });
    citp_options options;
    ASSERT_TRUE(options.setMaxUnreadBytes(1 << 16));
    // The worker keeps the observer until its next tick.
    const auto hasActed = std::make_shared<std::atomic<bool>>(false);
    options.setObserver([hasActed](const citp_options::Event& event) {
        if (event.guard == citp_options::UnreadNotifications)
            *hasActed = true;
    });
    log.allowFailureLines("unread notifications");
    stack->setOptions(options);
    tick();
    QByteArray bytes;
    for (int number = 0; number < answers; ++number)
        bytes += Wire::elin(7);
    connection.send(bytes);
    // This thread handles no event meanwhile, so the server is not read any further.
    waitWithoutEvents([&] { return hasActed->load(); });
    EXPECT_LE(told, (1 << 16) / citp_options::unreadCost(0));
    EXPECT_TRUE(waitFor([&] { return received == answers && told == answers; }));
    stack->setOptions({});
}

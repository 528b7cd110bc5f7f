// The guards: each one off, on, and at its exact limit; the second discovery group and servers named by hand.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>

#include <QSemaphore>
#include <QThread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

using CITP::citp_options;

namespace {
constexpr char newGroup[] = "239.224.0.180";

/// A message of @p size bytes that no layer handles.
QByteArray unhandled(int size)
{
    return Wire::message("XXXX", QByteArray(size - 20, '\0'));
}

/// A piece of 20 bytes that does not begin with "CITP".
QByteArray lostPiece()
{
    QByteArray piece = unhandled(20);
    piece[0] = 'X';
    return piece;
}

int tcpOption(const FakeServer& server, int option)
{
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(stackDescriptor(server), IPPROTO_TCP, option, &value, &length);
    return value;
}

QByteArray repeated(const QByteArray& bytes, int count)
{
    return bytes.repeated(count);
}
} // namespace

class GuardsTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        enable();
        log.allowFailureLines("lost in the byte stream");
        log.allowFailureLines("invalid size for CITP");
        log.allowFailureLines("Connection refused");
    }

    void TearDown() override
    {
        stack->setOptions(citp_options());
        StackTest::TearDown();
    }

    /// Applies @p options, with a report interval that does not delay the next test.
    void apply(citp_options options, int reportInterval = 100)
    {
        options.setReportInterval(reportInterval);
        options.setObserver([this](const citp_options::Event& event) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        });
        stack->setOptions(options);
        tick();
    }

    std::vector<citp_options::Event> guardEvents() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

    int count(citp_options::Guard guard) const
    {
        const std::vector<citp_options::Event> events = guardEvents();
        return static_cast<int>(std::count_if(
            events.begin(), events.end(), [guard](const citp_options::Event& event) { return event.guard == guard; }));
    }

    /// Waits until @p guard has acted, and returns what it reported first.
    citp_options::Event waitForGuard(citp_options::Guard guard)
    {
        EXPECT_TRUE(waitFor([this, guard] { return count(guard) > 0; })) << "guard " << guard;
        for (const citp_options::Event& event : guardEvents()) {
            if (event.guard == guard) {
                return event;
            }
        }
        return {};
    }

    bool waitForDown(const FakeServer& server) { return waitForEvent("serverDown " + server.key().toStdString()); }

    std::string keyOf(const FakeServer& server) const { return server.key().toStdString(); }

private:
    mutable std::mutex m_mutex;
    std::vector<citp_options::Event> m_events;
};

// --- Sizes and framing -----------------------------------------------------------------------------------------------

TEST_F(GuardsTest, SmallMessageOffDropsThePieceAndReadsOn)
{
    FakeServer server;
    Connection connection = admit(server);
    connection.send(Wire::withSize(unhandled(20), 19).left(19));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTest, SmallMessageEndsTheConnection)
{
    citp_options options;
    options.setSmallMessageGuard(true);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    connection.send(Wire::withSize(unhandled(20), 0));
    const citp_options::Event event = waitForGuard(citp_options::SmallMessage);
    EXPECT_EQ(event.server, server.key());
    EXPECT_EQ(event.value, 0);
    EXPECT_EQ(event.limit, 20);
    EXPECT_EQ(event.text.toStdString(),
              "guard small message: " + keyOf(server) + " disconnected: a message states 0 bytes (minimum 20)");
    EXPECT_EQ(log.count(event.text.toStdString()), 1);
    EXPECT_TRUE(waitForDown(server));
    connection.waitForEnd();
}

TEST_F(GuardsTest, SmallMessageLimitIsTheHeader)
{
    citp_options options;
    options.setSmallMessageGuard(true);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    connection.send(unhandled(20));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
    connection.send(Wire::withSize(unhandled(20), 19));
    EXPECT_EQ(waitForGuard(citp_options::SmallMessage).value, 19);
    EXPECT_TRUE(waitForDown(server));
}

TEST_F(GuardsTest, LargeMessageOffWaitsForTheMessage)
{
    FakeServer server;
    Connection connection = admit(server);
    connection.send(unhandled(5000000));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTest, LargeMessageEndsTheConnectionBeforeItArrives)
{
    citp_options options;
    options.setMaxMessageSize(100);
    apply(options);
    FakeServer server;
    Connection connection = connectTo(server);
    connection.send(unhandled(100));
    connection.send(Wire::ptch(1));
    ASSERT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 1"));
    EXPECT_TRUE(guardEvents().empty());
    connection.send(Wire::withSize(unhandled(20), 101));
    const citp_options::Event event = waitForGuard(citp_options::LargeMessage);
    EXPECT_EQ(event.value, 101);
    EXPECT_EQ(event.limit, 100);
    connection.waitForEnd();
}

TEST_F(GuardsTest, LargeMessageCountsSizesAsUnsigned)
{
    apply(citp_options::recommended());
    FakeServer server;
    Connection connection = admit(server);
    connection.send(Wire::withSize(unhandled(20), 0xffffffff));
    EXPECT_EQ(waitForGuard(citp_options::LargeMessage).value, 0xffffffffLL);
    EXPECT_TRUE(waitForDown(server));
}

TEST_F(GuardsTest, LostFramingOffReadsOn)
{
    FakeServer server;
    Connection connection = admit(server);
    connection.send(repeated(lostPiece(), 50));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTest, LostFramingEndsTheConnectionAfterTheLimit)
{
    citp_options options;
    options.setMaxLostMessages(3);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    // A message between them shows that the stream is in step again.
    connection.send(repeated(lostPiece(), 3) + unhandled(20) + repeated(lostPiece(), 3));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
    connection.send(repeated(lostPiece(), 4));
    const citp_options::Event event = waitForGuard(citp_options::LostFraming);
    EXPECT_EQ(event.value, 4);
    EXPECT_EQ(event.limit, 3);
    EXPECT_TRUE(waitForDown(server));
}

TEST_F(GuardsTest, ADisconnectedServerReturnsAfterTheNextTick)
{
    holdTicks();
    citp_options options;
    options.setSmallMessageGuard(true);
    apply(options);
    FakeServer server;
    {
        Connection connection = admit(server);
        connection.send(Wire::withSize(unhandled(20), 0));
        ASSERT_TRUE(waitForDown(server));
    }
    server.announce();
    FakeServer other("127.0.0.3");
    Connection otherConnection = admit(other);
    EXPECT_FALSE(server.tryAccept(0));
    tick();
    Connection connection = admit(server);
    EXPECT_EQ(recorder->count("serverUp " + keyOf(server)), 2);
}

// --- Counts ----------------------------------------------------------------------------------------------------------

namespace {
/// A list with a count that can be set, and the smallest records.
struct List
{
    const char* code;
    unsigned minor;
    QByteArray beforeCount;
    int countSize; ///< bytes
    QByteArray record;

    QByteArray message(int announced, int records) const
    {
        const unsigned count = static_cast<unsigned>(announced);
        return Wire::msex(
            minor, code,
            beforeCount + (countSize == 1 ? Wire::u8(count) : Wire::u16(count)) + record.repeated(records));
    }
};

std::vector<List> lists()
{
    using namespace Wire;
    const QByteArray media = u32(1) + u32(0) + u16(640) + u16(480) + u32(100) + u8(25);
    const QByteArray layer = ucs2("") + u32(3) + u32(4) + u8(25) + u32(1);
    return {
        {"ELIn", 0, u8(1), 1, u8(1) + u8(0) + u8(9) + ucs2("") + u8(1)},
        {"ELIn", 1, u8(1), 1, u32(1) + u8(0) + u8(9) + ucs2("") + u8(1) + u8(1)},
        {"ELIn", 2, u8(1), 2, u32(1) + u32(5) + u8(0) + u8(9) + ucs2("") + u16(1) + u16(1)},
        {"MEIn", 0, u8(7), 1, u8(1) + u8(0) + u8(9) + ucs2("") + media},
        {"MEIn", 1, u32(7), 1, u8(1) + u8(0) + u8(9) + ucs2("") + media},
        {"MEIn", 2, u32(7), 2, u8(1) + u32(5) + u8(0) + u8(9) + ucs2("") + media},
        {"EEIn", 0, u8(7), 1, u8(1) + u8(0) + u8(9) + ucs2("") + u8(0)},
        {"EEIn", 1, u32(7), 1, u8(1) + u8(0) + u8(9) + ucs2("") + u8(0)},
        {"EEIn", 2, u32(7), 2, u8(1) + u32(5) + u8(0) + u8(9) + ucs2("") + u8(0)},
        {"GLEI", 1, u32(7), 1, u8(1) + u8(0) + u8(9) + ucs2("") + u32(1) + u32(0)},
        {"GLEI", 2, u8(4) + u32(7), 2, u8(1) + u32(5) + u8(0) + u8(9) + ucs2("") + u32(1) + u32(0)},
        {"LSta", 0, {}, 1, u8(0) + u8(0) + u8(1) + u8(2) + layer},
        {"LSta", 2, {}, 1, u8(0) + u8(0) + u8(1) + u32(1) + u8(2) + layer},
    };
}

/// The signal of @p code, in the recorder's words.
std::string signalOf(const std::string& code)
{
    return code == "ELIn"   ? "libraryInfo"
           : code == "MEIn" ? "mediaInfo"
           : code == "EEIn" ? "effectInfo"
           : code == "GLEI" ? "genericInfo"
                            : "layerStatus";
}
} // namespace

class GuardsCountTest : public GuardsTest
{
protected:
    int notifications(const std::string& signal) const
    {
        const std::vector<std::string> events = recorder->events();
        return static_cast<int>(std::count_if(events.begin(), events.end(), [&signal](const std::string& event) {
            return event.compare(0, signal.size() + 1, signal + " ") == 0;
        }));
    }
};

TEST_F(GuardsCountTest, OffEveryListIsNotified)
{
    FakeServer server;
    Connection connection = admit(server);
    for (const List& list : lists()) {
        SCOPED_TRACE(std::string(list.code) + " 1." + std::to_string(list.minor));
        recorder->clear();
        connection.send(list.message(list.countSize == 1 ? 255 : 65535, 0));
        sendMarker(server, connection);
        EXPECT_EQ(notifications(signalOf(list.code)), 1);
    }
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsCountTest, DropsAListThatAnnouncesOneRecordTooMany)
{
    citp_options options;
    options.setCountGuard(true);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    for (const List& list : lists()) {
        SCOPED_TRACE(std::string(list.code) + " 1." + std::to_string(list.minor));
        recorder->clear();
        connection.send(list.message(2, 2));
        sendMarker(server, connection);
        EXPECT_EQ(notifications(signalOf(list.code)), 1);
        connection.send(list.message(3, 2));
        sendMarker(server, connection);
        EXPECT_EQ(notifications(signalOf(list.code)), 1);
    }
    const citp_options::Event event = waitForGuard(citp_options::WrongCount);
    EXPECT_EQ(event.value, 3);
    EXPECT_EQ(event.limit, 2);
    EXPECT_TRUE(isListed(server));
}

TEST_F(GuardsCountTest, DropsAnEffectThatAnnouncesOneParameterTooMany)
{
    citp_options options;
    options.setCountGuard(true);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    const auto effect = [](unsigned parameters) {
        return Wire::msex(0, "EEIn",
                          Wire::u8(7) + Wire::u8(1) + Wire::u8(1) + Wire::u8(0) + Wire::u8(9) + Wire::ucs2("") +
                              Wire::u8(parameters) + Wire::ucs2("") + Wire::ucs2(""));
    };
    connection.send(effect(2) + effect(3));
    sendMarker(server, connection);
    EXPECT_EQ(notifications("effectInfo"), 1);
    EXPECT_EQ(waitForGuard(citp_options::WrongCount).value, 3);
}

TEST_F(GuardsCountTest, AServerInformationWithAWrongCountBringsTheServerUpWithoutTheList)
{
    citp_options options;
    options.setCountGuard(true);
    apply(options);
    const QByteArray start = QByteArray(36, 'u') + Wire::ucs2("P") + Wire::u8(1) + Wire::u8(2) + Wire::u8(3);
    const auto part = [](int count, const QByteArray& record, int records) {
        return Wire::u8(static_cast<unsigned>(count)) + record.repeated(records);
    };
    const QByteArray version = Wire::u16(0x0102);
    const QByteArray types = Wire::u16(7);
    const QByteArray jpeg("JPEG");
    const QByteArray source = Wire::text8("");
    struct Case
    {
        QByteArray message;
        std::size_t versions, thumbnails, streams;
    };
    const std::vector<Case> wrong{
        {Wire::msex(2, "SInf",
                    start + part(30, version, 1) + types + part(1, jpeg, 1) + part(1, jpeg, 1) + part(1, source, 1)),
         0, 0, 0},
        {Wire::msex(2, "SInf",
                    start + part(1, version, 1) + types + part(30, jpeg, 1) + part(1, jpeg, 1) + part(1, source, 1)),
         1, 0, 0},
        {Wire::msex(2, "SInf",
                    start + part(1, version, 1) + types + part(1, jpeg, 1) + part(30, jpeg, 1) + part(1, source, 1)),
         1, 1, 0},
        {Wire::msex(2, "SInf",
                    start + part(1, version, 1) + types + part(1, jpeg, 1) + part(1, jpeg, 1) + part(2, source, 1)),
         1, 1, 1},
        {Wire::msex(1, "SInf", Wire::ucs2("P") + Wire::u8(1) + Wire::u8(2) + part(2, source, 1)), 0, 0, 0}};
    std::vector<FakeServer> servers(wrong.size());
    for (std::size_t index = 0; index < wrong.size(); ++index) {
        SCOPED_TRACE(index);
        Connection connection = connectTo(servers[index]);
        connection.send(wrong[index].message);
        ASSERT_TRUE(waitFor([&] { return isListed(servers[index]); }));
        CITP::Msg_MSEX_SINF sinf;
        ASSERT_TRUE(stack->getServerInfo(servers[index].key(), &sinf, nullptr));
        EXPECT_EQ(sinf.ProductName, QStringLiteral("P"));
        EXPECT_EQ(sinf.SupportedMsexVersions.size(), wrong[index].versions);
        EXPECT_EQ(sinf.ThumbnailFormats.size(), wrong[index].thumbnails);
        EXPECT_EQ(sinf.StreamFormats.size(), wrong[index].streams);
        EXPECT_EQ(sinf.LayerDMXSources.size(), 0u);
        EXPECT_TRUE(waitFor([&] { return count(citp_options::WrongCount) == static_cast<int>(index) + 1; }));
    }
}

TEST_F(GuardsCountTest, ADroppedListReleasesThePacedRequest)
{
    citp_options options;
    options.setCountGuard(true);
    apply(options);
    FakeServer server;
    Connection connection = admitPaced(server);
    ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, 1, QString(), {})));
    ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, 2, QString(), {})));
    connection.receive();
    connection.send(Wire::msex(0, "ELIn", Wire::u8(1) + Wire::u8(200)));
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    EXPECT_EQ(notifications("libraryInfo"), 0);
}

// --- Timeouts --------------------------------------------------------------------------------------------------------

TEST_F(GuardsTest, StalledMessageOffWaits)
{
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray message = Wire::ptch(7);
    connection.send(message.left(30));
    settle(server, connection);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    connection.send(message.mid(30));
    EXPECT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 7"));
}

TEST_F(GuardsTest, StalledMessageEndsTheConnection)
{
    citp_options options;
    options.setStallTimeout(100);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    // Between messages a server may be silent.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
    for (const int length : {5, 25}) {
        SCOPED_TRACE(length);
        connection.send(Wire::ptch(7).left(length));
        const citp_options::Event event = waitForGuard(citp_options::StalledMessage);
        EXPECT_GE(event.value, 100);
        EXPECT_EQ(event.limit, 100);
        ASSERT_TRUE(waitForDown(server));
        connection.waitForEnd();
        recorder->clear();
        tick();
        connection = admit(server);
    }
}

TEST_F(GuardsTest, AMessageThatMakesProgressIsNotStalled)
{
    citp_options options;
    options.setStallTimeout(4000);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray message = Wire::ptch(7);
    // The whole of it takes longer than that, each pause much less.
    constexpr int pieces = 10;
    for (int piece = 0; piece < pieces; ++piece) {
        const auto from = message.size() * piece / pieces;
        connection.sendSegment(message.mid(from, message.size() * (piece + 1) / pieces - from));
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 7"));
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTest, LateAnswerOffBlocksTheQueue)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    for (unsigned char library = 1; library <= 2; ++library) {
        ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, library, QString(), {})));
    }
    connection.receive();
    connection.send(Wire::eein(1));
    EXPECT_FALSE(connection.tryReceive(500));
}

TEST_F(GuardsTest, LateAnswerSendsTheNextRequest)
{
    citp_options options;
    options.setRequestTimeout(100);
    apply(options);
    FakeServer server;
    Connection connection = admitPaced(server);
    for (unsigned char library = 1; library <= 3; ++library) {
        ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, library, QString(), {})));
    }
    for (int request = 0; request < 3; ++request) {
        EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    }
    const citp_options::Event event = waitForGuard(citp_options::LateAnswer);
    EXPECT_EQ(event.server, server.key());
    EXPECT_GE(event.value, 100);
    EXPECT_EQ(event.limit, 100);
    // The third one is not answered either; then the server is free again.
    EXPECT_TRUE(waitFor([&] {
        EXPECT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, 4, QString(), {})));
        return connection.tryReceive(100).has_value();
    }));
}

TEST_F(GuardsTest, LateAnswerAlsoCountsForRequestsThatWereSentBefore)
{
    FakeServer server;
    Connection connection = admitPaced(server);
    for (unsigned char library = 1; library <= 2; ++library) {
        ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, library, QString(), {})));
    }
    connection.receive();
    EXPECT_FALSE(connection.tryReceive(200));
    citp_options options;
    options.setRequestTimeout(100);
    apply(options);
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
}

TEST_F(GuardsTest, LostPeerSetsTheTimesOfTheConnection)
{
    FakeServer server;
    Connection connection = admit(server);
    const int idle = tcpOption(server, TCP_KEEPIDLE);
    const int interval = tcpOption(server, TCP_KEEPINTVL);
    const int probes = tcpOption(server, TCP_KEEPCNT);
    EXPECT_EQ(tcpOption(server, TCP_USER_TIMEOUT), 0);
    citp_options options;
    options.setPeerTimeout(10000);
    apply(options);
    FakeServer later("127.0.0.3");
    Connection laterConnection = admit(later);
    for (const FakeServer* each : {&server, &later}) {
        EXPECT_EQ(tcpOption(*each, TCP_KEEPIDLE), 4);
        EXPECT_EQ(tcpOption(*each, TCP_KEEPINTVL), 2);
        EXPECT_EQ(tcpOption(*each, TCP_KEEPCNT), 3);
        EXPECT_EQ(tcpOption(*each, TCP_USER_TIMEOUT), 10000);
    }
    apply(citp_options());
    for (const FakeServer* each : {&server, &later}) {
        EXPECT_EQ(tcpOption(*each, TCP_KEEPIDLE), idle);
        EXPECT_EQ(tcpOption(*each, TCP_KEEPINTVL), interval);
        EXPECT_EQ(tcpOption(*each, TCP_KEEPCNT), probes);
        EXPECT_EQ(tcpOption(*each, TCP_USER_TIMEOUT), 0);
    }
}

// --- Numbers of servers ----------------------------------------------------------------------------------------------

TEST_F(GuardsTest, TooManyServersOffConnectsAll)
{
    std::vector<FakeServer> servers(5);
    std::vector<Connection> connections;
    for (FakeServer& server : servers) {
        connections.push_back(admit(server));
    }
    EXPECT_EQ(stack->getNumNotified(), 5);
}

TEST_F(GuardsTest, TooManyServersIgnoresANewOneAndKeepsTheKnown)
{
    citp_options options;
    options.setMaxServers(2);
    apply(options);
    std::vector<FakeServer> servers(3);
    std::vector<Connection> connections;
    connections.push_back(admit(servers[0]));
    // No more than the limit is tried within a second.
    connections.push_back(admit(servers[1]));
    EXPECT_TRUE(guardEvents().empty());
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    servers[2].announce();
    const citp_options::Event event = waitForGuard(citp_options::TooManyServers);
    EXPECT_EQ(event.limit, 2);
    EXPECT_FALSE(servers[2].tryAccept(100));
    EXPECT_TRUE(isListed(servers[0]));
    EXPECT_TRUE(isListed(servers[1]));
    // A place becomes free.
    log.allowFailureLines("The remote host closed the connection");
    connections[0].close();
    ASSERT_TRUE(waitForDown(servers[0]));
    connections.push_back(admit(servers[2]));
}

TEST_F(GuardsTest, TooManyServersLimitsAttemptsInASecond)
{
    citp_options options;
    options.setMaxServers(3);
    apply(options);
    // One after the other, so that there is never more than one at a time.
    std::vector<FakeServer> servers(50);
    for (FakeServer& server : servers) {
        server.stopListening();
        const int refused = log.count("Connection refused");
        server.announce();
        ASSERT_TRUE(waitFor([&] { return log.count("Connection refused") > refused || !guardEvents().empty(); }));
        if (!guardEvents().empty()) {
            break;
        }
    }
    EXPECT_EQ(waitForGuard(citp_options::TooManyServers).limit, 3);
}

TEST_F(GuardsTest, AServerThatDoesNotConnectGivesItsPlaceToANewOne)
{
    citp_options options;
    options.setMaxServers(1);
    apply(options);
    FakeServer dead;
    dead.leaveUnanswered();
    // In the second of an earlier attempt it is ignored.
    ASSERT_TRUE(waitFor([&] {
        dead.announce();
        bool isKnown = false;
        runOnWorker([&] { isKnown = stack->m_servers.contains(dead.key()); });
        return isKnown;
    }));
    FakeServer alive("127.0.0.3");
    EXPECT_TRUE(waitFor([&] {
        alive.announce();
        return alive.tryAccept(100).has_value();
    }));
    runOnWorker([&] {
        EXPECT_FALSE(stack->m_servers.contains(dead.key()));
        EXPECT_TRUE(stack->m_servers.contains(alive.key()));
    });
}

TEST_F(GuardsTest, TooManyPerAddressIgnoresANewOneOfThatAddressOnly)
{
    citp_options options;
    options.setMaxServersPerAddress(2);
    apply(options);
    FakeServer one;
    FakeServer two;
    FakeServer three;
    FakeServer other("127.0.0.20"); // begins with the digits of the first address
    Connection first = admit(one);
    Connection third = admit(other);
    Connection second = admit(two);
    EXPECT_TRUE(guardEvents().empty());
    three.announce();
    const citp_options::Event event = waitForGuard(citp_options::TooManyPerAddress);
    EXPECT_EQ(event.server, one.host());
    EXPECT_EQ(event.limit, 2);
    EXPECT_FALSE(three.tryAccept(100));
    EXPECT_EQ(stack->getNumNotified(), 3);
}

// --- Sending ---------------------------------------------------------------------------------------------------------

TEST_F(GuardsTest, UnsentDataOffAcceptsEverything)
{
    FakeServer server;
    Connection connection = admit(server);
    fillStackSocket(server);
    for (int request = 0; request < 1000; ++request) {
        ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, 1, QString(), {})));
    }
}

TEST_F(GuardsTest, UnsentDataRejectsWhatExceedsTheLimit)
{
    const CITP::Msg_MSEX_GELI request(0, 1, QString(), {});
    QByteArray bytes;
    bytes >> request;
    citp_options options;
    ASSERT_TRUE(options.setMaxUnsentBytes(100 * bytes.size()));
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    fillStackSocket(server);
    for (int sent = 0; sent < 100; ++sent) {
        EXPECT_TRUE(stack->sendMsg(server.key(), request)) << sent;
        if (sent == 50) {
            runOnWorker([] {}); // some wait in the socket, some for the worker
        }
    }
    EXPECT_TRUE(guardEvents().empty());
    EXPECT_FALSE(stack->sendMsg(server.key(), request));
    const citp_options::Event event = waitForGuard(citp_options::UnsentData);
    EXPECT_EQ(event.value, 101 * bytes.size());
    EXPECT_EQ(event.limit, 100 * bytes.size());
    EXPECT_EQ(event.text.toStdString(),
              "guard unsent data: " + keyOf(server) + " sendMsg failed: " + std::to_string(event.value) +
                  " bytes would wait to be written (limit " + std::to_string(event.limit) + ")");
    // When the server reads, messages are accepted again.
    std::atomic<bool> done{false};
    std::thread reader([&] {
        char buffer[65536];
        while (!done) {
            recv(connection.descriptor(), buffer, sizeof buffer, MSG_DONTWAIT);
            std::this_thread::yield();
        }
    });
    EXPECT_TRUE(waitFor([&] { return stack->sendMsg(server.key(), request); }));
    done = true;
    reader.join();
}

TEST_F(GuardsTest, UnsentDataRejectsUnpacedRequestsToo)
{
    const CITP::Msg_MSEX_GELI request(0, 1, QString(), {});
    QByteArray bytes;
    bytes >> request;
    citp_options options;
    ASSERT_TRUE(options.setMaxUnsentBytes(100 * bytes.size()));
    apply(options);
    FakeServer server;
    const Connection connection = admitPaced(server);
    int sent = 0;
    runOnWorker([&] {
        // The worker writes nothing meanwhile.
        std::thread sender([&] {
            while (sent < 200 && stack->sendUnpaced(server.key(), request)) {
                ++sent;
            }
        });
        sender.join();
    });
    EXPECT_EQ(sent, 100);
    EXPECT_EQ(waitForGuard(citp_options::UnsentData).value, 101 * bytes.size());
}

TEST_F(GuardsTest, UnsentDataCountsPacedRequests)
{
    const CITP::Msg_MSEX_GELI request(0, 1, QString(), {});
    QByteArray bytes;
    bytes >> request;
    citp_options options;
    ASSERT_TRUE(options.setMaxUnsentBytes(100 * bytes.size()));
    apply(options);
    FakeServer server;
    Connection connection = admitPaced(server);
    ASSERT_TRUE(stack->sendMsg(server.key(), request));
    connection.receive();
    runOnWorker([] {});
    for (int sent = 0; sent < 100; ++sent) {
        EXPECT_TRUE(stack->sendMsg(server.key(), request)) << sent;
    }
    EXPECT_FALSE(stack->sendMsg(server.key(), request));
    connection.send(Wire::elin(1));
    connection.receive();
    EXPECT_TRUE(waitFor([&] { return stack->sendMsg(server.key(), request); }));
}

// --- Turns -----------------------------------------------------------------------------------------------------------

class GuardsTurnTest : public GuardsTest
{
protected:
    /// How often the server changes from one notification to the next, when two servers have sent 200 each.
    int changesOfServer()
    {
        FakeServer one("127.0.0.2");
        FakeServer two("127.0.0.3");
        Connection first = admit(one);
        Connection second = admit(two);
        recorder->clear();
        runOnWorker([&] {
            first.sendSegment(repeated(Wire::lsta(1), 200));
            second.sendSegment(repeated(Wire::lsta(1), 200));
        });
        EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(one) + " 1", 200));
        EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(two) + " 1", 200));
        int changes = 0;
        const std::vector<std::string> events = recorder->events();
        for (std::size_t index = 1; index < events.size(); ++index) {
            changes += events[index] != events[index - 1] ? 1 : 0;
        }
        return changes;
    }
};

TEST_F(GuardsTurnTest, OffAServerIsReadUntilNothingIsLeft)
{
    EXPECT_EQ(changesOfServer(), 1);
}

TEST_F(GuardsTurnTest, OnTheServersTakeTurns)
{
    citp_options options;
    options.setMaxTurnBytes(10 * Wire::lsta(1).size());
    apply(options);
    EXPECT_GE(changesOfServer(), 20);
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTurnTest, AReceiverThatTakesLongLeavesTurnsToOtherServers)
{
    citp_options options;
    options.setMaxTurnTime(1);
    apply(options);
    DirectReceiver slow(stack);
    slow.connect(&CITP::citp_stack::layerStatus, [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
    EXPECT_GE(changesOfServer(), 10);
    slow.disconnect();
}

TEST_F(GuardsTurnTest, AServerKeepsItsOrder)
{
    citp_options options;
    options.setMaxTurnBytes(100);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    QByteArray stream;
    for (unsigned fixture = 1; fixture <= 300; ++fixture) {
        stream += Wire::ptch(fixture);
    }
    connection.send(stream);
    ASSERT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 300"));
    const std::vector<std::string> events = recorder->events();
    ASSERT_EQ(events.size(), 300u);
    for (unsigned fixture = 1; fixture <= 300; ++fixture) {
        EXPECT_EQ(events[fixture - 1], "patchMessage " + keyOf(server) + " " + std::to_string(fixture));
    }
}

TEST_F(GuardsTurnTest, WhatArrivedBeforeTheEndIsDelivered)
{
    citp_options options;
    options.setMaxTurnBytes(100);
    apply(options);
    log.allowFailureLines("The remote host closed the connection");
    FakeServer server;
    Connection connection = admit(server);
    recorder->clear();
    connection.send(repeated(Wire::lsta(1), 5000));
    shutdown(connection.descriptor(), SHUT_WR);
    ASSERT_TRUE(waitForDown(server));
    EXPECT_EQ(recorder->count("layerStatus " + keyOf(server) + " 1"), 5000);
}

// --- Unread notifications --------------------------------------------------------------------------------------------

class GuardsUnreadTest : public GuardsTest
{
protected:
    GuardsUnreadTest()
    {
        m_receiver.moveToThread(&m_application);
        QObject::connect(stack, &CITP::citp_stack::layerStatus, &m_receiver,
                         [this](const QString&, const CITP::Msg_MSEX_LSTA& status) { receive(status); });
    }

    ~GuardsUnreadTest() override { stop(); }

    /// From now on the receiver handles what waits for it.
    void start() { m_application.start(); }
    void stop()
    {
        m_application.quit();
        m_application.wait();
    }
    int received() const { return m_received; }
    int emitted(const FakeServer& server) const { return recorder->count("layerStatus " + keyOf(server) + " 1"); }
    /// Options that let @p count notifications of one layer status wait.
    static citp_options unreadLimit(int count)
    {
        citp_options options;
        options.setMaxUnreadBytes(count * citp_options::unreadCost(statuses(1).size()));
        return options;
    }
    /// @p count messages of layer status, each numbered in its position.
    static QByteArray statuses(int count)
    {
        QByteArray stream;
        for (int number = 0; number < count; ++number) {
            stream +=
                Wire::msex(0, "LSta",
                           Wire::u8(1) + Wire::u8(1) + Wire::u8(0) + Wire::u8(1) + Wire::u8(2) + Wire::ucs2("Clip") +
                               Wire::u32(static_cast<quint32>(number)) + Wire::u32(4) + Wire::u8(25) + Wire::u32(1));
        }
        return stream;
    }

private:
    void receive(const CITP::Msg_MSEX_LSTA& status)
    {
        EXPECT_EQ(status.Layers.at(0).MediaPosition, static_cast<quint32>(m_received));
        m_kept.push_back(status); // a copy of what was delivered does not count as unread
        ++m_received;
    }

    QThread m_application;
    QObject m_receiver;
    std::vector<CITP::Msg_MSEX_LSTA> m_kept;
    std::atomic<int> m_received{0};
};

TEST_F(GuardsUnreadTest, OffEverythingIsEmitted)
{
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(3000));
    EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1", 3000));
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 3000; }));
}

TEST_F(GuardsUnreadTest, AtTheLimitTheServerIsNotReadUntilTheApplicationHasCaughtUp)
{
    const citp_options options = unreadLimit(10);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(10));
    ASSERT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1", 10));
    settle(server, connection);
    EXPECT_TRUE(guardEvents().empty());
    stop();
    // Those ten still wait, so that nothing of this is emitted.
    connection.send(statuses(40).mid(10 * statuses(1).size()));
    const citp_options::Event event = waitForGuard(citp_options::UnreadNotifications);
    EXPECT_EQ(event.server, server.key());
    EXPECT_EQ(event.value, options.maxUnreadBytes());
    EXPECT_EQ(event.limit, options.maxUnreadBytes());
    runOnWorker([] {});
    EXPECT_EQ(emitted(server), 10);
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 40; }));
}

TEST_F(GuardsUnreadTest, OtherServersWaitOnlyWhileTheySend)
{
    apply(unreadLimit(10));
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(20));
    waitForGuard(citp_options::UnreadNotifications);
    FakeServer other("127.0.0.3");
    Connection otherConnection = connectTo(other);
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 20; }));
    otherConnection.send(Wire::sinf("Product"));
    EXPECT_TRUE(waitFor([&] { return isListed(other); }));
}

TEST_F(GuardsTest, ServersThatFillTheLimitOfUnreadNotificationsTakeTurns)
{
    constexpr int limit = 10;
    constexpr int rounds = 20;
    QSemaphore allowed;
    QThread application;
    QObject receiver;
    receiver.moveToThread(&application);
    QObject::connect(stack, &CITP::citp_stack::layerStatus, &receiver, [&allowed] { allowed.acquire(); });
    citp_options options;
    options.setMaxUnreadBytes(limit * citp_options::unreadCost(Wire::lsta(1).size()));
    apply(options);
    FakeServer one;
    FakeServer two("127.0.0.3");
    Connection first = admit(one);
    Connection second = admit(two);
    application.start();
    for (Connection* const connection : {&first, &second}) {
        connection->send(Wire::lsta(1).repeated(limit * (rounds + 2)));
    }
    const auto emitted = [this](const FakeServer& server) {
        return recorder->count("layerStatus " + keyOf(server) + " 1");
    };
    for (int round = 1; round <= rounds; ++round) {
        // Reading is resumed only when at most half of the limit waits.
        EXPECT_TRUE(waitFor([&] { return emitted(one) + emitted(two) > limit * round - limit / 2; }));
        EXPECT_LE(emitted(one) + emitted(two), limit * round);
        allowed.release(limit);
    }
    EXPECT_GE(emitted(one), limit * rounds / 4);
    EXPECT_GE(emitted(two), limit * rounds / 4);
    allowed.release(2 * limit * (rounds + 2));
    EXPECT_TRUE(waitFor([&] { return emitted(one) + emitted(two) == 2 * limit * (rounds + 2); }));
    application.quit();
    application.wait();
}

TEST_F(GuardsUnreadTest, AnAnswerThatWaitsForTheApplicationIsNotLate)
{
    citp_options options = unreadLimit(10);
    options.setRequestTimeout(100);
    apply(options);
    FakeServer server;
    Connection connection = admitPaced(server);
    FakeServer other("127.0.0.3");
    Connection otherConnection = admit(other);
    otherConnection.send(statuses(20));
    waitForGuard(citp_options::UnreadNotifications);
    // Before the request, so that the answer waits from the beginning.
    connection.send(Wire::elin(1));
    EXPECT_TRUE(waitFor([&] {
        const std::vector<citp_options::Event> events = guardEvents();
        return std::any_of(events.begin(), events.end(),
                           [&](const citp_options::Event& event) { return event.server == server.key(); });
    }));
    for (unsigned char library = 1; library <= 2; ++library) {
        ASSERT_TRUE(stack->sendMsg(server.key(), CITP::Msg_MSEX_GELI(0, library, QString(), {})));
    }
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
    EXPECT_FALSE(connection.tryReceive(500));
    for (const citp_options::Event& event : guardEvents()) {
        EXPECT_EQ(event.guard, citp_options::UnreadNotifications);
    }
    start();
    EXPECT_EQ(Wire::code(connection.receive()), "GELI");
}

TEST_F(GuardsUnreadTest, AConnectionThatEndsIsReadToItsEndWhenTheApplicationHasCaughtUp)
{
    apply(unreadLimit(10));
    log.allowFailureLines("The remote host closed the connection");
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(500));
    shutdown(connection.descriptor(), SHUT_WR);
    waitForGuard(citp_options::UnreadNotifications);
    settle(server, connection);
    runOnWorker([] {});
    EXPECT_EQ(emitted(server), 10);
    EXPECT_TRUE(isListed(server));
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 500; }));
    EXPECT_TRUE(waitForDown(server));
    EXPECT_EQ(recorder->events().back(), "serverDown " + keyOf(server));
}

TEST_F(GuardsUnreadTest, DatagramsAreDroppedUntilTheApplicationHasCaughtUp)
{
    apply(unreadLimit(10));
    FakeServer sender;
    for (int number = 0; number < 10; ++number) {
        sender.sendDatagram(statuses(number + 1).mid(number * statuses(1).size()));
    }
    ASSERT_TRUE(waitForEvent("layerStatus 127.0.0.2 1", 10));
    EXPECT_TRUE(guardEvents().empty());
    sender.sendDatagram(statuses(1));
    EXPECT_EQ(waitForGuard(citp_options::UnreadNotifications).server, QStringLiteral("datagrams"));
    // Announcements are still heard.
    Connection connection = connectTo(sender);
    EXPECT_EQ(recorder->count("layerStatus 127.0.0.2 1"), 10);
}

TEST_F(GuardsUnreadTest, ShortTurnsReadAFullBufferToItsEnd)
{
    citp_options options = unreadLimit(100);
    options.setMaxTurnBytes(1000);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    // More than the buffer of the socket, which no whole number of messages fills.
    std::thread sender([&] { connection.send(statuses(5000)); });
    waitForGuard(citp_options::UnreadNotifications);
    // The socket is signalled until its buffer is full.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 5000; }));
    sender.join();
}

TEST_F(GuardsUnreadTest, SwitchedOffTheServerIsReadAgain)
{
    apply(unreadLimit(10));
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(30));
    waitForGuard(citp_options::UnreadNotifications);
    apply(citp_options());
    EXPECT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1", 30));
    start();
    EXPECT_TRUE(waitFor([this] { return received() == 30; }));
}

// --- Reports ---------------------------------------------------------------------------------------------------------

TEST_F(GuardsTest, AGuardReportsOncePerIntervalAndCountsTheRest)
{
    citp_options options;
    options.setCountGuard(true);
    apply(options, 3600000);
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray lie = Wire::msex(0, "ELIn", Wire::u8(1) + Wire::u8(200));
    connection.send(repeated(lie, 1000));
    sendMarker(server, connection);
    EXPECT_EQ(count(citp_options::WrongCount), 1);
    apply(options);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    tick();
    ASSERT_EQ(count(citp_options::WrongCount), 2);
    const std::vector<citp_options::Event> events = guardEvents();
    const auto last = std::find_if(events.rbegin(), events.rend(), [](const citp_options::Event& event) {
        return event.guard == citp_options::WrongCount;
    });
    EXPECT_EQ(last->omitted, 998);
    EXPECT_EQ(last->text.toStdString(),
              "guard wrong count: " + keyOf(server) +
                  " message dropped: a list announces 200 records (room for 0); 998 more omitted");
}

// --- Switching -------------------------------------------------------------------------------------------------------

TEST_F(GuardsUnreadTest, SwitchingWhileMessagesFlowLosesNothing)
{
    start();
    FakeServer server;
    Connection connection = admit(server);
    std::thread sender([&] { connection.send(statuses(20000)); });
    citp_options options = citp_options::recommended();
    options.setMaxTurnBytes(1000);
    options.setMaxUnreadBytes(20000);
    for (int round = 0; round < 100; ++round) {
        stack->setOptions(round % 2 == 0 ? options : citp_options());
        tick();
    }
    sender.join();
    EXPECT_TRUE(waitFor([this] { return received() == 20000; }));
    EXPECT_TRUE(isListed(server));
}

TEST_F(GuardsTest, SwitchingInTheMiddleOfALargeMessageReadsItToItsEnd)
{
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray message = unhandled(300000);
    citp_options options = citp_options::recommended();
    connection.send(message.left(150000));
    settle(server, connection);
    apply(options);
    connection.send(message.mid(150000, 100000));
    settle(server, connection);
    apply(options);
    connection.send(message.mid(250000));
    sendMarker(server, connection);
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsTest, SwitchingJudgesWhatHasAlreadyArrived)
{
    FakeServer server;
    Connection connection = admit(server);
    connection.send(Wire::withSize(unhandled(20), 0xffffffff));
    settle(server, connection);
    apply(citp_options::recommended());
    EXPECT_EQ(waitForGuard(citp_options::LargeMessage).server, server.key());
    EXPECT_TRUE(waitForDown(server));
}

TEST_F(GuardsTest, ATimeoutThatIsSwitchedOnLaterBeginsThen)
{
    citp_options options;
    options.setMaxTurnBytes(1000);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    const QByteArray message = Wire::ptch(7);
    connection.send(message.left(30));
    settle(server, connection);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    options.setStallTimeout(60000);
    apply(options);
    connection.send(message.mid(30));
    EXPECT_TRUE(waitForEvent("patchMessage " + keyOf(server) + " 7"));
    EXPECT_TRUE(guardEvents().empty());
}

TEST_F(GuardsUnreadTest, ALargeMessageWaitsUntilItFits)
{
    const citp_options options = unreadLimit(10);
    apply(options);
    FakeServer server;
    Connection connection = admit(server);
    connection.send(statuses(1));
    ASSERT_TRUE(waitForEvent("layerStatus " + keyOf(server) + " 1"));
    // It fits only when nothing else waits. Suspended once, and not over and over.
    connection.send(unhandled(static_cast<int>(options.maxUnreadBytes())));
    waitForGuard(citp_options::UnreadNotifications);
    for (int round = 0; round < 20; ++round) {
        runOnWorker([] {});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    tick();
    EXPECT_EQ(count(citp_options::UnreadNotifications), 1);
    start();
    sendMarker(server, connection);
    EXPECT_TRUE(waitFor([this] { return received() == 1; }));
}

// --- Discovery groups ------------------------------------------------------------------------------------------------

TEST_F(GuardsTest, TheNewGroupIsNotHeardByDefault)
{
    FakeServer server;
    server.sendDatagram(Wire::ploc(server.port()), newGroup);
    FakeServer other("127.0.0.3");
    Connection connection = admit(other);
    EXPECT_FALSE(server.tryAccept(0));
}

TEST_F(GuardsTest, AServerHeardOnBothGroupsIsOneServer)
{
    citp_options options;
    options.setDiscoveryGroups(citp_options::BothGroups);
    apply(options);
    FakeServer server;
    server.sendDatagram(Wire::ploc(server.port()), newGroup);
    Connection connection = server.accept();
    connection.send(Wire::sinf("Product"));
    ASSERT_TRUE(waitFor([&] { return isListed(server); }));
    server.announce();
    FakeServer other("127.0.0.3");
    Connection otherConnection = admit(other);
    EXPECT_FALSE(server.tryAccept(0));
    EXPECT_EQ(stack->getNumNotified(), 2);
    EXPECT_EQ(recorder->count("serverUp " + keyOf(server)), 1);
}

TEST_F(GuardsTest, ChangingTheGroupsKeepsTheServers)
{
    FakeServer server;
    Connection connection = admit(server);
    citp_options options;
    options.setDiscoveryGroups(citp_options::NewGroup);
    apply(options);
    FakeServer other("127.0.0.3");
    FakeServer old("127.0.0.4");
    old.announce();
    other.sendDatagram(Wire::ploc(other.port()), newGroup);
    Connection otherConnection = other.accept();
    EXPECT_FALSE(old.tryAccept(0));
    EXPECT_TRUE(isListed(server));
    EXPECT_EQ(recorder->count("serverDown " + keyOf(server)), 0);
}

// --- Servers named by hand -------------------------------------------------------------------------------------------

TEST_F(GuardsTest, AServerNamedByHandIsConnectedWithoutAnAnnouncement)
{
    FakeServer server;
    citp_options options;
    options.addServer(QHostAddress(server.host()), server.port());
    apply(options);
    Connection connection = server.accept();
    connection.send(Wire::sinf("Product"));
    ASSERT_TRUE(waitFor([&] { return isListed(server); }));
    // Its announcement makes no second record.
    server.announce();
    FakeServer other("127.0.0.3");
    Connection otherConnection = admit(other);
    tick();
    EXPECT_FALSE(server.tryAccept(0));
    EXPECT_EQ(stack->getNumNotified(), 2);
}

TEST_F(GuardsTest, AServerNamedByHandIsTriedAgainWithAGrowingPause)
{
    log.allowFailureLines("The remote host closed the connection");
    FakeServer server;
    server.stopListening();
    citp_options options;
    options.addServer(QHostAddress(server.host()), server.port());
    ASSERT_TRUE(options.setRetryInterval(600000));
    apply(options);
    ASSERT_TRUE(waitForLine("Connection refused"));
    // Not again before its pause is over, however often the tick comes.
    runOnWorker([&] {
        ASSERT_FALSE(stack->m_servers.contains(server.key()));
        QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection);
        EXPECT_FALSE(stack->m_servers.contains(server.key()));
    });
    ASSERT_TRUE(options.setRetryInterval(2000));
    server.listenAgain();
    apply(options);
    {
        Connection connection = server.accept();
        connection.send(Wire::sinf("Product"));
        ASSERT_TRUE(waitFor([&] { return isListed(server); }));
        tick();
        connection.close();
        ASSERT_TRUE(waitForDown(server));
    }
    Connection connection = server.accept();
    connection.send(Wire::sinf("Product"));
    EXPECT_TRUE(waitFor([&] { return isListed(server); }));
}

TEST_F(GuardsTest, AServerNamedByHandIsTriedAtOnceAfterAReset)
{
    FakeServer server;
    server.stopListening();
    citp_options options;
    options.addServer(QHostAddress(server.host()), server.port());
    ASSERT_TRUE(options.setRetryInterval(600000));
    apply(options);
    ASSERT_TRUE(waitForLine("Connection refused"));
    server.listenAgain();
    armReset();
    tick();
    EXPECT_TRUE(server.tryAccept(TestTimeout));
}

TEST_F(GuardsTest, AServerNamedByHandIsNotConnectedWhileDisabled)
{
    stack->setEnabled(false);
    tick();
    FakeServer server;
    citp_options options;
    options.addServer(QHostAddress(server.host()), server.port());
    apply(options);
    EXPECT_FALSE(server.tryAccept(100));
    enable();
    EXPECT_TRUE(server.tryAccept(TestTimeout));
}

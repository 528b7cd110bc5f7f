// The recommended guards against a cable that is pulled and against a flood of forged announcements.
// SPDX-License-Identifier: Apache-2.0
#include "fault_network.h"
#include "process_figures.h"

#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_options.h>

#include <QElapsedTimer>
#include <QTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <thread>

using CITP::citp_options;

namespace {
const std::string Key = "2.0.0.20:4811";

/// The events of guards, in order.
class GuardEvents
{
public:
    citp_options::Observer observer()
    {
        return [this](const citp_options::Event& event) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        };
    }
    bool isEmpty() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events.empty();
    }
    std::vector<citp_options::Event> take()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_events, {});
    }

private:
    mutable std::mutex m_mutex;
    std::vector<citp_options::Event> m_events;
};
} // namespace

// --- Cables ----------------------------------------------------------------------------------------------------------

class GuardsCableTest : public FaultNetworkTest
{
protected:
    void SetUp() override
    {
        FaultNetworkTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        // Which of them depends on whether the neighbour's address is still remembered.
        log.allowFailureLines("Connection timed out");
        log.allowFailureLines("Host unreachable");
        log.allowFailureLines("No route to host");
        log.allowFailureLines("Network operation timed out");
        addConsoleAdapter("show");
        addHost("stage", "2.0.0.20");
        apply(citp_options::recommended());
        enable();
        waitForQuiet();
    }

    void TearDown() override
    {
        if (!IsSkipped()) {
            stack->setOptions(citp_options());
        }
        FaultNetworkTest::TearDown();
    }

    void apply(citp_options options)
    {
        options.setObserver(events.observer());
        stack->setOptions(options);
        tick();
    }

    bool send() { return stack->sendMsg(QString::fromStdString(Key), CITP::Msg_MSEX_GELI(2, 1, "0,0,0,0", {})); }

    /// Pulls the cable of a server, which the system by itself would take for connected for minutes or hours.
    void pullCable(const char* condition, bool sendsRequest)
    {
        startServer("stage");
        ASSERT_TRUE(tickUntilUp(Key));
        setHostCable("stage", false);
        QElapsedTimer time;
        time.start();
        if (sendsRequest) {
            EXPECT_TRUE(send());
        }
        ASSERT_TRUE(tickUntilDown(Key));
        std::printf("cable pulled, %s: down after %lld ms\n", condition, static_cast<long long>(time.elapsed()));
        const std::vector<citp_options::Event> reported = events.take();
        ASSERT_EQ(reported.size(), 1u);
        EXPECT_EQ(reported.front().guard, citp_options::LostPeer);
        EXPECT_EQ(reported.front().server.toStdString(), Key);
        setHostCable("stage", true);
        EXPECT_TRUE(tickUntilUp(Key, 2));
    }

    GuardEvents events;
};

TEST_F(GuardsCableTest, AServerWithoutRequestsGoesDown)
{
    pullCable("no request", false);
}

TEST_F(GuardsCableTest, AServerWithARequestGoesDown)
{
    pullCable("a request pending", true);
}

TEST_F(GuardsCableTest, ASilentServerStays)
{
    citp_options options = citp_options::recommended();
    options.setPeerTimeout(3000);
    apply(options);
    ChildProcess& server = startServer("stage");
    ASSERT_TRUE(tickUntilUp(Key));
    server.signal(SIGSTOP);
    EXPECT_TRUE(send());
    // Its machine answers keep-alive several times.
    QTest::qWait(7000);
    EXPECT_TRUE(isListed(Key));
    EXPECT_TRUE(events.take().empty());
    server.signal(SIGCONT);
    EXPECT_TRUE(waitForEvent("libraryInfo " + Key + " 1,1,0,0"));
    EXPECT_EQ(downsOf(Key), 0);
}

// --- Forged announcements --------------------------------------------------------------------------------------------

namespace {
constexpr int Announcements = 10000;
constexpr int HonestServers = 20;

/// Announces a server at @p port from an address that only this announcement has.
void forgeAnnouncement(int number, quint16 port)
{
    sockaddr_in from = {};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl(0x7f100000 + static_cast<quint32>(number));
    sockaddr_in group = {};
    group.sin_family = AF_INET;
    group.sin_port = htons(4809);
    inet_pton(AF_INET, "224.0.0.180", &group.sin_addr);
    const Descriptor sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(sender.get(), reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
    setsockopt(sender.get(), IPPROTO_IP, IP_MULTICAST_IF, &from.sin_addr, sizeof from.sin_addr);
    const QByteArray announcement = Wire::ploc(port);
    sendto(sender.get(), announcement.constData(), static_cast<std::size_t>(announcement.size()), 0,
           reinterpret_cast<const sockaddr*>(&group), sizeof group);
}
} // namespace

class GuardsFloodTest : public StackTest
{
protected:
    int records()
    {
        int count = 0;
        runOnWorker([&] { count = static_cast<int>(stack->m_servers.size()); });
        return count;
    }
};

TEST_F(GuardsFloodTest, HonestServersComeUpAmongForgedAnnouncements)
{
    if (!hasNamespace()) {
        GTEST_SKIP() << "needs a namespace of its own";
    }
    log.allowFailureLines("more connections failed to open");
    log.allowFailureLines("Connection refused");
    GuardEvents events;
    citp_options options = citp_options::recommended();
    options.setObserver(events.observer());
    stack->setOptions(options);
    enable();
    tick();
    // Where the forged announcements lead, no attempt is answered.
    FakeServer dead("0.0.0.0");
    dead.leaveUnanswered();
    std::vector<FakeServer> servers;
    for (int number = 0; number < HonestServers; ++number) {
        servers.emplace_back("127.0.1." + std::to_string(number + 1));
    }
    const ProcessFigures before = ProcessFigures::now();

    int most = 0;
    // On a busy machine it may take more of them until the stack has to handle too many within a second.
    const auto isEnough = [&](int number) {
        return number >= (MemoryIsTelling && events.isEmpty() ? 20 : 1) * Announcements;
    };
    for (int number = 0; !isEnough(number); ++number) {
        forgeAnnouncement(number, dead.port());
        if (number % 100 == 99) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            most = std::max(most, records());
        }
    }
    QElapsedTimer time;
    time.start();
    std::vector<Connection> connections;
    std::vector<bool> isConnected(servers.size());
    EXPECT_TRUE(waitFor([&] {
        for (std::size_t index = 0; index < servers.size(); ++index) {
            if (isConnected[index]) {
                continue;
            }
            servers[index].announce();
            if (std::optional<Connection> connection = servers[index].tryAccept(20)) {
                connection->send(Wire::sinf("Product"));
                connections.push_back(std::move(*connection));
                isConnected[index] = true;
            }
        }
        most = std::max(most, records());
        return stack->getNumNotified() == HonestServers;
    }));
    const long long upAfter = time.elapsed();
    tick();
    runOnWorker([] {});
    const ProcessFigures after = ProcessFigures::now();
    const int recordsAfter = records();
    // What is left of the flood does not grow by itself.
    QTest::qWait(3000);
    runOnWorker([] {});
    const ProcessFigures later = ProcessFigures::now();
    std::printf(
        "forged announcements: at most %d records, honest servers up %lld ms after the last one; heap +%ld KiB, "
        "later +%ld KiB; descriptors %d, %d and %d\n",
        most, upAfter, after.heapKiB - before.heapKiB, later.heapKiB - before.heapKiB, before.descriptors,
        after.descriptors, later.descriptors);
    EXPECT_LE(most, options.maxServers());
    EXPECT_LE(recordsAfter, options.maxServers());
    EXPECT_LE(later.descriptors, after.descriptors);
    if (MemoryIsTelling) {
        EXPECT_LE(later.heapKiB, after.heapKiB + 64);
    }
    const std::vector<citp_options::Event> reported = events.take();
    // With a sanitizer, the flood may be too slow to exceed the limit within a second.
    EXPECT_TRUE(!MemoryIsTelling || !reported.empty());
    EXPECT_LE(reported.size(), 4u) << "a flood of reports";
    for (const citp_options::Event& event : reported) {
        EXPECT_EQ(event.guard, citp_options::TooManyServers) << event.text.toStdString();
    }
    EXPECT_EQ(stack->getNumNotified(), HonestServers);
    // Its last reports are made at the next tick.
    stack->setOptions(citp_options());
    tick();
}

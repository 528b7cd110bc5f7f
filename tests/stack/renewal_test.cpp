// Applications that end their application object and make another one in the same process, while servers stream. Qt
// delivers nothing in between, and what the stack missed meanwhile, it must make up for. A program with a main function
// of its own, as each test makes its own application objects.
// SPDX-License-Identifier: Apache-2.0
#include "fake_server.h"
#include "log_capture.h"
#include "wait.h"
#include "wire.h"
#include "worker_call.h"

#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

using CITP::citp_stack;

namespace {
void pause(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// Announces a server that is known already, as fast as it can.
class Storm
{
public:
    explicit Storm(const FakeServer& server)
        : m_thread([this, &server] {
              while (!m_done) {
                  server.announce();
              }
          })
    {
    }

    ~Storm()
    {
        m_done = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};
} // namespace

class RenewalTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ArtNet::Adapter::Choose("lo");
        makeApplication();
        stack->setEnabled(true);
        tick();
        m_receiver.emplace(stack);
        m_receiver->connect(&citp_stack::layerStatus,
                            [this](const QString&, const CITP::Msg_MSEX_LSTA& message) { receive(message); });
    }

    void TearDown() override
    {
        m_receiver.reset();
        stack->setEnabled(false);
        tick();
        closeLeftovers();
        EXPECT_EQ(log.verdict(), "");
        m_application.reset();
        log.clear();
    }

    void makeApplication()
    {
        static int count = 1;
        static char name[] = "renewal";
        static char* arguments[] = {name, nullptr};
        m_application.emplace(count, arguments);
    }

    /// Ends the application object; the receiver of layer status is slow from a little before until after it.
    void endApplication()
    {
        m_slow = true;
        m_application.reset();
        m_slow = false;
    }

    void tick()
    {
        runOnThreadOf(stack, [this] { QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection); });
    }

    bool isListed(const FakeServer& server) const
    {
        const std::vector<citp_stack::SERV_ID> servers = stack->getServers();
        return std::find(servers.begin(), servers.end(), server.key()) != servers.end();
    }

    /// Has @p server found and announced. It announces itself until it is found, as real ones do.
    std::optional<Connection> admit(FakeServer& server)
    {
        std::optional<Connection> connection;
        for (int tries = 0; !connection && tries < TestTimeout / 20; ++tries) {
            server.announce();
            connection = server.tryAccept(20);
        }
        if (!connection) {
            ADD_FAILURE() << "discovery has gone deaf";
            return connection;
        }
        connection->send(Wire::sinf("Product"));
        EXPECT_TRUE(waitFor([&] { return isListed(server); })) << "found and not announced";
        return connection;
    }

    std::vector<int> layers() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_layers;
    }

    void forgetLayers()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_layers.clear();
    }

    LogCapture& log = LogCapture::get();
    citp_stack* const stack = citp_stack::Get();
    std::atomic<bool> m_slow{false}; ///< the receiver takes 5 ms for each layer status

private:
    void receive(const CITP::Msg_MSEX_LSTA& message)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_layers.push_back(message.Layers.front().LayerNumber);
        }
        if (m_slow) {
            pause(5);
        }
    }

    std::optional<QCoreApplication> m_application;
    std::optional<DirectReceiver<citp_stack>> m_receiver;
    mutable std::mutex m_mutex;
    std::vector<int> m_layers;
};

TEST_F(RenewalTest, DiscoveryIsNotDeafAfterwards)
{
    log.allowFailureLines("The remote host closed the connection");
    FakeServer streaming("127.0.0.2");
    std::optional<Connection> stream = admit(streaming);
    ASSERT_TRUE(stream);
    std::atomic<bool> done{false};
    std::thread streamer([&] {
        while (!done && stream->trySend(Wire::lsta(1))) {
            pause(1);
        }
    });
    {
        const Storm first(streaming);
        for (int round = 0; round < 30 && !HasFailure(); ++round) {
            endApplication();
            makeApplication();
            FakeServer fresh("127.0.0.3");
            std::optional<Connection> connection = admit(fresh);
            if (connection) {
                connection->close();
                EXPECT_TRUE(waitFor([&] { return !isListed(fresh); }));
            }
        }
    }
    done = true;
    streamer.join();
    EXPECT_TRUE(isListed(streaming));
}

TEST_F(RenewalTest, MessagesThatHadBeenReadArriveWithoutAnyFurtherByte)
{
    constexpr int Count = 200;
    FakeServer server;
    std::optional<Connection> connection = admit(server);
    ASSERT_TRUE(connection);
    QByteArray segment;
    std::vector<int> all;
    for (int layer = 0; layer < Count; ++layer) {
        segment += Wire::lsta(static_cast<unsigned>(layer));
        all.push_back(layer);
    }
    int interrupted = 0;
    for (int round = 0; round < 10 && !HasFailure(); ++round) {
        forgetLayers();
        m_slow = true;
        connection->sendSegment(segment);
        ASSERT_TRUE(waitFor([&] { return layers().size() >= 10; }));
        endApplication();
        const std::vector<int> before = layers();
        interrupted += before.size() < Count ? 1 : 0;
        pause(20);
        EXPECT_EQ(layers(), before) << "delivered without an application";
        makeApplication();
        EXPECT_TRUE(waitFor([&] { return layers().size() >= Count; })) << layers().size() << " messages arrived";
        EXPECT_EQ(layers(), all);
    }
    EXPECT_GT(interrupted, 0) << "the thread never came to rest between two messages";
}

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// Descriptors: each is closed once, by its owner, however often servers and discovery come and go.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <atomic>
#include <thread>

using CITP::citp_stack;

namespace {
constexpr int Rounds = 60;

/// Opens and closes descriptors all the time, as the rest of a console does, and counts those that were not its own any
/// more when it came back to them.
class Bystander
{
public:
    Bystander() : m_thread([this] { run(); }) {}

    ~Bystander() { stop(); }

    int stop()
    {
        m_done = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_lost;
    }

private:
    void run()
    {
        constexpr int Held = 16;
        struct Pipe
        {
            int ends[2] = {-1, -1};
            ino_t inode = 0;
        };
        Pipe pipes[Held];
        for (unsigned round = 0; !m_done; ++round) {
            Pipe& pipe = pipes[round % Held];
            for (int& end : pipe.ends) {
                if (end < 0) {
                    continue;
                }
                struct stat status = {};
                if (fstat(end, &status) != 0 || status.st_ino != pipe.inode || close(end) != 0) {
                    ++m_lost;
                }
                end = -1;
            }
            struct stat status = {};
            if (pipe2(pipe.ends, O_CLOEXEC) != 0 || fstat(pipe.ends[0], &status) != 0) {
                ++m_lost;
                continue;
            }
            pipe.inode = status.st_ino;
        }
        for (const Pipe& pipe : pipes) {
            for (const int end : pipe.ends) {
                struct stat status = {};
                if (end >= 0 && (fstat(end, &status) != 0 || status.st_ino != pipe.inode || close(end) != 0)) {
                    ++m_lost;
                }
            }
        }
    }

    std::atomic<bool> m_done{false};
    std::atomic<int> m_lost{0};
    std::thread m_thread;
};

int openDescriptors()
{
    int count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    while (readdir(directory)) {
        ++count;
    }
    closedir(directory);
    return count;
}
} // namespace

class DescriptorTest : public StackTest
{
protected:
    void SetUp() override
    {
        StackTest::SetUp();
        log.allowFailureLines("The remote host closed the connection");
        enable();
    }

    /// Has all servers found and announced; they announce themselves until they are, as real ones do.
    void admitAll()
    {
        for (std::size_t index = 0; index < 3; ++index) {
            std::optional<Connection> connection;
            for (int tries = 0; !connection && tries < TestTimeout / 100; ++tries) {
                m_servers[index].announce();
                connection = m_servers[index].tryAccept(100);
            }
            ASSERT_TRUE(connection) << "discovery has gone deaf";
            connection->send(Wire::sinf("arkaos"));
            m_connections.push_back(std::move(*connection));
        }
        ASSERT_TRUE(waitFor([this] { return stack->getNumNotified() == 3; }));
    }

    /// Lets every end that is still on its way arrive.
    void waitForAllToBeGone()
    {
        ASSERT_TRUE(waitFor([this] { return stack->getNumNotified() == 0; }));
        m_connections.clear();
        closeLeftovers();
    }

    FakeServer m_servers[3] = {FakeServer("127.0.0.2"), FakeServer("127.0.0.3"), FakeServer("127.0.0.4")};
    std::vector<Connection> m_connections;
};

TEST_F(DescriptorTest, NoForeignDescriptorIsClosedAndDiscoveryNeverGoesDeaf)
{
    Bystander bystander;
    for (int round = 0; round < Rounds && !HasFatalFailure(); ++round) {
        admitAll();
        switch (round % 4) {
            case 0:
                stack->setEnabled(false);
                tick();
                stack->setEnabled(true);
                tick();
                break;
            case 1:
                stack->Changed(Os::NetworkAdapter("lo", {}), {}, 1);
                tick();
                break;
            case 2:
                for (Connection& connection : m_connections) {
                    connection.reset();
                }
                break;
            default:
                for (Connection& connection : m_connections) {
                    connection.close();
                }
        }
        waitForAllToBeGone();
    }
    EXPECT_EQ(bystander.stop(), 0);
}

TEST_F(DescriptorTest, RefusedConnectionsCloseNothingForeign)
{
    log.allowFailureLines("Connection refused");
    for (FakeServer& server : m_servers) {
        server.stopListening();
    }
    Bystander bystander;
    for (int round = 0; round < Rounds; ++round) {
        for (const FakeServer& server : m_servers) {
            server.announce();
        }
        ASSERT_TRUE(waitForLine("Connection refused", 3 * (round + 1)));
    }
    EXPECT_EQ(bystander.stop(), 0);
}

TEST_F(DescriptorTest, NoDescriptorIsLeftBehind)
{
    int before = 0;
    for (int round = 0; round < 10; ++round) {
        admitAll();
        armReset();
        tick();
        waitForAllToBeGone();
        runOnWorker([] {});
        tick();
        if (round == 1) {
            before = openDescriptors();
        }
    }
    EXPECT_TRUE(waitFor([before] { return openDescriptors() <= before; })) << openDescriptors() << " " << before;
}

// The end of processes in the middle of faults: servers that misbehave, stream, and die and come back all the while.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"
#include "fake_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {
/// Of each kind of end; CITP_EXIT_ROUNDS asks for another number.
int rounds()
{
    const char* const wanted = std::getenv("CITP_EXIT_ROUNDS");
    return wanted ? std::atoi(wanted) : 4;
}

std::unique_ptr<ChildProcess> start(const std::string& address, std::vector<std::string> options)
{
    std::vector<std::string> command = {MEDIASERVER, "--quiet",      "--adapter", "lo",         "--address",
                                        address,     "--layer-rate", "100",       "--interval", "50"};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(command);
}

/// Servers with every fault, and one that is killed and started anew all the time.
class FaultyServers
{
public:
    FaultyServers()
    {
        m_servers.push_back(start("127.0.1.1", {"--count", "2", "--product", "ArKaos"}));
        m_servers.push_back(start("127.0.2.1", {"--fault", "split,garbage,truncate,version,oversize"}));
        m_servers.push_back(start("127.0.3.1", {"--fault", "reset", "--fault-rate", "20"}));
        m_servers.push_back(start("127.0.4.1", {"--fault", "noise,storm", "--fault-rate", "5"}));
        m_servers.push_back(start("127.0.5.1", {"--fault", "silence,delay", "--product", "Coolux"}));
        m_reaper = std::thread([this] {
            while (!m_done) {
                const auto mortal = start("127.0.6.1", {"--count", "3"});
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                mortal->kill();
            }
        });
    }
    FaultyServers(const FaultyServers&) = delete;
    FaultyServers& operator=(const FaultyServers&) = delete;

    ~FaultyServers()
    {
        m_done = true;
        m_reaper.join();
        for (const auto& server : m_servers) {
            server->kill();
        }
    }

private:
    std::vector<std::unique_ptr<ChildProcess>> m_servers;
    std::atomic<bool> m_done{false};
    std::thread m_reaper;
};
} // namespace

class FaultExit : public testing::TestWithParam<const char*>
{
};

TEST_P(FaultExit, ComesWithoutCrashOrHang)
{
    FaultyServers servers;
    for (int round = 0; round < rounds(); ++round) {
        ChildProcess child({TEST_CHILD, "exit", GetParam()});
        ASSERT_EQ(child.waitForEnd(), "exit 7") << "round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(By, FaultExit,
                         testing::Values("return", "return-with-events-pending", "exit", "exit-slowly", "from-thread",
                                         "from-receiver"),
                         [](const testing::TestParamInfo<const char*>& kind) {
                             std::string name;
                             for (const char character : std::string(kind.param)) {
                                 if (character != '-') {
                                     name += character;
                                 }
                             }
                             return name;
                         });

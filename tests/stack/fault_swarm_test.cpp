// Five hundred servers that appear at once, stream, and disappear at once, again and again.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"
#include "process_figures.h"
#include "stack_fixture.h"

#include <citp/citp_msg_msex_lsta.h>

#include <QElapsedTimer>
#include <QTest>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>

namespace {
constexpr int Rounds = MemoryIsTelling ? 10 : 3;
constexpr int Servers = 500;
constexpr int PerProgram = 100;
constexpr int Outputs = 2 * Servers / PerProgram; // the descriptors of what the programs print
constexpr int Streamed = 4 * Servers;             // layer states of a round, at least
/// What the first round may leave behind is what is kept for the next one; the later rounds may add no more than this,
/// all together. A record that stayed would alone be more than a megabyte in a round.
constexpr long AddedBound = 1024; // KiB

/// The limit of a process that has not asked for more.
void setUsualDescriptorLimit()
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 1024;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

/// Ups and downs of each server, counted where they happen.
class Attendance
{
public:
    explicit Attendance(CITP::citp_stack* stack) : m_receiver(stack)
    {
        using CITP::citp_stack;
        const auto count = [this](int step) {
            return [this, step](const QString& key) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                int& presence = m_presence[key];
                presence += step;
                m_doubled += presence < 0 || presence > 1 ? 1 : 0;
                (step > 0 ? m_ups : m_downs) += 1;
            };
        };
        m_receiver.connect(&citp_stack::serverUp, count(1));
        m_receiver.connect(&citp_stack::serverDown, count(-1));
        m_receiver.connect(&citp_stack::layerStatus, [this] { ++m_layerStates; });
    }
    int ups() const { return m_ups; }
    int downs() const { return m_downs; }
    int doubled() const { return m_doubled; }
    long layerStates() const { return m_layerStates; }
    int known() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<int>(m_presence.size());
    }

private:
    mutable std::mutex m_mutex; // guards the map
    std::map<QString, int> m_presence;
    std::atomic<int> m_ups{0};
    std::atomic<int> m_downs{0};
    std::atomic<int> m_doubled{0};
    std::atomic<long> m_layerStates{0};
    DirectReceiver<CITP::citp_stack> m_receiver; // last: destroyed first
};
} // namespace

class SwarmTest : public StackTest
{
protected:
    void startPrograms()
    {
        for (int program = 0; program < Servers / PerProgram; ++program) {
            m_programs.push_back(std::make_unique<ChildProcess>(std::vector<std::string>{
                MEDIASERVER, "--quiet", "--adapter", "lo", "--count", std::to_string(PerProgram), "--address",
                "127.0." + std::to_string(program + 1) + ".1", "--interval", "500", "--layer-rate", "5"}));
        }
    }

    void killPrograms()
    {
        for (const auto& program : m_programs) {
            program->kill();
        }
        m_programs.clear();
    }

    ProcessFigures settledFigures()
    {
        // Twice, since what a slot leaves to be deleted is deleted behind what is already waiting.
        runOnWorker([] {});
        tick();
        runOnWorker([] {});
        log.clear();
        allowEnds();
        return ProcessFigures::now();
    }

    void allowEnds()
    {
        log.allowFailureLines("The remote host closed the connection");
        log.allowFailureLines("Connection refused");
    }

    std::vector<std::unique_ptr<ChildProcess>> m_programs;
};

TEST_F(SwarmTest, FiveHundredServersComeAndGoAgainAndAgainAndLeaveNothingBehind)
{
    if (!hasNamespace()) {
        GTEST_SKIP() << "needs the ports of a namespace of its own";
    }
    setUsualDescriptorLimit();
    recorder.reset(); // would itself grow with every message
    Attendance attendance(stack);
    enable();
    allowEnds();
    ProcessFigures first;
    long lowestResidentKiB = 0; ///< of the last four rounds
    std::printf("%5s %9s %11s %13s %10s %12s %16s\n", "round", "up in ms", "down in ms", "resident KiB", "heap KiB",
                "descriptors", "with all servers");
    for (int round = 1; round <= Rounds; ++round) {
        QElapsedTimer time;
        time.start();
        startPrograms();
        ASSERT_TRUE(waitFor([&] { return attendance.ups() == round * Servers; }))
            << attendance.ups() - attendance.downs() << " are up in round " << round;
        const auto upAfter = time.elapsed();
        const long before = attendance.layerStates();
        ASSERT_TRUE(waitFor([&] { return attendance.layerStates() >= before + Streamed; }));
        EXPECT_EQ(stack->getNumNotified(), Servers);
        const int descriptorsWithServers = ProcessFigures::now().descriptors;
        time.restart();
        killPrograms();
        ASSERT_TRUE(waitFor([&] { return attendance.downs() == round * Servers; }))
            << attendance.ups() - attendance.downs() << " are up after round " << round;
        const auto downAfter = time.elapsed();
        EXPECT_EQ(stack->getNumNotified(), 0);
        const ProcessFigures now = settledFigures();
        std::printf("%5d %9lld %11lld %13ld %10ld %12d %16d\n", round, static_cast<long long>(upAfter),
                    static_cast<long long>(downAfter), now.residentKiB, now.heapKiB, now.descriptors,
                    descriptorsWithServers);
        std::fflush(stdout);
        if (round == 1) {
            first = now;
        }
        EXPECT_EQ(now.descriptors, first.descriptors);
        EXPECT_EQ(descriptorsWithServers, now.descriptors + Outputs + Servers);
        EXPECT_EQ(now.threads, first.threads);
        if (MemoryIsTelling) {
            EXPECT_LE(now.heapKiB, first.heapKiB + AddedBound);
            // The kernel takes freed pages back late on a busy machine; what leaks is there in each round.
            lowestResidentKiB = round > Rounds - 3 ? std::min(lowestResidentKiB, now.residentKiB) : now.residentKiB;
        }
    }
    if (MemoryIsTelling) {
        EXPECT_LE(lowestResidentKiB, first.residentKiB + AddedBound);
    }
    EXPECT_EQ(attendance.ups(), Rounds * Servers);
    EXPECT_EQ(attendance.downs(), Rounds * Servers);
    EXPECT_EQ(attendance.doubled(), 0);
    EXPECT_EQ(attendance.known(), Servers);
}

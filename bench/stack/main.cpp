// The benchmarks of the stack: draining, round trip, scale. To be run by tests/in-namespace.
// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>

namespace {
constexpr unsigned Longest = 1800; // s; of a run with many repetitions
}

void registerDrain();
void registerRoundTrip();
void registerScale();

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    alarm(Longest); // many threads wait for one another here: whatever goes wrong, the run ends
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    const QCoreApplication application(argc, argv);
    registerDrain();
    registerRoundTrip();
    registerScale();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

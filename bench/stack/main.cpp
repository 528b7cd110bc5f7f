// The benchmarks of the stack: draining, round trip, scale. Run this program with tests/in-namespace.
// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>

namespace {
constexpr unsigned TimeoutSeconds = 1800; // enough for a run with many repetitions
}

void registerDrain();
void registerRoundTrip();
void registerScale();

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    alarm(TimeoutSeconds); // ends the run if a thread waits forever
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

// The benchmarks of the stack: draining, round trip, scale, and the instructions for a message. Run this program with
// tests/in-namespace.
// SPDX-License-Identifier: Apache-2.0
#include "cost_cases.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>
#include <cstring>

namespace {
constexpr unsigned TimeoutSeconds = 1800; // enough for a run with many repetitions
}

void registerDrain();
void registerRoundTrip();
void registerScale();
void registerGuardedClients();

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    alarm(TimeoutSeconds); // ends the run if a thread waits forever
    const QCoreApplication application(argc, argv);
    if (argc == 2 && std::strcmp(argv[1], "--instructions") == 0) {
        return countCosts();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    registerDrain();
    registerRoundTrip();
    registerScale();
    registerGuardedClients();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

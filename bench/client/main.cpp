// The benchmarks of the client layer: pictures, the first picture, names, pictures from disk, and the load that a mode
// allows. Run this program with tests/in-namespace.
// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>

namespace {
constexpr unsigned TimeoutSeconds = 1800; // enough for a run with many repetitions
}

void registerPictures();
void registerFirstPicture();
void registerNames();
void registerDisk();
void registerManners();

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    alarm(TimeoutSeconds); // ends the run if a thread waits forever
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    registerPictures();
    registerFirstPicture();
    registerNames();
    registerDisk();
    registerManners();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

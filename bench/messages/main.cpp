// The benchmarks of the messages, timed by Google Benchmark or, with --instructions, counted by callgrind.
// SPDX-License-Identifier: Apache-2.0
#include "cases.h"

#include <citp_system/os_log.h>
#include <valgrind/callgrind.h>

#include <QCoreApplication>

#include <cstring>

namespace bench {
std::vector<Case>& cases()
{
    static std::vector<Case> all;
    return all;
}

namespace {
/// Makes callgrind dump the cost of each case whose name contains @p part, under that name, summed over a few runs.
int count(const char* part)
{
    if (!RUNNING_ON_VALGRIND) {
        std::fputs("citp_bench_messages: --instructions needs callgrind: run scripts/bench --instructions\n", stderr);
        return 2;
    }
    constexpr int runs = 10;
    std::printf("runs %d\n", runs);
    for (const Case& item : cases()) {
        if (item.name.find(part) == std::string::npos)
            continue;
        // Warm-up: the first runs fill the allocator's caches and bind symbols.
        for (int run = 0; run < 3; ++run)
            item.once();
        CALLGRIND_ZERO_STATS;
        for (int run = 0; run < runs; ++run)
            item.once();
        CALLGRIND_DUMP_STATS_AT(item.name.c_str());
    }
    cases().clear();
    return 0;
}
} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    bench::addParseCases();
    bench::addSerialiseCases();
    bench::addTextCases();
    bench::addQueuedCases();
    if ((argc == 2 || argc == 3) && std::strcmp(argv[1], "--instructions") == 0)
        return bench::count(argc == 3 ? argv[2] : "");
    for (const bench::Case& item : bench::cases())
        if (auto* const registered = benchmark::RegisterBenchmark(item.name.c_str(), item.loop); item.realTime)
            registered->UseRealTime();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    bench::cases().clear();
    return 0;
}

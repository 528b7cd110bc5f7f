// The list of what is measured: a name and what to run. One list, timed by Google Benchmark or counted by callgrind.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {
struct Case
{
    std::string name; ///< SUITE/CASE/CONTENDER, e.g. "Parse/MEIn255/library"; scripts/bench compares within a case
    std::function<void()> once; ///< for callgrind: does it one time
    std::function<void(benchmark::State&)> loop;
    bool wallClock; ///< timed by the clock, as more than one thread works at it
};

/// All that is measured, in the order of registration.
std::vector<Case>& cases();

/// Adds @p run, which is given nothing and whose work the compiler cannot drop.
template <typename Run>
void add(const std::string& name, Run run, bool wallClock = false)
{
    cases().push_back({name, run,
                       [run](benchmark::State& state) {
                           for (auto _ : state)
                               run();
                       },
                       wallClock});
}

/// Ends the program if contenders do not do the same: their times would say nothing.
inline void require(bool same, const char* what)
{
    if (!same) {
        std::fprintf(stderr, "citp_bench_messages: the contenders differ: %s\n", what);
        std::exit(1);
    }
}

void addParseCases();
void addSerialiseCases();
void addTextCases();
void addQueuedCases();
} // namespace bench

// The list of benchmark cases, which Google Benchmark times or callgrind counts.
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
    std::string name;           ///< SUITE/CASE/CONTENDER, e.g. "Parse/MEIn255/library"
    std::function<void()> once; ///< runs the case once, for callgrind
    std::function<void(benchmark::State&)> loop;
    bool realTime; ///< measures wall clock time, as several threads do the work
};

/// All cases, in the order of registration.
std::vector<Case>& cases();

/// Adds a case that calls @p run, whose work the compiler must not be able to optimise away.
template <typename Run>
void add(const std::string& name, Run run, bool realTime = false)
{
    cases().push_back({name, run,
                       [run](benchmark::State& state) {
                           for (auto _ : state)
                               run();
                       },
                       realTime});
}

/// Exits the program if the contenders' results differ: their times could not be compared.
inline void requireSame(bool same, const char* what)
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

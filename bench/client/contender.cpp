// Registration of the contenders.
// SPDX-License-Identifier: Apache-2.0
#include "contender.h"

#include "client.h"

#include <benchmark/benchmark.h>

double processorTime()
{
    return Client::get().workerClock().seconds() + ThreadClock::ofCurrentThread().seconds();
}

void registerContender(const std::string& name, const std::function<Cost()>& contender)
{
    const auto run = [contender](benchmark::State& state) {
        for (auto _ : state) {
            const Cost cost = contender();
            state.SetIterationTime(cost.wall);
            if (cost.processor > 0) {
                state.counters["processor_ns"] = cost.processor * 1e9;
            }
            if (cost.heap > 0) {
                state.counters["heap_bytes"] = cost.heap;
            }
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), run)->UseManualTime()->Iterations(1)->Unit(benchmark::kNanosecond);
}

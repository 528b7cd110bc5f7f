// What the benchmarks of the client layer measure of each contender.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

/// In seconds of what is counted: of a picture, for example.
struct Cost
{
    double wall = 0;
    double processor = 0; ///< of the client's threads; 0 if it is not measured
    double heap = 0;      ///< bytes for each element; 0 if they are not measured
};

/// Processor time of the stack's thread and of this one.
double processorTime();

/// A benchmark of wall clock time, with the other figures as counters.
void registerContender(const std::string& name, const std::function<Cost()>& contender);

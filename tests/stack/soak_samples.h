// The soak's measurements over time, and what is to be read from them.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "process_figures.h"

#include <string>
#include <vector>

class SoakSamples
{
public:
    /// Memory that may be added in a minute once everything has run for a while, in KiB. What the measurement itself
    /// sways by is more than what the process may grow by, so it is the line through all samples that is held to this.
    static constexpr double GrowthBound = 20;

    void add(double minutes, const ProcessFigures& figures);
    /// The samples that count: those of the first five minutes, or of the first third of a shorter run, do not.
    void settle(double minutesInAll);

    /// The slope of the line through the samples that count, in KiB a minute.
    double residentGrowth() const;
    double heapGrowth() const;
    /// The fewest and the most threads among those samples.
    int fewestThreads() const;
    int mostThreads() const;
    std::string summary() const;

private:
    struct Sample
    {
        double minutes;
        ProcessFigures figures;
    };
    double slope(long ProcessFigures::*figure) const;

    std::vector<Sample> m_samples;
};

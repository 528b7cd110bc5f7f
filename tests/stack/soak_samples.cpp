// SoakSamples: the line of least squares through what was measured.
// SPDX-License-Identifier: Apache-2.0
#include "soak_samples.h"

#include <algorithm>
#include <cstdio>

void SoakSamples::add(double minutes, const ProcessFigures& figures)
{
    m_samples.push_back({minutes, figures});
}

void SoakSamples::settle(double minutesInAll)
{
    const double begin = std::min(5.0, minutesInAll / 3);
    const auto early = [begin](const Sample& sample) { return sample.minutes < begin; };
    m_samples.erase(std::remove_if(m_samples.begin(), m_samples.end(), early), m_samples.end());
}

double SoakSamples::slope(long ProcessFigures::*figure) const
{
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    const auto count = static_cast<double>(m_samples.size());
    for (const Sample& sample : m_samples) {
        const double x = sample.minutes;
        const auto y = static_cast<double>(sample.figures.*figure);
        sumX += x;
        sumY += y;
        sumXX += x * x;
        sumXY += x * y;
    }
    const double spread = count * sumXX - sumX * sumX;
    return spread > 0 ? (count * sumXY - sumX * sumY) / spread : 0;
}

double SoakSamples::residentGrowth() const
{
    return slope(&ProcessFigures::residentKiB);
}

double SoakSamples::heapGrowth() const
{
    return slope(&ProcessFigures::heapKiB);
}

int SoakSamples::fewestThreads() const
{
    int fewest = m_samples.empty() ? 0 : m_samples.front().figures.threads;
    for (const Sample& sample : m_samples) {
        fewest = std::min(fewest, sample.figures.threads);
    }
    return fewest;
}

int SoakSamples::mostThreads() const
{
    int most = 0;
    for (const Sample& sample : m_samples) {
        most = std::max(most, sample.figures.threads);
    }
    return most;
}

std::string SoakSamples::summary() const
{
    long lowest = m_samples.empty() ? 0 : m_samples.front().figures.residentKiB;
    long highest = 0;
    for (const Sample& sample : m_samples) {
        lowest = std::min(lowest, sample.figures.residentKiB);
        highest = std::max(highest, sample.figures.residentKiB);
    }
    char text[200];
    std::snprintf(text, sizeof text, "resident %ld to %ld KiB, slope %+.1f KiB/min (heap %+.1f), %zu samples", lowest,
                  highest, residentGrowth(), heapGrowth(), m_samples.size());
    return text;
}

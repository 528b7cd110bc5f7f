// ProcessFigures: read from the kernel and from the heap itself.
// SPDX-License-Identifier: Apache-2.0
#include "process_figures.h"

#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {
long statusValue(const std::string& label)
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == label) {
            long value = 0;
            status >> value;
            return value;
        }
    }
    return 0;
}
} // namespace

ProcessFigures ProcessFigures::now()
{
    malloc_trim(0);
    const struct mallinfo2 heap = mallinfo2();
    ProcessFigures figures;
    figures.heapKiB = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
    figures.residentKiB = statusValue("VmRSS:");
    figures.threads = static_cast<int>(statusValue("Threads:"));
    // One of them is the one that looks.
    const std::filesystem::directory_iterator open("/proc/self/fd");
    figures.descriptors = static_cast<int>(std::distance(begin(open), end(open))) - 1;
    return figures;
}

// What this process holds of the machine: memory, descriptors, threads.
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Whether the memory figures say anything: under a sanitizer they are those of its own heap, which keeps what is
/// freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool MemoryIsTelling = false;
#else
constexpr bool MemoryIsTelling = true;
#endif

struct ProcessFigures
{
    long residentKiB = 0; ///< memory in RAM, after freed memory has been handed back to the system
    long heapKiB = 0;     ///< memory that the heap has given out and not got back
    int descriptors = 0;
    int threads = 0;

    static ProcessFigures now();
};

// HeapCount: the bytes that this process has on the heap, exactly and at any moment, in every build.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// Counts each allocation as the block that the heap of the C library uses for it, also under a sanitizer. A program
/// that contains this counts from its start. Any thread.
namespace HeapCount {
/// The bytes in use.
std::int64_t now();
/// The most bytes that were in use since the last resetPeak().
std::int64_t peak();
void resetPeak();
} // namespace HeapCount

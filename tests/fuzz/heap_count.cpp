// HeapCount: by the hooks of a sanitizer or, without one, by functions in front of those of the C library.
// SPDX-License-Identifier: Apache-2.0
#include "heap_count.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define HEAP_OF_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define HEAP_OF_SANITIZER
#endif
#endif

#ifdef HEAP_OF_SANITIZER
// Of <sanitizer/allocator_interface.h>, which clang has and GCC does not install.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void* block, std::size_t size),
                                              void (*released)(const volatile void* block));
std::size_t __sanitizer_get_allocated_size(const volatile void* block);
}
#else
#include <malloc.h>
#endif

namespace {
std::atomic<std::int64_t> inUse{0};
std::atomic<std::int64_t> mostInUse{0};

void add(std::int64_t bytes)
{
    const std::int64_t total = inUse.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    std::int64_t most = mostInUse.load(std::memory_order_relaxed);
    while (total > most && !mostInUse.compare_exchange_weak(most, total, std::memory_order_relaxed)) {
    }
}

void remove(std::int64_t bytes)
{
    inUse.fetch_sub(bytes, std::memory_order_relaxed);
}
} // namespace

std::int64_t HeapCount::now()
{
    return inUse;
}

std::int64_t HeapCount::peak()
{
    return mostInUse;
}

void HeapCount::resetPeak()
{
    mostInUse = inUse.load();
}

#ifdef HEAP_OF_SANITIZER
namespace {
/// The block of the C library's heap for @p size bytes: its length in front, and sizes in steps.
std::int64_t blockSize(std::size_t size)
{
    constexpr std::size_t word = sizeof(std::size_t);
    constexpr std::size_t step = alignof(std::max_align_t);
    return static_cast<std::int64_t>(std::max(4 * word, (size + word + step - 1) / step * step));
}

void allocated(const volatile void*, std::size_t size)
{
    add(blockSize(size));
}

void released(const volatile void* block)
{
    if (block) {
        remove(blockSize(__sanitizer_get_allocated_size(block)));
    }
}

// Blocks of before are not counted, and neither is their release worth a difference.
const int installed = __sanitizer_install_malloc_and_free_hooks(allocated, released);
} // namespace
#else
extern "C" {
// The C library's own names of its functions.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {
std::int64_t blockSize(void* block)
{
    return block ? static_cast<std::int64_t>(malloc_usable_size(block) + sizeof(std::size_t)) : 0;
}

void* counted(void* block)
{
    add(blockSize(block));
    return block;
}
} // namespace

#define IN_FRONT extern "C" __attribute__((visibility("default")))

IN_FRONT void* malloc(std::size_t size)
{
    return counted(__libc_malloc(size));
}

IN_FRONT void* calloc(std::size_t count, std::size_t size)
{
    return counted(__libc_calloc(count, size));
}

IN_FRONT void* realloc(void* block, std::size_t size)
{
    const std::int64_t before = blockSize(block);
    void* const moved = __libc_realloc(block, size);
    // Both at first: a block that moves is copied.
    add(blockSize(moved));
    if (moved || size == 0) {
        remove(before);
    }
    return moved;
}

IN_FRONT void free(void* block)
{
    remove(blockSize(block));
    __libc_free(block);
}

IN_FRONT void* memalign(std::size_t alignment, std::size_t size)
{
    return counted(__libc_memalign(alignment, size));
}

IN_FRONT void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    return memalign(alignment, size);
}

IN_FRONT int posix_memalign(void** block, std::size_t alignment, std::size_t size)
{
    *block = memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}
#endif

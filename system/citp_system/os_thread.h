// Os::Thread and Os::CallStack: the call stack of the calling thread, which every log line carries.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <string>
#include <vector>

/// Operating system services: logging, threads, network adapters.
namespace Os {
/// The return addresses of a thread's callers, captured at one moment. Capturing walks the frames; only Symbolize()
/// looks up names. A value.
class CITP_SYSTEM_EXPORT CallStack
{
public:
    /// The maximum number of frames; outer callers beyond it are omitted.
    static constexpr int MaxDepth = 32;

    /// The number of frames, 0 to #MaxDepth.
    int GetDepth() const noexcept { return m_depth; }
    /// The return address of frame @p index, 0 for the innermost; null if @p index is out of range.
    const void* GetFrame(int index) const noexcept;
    /// One line for each frame, innermost first: the demangled name of the function and the offset in it if the
    /// function is exported, else the module and the offset in it. Slow, and takes the lock of the dynamic linker.
    std::vector<std::string> Symbolize() const;

private:
    friend class Thread;
    int m_depth = 0;
    void* m_frames[MaxDepth] = {};
};

/// The calling thread.
class CITP_SYSTEM_EXPORT Thread
{
public:
    /// The call stack of the calling thread. The innermost frame is the caller of this function. Thread-safe.
    static CallStack GetCallStack() noexcept;
};
} // namespace Os

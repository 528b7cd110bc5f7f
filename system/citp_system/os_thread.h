// Os::Thread: the calling thread's call stack, as log lines carry it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <string>
#include <vector>

/// What the system library takes from the operating system: logs, threads, network adapters.
namespace Os {
/// The return addresses of a thread's callers at one moment. Capturing costs a walk over the frames; names are looked
/// up only when Symbolize() is called.
class CITP_SYSTEM_EXPORT CallStack
{
public:
    /// The most frames that are kept; deeper callers are left out.
    static constexpr int MaxDepth = 32;

    /// Frames held, 0 to #MaxDepth.
    int GetDepth() const noexcept { return m_depth; }
    /// The return address of frame @p index (0 is the innermost); null beyond the depth.
    const void* GetFrame(int index) const noexcept;
    /// One line for each frame, innermost first: the function's readable name and offset where they are known, else
    /// the module and address. Slow; takes the dynamic linker's lock.
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
    /// The call stack of the calling thread, the caller of this function innermost.
    static CallStack GetCallStack() noexcept;
};
} // namespace Os

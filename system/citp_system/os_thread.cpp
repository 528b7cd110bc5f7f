// Os::Thread and Os::CallStack: capturing the call stack and looking up function names.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_thread.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace Os {
namespace {

std::string toHex(std::uintptr_t number)
{
    char text[2 + 2 * sizeof number + 1];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string demangle(const char* symbol)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                           &std::free);
    return name ? name.get() : symbol;
}

std::string describeFrame(const void* frame)
{
    const auto address = reinterpret_cast<std::uintptr_t>(frame);
    Dl_info info{};
    // The return address of a call to a noreturn function may be the first byte after the calling function. The byte
    // before it always belongs to the caller.
    if (!frame || !dladdr(reinterpret_cast<const void*>(address - 1), &info)) {
        return toHex(address);
    }
    if (info.dli_sname) {
        return demangle(info.dli_sname) + '+' + toHex(address - reinterpret_cast<std::uintptr_t>(info.dli_saddr));
    }
    return std::string(info.dli_fname ? info.dli_fname : "?") + '+' +
           toHex(address - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
}

} // namespace

const void* CallStack::GetFrame(int index) const noexcept
{
    return index >= 0 && index < m_depth ? m_frames[index] : nullptr;
}

std::vector<std::string> CallStack::Symbolize() const
{
    std::vector<std::string> lines;
    lines.reserve(static_cast<std::size_t>(m_depth));
    for (int index = 0; index < m_depth; ++index) {
        lines.push_back(describeFrame(m_frames[index]));
    }
    return lines;
}

// Not inlined: the frame search needs the return address of this function.
__attribute__((noinline)) CallStack Thread::GetCallStack() noexcept
{
    // Frames of this function and, in a sanitizer build, of the sanitizer's backtrace() precede the caller's.
    constexpr int maxFrames = CallStack::MaxDepth + 2;
    void* frames[maxFrames];
    void** const end = frames + backtrace(frames, maxFrames);
    void** const caller = std::find(frames, end, __builtin_return_address(0));
    CallStack stack;
    stack.m_depth = static_cast<int>(std::min<std::ptrdiff_t>(end - caller, CallStack::MaxDepth));
    std::copy_n(caller, stack.m_depth, stack.m_frames);
    return stack;
}

} // namespace Os

// Os::Thread and Os::CallStack: capturing the callers and naming them.
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

std::string hexText(std::uintptr_t number)
{
    char text[2 + 2 * sizeof number + 1];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

std::string readableName(const char* symbol)
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
    // The return address of a call that never returns is the first byte behind its function, so the call itself, one
    // byte before, is looked up.
    if (!frame || !dladdr(reinterpret_cast<const void*>(address - 1), &info)) {
        return hexText(address);
    }
    if (info.dli_sname) {
        return readableName(info.dli_sname) + '+' + hexText(address - reinterpret_cast<std::uintptr_t>(info.dli_saddr));
    }
    return std::string(info.dli_fname ? info.dli_fname : "?") + '+' +
           hexText(address - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
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

// Never inlined: it must have a return address of its own.
__attribute__((noinline)) CallStack Thread::GetCallStack() noexcept
{
    // Above the caller stand this function and, in a build with sanitizers, their version of backtrace.
    constexpr int most = CallStack::MaxDepth + 2;
    void* frames[most];
    void** const end = frames + backtrace(frames, most);
    void** const caller = std::find(frames, end, __builtin_return_address(0));
    CallStack stack;
    stack.m_depth = static_cast<int>(std::min<std::ptrdiff_t>(end - caller, CallStack::MaxDepth));
    std::copy_n(caller, stack.m_depth, stack.m_frames);
    return stack;
}

} // namespace Os

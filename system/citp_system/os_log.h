// Os::Log: a tree of named log contexts with level masks, and the sink that receives their lines.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_thread.h>
#include <citp_system/system_export.h>
#include <citp_system/text_base.h>

#include <atomic>
#include <string>

namespace Os {
/// Log contexts, their level masks, and the sink that receives the lines.
namespace Log {
class Context;

/// The level of a line: one bit of a context's mask.
enum Level : unsigned {
    Traffic = 1,  ///< messages and connections; disabled by default
    State = 2,    ///< changes of state
    Warning = 4,  ///< unexpected, but handled
    Failure = 8,  ///< an operation failed
    Critical = 16 ///< the program cannot continue
};

/// The default mask of a context: every level except Traffic.
inline constexpr unsigned DefaultMask = State | Warning | Failure | Critical;

/// One log line as a sink receives it. Its references and pointers are valid only during Sink::Write().
struct CITP_SYSTEM_EXPORT Line
{
    const Context& context;     ///< the context that it was written to
    unsigned level;             ///< a Level, one bit
    const text_base& text;      ///< the message in bytes; UTF-8 or Latin-1, as the caller wrote it
    const char* function;       ///< signature of the calling function
    const char* file;           ///< name of the source file
    int line;                   ///< line number in that file, from 1
    const CallStack& callStack; ///< call stack of the caller, innermost frame first
};

/// Receives log lines. An application derives its own sink and installs it with SetSink().
class CITP_SYSTEM_EXPORT Sink
{
public:
    virtual ~Sink();
    /// Handles one line. Called on the thread that logs, by several threads concurrently. Must not throw, block for
    /// long or call SetSink(). A line that Write() itself logs on the same thread is dropped, to prevent infinite
    /// recursion.
    virtual void Write(const Line& line) = 0;
};

/// Installs @p sink, or the default sink if @p sink is null. The caller keeps ownership. When this function returns, no
/// thread is inside the previous sink, which may then be destroyed. Thread-safe, but must not be called from inside a
/// sink.
///
/// The default sink passes lines to Qt's message logging with file, line and function. The category is the dotted name
/// of the context. Traffic becomes a debug message, State an info message, Warning and Failure a warning, Critical a
/// critical message. During process exit, when Qt's message logging may be gone, the default sink writes to stderr.
/// @return the previous sink; null for the default sink
CITP_SYSTEM_EXPORT Sink* SetSink(Sink* sink);

/// Sets the mask of a context. A context that does not exist yet gets the mask when it is created. Thread-safe.
/// @param name the dotted name of the context, e.g. "CITP.Stack.Traffic"; with the suffix ".*" the mask also applies to
///   all its descendants
/// @param mask the enabled levels
CITP_SYSTEM_EXPORT void SetMask(const std::string& name, unsigned mask);

/// Sets masks from @p text: comma-separated entries `name=mask` with a mask from 0 to 31. At start, the environment
/// variable OS_LOG_MASKS is applied in the same format. Thread-safe.
/// @return empty on success, else one line that names the first invalid entry; the entries before it have been applied
CITP_SYSTEM_EXPORT std::string SetMasks(const std::string& text);

/// A named source of log lines. Contexts form a tree: a line is written only if its level is enabled in the context and
/// in all its ancestors. A context must outlive its children. Contexts are usually function-local static objects.
class CITP_SYSTEM_EXPORT Context
{
public:
    /// @param name one element of the dotted name, e.g. "Stack"
    /// @param parent the parent context; null for a root
    /// @param mask the enabled levels; a mask for this name from SetMask(), SetMasks() or OS_LOG_MASKS has precedence
    explicit Context(const char* name, Context* parent = nullptr, unsigned mask = DefaultMask);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Whether a line of @p level would be written. Cheap: check it before building a line. Thread-safe.
    bool IsEnabled(unsigned level) const noexcept
    {
        for (const Context* context = this; context; context = context->m_parent) {
            if (!(context->m_mask.load(std::memory_order_relaxed) & level)) {
                return false;
            }
        }
        return true;
    }

    /// Passes a line to the sink if its level is enabled. Thread-safe.
    void Write(unsigned level, const text_base& text, const char* function, const char* file, int line,
               const CallStack& callStack) const;

    /// The dotted name, root first, e.g. "CITP.Stack.Traffic".
    const std::string& GetName() const noexcept { return m_name; }
    /// The levels enabled in this context itself, without regard to its ancestors. Thread-safe.
    unsigned GetMask() const noexcept { return m_mask.load(std::memory_order_relaxed); }
    /// Enables exactly the levels in @p mask. Thread-safe.
    void SetMask(unsigned mask) noexcept { m_mask.store(mask, std::memory_order_relaxed); }

private:
    // Refers to the registry, which is never destroyed: during process exit, another thread may still write to a
    // context whose static destructor has run.
    const std::string& m_name;
    Context* const m_parent;
    std::atomic<unsigned> m_mask;
};
} // namespace Log
} // namespace Os

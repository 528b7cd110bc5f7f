// Os::Log: named, nested log contexts with level masks, and the sink that their lines go to.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_thread.h>
#include <citp_system/system_export.h>
#include <citp_system/text_base.h>

#include <atomic>
#include <string>

namespace Os {
/// Log contexts, their masks, and the sink that lines go to.
namespace Log {
class Context;

/// The levels of a line; each is one bit of a context's mask.
enum Level : unsigned {
    Traffic = 1,  ///< what passes by: messages, connections; off unless asked for
    State = 2,    ///< changes of state
    Warning = 4,  ///< odd, but handled
    Failure = 8,  ///< something did not work
    Critical = 16 ///< something that cannot go on
};

/// The mask that contexts have unless told otherwise: every level but Traffic.
inline constexpr unsigned DefaultMask = State | Warning | Failure | Critical;

/// One line, as a sink gets it. Everything it refers to is valid only during Sink::Write.
struct CITP_SYSTEM_EXPORT Line
{
    const Context& context;     ///< where it was written
    unsigned level;             ///< its Level, one bit
    const text_base& text;      ///< what it says; bytes, UTF-8 or Latin-1 as the writer had it
    const char* function;       ///< the signature of the function that writes
    const char* file;           ///< its source file, by name
    int line;                   ///< the line in that file, from 1
    const CallStack& callStack; ///< who wrote it, the innermost caller first
};

/// Where log lines go. An application derives from it and installs its own with SetSink().
class CITP_SYSTEM_EXPORT Sink
{
public:
    virtual ~Sink();
    /// Takes one line. Called from whichever thread writes, several at a time; must not throw, must not block for long
    /// and must not call SetSink(). A line that is written from inside Write, on the same thread, is dropped: it would
    /// come back here without end.
    virtual void Write(const Line& line) = 0;
};

/// Installs @p sink, or the default one again when @p sink is null: it hands lines to Qt's message logging under the
/// category of the context's dotted name, with file, line and function; Traffic as debug, State as info, Warning and
/// Failure as warning, Critical as critical messages. The caller keeps ownership. When this returns, no thread is
/// inside the previous sink, so that one may be destroyed. Any thread, but never from inside a sink. While the process
/// exits, the default sink writes to stderr itself, since Qt's message logging may be gone.
/// @return the sink that was installed before; null for the default one
CITP_SYSTEM_EXPORT Sink* SetSink(Sink* sink);

/// Sets the mask of the context with the dotted name @p name, e.g. "CITP.Stack.Traffic"; with ".*" behind it, of that
/// context and everything below it. Contexts that do not exist yet take it when they are created. Any thread.
CITP_SYSTEM_EXPORT void SetMask(const std::string& name, unsigned mask);

/// Reads masks from @p text: entries `name=mask` with commas between them, where mask is a number from 0 to 31. At
/// start the same is done with the environment variable OS_LOG_MASKS.
/// @return an empty text, or one line that says which entry is wrong; the entries before it have then been applied
CITP_SYSTEM_EXPORT std::string SetMasks(const std::string& text);

/// A named source of log lines. Contexts form a tree: a line is written only if its level is enabled in the context and
/// in all its ancestors. A context must outlive its children; contexts are usually function-local statics.
class CITP_SYSTEM_EXPORT Context
{
public:
    /// @param name one element of the dotted name, e.g. "Stack"
    /// @param parent the context above, or null for a root
    /// @param mask the levels enabled, unless SetMask() or the environment has said otherwise for this name
    explicit Context(const char* name, Context* parent = nullptr, unsigned mask = DefaultMask);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Whether a line of @p level would be written. A few loads; ask before building a line. Any thread.
    bool IsEnabled(unsigned level) const noexcept
    {
        for (const Context* context = this; context; context = context->m_parent) {
            if (!(context->m_mask.load(std::memory_order_relaxed) & level)) {
                return false;
            }
        }
        return true;
    }

    /// Hands a line to the sink if its level is enabled. Any thread.
    void Write(unsigned level, const text_base& text, const char* function, const char* file, int line,
               const CallStack& callStack) const;

    /// The dotted name from the root down, e.g. "CITP.Stack.Traffic".
    const std::string& GetName() const noexcept { return m_name; }
    /// The levels enabled in this context alone, whatever its ancestors say. Any thread.
    unsigned GetMask() const noexcept { return m_mask.load(std::memory_order_relaxed); }
    /// Enables exactly the levels in @p mask. Any thread.
    void SetMask(unsigned mask) noexcept { m_mask.store(mask, std::memory_order_relaxed); }

private:
    // In the registry, which is never destroyed: a thread that is still running while the process exits may write to a
    // context whose static destructor has run.
    const std::string& m_name;
    Context* const m_parent;
    std::atomic<unsigned> m_mask;
};
} // namespace Log
} // namespace Os

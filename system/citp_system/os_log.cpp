// Os::Log: the registry of contexts and masks, the installed sink, and the default sinks.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <QDebug>
#include <QLoggingCategory>
#include <QMessageLogger>
#include <QString>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace Os {
namespace Log {
namespace {

constexpr unsigned allLevels = Traffic | State | Warning | Failure | Critical;
constexpr std::string_view subtreeSuffix = ".*";

bool matches(std::string_view pattern, std::string_view name)
{
    if (pattern == name) {
        return true;
    }
    if (pattern.size() < subtreeSuffix.size() ||
        pattern.substr(pattern.size() - subtreeSuffix.size()) != subtreeSuffix) {
        return false;
    }
    const std::string_view root = pattern.substr(0, pattern.size() - subtreeSuffix.size());
    return name == root ||
           (name.size() > root.size() && name.substr(0, root.size()) == root && name[root.size()] == '.');
}

// All contexts and masks of the process. Never destroyed: contexts are static objects that are destroyed in any order,
// and threads may still write during process exit.
class Registry
{
public:
    static Registry& get()
    {
        static auto* const registry = new Registry;
        return *registry;
    }

    // Returns a copy of the name that is never destroyed.
    const std::string& internName(std::string name)
    {
        const std::lock_guard lock(m_mutex);
        return m_names.try_emplace(std::move(name)).first->first;
    }

    void add(Context* context)
    {
        const std::lock_guard lock(m_mutex);
        m_contexts.push_back(context);
        for (const auto& [pattern, mask] : m_masks) {
            if (matches(pattern, context->GetName())) {
                context->SetMask(mask);
            }
        }
    }

    void remove(Context* context)
    {
        std::unique_lock lock(m_mutex, std::defer_lock);
        if (!isInForkedChild()) {
            lock.lock();
        } else if (!lock.try_lock()) {
            return; // locked at the fork by a thread that does not exist in the child
        }
        m_contexts.erase(std::remove(m_contexts.begin(), m_contexts.end(), context), m_contexts.end());
    }

    void setMask(const std::string& pattern, unsigned mask)
    {
        const std::lock_guard lock(m_mutex);
        m_masks.erase(
            std::remove_if(m_masks.begin(), m_masks.end(), [&](const auto& entry) { return entry.first == pattern; }),
            m_masks.end());
        m_masks.emplace_back(pattern, mask);
        for (Context* context : m_contexts) {
            if (matches(pattern, context->GetName())) {
                context->SetMask(mask);
            }
        }
    }

    std::string setMasks(std::string_view text)
    {
        while (!text.empty()) {
            const std::string_view entry = text.substr(0, text.find(','));
            const std::size_t equals = entry.rfind('=');
            unsigned mask = 0;
            const char* const end = entry.data() + entry.size();
            const auto parsed = equals == std::string_view::npos
                                    ? std::from_chars_result{entry.data(), std::errc::invalid_argument}
                                    : std::from_chars(entry.data() + equals + 1, end, mask);
            if (equals == 0 || parsed.ec != std::errc() || parsed.ptr != end || mask > allLevels) {
                return "'" + std::string(entry) + "' is not NAME=MASK with a mask from 0 to 31";
            }
            setMask(std::string(entry.substr(0, equals)), mask);
            text.remove_prefix(std::min(text.size(), entry.size() + 1));
        }
        return {};
    }

    // The error in OS_LOG_MASKS, returned once; empty if there was none.
    std::string takeEnvironmentError()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_environmentError, {});
    }

    // The category with the name of a context. Created for its first line, because most contexts never write to Qt.
    const QLoggingCategory& category(const std::string& name)
    {
        std::unique_lock lock(m_mutex);
        std::unique_ptr<QLoggingCategory>& category = m_names[name];
        if (!category) {
            // Created without the lock: this runs the application's category filter, which may log.
            lock.unlock();
            auto made = std::make_unique<QLoggingCategory>(name.c_str());
            lock.lock();
            if (!category) {
                category = std::move(made);
            }
        }
        return *category;
    }

    Sink* exchangeSink(Sink* sink)
    {
        // The turnstile stops new writers while this thread waits; otherwise a busy log could starve it.
        const std::lock_guard turnstile(m_sinkTurnstile);
        const std::lock_guard lock(m_sinkMutex);
        return std::exchange(m_sink, sink);
    }

    void write(const Line& line);
    // Makes the default sink write to stderr: Qt's static objects are destroyed during process exit.
    void stopUsingQt();

private:
    Registry();
    bool isInForkedChild() const { return getpid() != m_process; }

    const pid_t m_process = getpid();

    // Protects the members up to the sink's mutexes. While it is held, no foreign code runs and no lock is taken.
    std::mutex m_mutex;
    std::map<std::string, std::unique_ptr<QLoggingCategory>> m_names;
    std::vector<Context*> m_contexts;
    std::vector<std::pair<std::string, unsigned>> m_masks; // later entries have precedence
    std::string m_environmentError;

    std::mutex m_sinkTurnstile;    // locked before m_sinkMutex
    std::shared_mutex m_sinkMutex; // locked shared during Sink::Write(), exclusively to change m_sink
    Sink* m_sink = nullptr;
    const std::unique_ptr<Sink> m_qtSink;
    const std::unique_ptr<Sink> m_stderrSink;
    std::atomic<Sink*> m_defaultSink;
};

// Passes lines to Qt's message logging, so that they appear together with those of the application.
class QtSink : public Sink
{
public:
    void Write(const Line& line) override
    {
        const QLoggingCategory& category = Registry::get().category(line.context.GetName());
        const QMessageLogger logger(line.file, line.line, line.function, category.categoryName());
        // Not the printf form, which would end at a zero byte.
        const QString text = QString::fromUtf8(line.text.c_str(), static_cast<int>(line.text.length()));
        if (line.level >= Critical) {
            if (category.isCriticalEnabled()) {
                logger.critical().nospace().noquote() << text;
            }
        } else if (line.level >= Warning) {
            if (category.isWarningEnabled()) {
                logger.warning().nospace().noquote() << text;
            }
        } else if (line.level >= State) {
            if (category.isInfoEnabled()) {
                logger.info().nospace().noquote() << text;
            }
        } else if (category.isDebugEnabled()) {
            logger.debug().nospace().noquote() << text;
        }
    }
};

// The default sink when Qt's message logging may be gone.
class StderrSink : public Sink
{
public:
    void Write(const Line& line) override
    {
        std::fprintf(stderr, "%s: %s\n", line.context.GetName().c_str(), line.text.c_str());
    }
};

// Whether this thread is inside a sink.
thread_local bool insideSink = false;

// Stops the use of Qt during process exit, before Qt's static objects are destroyed. The constructor creates those
// first, so that they are destroyed later.
class QtExitGuard
{
public:
    QtExitGuard()
    {
        const QLoggingCategory category("");
        qFormatLogMessage(QtDebugMsg, QMessageLogContext(), QString());
    }
    ~QtExitGuard() { Registry::get().stopUsingQt(); }
};

Registry::Registry() : m_qtSink(new QtSink), m_stderrSink(new StderrSink), m_defaultSink(m_qtSink.get())
{
    if (const char* masks = std::getenv("OS_LOG_MASKS")) {
        m_environmentError = setMasks(masks);
    }
}

void Registry::stopUsingQt()
{
    // A sink may have called exit(); its thread already holds the lock. A forked child has no other writers, but may
    // have inherited the lock of one.
    if (insideSink || isInForkedChild()) {
        m_defaultSink = m_stderrSink.get();
        return;
    }
    const std::lock_guard turnstile(m_sinkTurnstile);
    const std::lock_guard lock(m_sinkMutex);
    m_defaultSink = m_stderrSink.get();
}

void Registry::write(const Line& line)
{
    if (insideSink) {
        return;
    }
    insideSink = true;
    {
        static const QtExitGuard qtExitGuard;
        std::unique_lock turnstile(m_sinkTurnstile);
        const std::shared_lock lock(m_sinkMutex);
        turnstile.unlock();
        Sink* const sink = m_sink ? m_sink : m_defaultSink.load();
        sink->Write(line);
    }
    insideSink = false;
}

} // namespace

Sink::~Sink() = default;

Sink* SetSink(Sink* sink)
{
    return Registry::get().exchangeSink(sink);
}

void SetMask(const std::string& name, unsigned mask)
{
    Registry::get().setMask(name, mask);
}

std::string SetMasks(const std::string& text)
{
    return Registry::get().setMasks(text);
}

Context::Context(const char* name, Context* parent, unsigned mask)
    : m_name(Registry::get().internName(parent ? parent->GetName() + '.' + name : std::string(name))),
      m_parent(parent),
      m_mask(mask)
{
    Registry::get().add(this);
    const std::string error = Registry::get().takeEnvironmentError();
    if (!error.empty()) {
        qWarning("OS_LOG_MASKS: %s", error.c_str());
    }
}

Context::~Context()
{
    Registry::get().remove(this);
}

void Context::Write(unsigned level, const text_base& text, const char* function, const char* file, int line,
                    const CallStack& callStack) const
{
    if (IsEnabled(level)) {
        Registry::get().write(Line{*this, level, text, function, file, line, callStack});
    }
}

} // namespace Log
} // namespace Os

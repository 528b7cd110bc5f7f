// MessageLogCapture: a log sink that keeps the lines written while it lives, for tests that expect or forbid some.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>

#include <mutex>
#include <string>
#include <vector>

/// Takes the place of the installed sink for its lifetime.
class MessageLogCapture : public Os::Log::Sink
{
public:
    struct Entry
    {
        std::string context;
        unsigned mask; // of the context
        unsigned level;
        std::string text;
        std::string function;
        std::string file;
        int line;
        int callStackDepth;
    };

    MessageLogCapture() : m_previous(Os::Log::SetSink(this)) {}
    ~MessageLogCapture() override { Os::Log::SetSink(m_previous); }

    void Write(const Os::Log::Line& line) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.push_back({line.context.GetName(), line.context.GetMask(), line.level, line.text.c_str(),
                             line.function, line.file, line.line, line.callStack.GetDepth()});
    }

    /// The lines so far, in the order in which they were written.
    std::vector<Entry> entries() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }

    /// The texts of the lines so far, which are then forgotten.
    std::vector<std::string> takeTexts()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> texts;
        for (const Entry& entry : m_entries)
            texts.push_back(entry.text);
        m_entries.clear();
        return texts;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
    Os::Log::Sink* const m_previous;
};

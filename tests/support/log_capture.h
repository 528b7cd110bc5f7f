// LogCapture: a log sink that keeps the lines. Tests expect or forbid some of them.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>

#include <mutex>
#include <string>
#include <vector>

/// Replaces the installed sink for its lifetime.
class LogCapture : public Os::Log::Sink
{
public:
    struct Entry
    {
        std::string context;
        unsigned mask; ///< of the context
        unsigned level;
        std::string text;
        std::string function;
        std::string file;
        int line;
        int callStackDepth;
    };

    LogCapture() : m_previous(Os::Log::SetSink(this)) {}
    ~LogCapture() override { Os::Log::SetSink(m_previous); }
    /// The process's capture, installed at the first call. Never destroyed: the stack's thread outlives main().
    static LogCapture& get();

    void Write(const Os::Log::Line& line) override;

    /// Announces one line of level 8 or 16 with exactly this text. It must come.
    void expectFailureLine(const std::string& text);
    /// Announces any number of lines of level 8 or 16 with exactly this text, none included.
    void allowFailureLines(const std::string& text);
    /// The failure lines that were not announced and the announced ones that did not come, as a text; empty if there
    /// are none.
    std::string verdict() const;

    /// The lines since the last clear(), oldest first.
    std::vector<Entry> entries() const;
    /// The texts of those lines that @p context wrote.
    std::vector<std::string> texts(const std::string& context = "CITP.Stack") const;
    int count(const std::string& text) const;
    /// The texts of all lines since the last clear(), which are cleared.
    std::vector<std::string> takeTexts();
    void clear();

private:
    mutable std::mutex m_mutex; // guards what follows
    std::vector<Entry> m_entries;
    std::vector<std::string> m_expected;
    std::vector<std::string> m_allowed;
    std::vector<std::string> m_unannounced;
    Os::Log::Sink* const m_previous;
};

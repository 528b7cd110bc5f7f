// LogCapture: the log sink of the tests. A failure line that the test did not announce fails the test.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>

#include <mutex>
#include <string>
#include <vector>

class LogCapture : public Os::Log::Sink
{
public:
    struct Captured
    {
        std::string context;
        unsigned level;
        std::string text;
        std::string function;
        std::string file;
        int line;
        int depth; ///< frames of the call stack
    };

    /// The process's capture, installed at the first call. Never destroyed: the stack's thread outlives main().
    static LogCapture& get();

    void Write(const Os::Log::Line& line) override;

    /// Announces one line of level 8 or 16 with exactly this text. It must come.
    void expectFailureLine(const std::string& text);
    /// Announces any number of lines of level 8 or 16 with exactly this text, none included.
    void allowFailureLines(const std::string& text);

    /// What has been captured since clear(), oldest first.
    std::vector<Captured> lines() const;
    /// The texts of those lines that @p context wrote.
    std::vector<std::string> texts(const std::string& context = "CITP.Stack") const;
    int count(const std::string& text) const;

    /// What is wrong: failure lines that were not announced, and announced ones that did not come. Empty if all is
    /// well.
    std::string verdict() const;
    void clear();

private:
    mutable std::mutex m_mutex; // guards what follows
    std::vector<Captured> m_lines;
    std::vector<std::string> m_expected;
    std::vector<std::string> m_allowed;
    std::vector<std::string> m_unannounced;
};

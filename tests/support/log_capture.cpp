// LogCapture: keeps the lines and compares the failure lines with those announced.
// SPDX-License-Identifier: Apache-2.0
#include "log_capture.h"

#include <algorithm>
#include <map>

LogCapture& LogCapture::get()
{
    static LogCapture* const capture = new LogCapture;
    return *capture;
}

void LogCapture::Write(const Os::Log::Line& line)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::string text(line.text.c_str(), line.text.length());
    m_entries.push_back({line.context.GetName(), line.context.GetMask(), line.level, text, line.function, line.file,
                         line.line, line.callStack.GetDepth()});
    if (!(line.level & (Os::Log::Failure | Os::Log::Critical))) {
        return;
    }
    const auto expected = std::find(m_expected.begin(), m_expected.end(), text);
    if (expected != m_expected.end()) {
        m_expected.erase(expected);
    } else if (std::find(m_allowed.begin(), m_allowed.end(), text) == m_allowed.end()) {
        m_unannounced.push_back(text);
    }
}

void LogCapture::expectFailureLine(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_expected.push_back(text);
}

void LogCapture::allowFailureLines(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_allowed.push_back(text);
}

std::vector<LogCapture::Entry> LogCapture::entries() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

std::vector<std::string> LogCapture::texts(const std::string& context) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> found;
    for (const Entry& line : m_entries) {
        if (line.context == context) {
            found.push_back(line.text);
        }
    }
    return found;
}

int LogCapture::count(const std::string& text) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(
        std::count_if(m_entries.begin(), m_entries.end(), [&text](const Entry& line) { return line.text == text; }));
}

std::string LogCapture::verdict() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string problems;
    std::map<std::string, int> unannounced;
    for (const std::string& text : m_unannounced) {
        ++unannounced[text];
    }
    for (const auto& [text, count] : unannounced) {
        problems += "failure line that was not announced, " + std::to_string(count) + " times: " + text + "\n";
    }
    for (const std::string& text : m_expected) {
        problems += "announced failure line that did not come: " + text + "\n";
    }
    return problems;
}

std::vector<std::string> LogCapture::takeTexts()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> texts;
    for (const Entry& entry : m_entries) {
        texts.push_back(entry.text);
    }
    m_entries.clear();
    return texts;
}

void LogCapture::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
    m_expected.clear();
    m_allowed.clear();
    m_unannounced.clear();
}

// The log handler and the counts of equal lines.
// SPDX-License-Identifier: Apache-2.0
#include "log_lines.h"

#include <citp_system/os_log.h>

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <mutex>

#include "printing.h"

namespace Console {
namespace {
constexpr qint64 RepeatMs = 1000;
constexpr int MaxCounts = 256;

QString withCount(const QString& line, qint64 repeated)
{
    return QString("%1 (%2 more)").arg(line, QString::number(repeated));
}

// Shared by all threads that log. Never destroyed: the stack's thread may still log while the process ends.
struct LogOutput
{
    LogOutput() { clock.start(); }

    void print(const QStringList& lines)
    {
        for (const QString& line : lines)
            printError(timeOfDay() + ' ' + escapeControls(line) + '\n');
    }

    std::mutex mutex;
    RepeatFilter filter;
    QElapsedTimer clock;
    bool isEnded = false;
};

LogOutput& logOutput()
{
    static auto* const output = new LogOutput;
    return *output;
}

bool isQtLogEnabled(QtMsgType type)
{
    static const Os::Log::Context qt("Qt", nullptr, 0);
    switch (type) {
        case QtDebugMsg:
            return qt.IsEnabled(Os::Log::Traffic);
        case QtInfoMsg:
            return qt.IsEnabled(Os::Log::State);
        case QtWarningMsg:
            return qt.IsEnabled(Os::Log::Warning);
        case QtCriticalMsg:
            return qt.IsEnabled(Os::Log::Failure);
        case QtFatalMsg:
            break;
    }
    return true;
}

void handleMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const QString category(context.category);
    const bool isQt = category == QLatin1String("default") || category.startsWith(QLatin1String("qt."));
    if (isQt && !isQtLogEnabled(type))
        return;
    LogOutput& output = logOutput();
    const std::lock_guard<std::mutex> lock(output.mutex);
    if (!output.isEnded)
        output.print(output.filter.add(category + ": " + text, output.clock.elapsed()));
}
} // namespace

QStringList RepeatFilter::add(const QString& line, qint64 nowMs)
{
    QStringList lines = flush(nowMs);
    const auto known = m_counts.find(line);
    if (known != m_counts.end()) {
        ++known->repeated;
        return lines;
    }
    if (m_counts.isEmpty())
        m_dueMs = nowMs + RepeatMs;
    if (m_counts.size() < MaxCounts)
        m_counts.insert(line, {nowMs, 0});
    return lines << line;
}

QStringList RepeatFilter::flush(qint64 nowMs, bool isEnd)
{
    QStringList lines;
    if (nowMs < m_dueMs && !isEnd)
        return lines;
    m_dueMs = nowMs + RepeatMs;
    for (auto count = m_counts.begin(); count != m_counts.end();) {
        if (nowMs - count->sinceMs < RepeatMs && !isEnd) {
            m_dueMs = qMin(m_dueMs, count->sinceMs + RepeatMs);
            ++count;
        } else if (count->repeated == 0) {
            count = m_counts.erase(count);
        } else {
            // The count is a line of its own, so the next second begins with it.
            lines << withCount(count.key(), count->repeated);
            *count = {nowMs, 0};
            ++count;
        }
    }
    return lines;
}

void installLogHandler()
{
    isQtLogEnabled(QtDebugMsg); // creates the context, so that --log knows it
    qInstallMessageHandler(handleMessage);
}

void flushLog()
{
    LogOutput& output = logOutput();
    const std::lock_guard<std::mutex> lock(output.mutex);
    output.print(output.filter.flush(output.clock.elapsed()));
}

void endLog()
{
    LogOutput& output = logOutput();
    const std::lock_guard<std::mutex> lock(output.mutex);
    output.print(output.filter.flush(output.clock.elapsed(), true));
    output.isEnded = true;
}
} // namespace Console

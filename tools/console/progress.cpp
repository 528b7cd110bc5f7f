// The progress bar and the lines for output to a file.
// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

#include <unistd.h>

#include "printing.h"

namespace Console {
namespace {
constexpr int BarWidth = 30;
constexpr int TerminalUpdateMs = 100;
constexpr int FileUpdateMs = 2000;

QString duration(qint64 milliseconds)
{
    const qint64 seconds = (milliseconds + 999) / 1000;
    if (seconds < 60)
        return QString("%1 s").arg(seconds);
    return QString("%1 min %2 s").arg(seconds / 60).arg(seconds % 60);
}
} // namespace

Progress::Progress(int total) : m_total(total), m_isTerminal(isatty(STDERR_FILENO) != 0)
{
    m_running.start();
    if (!m_isTerminal)
        m_sinceShown.start();
}

Progress::~Progress()
{
    if (m_isTerminal && m_shown >= 0)
        printError("\n");
}

QString Progress::numbers(int done) const
{
    const qint64 elapsed = m_running.elapsed();
    const double rate = elapsed > 0 ? 1000.0 * done / static_cast<double>(elapsed) : 0;
    QString text = QString("%1 of %2 thumbnails, %3 a second").arg(done).arg(m_total).arg(rate, 0, 'f', 1);
    if (done > 0 && done < m_total)
        text += QString(", %1 left").arg(duration(elapsed * (m_total - done) / done));
    else if (done == m_total)
        text += QString(", took %1").arg(duration(elapsed));
    return text;
}

void Progress::show(int done)
{
    const bool isDue =
        !m_sinceShown.isValid() || m_sinceShown.elapsed() >= (m_isTerminal ? TerminalUpdateMs : FileUpdateMs);
    if (done == m_shown || !(isDue || done == m_total))
        return;
    m_shown = done;
    m_sinceShown.start();
    if (m_isTerminal) {
        const int filled = m_total > 0 ? BarWidth * done / m_total : BarWidth;
        const QString bar = QString(filled, '#') + QString(BarWidth - filled, '.');
        printError(QString("\r[%1] %2\x1b[K").arg(bar, numbers(done)));
    } else {
        printError(numbers(done) + '\n');
    }
}
} // namespace Console

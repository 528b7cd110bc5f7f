// Formatting and output of log lines.
// SPDX-License-Identifier: Apache-2.0
#include "event_log.h"

#include <poll.h>
#include <unistd.h>
#include <QTime>
#include <cstdio>
#include <utility>

namespace MediaServer {
namespace {
// How long the first line waits for a reader that is slow.
constexpr int PatienceMs = 200;
// A pipe that is writable takes a page without blocking. A character takes at most six bytes, escaped or not.
constexpr int MaxCharacters = 600;
} // namespace

QString escapeControls(const QString& text)
{
    QString escaped;
    for (const QChar c : text) {
        const bool isKept = c.isPrint() && c != QChar('\\');
        escaped += isKept ? QString(c) : QString("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
    }
    return escaped;
}

void EventLog::line(const QString& server, const QString& text) const
{
    if (m_quiet)
        return;
    if (!isWritable()) {
        ++m_dropped;
        return;
    }
    if (m_dropped > 0) {
        const quint64 dropped = std::exchange(m_dropped, 0);
        line({}, QString("%1 lines are missing here, because nobody has read them").arg(dropped));
    }
    const auto shortened = [](const QString& whole, int length) {
        return escapeControls(whole.size() > length ? whole.left(length) + "..." : whole);
    };
    const QString name = server.isEmpty() ? QString("-") : shortened(server, MaxCharacters / 6);
    const QString line = QTime::currentTime().toString("HH:mm:ss.zzz") + "  " + name + "  " +
                         shortened(text, MaxCharacters - MaxCharacters / 6) + '\n';
    std::fputs(line.toUtf8().constData(), stdout);
    std::fflush(stdout);
}

bool EventLog::isWritable() const
{
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return poll(&output, 1, m_dropped == 0 ? PatienceMs : 0) != 0;
}
} // namespace MediaServer

// Formatting and output of log lines.
// SPDX-License-Identifier: Apache-2.0
#include "event_log.h"

#include <QTime>
#include <cstdio>

namespace MediaServer {
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
    const QString name = server.isEmpty() ? QString("-") : escapeControls(server);
    const QString line =
        QTime::currentTime().toString("HH:mm:ss.zzz") + "  " + name + "  " + escapeControls(text) + '\n';
    std::fputs(line.toUtf8().constData(), stdout);
    std::fflush(stdout);
}
} // namespace MediaServer

// Formatting and flushing of the report's lines.
// SPDX-License-Identifier: Apache-2.0
#include "event_log.h"

#include <QTime>
#include <cstdio>

namespace MediaServer {
QString printable(const QString& text)
{
    QString safe;
    for (const QChar c : text) {
        const bool plain = c.isPrint() && c != QChar('\\');
        safe += plain ? QString(c) : QString("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
    }
    return safe;
}

void EventLog::line(const QString& server, const QString& text) const
{
    if (m_quiet)
        return;
    const QString who = server.isEmpty() ? QString("-") : printable(server);
    const QString whole = QTime::currentTime().toString("HH:mm:ss.zzz") + "  " + who + "  " + printable(text) + '\n';
    std::fputs(whole.toUtf8().constData(), stdout);
    std::fflush(stdout);
}
} // namespace MediaServer

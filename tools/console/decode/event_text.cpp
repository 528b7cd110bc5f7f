// Formatting of events and their times.
// SPDX-License-Identifier: Apache-2.0
#include "event_text.h"

#include <QDateTime>
#include <QStringList>

#include "printing.h"

namespace Console {
namespace {
QDateTime dateTime(qint64 timeUs)
{
    return QDateTime::fromMSecsSinceEpoch(timeUs / 1000);
}

QString kindText(StreamItem::Kind kind)
{
    switch (kind) {
        case StreamItem::Kind::Message:
            return "message";
        case StreamItem::Kind::Gap:
            return "gap";
        case StreamItem::Kind::Error:
            return "error";
        case StreamItem::Kind::Note:
            break;
    }
    return "note";
}

// Text from the network may contain line feeds. Continuation lines are indented, so that they cannot imitate the lines
// of this program. The lines of the library may begin with tabs.
QString indented(const QString& text)
{
    QStringList lines = text.split('\n');
    for (QString& line : lines)
        line = escapeControls(line.replace('\t', "  "));
    return lines.join("\n    ");
}
} // namespace

QString localTime(qint64 timeUs)
{
    return dateTime(timeUs).toString("HH:mm:ss.zzz");
}

QString localDateAndTime(qint64 timeUs)
{
    return dateTime(timeUs).toString("yyyy-MM-dd HH:mm:ss.zzz");
}

QString localDate(qint64 timeUs)
{
    const QDateTime local = dateTime(timeUs);
    const QString offset = local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODate).mid(19);
    return local.toString("yyyy-MM-dd") + ", UTC" + (offset == QLatin1String("Z") ? QString() : offset);
}

QString utcTime(qint64 timeUs)
{
    return dateTime(timeUs).toUTC().toString(Qt::ISODateWithMs);
}

QString directionText(Event::Direction direction)
{
    switch (direction) {
        case Event::Direction::FromServer:
            return "from server";
        case Event::Direction::ToServer:
            return "to server";
        case Event::Direction::Discovery:
            break;
    }
    return "discovery";
}

QString toText(const Event& event)
{
    const QString ends = QString("%1  %2 -> %3").arg(localTime(event.timeUs), toText(event.from), toText(event.to));
    if (event.kind != StreamItem::Kind::Message)
        return QString("%1  %2: %3").arg(ends, kindText(event.kind).toUpper(), escapeControls(event.text));
    const QString problem =
        event.problem.isEmpty() ? QString() : QString("  WRONG: %1").arg(escapeControls(event.problem));
    return QString("%1  %2 %3 %4 bytes%5  %6")
        .arg(ends, escapeControls(event.layer), escapeControls(event.code), QString::number(event.message.size()),
             problem, indented(event.text));
}

QJsonObject toJson(const Event& event)
{
    QJsonObject object{{"time", utcTime(event.timeUs)},
                       {"event", kindText(event.kind)},
                       {"from", toText(event.from)},
                       {"to", toText(event.to)},
                       {"server", event.server},
                       {"direction", directionText(event.direction)},
                       {"text", event.text}};
    if (event.kind == StreamItem::Kind::Message) {
        object.insert("layer", event.layer);
        object.insert("code", event.code);
        object.insert("size", static_cast<qint64>(event.message.size()));
        if (!event.problem.isEmpty())
            object.insert("problem", event.problem);
    } else if (event.kind == StreamItem::Kind::Gap && event.missing >= 0) {
        object.insert("missing", event.missing);
    }
    return object;
}
} // namespace Console

// Writing of events.
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

QString kindText(Cut::Kind kind)
{
    switch (kind) {
        case Cut::Kind::Message:
            return "message";
        case Cut::Kind::Gap:
            return "gap";
        case Cut::Kind::Error:
            return "error";
        case Cut::Kind::Note:
            break;
    }
    return "note";
}

// A text from the network may hold line feeds; indented, they cannot pass for a line of this program's. The library's
// own lines may begin with tabs.
QString indented(const QString& text)
{
    QStringList lines = text.split('\n');
    for (QString& line : lines)
        line = harmless(line.replace('\t', "  "));
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
    if (event.kind != Cut::Kind::Message)
        return QString("%1  %2: %3").arg(ends, kindText(event.kind).toUpper(), harmless(event.text));
    const QString problem = event.problem.isEmpty() ? QString() : QString("  WRONG: %1").arg(harmless(event.problem));
    return QString("%1  %2 %3 %4 bytes%5  %6")
        .arg(ends, harmless(event.layer), harmless(event.code), QString::number(event.message.size()), problem,
             indented(event.text));
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
    if (event.kind == Cut::Kind::Message) {
        object.insert("layer", event.layer);
        object.insert("code", event.code);
        object.insert("size", static_cast<qint64>(event.message.size()));
        if (!event.problem.isEmpty())
            object.insert("problem", event.problem);
    } else if (event.kind == Cut::Kind::Gap && event.missing >= 0) {
        object.insert("missing", event.missing);
    }
    return object;
}
} // namespace Console

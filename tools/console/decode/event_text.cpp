// Formatting of events and their times.
// SPDX-License-Identifier: Apache-2.0
#include "event_text.h"

#include <QDateTime>
#include <QStringList>

#include "message_fields.h"
#include "printing.h"

namespace Console {
namespace {
// The longest key, and the longest code or mark.
constexpr int KeyWidth = 21;
constexpr int CodeWidth = 5;

QDateTime dateTime(qint64 timeUs)
{
    return QDateTime::fromMSecsSinceEpoch(timeUs / 1000);
}

QJsonObject fieldsIn(const Event& event)
{
    return event.isUnreadable ? bodyOf(event.message) : fieldsOf(event.message);
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

QString kindText(Tools::StreamItem::Kind kind)
{
    switch (kind) {
        case Tools::StreamItem::Kind::Message:
            return "message";
        case Tools::StreamItem::Kind::Gap:
            return "gap";
        case Tools::StreamItem::Kind::Error:
            return "error";
        case Tools::StreamItem::Kind::Note:
            break;
    }
    return "note";
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

QString toLine(const Event& event)
{
    const auto arrow = [&event] {
        switch (event.direction) {
            case Event::Direction::FromServer:
                return "<-";
            case Event::Direction::ToServer:
                return "->";
            case Event::Direction::Discovery:
                break;
        }
        return "* ";
    };
    const bool isMessage = event.kind == Tools::StreamItem::Kind::Message;
    QString what = isMessage ? (event.code.isEmpty() ? event.layer : event.code) : kindText(event.kind).toUpper();
    QString matter = isMessage ? gistOf(event.code, fieldsIn(event)) : event.text;
    if (!event.problem.isEmpty())
        matter = QString("WRONG: %1  %2").arg(event.problem, matter);
    return QString("%1  %2  %3  %4  %5")
        .arg(localTime(event.timeUs), QLatin1String(arrow()), event.server.leftJustified(KeyWidth),
             escapeControls(what).leftJustified(CodeWidth), escapeControls(matter));
}

QString toText(const Event& event)
{
    const QString ends = QString("%1  %2 -> %3").arg(localTime(event.timeUs), toText(event.from), toText(event.to));
    if (event.kind != Tools::StreamItem::Kind::Message)
        return QString("%1  %2: %3").arg(ends, kindText(event.kind).toUpper(), escapeControls(event.text));
    const QString problem =
        event.problem.isEmpty() ? QString() : QString("  WRONG: %1").arg(escapeControls(event.problem));
    return QString("%1  %2 %3 %4 bytes%5  %6")
        .arg(ends, escapeControls(event.layer), escapeControls(event.code), QString::number(event.message.size()),
             problem, indented(event.text));
}

QJsonObject toJson(const Event& event)
{
    QJsonObject object{{"record", kindText(event.kind)}, {"time", isoTime(event.timeUs / 1000)},
                       {"from", toText(event.from)},     {"to", toText(event.to)},
                       {"server", event.server},         {"direction", directionText(event.direction)}};
    if (event.kind != Tools::StreamItem::Kind::Message)
        object.insert("text", event.text);
    if (event.kind == Tools::StreamItem::Kind::Message) {
        object.insert("layer", event.layer);
        object.insert("code", event.code);
        object.insert("size", static_cast<qint64>(event.message.size()));
        object.insert("fields", fieldsIn(event));
        if (!event.problem.isEmpty())
            object.insert("problem", event.problem);
    } else if (event.kind == Tools::StreamItem::Kind::Gap && event.missing >= 0) {
        object.insert("missing", event.missing);
    }
    return object;
}
} // namespace Console

// The command "elements": lists the elements of a library.
// SPDX-License-Identifier: Apache-2.0
#include <QDateTime>
#include <QJsonArray>

#include "commands.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
using CITP::Element;
using Kind = CITP::ElementKind;

// Most servers send seconds since 1970. A number outside a plausible range is printed unchanged.
QString timeText(quint64 timestamp)
{
    constexpr quint64 Year1980 = 315532800;
    constexpr quint64 Year2100 = 4102444800;
    if (timestamp < Year1980 || timestamp >= Year2100)
        return QString::number(timestamp);
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(timestamp)).toUTC().toString("yyyy-MM-dd HH:mm:ss");
}

void printAsJson(const Session& session, const QString& library, Kind kind, const Element& element)
{
    QJsonObject object{{"server", session.key()},
                       {"library", library},
                       {"element", element.number},
                       {"name", element.name},
                       {"dmxMin", element.dmxMin},
                       {"dmxMax", element.dmxMax},
                       {"serial", static_cast<double>(element.serialNumber)}};
    // A string, because a JSON number is exact only up to 53 bits.
    if (kind != Kind::Effects)
        object.insert("timestamp", QString::number(element.timestamp));
    if (kind == Kind::Effects)
        object.insert("parameters", QJsonArray::fromStringList(element.parameters));
    if (kind == Kind::Media) {
        object.insert("width", element.width);
        object.insert("height", element.height);
        object.insert("length", static_cast<double>(element.length));
        object.insert("frameRate", element.frameRate);
    }
    printJson(object);
}

QStringList titles(Kind kind)
{
    QStringList titles{" #", " DMX"};
    if (kind == Kind::Media)
        titles << " SIZE"
               << " FRAMES"
               << " FPS";
    if (kind != Kind::Effects)
        titles << "TIME (UTC)";
    return titles << (kind == Kind::Effects ? "NAME (PARAMETERS)" : "NAME");
}

QStringList row(Kind kind, const Element& element)
{
    QStringList row{QString::number(element.number), QString("%1-%2").arg(element.dmxMin).arg(element.dmxMax)};
    if (kind == Kind::Media)
        row << QString("%1x%2").arg(element.width).arg(element.height) << QString::number(element.length)
            << QString::number(element.frameRate);
    if (kind != Kind::Effects)
        row << timeText(element.timestamp);
    if (element.parameters.isEmpty())
        return row << element.name;
    return row << QString("%1 (%2)").arg(element.name, element.parameters.join(", "));
}
} // namespace

int listElements(const Options& options)
{
    Session session(options);
    const auto type = static_cast<quint8>(options.type);
    const QString library = session.loadElements(type, options.library);
    const std::vector<Element>& elements = session.catalogue().elements(type, library);
    const Kind kind = CITP::elementKind(type);
    if (options.json) {
        for (const Element& element : elements)
            printAsJson(session, library, kind, element);
        return 0;
    }
    printLine(QString("%1: %2 elements in library %3 of type %4")
                  .arg(session.name(), QString::number(elements.size()), library, QString::number(options.type)));
    if (elements.empty())
        return 0;
    Table table(titles(kind));
    for (const Element& element : elements)
        table.add(row(kind, element));
    table.print();
    return 0;
}
} // namespace Console

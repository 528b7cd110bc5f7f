// The command "elements": lists the elements of a library.
// SPDX-License-Identifier: Apache-2.0
#include <QDateTime>

#include "commands.h"
#include "printing.h"
#include "session.h"
#include "table.h"
#include "value_json.h"

namespace Console {
namespace {
using CITP::Element;
using CITP::ElementKind;

// Most servers send seconds since 1970. A number outside a plausible range is printed unchanged.
QString timeText(quint64 timestamp)
{
    constexpr quint64 Year1980 = 315532800;
    constexpr quint64 Year2100 = 4102444800;
    if (timestamp < Year1980 || timestamp >= Year2100)
        return QString::number(timestamp);
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(timestamp)).toUTC().toString("yyyy-MM-dd HH:mm:ss");
}

QStringList titles(ElementKind kind)
{
    QStringList titles{" #", " DMX"};
    if (kind == ElementKind::Media)
        titles << " SIZE"
               << " FRAMES"
               << " FPS";
    if (kind != ElementKind::Effects)
        titles << "TIME (UTC)";
    return titles << (kind == ElementKind::Effects ? "NAME (PARAMETERS)" : "NAME");
}

QStringList row(ElementKind kind, const Element& element)
{
    QStringList row{QString::number(element.number), QString("%1-%2").arg(element.dmxMin).arg(element.dmxMax)};
    if (kind == ElementKind::Media)
        row << QString("%1x%2").arg(element.width).arg(element.height) << QString::number(element.length)
            << QString::number(element.frameRate);
    if (kind != ElementKind::Effects)
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
    const ElementKind kind = CITP::elementKind(type);
    if (options.json) {
        for (const Element& element : elements)
            printJson(merged({{"record", "element"}, {"server", session.key()}, {"library", library}},
                             toJson(element, kind)));
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

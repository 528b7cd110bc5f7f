// Conversion of values to JSON.
// SPDX-License-Identifier: Apache-2.0
#include "value_json.h"

#include <QJsonArray>

namespace Console {
using CITP::ElementKind;

QJsonObject toJson(const CITP::Library& library)
{
    return {{"library", library.id},
            {"name", library.name},
            {"dmxMin", library.dmxMin},
            {"dmxMax", library.dmxMax},
            {"elements", library.elements},
            {"subLibraries", library.subLibraries},
            {"serial", static_cast<double>(library.serialNumber)}};
}

QJsonObject toJson(const CITP::Element& element, CITP::ElementKind kind)
{
    QJsonObject object{{"element", element.number},
                       {"name", element.name},
                       {"dmxMin", element.dmxMin},
                       {"dmxMax", element.dmxMax},
                       {"serial", static_cast<double>(element.serialNumber)}};
    // A string, because a JSON number is exact only up to 53 bits.
    if (kind != ElementKind::Effects)
        object.insert("timestamp", QString::number(element.timestamp));
    if (kind == ElementKind::Effects)
        object.insert("parameters", QJsonArray::fromStringList(element.parameters));
    if (kind == ElementKind::Media) {
        object.insert("width", element.width);
        object.insert("height", element.height);
        object.insert("length", static_cast<double>(element.length));
        object.insert("frameRate", element.frameRate);
    }
    return object;
}

QJsonObject toJson(const CITP::Layer& layer)
{
    return {{"layer", layer.number},
            {"output", layer.output},
            {"type", layer.type},
            {"library", layer.library},
            {"element", layer.element},
            {"name", layer.name},
            {"position", static_cast<double>(layer.position)},
            {"length", static_cast<double>(layer.length)},
            {"frameRate", layer.frameRate},
            {"flags", static_cast<double>(layer.flags)}};
}

QJsonObject toJson(const CITP::Fixture& fixture)
{
    return {{"fixture", fixture.identifier}, {"universe", fixture.universe}, {"channel", fixture.channel},
            {"channels", fixture.channels},  {"make", fixture.make},         {"name", fixture.name}};
}

QJsonObject merged(QJsonObject object, const QJsonObject& more)
{
    for (auto field = more.begin(); field != more.end(); ++field)
        object.insert(field.key(), field.value());
    return object;
}
} // namespace Console

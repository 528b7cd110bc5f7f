// Reads and validates the patch file.
// SPDX-License-Identifier: Apache-2.0
#include "patch.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace MediaServer {
namespace {
// Exception: a field of a fixture is invalid.
struct InvalidField
{
    QString text;
};

quint16 number(const QJsonObject& object, const char* key, int max)
{
    const double value = object.value(QLatin1String(key)).toDouble(-1);
    if (value < 0 || value > max || value != static_cast<int>(value))
        throw InvalidField{QString("\"%1\" must be a whole number from 0 to %2").arg(key).arg(max)};
    return static_cast<quint16>(value);
}

QString text(const QJsonObject& object, const char* key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString())
        throw InvalidField{QString("\"%1\" must be a string").arg(key)};
    return value.toString();
}
} // namespace

std::vector<Fixture> readPatch(const QString& file, QString& problem)
{
    QFile input(file);
    if (!input.open(QIODevice::ReadOnly)) {
        problem = QString("cannot read the patch %1: %2").arg(file, input.errorString());
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(input.readAll(), &error);
    if (!document.isArray()) {
        problem = QString("the patch %1 is not a JSON array of fixtures: %2").arg(file, error.errorString());
        return {};
    }
    std::vector<Fixture> fixtures;
    const QJsonArray array = document.array();
    for (const QJsonValue value : array) {
        const QJsonObject object = value.toObject();
        try {
            Fixture fixture;
            fixture.id = number(object, "id", 65535);
            fixture.universe = static_cast<quint8>(number(object, "universe", 255));
            fixture.channel = number(object, "channel", 65535);
            fixture.channelCount = number(object, "channels", 65535);
            fixture.make = text(object, "make");
            fixture.name = text(object, "name");
            fixtures.push_back(fixture);
        } catch (const InvalidField& field) {
            problem = QString("the patch %1: fixture %2: %3").arg(file).arg(fixtures.size() + 1).arg(field.text);
            return {};
        }
    }
    return fixtures;
}
} // namespace MediaServer

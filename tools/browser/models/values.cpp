// Comparisons, texts and library ids.
// SPDX-License-Identifier: Apache-2.0
#include "values.h"

#include <tuple>

namespace Browser {
bool Element::operator==(const Element& other) const
{
    const auto all = [](const Element& e) {
        return std::tie(e.number, e.dmxMin, e.dmxMax, e.name, e.serial, e.timestamp, e.width, e.height, e.length,
                        e.frameRate, e.parameters);
    };
    return all(*this) == all(other);
}

bool LayerState::operator==(const LayerState& other) const
{
    const auto all = [](const LayerState& s) {
        return std::tie(s.layer, s.output, s.type, s.library, s.element, s.name, s.position, s.length, s.frameRate,
                        s.flags);
    };
    return all(*this) == all(other);
}

QString toSingleLine(const QString& text, int longest)
{
    QString line = text.left(longest);
    for (QChar& c : line) {
        const QChar::Category category = c.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph)
            c = QLatin1Char(' ');
    }
    if (text.size() > longest) {
        if (line.at(line.size() - 1).isHighSurrogate())
            line.chop(1);
        line += QChar(0x2026);
    }
    return line;
}

void registerValues()
{
    qRegisterMetaType<Server>("Browser::Server");
    qRegisterMetaType<LibraryListPtr>("Browser::LibraryListPtr");
    qRegisterMetaType<ElementListPtr>("Browser::ElementListPtr");
    qRegisterMetaType<Picture>("Browser::Picture");
    qRegisterMetaType<LayerStates>("Browser::LayerStates");
    qRegisterMetaType<Fixtures>("Browser::Fixtures");
    qRegisterMetaType<LibraryUpdate>("Browser::LibraryUpdate");
    qRegisterMetaType<AdapterState>("Browser::AdapterState");
}

QString parentOf(const QString& id)
{
    const QStringList parts = id.split(QLatin1Char(','));
    const int level = parts.at(0).toInt();
    if (parts.size() != 4 || level < 2 || level > 3)
        return RootLibrary;
    QStringList parent = parts;
    parent[0] = QString::number(level - 1);
    parent[level] = QStringLiteral("0");
    return parent.join(QLatin1Char(','));
}

quint8 numberOf(const QString& id)
{
    const QStringList parts = id.split(QLatin1Char(','));
    const int level = parts.at(0).toInt();
    if (parts.size() != 4)
        return static_cast<quint8>(level);
    return level < 1 || level > 3 ? quint8(0) : static_cast<quint8>(parts.at(level).toInt());
}
} // namespace Browser

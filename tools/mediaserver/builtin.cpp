// Names, numbers and patterns of the built-in libraries.
// SPDX-License-Identifier: Apache-2.0
#include "builtin.h"

#include "pictures.h"

namespace MediaServer {
namespace {
// 2020-01-01. Constant, so that answers do not depend on the time of the run.
constexpr quint64 Timestamp = 1577836800;

Library makeLibrary(quint8 type, quint32 id, const QString& name)
{
    Library library;
    library.type = type;
    library.id = id;
    library.name = name;
    return library;
}

Element& addElement(Library& library, const QString& name, int pattern)
{
    Element element;
    element.number = static_cast<quint8>(library.elements.size());
    element.name = name;
    element.timestamp = Timestamp;
    element.width = DrawnWidth;
    element.height = DrawnHeight;
    element.serial = static_cast<quint32>(pattern + 1);
    element.picture.pattern = pattern;
    library.elements.push_back(element);
    return library.elements.back();
}

Library frames(quint32 id, const QString& name, int first)
{
    Library library = makeLibrary(LibraryType::Media, id, name);
    for (int i = 0; i < 10; ++i)
        addElement(library, QString("Frame %1").arg(first + i, 2, 10, QChar('0')), Pattern::Frame + first + i);
    return library;
}
} // namespace

Libraries drawnMedia()
{
    static const char* const gradients[] = {"Grey across", "Grey down", "Red", "Green", "Blue", "Hues"};
    static const char* const cards[] = {"Colour bars", "Grid", "Checkerboard", "Rings"};
    Library gradient = makeLibrary(LibraryType::Media, childId(0, 1), "Gradients");
    for (int i = 0; i < Pattern::GradientCount; ++i)
        addElement(gradient, gradients[i], Pattern::Gradient + i);
    Library card = makeLibrary(LibraryType::Media, childId(0, 2), "Test cards");
    for (int i = 0; i < Pattern::TestCardCount; ++i)
        addElement(card, cards[i], Pattern::TestCard + i);
    const quint32 numbered = childId(0, 3);
    const quint32 tens = childId(numbered, 1);
    return {gradient, card, frames(numbered, "Numbered frames", 0), frames(tens, "Tens", 10),
            frames(childId(tens, 1), "Twenties", 20)};
}

Libraries effectLibraries(int count)
{
    static const struct
    {
        const char* name;
        QStringList parameters;
    } effects[] = {{"Blur", {"Radius", "Quality"}},
                   {"Colour", {"Hue", "Saturation", "Brightness"}},
                   {"Mirror", {"Axis"}},
                   {"Negative", {}}};
    Libraries libraries;
    for (int i = 1; i <= count; ++i) {
        Library library =
            makeLibrary(LibraryType::Effects, childId(0, static_cast<quint8>(i)), QString("Effects %1").arg(i));
        for (const auto& effect : effects)
            addElement(library, effect.name, Pattern::Frame + i).parameters = effect.parameters;
        libraries.push_back(library);
    }
    return libraries;
}

Libraries genericLibraries(int count)
{
    Libraries libraries;
    for (int i = 1; i <= count; ++i) {
        Library library =
            makeLibrary(LibraryType::Generic, childId(0, static_cast<quint8>(i)), QString("Cues %1").arg(i));
        for (int cue = 1; cue <= 5; ++cue)
            addElement(library, QString("Cue %1").arg(cue), Pattern::Frame + cue);
        libraries.push_back(library);
    }
    return libraries;
}
} // namespace MediaServer

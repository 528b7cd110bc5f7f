// The conversion of messages to values, and the arithmetic of library identifiers.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/values.h>

#include "values_p.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <bitset>
#include <tuple>
#include <utility>

namespace CITP {
namespace {
constexpr int maxDepth = 3;

/// The depth of an identifier of four levels, and its numbers from the top.
struct Levels
{
    explicit Levels(const QString& id) : value(fromLibraryFormat(id)) {}
    explicit Levels(unsigned int id) : value(id) {}
    int depth() const { return static_cast<int>(value & 0xFF); }
    unsigned int number(int level) const { return value >> (8 * level) & 0xFF; }
    unsigned int parent() const
    {
        const unsigned int kept = (1u << (8 * depth())) - 1;
        return depth() == 1 ? 0 : (value & kept & ~0xFFu) | (static_cast<unsigned int>(depth()) - 1);
    }
    QString text() const
    {
        QString out;
        return fromLibraryFormat(out, value);
    }

    unsigned int value;
};

template <typename Item>
Element commonFields(const Item& item, const QString& name)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = name.left(maxNameLength);
    element.serialNumber = item.SerialNumber;
    return element;
}

Element toElement(const Msg_MSEX_MEIN::MediaInformation& item)
{
    Element element = commonFields(item, item.Name);
    element.timestamp = item.Timestamp;
    element.width = item.Width;
    element.height = item.Height;
    element.length = item.Length;
    element.frameRate = item.FrameRate;
    return element;
}

Element toElement(const Msg_MSEX_EEIN::EffectInformation& item)
{
    Element element = commonFields(item, item.EffectName);
    for (const QString& parameter : item.ParameterNames) {
        element.parameters << parameter.left(maxNameLength);
    }
    return element;
}

Element toElement(const Msg_MSEX_GLEI::GenericInformation& item)
{
    Element element = commonFields(item, item.Name);
    element.timestamp = item.Timestamp;
    return element;
}

template <typename Items>
std::vector<Element> distinctElements(const Items& items, int* dropped)
{
    std::vector<Element> elements;
    elements.reserve(qMin<std::size_t>(items.size(), 256));
    std::bitset<256> known;
    for (const auto& item : items) {
        if (known[item.Number]) {
            continue;
        }
        Element element = toElement(item);
        if (elements.empty() || element != Element()) {
            known.set(item.Number);
            elements.push_back(std::move(element));
        }
    }
    *dropped = static_cast<int>(items.size() - elements.size());
    return elements;
}
} // namespace

ElementKind elementKind(quint8 type)
{
    return type == 1 ? ElementKind::Media : type == 2 ? ElementKind::Effects : ElementKind::Generic;
}

bool Element::operator==(const Element& other) const
{
    const auto fields = [](const Element& e) {
        return std::tie(e.number, e.dmxMin, e.dmxMax, e.frameRate, e.width, e.height, e.length, e.serialNumber,
                        e.timestamp, e.name, e.parameters);
    };
    return fields(*this) == fields(other);
}

QString rootLibrary()
{
    return QStringLiteral("0,0,0,0");
}

QString libraryId(const QString& id, quint8 msexMinor)
{
    if (!id.contains(QLatin1Char(','))) {
        bool isNumber = false;
        const uint number = id.toUInt(&isNumber);
        if (!isNumber || number > 255) {
            return {};
        }
        return msexMinor == 0 ? QString::number(number) : Levels(1 | number << 8).text();
    }
    const Levels levels(id);
    if (levels.depth() > maxDepth) {
        return {};
    }
    if (msexMinor > 0 || levels.depth() == 0) {
        return levels.text();
    }
    return levels.depth() == 1 ? QString::number(levels.number(1)) : QString();
}

QString parentLibrary(const QString& id)
{
    const Levels levels(id);
    if (!id.contains(QLatin1Char(',')) || levels.depth() <= 1 || levels.depth() > maxDepth) {
        return rootLibrary();
    }
    return Levels(levels.parent()).text();
}

quint8 libraryNumber(const QString& id)
{
    const Levels levels(id);
    const bool isNumber = !id.contains(QLatin1Char(','));
    return static_cast<quint8>(isNumber ? levels.number(0) : levels.number(qMin(levels.depth(), maxDepth)));
}

quint32 numberOfParent(const QString& id)
{
    const Levels levels(id);
    if (!id.contains(QLatin1Char(','))) {
        return levels.value < 256 ? 0 : noLibrary;
    }
    return levels.depth() >= 1 && levels.depth() <= maxDepth ? levels.parent() : noLibrary;
}

quint32 numberOfLibrary(const QString& id)
{
    return Levels(id).value;
}

std::vector<Library> librariesOf(const Msg_MSEX_ELIN& message, const QString& parent, quint8 msexMinor, int* dropped)
{
    std::vector<Library> libraries;
    const quint32 above = numberOfLibrary(parent);
    std::bitset<256> known;
    // Most entries of a list that is made to be slow are left out before their identifier becomes text.
    for (const auto& item : message.Libraries) {
        const quint8 number = libraryNumber(item.LIBID);
        if (known[number] || numberOfParent(item.LIBID) != above) {
            continue;
        }
        const QString id = libraryId(item.LIBID, msexMinor);
        const bool isZero = id == QLatin1String("0") && item.Name.isEmpty() && item.ElementCount == 0;
        if (!id.isEmpty() && (libraries.empty() || !isZero)) {
            known.set(number);
            libraries.push_back({id, item.Name.left(maxNameLength), item.DMXRangeMin, item.DMXRangeMax,
                                 item.ElementCount, item.SubLibraryCount, item.SerialNumber});
        }
    }
    *dropped = static_cast<int>(message.Libraries.size() - libraries.size());
    return libraries;
}

std::vector<Element> elementsOf(const Msg_MSEX_MEIN& message, int* dropped)
{
    return distinctElements(message.Media, dropped);
}

std::vector<Element> elementsOf(const Msg_MSEX_EEIN& message, int* dropped)
{
    return distinctElements(message.Effects, dropped);
}

std::vector<Element> elementsOf(const Msg_MSEX_GLEI& message, int* dropped)
{
    return distinctElements(message.Elements, dropped);
}

Picture pictureOf(const Msg_MSEX_Thumbnail_Response_Base& message)
{
    return {message.ThumbnailBuffer, message.ThumbnailFormat, QSize(message.ThumbnailWidth, message.ThumbnailHeight),
            message.versionMinor};
}
} // namespace CITP

// What a simulated server has to show: libraries of four-level ids and their elements, and how two states differ.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <bitset>
#include <vector>

namespace MediaServer {
/// MSEX library types that are served.
namespace LibraryType {
constexpr quint8 Media = 1;
constexpr quint8 Effects = 2;
constexpr quint8 Generic = 3;
} // namespace LibraryType

/// Where an element's picture comes from: a file if one is named, else a drawn pattern (see pictures.h).
struct PictureSource
{
    QString file;
    int pattern = 0;
};

struct Element
{
    quint8 number = 0;
    QString name;
    quint64 timestamp = 0;  ///< seconds since 1970, UTC
    quint16 width = 0;      ///< pixels
    quint16 height = 0;     ///< pixels
    quint32 length = 250;   ///< frames; a still counts as a clip of ten seconds, so that positions can move through it
    quint8 frameRate = 25;  ///< frames a second
    quint32 serial = 0;     ///< another one whenever the content is another
    QStringList parameters; ///< of an effect
    PictureSource picture;
};

/// A library id holds its level (1 to 3) in the lowest byte and the number on each level in the bytes above; 0 is the
/// root above all libraries. MSEX 1.0 knows the first level only, by its number.
struct Library
{
    quint8 type = LibraryType::Media;
    quint32 id = 0;
    QString name;
    std::vector<Element> elements; ///< at most 255, in the order of their numbers
};

/// Parents before their children, siblings in the order of their numbers.
using Libraries = std::vector<Library>;

/// Levels of libraries that an id can tell apart.
constexpr int MaximumLevel = 3;

quint32 childId(quint32 parent, quint8 number);
quint32 parentId(quint32 id);
/// The library's number among its siblings.
quint8 numberOf(quint32 id);
/// Four decimals with commas, lowest byte first.
QString idText(quint32 id);

/// @return null if there is none
const Library* findLibrary(const Libraries& libraries, quint8 type, quint32 id);
int subLibraryCount(const Libraries& libraries, const Library& library);
/// Another one whenever an element is another.
quint32 serialOf(const Library& library);

/// What changed in one library; the root stands for the top-level libraries.
struct LibraryUpdate
{
    quint8 type = 0;
    quint32 id = 0;
    quint32 flags = 0; ///< see UpdateFlag
    std::bitset<256> elements;
    std::bitset<256> libraries;
};

namespace UpdateFlag {
constexpr quint32 ElementsUpdated = 0x01;
constexpr quint32 ElementsAddedOrRemoved = 0x02;
constexpr quint32 LibrariesUpdated = 0x04;
constexpr quint32 LibrariesAddedOrRemoved = 0x08;
} // namespace UpdateFlag

std::vector<LibraryUpdate> differences(const Libraries& before, const Libraries& after);
} // namespace MediaServer

// The libraries and elements of a simulated server, and the comparison of two states of them.
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

/// The source of an element's picture: a file, or a drawn pattern (see pictures.h) if #file is empty.
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
    quint32 length = 250;   ///< frames; a still is treated as a clip of ten seconds, so that it has a position
    quint8 frameRate = 25;  ///< frames a second
    quint32 serial = 0;     ///< changes with the content
    QStringList parameters; ///< of an effect
    PictureSource picture;
};

/// A library id contains the level (1 to 3) in the lowest byte and the number for each level in the higher bytes. 0 is
/// the root, the parent of the top-level libraries. MSEX 1.0 sends only the number of a top-level library.
struct Library
{
    quint8 type = LibraryType::Media;
    quint32 id = 0;
    QString name;
    std::vector<Element> elements; ///< at most 255, in the order of their numbers
};

/// Parents before their children, siblings in the order of their numbers.
using Libraries = std::vector<Library>;

/// Number of levels in a library id.
constexpr int MaxLevel = 3;

quint32 childId(quint32 parent, quint8 number);
quint32 parentId(quint32 id);
/// The library's number among its siblings.
quint8 numberOf(quint32 id);
/// The id of the library that a message of MSEX version 1.@p msexMinor names by @p onWire.
quint32 idFromWire(quint8 msexMinor, quint32 onWire);
/// Four decimals with commas, lowest byte first.
QString idText(quint32 id);

/// @return null if there is none
const Library* findLibrary(const Libraries& libraries, quint8 type, quint32 id);
int subLibraryCount(const Libraries& libraries, const Library& library);
/// A serial number that changes with the elements.
quint32 serialOf(const Library& library);

/// The changes in one library. For the root, the changes of the top-level libraries.
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

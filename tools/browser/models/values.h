// Plain values that the inbox's thread creates and the GUI thread shows.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QImage>
#include <QMetaType>
#include <QSize>
#include <QString>
#include <QStringList>

#include <bitset>
#include <memory>
#include <vector>

namespace Browser {
/// A server that is up.
struct Server
{
    QString key;
    QString name;
    QString product;
    QString version;
    quint8 msexMinor = 0;     ///< requests are sent in MSEX 1.msexMinor
    int layers = 0;           ///< number of layers
    quint16 libraryTypes = 0; ///< bit n: has libraries of type n; 0: unknown
    QString pictureFormat;    ///< format of requested thumbnails: "JPEG", "PNG" or "RGB8"
};

/// How long a new row stays marked as new, and how often expired marks are removed.
constexpr int NewMarkMs = 8000;
constexpr int MarkCheckMs = 500;

/// The parent of the top-level libraries.
inline const QString RootLibrary = QStringLiteral("0,0,0,0");

struct Library
{
    QString id; ///< one number in MSEX 1.0, else four, such as "1,2,0,0"
    QString name;
    int dmxMin = 0;
    int dmxMax = 0;
    int elements = 0;
    int subLibraries = 0;
    quint32 serial = 0;
};

enum class Kind { Media, Effects, Generic };

/// An element of any kind; fields that its kind does not have are 0 or empty.
struct Element
{
    quint8 number = 0;
    quint8 dmxMin = 0;
    quint8 dmxMax = 0;
    QString name;
    quint32 serial = 0;
    quint64 timestamp = 0;
    quint16 width = 0;  ///< pixels
    quint16 height = 0; ///< pixels
    quint32 length = 0; ///< frames
    quint8 frameRate = 0;
    QStringList parameters;

    bool operator==(const Element& other) const;
    bool operator!=(const Element& other) const { return !(*this == other); }
};

/// An answer to a request for libraries. It does not identify their parent.
struct LibraryList
{
    QString server;
    quint8 type = 0;
    std::vector<Library> libraries;
    int unknownMinor = -1; ///< if not -1: minor MSEX version of an answer that cannot be parsed
};

/// An answer to a request for elements. It does not hold the library's type, only the kind of the elements.
struct ElementList
{
    QString server;
    QString library;
    Kind kind = Kind::Media;
    std::vector<Element> elements;
    int dropped = 0;       ///< number of empty entries left out, from a truncated answer
    int unknownMinor = -1; ///< as in LibraryList
};

/// The maximum size, in pixels, of the images of a tile and of the preview.
constexpr QSize TilePixels(320, 240);
constexpr QSize PreviewPixels(640, 480);

/// Identifies a picture of a server.
struct PictureId
{
    quint8 type = 0;
    QString library;
    quint8 number = 0;
    bool large = false; ///< the preview's, not the tile's

    bool operator==(const PictureId& other) const
    {
        return type == other.type && number == other.number && large == other.large && library == other.library;
    }
};

inline auto qHash(const PictureId& id, decltype(::qHash(QString())) seed = 0)
{
    return ::qHash(id.library, seed) ^ (static_cast<decltype(seed)>(id.number) << 9) ^
           (static_cast<decltype(seed)>(id.type) << 1) ^ static_cast<decltype(seed)>(id.large);
}

/// A decoded answer to a request for a thumbnail. It does not hold the requested size.
struct Picture
{
    QString server;
    quint8 type = 0;
    QString library;
    quint8 number = 0;
    QImage image;    ///< null if there is a problem
    QString problem; ///< for the user
};

struct LayerState
{
    int layer = 0;
    int output = 0;
    quint8 type = 0; ///< library type
    QString library;
    quint8 element = 0;
    QString name;
    quint32 position = 0; ///< frames
    quint32 length = 0;   ///< frames
    int frameRate = 0;
    quint32 flags = 0;

    bool operator==(const LayerState& other) const;
    bool operator!=(const LayerState& other) const { return !(*this == other); }
};

struct Fixture
{
    int identifier = 0;
    int universe = 0;
    int channel = 0;
    int channels = 0;
    QString make;
    QString name;
};

/// A server's notification of changes.
struct LibraryUpdate
{
    QString server;
    quint8 type = 0;
    QString library;
    bool elementsUpdated = false;
    bool elementsMoved = false; ///< added or removed
    bool librariesUpdated = false;
    bool librariesMoved = false;    ///< added or removed
    bool areElementsNamed = false;  ///< #elements holds which ones; else any may have changed
    bool areLibrariesNamed = false; ///< #libraries holds which ones; else any may have changed
    std::bitset<256> elements;
    std::bitset<256> libraries;
};

/// The adapter on which servers are discovered.
struct AdapterState
{
    QString name;
    QString address; ///< empty if there is none
    QString reason;  ///< why it was selected, for the user

    bool operator==(const AdapterState& other) const
    {
        return name == other.name && address == other.address && reason == other.reason;
    }
};

using LibraryListPtr = std::shared_ptr<const LibraryList>;
using ElementListPtr = std::shared_ptr<const ElementList>;
using LayerStates = std::vector<LayerState>;
using Fixtures = std::vector<Fixture>;
using Numbers = std::vector<quint8>;

/// @p text as a single line, at most @p longest characters and an ellipsis: longer texts are slow to lay out.
/// Characters that break a line or change its direction become blanks. Any thread.
QString toSingleLine(const QString& text, int longest = 160);

/// Registers the types above as meta types, so that they can cross threads. May be called repeatedly.
void registerValues();

/// The id of the parent of the library @p id; RootLibrary for a top-level library.
QString parentOf(const QString& id);
/// The number of the library @p id among its siblings.
quint8 numberOf(const QString& id);
} // namespace Browser

Q_DECLARE_METATYPE(Browser::Server)
Q_DECLARE_METATYPE(Browser::LibraryListPtr)
Q_DECLARE_METATYPE(Browser::ElementListPtr)
Q_DECLARE_METATYPE(Browser::Picture)
Q_DECLARE_METATYPE(Browser::LayerStates)
Q_DECLARE_METATYPE(Browser::Fixtures)
Q_DECLARE_METATYPE(Browser::LibraryUpdate)
Q_DECLARE_METATYPE(Browser::AdapterState)

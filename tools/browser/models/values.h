// What the browser knows of the network, as plain values: made in the inbox's thread, shown in the window's.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QImage>
#include <QMetaType>
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
    quint8 msexMinor = 0;     ///< requests are written in MSEX 1. and this
    int layers = 0;           ///< number of its layers
    quint16 libraryTypes = 0; ///< bit n set: it has libraries of type n; 0 if it does not tell
    QString pictureFormat;    ///< what thumbnails are asked for in: "JPEG", "PNG" or "RGB8"
};

/// What is new in a list stays marked for this long, and the marks are looked over this often.
constexpr int NewMarkMs = 8000;
constexpr int MarkCheckMs = 500;

/// The parent of the top-level libraries.
inline const QString RootLibrary = QStringLiteral("0,0,0,0");

struct Library
{
    QString id; ///< a number in MSEX 1.0, else four levels
    QString name;
    int dmxMin = 0;
    int dmxMax = 0;
    int elements = 0;
    int subLibraries = 0;
    quint32 serial = 0;
};

enum class Kind { Media, Effects, Generic };

/// An element of any kind; what its kind does not have is 0 or empty.
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

/// An answer to a request for libraries. It does not say whose sub-libraries they are.
struct LibraryList
{
    QString server;
    quint8 type = 0;
    std::vector<Library> libraries;
    int unknownMinor = -1; ///< not -1: the answer came in MSEX 1. and this, and holds nothing that can be read
};

/// An answer to a request for elements. It does not say the library's type, only of what kind the elements are.
struct ElementList
{
    QString server;
    QString library;
    Kind kind = Kind::Media;
    std::vector<Element> elements;
    int dropped = 0;       ///< entries without any content, as a cut-off answer makes them; left out
    int unknownMinor = -1; ///< as with LibraryList
};

/// Which picture of a server.
struct PictureId
{
    quint8 type = 0;
    QString library;
    quint8 number = 0;
    bool large = false; ///< the one for the preview

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

/// A decoded answer to a request for a thumbnail. It does not say which size was asked for.
struct Picture
{
    QString server;
    quint8 type = 0;
    QString library;
    quint8 number = 0;
    QImage image;    ///< null if there is a problem
    QString problem; ///< for people
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

/// What has changed at a server.
struct LibraryUpdate
{
    QString server;
    quint8 type = 0;
    QString library;
    bool elementsUpdated = false;
    bool elementsMoved = false; ///< added or removed
    bool librariesUpdated = false;
    bool librariesMoved = false;    ///< added or removed
    bool areElementsNamed = false;  ///< #elements says which ones; else any may have changed
    bool areLibrariesNamed = false; ///< #libraries says which ones; else any may have changed
    std::bitset<256> elements;
    std::bitset<256> libraries;
};

/// The adapter that the servers are looked for on.
struct AdapterState
{
    QString name;
    QString address; ///< empty: there is none
    QString reason;  ///< why it is the one, for people

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

/// @p text in one line and no longer than it can be laid out quickly: what could break a line or turn its direction
/// becomes a blank, and what is too long ends in an ellipsis. Any thread.
QString toSingleLine(const QString& text, int longest = 160);

/// Registers the types above with Qt, so that they cross threads. Any number of times.
void registerValues();

/// The identity of the library above @p id, RootLibrary for a top-level one.
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

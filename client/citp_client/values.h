// The values that the client layer hands out: libraries, elements and pictures, whatever message they came in.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <QByteArray>
#include <QSize>
#include <QString>
#include <QStringList>

#include <vector>

namespace CITP {
class Msg_MSEX_EEIN;
class Msg_MSEX_ELIN;
class Msg_MSEX_GLEI;
class Msg_MSEX_MEIN;
class Msg_MSEX_Thumbnail_Response_Base;

/// The kinds of elements, each of which has a message of its own.
enum class ElementKind { Media, Effects, Generic };

/// The kind of the elements in libraries of @p type: 1 is media, 2 effects, all others are generic.
CITP_EXPORT ElementKind elementKind(quint8 type);

/// The characters of a name or parameter that are kept, of up to half a million in a message: to show it, they suffice.
constexpr int maxNameLength = 1000;

/// One library. Fields that its MSEX version does not have are 0.
struct CITP_EXPORT Library
{
    QString id;              ///< a number in MSEX 1.0 ("7"), else four levels ("1,2,0,0")
    QString name;            ///< as received, at most #maxNameLength characters
    quint8 dmxMin{0};        ///< lowest DMX value that selects the library
    quint8 dmxMax{0};        ///< highest DMX value that selects the library
    int elements{0};         ///< number of elements, 0 to 65535
    int subLibraries{0};     ///< number of libraries directly below
    quint32 serialNumber{0}; ///< changes with the content; 0 before MSEX 1.2
};

/// One element of any kind. Fields that its kind or its MSEX version does not have are 0 or empty.
struct CITP_EXPORT Element
{
    quint8 number{0};        ///< in its library
    quint8 dmxMin{0};        ///< lowest DMX value that selects the element
    quint8 dmxMax{0};        ///< highest DMX value that selects the element
    quint8 frameRate{0};     ///< frames per second
    quint16 width{0};        ///< pixels
    quint16 height{0};       ///< pixels
    quint32 length{0};       ///< frames
    quint32 serialNumber{0}; ///< changes with the element; 0 before MSEX 1.2
    quint64 timestamp{0};    ///< of the element's version, in the server's units
    QString name;            ///< as received, at most #maxNameLength characters
    QStringList parameters;  ///< of an effect, each as #name

    bool operator==(const Element& other) const; ///< compares all fields
    /// Compares all fields.
    bool operator!=(const Element& other) const { return !(*this == other); }
};

/// A picture as the server sent it, not decoded.
struct CITP_EXPORT Picture
{
    QByteArray data; ///< at most 65535 bytes
    QString format;  ///< "JPEG", "PNG " or "RGB8"
    QSize size;      ///< in pixels, as the server states it
    /// MSEX minor version of the message. RGB8 has three bytes for each pixel, rows from the top without padding: blue
    /// first in MSEX 1.0, red first from 1.1 on.
    quint8 msexMinor{0};
};

/// The identifier above the top-level libraries: "0,0,0,0".
CITP_EXPORT QString rootLibrary();
/// @p id in the form that a server of MSEX 1.@p msexMinor uses: a number for 1.0, else four levels. A number becomes
/// the top-level library of that number.
/// @return empty if the version cannot express @p id
CITP_EXPORT QString libraryId(const QString& id, quint8 msexMinor);
/// The library above @p id; rootLibrary() for a top-level one and for the numbers of MSEX 1.0.
CITP_EXPORT QString parentLibrary(const QString& id);
/// The number of @p id among the libraries of its parent.
CITP_EXPORT quint8 libraryNumber(const QString& id);

/// The libraries of @p message that are below @p parent, each once. The missing rest of a truncated message, which is
/// read as zeros, does not count as libraries or elements.
/// @param message the answer
/// @param parent in the form that the server uses
/// @param msexMinor that of the server
/// @param dropped receives the number of the others
CITP_EXPORT std::vector<Library> librariesOf(const Msg_MSEX_ELIN& message, const QString& parent, quint8 msexMinor,
                                             int* dropped);
/// The elements of @p message. Of several with the same number the first one counts, because nothing else, neither a
/// request nor a picture nor a layer, can tell them apart.
/// @param message the answer
/// @param dropped receives the number of the others
CITP_EXPORT std::vector<Element> elementsOf(const Msg_MSEX_MEIN& message, int* dropped);
/// @copydoc elementsOf(const Msg_MSEX_MEIN&, int*)
CITP_EXPORT std::vector<Element> elementsOf(const Msg_MSEX_EEIN& message, int* dropped);
/// @copydoc elementsOf(const Msg_MSEX_MEIN&, int*)
CITP_EXPORT std::vector<Element> elementsOf(const Msg_MSEX_GLEI& message, int* dropped);
/// The picture of @p message; without data if the server has none.
CITP_EXPORT Picture pictureOf(const Msg_MSEX_Thumbnail_Response_Base& message);
} // namespace CITP

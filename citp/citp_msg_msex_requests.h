// The MSEX requests for the content of a media server: GELI, GEIn, GELT and GETh.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
/// GELI, "get element library information": requests the libraries of one type. The answer is a Msg_MSEX_ELIN.
///
/// The following applies to all four requests. They are only sent; their debug text is that of Msg_MSEX. The MSEX minor
/// version determines the layout of the body. Library identifiers are text: a number ("5") in MSEX 1.0, four levels
/// ("1,2,0,0") since MSEX 1.1. A count is the number of entries, truncated to the width of its field: one byte before
/// MSEX 1.2, two bytes since. All entries are written, even if there are more than the count can express; such a
/// request is an error of the caller.
class CITP_EXPORT Msg_MSEX_GELI : public Msg_MSEX
{
public:
    Msg_MSEX_GELI() = default;
    /// @param minor MSEX minor version of the request, 0 to 2
    /// @param type MSEX library type
    /// @param parentId library whose sub-libraries are requested; not sent in MSEX 1.0, which has no sub-libraries
    /// @param numbers the requested libraries; empty requests all
    Msg_MSEX_GELI(unsigned char minor, unsigned char type, QString parentId, const std::vector<unsigned char>& numbers);
    /// Copies all members.
    Msg_MSEX_GELI(const Msg_MSEX_GELI&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_GELI& operator=(const Msg_MSEX_GELI&) = default;
    ~Msg_MSEX_GELI() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 26
    QString libraryParentId;                   ///< parent library as text; offset 27, 4 bytes, since MSEX 1.1
    std::vector<unsigned char> libraryNumbers; ///< library numbers, 0 to 255, after their count
};

/// GEIn, "get element information": requests the elements of one library. The answer is a Msg_MSEX_MEIN, Msg_MSEX_EEIN
/// or Msg_MSEX_GLEI, depending on the library type. See Msg_MSEX_GELI for counts and identifiers.
class CITP_EXPORT Msg_MSEX_GEIN : public Msg_MSEX
{
public:
    Msg_MSEX_GEIN() = default;
    /// @param minor MSEX minor version of the request, 0 to 2
    /// @param type MSEX library type
    /// @param id the library: a number in MSEX 1.0, else four levels
    /// @param numbers the requested elements; empty requests all
    Msg_MSEX_GEIN(unsigned char minor, unsigned char type, const QString& id,
                  const std::vector<unsigned char>& numbers);
    /// Copies all members.
    Msg_MSEX_GEIN(const Msg_MSEX_GEIN&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_GEIN& operator=(const Msg_MSEX_GEIN&) = default;
    ~Msg_MSEX_GEIN() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 26
    QString libraryId;                         ///< library as text; offset 27, 1 byte in MSEX 1.0, else 4
    std::vector<unsigned char> elementNumbers; ///< element numbers, 0 to 255, after their count
};

/// GELT, "get element library thumbnail": requests the thumbnails of libraries. The answer is a Msg_MSEX_ELTH for each.
/// See Msg_MSEX_GELI for counts and identifiers.
class CITP_EXPORT Msg_MSEX_GELT : public Msg_MSEX
{
public:
    Msg_MSEX_GELT() = default;
    /// The height precedes the width, unlike on the wire. Kept for compatibility with applications.
    /// @param minor MSEX minor version of the request; versions above 2 have the layout of MSEX 1.2
    /// @param type MSEX library type
    /// @param ids the requested libraries: numbers in MSEX 1.0, else four levels each
    /// @param height requested height in pixels
    /// @param width requested width in pixels
    /// @param format "JPEG", "PNG" or "RGB8"; only the first letter counts, as in fromGraphicFormat()
    Msg_MSEX_GELT(unsigned char minor, unsigned char type, const std::vector<QString>& ids, unsigned short height,
                  unsigned short width, const QString& format);
    /// Copies all members.
    Msg_MSEX_GELT(const Msg_MSEX_GELT&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_GELT& operator=(const Msg_MSEX_GELT&) = default;
    ~Msg_MSEX_GELT() override;

    unsigned char libraryType = 0;      ///< MSEX library type; offset 35
    std::vector<QString> libraryIds;    ///< libraries as text, after their count; 1 byte each in MSEX 1.0, else 4
    unsigned short thumbnailHeight = 0; ///< height in pixels; offset 32
    unsigned short thumbnailWidth = 0;  ///< width in pixels; offset 30
    QString thumbnailFormat;            ///< image format; offset 26, four characters
};

/// GETh, "get element thumbnail": requests the thumbnails of elements of one library. The answer is a Msg_MSEX_ETHN for
/// each. See Msg_MSEX_GELI for counts and identifiers.
class CITP_EXPORT Msg_MSEX_GETH : public Msg_MSEX
{
public:
    Msg_MSEX_GETH() = default;
    /// The height precedes the width, as in Msg_MSEX_GELT. Since MSEX 1.1, a library identifier of fewer than 7
    /// characters cannot have four levels: #valid is then false, and the request is not written. The other requests do
    /// not validate identifiers.
    /// @param minor MSEX minor version of the request, 0 to 2
    /// @param type MSEX library type
    /// @param id the library: a number in MSEX 1.0, else four levels
    /// @param height requested height in pixels
    /// @param width requested width in pixels
    /// @param format "JPEG", "PNG" or "RGB8"; only the first letter counts, as in fromGraphicFormat()
    /// @param numbers the requested elements; empty requests all
    Msg_MSEX_GETH(unsigned char minor, unsigned char type, const QString& id, unsigned short height,
                  unsigned short width, const QString& format, const std::vector<unsigned char>& numbers);
    /// Copies all members.
    Msg_MSEX_GETH(const Msg_MSEX_GETH&) = default;
    /// Copies all members except the CITP header and #valid, as Msg_MSEX::operator=() does.
    Msg_MSEX_GETH& operator=(const Msg_MSEX_GETH&) = default;
    ~Msg_MSEX_GETH() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 35
    QString libraryId;                         ///< library as text; offset 36, 1 byte in MSEX 1.0, else 4
    unsigned short thumbnailHeight = 0;        ///< height in pixels; offset 32
    unsigned short thumbnailWidth = 0;         ///< width in pixels; offset 30
    QString thumbnailFormat;                   ///< image format; offset 26, four characters
    std::vector<unsigned char> elementNumbers; ///< element numbers, 0 to 255, after their count
};

/// Replaces @p out with the whole message and returns @p out. With a minor version above 2, the body holds only the
/// library type and the numbers.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELI& m);
/// @copydoc operator>>(QByteArray&, const Msg_MSEX_GELI&)
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GEIN& m);
/// Replaces @p out with the whole message and returns @p out. Minor versions above 2 have the layout of 2.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELT& m);
/// Replaces @p out with the whole message and returns @p out. Leaves @p out unchanged if Msg_Header::valid is false.
/// With a minor version above 2, the body holds neither the library nor the element count.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GETH& m);
} // namespace CITP

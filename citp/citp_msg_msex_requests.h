// The four MSEX requests with which a console browses a media server: GELI, GEIn, GELT and GETh.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
// What holds for all four. A request is only ever written, never parsed, and has no debug text beyond that of Msg_MSEX.
// The caller chooses the MSEX version by its minor number (0, 1 or 2); the layout of the body follows it. Library
// identities are text: a bare number ("5") in MSEX 1.0, four levels ("1,2,0,0") from 1.1 on. A count on the wire is the
// number of entries cut to the width of its field, one byte up to 1.1 and two in 1.2, and all entries follow whatever
// the count says: asking for more than the version can count is the caller's mistake, and is passed on visibly.

/// GELI, "get element library information": asks for the libraries of one type; answered by Msg_MSEX_ELIN.
class CITP_EXPORT Msg_MSEX_GELI : public Msg_MSEX
{
public:
    Msg_MSEX_GELI() = default;
    /// @param minor MSEX minor version to write the request in, 0 to 2
    /// @param type MSEX library type
    /// @param parentId library whose sub-libraries are asked for; not sent in MSEX 1.0, which knows no sub-libraries
    /// @param numbers the libraries asked for; empty asks for all
    Msg_MSEX_GELI(unsigned char minor, unsigned char type, QString parentId, const std::vector<unsigned char>& numbers);
    /// Copies every member.
    Msg_MSEX_GELI(const Msg_MSEX_GELI&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_GELI& operator=(const Msg_MSEX_GELI&) = default;
    ~Msg_MSEX_GELI() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 26
    QString libraryParentId;                   ///< parent library as text; offset 27 from MSEX 1.1 on, 4 bytes
    std::vector<unsigned char> libraryNumbers; ///< library numbers, 0 to 255, behind their count
};

/// GEIn, "get element information": asks for the elements of one library; answered by Msg_MSEX_MEIN, Msg_MSEX_EEIN or
/// Msg_MSEX_GLEI, depending on the library type.
class CITP_EXPORT Msg_MSEX_GEIN : public Msg_MSEX
{
public:
    Msg_MSEX_GEIN() = default;
    /// @param minor MSEX minor version to write the request in, 0 to 2
    /// @param type MSEX library type
    /// @param id the library: a number in MSEX 1.0, else four levels
    /// @param numbers the elements asked for; empty asks for all
    Msg_MSEX_GEIN(unsigned char minor, unsigned char type, const QString& id,
                  const std::vector<unsigned char>& numbers);
    /// Copies every member.
    Msg_MSEX_GEIN(const Msg_MSEX_GEIN&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_GEIN& operator=(const Msg_MSEX_GEIN&) = default;
    ~Msg_MSEX_GEIN() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 26
    QString libraryId;                         ///< library as text; offset 27, 1 byte in MSEX 1.0, else 4
    std::vector<unsigned char> elementNumbers; ///< element numbers, 0 to 255, behind their count
};

/// GELT, "get element library thumbnail": asks for the pictures of whole libraries; each is answered by a
/// Msg_MSEX_ELTH.
class CITP_EXPORT Msg_MSEX_GELT : public Msg_MSEX
{
public:
    Msg_MSEX_GELT() = default;
    /// The height comes first here although the width goes first on the wire. Kept on purpose: applications pass the
    /// two in this order.
    /// @param minor MSEX minor version to write the request in; from 2 up, the layout is that of MSEX 1.2
    /// @param type MSEX library type
    /// @param ids the libraries: numbers in MSEX 1.0, else four levels each
    /// @param height wanted height in pixels
    /// @param width wanted width in pixels
    /// @param format "JPEG", "PNG" or "RGB8"; only the first letter counts, as in fromGraphicFormat()
    Msg_MSEX_GELT(unsigned char minor, unsigned char type, const std::vector<QString>& ids, unsigned short height,
                  unsigned short width, const QString& format);
    /// Copies every member.
    Msg_MSEX_GELT(const Msg_MSEX_GELT&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_GELT& operator=(const Msg_MSEX_GELT&) = default;
    ~Msg_MSEX_GELT() override;

    unsigned char libraryType = 0;      ///< MSEX library type; offset 35
    std::vector<QString> libraryIds;    ///< libraries as text, behind their count; 1 byte each in MSEX 1.0, else 4
    unsigned short thumbnailHeight = 0; ///< pixels; offset 32
    unsigned short thumbnailWidth = 0;  ///< pixels; offset 30
    QString thumbnailFormat;            ///< picture format as text; offset 26, four characters
};

/// GETh, "get element thumbnail": asks for the pictures of elements of one library; each is answered by a
/// Msg_MSEX_ETHN.
class CITP_EXPORT Msg_MSEX_GETH : public Msg_MSEX
{
public:
    Msg_MSEX_GETH() = default;
    /// The height comes first here although the width goes first on the wire, as in Msg_MSEX_GELT. From MSEX 1.1 on a
    /// library identity of fewer than 7 characters cannot have four levels: `valid` is then false, and the request
    /// serialises to nothing. The other requests make no such test.
    /// @param minor MSEX minor version to write the request in, 0 to 2
    /// @param type MSEX library type
    /// @param id the library: a number in MSEX 1.0, else four levels
    /// @param height wanted height in pixels
    /// @param width wanted width in pixels
    /// @param format "JPEG", "PNG" or "RGB8"; only the first letter counts, as in fromGraphicFormat()
    /// @param numbers the elements asked for; empty asks for all
    Msg_MSEX_GETH(unsigned char minor, unsigned char type, const QString& id, unsigned short height,
                  unsigned short width, const QString& format, const std::vector<unsigned char>& numbers);
    /// Copies every member.
    Msg_MSEX_GETH(const Msg_MSEX_GETH&) = default;
    /// Leaves the CITP header of the target alone, `valid` included, as Msg_MSEX does.
    Msg_MSEX_GETH& operator=(const Msg_MSEX_GETH&) = default;
    ~Msg_MSEX_GETH() override;

    unsigned char libraryType = 0;             ///< MSEX library type; offset 35
    QString libraryId;                         ///< library as text; offset 36, 1 byte in MSEX 1.0, else 4
    unsigned short thumbnailHeight = 0;        ///< pixels; offset 32
    unsigned short thumbnailWidth = 0;         ///< pixels; offset 30
    QString thumbnailFormat;                   ///< picture format as text; offset 26, four characters
    std::vector<unsigned char> elementNumbers; ///< element numbers, 0 to 255, behind their count
};

/// Replaces @p out with the whole message and returns it. A minor version other than 0, 1 and 2 gives a body of the
/// library type and the numbers alone.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELI& m);
/// @copydoc operator>>(QByteArray&, const Msg_MSEX_GELI&)
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GEIN& m);
/// Replaces @p out with the whole message and returns it. Minor versions above 2 are laid out as 2.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GELT& m);
/// Replaces @p out with the whole message and returns it; leaves @p out untouched if the request is not `valid`. A
/// minor version other than 0, 1 and 2 gives a body without library and element count.
CITP_EXPORT QByteArray& operator>>(QByteArray& out, const Msg_MSEX_GETH& m);
} // namespace CITP

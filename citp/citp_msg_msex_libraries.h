// The MSEX messages about a media server's element libraries: ELIn lists them, ELUp tells that one has changed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <array>
#include <vector>

namespace CITP {
/// ELIn, "element library information": the libraries of one type, the answer to a Msg_MSEX_GELI. Only received.
///
/// A body that is cut short is no error: what is missing reads as 0 or empty text, and the list has as many records as
/// the message announced.
class CITP_EXPORT Msg_MSEX_ELIN : public Msg_MSEX
{
public:
    /// One library.
    struct CITP_EXPORT ElementLibraryInformation
    {
        QString LIBID;                      ///< identity: a number in MSEX 1.0 ("7"), else four levels ("1,2,0,0")
        unsigned char DMXRangeMin = 0;      ///< lowest DMX value that selects the library
        unsigned char DMXRangeMax = 0;      ///< highest DMX value that selects the library
        QString Name;                       ///< name for people; UCS-2 on the wire
        unsigned short ElementCount = 0;    ///< number of elements in it; one byte on the wire up to MSEX 1.1
        unsigned short SubLibraryCount = 0; ///< number of libraries directly below; 0 in MSEX 1.0
        unsigned int SerialNumber = 0;      ///< changes when the content does; 0 unless MSEX 1.2
    };

    Msg_MSEX_ELIN() = default;
    /// Parses a whole message, CITP header included. Stops at once if the header is invalid. An MSEX minor version
    /// above 2 gives an empty list in a message that stays valid: a server that is newer than this library is answered
    /// by showing nothing, not by dropping what it said.
    explicit Msg_MSEX_ELIN(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_ELIN(const Msg_MSEX_ELIN&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_ELIN& operator=(const Msg_MSEX_ELIN&) = default;
    ~Msg_MSEX_ELIN() override;

    std::vector<ElementLibraryInformation> Libraries; ///< one record a library, in wire order
    unsigned char LibraryType = 0;                    ///< MSEX library type of them all, as received; offset 26
};

/// ELUp, "element library updated": the content of a library has changed; sent by a server unasked. Only received.
///
/// From MSEX 1.2 on it also says which elements and sub-libraries are concerned.
class CITP_EXPORT Msg_MSEX_ELUP : public Msg_MSEX
{
public:
    Msg_MSEX_ELUP() = default;
    /// Parses a whole message, CITP header included. An MSEX minor version above 2 clears `valid`; then only
    /// LibraryType has been read. A header that is invalid does not stop the reading.
    explicit Msg_MSEX_ELUP(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_ELUP(const Msg_MSEX_ELUP&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_ELUP& operator=(const Msg_MSEX_ELUP&) = default;
    ~Msg_MSEX_ELUP() override;

    /// Whether bit @p element of AffectedElements is set. The flag "all elements affected" (0x10 of UpdateFlags) plays
    /// no part in it: a receiver that cares looks at both.
    bool GetElementChanged(unsigned char element) const;
    /// Whether bit @p library of AffectedLibraries is set. As with the elements, the flag for all (0x20) plays no part.
    bool GetSublibraryChanged(unsigned char library) const;

    QString LibraryId;             ///< the library: a number in MSEX 1.0 ("7"), else four levels; offset 27
    unsigned char LibraryType = 0; ///< MSEX library type, as received; offset 26
    /// Bit set: 0x01 existing elements updated, 0x02 elements added or removed, 0x04 sub-libraries updated, 0x08
    /// sub-libraries added or removed, and from MSEX 1.2 on 0x10 all elements affected, 0x20 all sub-libraries
    /// affected.
    unsigned char UpdateFlags = 0;
    std::array<unsigned char, 32> AffectedElements{};  ///< bit n, the lowest first, is element n; MSEX 1.2, else all 0
    std::array<unsigned char, 32> AffectedLibraries{}; ///< bit n is sub-library n; MSEX 1.2, else all 0
};

/// Appends the debug text of @p m to @p text and returns it.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_ELIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELUP& m);
} // namespace CITP

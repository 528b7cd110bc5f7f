// The MSEX messages about the element libraries of a media server: ELIn lists them, ELUp reports a change of one.
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
/// A truncated body is not an error: missing fields are 0 or empty, and the list has as many records as the message
/// announces.
class CITP_EXPORT Msg_MSEX_ELIN : public Msg_MSEX
{
public:
    /// One library.
    struct CITP_EXPORT ElementLibraryInformation
    {
        QString LIBID;                      ///< identifier: a number in MSEX 1.0 ("7"), else four levels ("1,2,0,0")
        unsigned char DMXRangeMin = 0;      ///< lowest DMX value that selects the library
        unsigned char DMXRangeMax = 0;      ///< highest DMX value that selects the library
        QString Name;                       ///< display name; UCS-2 on the wire
        unsigned short ElementCount = 0;    ///< number of elements; one byte on the wire before MSEX 1.2
        unsigned short SubLibraryCount = 0; ///< number of direct sub-libraries; 0 in MSEX 1.0
        unsigned int SerialNumber = 0;      ///< changes with the content; 0 before MSEX 1.2
    };

    Msg_MSEX_ELIN() = default;
    /// Parses a whole message with its CITP header. The body is not parsed if the header is invalid. With an MSEX
    /// minor version above 2, the list stays empty and #valid does not change: the answer of a server with a newer
    /// version reaches the application as an empty list instead of being dropped.
    explicit Msg_MSEX_ELIN(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_ELIN(const Msg_MSEX_ELIN&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_ELIN& operator=(const Msg_MSEX_ELIN&) = default;
    ~Msg_MSEX_ELIN() override;

    std::vector<ElementLibraryInformation> Libraries; ///< the libraries in message order
    unsigned char LibraryType = 0;                    ///< MSEX library type of all libraries, as received; offset 26
};

/// ELUp, "element library updated": the content of a library has changed. Only received; servers send it unsolicited.
///
/// Since MSEX 1.2 it also names the affected elements and sub-libraries.
class CITP_EXPORT Msg_MSEX_ELUP : public Msg_MSEX
{
public:
    Msg_MSEX_ELUP() = default;
    /// Parses a whole message with its CITP header. An MSEX minor version above 2 clears #valid; then only
    /// LibraryType is read. An invalid CITP header does not stop parsing.
    explicit Msg_MSEX_ELUP(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_ELUP(const Msg_MSEX_ELUP&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_ELUP& operator=(const Msg_MSEX_ELUP&) = default;
    ~Msg_MSEX_ELUP() override;

    /// Whether bit @p element of AffectedElements is set. The flag "all elements affected" (0x10 of UpdateFlags) is not
    /// considered; check both.
    bool GetElementChanged(unsigned char element) const;
    /// Whether bit @p library of AffectedLibraries is set. The flag "all sub-libraries affected" (0x20 of UpdateFlags)
    /// is not considered.
    bool GetSublibraryChanged(unsigned char library) const;

    QString LibraryId;             ///< library identifier: a number in MSEX 1.0 ("7"), else four levels; offset 27
    unsigned char LibraryType = 0; ///< MSEX library type, as received; offset 26
    /// Bits: 0x01 existing elements updated, 0x02 elements added or removed, 0x04 sub-libraries updated, 0x08
    /// sub-libraries added or removed; since MSEX 1.2 also 0x10 all elements affected, 0x20 all sub-libraries affected.
    unsigned char UpdateFlags = 0;
    std::array<unsigned char, 32> AffectedElements{};  ///< bit n is element n, lowest bit first; 0 before MSEX 1.2
    std::array<unsigned char, 32> AffectedLibraries{}; ///< bit n is sub-library n; 0 before MSEX 1.2
};

/// Appends the debug text of @p m to @p text and returns @p text.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_ELIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELUP& m);
} // namespace CITP

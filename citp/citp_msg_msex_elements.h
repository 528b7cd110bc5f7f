// The MSEX messages that list the elements of a library: MEIn (media), EEIn (effects) and GLEI (other elements).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
/// MEIn, "media element information": the media of one library, the answer to a Msg_MSEX_GEIN. Only received.
///
/// The following applies to MEIn, EEIn and GLEI. An invalid CITP header does not stop parsing. A truncated body is not
/// an error: missing fields are 0 or empty, and the list has as many records as the message announces. Unknown MSEX
/// versions are treated differently, for compatibility: an MEIn stays valid and reaches the application as an empty
/// list, an EEIn or a GLEI is dropped.
class CITP_EXPORT Msg_MSEX_MEIN : public Msg_MSEX
{
public:
    /// One medium.
    struct CITP_EXPORT MediaInformation
    {
        unsigned char Number = 0;         ///< element number in its library
        unsigned char DMXRangeMin = 0;    ///< lowest DMX value that selects the medium
        unsigned char DMXRangeMax = 0;    ///< highest DMX value that selects the medium
        QString Name;                     ///< display name; UCS-2 on the wire
        unsigned long long Timestamp = 0; ///< 64-bit time stamp of the medium's version, in the server's units
        unsigned short Width = 0;         ///< width in pixels
        unsigned short Height = 0;        ///< height in pixels
        unsigned int Length = 0;          ///< length in frames
        unsigned char FrameRate = 0;      ///< frames per second
        unsigned int SerialNumber = 0;    ///< changes with the medium; 0 before MSEX 1.2
    };

    Msg_MSEX_MEIN() = default;
    /// Parses a whole message with its CITP header. With an MSEX minor version above 2, the list and LibraryId stay
    /// empty, and #valid does not change.
    explicit Msg_MSEX_MEIN(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_MEIN(const Msg_MSEX_MEIN&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_MEIN& operator=(const Msg_MSEX_MEIN&) = default;
    ~Msg_MSEX_MEIN() override;

    QString LibraryId;                   ///< library: a number in MSEX 1.0 ("7"), else four levels; offset 26
    std::vector<MediaInformation> Media; ///< the media in message order
};

/// EEIn, "effect element information": the effects of one library and the names of their parameters, the answer to a
/// Msg_MSEX_GEIN. Only received. For truncated bodies see Msg_MSEX_MEIN.
class CITP_EXPORT Msg_MSEX_EEIN : public Msg_MSEX
{
public:
    /// One effect.
    struct CITP_EXPORT EffectInformation
    {
        unsigned char Number = 0;            ///< element number in its library
        unsigned char DMXRangeMin = 0;       ///< lowest DMX value that selects the effect
        unsigned char DMXRangeMax = 0;       ///< highest DMX value that selects the effect
        QString EffectName;                  ///< display name; UCS-2 on the wire
        std::vector<QString> ParameterNames; ///< the parameters in message order; at most 255
        unsigned int SerialNumber = 0;       ///< changes with the effect; 0 before MSEX 1.2
    };

    Msg_MSEX_EEIN() = default;
    /// Parses a whole message with its CITP header. An MSEX minor version above 2 clears #valid; the body is not
    /// parsed.
    explicit Msg_MSEX_EEIN(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_EEIN(const Msg_MSEX_EEIN&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_EEIN& operator=(const Msg_MSEX_EEIN&) = default;
    ~Msg_MSEX_EEIN() override;

    QString LibraryId;                      ///< library: a number in MSEX 1.0 ("7"), else four levels; offset 26
    std::vector<EffectInformation> Effects; ///< the effects in message order
};

/// GLEI, "generic element information": the elements of a library of any other type, the answer to a Msg_MSEX_GEIN.
/// Only received; added in MSEX 1.1. For truncated bodies see Msg_MSEX_MEIN.
class CITP_EXPORT Msg_MSEX_GLEI : public Msg_MSEX
{
public:
    /// One element.
    struct CITP_EXPORT GenericInformation
    {
        unsigned char Number = 0;         ///< element number in its library
        unsigned char DMXRangeMin = 0;    ///< lowest DMX value that selects the element
        unsigned char DMXRangeMax = 0;    ///< highest DMX value that selects the element
        QString Name;                     ///< display name; UCS-2 on the wire
        unsigned long long Timestamp = 0; ///< 64-bit time stamp of the element's version, in the server's units
        unsigned int SerialNumber = 0;    ///< changes with the element; 0 before MSEX 1.2
    };

    Msg_MSEX_GLEI() = default;
    /// Parses a whole message with its CITP header. An MSEX minor version other than 1 and 2 clears #valid; the body
    /// is not parsed.
    explicit Msg_MSEX_GLEI(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_GLEI(const Msg_MSEX_GLEI&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_GLEI& operator=(const Msg_MSEX_GLEI&) = default;
    ~Msg_MSEX_GLEI() override;

    std::vector<GenericInformation> Elements; ///< the elements in message order
    QString LibraryId;                        ///< library identifier, four levels; offset 26 in MSEX 1.1, 27 in 1.2
    unsigned char LibraryType = 0;            ///< MSEX library type; offset 26 in MSEX 1.2, 0 in 1.1
};

/// Appends the debug text of @p m to @p text and returns @p text. Time stamps show only their low 32 bits. The spelling
/// of the labels ("DMXRangMax", "ELementCount") is kept, because users search logs for them.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_MEIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_MEIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_EEIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_MEIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_GLEI& m);
} // namespace CITP

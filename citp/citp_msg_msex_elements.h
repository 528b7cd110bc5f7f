// The MSEX messages that list the elements of one library: MEIn (media), EEIn (effects) and GLEI (everything else).
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

#include <vector>

namespace CITP {
// What holds for all three. They are only received, as answers to a Msg_MSEX_GEIN; an invalid CITP header does not stop
// the reading. A body that is cut short is no error: what is missing reads as 0 or empty text, and the list has as many
// records as the message announced. The three treat an MSEX version that they do not know differently, on purpose:
// receivers rely on an MEIn to come through, empty, where an EEIn or a GLEI is dropped.

/// MEIn, "media element information": the media of one library.
class CITP_EXPORT Msg_MSEX_MEIN : public Msg_MSEX
{
public:
    /// One medium.
    struct CITP_EXPORT MediaInformation
    {
        unsigned char Number = 0;         ///< element number in its library
        unsigned char DMXRangeMin = 0;    ///< lowest DMX value that selects the medium
        unsigned char DMXRangeMax = 0;    ///< highest DMX value that selects the medium
        QString Name;                     ///< name for people; UCS-2 on the wire
        unsigned long long Timestamp = 0; ///< time stamp of the medium's version, 64 bits, as the server counts it
        unsigned short Width = 0;         ///< pixels
        unsigned short Height = 0;        ///< pixels
        unsigned int Length = 0;          ///< length in frames
        unsigned char FrameRate = 0;      ///< frames per second
        unsigned int SerialNumber = 0;    ///< changes when the medium does; 0 unless MSEX 1.2
    };

    Msg_MSEX_MEIN() = default;
    /// Parses a whole message, CITP header included. An MSEX minor version above 2 gives an empty list and identity;
    /// `valid` stays as it is.
    explicit Msg_MSEX_MEIN(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_MEIN(const Msg_MSEX_MEIN&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_MEIN& operator=(const Msg_MSEX_MEIN&) = default;
    ~Msg_MSEX_MEIN() override;

    QString LibraryId;                   ///< the library: a number in MSEX 1.0 ("7"), else four levels; offset 26
    std::vector<MediaInformation> Media; ///< one record a medium, in wire order
};

/// EEIn, "effect element information": the effects of one library, with the names of their parameters.
class CITP_EXPORT Msg_MSEX_EEIN : public Msg_MSEX
{
public:
    /// One effect.
    struct CITP_EXPORT EffectInformation
    {
        unsigned char Number = 0;            ///< element number in its library
        unsigned char DMXRangeMin = 0;       ///< lowest DMX value that selects the effect
        unsigned char DMXRangeMax = 0;       ///< highest DMX value that selects the effect
        QString EffectName;                  ///< name for people; UCS-2 on the wire
        std::vector<QString> ParameterNames; ///< one name a parameter, in wire order; at most 255
        unsigned int SerialNumber = 0;       ///< changes when the effect does; 0 unless MSEX 1.2
    };

    Msg_MSEX_EEIN() = default;
    /// Parses a whole message, CITP header included. An MSEX minor version above 2 clears `valid`, and nothing is read.
    explicit Msg_MSEX_EEIN(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_EEIN(const Msg_MSEX_EEIN&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_EEIN& operator=(const Msg_MSEX_EEIN&) = default;
    ~Msg_MSEX_EEIN() override;

    QString LibraryId;                      ///< the library: a number in MSEX 1.0 ("7"), else four levels; offset 26
    std::vector<EffectInformation> Effects; ///< one record an effect, in wire order
};

/// GLEI, "generic element information": the elements of a library of any other type. It came with MSEX 1.1.
class CITP_EXPORT Msg_MSEX_GLEI : public Msg_MSEX
{
public:
    /// One element.
    struct CITP_EXPORT GenericInformation
    {
        unsigned char Number = 0;         ///< element number in its library
        unsigned char DMXRangeMin = 0;    ///< lowest DMX value that selects the element
        unsigned char DMXRangeMax = 0;    ///< highest DMX value that selects the element
        QString Name;                     ///< name for people; UCS-2 on the wire
        unsigned long long Timestamp = 0; ///< time stamp of the element's version, 64 bits, as the server counts it
        unsigned int SerialNumber = 0;    ///< changes when the element does; 0 unless MSEX 1.2
    };

    Msg_MSEX_GLEI() = default;
    /// Parses a whole message, CITP header included. An MSEX minor version other than 1 and 2 clears `valid`, and
    /// nothing is read.
    explicit Msg_MSEX_GLEI(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_GLEI(const Msg_MSEX_GLEI&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_GLEI& operator=(const Msg_MSEX_GLEI&) = default;
    ~Msg_MSEX_GLEI() override;

    std::vector<GenericInformation> Elements; ///< one record an element, in wire order
    QString LibraryId;                        ///< the library, four levels; offset 26 in MSEX 1.1, 27 in 1.2
    unsigned char LibraryType = 0;            ///< MSEX library type; offset 26 in MSEX 1.2, 0 in 1.1
};

/// Appends the debug text of @p m to @p text and returns it. Of the time stamps only the low 32 bits are shown, and
/// labels are spelt as they have always been ("DMXRangMax", "ELementCount"): people search their logs for them.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_MEIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_MEIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_EEIN& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_MEIN&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_GLEI& m);
} // namespace CITP

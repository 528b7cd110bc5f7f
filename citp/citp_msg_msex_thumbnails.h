// The MSEX messages that bring a picture: ELTh for a whole element library, EThn for one element.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

namespace CITP {
/// What both thumbnail messages hold. Only received; the pictures are not decoded.
///
/// A thumbnail that cannot be used, because its MSEX version is unknown or its announced size exceeds the message,
/// arrives with an empty ThumbnailBuffer and `valid` still true, and nothing is logged. Kept on purpose: the
/// application hears of every answer, so that it can stop waiting for the picture. It tells a failure by the empty
/// buffer; a cut-off picture is never stored.
class CITP_EXPORT Msg_MSEX_Thumbnail_Response_Base : public Msg_MSEX
{
public:
    Msg_MSEX_Thumbnail_Response_Base() = default;
    /// Parses the headers alone; the body belongs to the derived classes.
    explicit Msg_MSEX_Thumbnail_Response_Base(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_Thumbnail_Response_Base(const Msg_MSEX_Thumbnail_Response_Base&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_Thumbnail_Response_Base& operator=(const Msg_MSEX_Thumbnail_Response_Base&) = default;
    ~Msg_MSEX_Thumbnail_Response_Base() override;

    unsigned char LibraryType = 0;      ///< MSEX library type, as received; offset 26
    QString LibraryId;                  ///< the library: a number in MSEX 1.0 ("7"), else four levels; offset 27
    unsigned short ThumbnailHeight = 0; ///< pixels; behind the width on the wire
    unsigned short ThumbnailWidth = 0;  ///< pixels
    QString ThumbnailFormat;            ///< the format's four characters, e.g. "RGB8", "JPEG" or "PNG "
    QByteArray ThumbnailBuffer;         ///< the picture in that format, at most 65535 bytes; empty if there is none
};

/// ELTh, "element library thumbnail": the picture of a library, an answer to a Msg_MSEX_GELT.
class CITP_EXPORT Msg_MSEX_ELTH : public Msg_MSEX_Thumbnail_Response_Base
{
public:
    Msg_MSEX_ELTH() = default;
    /// Parses a whole message, CITP header included. Nothing of the body is read if the header is invalid or the MSEX
    /// minor version above 2.
    explicit Msg_MSEX_ELTH(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_ELTH(const Msg_MSEX_ELTH&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_ELTH& operator=(const Msg_MSEX_ELTH&) = default;
    ~Msg_MSEX_ELTH() override;
};

/// EThn, "element thumbnail": the picture of one element, an answer to a Msg_MSEX_GETH.
class CITP_EXPORT Msg_MSEX_ETHN : public Msg_MSEX_Thumbnail_Response_Base
{
public:
    Msg_MSEX_ETHN() = default;
    /// Parses a whole message, CITP header included. Nothing of the body is read if the header is invalid, and
    /// LibraryType alone if the MSEX minor version is above 2.
    explicit Msg_MSEX_ETHN(const QByteArray& msg);
    /// Copies every member.
    Msg_MSEX_ETHN(const Msg_MSEX_ETHN&) = default;
    /// Leaves the CITP header of the target alone, as Msg_MSEX does.
    Msg_MSEX_ETHN& operator=(const Msg_MSEX_ETHN&) = default;
    ~Msg_MSEX_ETHN() override;

    unsigned char ElementNumber = 0; ///< the element in its library; offset 28 in MSEX 1.0, else 31
};

/// Appends the debug text of @p m to @p text and returns it. The height stands before the width.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_Thumbnail_Response_Base& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_Thumbnail_Response_Base&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELTH& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_Thumbnail_Response_Base&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ETHN& m);
} // namespace CITP

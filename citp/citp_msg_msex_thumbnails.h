// The MSEX messages that carry a thumbnail: ELTh for an element library, EThn for one element.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_msex.h>

#include <QByteArray>
#include <QString>

namespace CITP {
/// The common fields of both thumbnail messages. Only received; the images are not decoded.
///
/// A thumbnail with an unknown MSEX version, or whose announced size exceeds the message, has an empty
/// #ThumbnailBuffer. #valid stays true and nothing is logged, so that every answer reaches the application, which can
/// stop waiting for the image. The empty buffer indicates the error; a truncated image is never stored.
class CITP_EXPORT Msg_MSEX_Thumbnail_Response_Base : public Msg_MSEX
{
public:
    Msg_MSEX_Thumbnail_Response_Base() = default;
    /// Parses only the CITP and MSEX headers; the derived classes parse the body.
    explicit Msg_MSEX_Thumbnail_Response_Base(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_Thumbnail_Response_Base(const Msg_MSEX_Thumbnail_Response_Base&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_Thumbnail_Response_Base& operator=(const Msg_MSEX_Thumbnail_Response_Base&) = default;
    ~Msg_MSEX_Thumbnail_Response_Base() override;

    unsigned char LibraryType = 0;      ///< MSEX library type, as received; offset 26
    QString LibraryId;                  ///< library identifier: a number in MSEX 1.0 ("7"), else four levels; offset 27
    unsigned short ThumbnailHeight = 0; ///< height in pixels; after the width on the wire
    unsigned short ThumbnailWidth = 0;  ///< width in pixels
    QString ThumbnailFormat;            ///< image format, four characters: "RGB8", "JPEG" or "PNG "
    QByteArray ThumbnailBuffer;         ///< image data in that format, at most 65535 bytes; empty if there is none
};

/// ELTh, "element library thumbnail": the thumbnail of a library, an answer to a Msg_MSEX_GELT.
class CITP_EXPORT Msg_MSEX_ELTH : public Msg_MSEX_Thumbnail_Response_Base
{
public:
    Msg_MSEX_ELTH() = default;
    /// Parses a whole message with its CITP header. The body is not parsed if the header is invalid or the MSEX minor
    /// version is above 2.
    explicit Msg_MSEX_ELTH(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_ELTH(const Msg_MSEX_ELTH&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_ELTH& operator=(const Msg_MSEX_ELTH&) = default;
    ~Msg_MSEX_ELTH() override;
};

/// EThn, "element thumbnail": the thumbnail of one element, an answer to a Msg_MSEX_GETH.
class CITP_EXPORT Msg_MSEX_ETHN : public Msg_MSEX_Thumbnail_Response_Base
{
public:
    Msg_MSEX_ETHN() = default;
    /// Parses a whole message with its CITP header. The body is not parsed if the header is invalid. If the MSEX minor
    /// version is above 2, only LibraryType is read.
    explicit Msg_MSEX_ETHN(const QByteArray& msg);
    /// Copies all members.
    Msg_MSEX_ETHN(const Msg_MSEX_ETHN&) = default;
    /// Copies all members except the CITP header, as Msg_MSEX::operator=() does.
    Msg_MSEX_ETHN& operator=(const Msg_MSEX_ETHN&) = default;
    ~Msg_MSEX_ETHN() override;

    unsigned char ElementNumber = 0; ///< element number in the library; offset 28 in MSEX 1.0, else 31
};

/// Appends the debug text of @p m to @p text and returns @p text. The height precedes the width.
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_Thumbnail_Response_Base& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_Thumbnail_Response_Base&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ELTH& m);
/// @copydoc operator>>(QString&, const Msg_MSEX_Thumbnail_Response_Base&)
CITP_EXPORT QString& operator>>(QString& text, const Msg_MSEX_ETHN& m);
} // namespace CITP

// ELTh and EThn: parsing and debug text.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_thumbnails.h>

#include "citp_msex_fields_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
/// Reads the image and its description, the last fields of both messages. Throws an error text after the description if
/// the image is longer than the rest of the message.
void readImage(WireReader& reader, Msg_MSEX_Thumbnail_Response_Base& response)
{
    fromGraphicFormat(response.ThumbnailFormat, reader.u32());
    response.ThumbnailWidth = reader.u16();
    response.ThumbnailHeight = reader.u16();
    const quint16 size = reader.u16();
    if (reader.remaining() < size) {
        throw "ThumbnailBufferSize greather than remaining message";
    }
    if (size != 0) {
        response.ThumbnailBuffer = QByteArray(reader.data(), size);
    }
}
} // namespace

Msg_MSEX_Thumbnail_Response_Base::Msg_MSEX_Thumbnail_Response_Base(const QByteArray& msg) : Msg_MSEX(msg) {}

Msg_MSEX_Thumbnail_Response_Base::~Msg_MSEX_Thumbnail_Response_Base() = default;

Msg_MSEX_ELTH::Msg_MSEX_ELTH(const QByteArray& msg) : Msg_MSEX_Thumbnail_Response_Base(msg)
{
    if (!valid) {
        return;
    }
    try {
        if (versionMinor > 2) {
            throw "wrong version";
        }
        WireReader reader(msg, MIN_MSEX_LENGTH);
        LibraryType = reader.u8();
        LibraryId = readLibraryId(reader, versionMinor);
        readImage(reader, *this);
    } catch (const char*) {
        // The empty ThumbnailBuffer indicates the error to the receiver.
    }
}

Msg_MSEX_ELTH::~Msg_MSEX_ELTH() = default;

Msg_MSEX_ETHN::Msg_MSEX_ETHN(const QByteArray& msg) : Msg_MSEX_Thumbnail_Response_Base(msg)
{
    if (!valid) {
        return;
    }
    try {
        WireReader reader(msg, MIN_MSEX_LENGTH);
        LibraryType = reader.u8();
        if (versionMinor > 2) {
            throw "bad MSEX version";
        }
        LibraryId = readLibraryId(reader, versionMinor);
        ElementNumber = reader.u8();
        readImage(reader, *this);
    } catch (const char*) {
        // The empty ThumbnailBuffer indicates the error to the receiver.
    }
}

Msg_MSEX_ETHN::~Msg_MSEX_ETHN() = default;

QString& operator>>(QString& text, const Msg_MSEX_Thumbnail_Response_Base& m)
{
    text >> static_cast<const Msg_MSEX&>(m);
    addToStr(text, QStringLiteral("LibraryType="), m.LibraryType);
    addToStr(text, QStringLiteral(" LibraryId="), m.LibraryId);
    addToStr(text, QStringLiteral(" ThumbnailHeight="), m.ThumbnailHeight);
    addToStr(text, QStringLiteral(" GetThumbnailWidth="), m.ThumbnailWidth);
    addToStr(text, QStringLiteral(" ThumbnailFormat="), m.ThumbnailFormat);
    addToStr(text, QStringLiteral(" size="), static_cast<unsigned int>(m.ThumbnailBuffer.size()));
    return text;
}

QString& operator>>(QString& text, const Msg_MSEX_ELTH& m)
{
    return text >> static_cast<const Msg_MSEX_Thumbnail_Response_Base&>(m);
}

QString& operator>>(QString& text, const Msg_MSEX_ETHN& m)
{
    text >> static_cast<const Msg_MSEX_Thumbnail_Response_Base&>(m);
    addToStr(text, QStringLiteral(" ElementNumber="), m.ElementNumber);
    return text;
}
} // namespace CITP

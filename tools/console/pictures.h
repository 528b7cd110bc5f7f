// From thumbnail answers to picture files: checking, decoding, and names that are safe as file names.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_thumbnails.h>

#include <QByteArray>
#include <QImage>
#include <QString>

namespace Console {
/// What a thumbnail answer brought.
struct Picture
{
    QString problem;   ///< empty, or what is wrong with it in a few words; then the rest is empty
    QByteArray file;   ///< the file's content: as received, or PNG made of RGB8
    QString extension; ///< "jpg" or "png"
    QString format;    ///< as received: "JPEG", "PNG" or "RGB8"
    QSize size;        ///< of the decoded picture, in pixels
};

/// Checks and decodes @p answer. Nothing that it holds can make this throw, nor take more memory than a decoded
/// picture of 4096x4096 pixels does, which is 128 MiB.
Picture toPicture(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer);

/// @p name as a part of a file name on any system: letters, digits, marks and a few signs are kept, everything else
/// becomes "_"; at most 80 bytes of UTF-8. May be empty.
QString fileNamePart(const QString& name);

/// The name of an element's file, e.g. "1.2.0.0-007-Blue_gradient.jpg": sorts as the server does and cannot be that of
/// another element.
QString fileName(const QString& library, int element, const QString& name, const QString& extension);
} // namespace Console

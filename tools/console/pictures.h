// Conversion of thumbnail answers to picture files: checks and decodes the picture and makes a safe file name.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_thumbnails.h>

#include <QByteArray>
#include <QImage>
#include <QString>

namespace Console {
/// The picture of a thumbnail answer.
struct Picture
{
    QString problem;   ///< error text, in which case the other fields are empty; empty on success
    QByteArray file;   ///< content of the file: as received, or RGB8 converted to PNG
    QString extension; ///< "jpg" or "png"
    QString format;    ///< as received: "JPEG", "PNG" or "RGB8"
    QImage image;      ///< the decoded picture
};

/// Checks and decodes @p answer. Does not throw, whatever the answer contains. Refuses pictures that would take much
/// more memory or time than one of the size @p requested: of more than 16 times its pixels (at least 1 million), with a
/// side above 4096, or, in JPEG, of more than 100 scans.
Picture toPicture(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer, const QSize& requested);

/// Converts @p name to a part of a file name that is valid on all systems: letters, digits, marks and "-+,()._" are
/// kept, other characters are replaced by "_", and the result is cut to 80 bytes of UTF-8. May be empty.
QString fileNamePart(const QString& name);

/// The file name of an element, e.g. "1.2.0.0-007-Blue_gradient.jpg". It is unique among the elements of a server, and
/// the files sort in the server's order.
QString fileName(const QString& library, int element, const QString& name, const QString& extension);
} // namespace Console

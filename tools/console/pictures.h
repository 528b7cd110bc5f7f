// Conversion of pictures to files: checks and decodes the picture and makes a safe file name.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/values.h>

#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

namespace Console {
/// The file of a picture.
struct PictureFile
{
    QString problem;    ///< error text, in which case the other fields are empty; empty on success
    QByteArray content; ///< as received, or RGB8 converted to PNG
    QString extension;  ///< "jpg" or "png"
    QString format;     ///< as received: "JPEG", "PNG" or "RGB8"
    QSize size;         ///< in pixels
    QImage image;       ///< at most of the requested size, except RGB8
};

/// Checks and decodes @p picture as CITP::decodePicture() does.
PictureFile toPictureFile(const CITP::Picture& picture, const QSize& requested);

/// Converts @p name to a part of a file name that is valid on all systems: letters, digits, marks and "-+,()._" are
/// kept, other characters are replaced by "_", and the result is cut to 80 bytes of UTF-8. May be empty.
QString fileNamePart(const QString& name);

/// The file name of an element, e.g. "1.2.0.0-007-Blue_gradient.jpg". It is unique among the elements of a server, and
/// the files sort in the server's order.
QString fileName(const QString& library, int element, const QString& name, const QString& extension);
} // namespace Console

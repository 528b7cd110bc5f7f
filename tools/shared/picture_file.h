// The conversion of pictures to files that other programs show.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/values.h>

#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

namespace Tools {
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

/// @p name, of an element, without the extension of a picture: many elements are called like their file.
QString withoutPictureExtension(const QString& name);

/// Checks and decodes @p picture as CITP::decodePicture() does. Any thread.
PictureFile toPictureFile(const CITP::Picture& picture, const QSize& requested);
} // namespace Tools

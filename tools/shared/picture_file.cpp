// Checking and decoding, and PNG made of RGB8.
// SPDX-License-Identifier: Apache-2.0
#include "picture_file.h"

#include <citp_images/images.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QRegularExpression>

namespace Tools {
QString withoutPictureExtension(const QString& name)
{
    static const QRegularExpression extension("(\\.(jpe?g|png))+_*$", QRegularExpression::CaseInsensitiveOption);
    return QString(name).remove(extension);
}

PictureFile toPictureFile(const CITP::Picture& picture, const QSize& requested)
{
    const QString format = picture.format.trimmed();
    // A file of RGB8 is made of the image.
    const bool isRaw = format == QLatin1String("RGB8");
    const CITP::DecodedPicture decoded = CITP::decodePicture(picture, isRaw ? QSize() : requested);
    if (!decoded.problem.isEmpty())
        return {decoded.problem, {}, {}, {}, {}, {}};
    if (!isRaw) {
        const QString extension = format == QLatin1String("PNG") ? "png" : "jpg";
        return {{}, picture.data, extension, format, decoded.size, decoded.image};
    }
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    if (!decoded.image.save(&buffer, "png"))
        return {QCoreApplication::translate("Tools::PictureFile", "could not be converted to PNG"), {}, {}, {}, {}, {}};
    return {{}, buffer.data(), "png", format, decoded.size, decoded.image};
}
} // namespace Tools

// Decoding of thumbnails and generation of file names.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include <citp_images/images.h>

#include <QBuffer>
#include <QRegularExpression>

namespace Console {
namespace {
constexpr int MaxNameBytes = 80;

bool isAllowed(uint codePoint)
{
    return QChar::isLetterOrNumber(codePoint) || QChar::isMark(codePoint) ||
           (codePoint < 0x80 && QByteArray("-+,()._").contains(static_cast<char>(codePoint)));
}
} // namespace

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
        return {"could not be converted to PNG", {}, {}, {}, {}, {}};
    return {{}, buffer.data(), "png", format, decoded.size, decoded.image};
}

QString fileNamePart(const QString& name)
{
    QString part;
    int bytes = 0;
    for (const uint codePoint : name.normalized(QString::NormalizationForm_C).toUcs4()) {
        const QString character =
            isAllowed(codePoint) ? QString::fromUcs4(reinterpret_cast<const char32_t*>(&codePoint), 1) : QString("_");
        bytes += static_cast<int>(character.toUtf8().size());
        if (bytes > MaxNameBytes)
            break;
        part += character;
    }
    return part;
}

QString fileName(const QString& library, int element, const QString& name, const QString& extension)
{
    // Names of clips often are names of files.
    static const QRegularExpression pictureExtension("(\\.(jpe?g|png))+_*$", QRegularExpression::CaseInsensitiveOption);
    const QString part = fileNamePart(name).remove(pictureExtension);
    return QString("%1-%2%3.%4")
        .arg(QString(library).replace(',', '.'))
        .arg(element, 3, 10, QLatin1Char('0'))
        .arg(part.isEmpty() ? QString() : '-' + part, extension);
}
} // namespace Console

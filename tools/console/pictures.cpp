// Decoding of thumbnails and generation of file names.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include <QBuffer>
#include <QImageReader>
#include <QRegularExpression>

namespace Console {
namespace {
// Pictures beyond these limits are rejected before decoding, because a few bytes can claim a size that exhausts the
// memory, and 65 KB can hold thousands of scans over all pixels. Servers that ignore the requested size exceed it by
// less.
constexpr int MaxSide = 4096;
constexpr qint64 MaxPixels = 1 << 20;
constexpr qint64 MaxTimesRequested = 16;
constexpr int MaxScans = 100;
constexpr int MaxNameBytes = 80;

Picture unusable(const QString& problem)
{
    Picture picture;
    picture.problem = problem;
    return picture;
}

Picture fromRgb8(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer)
{
    const int width = answer.ThumbnailWidth;
    const int height = answer.ThumbnailHeight;
    const auto bytes = qint64(width) * height * 3;
    if (bytes == 0 || answer.ThumbnailBuffer.size() != bytes)
        return unusable(QString("%1 bytes are not an RGB8 picture of %2x%3")
                            .arg(answer.ThumbnailBuffer.size())
                            .arg(width)
                            .arg(height));
    const int rowBytes = width * 3;
    const QImage image(reinterpret_cast<const uchar*>(answer.ThumbnailBuffer.constData()), width, height, rowBytes,
                       QImage::Format_RGB888);
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "png"))
        return unusable("could not be converted to PNG");
    return {{}, buffer.data(), "png", "RGB8", image.copy()};
}

// Within a JPEG, these markers appear only where they have effect, except in the previews that some cameras embed.
QString problemOfJpeg(const QByteArray& bytes)
{
    const QByteArray startOfScan("\xff\xda");
    const QByteArray endOfImage("\xff\xd9");
    const auto scans = bytes.count(startOfScan);
    if (scans > MaxScans)
        return QString("%1 scans are too many for a thumbnail").arg(scans);
    if (bytes.lastIndexOf(endOfImage) < bytes.lastIndexOf(startOfScan))
        return "the picture is cut off";
    return {};
}

Picture fromEncoded(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer, const QSize& requested, const char* format,
                    const QString& extension)
{
    QByteArray bytes = answer.ThumbnailBuffer;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    reader.setDecideFormatFromContent(false);
    const QSize size = reader.size();
    const qint64 maxPixels = qMax(MaxPixels, MaxTimesRequested * requested.width() * requested.height());
    if (size.width() > MaxSide || size.height() > MaxSide || qint64(size.width()) * size.height() > maxPixels)
        return unusable(QString("%1x%2 pixels are too large for a thumbnail").arg(size.width()).arg(size.height()));
    const QString problem = extension == QLatin1String("jpg") ? problemOfJpeg(bytes) : QString();
    if (!problem.isEmpty())
        return unusable(problem);
    const QImage image = reader.read();
    if (image.isNull())
        return unusable(QString("%1 bytes are not a %2 picture").arg(bytes.size()).arg(QString(format).toUpper()));
    return {{}, bytes, extension, QString(format).toUpper(), image};
}

bool isAllowed(uint codePoint)
{
    return QChar::isLetterOrNumber(codePoint) || QChar::isMark(codePoint) ||
           (codePoint < 0x80 && QByteArray("-+,()._").contains(static_cast<char>(codePoint)));
}
} // namespace

Picture toPicture(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer, const QSize& requested)
{
    if (answer.ThumbnailBuffer.isEmpty())
        return unusable("empty or damaged answer");
    if (answer.ThumbnailFormat == "RGB8")
        return fromRgb8(answer);
    if (answer.ThumbnailFormat == "PNG ")
        return fromEncoded(answer, requested, "png", "png");
    if (answer.ThumbnailFormat == "JPEG")
        return fromEncoded(answer, requested, "jpeg", "jpg");
    return unusable(QString("unknown format '%1'").arg(answer.ThumbnailFormat));
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
    static const QRegularExpression pictureExtension("\\.(jpe?g|png)$", QRegularExpression::CaseInsensitiveOption);
    const QString part = fileNamePart(QString(name).remove(pictureExtension));
    return QString("%1-%2%3.%4")
        .arg(QString(library).replace(',', '.'))
        .arg(element, 3, 10, QLatin1Char('0'))
        .arg(part.isEmpty() ? QString() : '-' + part, extension);
}
} // namespace Console

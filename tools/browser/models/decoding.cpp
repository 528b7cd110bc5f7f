// Decoders for the three thumbnail formats, with a limit on the size that a picture may declare.
// SPDX-License-Identifier: Apache-2.0
#include "decoding.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QImageReader>

namespace Browser {
namespace {
// No thumbnail is larger. A compressed picture of 65535 bytes can declare a size that would fill the memory.
constexpr int MaxSide = 2048;

struct PictureTexts
{
    Q_DECLARE_TR_FUNCTIONS(Browser::Decoding)
};

Decoded failed(const QString& problem)
{
    return {{}, problem};
}

Decoded scaledToPreview(const QImage& image)
{
    const bool fits = image.width() <= PreviewPixels.width() && image.height() <= PreviewPixels.height();
    const QImage scaled = fits ? image : image.scaled(PreviewPixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    // QPainter draws these formats without a conversion.
    return {
        scaled.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32),
        {}};
}

Decoded fromRgb8(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer)
{
    const int width = answer.ThumbnailWidth;
    const int height = answer.ThumbnailHeight;
    const qint64 bytes = qint64(width) * height * 3;
    if (bytes == 0 || answer.ThumbnailBuffer.size() != bytes)
        return failed(PictureTexts::tr("%1 bytes are not a picture of %2 × %3 pixels")
                          .arg(answer.ThumbnailBuffer.size())
                          .arg(width)
                          .arg(height));
    return scaledToPreview(QImage(reinterpret_cast<const uchar*>(answer.ThumbnailBuffer.constData()), width, height,
                                  answer.ThumbnailBuffer.size() / height, QImage::Format_RGB888));
}

Decoded fromEncoded(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer, const char* format)
{
    QByteArray bytes = answer.ThumbnailBuffer;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    reader.setDecideFormatFromContent(false);
    const QSize size = reader.size();
    if (size.width() > MaxSide || size.height() > MaxSide)
        return failed(PictureTexts::tr("%1 × %2 pixels are too many").arg(size.width()).arg(size.height()));
    const QImage image = reader.read();
    if (image.isNull())
        return failed(PictureTexts::tr("damaged picture"));
    return scaledToPreview(image);
}
} // namespace

Decoded decode(const CITP::Msg_MSEX_Thumbnail_Response_Base& answer)
{
    if (answer.ThumbnailBuffer.isEmpty())
        return failed(PictureTexts::tr("no picture"));
    if (answer.ThumbnailFormat == QLatin1String("RGB8"))
        return fromRgb8(answer);
    if (answer.ThumbnailFormat == QLatin1String("PNG "))
        return fromEncoded(answer, "png");
    if (answer.ThumbnailFormat == QLatin1String("JPEG"))
        return fromEncoded(answer, "jpeg");
    return failed(PictureTexts::tr("unknown picture format"));
}
} // namespace Browser

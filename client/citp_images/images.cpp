// The decoding of the three formats, and the bounds on the memory and the time that it takes.
// SPDX-License-Identifier: Apache-2.0
#include <citp_images/images.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QImageReader>
#include <QtEndian>

namespace CITP {
namespace {
// A picture of 65535 bytes can declare a size that exhausts the memory, or hold thousands of scans, each over all
// pixels. Servers that ignore the requested size exceed it by less.
constexpr int maxSide = 4096;
constexpr qint64 alwaysAllowedPixels = 1 << 20;
constexpr qint64 maxTimesWanted = 16;
constexpr qint64 maxScans = 100;
// Progressive JPEGs usually have 10 scans.
constexpr qint64 maxScansOfAllPixels = 16;
// From 50 on, Qt reduces JPEGs smoothly.
constexpr int smoothQuality = 50;

struct Texts
{
    Q_DECLARE_TR_FUNCTIONS(CITP::Images)
};

DecodedPicture failed(const QString& problem)
{
    return {{}, {}, problem};
}

DecodedPicture success(const QImage& image, const QSize& size)
{
    const QImage pixels =
        image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    // QImage cannot remove a text. Comments of JPEGs are texts.
    return {pixels.textKeys().isEmpty()
                ? pixels
                : QImage(pixels.constBits(), pixels.width(), pixels.height(), pixels.bytesPerLine(), pixels.format())
                      .copy(),
            size,
            {}};
}

/// The size to which a picture of @p size is reduced.
QSize reduced(const QSize& size, const QSize& wanted)
{
    const bool fits = wanted.isEmpty() || (size.width() <= wanted.width() && size.height() <= wanted.height());
    return fits ? size : size.scaled(wanted, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}

DecodedPicture fromRgb8(const Picture& picture, const QSize& wanted)
{
    const int width = picture.size.width();
    const int height = picture.size.height();
    const int bytesPerLine = 3 * width;
    const qint64 bytes = qint64(width) * height * 3;
    if (picture.size.isEmpty() || picture.data.size() != bytes) {
        return failed(
            Texts::tr("%1 bytes are not an RGB8 picture of %2x%3").arg(picture.data.size()).arg(width).arg(height));
    }
    const QImage image(reinterpret_cast<const uchar*>(picture.data.constData()), width, height, bytesPerLine,
                       picture.msexMinor == 0 ? QImage::Format_BGR888 : QImage::Format_RGB888);
    const QSize size = reduced(picture.size, wanted);
    return success(size == picture.size ? image : image.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation),
                   picture.size);
}

// Within a JPEG, these markers appear only where they have effect, except in the previews that some cameras embed.
QString problemOfJpeg(const QByteArray& bytes, qint64 pixels, qint64 maxPixels)
{
    const QByteArray startOfScan("\xff\xda");
    const QByteArray endOfImage("\xff\xd9");
    const qint64 scans = bytes.count(startOfScan);
    if (scans > maxScans || scans * pixels > maxScansOfAllPixels * maxPixels) {
        return Texts::tr("%1 scans are too many for a thumbnail").arg(scans);
    }
    if (bytes.lastIndexOf(endOfImage) < bytes.lastIndexOf(startOfScan)) {
        return Texts::tr("the picture is cut off");
    }
    return {};
}

// Texts and colour profiles are compressed: Qt would inflate each to 8 MB, and keep the texts with the image.
QByteArray withPixelsOnly(const QByteArray& png)
{
    constexpr int signatureLength = 8;
    constexpr int frameLength = 12; // length, type and checksum
    QByteArray kept = png.left(signatureLength);
    for (int at = signatureLength; png.size() - at >= frameLength;) {
        const quint32 length = qFromBigEndian<quint32>(png.constData() + at);
        if (length > static_cast<quint32>(png.size() - at - frameLength)) {
            break;
        }
        const QByteArray chunk = png.mid(at, static_cast<int>(length) + frameLength);
        const QByteArray type = chunk.mid(4, 4);
        if (type == "IHDR" || type == "PLTE" || type == "tRNS" || type == "IDAT" || type == "IEND") {
            kept += chunk;
        }
        if (type == "IEND") {
            return kept;
        }
        at += static_cast<int>(chunk.size());
    }
    return {};
}

DecodedPicture fromEncoded(const Picture& picture, const QSize& wanted, const char* format)
{
    const bool isPng = qstrcmp(format, "png") == 0;
    QByteArray bytes = isPng ? withPixelsOnly(picture.data) : picture.data;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    reader.setDecideFormatFromContent(false);
    const QSize size = reader.size();
    const QSize box = wanted.boundedTo(QSize(maxSide, maxSide));
    const qint64 pixels = qint64(size.width()) * size.height();
    const qint64 maxPixels = qMax(alwaysAllowedPixels, maxTimesWanted * box.width() * box.height());
    if (size.width() > maxSide || size.height() > maxSide || pixels > maxPixels) {
        return failed(Texts::tr("%1x%2 pixels are too large for a thumbnail").arg(size.width()).arg(size.height()));
    }
    const QString problem = isPng ? QString() : problemOfJpeg(bytes, pixels, maxPixels);
    if (!problem.isEmpty()) {
        return failed(problem);
    }
    if (!size.isEmpty() && reduced(size, wanted) != size) {
        reader.setScaledSize(reduced(size, wanted));
        reader.setQuality(smoothQuality);
    }
    const QImage image = reader.read();
    if (image.isNull()) {
        return failed(Texts::tr("%1 bytes are not a %2 picture")
                          .arg(picture.data.size())
                          .arg(QString::fromLatin1(format).toUpper()));
    }
    return success(image, size);
}
} // namespace

DecodedPicture decodePicture(const Picture& picture, const QSize& wanted)
{
    if (picture.data.isEmpty()) {
        return failed(Texts::tr("empty or damaged answer"));
    }
    if (picture.format == QLatin1String("RGB8")) {
        return fromRgb8(picture, wanted);
    }
    if (picture.format == QLatin1String("PNG ")) {
        return fromEncoded(picture, wanted, "png");
    }
    if (picture.format == QLatin1String("JPEG")) {
        return fromEncoded(picture, wanted, "jpeg");
    }
    return failed(Texts::tr("unknown format '%1'").arg(picture.format));
}
} // namespace CITP

// Draws pixel by pixel, which requires neither fonts nor a display, and encodes with Qt's image classes.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include <QBuffer>
#include <QColor>
#include <QImageReader>
#include <QImageWriter>
#include <cmath>

namespace MediaServer {
namespace {
constexpr int MaxImageBytes = 0xFFFF;
// Longest side of a thumbnail in pixels. Bounds the memory that a request can cause.
constexpr int MaxSide = 2048;

template <typename Colour>
QImage fill(Colour colour)
{
    QImage image(DrawnWidth, DrawnHeight, QImage::Format_RGB888);
    for (int y = 0; y < DrawnHeight; ++y) {
        for (int x = 0; x < DrawnWidth; ++x)
            image.setPixel(x, y, colour(x, y));
    }
    return image;
}

QImage drawGradient(int kind)
{
    return fill([kind](int x, int y) {
        const int across = x * 255 / (DrawnWidth - 1);
        const int down = y * 255 / (DrawnHeight - 1);
        switch (kind) {
            case 0:
                return qRgb(across, across, across);
            case 1:
                return qRgb(down, down, down);
            case 2:
                return qRgb(across, 0, 0);
            case 3:
                return qRgb(0, across, 0);
            case 4:
                return qRgb(0, 0, across);
            default:
                return QColor::fromHsv(x * 359 / (DrawnWidth - 1), 255, 255 - down / 2).rgb();
        }
    });
}

QImage drawTestCard(int kind)
{
    return fill([kind](int x, int y) {
        const QRgb white = qRgb(235, 235, 235);
        const QRgb black = qRgb(16, 16, 16);
        switch (kind) {
            case 0: { // colour bars, from white to black
                const int bar = 7 - x * 8 / DrawnWidth;
                return qRgb(bar & 2 ? 191 : 0, bar & 4 ? 191 : 0, bar & 1 ? 191 : 0);
            }
            case 1:
                return x % 32 == 0 || y % 32 == 0 ? white : black;
            case 2:
                return (x / 20 + y / 20) % 2 == 0 ? white : black;
            default:
                return static_cast<int>(std::hypot(x - DrawnWidth / 2, y - DrawnHeight / 2)) / 12 % 2 ? white : black;
        }
    });
}

// Seven-segment digits; bit n of a digit lights segment n: top, upper right, lower right, bottom, lower left, upper
// left, middle.
bool digitAt(int digit, double x, double y)
{
    static const int lit[] = {0x3F, 0x06, 0x5B, 0x4F, 0x66, 0x6D, 0x7D, 0x07, 0x7F, 0x6F};
    if (x < 0 || x >= 1 || y < 0 || y >= 2)
        return false;
    const bool right = x > 0.8;
    const bool left = x < 0.2;
    const bool segments[] = {y < 0.2, right && y < 1, right && y >= 1,
                             y > 1.8, left && y >= 1, left && y<1, y> 0.9 && y < 1.1};
    for (int i = 0; i < 7; ++i) {
        if (segments[i] && (lit[digit] >> i & 1))
            return true;
    }
    return false;
}

QImage drawFrame(int number)
{
    const QRgb background = QColor::fromHsv(number * 36 % 360, 200, 150).rgb();
    return fill([number, background](int x, int y) {
        const bool border = x < 4 || y < 4 || x >= DrawnWidth - 4 || y >= DrawnHeight - 4;
        const double row = (y - 50) / 70.0;
        const bool digits =
            digitAt(number / 10 % 10, (x - 75) / 70.0, row) || digitAt(number % 10, (x - 175) / 70.0, row);
        return border || digits ? qRgb(255, 255, 255) : background;
    });
}

// Encodes only the pixels. Colour profiles and texts of a picture file are dropped, because their size does not
// decrease with the picture.
QByteArray encode(const QImage& image, const char* format, int quality)
{
    const QImage pixels(image.constBits(), image.width(), image.height(), image.bytesPerLine(), image.format());
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.setQuality(quality);
    return writer.write(pixels) ? buffer.data() : QByteArray();
}

QByteArray rawRows(const QImage& image)
{
    const int bytesPerRow = 3 * image.width();
    QByteArray rows;
    for (int y = 0; y < image.height(); ++y)
        rows.append(reinterpret_cast<const char*>(image.constScanLine(y)), bytesPerRow);
    return rows;
}

// Encodes in the best quality within the limit. The result may still exceed the limit.
QByteArray encodeForWire(const QImage& image, const QByteArray& format)
{
    if (format == "RGB8")
        return rawRows(image);
    if (format == "PNG ")
        return encode(image, "png", -1);
    QByteArray jpeg;
    for (const int quality : {90, 75, 50}) {
        jpeg = encode(image, "jpeg", quality);
        if (jpeg.size() <= MaxImageBytes)
            break;
    }
    return jpeg;
}
} // namespace

QImage drawPattern(int pattern)
{
    if (pattern >= Pattern::Frame)
        return drawFrame((pattern - Pattern::Frame) % 100);
    return pattern >= Pattern::TestCard ? drawTestCard(pattern - Pattern::TestCard) : drawGradient(pattern);
}

QImage loadPicture(const PictureSource& source)
{
    if (source.file.isEmpty())
        return drawPattern(source.pattern);
    QImage image = QImageReader(source.file).read();
    // Transparent pixels are drawn on black, which is what premultiplication yields.
    if (image.hasAlphaChannel()) {
        image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        image.reinterpretAsFormat(QImage::Format_RGB32);
    }
    return image.convertToFormat(QImage::Format_RGB888);
}

Thumbnail makeThumbnail(const QImage& picture, const QByteArray& format, quint16 width, quint16 height,
                        quint8 msexMinor)
{
    Thumbnail thumbnail;
    thumbnail.format = format == "RGB8" || format == "PNG " ? format : QByteArray("JPEG");
    if (picture.isNull())
        return thumbnail;
    QSize box(width == 0 ? 128 : width, height == 0 ? 128 : height);
    box = box.boundedTo(QSize(MaxSide, MaxSide));
    QSize size = picture.size().scaled(box, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    for (;;) {
        const QImage scaled =
            size == picture.size() ? picture : picture.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        const bool isBlueFirst = msexMinor == 0 && thumbnail.format == "RGB8";
        const QByteArray image = encodeForWire(
            scaled.convertToFormat(isBlueFirst ? QImage::Format_BGR888 : QImage::Format_RGB888), thumbnail.format);
        if (image.size() <= MaxImageBytes) {
            thumbnail.image = image;
            thumbnail.width = static_cast<quint16>(size.width());
            thumbnail.height = static_cast<quint16>(size.height());
            break;
        }
        // The number of bytes is roughly proportional to the area.
        const double shrink = qBound(0.25, std::sqrt(MaxImageBytes / static_cast<double>(image.size())), 0.95);
        size = QSize(static_cast<int>(size.width() * shrink), static_cast<int>(size.height() * shrink))
                   .expandedTo(QSize(1, 1));
    }
    return thumbnail;
}
} // namespace MediaServer

// The decoding of pictures: all formats, and what is refused because it is damaged or costs too much.
// SPDX-License-Identifier: Apache-2.0
#include <citp_images/images.h>

#include <gtest/gtest.h>

#include <QBuffer>
#include <QImageWriter>
#include <QtEndian>

#include <sys/resource.h>
#include <string>

using namespace CITP;

namespace {
DecodedPicture decode(const char* format, const QByteArray& bytes, const QSize& wanted = {160, 120})
{
    return decodePicture({bytes, QLatin1String(format), {}, 2}, wanted);
}

std::string problem(const char* format, const QByteArray& bytes, const QSize& wanted = {160, 120})
{
    const DecodedPicture decoded = decode(format, bytes, wanted);
    EXPECT_EQ(decoded.image.isNull(), !decoded.problem.isEmpty());
    return decoded.problem.toStdString();
}

DecodedPicture decodeRgb8(const QSize& size, const QByteArray& bytes, quint8 msexMinor = 1, const QSize& wanted = {})
{
    return decodePicture({bytes, QStringLiteral("RGB8"), size, msexMinor}, wanted);
}

QByteArray encoded(const QImage& image, const char* format, bool isProgressive = false)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, QByteArray(format).trimmed().toLower());
    writer.setProgressiveScanWrite(isProgressive);
    EXPECT_TRUE(writer.write(image));
    return buffer.data();
}

QImage blank(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB888);
    image.fill(Qt::red);
    return image;
}

QImage noise()
{
    QImage image(160, 120, QImage::Format_RGB888);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            image.setPixel(x, y, qRgb(x * y % 256, x * 7 % 256, y * 11 % 256));
        }
    }
    return image;
}

// Progressive JPEG allows a scan to be repeated.
QByteArray withScans(int scans, const QImage& image)
{
    const QByteArray jpeg = encoded(image, "JPEG");
    const auto first = jpeg.indexOf("\xff\xda");
    const QByteArray scan = jpeg.mid(first, jpeg.size() - 2 - first);
    return jpeg.left(first) + scan.repeated(scans) + jpeg.right(2);
}

// What stands behind a chunk of a PNG picture: the CRC-32 of its type and data.
QByteArray checksum(const QByteArray& bytes)
{
    quint32 remainder = 0xffffffff;
    for (const char byte : bytes) {
        remainder ^= static_cast<uchar>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xedb88320 : 0);
        }
    }
    QByteArray checksum(4, '\0');
    qToBigEndian(~remainder, checksum.data());
    return checksum;
}

QByteArray chunk(const QByteArray& type, const QByteArray& content)
{
    QByteArray length(4, '\0');
    qToBigEndian(static_cast<quint32>(content.size()), length.data());
    return length + type + content + checksum(type + content);
}

// The most memory that this process has had, in KiB.
long peakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// With @p chunks behind the header of the picture, where texts and profiles are.
QByteArray pngWith(const QByteArray& chunks)
{
    return encoded(blank(2, 2), "PNG").insert(33, chunks);
}
} // namespace

TEST(Images, EveryFormatIsDecoded)
{
    for (const char* const format : {"PNG ", "JPEG"}) {
        const DecodedPicture decoded = decode(format, encoded(blank(40, 30), format));
        EXPECT_EQ(decoded.problem.toStdString(), "") << format;
        EXPECT_EQ(decoded.size, QSize(40, 30)) << format;
        ASSERT_EQ(decoded.image.size(), QSize(40, 30)) << format;
        EXPECT_GT(qRed(decoded.image.pixel(20, 15)), 250) << format;
        EXPECT_EQ(decoded.image.format(), QImage::Format_RGB32) << format;
    }
    QImage transparent(2, 2, QImage::Format_ARGB32);
    transparent.fill(qRgba(200, 100, 50, 51));
    EXPECT_EQ(decode("PNG ", encoded(transparent, "PNG")).image.format(), QImage::Format_ARGB32_Premultiplied);
}

TEST(Images, Rgb8IsBlueFirstInVersion10AndRedFirstLater)
{
    const QByteArray bytes = QByteArray::fromHex("ff000000ff00");
    for (const quint8 minor : {quint8(1), quint8(2)}) {
        const QImage image = decodeRgb8({2, 1}, bytes, minor).image;
        ASSERT_EQ(image.size(), QSize(2, 1));
        EXPECT_EQ(image.pixel(0, 0), qRgb(255, 0, 0));
        EXPECT_EQ(image.pixel(1, 0), qRgb(0, 255, 0));
    }
    const QImage old = decodeRgb8({2, 1}, bytes, 0).image;
    EXPECT_EQ(old.pixel(0, 0), qRgb(0, 0, 255));
    EXPECT_EQ(old.pixel(1, 0), qRgb(0, 255, 0));
}

// The rows have no padding, and their number of bytes no divisor.
TEST(Images, Rgb8OfOddWidthsKeepsItsRows)
{
    const QImage image = decodeRgb8({1, 3}, QByteArray::fromHex("ff000000ff000000ff")).image;
    EXPECT_EQ(image.pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_EQ(image.pixel(0, 1), qRgb(0, 255, 0));
    EXPECT_EQ(image.pixel(0, 2), qRgb(0, 0, 255));
}

TEST(Images, Rgb8OfTheWrongLengthIsRefused)
{
    EXPECT_EQ(decodeRgb8({2, 2}, QByteArray(11, 'x')).problem.toStdString(), "11 bytes are not an RGB8 picture of 2x2");
    EXPECT_FALSE(decodeRgb8({2, 2}, QByteArray(13, 'x')).problem.isEmpty());
    EXPECT_FALSE(decodeRgb8({0, 2}, QByteArray(3, 'x')).problem.isEmpty());
    EXPECT_FALSE(decodeRgb8({-1, -1}, QByteArray(3, 'x')).problem.isEmpty());
    EXPECT_FALSE(decodeRgb8({65535, 65535}, QByteArray(3, 'x')).problem.isEmpty());
}

TEST(Images, OnesThatAreLargerThanWantedAreMadeSmaller)
{
    for (const char* const format : {"PNG ", "JPEG"}) {
        const DecodedPicture decoded = decode(format, encoded(blank(1920, 1080), format), QSize(640, 480));
        EXPECT_EQ(decoded.problem.toStdString(), "") << format;
        EXPECT_EQ(decoded.size, QSize(1920, 1080)) << format;
        EXPECT_EQ(decoded.image.size(), QSize(640, 360)) << format;
        EXPECT_GT(qRed(decoded.image.pixel(320, 180)), 250) << format;
    }
    EXPECT_EQ(decodeRgb8({4, 2}, QByteArray(24, 'x'), 1, {2, 2}).image.size(), QSize(2, 1));
    EXPECT_EQ(decodeRgb8({4, 2}, QByteArray(24, 'x')).image.size(), QSize(4, 2));
    // At least one pixel.
    EXPECT_EQ(decode("PNG ", encoded(blank(1000, 1), "PNG"), QSize(10, 10)).image.size(), QSize(10, 1));
}

TEST(Images, WhatIsNoPictureIsRefused)
{
    EXPECT_EQ(problem("JPEG", {}), "empty or damaged answer");
    EXPECT_EQ(problem("PNG ", "nonsense"), "8 bytes are not a PNG picture");
    EXPECT_EQ(problem("JPEG", "nonsense"), "8 bytes are not a JPEG picture");
    EXPECT_NE(problem("JPEG", encoded(blank(2, 2), "PNG")), "");
    EXPECT_EQ(problem("TIFF", "x"), "unknown format 'TIFF'");
}

TEST(Images, OnesTooBigForMemoryAreRefusedUnread)
{
    // Width and height of the header chunk made 30000 each, its checksum to match.
    QByteArray png = encoded(blank(2, 2), "PNG");
    png.replace(16, 8, QByteArray::fromHex("0000753000007530"));
    png.replace(29, 4, checksum(png.mid(12, 17)));
    EXPECT_EQ(problem("PNG ", png), "30000x30000 pixels are too large for a thumbnail");
    for (const QSize& size : {QSize(4097, 1), QSize(1, 4097)}) {
        EXPECT_EQ(
            problem("PNG ", encoded(blank(size.width(), size.height()), "PNG")),
            QString("%1x%2 pixels are too large for a thumbnail").arg(size.width()).arg(size.height()).toStdString());
    }
    EXPECT_EQ(problem("PNG ", encoded(blank(4096, 1), "PNG")), "");
}

TEST(Images, OnesOfManyTimesTheWantedPixelsAreRefused)
{
    const QByteArray tooLarge = encoded(blank(1025, 1024), "PNG");
    EXPECT_EQ(problem("PNG ", encoded(blank(1024, 1024), "PNG")), "");
    EXPECT_EQ(problem("PNG ", tooLarge), "1025x1024 pixels are too large for a thumbnail");
    EXPECT_EQ(problem("PNG ", tooLarge, {}), "1025x1024 pixels are too large for a thumbnail");
    EXPECT_EQ(problem("PNG ", tooLarge, QSize(320, 240)), "");
    EXPECT_EQ(problem("PNG ", tooLarge, QSize(2147483647, 2147483647)), "");
}

TEST(Images, OnesThatAreCutOffAreRefused)
{
    const QByteArray jpeg = encoded(noise(), "JPEG");
    EXPECT_EQ(problem("JPEG", jpeg), "");
    for (const auto size : {jpeg.size() / 2, jpeg.size() - 2}) {
        EXPECT_EQ(problem("JPEG", jpeg.left(size)), "the picture is cut off");
    }
    const QByteArray png = encoded(noise(), "PNG");
    EXPECT_EQ(problem("PNG ", png), "");
    for (const auto size : {png.size() / 2, png.size() - 14}) {
        EXPECT_NE(problem("PNG ", png.left(size)), "");
    }
}

TEST(Images, JpegsOfManyScansAreRefused)
{
    EXPECT_EQ(problem("JPEG", withScans(101, blank(2, 2))), "101 scans are too many for a thumbnail");
    EXPECT_EQ(problem("JPEG", withScans(100, blank(2, 2))).find("scans"), std::string::npos);
    // Of large pictures fewer: 16 over 1024 x 1024 pixels take as long as 100 over 400 x 400.
    const QImage large = blank(1024, 1024);
    EXPECT_EQ(problem("JPEG", encoded(large, "JPEG", true)), "");
    EXPECT_EQ(problem("JPEG", withScans(16, large)).find("scans"), std::string::npos);
    EXPECT_EQ(problem("JPEG", withScans(17, large)), "17 scans are too many for a thumbnail");
}

TEST(Images, TextsAndProfilesOfPngsAreNotRead)
{
    // Without the 4 bytes of the length that Qt puts before them, 8 MB in 8 KB.
    const QByteArray bomb = qCompress(QByteArray(7900000, 'x'), 9).mid(4);
    QByteArray texts;
    for (char number = '0'; number < '8'; ++number)
        texts += chunk("zTXt", QByteArray("text ") + number + QByteArray(2, '\0') + bomb);
    const QByteArray png = pngWith(texts + chunk("iCCP", QByteArray("profile") + QByteArray(2, '\0') + bomb));
    const long before = peakMemory();
    const DecodedPicture decoded = decode("PNG ", png);
    EXPECT_LT(peakMemory() - before, 64 << 10);
    EXPECT_EQ(decoded.problem.toStdString(), "");
    EXPECT_EQ(decoded.image.size(), QSize(2, 2));
    EXPECT_EQ(decoded.image.textKeys(), QStringList());
}

TEST(Images, PngsWithDamagedLengthsAreRefused)
{
    const QByteArray png = encoded(noise(), "PNG");
    const std::string expected = std::to_string(png.size()) + " bytes are not a PNG picture";
    for (const char* const length : {"ffffffff", "7fffffff", "80000000", "fffffff4", "00010000"}) {
        QByteArray damaged = png;
        damaged.replace(8, 4, QByteArray::fromHex(length));
        EXPECT_EQ(problem("PNG ", damaged), expected) << length;
        damaged = png;
        damaged.replace(png.size() - 12, 4, QByteArray::fromHex(length));
        EXPECT_EQ(problem("PNG ", damaged), expected) << length;
    }
    for (int size = 0; size < png.size(); ++size)
        EXPECT_NE(problem("PNG ", png.left(size)), "") << size;
    EXPECT_EQ(problem("PNG ", png + "more"), "");
}

TEST(Images, CommentsOfJpegsAreLeftOut)
{
    QByteArray jpeg = encoded(blank(2, 2), "JPEG");
    jpeg.insert(2, QByteArray::fromHex("fffe0009") + "comment");
    QImage image;
    ASSERT_TRUE(image.loadFromData(jpeg, "JPEG"));
    ASSERT_FALSE(image.textKeys().isEmpty());
    const DecodedPicture decoded = decode("JPEG", jpeg);
    EXPECT_EQ(decoded.image.textKeys(), QStringList());
    EXPECT_GT(qRed(decoded.image.pixel(1, 1)), 250);
}

TEST(Images, PalettesAndTheirTransparencyAreKept)
{
    QImage image(2, 1, QImage::Format_Indexed8);
    image.setColorTable({qRgba(255, 0, 0, 255), qRgba(0, 0, 0, 0)});
    image.setPixel(0, 0, 0);
    image.setPixel(1, 0, 1);
    const QImage decoded = decode("PNG ", encoded(image, "PNG")).image;
    EXPECT_EQ(decoded.pixel(0, 0), qRgba(255, 0, 0, 255));
    EXPECT_EQ(decoded.pixel(1, 0), qRgba(0, 0, 0, 0));
}

// Thumbnail answers turned into files: only good pictures, and names that cannot leave the folder.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QtEndian>

using namespace Console;

namespace {
CITP::Msg_MSEX_ETHN answer(const QString& format, int width, int height, const QByteArray& bytes)
{
    CITP::Msg_MSEX_ETHN message;
    message.ThumbnailFormat = format;
    message.ThumbnailWidth = static_cast<unsigned short>(width);
    message.ThumbnailHeight = static_cast<unsigned short>(height);
    message.ThumbnailBuffer = bytes;
    return message;
}

Picture toPicture(const CITP::Msg_MSEX_ETHN& message)
{
    return Console::toPicture(message, QSize(160, 120));
}

QByteArray encoded(const QImage& image, const char* format)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.save(&buffer, format));
    return buffer.data();
}

QImage twoByTwo()
{
    QImage image(2, 2, QImage::Format_RGB888);
    image.setPixel(0, 0, qRgb(255, 0, 0));
    image.setPixel(1, 0, qRgb(0, 255, 0));
    image.setPixel(0, 1, qRgb(0, 0, 255));
    image.setPixel(1, 1, qRgb(1, 2, 3));
    return image;
}

// What stands behind a chunk of a PNG picture: the CRC-32 of its type and data.
QByteArray checksum(const QByteArray& bytes)
{
    quint32 remainder = 0xffffffff;
    for (const char byte : bytes) {
        remainder ^= static_cast<uchar>(byte);
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xedb88320 : 0);
    }
    QByteArray checksum(4, '\0');
    qToBigEndian(~remainder, checksum.data());
    return checksum;
}

std::string part(const QString& name)
{
    return fileNamePart(name).toStdString();
}
} // namespace

TEST(Pictures, Rgb8BecomesPngWithTheSamePixels)
{
    const Picture picture = toPicture(answer("RGB8", 2, 2, QByteArray::fromHex("ff000000ff000000ff010203")));
    EXPECT_EQ(picture.problem.toStdString(), "");
    EXPECT_EQ(picture.extension.toStdString(), "png");
    EXPECT_EQ(picture.image.size(), QSize(2, 2));
    EXPECT_EQ(QImage::fromData(picture.file, "png").convertToFormat(QImage::Format_RGB888), twoByTwo());
}

TEST(Pictures, Rgb8OfTheWrongLengthIsRefused)
{
    EXPECT_EQ(toPicture(answer("RGB8", 2, 2, QByteArray(11, 'x'))).problem.toStdString(),
              "11 bytes are not an RGB8 picture of 2x2");
    EXPECT_FALSE(toPicture(answer("RGB8", 2, 2, QByteArray(13, 'x'))).problem.isEmpty());
    EXPECT_FALSE(toPicture(answer("RGB8", 0, 2, QByteArray(3, 'x'))).problem.isEmpty());
    EXPECT_FALSE(toPicture(answer("RGB8", 65535, 65535, QByteArray(3, 'x'))).problem.isEmpty());
}

TEST(Pictures, EncodedOnesAreKeptAsTheyCame)
{
    const QByteArray png = encoded(twoByTwo(), "png");
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, png)).file, png);
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, png)).extension.toStdString(), "png");
    const QByteArray jpeg = encoded(twoByTwo(), "jpeg");
    EXPECT_EQ(toPicture(answer("JPEG", 2, 2, jpeg)).file, jpeg);
    EXPECT_EQ(toPicture(answer("JPEG", 2, 2, jpeg)).extension.toStdString(), "jpg");
}

TEST(Pictures, WhatIsNoPictureIsRefused)
{
    EXPECT_EQ(toPicture(answer("JPEG", 2, 2, {})).problem.toStdString(), "empty or damaged answer");
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, "nonsense")).problem.toStdString(), "8 bytes are not a PNG picture");
    EXPECT_FALSE(toPicture(answer("JPEG", 2, 2, encoded(twoByTwo(), "png"))).problem.isEmpty());
    EXPECT_EQ(toPicture(answer("TIFF", 2, 2, "x")).problem.toStdString(), "unknown format 'TIFF'");
}

TEST(Pictures, APictureTooBigForMemoryIsRefusedUnread)
{
    // Width and height of the header chunk made 30000 each, its checksum to match.
    QByteArray png = encoded(twoByTwo(), "png");
    png.replace(16, 8, QByteArray::fromHex("0000753000007530"));
    png.replace(29, 4, checksum(png.mid(12, 17)));
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, png)).problem.toStdString(),
              "30000x30000 pixels are too large for a thumbnail");
    const QByteArray wide = encoded(QImage(5000, 1, QImage::Format_RGB888), "png");
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, wide)).problem.toStdString(),
              "5000x1 pixels are too large for a thumbnail");
}

TEST(Pictures, OnesOfManyTimesTheRequestedPixelsAreRefused)
{
    const QByteArray allowed = encoded(QImage(1024, 1024, QImage::Format_RGB888), "png");
    const QByteArray tooLarge = encoded(QImage(1025, 1024, QImage::Format_RGB888), "png");
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, allowed)).problem.toStdString(), "");
    EXPECT_EQ(toPicture(answer("PNG ", 2, 2, tooLarge)).problem.toStdString(),
              "1025x1024 pixels are too large for a thumbnail");
    EXPECT_EQ(Console::toPicture(answer("PNG ", 2, 2, tooLarge), QSize(320, 240)).problem.toStdString(), "");
}

TEST(Pictures, OnesThatAreCutInHalfAreRefused)
{
    QImage noise(160, 120, QImage::Format_RGB888);
    for (int y = 0; y < noise.height(); ++y) {
        for (int x = 0; x < noise.width(); ++x)
            noise.setPixel(x, y, qRgb(x * y % 256, x * 7 % 256, y * 11 % 256));
    }
    const QByteArray jpeg = encoded(noise, "jpeg");
    EXPECT_EQ(toPicture(answer("JPEG", 160, 120, jpeg)).problem.toStdString(), "");
    for (const auto size : {jpeg.size() / 2, jpeg.size() - 2})
        EXPECT_EQ(toPicture(answer("JPEG", 160, 120, jpeg.left(size))).problem.toStdString(), "the picture is cut off");
    const QByteArray png = encoded(noise, "png");
    EXPECT_FALSE(toPicture(answer("PNG ", 160, 120, png.left(png.size() / 2))).problem.isEmpty());
}

TEST(Pictures, JpegsOfManyScansAreRefused)
{
    const auto withScans = [](int scans) {
        const QByteArray jpeg = encoded(twoByTwo(), "jpeg");
        const auto first = jpeg.indexOf("\xff\xda");
        const QByteArray scan = jpeg.mid(first, jpeg.size() - 2 - first);
        return jpeg.left(first) + scan.repeated(scans) + jpeg.right(2);
    };
    EXPECT_FALSE(toPicture(answer("JPEG", 2, 2, withScans(100))).problem.contains("scans"));
    EXPECT_EQ(toPicture(answer("JPEG", 2, 2, withScans(101))).problem.toStdString(),
              "101 scans are too many for a thumbnail");
}

TEST(FileNames, KeepLettersAndReplaceWhatCouldDoHarm)
{
    EXPECT_EQ(part("Frame 01"), "Frame_01");
    EXPECT_EQ(part(QString::fromUtf8("Bühne 舞台")), "Bühne_舞台");
    EXPECT_EQ(part("../../etc/passwd"), ".._.._etc_passwd");
    EXPECT_EQ(part("a\\b:c*d?e\"f<g>h|i"), "a_b_c_d_e_f_g_h_i");
    EXPECT_EQ(part(QString("x\x1b[2J\n") + QChar(0x202e) + QChar(0) + "y"), "x__2J___y");
    EXPECT_EQ(part(QString(QChar(0xd800)) + "x"), "_x");
    EXPECT_EQ(part(""), "");
}

TEST(FileNames, AreBounded)
{
    EXPECT_EQ(fileNamePart(QString(500, 'a')).size(), 80);
    EXPECT_LE(fileNamePart(QString(500, QChar(0x821e))).toUtf8().size(), 80);
}

TEST(FileNames, TellElementsApartWhateverTheirNames)
{
    EXPECT_EQ(fileName("1,2,0,0", 7, "a/b", "jpg").toStdString(), "1.2.0.0-007-a_b.jpg");
    EXPECT_EQ(fileName("1,2,0,0", 8, "a\\b", "jpg").toStdString(), "1.2.0.0-008-a_b.jpg");
    EXPECT_EQ(fileName("3", 255, "", "png").toStdString(), "3-255.png");
    EXPECT_EQ(fileName("3", 1, "Sky.JPG", "jpg").toStdString(), "3-001-Sky.jpg");
    EXPECT_EQ(fileName("3", 1, "Sky.png", "jpg").toStdString(), "3-001-Sky.jpg");
    EXPECT_EQ(fileName("3", 1, "Sky.mov", "jpg").toStdString(), "3-001-Sky.mov.jpg");
}

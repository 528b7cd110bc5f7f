// Pictures turned into files: only good ones, and names that cannot leave the folder.
// SPDX-License-Identifier: Apache-2.0
#include "pictures.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <utility>

#include "picture_file.h"

using namespace Console;
using Tools::PictureFile;
using Tools::toPictureFile;

namespace {
std::string part(const QString& name)
{
    return fileNamePart(name).toStdString();
}
} // namespace

TEST(Pictures, Rgb8BecomesPngWithTheSamePixels)
{
    const QByteArray bytes = QByteArray::fromHex("ff000000ff000000ff010203");
    const PictureFile file = toPictureFile({bytes, "RGB8", {2, 2}, 1}, QSize(1, 1));
    EXPECT_EQ(file.problem.toStdString(), "");
    EXPECT_EQ(file.extension.toStdString(), "png");
    EXPECT_EQ(file.format.toStdString(), "RGB8");
    EXPECT_EQ(file.size, QSize(2, 2));
    const QImage image = QImage::fromData(file.content, "png");
    ASSERT_EQ(image.size(), QSize(2, 2));
    EXPECT_EQ(image.pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_EQ(image.pixel(1, 0), qRgb(0, 255, 0));
    EXPECT_EQ(image.pixel(0, 1), qRgb(0, 0, 255));
    EXPECT_EQ(image.pixel(1, 1), qRgb(1, 2, 3));
}

TEST(Pictures, EncodedOnesAreKeptAsTheyCame)
{
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(Qt::red);
    for (const auto& [format, extension] : {std::pair("PNG ", "png"), std::pair("JPEG", "jpg")}) {
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        ASSERT_TRUE(image.save(&buffer, QByteArray(format).trimmed().constData()));
        const PictureFile file = toPictureFile({buffer.data(), format, {}, 2}, QSize(20, 20));
        EXPECT_EQ(file.problem.toStdString(), "");
        EXPECT_EQ(file.content, buffer.data());
        EXPECT_EQ(file.extension.toStdString(), extension);
        EXPECT_EQ(file.format, QString(format).trimmed());
        EXPECT_EQ(file.size, QSize(40, 30));
        EXPECT_EQ(file.image.size(), QSize(20, 15));
    }
}

TEST(Pictures, DamagedOnesBecomeNoFile)
{
    const PictureFile file = toPictureFile({"nonsense", "PNG ", {}, 2}, QSize(160, 120));
    EXPECT_EQ(file.problem.toStdString(), "8 bytes are not a PNG picture");
    EXPECT_TRUE(file.content.isEmpty());
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
    EXPECT_EQ(fileName("3", 1, "Sky.jpg.jpg", "jpg").toStdString(), "3-001-Sky.jpg");
    EXPECT_EQ(fileName("3", 1, "Sky.jpg ", "jpg").toStdString(), "3-001-Sky.jpg");
    // Cut behind the extension.
    EXPECT_EQ(fileName("3", 1, QString(76, 'a') + ".jpg and more", "jpg").toStdString(),
              "3-001-" + std::string(76, 'a') + ".jpg");
    EXPECT_EQ(fileName("3", 1, "Sky.mov", "jpg").toStdString(), "3-001-Sky.mov.jpg");
}

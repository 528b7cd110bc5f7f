// A folder tree of pictures as element libraries: structure, true pictures, and the telling of changes.
// SPDX-License-Identifier: Apache-2.0
#include <QColorSpace>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>
#include <csignal>
#include <cstdio>
#include <memory>
#include <random>

#include "mediaserver_fixture.h"

namespace {
const char* const Day = "2021-02-03T04:05:06Z";

QByteArray msex(const QByteArray& rest)
{
    QByteArray message = hex("43495450 01 00 0000");
    const auto size = static_cast<quint32>(20 + rest.size());
    for (int i = 0; i < 4; ++i)
        message.append(static_cast<char>(size >> (8 * i) & 0xFF));
    return message + hex("0100 0000 4D534558") + rest;
}

// A picture in which every pixel is another colour.
QImage makeImage(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB888);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb(x * 7 % 256, y * 5 % 256, (x * 3 + y * 11) % 256));
    }
    return image;
}

// root.png; a/one.png, a/two.jpg; a/deep/three.bmp; a/deep/low/four.png; a/deep/low/lost/five.png; b (empty)
struct Tree
{
    Tree()
    {
        QDir(dir.path()).mkpath("shown/a/deep/low/lost");
        QDir(dir.path()).mkpath("shown/b");
        save("root.png", 8, 6);
        save("a/one.png", 40, 30);
        save("a/two.jpg", 64, 32);
        save("a/deep/three.bmp", 10, 10);
        save("a/deep/low/four.png", 5, 5);
        save("a/deep/low/lost/five.png", 5, 5);
        QFile text(path("a/readme.txt"));
        EXPECT_TRUE(text.open(QIODevice::WriteOnly));
        QFile broken(path("a/broken.png"));
        EXPECT_TRUE(broken.open(QIODevice::WriteOnly));
        broken.write("no picture");
    }

    QString path(const QString& name) const { return dir.filePath("shown/" + name); }

    // In one step, so that no scan meets half a picture.
    void save(const QString& name, int width, int height) const
    {
        const QString made = dir.filePath("made." + name.section('.', -1));
        EXPECT_TRUE(makeImage(width, height).save(made, nullptr, 95)) << name.toStdString();
        QFile file(made);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite));
        EXPECT_TRUE(file.setFileTime(QDateTime::fromString(Day, Qt::ISODate), QFileDevice::FileModificationTime));
        file.close();
        EXPECT_EQ(std::rename(QFile::encodeName(made).constData(), QFile::encodeName(path(name)).constData()), 0);
    }

    QTemporaryDir dir;
};

struct Served
{
    explicit Served(const QString& folder, const QStringList& arguments = {})
        : program(QStringList{"--adapter", "lo", "--media", folder} + arguments)
    {
        program.waitForLine("listens on");
        console = std::make_unique<Console>("127.0.0.2", 4811);
        console->send(hex(Greeting));
        console->nextMessage("SInf");
    }

    QByteArray ask(const QByteArray& request)
    {
        console->send(msex(request));
        return console->nextMessage();
    }

    Program program;
    std::unique_ptr<Console> console;
};
} // namespace

TEST(MediaserverFolder, MakesLibrariesOfFoldersAndElementsOfPictures)
{
    const Tree tree;
    Served served(tree.path(""));
    // Library 0: the folder itself, one picture; 1: "a" with a sub-library; 2: "b", empty.
    EXPECT_EQ(served.ask(hex("01 01 47454C49 01 00000000 00")).mid(20).toHex().toStdString(),
              hex("01 01 454C496E 01 03"
                  "01000000 00 00 730068006F0077006E00 0000 00 01"
                  "01010000 01 01 6100 0000 01 02"
                  "01020000 02 02 6200 0000 00 00")
                  .toHex()
                  .toStdString());
    EXPECT_EQ(served.ask(hex("01 01 47454C49 01 01010000 00")).mid(20).toHex().toStdString(),
              hex("01 01 454C496E 01 01 02010100 01 01 6400650065007000 0000 01 01").toHex().toStdString());
    EXPECT_EQ(served.ask(hex("01 01 47454C49 01 02010100 00")).mid(20).toHex().toStdString(),
              hex("01 01 454C496E 01 01 03010101 01 01 6C006F007700 0000 00 01").toHex().toStdString());
}

TEST(MediaserverFolder, TellsRealNamesSizesAndTimes)
{
    const Tree tree;
    Served served(tree.path(""));
    // 0x601A20F2 is 2021-02-03 04:05:06. Number 0 belongs to broken.png, which is left out until it is a picture.
    EXPECT_EQ(served.ask(hex("01 01 4745496E 01 01010000 00")).mid(20).toHex().toStdString(),
              hex("01 01 4D45496E 01010000 02"
                  "01 01 01 6F006E0065002E0070006E006700 0000 F2201A6000000000 2800 1E00 FA000000 19"
                  "02 02 02 740077006F002E006A0070006700 0000 F2201A6000000000 4000 2000 FA000000 19")
                  .toHex()
                  .toStdString());
}

TEST(MediaserverFolder, SaysWhatItLeavesOut)
{
    const Tree tree;
    Program program({"--adapter", "lo", "--media", tree.path("")});
    program.waitForLine("a/broken.png is not a readable picture: ignored");
    program.waitForLine("a/deep/low are too deep for a library id: ignored");
}

TEST(MediaserverFolder, ASignalEndsTheScanOfAFolderWithMillionsOfFolders)
{
    // Each leads to the folder itself, three levels deep.
    const QTemporaryDir dir;
    for (int i = 0; i < 254; ++i)
        ASSERT_TRUE(QFile::link(dir.path(), dir.filePath(QString::number(i))));
    Child program(MEDIASERVER_PROGRAM, {"--adapter", "lo", "--media", dir.path()});
    // Before it watches for the signal, that would end it in any case.
    const auto isWatching = [&] {
        QFile status(QString("/proc/%1/status").arg(program.id()));
        EXPECT_TRUE(status.open(QIODevice::ReadOnly));
        static const QRegularExpression blocked("SigBlk:\\s+([0-9a-f]+)");
        const QString mask = blocked.match(QString::fromLatin1(status.readAll())).captured(1);
        return (mask.toULongLong(nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
    };
    ASSERT_TRUE(waitFor(isWatching));
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitForEnd(), 0) << program.errors().toStdString();
}

TEST(MediaserverFolder, ServesPicturesTrueToThePixelAtTheirOwnSize)
{
    const Tree tree;
    Served served(tree.path(""));
    const QImage one = makeImage(40, 30);
    QByteArray answer = served.ask(hex("01 01 47455468 52474238 2800 1E00 01 01 01010000 01 01"));
    EXPECT_EQ(answer.mid(20, 22).toHex().toStdString(),
              hex("01 01 4554686E 01 01010000 01 52474238 2800 1E00 100E").toHex().toStdString());
    ASSERT_EQ(answer.size(), 42 + 3600);
    for (int y = 0; y < 30; ++y) {
        for (int x = 0; x < 40; ++x) {
            const int at = 42 + (y * 40 + x) * 3;
            ASSERT_EQ(qRgb(quint8(answer.at(at)), quint8(answer.at(at + 1)), quint8(answer.at(at + 2))),
                      one.pixel(x, y))
                << x << ' ' << y;
        }
    }
    answer = served.ask(hex("01 01 47455468 504E4720 2800 1E00 01 01 01010000 01 01"));
    EXPECT_EQ(QImage::fromData(answer.mid(42), "png").convertToFormat(QImage::Format_RGB888), one);
    answer = served.ask(hex("01 01 47455468 4A504547 2800 1E00 01 01 01010000 01 01"));
    const QImage jpeg = QImage::fromData(answer.mid(42), "jpeg");
    ASSERT_EQ(jpeg.size(), one.size());
    qint64 distance = 0;
    for (int y = 0; y < 30; ++y) {
        for (int x = 0; x < 40; ++x)
            distance += qAbs(qRed(jpeg.pixel(x, y)) - qRed(one.pixel(x, y))) +
                        qAbs(qGreen(jpeg.pixel(x, y)) - qGreen(one.pixel(x, y))) +
                        qAbs(qBlue(jpeg.pixel(x, y)) - qBlue(one.pixel(x, y)));
    }
    EXPECT_LT(distance / (40 * 30 * 3), 16);
}

TEST(MediaserverFolder, ShowsWhatIsTransparentOnBlack)
{
    const QTemporaryDir dir;
    QImage image(2, 1, QImage::Format_ARGB32);
    image.setPixel(0, 0, qRgba(200, 100, 50, 51));
    image.setPixel(1, 0, qRgba(10, 20, 30, 255));
    ASSERT_TRUE(image.save(dir.filePath("clear.png")));
    Served served(dir.path());
    const QByteArray answer = served.ask(hex("01 00 47455468 52474238 0200 0100 01 01 00 00"));
    // MSEX 1.0 has blue first.
    EXPECT_EQ(answer.mid(39).toHex().toStdString(), "0a14281e140a");
}

TEST(MediaserverFolder, LeavesOutWhatAPictureCarriesBesideItsPixels)
{
    // More than a thumbnail may have, and nothing that could be compressed below it.
    std::mt19937 random;
    QByteArray letters;
    for (int i = 0; i < 200000; ++i)
        letters.append(static_cast<char>('a' + random() % 26));
    const QImage plain = makeImage(40, 30);
    // A profile begins with its size, a multiple of four.
    QByteArray profile = QColorSpace(QColorSpace::SRgb).iccProfile() + letters;
    profile.append(3 - (profile.size() + 3) % 4, '\0');
    qToBigEndian(static_cast<quint32>(profile.size()), profile.data());
    QImage profiled = plain;
    profiled.setColorSpace(QColorSpace::fromIccProfile(profile));
    QImage told = plain;
    for (int i = 0; i < 10; ++i)
        told.setText(QString("Text%1").arg(i), QString::fromLatin1(letters.mid(i * 20000, 20000)));
    const QTemporaryDir dir;
    // Numbered by name.
    ASSERT_TRUE(profiled.save(dir.filePath("0.jpg")));
    ASSERT_TRUE(profiled.save(dir.filePath("1.png")));
    ASSERT_TRUE(told.save(dir.filePath("2.jpg")));
    ASSERT_TRUE(told.save(dir.filePath("3.png")));
    for (const char* const name : {"0.jpg", "1.png"})
        ASSERT_EQ(QImage(dir.filePath(name)).colorSpace().iccProfile().size(), profile.size()) << name;
    for (const char* const name : {"2.jpg", "3.png"})
        ASSERT_EQ(QImage(dir.filePath(name)).textKeys().size(), 10) << name;
    Served served(dir.path());
    for (const char* const format : {"4A504547", "504E4720"}) {
        for (char number = 0; number < 4; ++number) {
            SCOPED_TRACE(QString("%1 as %2").arg(int(number)).arg(format).toStdString());
            const QByteArray answer =
                served.ask(hex("01 00 47455468") + hex(format) + hex("2800 1E00 01 01 00 01") + QByteArray(1, number));
            // Its own size, so nothing was made smaller for want of room.
            ASSERT_EQ(answer.mid(33, 4).toHex().toStdString(), "28001e00");
            const QImage sent = QImage::fromData(answer.mid(39));
            EXPECT_EQ(sent.size(), plain.size());
            EXPECT_TRUE(sent.textKeys().isEmpty());
            EXPECT_TRUE(sent.colorSpace().iccProfile().isEmpty());
        }
    }
}

TEST(MediaserverFolder, TellsOfAnAddedPicture)
{
    const Tree tree;
    Served served(tree.path(""));
    tree.save("a/zoo.png", 4, 4);
    // The root's sub-library 1 has changed.
    QByteArray update = served.console->nextMessage();
    EXPECT_EQ(update.mid(20).toHex().toStdString(),
              (hex("01 02 454C5570 01 00000000 04") + QByteArray(32, '\0') + hex("02") + QByteArray(31, '\0'))
                  .toHex()
                  .toStdString());
    // Element 3 of that library was added.
    update = served.console->nextMessage();
    EXPECT_EQ(
        update.mid(20).toHex().toStdString(),
        (hex("01 02 454C5570 01 01010000 02 08") + QByteArray(31, '\0') + QByteArray(32, '\0')).toHex().toStdString());
    served.console->send(msex(hex("01 01 4745496E 01 01010000 01 03")));
    EXPECT_EQ(served.console->nextMessage("MEIn").mid(30, 17).toHex().toStdString(),
              hex("01 03 03 03 7A006F006F002E0070006E0067").left(17).toHex().toStdString());
}

TEST(MediaserverFolder, TellsOfAChangedPicture)
{
    const Tree tree;
    Served served(tree.path(""), {"--msex", "1.1"});
    tree.save("a/deep/three.bmp", 11, 11);
    EXPECT_EQ(served.console->nextMessage().mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 01010000 04").toHex().toStdString());
    EXPECT_EQ(served.console->nextMessage().mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 02010100 01").toHex().toStdString());
    served.console->send(msex(hex("01 01 4745496E 01 02010100 00")));
    EXPECT_EQ(served.console->nextMessage("MEIn").right(9).toHex().toStdString(),
              hex("0B00 0B00 FA000000 19").toHex().toStdString());
}

TEST(MediaserverFolder, TellsOfARemovedPictureAndKeepsTheNumbersOfTheOthers)
{
    const Tree tree;
    Served served(tree.path(""), {"--msex", "1.0"});
    ASSERT_TRUE(QFile::remove(tree.path("a/one.png")));
    EXPECT_EQ(served.console->nextMessage().mid(20).toHex().toStdString(),
              hex("01 00 454C5570 01 01 02").toHex().toStdString());
    EXPECT_EQ(served.ask(hex("01 00 4745496E 01 01 00")).mid(26, 5).toHex().toStdString(),
              hex("01 01 02 02 02").toHex().toStdString());
}

TEST(MediaserverFolder, TellsOfANewFolderAndServesIt)
{
    const Tree tree;
    Served served(tree.path(""), {"--msex", "1.1"});
    ASSERT_TRUE(QDir().mkdir(tree.path("aa")));
    EXPECT_EQ(served.console->nextMessage().mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 00000000 08").toHex().toStdString());
    EXPECT_EQ(served.console->nextMessage().mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 01030000 02").toHex().toStdString());
    tree.save("aa/new.png", 3, 3);
    EXPECT_EQ(served.console->nextMessage("ELUp").mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 00000000 04").toHex().toStdString());
    EXPECT_EQ(served.console->nextMessage("ELUp").mid(20).toHex().toStdString(),
              hex("01 01 454C5570 01 01030000 02").toHex().toStdString());
}

TEST(MediaserverFolder, ForgetsARemovedFolder)
{
    const Tree tree;
    Served served(tree.path(""), {"--msex", "1.1"});
    ASSERT_TRUE(QDir(tree.path("a")).removeRecursively());
    // The root has lost library 1, which is told once the folder is quite gone.
    QByteArray update;
    do {
        update = served.console->nextMessage("ELUp");
    } while (!update.isEmpty() && update.mid(26) != hex("01 00000000 08"));
    served.console->send(msex(hex("01 01 47454C49 01 00000000 00")));
    EXPECT_EQ(served.console->nextMessage("ELIn").mid(20).toHex().toStdString(),
              hex("01 01 454C496E 01 02 01000000 00 00 730068006F0077006E00 0000 00 01 01020000 02 02 6200 0000 00 00")
                  .toHex()
                  .toStdString());
}

TEST(MediaserverFolder, TellsNothingToAConsoleThatHasNotGreeted)
{
    const Tree tree;
    Served served(tree.path(""));
    Console silent("127.0.0.2", 4811);
    served.program.waitForLine(QString("127.0.0.1:%1 has connected").arg(silent.socket().localPort()));
    ASSERT_TRUE(QFile::remove(tree.path("root.png")));
    served.console->nextMessage("ELUp");
    silent.send(hex(Greeting));
    EXPECT_EQ(silent.nextMessage().mid(22, 4).toStdString(), "SInf");
}

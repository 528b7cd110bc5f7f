// citp-console thumbnails beside the simulated media server: a folder of pictures served, fetched and compared, and
// every fault of the server.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "console_fixture.h"

namespace {
const QString key = "127.0.0.2:4811";

Outcome fetch(const QString& folder, const QStringList& arguments)
{
    return runConsole(QStringList{"thumbnails", key, "--adapter", "lo", "--to", folder} + arguments);
}

// Fits the size that is asked for exactly, so that the server does not scale it. Smooth, so that JPEG keeps it well.
QImage smoothPicture(int width, int height, int phase)
{
    QImage image(width, height, QImage::Format_RGB888);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb(x * 255 / width, y * 255 / height, (x + y + 40 * phase) * 255 / (3 * width)));
    }
    return image;
}

// A tree of pictures, by the path below the folder; names that try to get out of the folder among them.
QMap<QString, QImage> writePictures(const QString& folder)
{
    const QMap<QString, QImage> pictures{{"Sky.png", smoothPicture(160, 120, 0)},
                                         {QString("a\x1b[2J\\..\\b\n;$(x).png"), smoothPicture(160, 90, 1)},
                                         {"First/Wide.png", smoothPicture(160, 80, 2)},
                                         {"First/Tall.png", smoothPicture(90, 120, 0)},
                                         {"First/Deep/Sea.png", smoothPicture(160, 120, 1)}};
    QDir(folder).mkpath("First/Deep");
    for (auto picture = pictures.begin(); picture != pictures.end(); ++picture)
        EXPECT_TRUE(picture.value().save(folder + '/' + picture.key(), "png"));
    return pictures;
}

double meanDifference(const QImage& one, const QImage& other)
{
    if (one.size() != other.size())
        return 255;
    qint64 sum = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            const QRgb a = one.pixel(x, y);
            const QRgb b = other.pixel(x, y);
            sum += qAbs(qRed(a) - qRed(b)) + qAbs(qGreen(a) - qGreen(b)) + qAbs(qBlue(a) - qBlue(b));
        }
    }
    return static_cast<double>(sum) / (3.0 * one.width() * one.height());
}

// Every file that is there is a whole picture.
void expectGoodFiles(const QString& folder)
{
    const QDir dir(folder);
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden);
    for (const QString& name : names)
        EXPECT_FALSE(QImage(dir.filePath(name)).isNull()) << name.toStdString();
}

int pictureCount(const QString& folder)
{
    return static_cast<int>(QDir(folder).entryList({"*-*-*.*"}, QDir::Files).filter(QRegularExpression("^\\d")).size());
}

struct Fetching
{
    const char* format;
    const char* msex;
};

// Names the case in the test's name; the default would be its bytes, addresses among them.
void PrintTo(const Fetching& fetching, std::ostream* out)
{
    *out << fetching.format << " at MSEX " << fetching.msex;
}

class ThumbnailFormats : public ::testing::TestWithParam<Fetching>
{
};
} // namespace

TEST_P(ThumbnailFormats, ArriveAsTheyWereServed)
{
    const QTemporaryDir media;
    const QTemporaryDir target;
    const QMap<QString, QImage> pictures = writePictures(media.path());
    const Server server({"--media", media.path(), "--msex", GetParam().msex});
    const Outcome outcome = fetch(target.path(), {"--json", "--format", GetParam().format, "--size", "160x120"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();

    const bool isFlat = qstrcmp(GetParam().msex, "1.0") == 0;
    const bool isLossy = qstrcmp(GetParam().format, "jpeg") == 0;
    int compared = 0;
    for (const QJsonObject& object : jsonLines(outcome.output)) {
        const QString file = object.value("file").toString();
        if (file.isEmpty())
            continue;
        EXPECT_EQ(QFileInfo(file).absolutePath(), QFileInfo(target.path()).absoluteFilePath());
        EXPECT_TRUE(QRegularExpression("^[A-Za-z0-9._,()+-]+$").match(QFileInfo(file).fileName()).hasMatch())
            << file.toStdString();
        EXPECT_EQ(QFileInfo(file).suffix().toStdString(), isLossy ? "jpg" : "png");
        QImage served;
        for (auto picture = pictures.begin(); picture != pictures.end(); ++picture) {
            if (picture.key().section('/', -1) == object.value("name").toString())
                served = picture.value();
        }
        const QImage fetched = QImage(file).convertToFormat(QImage::Format_RGB888);
        EXPECT_EQ(fetched.size(), served.size()) << file.toStdString();
        EXPECT_LT(meanDifference(fetched, served), isLossy ? 4.0 : 1e-9) << file.toStdString();
        ++compared;
    }
    EXPECT_EQ(compared, isFlat ? 4 : 5);
    EXPECT_EQ(pictureCount(target.path()), compared);
    EXPECT_FALSE(QImage(target.filePath("contact-sheet.jpg")).isNull());
}

INSTANTIATE_TEST_SUITE_P(
    EveryFormatAndVersion, ThumbnailFormats,
    ::testing::Values(Fetching{"jpeg", "1.0"}, Fetching{"jpeg", "1.1"}, Fetching{"jpeg", "1.2"}, Fetching{"png", "1.0"},
                      Fetching{"png", "1.1"}, Fetching{"png", "1.2"}, Fetching{"rgb8", "1.0"}, Fetching{"rgb8", "1.1"},
                      Fetching{"rgb8", "1.2"}),
    [](const auto& test) {
        return QString("%1Msex%2").arg(test.param.format, test.param.msex).remove('.').toStdString();
    });

TEST(ConsoleThumbnails, FetchesOneLibraryAlone)
{
    const QTemporaryDir target;
    const Server server;
    const Outcome outcome = fetch(target.path(), {"1,2,0,0"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(QDir(target.path()).entryList(QDir::Files).join(' ').toStdString(),
              "1.2.0.0-000-Colour_bars.jpg 1.2.0.0-001-Grid.jpg 1.2.0.0-002-Checkerboard.jpg 1.2.0.0-003-Rings.jpg "
              "contact-sheet.jpg");
    EXPECT_TRUE(outcome.output.contains("4 of 4 thumbnails written to")) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.errors.contains("4 of 4 thumbnails, ")) << outcome.errors.toStdString();
}

TEST(ConsoleThumbnails, MakesTheFolderAndAsksForTheSize)
{
    const QTemporaryDir target;
    const Server server;
    const QString folder = target.filePath("new/deep");
    EXPECT_EQ(fetch(folder, {"1", "--size", "64x64", "--format", "png"}).status, 0);
    EXPECT_EQ(QImage(folder + "/1.1.0.0-002-Red.png").size(), QSize(64, 48));
}

TEST(ConsoleThumbnails, WritesPagesBesideTheFilesOrAlone)
{
    const QTemporaryDir target;
    const Server server({"--name", "<b>Stage"});
    const QString pages = target.filePath("pages");
    const QStringList arguments{"thumbnails", key, "2", "--adapter", "lo", "--html", pages};
    const Outcome alone = runConsole(arguments);
    EXPECT_EQ(alone.status, 0) << alone.errors.toStdString();
    EXPECT_TRUE(alone.output.endsWith("4 of 4 thumbnails written to " + pages + "\npage: " + pages + "/index.html\n"))
        << alone.output.toStdString();
    EXPECT_EQ(QDir(target.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).join(' ').toStdString(), "pages");
    EXPECT_EQ(QDir(pages).entryList(QDir::Files).join(' ').toStdString(),
              "1.2.0.0-000.jpg 1.2.0.0-001.jpg 1.2.0.0-002.jpg 1.2.0.0-003.jpg index.html library-1.2.0.0.html");
    QFile page(pages + "/library-1.2.0.0.html");
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    const QByteArray content = page.readAll();
    EXPECT_TRUE(content.contains("<img src=\"1.2.0.0-003.jpg\" alt=\"\"><bdi>3  Rings</bdi>")) << content.toStdString();
    EXPECT_TRUE(content.contains("&lt;b&gt;Stage")) << content.toStdString();

    // They are not written over, and the files are saved all the same as without them.
    const Outcome again = runConsole(arguments);
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.errors.toStdString(),
              ("citp-console: could not write the pages " + pages + ": it is not empty\n").toStdString());
    const Outcome both = fetch(target.filePath("files"), {"2", "--html", target.filePath("more")});
    EXPECT_EQ(both.status, 0) << both.errors.toStdString();
    EXPECT_EQ(pictureCount(target.filePath("files")), 4);
    EXPECT_TRUE(QFile::exists(target.filePath("more/index.html")));
}

TEST(ConsoleThumbnails, ShowsTheMissingOnesOnThePagesToo)
{
    const QTemporaryDir target;
    const Server server({"--fault", "oversize"});
    const Outcome outcome = runConsole({"thumbnails", key, "2", "--adapter", "lo", "--html", target.filePath("pages")});
    EXPECT_EQ(outcome.status, 1);
    QFile page(target.filePath("pages/library-1.2.0.0.html"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    EXPECT_EQ(page.readAll().count("its answer has no picture"), 4);
}

TEST(ConsoleThumbnails, NamesTheTypeOfALibraryOnItsPage)
{
    const QTemporaryDir target;
    const Server server({"--effects", "1"});
    const QString pages = target.filePath("pages");
    runConsole({"thumbnails", key, "--type", "2", "--adapter", "lo", "--html", pages});
    QFile index(pages + "/index.html");
    ASSERT_TRUE(index.open(QIODevice::ReadOnly));
    EXPECT_TRUE(index.readAll().contains(" of type 2"));
}

TEST(ConsoleThumbnails, CountsNoneAsWrittenIfThePagesCannotBe)
{
    const QTemporaryDir target;
    const Server server;
    const QString pages = target.filePath("pages");
    // As on a full disk. The output goes through a pipe, as files have that limit.
    Child console("bash", {"-c", "set -o pipefail; trap '' XFSZ; (ulimit -f 1; exec " CONSOLE_PROGRAM " thumbnails " +
                                     key + " 2 --adapter lo --html " + pages + ") 2>&1 | cat"});
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.output().contains(": 0 of 4 thumbnails written to " + pages)) << console.output().toStdString();
    EXPECT_TRUE(console.output().contains("citp-console: could not write the pages " + pages + ": "))
        << console.output().toStdString();
    EXPECT_TRUE(QDir(target.path()).isEmpty());
}

TEST(ConsoleThumbnails, SaysThatTheFolderCannotBe)
{
    QTemporaryDir target;
    QFile file(target.filePath("taken"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const Outcome outcome = fetch(file.fileName(), {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.contains("could not create the folder")) << outcome.errors.toStdString();
}

TEST(ConsoleThumbnails, ListsFailedOnesAndWritesNoFilesForThem)
{
    const QTemporaryDir target;
    const Server server({"--fault", "oversize"});
    const Outcome outcome = fetch(target.path(), {"2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("0 of 4 thumbnails written")) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.output.contains("4 missing:\n"));
    EXPECT_TRUE(outcome.output.contains("library 1,2,0,0, element 3 \"Rings\": "));
    EXPECT_EQ(outcome.output.count(": its answer has no picture\n"), 4) << outcome.output.toStdString();
    EXPECT_EQ(QDir(target.path()).entryList(QDir::Files).join(' ').toStdString(), "contact-sheet.jpg");
}

TEST(ConsoleThumbnails, GivesUpOnAServerThatNeverSendsOne)
{
    const QTemporaryDir target;
    QDir().mkpath(target.filePath("media/Broken"));
    // Its header promises a picture, so it is listed; its body is not there, so there is no thumbnail to send.
    const QString path = target.filePath("media/Broken/cut.png");
    ASSERT_TRUE(smoothPicture(160, 120, 0).save(path, "png"));
    ASSERT_TRUE(QFile(path).resize(200));
    const Server server({"--media", target.filePath("media")});
    const Outcome outcome = fetch(target.filePath("out"), {"--timeout", "4"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.contains("did not send the picture of element 0 of library 1,1,0,0 within 4 s"))
        << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains("\"cut.png\": no answer")) << outcome.output.toStdString();
}

TEST(ConsoleThumbnails, WaitsForAServerThatSendsOnePictureAfterTheOther)
{
    const QTemporaryDir media;
    const QTemporaryDir target;
    for (int i = 0; i < 12; ++i)
        ASSERT_TRUE(smoothPicture(16, 12, i).save(media.filePath(QString("%1.png").arg(i))));
    // All of them together take twice the timeout. Each of them takes a small part of it, on a busy machine too.
    const Server server({"--media", media.path(), "--fault", "delay", "--fault-delay", "700"});
    const Outcome outcome = fetch(target.path(), {"--timeout", "4"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains("12 of 12 thumbnails written")) << outcome.output.toStdString();
    EXPECT_EQ(pictureCount(target.path()), 12);
}

TEST(ConsoleThumbnails, ReportsWhatItHasWhenTheContactSheetCannotBeWritten)
{
    const QTemporaryDir target;
    ASSERT_TRUE(QDir(target.path()).mkdir("contact-sheet.jpg"));
    const Server server;
    const Outcome outcome = fetch(target.path(), {"2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("4 of 4 thumbnails written")) << outcome.output.toStdString();
    EXPECT_FALSE(outcome.output.contains("contact sheet: ")) << outcome.output.toStdString();
    EXPECT_TRUE(outcome.errors.contains("could not write " + target.filePath("contact-sheet.jpg")))
        << outcome.errors.toStdString();
}

TEST(ConsoleThumbnails, WritesThroughNoLink)
{
    const QTemporaryDir target;
    QFile kept(target.filePath("kept"));
    ASSERT_TRUE(kept.open(QIODevice::WriteOnly) && kept.write("kept") == 4);
    kept.close();
    for (const char* const name : {"1.2.0.0-001-Grid.jpg", "contact-sheet.jpg"})
        ASSERT_TRUE(kept.link(target.filePath(name)));
    const Server server;
    const Outcome outcome = fetch(target.path(), {"2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.output.contains("element 1 \"Grid\": could not be written: it is a link"))
        << outcome.output.toStdString();
    EXPECT_TRUE(
        outcome.errors.endsWith("citp-console: server 127.0.0.2:4811  \"Simulated Server\": 1 of 4 "
                                "thumbnails are missing; could not write " +
                                target.filePath("contact-sheet.jpg") + ": it is a link\n"))
        << outcome.errors.toStdString();
    EXPECT_EQ(QFileInfo(kept).size(), 4);
}

TEST(ConsoleThumbnails, DrawsNoSheetTallerThanCanBeDrawn)
{
    const QTemporaryDir target;
    const QTemporaryDir media;
    QImage red(16, 12, QImage::Format_RGB888);
    red.fill(Qt::red);
    for (int i = 0; i < 180; ++i) {
        const QString folder = media.filePath(QString("Library %1").arg(i));
        ASSERT_TRUE(QDir().mkpath(folder) && red.save(folder + "/red.png"));
    }
    const Server server({"--media", media.path()});
    const Outcome outcome = fetch(target.path(), {"--format", "png"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors.toStdString();
    EXPECT_TRUE(outcome.output.contains("180 of 180 thumbnails written")) << outcome.output.toStdString();
    // Each picture is a field of its own in the first column, red in the middle.
    int drawn = 0;
    for (const QString& name : QDir(target.path()).entryList({"contact-sheet*.jpg"})) {
        const QImage sheet(target.filePath(name));
        bool wasRed = false;
        for (int y = 0; y < sheet.height(); ++y) {
            const QRgb pixel = sheet.pixel(94, y);
            const bool isRed = qRed(pixel) > 240 && qGreen(pixel) < 16 && qBlue(pixel) < 16;
            drawn += isRed && !wasRed ? 1 : 0;
            wasRed = isRed;
        }
    }
    EXPECT_EQ(drawn, 180);
}

TEST(ConsoleThumbnails, ReportsWhatItHasWhenTheServerGoesDown)
{
    const QTemporaryDir target;
    Console console({"thumbnails", key, "--adapter", "lo", "--to", target.path(), "--html", target.filePath("pages")});
    {
        const Server server({"--fault", "delay", "--fault-delay", "150"});
        ASSERT_TRUE(waitFor([&] { return pictureCount(target.path()) > 0; }));
    }
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().contains("went down")) << console.errors().toStdString();
    EXPECT_TRUE(console.output().contains("missing:"));
    EXPECT_GT(pictureCount(target.path()), 0);
    EXPECT_LT(pictureCount(target.path()), 40);
    expectGoodFiles(target.path());
    // The pages are whole or not there at all.
    EXPECT_EQ(QDir(target.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot).join(' ').toStdString(), "");
    EXPECT_TRUE(QFile::exists(target.filePath("contact-sheet.jpg")));
}

TEST(ConsoleThumbnails, StopsOnCtrlC)
{
    const QTemporaryDir target;
    const Server server({"--fault", "delay", "--fault-delay", "150"});
    Console console({"thumbnails", key, "--adapter", "lo", "--to", target.path()});
    ASSERT_TRUE(waitFor([&] { return pictureCount(target.path()) > 0; }));
    console.interrupt();
    EXPECT_EQ(console.waitForEnd(), 1);
    EXPECT_TRUE(console.errors().contains("citp-console: interrupted")) << console.errors().toStdString();
    EXPECT_LT(pictureCount(target.path()), 40);
    expectGoodFiles(target.path());
}

namespace {
struct FaultCase
{
    const char* fault;
    int status;
    int pictures;       ///< of 40; -1 for some or none
    const char* saying; ///< in the output or the errors
    /// Short for what does not come. What comes must not be too late, however busy the machine is.
    const char* timeout = "30";
    const char* option = nullptr;
};

void PrintTo(const FaultCase& faultCase, std::ostream* out)
{
    *out << faultCase.fault;
}

class ConsoleUnderFault : public ::testing::TestWithParam<FaultCase>
{
};
} // namespace

TEST_P(ConsoleUnderFault, StaysAliveAndSaysWhatHappened)
{
    const QTemporaryDir target;
    const Server server({"--fault", GetParam().fault, "--fault-delay", "20"});
    QStringList options{"--timeout", GetParam().timeout};
    if (GetParam().option)
        options << GetParam().option;
    const Outcome outcome = fetch(target.path(), options);
    EXPECT_EQ(outcome.status, GetParam().status) << outcome.errors.toStdString();
    EXPECT_TRUE((outcome.output + outcome.errors).contains(GetParam().saying))
        << outcome.output.toStdString() << outcome.errors.toStdString();
    if (GetParam().pictures >= 0) {
        EXPECT_EQ(pictureCount(target.path()), GetParam().pictures);
    }
    expectGoodFiles(target.path());
}

INSTANTIATE_TEST_SUITE_P(
    EachFault, ConsoleUnderFault,
    ::testing::Values(FaultCase{"delay", 0, 40, "40 of 40 thumbnails written"},
                      FaultCase{"silence", 1, 0, "did not send its libraries within 2 s", "2"},
                      FaultCase{"split", 0, 40, "40 of 40 thumbnails written"},
                      FaultCase{"merge", 0, 40, "40 of 40 thumbnails written"},
                      FaultCase{"truncate", 1, -1, "citp-console: ", "2"}, FaultCase{"oversize", 1, 0, "40 missing:"},
                      FaultCase{"version", 1, 0, "which is not supported"},
                      FaultCase{"garbage", 0, 40, "40 of 40 thumbnails written"},
                      FaultCase{"noise", 1, 0, "guard large message: 127.0.0.2:4811"},
                      FaultCase{"noise", 1, 0, "did not send its libraries within 2 s", "2", "--no-guards"},
                      FaultCase{"reset", 1, 0, "went down"}, FaultCase{"storm", 0, 40, "40 of 40 thumbnails written"}),
    [](const auto& test) { return test.param.fault + std::string(test.param.option ? "WithoutGuards" : ""); });

// What a console asks a simulated server for and what it is told, byte for byte in each MSEX version.
// SPDX-License-Identifier: Apache-2.0
#include <QColor>
#include <QImage>
#include <QTemporaryFile>
#include <memory>

#include "mediaserver_fixture.h"

namespace {
// A message of the MSEX layer; @p body begins with the version.
QByteArray msex(const char* body, quint16 index = 0)
{
    QByteArray message = hex("43495450 01 00") + QByteArray(1, char(index & 0xFF)) + QByteArray(1, char(index >> 8));
    const QByteArray rest = hex(body);
    const auto size = static_cast<quint32>(20 + rest.size());
    for (int i = 0; i < 4; ++i)
        message.append(static_cast<char>(size >> (8 * i) & 0xFF));
    return message + hex("0100 0000 4D534558") + rest;
}

// A server of drawn pictures and a console connected to it.
struct Pair
{
    explicit Pair(const QStringList& arguments = {}) : program(QStringList{"--adapter", "lo"} + arguments)
    {
        program.waitForLine("listens on");
        console = std::make_unique<Console>("127.0.0.2", 4811);
    }

    // Sends a request and expects exactly this message as its answer.
    void expectAnswer(const char* request, const char* answer)
    {
        SCOPED_TRACE(request);
        console->send(msex(request, 0x0102));
        EXPECT_EQ(console->nextMessage().toHex().toStdString(), msex(answer, 0x0102).toHex().toStdString());
    }

    // Sends a request that gets no answer: the next message answers the greeting sent behind it.
    void expectNoAnswer(const char* request)
    {
        SCOPED_TRACE(request);
        console->send(msex(request) + hex(Greeting));
        EXPECT_EQ(console->nextMessage().mid(22, 4).toStdString(), "SInf");
    }

    Program program;
    std::unique_ptr<Console> console;
};
} // namespace

TEST(MediaserverBrowse, ListsTheFirstLevelInMsex10)
{
    Pair pair;
    pair.expectAnswer(
        "01 00 47454C49 01 00",                                                           // GELI, media, all
        "01 00 454C496E 01 03"                                                            // ELIn, media, three:
        "01 01 01 4700720061006400690065006E00740073000000 06"                            // "Gradients"
        "02 02 02 5400650073007400200063006100720064007300 0000 04"                       // "Test cards"
        "03 03 03 4E0075006D0062006500720065006400200066007200 61006D00650073000000 0A"); // "Numbered frames"
    pair.expectAnswer("01 00 47454C49 01 01 02",
                      "01 00 454C496E 01 01 02 02 02 5400650073007400200063006100720064007300 0000 04");
    pair.expectAnswer("01 00 47454C49 01 01 09", "01 00 454C496E 01 00");
    pair.expectAnswer("01 00 47454C49 07 00", "01 00 454C496E 07 00");
}

TEST(MediaserverBrowse, ListsSubLibrariesInMsex11)
{
    Pair pair;
    pair.expectAnswer(
        "01 01 47454C49 01 00000000 01 03",
        "01 01 454C496E 01 01 01030000 03 03 4E0075006D0062006500720065006400200066007200 61006D0065007300"
        "0000 01 0A");
    pair.expectAnswer("01 01 47454C49 01 01030000 00",
                      "01 01 454C496E 01 01 02030100 01 01 540065006E0073000000 01 0A"); // "Tens"
    pair.expectAnswer("01 01 47454C49 01 02030100 00",
                      "01 01 454C496E 01 01 03030101 01 01 5400770065006E007400690065007300 0000 00 0A"); // "Twenties"
    pair.expectAnswer("01 01 47454C49 01 03030101 00", "01 01 454C496E 01 00");
}

TEST(MediaserverBrowse, ListsLibrariesInMsex12WithSerialNumbers)
{
    Pair pair;
    pair.console->send(msex("01 02 47454C49 01 01030000 0000"));
    const QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(answer.mid(20, 13).toHex().toStdString(), hex("01 02 454C496E 01 0100 02030100").toHex().toStdString());
    EXPECT_NE(answer.mid(33, 4), hex("00000000"));
    EXPECT_EQ(answer.mid(37).toHex().toStdString(), hex("01 01 540065006E0073000000 0100 0A00").toHex().toStdString());
}

TEST(MediaserverBrowse, ListsMediaInEachVersion)
{
    Pair pair;
    // Element 1, "Grid", 2020-01-01, 320 x 240, 250 frames at 25 a second.
    pair.expectAnswer("01 00 4745496E 01 02 01 01",
                      "01 00 4D45496E 02 01 01 01 01 4700720069006400 0000 00E10B5E00000000 4001 F000 FA000000 19");
    pair.expectAnswer(
        "01 01 4745496E 01 01020000 01 01",
        "01 01 4D45496E 01020000 01 01 01 01 4700720069006400 0000 00E10B5E00000000 4001 F000 FA000000 19");
    pair.expectAnswer("01 02 4745496E 01 01020000 0100 01",
                      "01 02 4D45496E 01020000 0100 01 66000000 01 01 4700720069006400 0000 00E10B5E00000000 4001 F000"
                      "FA000000 19");
    pair.expectAnswer("01 02 4745496E 01 01090000 0000", "01 02 4D45496E 01090000 0000");
}

TEST(MediaserverBrowse, ListsAllElementsForAnEmptyListOfNumbers)
{
    Pair pair;
    pair.console->send(msex("01 01 4745496E 01 03030101 00"));
    const QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(int(answer.at(30)), 10);
    // Each element: three bytes, "Frame 20" and so on with its terminator, 17 bytes.
    ASSERT_EQ(answer.size(), 31 + 10 * (3 + 18 + 17));
    for (int i = 0; i < 10; ++i) {
        const QByteArray element = answer.mid(31 + i * 38, 3 + 18);
        const QByteArray number(3, char(i));
        EXPECT_EQ(element.toHex(), (number + hex("4600720061006D006500200032003000 0000"))
                                       .toHex()
                                       .replace("3000", QByteArray::number(30 + i) + "00"))
            << i;
    }
}

TEST(MediaserverBrowse, ListsEffectsWithTheirParametersInEachVersion)
{
    Pair pair({"--effects", "1"});
    // Element 2, "Mirror", with the parameter "Axis"; element 3, "Negative", with none.
    pair.expectAnswer("01 00 4745496E 02 01 02 02 03",
                      "01 00 4545496E 01 02 02 02 02 4D006900720072006F00 7200 0000 01 41007800690073000000"
                      "03 03 03 4E0065006700610074006900760065000000 00");
    pair.expectAnswer("01 01 4745496E 02 01010000 01 02",
                      "01 01 4545496E 01010000 01 02 02 02 4D00690072007200 6F007200 0000 01 41007800690073000000");
    pair.expectAnswer("01 02 4745496E 02 01010000 0100 02",
                      "01 02 4545496E 01010000 0100 02 CA000000 02 02 4D00690072007200 6F007200 0000 01"
                      "41007800690073000000");
}

TEST(MediaserverBrowse, ListsGenericElementsFromMsex11On)
{
    Pair pair({"--generic", "1"});
    pair.expectAnswer("01 01 4745496E 03 01010000 01 04",
                      "01 01 474C4549 01010000 01 04 04 04 43007500650020003500 0000 00E10B5E00000000"); // "Cue 5"
    pair.expectAnswer("01 02 4745496E 03 01010000 0100 04",
                      "01 02 474C4549 03 01010000 0100 04 CE000000 04 04 43007500650020003500 0000 00E10B5E00000000");
    pair.expectNoAnswer("01 00 4745496E 03 01 00");
    pair.program.waitForLine("MSEX 1.0 has no message for this type");
}

TEST(MediaserverBrowse, TellsTheLibraryTypesThatItHas)
{
    Pair pair({"--effects", "2", "--generic", "3"});
    pair.console->send(hex(Greeting));
    // Behind the UUID, "Citp Simulator", the version and three MSEX versions.
    EXPECT_EQ(pair.console->nextMessage().mid(26 + 36 + 30 + 3 + 7, 2).toHex().toStdString(), "0e00");
    for (const auto& [type, count] : {std::pair{"02", '\2'}, std::pair{"03", '\3'}}) {
        pair.console->send(msex((QByteArray("01 01 47454C49 ") + type + "00000000 00").constData()));
        EXPECT_EQ(pair.console->nextMessage().at(27), count);
    }
}

TEST(MediaserverBrowse, SendsElementThumbnailsAsRawRows)
{
    Pair pair;
    // The colour bars, 320 x 240, into 16 x 3: four pixels wide to keep the proportions.
    pair.console->send(msex("01 00 47455468 52474238 1000 0300 01 01 02 01 00"));
    QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(answer.mid(20, 19).toHex().toStdString(),
              hex("01 00 4554686E 01 02 00 52474238 0400 0300 2400").toHex().toStdString());
    EXPECT_EQ(answer.size(), 39 + 4 * 3 * 3);
    // At its full width it exceeds what the size field can tell, so it comes smaller.
    pair.console->send(msex("01 01 47455468 52474238 4001 F000 01 01 01020000 01 00"));
    answer = pair.console->nextMessage();
    EXPECT_EQ(answer.mid(20, 16).toHex().toStdString(),
              hex("01 01 4554686E 01 01020000 00 52474238").toHex().toStdString());
    const int width = quint8(answer.at(36)) + 256 * quint8(answer.at(37));
    const int height = quint8(answer.at(38)) + 256 * quint8(answer.at(39));
    EXPECT_LE(width * height * 3, 65535);
    EXPECT_GT(width * height * 3, 50000);
    EXPECT_NEAR(width * 240.0 / 320.0, height, 1);
    EXPECT_EQ(answer.size(), 42 + width * height * 3);
}

TEST(MediaserverBrowse, SendsElementThumbnailsAsFiles)
{
    Pair pair;
    struct
    {
        const char* code;
        const char* name;
    } const formats[] = {{"4A504547", "jpeg"}, {"504E4720", "png"}};
    for (const auto& [code, name] : formats) {
        // Elements 0 and 3 of the test cards, 80 x 60.
        pair.console->send(
            msex((QByteArray("01 02 47455468") + code + "5000 3C00 01 01 01020000 0200 00 03").constData(), 9));
        for (const char number : {'\0', '\3'}) {
            const QByteArray answer = pair.console->nextMessage();
            EXPECT_EQ(answer.mid(6, 2), hex("0900"));
            EXPECT_EQ(answer.mid(20, 20), hex("01 02 4554686E 01 01020000") + number + hex(code) + hex("5000 3C00"));
            const QImage image = QImage::fromData(answer.mid(42), name);
            EXPECT_EQ(image.size(), QSize(80, 60)) << name;
            // Near the left edge the bars are white; the rings' corner is not grey.
            const QColor pixel = image.pixelColor(1, 1);
            EXPECT_EQ(pixel.red() > 180 && pixel.green() > 180 && pixel.blue() > 180 && pixel.red() < 200, number == 0);
        }
    }
}

TEST(MediaserverBrowse, ShrinksOrCoarsensAPictureUntilTheWireCanTellItsSize)
{
    Pair pair;
    for (const char* const code : {"4A504547", "504E4720", "52474238"}) {
        // The hues, at 65535 x 65535.
        pair.console->send(msex((QByteArray("01 01 47455468") + code + "FFFF FFFF 01 01 01010000 01 05").constData()));
        const QByteArray answer = pair.console->nextMessage();
        const int size = quint8(answer.at(40)) + 256 * quint8(answer.at(41));
        EXPECT_GT(size, 1000) << code;
        EXPECT_EQ(answer.size(), 42 + size) << code;
    }
}

TEST(MediaserverBrowse, ChoosesASizeWhenNoneIsAskedFor)
{
    Pair pair;
    pair.console->send(msex("01 01 47455468 52474238 0000 0000 01 01 01010000 01 05"));
    EXPECT_EQ(pair.console->nextMessage().mid(36, 4).toHex().toStdString(), "80006000");
}

TEST(MediaserverBrowse, SendsLibraryThumbnails)
{
    Pair pair;
    // The gradients begin with one from black to white.
    pair.console->send(msex("01 00 47454C54 52474238 0200 0200 01 01 01 01"));
    QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(answer.mid(20, 18).toHex().toStdString(),
              hex("01 00 454C5468 01 01 52474238 0200 0200 0C00").toHex().toStdString());
    EXPECT_LT(quint8(answer.at(38)), 100);
    EXPECT_GT(quint8(answer.at(41)), 150);
    pair.console->send(msex("01 02 47454C54 504E4720 0800 0800 01 01 0200 03030101 02030100"));
    for (const char* const id : {"02030100", "03030101"}) {
        answer = pair.console->nextMessage();
        EXPECT_EQ(answer.mid(20, 19).toHex().toStdString(),
                  (hex("01 02 454C5468 01") + hex(id) + hex("504E4720 0800 0600")).toHex().toStdString());
        EXPECT_EQ(QImage::fromData(answer.mid(41), "png").size(), QSize(8, 6));
    }
}

TEST(MediaserverBrowse, SendsThumbnailsOfAllThatTheVersionCanNameForAnEmptyList)
{
    Pair pair;
    pair.console->send(msex("01 01 47454C54 4A504547 1000 1000 01 01 00") +
                       msex("01 00 47454C54 4A504547 1000 1000 01 01 00") + hex(Greeting));
    QStringList ids;
    for (QByteArray answer = pair.console->nextMessage(); answer.mid(22, 4) == "ELTh";
         answer = pair.console->nextMessage())
        ids << QString::fromLatin1(answer.mid(27, answer.at(21) == 0 ? 1 : 4).toHex());
    EXPECT_EQ(ids.join(' ').toStdString(), "01010000 01020000 01030000 02030100 03030101 01 02 03");
}

TEST(MediaserverBrowse, AnswersNothingForElementsThatAreNotThere)
{
    Pair pair;
    pair.expectNoAnswer("01 02 47455468 4A504547 1000 1000 01 01 01020000 0100 63");
    pair.expectNoAnswer("01 02 47455468 4A504547 1000 1000 01 01 01090000 0000");
    pair.expectNoAnswer("01 02 47454C54 4A504547 1000 1000 01 01 0100 01090000");
}

TEST(MediaserverBrowse, AnswersNoRequestInAVersionAboveItsOwn)
{
    Pair pair({"--msex", "1.0"});
    pair.expectNoAnswer("01 01 47454C49 01 00000000 00");
    pair.program.waitForLine("asks in MSEX 1.1: not answered, this server speaks 1.0 at most");
    pair.console->send(msex("01 00 47454C49 01 00"));
    EXPECT_EQ(pair.console->nextMessage().mid(22, 4).toStdString(), "ELIn");
}

TEST(MediaserverBrowse, AnswersRequestsInTheirOrder)
{
    Pair pair;
    QByteArray requests;
    for (quint16 i = 0; i < 500; ++i)
        requests += msex(i % 2 ? "01 02 47454C49 01 00000000 0000" : "01 02 4745496E 01 01010000 0000", i);
    pair.console->send(requests);
    for (int i = 0; i < 500; ++i) {
        const QByteArray answer = pair.console->nextMessage();
        ASSERT_EQ(quint8(answer.at(6)) + 256 * quint8(answer.at(7)), i);
        ASSERT_EQ(answer.mid(22, 4).toStdString(), i % 2 ? "ELIn" : "MEIn");
    }
}

TEST(MediaserverBrowse, StreamsLayersWithMovingPositionsInMsex12)
{
    Pair pair({"--layer-rate", "50", "--layers", "2"});
    pair.console->send(hex(Greeting));
    EXPECT_EQ(pair.console->nextMessage().mid(22, 4).toStdString(), "SInf");
    QByteArray positions;
    for (int i = 0; i < 4; ++i) {
        const QByteArray status = pair.console->nextMessage();
        // Two layers: "Grey across" and "Grey down" of library 1,1,0,0.
        ASSERT_EQ(status.size(), 27 + (8 + 24 + 13) + (8 + 20 + 13));
        EXPECT_EQ(status.mid(20, 39).toHex().toStdString(),
                  hex("01 02 4C537461 02 00 00 01 01010000 00 470072006500790020006100630072006F00730073000000")
                      .toHex()
                      .toStdString());
        EXPECT_EQ(status.mid(63, 17).toHex().toStdString(),
                  hex("FA000000 19 01000000 01 01 01 01010000 01").toHex().toStdString());
        positions += status.at(59);
    }
    // Half a frame a message.
    EXPECT_EQ(quint8(positions.at(2)), (quint8(positions.at(0)) + 1) % 250);
    EXPECT_EQ(quint8(positions.at(3)), (quint8(positions.at(1)) + 1) % 250);
}

TEST(MediaserverBrowse, StreamsLayersAsMsex10BelowMsex12)
{
    for (const char* const version : {"1.0", "1.1"}) {
        Pair pair({"--layer-rate", "50", "--layers", "1", "--msex", version});
        pair.console->send(hex(Greeting));
        pair.console->nextMessage("SInf");
        const QByteArray status = pair.console->nextMessage();
        EXPECT_EQ(status.mid(20, 11).toHex().toStdString(), hex("01 00 4C537461 01 00 00 01 00").toHex().toStdString())
            << version;
        EXPECT_EQ(status.size(), 27 + 4 + 24 + 13) << version;
    }
}

TEST(MediaserverBrowse, SendsThePatchThatIsAskedFor)
{
    QTemporaryFile patch;
    ASSERT_TRUE(patch.open());
    patch.write(R"([{"id": 1, "universe": 2, "channel": 3, "channels": 4, "make": "M", "name": "N"},
                    {"id": 258, "universe": 0, "channel": 300, "channels": 1, "make": "", "name": "é"}])");
    patch.flush();
    Pair pair({"--patch", patch.fileName()});
    const QByteArray first =
        hex("43495450 01 00 0000 28000000 0100 0000 46505443 50746368 00000000"
            "0100 02 00 0300 0400 4D00 4E00");
    const QByteArray second =
        hex("43495450 01 00 0000 27000000 0100 0000 46505443 50746368 00000000"
            "0201 00 00 2C01 0100 00 E900");
    const auto ask = [&](const char* request) { pair.console->send(hex(request)); };
    ask("43495450 01 00 0000 1E000000 0100 0000 46505443 53507463 00000000 0000");
    EXPECT_EQ(pair.console->nextMessage().toHex().toStdString(), first.toHex().toStdString());
    EXPECT_EQ(pair.console->nextMessage().toHex().toStdString(), second.toHex().toStdString());
    pair.program.waitForLine("SPtc: asks for the whole patch: 2 sent");
    ask("43495450 01 00 0000 22000000 0100 0000 46505443 53507463 00000000 0200 0201 0900");
    EXPECT_EQ(pair.console->nextMessage().toHex().toStdString(), second.toHex().toStdString());
    pair.program.waitForLine("SPtc: asks for 2 fixtures: 1 sent");
}

TEST(MediaserverBrowse, AConsoleThatNeverReadsHoldsUpNobodyElse)
{
    Pair pair;
    Console deaf("127.0.0.2", 4811);
    deaf.socket().setReadBufferSize(1);
    // Far more answers than any buffer between takes; the requests themselves still fit into the network's buffers.
    QByteArray requests;
    for (int i = 0; i < 1000; ++i)
        requests += msex("01 01 47455468 52474238 4001 F000 01 01 01010000 00");
    deaf.socket().write(requests);
    deaf.socket().flush();
    pair.program.waitForLine("GETh: thumbnails of elements");
    pair.console->send(hex(Greeting));
    EXPECT_EQ(pair.console->nextMessage("SInf").mid(22, 4).toStdString(), "SInf");
}

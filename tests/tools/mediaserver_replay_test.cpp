// citp-mediaserver --replay: captures made by the tests, played, and what a console with bare sockets gets.
// SPDX-License-Identifier: Apache-2.0
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <memory>
#include <utility>

#include "capture_writer.h"
#include "mediaserver_fixture.h"
#include "messages.h"
#include "network.h"
#include "replay.h"
#include "wire.h"

namespace {
using MediaServer::LayerState;
using MediaServer::MessageWriter;
using MediaServer::Reply;

const QByteArray Announced = MediaServer::peerLocation("Stage", 4811);

QByteArray greetingOf(quint16 index = 0)
{
    return MessageWriter("MSEX", index).u8(1).u8(2).bytes("CInf").u8(1).u16(0x0102).take();
}

QByteArray informationOf(quint16 index = 0)
{
    MediaServer::Identity identity;
    identity.product = "Recorded";
    identity.uuid = QByteArray(36, 'u');
    return MediaServer::serverInformation(identity, index);
}

QByteArray askLists(quint16 index = 0)
{
    return MessageWriter("MSEX", index).u8(1).u8(2).bytes("GELI").u8(1).u32(0).u16(0).take();
}

QByteArray listOf(const QString& name, quint16 index = 0)
{
    return MediaServer::libraryList(Reply{2, index}, 1, {{0x0101, 0, name, 0, 2}});
}

QByteArray askElements(quint8 library, quint16 index = 0)
{
    const quint32 id = 1U | static_cast<quint32>(library) << 8;
    return MessageWriter("MSEX", index).u8(1).u8(2).bytes("GEIn").u8(1).u32(id).u16(0).take();
}

QByteArray askPictures(const QByteArray& numbers, quint16 index = 0, quint16 width = 64, quint16 height = 48)
{
    MessageWriter out("MSEX", index);
    out.u8(1).u8(2).bytes("GETh").bytes("JPEG").u16(width).u16(height).u8(1).u8(1).u32(0x0101);
    return out.u16(static_cast<quint32>(numbers.size())).bytes(numbers).take();
}

QByteArray pictureOf(quint8 number, quint16 index = 0, const QByteArray& format = "JPEG")
{
    return MediaServer::elementThumbnail(Reply{2, index}, 1, 0x0101, number,
                                         {format, 64, 40, QByteArray(200, static_cast<char>('a' + number))});
}

QByteArray statusOf(quint32 position)
{
    LayerState state;
    state.position = position;
    return MediaServer::layerStatus(2, {state});
}

QByteArray askPatch(const std::vector<quint16>& fixtures)
{
    MessageWriter out("FPTC");
    out.bytes("SPtc").u32(0).u16(static_cast<quint32>(fixtures.size()));
    for (const quint16 fixture : fixtures)
        out.u16(fixture);
    return out.take();
}

QByteArray fixtureOf(quint16 id)
{
    return MediaServer::patchedFixture({id, 0, 1, 20, "Acme", "Spot"}, 0);
}

// Too short to tell which picture it is.
QByteArray damagedPicture()
{
    QByteArray cut = pictureOf(3).left(35);
    MediaServer::setSize(cut);
    return cut;
}

// A console that has connected.
cap::Talk beginning()
{
    cap::Talk talk;
    talk.announce(Announced).wait(100).connect();
    talk.toServer(greetingOf()).fromServer(informationOf());
    return talk;
}

// A console that has asked for most of a server.
cap::Talk show()
{
    cap::Talk talk;
    talk.announce(Announced).wait(100).connect();
    talk.toServer(greetingOf() + askPatch({})).fromServer(informationOf() + fixtureOf(1) + fixtureOf(2));
    talk.toServer(askLists(7)).fromServer(listOf("First", 7));
    talk.toServer(askPictures(QByteArray("\0\1", 2))).fromServer(pictureOf(0)).fromServer(pictureOf(1));
    return talk;
}

// The replay of a file, and a console connected to it.
struct Replayed
{
    explicit Replayed(const QString& file, const QStringList& arguments = {})
        : program(QStringList{"--adapter", "lo", "--replay", file} + arguments)
    {
        program.waitForLine("listens on");
        console = std::make_unique<Console>("127.0.0.2", 4811);
    }

    void expectAnswer(const QByteArray& request, const QByteArray& answer)
    {
        SCOPED_TRACE(request.toHex(' ').toStdString());
        console->send(request);
        EXPECT_EQ(console->nextMessage().toHex(' ').toStdString(), answer.toHex(' ').toStdString());
    }

    void expectLittleMemory() const
    {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        QFile status(QString("/proc/%1/status").arg(program.id()));
        ASSERT_TRUE(status.open(QIODevice::ReadOnly));
        static const QRegularExpression peak("VmHWM:\\s+(\\d+) kB");
        const qint64 kilobytes = peak.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
        EXPECT_GT(kilobytes, 0);
        EXPECT_LT(kilobytes, 64 * 1024);
#endif
    }

    // The next message answers the greeting sent behind it.
    void expectSilence(const QByteArray& request)
    {
        SCOPED_TRACE(request.toHex(' ').toStdString());
        expectAnswer(request + greetingOf(), informationOf());
    }

    Program program;
    std::unique_ptr<Console> console;
};

QString pcapOf(const cap::Files& files, const cap::Talk& talk)
{
    return files.write("show.pcap", cap::pcap(cap::Ethernet, talk.frames));
}

void expectReplayRefused(const QStringList& arguments, const QString& message, int status = 1)
{
    const Outcome outcome = runToEnd(QStringList{"--adapter", "lo"} + arguments);
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.output.toStdString(), "");
    EXPECT_EQ(outcome.errors.toStdString(), "citp-mediaserver: " + message.toStdString() + "\n");
}
} // namespace

TEST(MediaserverReplay, AnswersWhatIsAskedInAnyOrder)
{
    const cap::Files files;
    Replayed replayed(pcapOf(files, show()));
    // One of two pictures that were asked for together, and both the other way round.
    replayed.expectAnswer(askPictures("\1", 9), pictureOf(1, 9));
    replayed.console->send(askPictures(QByteArray("\1\0", 2)));
    EXPECT_EQ(replayed.console->nextMessage(), pictureOf(1));
    EXPECT_EQ(replayed.console->nextMessage(), pictureOf(0));
    // The request index is the one of the request, as it was recorded.
    replayed.expectAnswer(askLists(8), listOf("First", 8));
    replayed.expectAnswer(greetingOf(3), informationOf(3));
    replayed.console->send(askPatch({}));
    EXPECT_EQ(replayed.console->nextMessage(), fixtureOf(1));
    EXPECT_EQ(replayed.console->nextMessage(), fixtureOf(2));
    replayed.expectAnswer(askPatch({2}), fixtureOf(2));
    EXPECT_TRUE(replayed.program.output().contains(
        "  Stage  replays 2.0.0.10:4811: 1 announcement, 7 questions with answers, 0 layer states and updates"))
        << replayed.program.output().toStdString();
}

// In each version, since identifiers and counts have different widths.
TEST(MediaserverReplay, ListsWhatIsAskedOutOfARecordedListOfAll)
{
    for (quint8 minor = 0; minor <= 2; ++minor) {
        SCOPED_TRACE(int(minor));
        const auto ask = [minor](const char* code, quint32 library, const QByteArray& numbers) {
            MessageWriter out("MSEX");
            out.u8(1).u8(minor).bytes(code).u8(1);
            const bool isTop = library == 0;
            if (minor == 0 && !isTop)
                out.u8(1);
            else if (minor > 0)
                out.u32(library);
            const auto count = static_cast<quint32>(numbers.size());
            return (minor < 2 ? out.u8(count) : out.u16(count)).bytes(numbers).take();
        };
        const auto librariesOf = [minor](const std::vector<quint8>& numbers) {
            std::vector<MediaServer::LibraryEntry> entries;
            for (const quint8 number : numbers)
                entries.push_back({1U | number * 256U, 5, QString("Library %1").arg(number), 1, number});
            return MediaServer::libraryList(Reply{minor, 0}, 1, entries);
        };
        const auto elementsOf = [minor](const std::vector<quint8>& numbers) {
            std::vector<MediaServer::Element> elements;
            for (const quint8 number : numbers) {
                elements.emplace_back();
                elements.back().number = number;
                elements.back().name = QString("Clip %1").arg(number);
            }
            return MediaServer::mediaList(Reply{minor, 0}, 0x0101, elements);
        };
        cap::Talk talk = beginning();
        talk.toServer(ask("GELI", 0, {})).fromServer(librariesOf({1, 2, 3}));
        talk.toServer(ask("GEIn", 0x0101, {})).fromServer(elementsOf({0, 7, 9}));
        const cap::Files files;
        Replayed replayed(pcapOf(files, talk));
        replayed.expectAnswer(ask("GELI", 0, QByteArray("\3\1\4")), librariesOf({1, 3}));
        replayed.expectAnswer(ask("GEIn", 0x0101, QByteArray("\7")), elementsOf({7}));
        replayed.expectAnswer(ask("GEIn", 0x0101, QByteArray("\5")), elementsOf({}));
    }
}

TEST(MediaserverReplay, CountsWhatWasNeverAskedAndIsSilent)
{
    const cap::Files files;
    Replayed replayed(pcapOf(files, show()));
    replayed.expectSilence(askElements(1) + askPictures("\7") + askElements(1));
    replayed.program.interrupt();
    EXPECT_EQ(replayed.program.waitForEnd(), 0);
    EXPECT_TRUE(
        replayed.program.output().contains("never asked in the recording: 2 times GEIn of library 1,1,0,0 of type 1\n"))
        << replayed.program.output().toStdString();
    EXPECT_TRUE(replayed.program.output().contains(
        "never asked in the recording: 1 times GETh of library 1,1,0,0 of type 1, numbers 7, JPEG 64x48\n"))
        << replayed.program.output().toStdString();
}

TEST(MediaserverReplay, AnswersWithEmptyListsIfItIsToldTo)
{
    const cap::Files files;
    Replayed replayed(pcapOf(files, show()), {"--unknown", "empty"});
    replayed.expectAnswer(askElements(1, 5), MediaServer::mediaList(Reply{2, 5}, 0x0101, {}));
    replayed.expectSilence(askPictures("\7"));
}

TEST(MediaserverReplay, SaysNothingWhereTheServerSaidNothing)
{
    const cap::Files files;
    cap::Talk talk = show();
    talk.toServer(askElements(1));
    Replayed replayed(pcapOf(files, talk), {"--unknown", "empty"});
    replayed.expectSilence(askElements(1));
    EXPECT_TRUE(replayed.program.output().contains("1 question was asked in the recording but not answered"))
        << replayed.program.output().toStdString();
}

TEST(MediaserverReplay, GivesDifferentAnswersInTurn)
{
    const cap::Files files;
    cap::Talk talk = show();
    talk.toServer(askLists()).fromServer(listOf("First")).toServer(askLists()).fromServer(listOf("Second"));
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(askLists(), listOf("First"));
    replayed.expectAnswer(askLists(), listOf("Second"));
    replayed.expectAnswer(askLists(), listOf("Second"));
    // Another console gets them from the start.
    replayed.console = std::make_unique<Console>("127.0.0.2", 4811);
    replayed.expectAnswer(askLists(), listOf("First"));
}

TEST(MediaserverReplay, FindsTheRequestsThatCrossedTheirAnswers)
{
    const cap::Files files;
    cap::Talk talk;
    talk.announce(Announced).connect();
    const QByteArray empty = MediaServer::mediaList(Reply{2, 0}, 0x0201, {});
    const QByteArray cut = damagedPicture();
    talk.toServer(askPictures("\1") + askElements(2) + askPictures("\2") + askPictures("\3") + askPictures("\4"));
    // Out of order; one in another format, and one too short to tell which it is.
    talk.fromServer(pictureOf(2) + empty + pictureOf(4, 0, "PNG ") + pictureOf(1) + cut);
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(askPictures("\1"), pictureOf(1));
    replayed.expectAnswer(askPictures("\2"), pictureOf(2));
    replayed.expectAnswer(askPictures("\3"), cut);
    replayed.expectAnswer(askPictures("\4"), pictureOf(4, 0, "PNG "));
    replayed.expectAnswer(askElements(2), empty);
}

TEST(MediaserverReplay, KeepsTheNeighboursOfADamagedPicture)
{
    const cap::Files files;
    cap::Talk talk = beginning();
    talk.toServer(askPictures("\1\2\3")).fromServer(damagedPicture() + pictureOf(3) + pictureOf(1));
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(askPictures("\1"), pictureOf(1));
    replayed.expectAnswer(askPictures("\2"), damagedPicture());
    replayed.expectAnswer(askPictures("\3"), pictureOf(3));
}

TEST(MediaserverReplay, DistinguishesRequestsForTheSameByTheirIndex)
{
    const cap::Files files;
    const QByteArray large = MediaServer::elementThumbnail(Reply{2, 0}, 1, 0x0101, 1, {"JPEG", 128, 80, "large"});
    QByteArray indexed = large;
    indexed[6] = 5;
    cap::Talk talk = beginning();
    talk.toServer(askPictures("\1", 5, 128, 96) + askPictures("\1", 6)).fromServer(pictureOf(1, 6) + indexed);
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(askPictures("\1", 0, 128, 96), large);
    replayed.expectAnswer(askPictures("\1"), pictureOf(1));
}

TEST(MediaserverReplay, AnswersARequestForAllWithThoseThatWereAskedForOneByOne)
{
    const cap::Files files;
    cap::Talk talk = beginning();
    talk.toServer(askPictures("\2")).fromServer(pictureOf(2)).toServer(askPictures("\1")).fromServer(pictureOf(1));
    talk.toServer(askPatch({256})).fromServer(fixtureOf(256)).toServer(askPatch({2})).fromServer(fixtureOf(2));
    Replayed replayed(pcapOf(files, talk));
    replayed.console->send(askPictures({}) + askPatch({}));
    for (const QByteArray& answer : {pictureOf(1), pictureOf(2), fixtureOf(2), fixtureOf(256)})
        EXPECT_EQ(replayed.console->nextMessage().toHex(' ').toStdString(), answer.toHex(' ').toStdString());
    // Of another size nothing is known.
    replayed.expectSilence(askPictures({}, 0, 32, 24));
}

TEST(MediaserverReplay, DoesNotKnowWhatWasAnsweredInAGap)
{
    const cap::Files files;
    cap::Talk talk = beginning();
    talk.toServer(askElements(1)).lose(50).fromServer(statusOf(1)).acknowledge();
    Replayed replayed(pcapOf(files, talk), {"--unknown", "empty"});
    replayed.expectAnswer(askElements(1), MediaServer::mediaList(Reply{2, 0}, 0x0101, {}));
    EXPECT_FALSE(replayed.program.output().contains("not answered")) << replayed.program.output().toStdString();
}

TEST(MediaserverReplay, KeepsFewRequestsThatItDoesNotUnderstand)
{
    const cap::Files files;
    cap::Talk talk = beginning();
    for (int i = 0; i < 1500; ++i) {
        const QByteArray body = QByteArray::number(i).rightJustified(50000, '0');
        talk.toServer(MessageWriter("MSEX").u8(1).u8(2).bytes("Xxxx").bytes(body).take());
    }
    Replayed replayed(pcapOf(files, talk));
    replayed.expectLittleMemory();
    EXPECT_TRUE(replayed.program.output().contains("missing: 500 messages beyond the limits"))
        << replayed.program.output().toStdString();
}

TEST(MediaserverReplay, PadsNoRowsOfAPictureWithoutAWidth)
{
    const cap::Files files;
    const QByteArray picture = MediaServer::elementThumbnail(Reply{2, 0}, 1, 0x0101, 1, {"RGB8", 0, 1, "abc"});
    cap::Talk talk = beginning();
    talk.toServer(askPictures("\1")).fromServer(picture);
    Replayed replayed(pcapOf(files, talk), {"--fault", "padded-rows"});
    replayed.expectAnswer(askPictures("\1"), picture);
}

TEST(MediaserverReplay, AnnouncesItselfWithinAMinuteEvenIfTheClockWasSet)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    cap::Talk talk = show();
    talk.wait(86400000).announce(MediaServer::peerLocation("Renamed", 4811));
    talk.wait(-86400000).announce(MediaServer::peerLocation("Back", 4811));
    GroupListener group;
    const Program program({"--adapter", "lo", "--replay", pcapOf(files, talk), "--speed", "100"});
    for (const char* const name : {"Stage", "Renamed", "Back", "Stage"})
        EXPECT_EQ(group.nextFrom("127.0.0.2").data, MediaServer::peerLocation(name, 4811));
}

TEST(MediaserverReplay, AnnouncesItselfFromTheBeginningWhenItIsRevived)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    cap::Talk talk = show();
    talk.wait(60000).announce(MediaServer::peerLocation("Renamed", 4811));
    GroupListener group;
    const Program program(
        {"--adapter", "lo", "--replay", pcapOf(files, talk), "--die-after", "100", "--revive-after", "100"});
    EXPECT_EQ(group.nextFrom("127.0.0.2").data, Announced);
    EXPECT_EQ(group.nextFrom("127.0.0.2").data, Announced);
}

TEST(MediaserverReplay, ForgesAsManyServersAsIsSaid)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    GroupListener group;
    const Program program({"--adapter", "lo", "--replay", pcapOf(files, show()), "--fault", "forge", "--forged", "10"});
    // Between two of its own announcements, one second.
    int forged = 0;
    for (int own = 0; own < 2 && forged < 100;) {
        const QByteArray announced = group.nextFrom("127.0.0.2").data;
        ASSERT_FALSE(announced.isEmpty());
        own += announced == Announced ? 1 : 0;
        forged += announced == Announced ? 0 : 1;
    }
    EXPECT_LT(forged, 100);
}

TEST(MediaserverReplay, StartsTheLayerStatesFromTheBeginningForANewConsole)
{
    const cap::Files files;
    cap::Talk talk = beginning();
    talk.fromServer(statusOf(1)).wait(600000).fromServer(statusOf(2));
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(greetingOf(), informationOf());
    EXPECT_EQ(replayed.console->nextMessage(), statusOf(1));
    // Not for one that asks again.
    replayed.expectAnswer(greetingOf(), informationOf());
    replayed.expectAnswer(greetingOf(), informationOf());
    replayed.console.reset();
    replayed.console = std::make_unique<Console>("127.0.0.2", 4811);
    replayed.expectAnswer(greetingOf(), informationOf());
    EXPECT_EQ(replayed.console->nextMessage(), statusOf(1));
}

TEST(MediaserverReplay, RepeatsLayerStatesThatArrivedTogetherSlowly)
{
    MediaServer::Spool spool;
    ASSERT_TRUE(spool.open());
    // At this speed, a pause of 20 ms takes 20 s.
    constexpr double Speed = 0.001;
    for (const auto& [states, pauseMs] : {std::pair{2, 15000}, std::pair{100, 400000}}) {
        auto recording = std::make_unique<MediaServer::Recording>();
        for (qint64 timeUs = 0; timeUs < states; ++timeUs)
            recording->notifications.push_back({timeUs, spool.store(statusOf(1)), true});
        MediaServer::Replay replay(std::move(recording), spool, MediaServer::Replay::Unknown::Silence, Speed);
        int waitMs = 0;
        for (int sent = 0; sent < states;)
            sent += replay.nextNotification(waitMs).isEmpty() ? 0 : 1;
        EXPECT_TRUE(replay.nextNotification(waitMs).isEmpty());
        EXPECT_GT(waitMs, pauseMs);
    }
}

TEST(MediaserverReplay, AnnouncesItselfAsRecordedWithItsOwnPort)
{
    if (!hasNamespace())
        GTEST_SKIP() << "needs a network namespace";
    const cap::Files files;
    cap::Talk talk = show();
    talk.announce(MediaServer::peerLocation("Renamed", 4811));
    GroupListener group;
    const Program program({"--adapter", "lo", "--replay", pcapOf(files, talk), "--port", "5000"});
    EXPECT_EQ(group.nextFrom("127.0.0.2").data, MediaServer::peerLocation("Stage", 5000));
    EXPECT_EQ(group.nextFrom("127.0.0.2").data, MediaServer::peerLocation("Renamed", 5000));
    EXPECT_EQ(group.nextFrom("127.0.0.2").data, MediaServer::peerLocation("Stage", 5000));
}

TEST(MediaserverReplay, SendsTheLayerStatesInTheirOrderAgainAndAgain)
{
    const cap::Files files;
    cap::Talk talk = show();
    const QByteArray update = MediaServer::libraryUpdated(2, {1, 0x0101, 1, {}, {}});
    for (quint32 position = 1; position <= 3; ++position)
        talk.wait(20).fromServer(statusOf(position));
    talk.fromServer(update);
    Replayed replayed(pcapOf(files, talk), {"--speed", "10"});
    replayed.expectAnswer(greetingOf(), informationOf());
    for (quint32 position = 1; position <= 3; ++position)
        EXPECT_EQ(replayed.console->nextMessage(), statusOf(position));
    EXPECT_EQ(replayed.console->nextMessage(), update);
    // The content has changed once only.
    for (int round = 0; round < 2; ++round) {
        for (quint32 position = 1; position <= 3; ++position)
            EXPECT_EQ(replayed.console->nextMessage(), statusOf(position));
    }
}

TEST(MediaserverReplay, UsesADamagedCaptureAsFarAsItIsWhole)
{
    const cap::Files files;
    // Joined in the middle, with the answer to a question that nobody has heard, and with a hole.
    cap::Talk talk;
    talk.announce(Announced).toServer(greetingOf()).fromServer(informationOf());
    talk.toServer(askLists()).fromServer(pictureOf(5)).fromServer(listOf("First"));
    talk.toServer(askPictures("\1")).lose(100).fromServer(pictureOf(1));
    talk.toServer(askPictures("\2")).fromServer(pictureOf(2));
    const QByteArray whole = cap::pcap(cap::Ethernet, talk.frames);
    const QString file = files.write("cut.pcap", whole.left(whole.size() - 10));
    Replayed replayed(file);
    replayed.expectAnswer(greetingOf(), informationOf());
    replayed.expectAnswer(askLists(), listOf("First"));
    replayed.expectAnswer(askPictures("\1"), pictureOf(1));
    const QString said = replayed.program.output();
    EXPECT_TRUE(said.contains("cut.pcap' is damaged after ")) << said.toStdString();
    EXPECT_TRUE(
        said.contains("missing: 1 gap of 100 bytes; 1 beginning of a connection; 1 question whose answer is "
                      "there, which is left out\n"))
        << said.toStdString();
}

TEST(MediaserverReplay, ChoosesAmongServers)
{
    const cap::Files files;
    cap::Talk talk = show();
    const cap::Address other{0x0200000b, 4812};
    talk.add(cap::udp({other.ip, 60000}, {0xe00000b4, 4809}, MediaServer::peerLocation("Stage left", 4812)));
    talk.add(cap::tcp(other, cap::Talk::Console, 500, 0, cap::Ack, informationOf()));
    const QString file = pcapOf(files, talk);
    expectReplayRefused({"--replay", file},
                        QString("'%1' contains 2 servers; --server chooses one: 2.0.0.10:4811 \"Stage\", "
                                "2.0.0.11:4812 \"Stage left\"")
                            .arg(file));
    expectReplayRefused({"--replay", file, "--server", "stage"},
                        QString("'%1' contains 2 servers that match 'stage'; --server chooses one: 2.0.0.10:4811 "
                                "\"Stage\", 2.0.0.11:4812 \"Stage left\"")
                            .arg(file));
    expectReplayRefused({"--replay", file, "--server", "none"},
                        QString("'%1' contains no server 'none'; it contains: 2.0.0.10:4811 \"Stage\", 2.0.0.11:4812 "
                                "\"Stage left\"")
                            .arg(file));
    Program program({"--adapter", "lo", "--replay", file, "--server", "left"});
    EXPECT_TRUE(program.waitForLine("listens on").contains("Stage left  listens on 127.0.0.2:4812, "))
        << program.output().toStdString();
}

TEST(MediaserverReplay, NamesServersThatWereOnlyAnnounced)
{
    const cap::Files files;
    cap::Talk talk;
    talk.announce(Announced);
    const QString file = pcapOf(files, talk);
    expectReplayRefused({"--replay", file, "--server", "none"},
                        QString("'%1' contains no server 'none'; it contains: 2.0.0.10:4811 \"Stage\"").arg(file));
}

TEST(MediaserverReplay, DoesNotTakeAServerWithoutANameForTheOneThatIsMeant)
{
    const cap::Files files;
    cap::Talk talk = show();
    talk.add(cap::tcp({0x0200000b, 4812}, cap::Talk::Console, 500, 0, cap::Ack, informationOf()));
    const QString file = pcapOf(files, talk);
    expectReplayRefused(
        {"--replay", file},
        QString("'%1' contains 2 servers; --server chooses one: 2.0.0.10:4811 \"Stage\", 2.0.0.11:4812").arg(file));
    Program program({"--adapter", "lo", "--replay", file, "--server", "2.0.0.11"});
    EXPECT_TRUE(program.waitForLine("listens on").contains("2.0.0.11:4812  listens on 127.0.0.2:4812, "))
        << program.output().toStdString();
}

TEST(MediaserverReplay, AnswersARequestForThousandsOfNumbersInLittleMemory)
{
    const cap::Files files;
    std::vector<quint16> fixtures;
    for (quint16 id = 0; id < 8000; ++id)
        fixtures.push_back(id);
    cap::Talk talk = show();
    talk.toServer(askPatch(fixtures)).fromServer(fixtureOf(3));
    Replayed replayed(pcapOf(files, talk));
    replayed.expectAnswer(askPatch(fixtures) + greetingOf(), fixtureOf(1));
    replayed.expectLittleMemory();
}

TEST(MediaserverReplay, HoldsNoPicturesInMemory)
{
    const cap::Files files;
    QString file;
    {
        cap::Talk talk = show();
        for (int i = 0; i < 1500; ++i) {
            const auto number = static_cast<quint8>(i % 250);
            QByteArray picture = MediaServer::elementThumbnail(
                Reply{2, 0}, 1, 0x0101, number, {"JPEG", 64, 40, QByteArray(64000, static_cast<char>(i / 250))});
            talk.toServer(askPictures(QByteArray(1, static_cast<char>(number)))).fromServer(picture).acknowledge();
        }
        file = pcapOf(files, talk);
    }
    ASSERT_GT(QFileInfo(file).size(), 95000000);
    Replayed replayed(file);
    replayed.console->send(askPictures("\1"));
    EXPECT_EQ(replayed.console->nextMessage(), pictureOf(1));
    replayed.expectLittleMemory();
    Child terminal(
        "script",
        {"-qec", QString("exec " MEDIASERVER_PROGRAM " --adapter lo --address 127.0.0.3 --seconds 1 --replay ") + file,
         "/dev/null"});
    EXPECT_EQ(terminal.waitForEnd(), 0);
    EXPECT_TRUE(terminal.output().contains("\rreading " + file + ": ")) << terminal.output().left(1000).toStdString();
}

TEST(MediaserverReplay, RefusesWhatItCannotPlay)
{
    const cap::Files files;
    const QString nothing = files.write("nothing.pcap", cap::pcap(cap::Ethernet, {}));
    expectReplayRefused({"--replay", "/nowhere.pcap"}, "'/nowhere.pcap' cannot be opened: No such file or directory");
    const Outcome text = runToEnd({"--replay", files.write("text.pcap", "no capture at all, but a text")});
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(text.errors.contains("text.pcap' is not a readable pcap or pcapng file: "))
        << text.errors.toStdString();
    EXPECT_EQ(text.errors.count('\n'), 1);
    expectReplayRefused(
        {"--replay", nothing},
        QString("'%1' contains no media server; 'citp-console capture --server NAME --walk' records one").arg(nothing));
    // Possible, if the recording has a patch.
    expectReplayRefused(
        {"--replay", nothing, "--fault", "long-name"},
        QString("'%1' contains no media server; 'citp-console capture --server NAME --walk' records one").arg(nothing));
    expectReplayRefused({"--replay", nothing, "--fault", "mute"},
                        "--fault mute cannot be combined with --replay; see --help", 2);
    expectReplayRefused({"--replay", nothing, "--fault", "own-version"},
                        "--fault own-version cannot be combined with --replay; see --help", 2);
    expectReplayRefused({"--replay", nothing, "--media", "/tmp"},
                        "--media cannot be combined with --replay; see --help", 2);
    expectReplayRefused({"--speed", "2"}, "--speed requires --replay; see --help", 2);
    expectReplayRefused({"--replay", nothing, "--speed", "0"},
                        "--speed: '0' is not a number from 0.01 to 100; see --help", 2);
    expectReplayRefused({"--replay", nothing, "--unknown", "loud"},
                        "--unknown: 'loud' is not one of silence, empty; see --help", 2);
    Child full("env", {"TMPDIR=/proc", MEDIASERVER_PROGRAM, "--replay", nothing});
    EXPECT_EQ(full.waitForEnd(), 1);
    EXPECT_EQ(full.errors().toStdString(),
              "citp-mediaserver: cannot keep messages in /proc: No such file or directory; set TMPDIR to a folder "
              "with room for them\n");
}

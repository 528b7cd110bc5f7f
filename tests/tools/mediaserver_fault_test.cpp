// The misbehaviour that can be asked for: each fault alone, some together, and their repetition by seed.
// SPDX-License-Identifier: Apache-2.0
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "mediaserver_fixture.h"
#include "network.h"

namespace {
// What a server with these faults sends until it has answered all requests and then the greeting.
QByteArray everythingSent(const QString& faults, const QStringList& arguments)
{
    FaultyPair pair(faults, arguments);
    QByteArray requests;
    for (int i = 0; i < 20; ++i)
        requests += hex(AskLibraries) + hex(AskThumbnail);
    pair.console->send(requests + hex(Greeting));
    QByteArray all;
    while (!all.contains("SInf") && pair.console->socket().waitForReadyRead(TestTimeout))
        all += pair.console->socket().readAll();
    return all;
}
} // namespace

TEST(MediaserverFault, NoFaultGivesTheSizesThatTheOthersAreHeldAgainst)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex(AskLibraries) + hex(AskThumbnail));
    EXPECT_EQ(console.nextMessage().size(), LibrariesSize);
    EXPECT_EQ(console.nextMessage().size(), ThumbnailSize);
}

TEST(MediaserverFault, DelayHoldsAnswersBackAndSendsThemAll)
{
    FaultyPair pair("delay", {"--fault-delay", "3000"});
    pair.console->send(hex(AskLibraries) + hex(AskThumbnail));
    pair.program.waitForLine("fault: delay");
    // The request is known to have come; its answer has not.
    EXPECT_FALSE(pair.console->socket().waitForReadyRead(50));
    EXPECT_EQ(pair.console->nextMessage().size(), LibrariesSize);
    EXPECT_EQ(pair.console->nextMessage().size(), ThumbnailSize);
}

TEST(MediaserverFault, SilenceAnswersNoRequestButTheGreeting)
{
    FaultyPair pair("silence");
    pair.console->send(hex(AskLibraries) + hex(AskThumbnail) + hex(Greeting));
    EXPECT_EQ(pair.console->nextMessage().mid(22, 4).toStdString(), "SInf");
    pair.program.waitForLine("fault: silence");
    pair.program.waitForLine("fault: silence");
}

TEST(MediaserverFault, SplitSendsSingleBytesThatMakeWholeMessages)
{
    // Bytes that wait for an acknowledgement are put together, and usually that comes only when others are read.
    if (hasNamespace())
        ip("route replace table local local 127.0.0.0/8 dev lo proto kernel scope host src 127.0.0.1 quickack 1");
    FaultyPair pair("split");
    pair.console->send(hex(AskThumbnail) + hex(AskThumbnails));
    for (int i = 0; i < 11; ++i)
        EXPECT_EQ(pair.console->nextMessage().size(), ThumbnailSize);
    pair.program.waitForLine("fault: split");
    if (!hasNamespace())
        return;
    // Eleven messages that were written whole would be eleven segments.
    tcp_info info{};
    socklen_t length = sizeof info;
    ASSERT_EQ(
        getsockopt(static_cast<int>(pair.console->socket().socketDescriptor()), IPPROTO_TCP, TCP_INFO, &info, &length),
        0);
    EXPECT_GT(info.tcpi_data_segs_in, 200U);
}

TEST(MediaserverFault, MergeSendsSeveralAnswersTogether)
{
    FaultyPair pair("merge");
    pair.console->send(hex(AskThumbnails));
    ASSERT_TRUE(pair.console->socket().waitForReadyRead(TestTimeout));
    EXPECT_GE(pair.console->socket().bytesAvailable(), 4 * ThumbnailSize);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(pair.console->nextMessage().size(), ThumbnailSize);
}

TEST(MediaserverFault, TruncateShortensBodiesAndKeepsTheFraming)
{
    FaultyPair pair("truncate");
    for (int i = 0; i < 20; ++i) {
        pair.console->send(hex(AskLibraries));
        const QByteArray answer = pair.console->nextMessage();
        EXPECT_EQ(answer.mid(22, 4).toStdString(), "ELIn");
        EXPECT_GE(answer.size(), 26);
        EXPECT_LT(answer.size(), LibrariesSize);
    }
}

TEST(MediaserverFault, OversizeAnnouncesMoreOfAThumbnailThanFollows)
{
    FaultyPair pair("oversize");
    pair.console->send(hex(AskThumbnail) + hex(AskLibraries));
    const QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(answer.size(), ThumbnailSize);
    EXPECT_EQ(answer.mid(37, 2), hex("FFFF"));
    EXPECT_EQ(pair.console->nextMessage().size(), LibrariesSize);
}

TEST(MediaserverFault, VersionIsOneThatDoesNotExist)
{
    FaultyPair pair("version");
    pair.console->send(hex(AskThumbnail));
    const QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(int(answer.at(20)), 1);
    EXPECT_GE(int(answer.at(21)), 3);
    EXPECT_EQ(answer.size(), ThumbnailSize);
}

TEST(MediaserverFault, GarbageCanBePassedOverByItsLengthField)
{
    FaultyPair pair("garbage");
    pair.console->send(hex(AskThumbnail) + hex(AskLibraries));
    for (const int size : {ThumbnailSize, LibrariesSize}) {
        const QByteArray garbage = pair.console->nextMessage();
        EXPECT_GE(garbage.size(), 20);
        EXPECT_NE(garbage.left(4).toStdString(), "CITP");
        EXPECT_EQ(pair.console->nextMessage().size(), size);
    }
}

TEST(MediaserverFault, NoiseComesBeforeTheAnswer)
{
    FaultyPair pair("noise");
    pair.console->send(hex(AskThumbnail));
    QByteArray received;
    while (!received.contains("EThn") && pair.console->socket().waitForReadyRead(TestTimeout))
        received += pair.console->socket().readAll();
    const auto begin = received.indexOf("CITP");
    EXPECT_GE(begin, 20);
    EXPECT_LE(begin, 200);
    EXPECT_EQ(received.size() - begin, ThumbnailSize);
}

TEST(MediaserverFault, ResetEndsTheConnectionInMidMessageAndTheServerLivesOn)
{
    FaultyPair pair("reset");
    for (int i = 0; i < 3; ++i) {
        Console console("127.0.0.2", 4811);
        console.send(hex(AskThumbnail));
        const QByteArray part = console.nextBytes(ThumbnailSize);
        EXPECT_GE(part.size(), 1);
        EXPECT_LT(part.size(), ThumbnailSize);
        EXPECT_TRUE(console.waitForEnd());
    }
}

TEST(MediaserverFault, StormSurroundsTheOwnAnnouncementWithOthers)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--fault", "storm", "--interval", "60000", "--name", "Eye"});
    const QByteArray own = group.next().data;
    EXPECT_TRUE(own.contains("Eye"));
    int same = 0;
    int foreign = 0;
    int cut = 0;
    for (int i = 0; i < 150; ++i) {
        const QByteArray data = group.next().data;
        same += data == own;
        foreign += data.contains("Storm ");
        cut += data.size() < own.size();
        // No announcement sends a console to a port that is not the server's own.
        if (data.size() >= 26) {
            EXPECT_TRUE(data.mid(24, 2) == hex("CB12") || data.mid(24, 2) == hex("0000"));
        }
    }
    EXPECT_GT(same, 10);
    EXPECT_GT(foreign, 10);
    EXPECT_GT(cut, 10);
}

TEST(MediaserverFault, RefuseAnnouncesAClosedPort)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--fault", "refuse", "--interval", "50"});
    program.waitForLine("fault: refuse");
    EXPECT_TRUE(group.nextFrom("127.0.0.2").data.contains("MediaServer"));
    QTcpSocket socket;
    socket.connectToHost("127.0.0.2", 4811);
    EXPECT_FALSE(socket.waitForConnected(TestTimeout));
    EXPECT_EQ(socket.error(), QAbstractSocket::ConnectionRefusedError);
}

TEST(MediaserverFault, MuteSendsNoSInfAndAnswersRequests)
{
    FaultyPair pair("mute");
    pair.console->send(hex(Greeting) + hex(AskLibraries));
    pair.program.waitForLine("fault: mute");
    EXPECT_EQ(pair.console->nextMessage().mid(22, 4).toStdString(), "ELIn");
}

TEST(MediaserverFault, OddSinfIsOfAVersionThatDoesNotExist)
{
    FaultyPair pair("odd-sinf");
    pair.console->send(hex(Greeting) + hex(AskLibraries));
    const QByteArray greeting = pair.console->nextMessage();
    EXPECT_EQ(greeting.mid(22, 4).toStdString(), "SInf");
    EXPECT_GE(int(greeting.at(21)), 3);
    EXPECT_EQ(int(pair.console->nextMessage().at(21)), 0);
}

TEST(MediaserverFault, SpoilChangesThePictureAlone)
{
    Program healthy({"--adapter", "lo", "--address", "127.0.0.3"});
    healthy.waitForLine("listens on");
    Console console("127.0.0.3", 4811);
    console.send(hex(AskThumbnail));
    const QByteArray whole = console.nextMessage();
    FaultyPair pair("spoil");
    pair.console->send(hex(AskThumbnail) + hex(AskLibraries));
    const QByteArray spoiled = pair.console->nextMessage();
    EXPECT_EQ(spoiled.size(), ThumbnailSize);
    EXPECT_EQ(spoiled.left(39).toHex().toStdString(), whole.left(39).toHex().toStdString());
    EXPECT_NE(spoiled.mid(39).toHex().toStdString(), whole.mid(39).toHex().toStdString());
    EXPECT_EQ(pair.console->nextMessage().size(), LibrariesSize);
}

TEST(MediaserverFault, FaultsComeTogether)
{
    FaultyPair pair("truncate,garbage", {"--fault", "version"});
    pair.console->send(hex(AskLibraries));
    EXPECT_NE(pair.console->nextMessage().left(4).toStdString(), "CITP");
    const QByteArray answer = pair.console->nextMessage();
    EXPECT_EQ(answer.left(4).toStdString(), "CITP");
    EXPECT_GE(int(answer.at(21)), 3);
    EXPECT_LT(answer.size(), LibrariesSize);
    pair.program.waitForLine("fault: truncate, version, garbage");
}

TEST(MediaserverFault, ASplitAnswerIsResetToo)
{
    FaultyPair pair("reset,split");
    pair.console->send(hex(AskThumbnail));
    EXPECT_LT(pair.console->nextBytes(ThumbnailSize).size(), ThumbnailSize);
    EXPECT_TRUE(pair.console->waitForEnd());
}

TEST(MediaserverFault, TheSameSeedGivesTheSameFaultsAndAnotherOneOthers)
{
    const QString faults = "truncate,version,garbage,silence";
    const QByteArray first = everythingSent(faults, {"--fault-rate", "50", "--seed", "7"});
    EXPECT_TRUE(first.contains("SInf"));
    EXPECT_EQ(everythingSent(faults, {"--fault-rate", "50", "--seed", "7"}).toHex(), first.toHex());
    EXPECT_NE(everythingSent(faults, {"--fault-rate", "50", "--seed", "8"}).toHex(), first.toHex());
}

TEST(MediaserverFault, TheRateLeavesSomeAnswersAlone)
{
    FaultyPair pair("oversize", {"--fault-rate", "50"});
    int struck = 0;
    for (int i = 0; i < 100; ++i) {
        pair.console->send(hex(AskThumbnail));
        struck += pair.console->nextMessage().mid(37, 2) == hex("FFFF");
    }
    EXPECT_GT(struck, 25);
    EXPECT_LT(struck, 75);
}

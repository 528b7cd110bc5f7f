// The faults that strain a console's memory and time: sizes, counts, floods, and servers that fall silent.
// SPDX-License-Identifier: Apache-2.0
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <QTemporaryFile>

#include <set>

#include "mediaserver_fixture.h"
#include "wait.h"

namespace {
// In 1.2: GELI, all media of the first level; GEIn, all of library 1,1,0,0 of media, effects or generic elements.
const char* const AskLibraries12 = "43495450 01 00 0000 21000000 0100 0000 4D534558 01 02 47454C49 01 00000000 0000";
const char* const AskMedia12 = "43495450 01 00 0000 21000000 0100 0000 4D534558 01 02 4745496E 01 01010000 0000";
const char* const AskEffects12 = "43495450 01 00 0000 21000000 0100 0000 4D534558 01 02 4745496E 02 01010000 0000";
const char* const AskGeneric12 = "43495450 01 00 0000 21000000 0100 0000 4D534558 01 02 4745496E 03 01010000 0000";
const char* const AskPatch = "43495450 01 00 0000 1E000000 0100 0000 46505443 53507463 00000000 0000";

std::string codeOf(const QByteArray& message)
{
    return message.mid(22, 4).toStdString();
}

tcp_info tcpInfo(Console& console)
{
    tcp_info info{};
    socklen_t length = sizeof info;
    const auto descriptor = static_cast<int>(console.socket().socketDescriptor());
    EXPECT_EQ(getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length), 0);
    return info;
}
} // namespace

TEST(MediaserverHostile, SizeFieldsAreZeroOrEndless)
{
    const std::pair<const char*, const char*> sizes[] = {{"zero-size", "00000000"}, {"endless-size", "FFFFFFFF"}};
    for (const auto& [fault, size] : sizes) {
        FaultyPair pair(fault);
        pair.console->send(hex(AskLibraries));
        const QByteArray answer = pair.console->nextBytes(LibrariesSize);
        EXPECT_EQ(answer.left(4).toStdString(), "CITP");
        EXPECT_EQ(answer.mid(8, 4), hex(size)) << fault;
        EXPECT_EQ(codeOf(answer), "ELIn");
        EXPECT_EQ(answer.size(), LibrariesSize);
        pair.program.waitForLine(QString("fault: ") + fault);
    }
}

TEST(MediaserverHostile, DripSendsAWholeAnswerByteByByte)
{
    FaultyPair pair("drip", {"--fault-delay", "15", "--layer-rate", "100"});
    pair.console->send(hex(Greeting));
    EXPECT_EQ(codeOf(pair.console->nextMessage()), "SInf");
    pair.console->send(hex(AskThumbnail));
    EXPECT_EQ(pair.console->nextMessage("EThn").size(), ThumbnailSize);
    EXPECT_GT(tcpInfo(*pair.console).tcpi_data_segs_in, ThumbnailSize / 2U);
}

TEST(MediaserverHostile, StallLeavesAnAnswerIncompleteAndTheConnectionOpen)
{
    FaultyPair pair("stall", {"--layer-rate", "100"});
    pair.console->send(hex(Greeting));
    EXPECT_EQ(codeOf(pair.console->nextMessage()), "SInf");
    EXPECT_EQ(codeOf(pair.console->nextMessage()), "LSta");
    pair.console->send(hex(AskThumbnail));
    pair.program.waitForLine("fault: stall");
    QByteArray received;
    const auto receive = [&] {
        received += pair.console->socket().readAll();
        for (QByteArray message; received.contains("LSta"); received.remove(0, int(message.size())))
            message = received.left(int(static_cast<quint8>(received.at(8))));
        return !received.isEmpty();
    };
    EXPECT_TRUE(waitFor(receive));
    EXPECT_FALSE(pair.console->waitForEnd(500));
    receive();
    EXPECT_LT(received.size(), ThumbnailSize);
    // The server itself goes on.
    Console other("127.0.0.2", 4811);
    other.send(hex(Greeting));
    EXPECT_EQ(codeOf(other.nextMessage()), "SInf");
}

TEST(MediaserverHostile, ListsDeclareEntriesThatTheyDoNotContain)
{
    FaultyPair pair("lying-count", {"--effects", "1", "--generic", "1", "--layer-rate", "100"});
    const struct
    {
        const char* request;
        const char* code;
        int size;
        const char* count;
    } cases[] = {
        {AskLibraries, "ELIn", 28, "FF"},   {AskLibraries12, "ELIn", 29, "FFFF"}, {AskMedia12, "MEIn", 32, "FFFF"},
        {AskEffects12, "EEIn", 32, "FFFF"}, {AskGeneric12, "GLEI", 33, "FFFF"},   {Greeting, "LSta", 27, "FF"},
    };
    for (const auto& [request, code, size, count] : cases) {
        pair.console->send(hex(request));
        const QByteArray answer = pair.console->nextMessage(code);
        EXPECT_EQ(answer.size(), size) << code;
        EXPECT_TRUE(answer.endsWith(hex(count))) << code << ' ' << answer.toHex().toStdString();
    }
    pair.program.waitForLine("fault: lying-count");
}

TEST(MediaserverHostile, TheSInfDeclaresLayersThatItDoesNotContain)
{
    for (const char* const version : {"1.0", "1.2"}) {
        FaultyPair pair("lying-sinf", {"--layers", "3", "--msex", version});
        pair.console->send(hex(Greeting));
        const QByteArray information = pair.console->nextMessage();
        EXPECT_EQ(codeOf(information), "SInf");
        EXPECT_TRUE(information.endsWith('\xFF')) << information.toHex().toStdString();
        EXPECT_FALSE(information.contains("ArtNet"));
        pair.program.waitForLine("fault: lying-sinf");
    }
}

TEST(MediaserverHostile, ListsOfElementsAreOfTheWrongKind)
{
    FaultyPair pair("wrong-kind", {"--effects", "1"});
    pair.console->send(hex(AskMedia12));
    EXPECT_EQ(pair.console->nextMessage().mid(22).toHex().toStdString(), "4545496e010100000000"); // EEIn
    pair.console->send(hex(AskEffects12));
    EXPECT_EQ(pair.console->nextMessage().mid(22).toHex().toStdString(), "4d45496e010100000000"); // MEIn
    pair.console->send(hex(AskLibraries));
    EXPECT_EQ(pair.console->nextMessage().size(), LibrariesSize);
}

TEST(MediaserverHostile, AFixtureHasANameOfOneMebibyte)
{
    QTemporaryFile patch;
    ASSERT_TRUE(patch.open());
    patch.write(R"([{"id": 1, "universe": 0, "channel": 1, "channels": 2, "make": "Acme", "name": "Spot"}])");
    patch.flush();
    FaultyPair pair("long-name", {"--patch", patch.fileName()});
    pair.console->send(hex(AskPatch) + hex(AskLibraries));
    const QByteArray fixture = pair.console->nextMessage();
    EXPECT_EQ(fixture.mid(16, 8).toStdString(), "FPTCPtch");
    EXPECT_EQ(fixture.size(), 28 + 8 + 5 + 4 + 1024 * 1024 + 1);
    EXPECT_EQ(fixture.mid(36, 11), QByteArray("Acme\0SpotNN", 11));
    EXPECT_TRUE(fixture.endsWith(QByteArray("N\0", 2)));
    EXPECT_EQ(pair.console->nextMessage().size(), LibrariesSize);
}

TEST(MediaserverHostile, NothingIsReadAfterTheGreeting)
{
    FaultyPair pair("unread");
    pair.console->send(hex(Greeting) + hex(AskLibraries));
    EXPECT_EQ(codeOf(pair.console->nextMessage()), "SInf");
    pair.program.waitForLine("fault: unread");
    QTcpSocket& socket = pair.console->socket();
    socket.write(QByteArray(16 * 1024 * 1024, ' '));
    while (socket.waitForBytesWritten(500)) {
    }
    EXPECT_GT(socket.bytesToWrite(), 0);
    EXPECT_EQ(socket.bytesAvailable(), 0);
    socket.abort();
}

TEST(MediaserverHostile, FloodsComeUnrequestedAndLeaveOtherConsolesAlone)
{
    const struct
    {
        const char* faults;
        std::set<std::string> codes;
        int size; ///< of each message; 0: any
    } cases[] = {{"layer-flood", {"LSta"}, 0},
                 {"list-flood", {"ELIn", "MEIn"}, 0},
                 {"update-flood", {"ELUp"}, 26 + 1 + 4 + 1 + 64},
                 {"layer-flood,lying-count", {"LSta"}, 27}};
    for (const auto& [faults, expected, size] : cases) {
        SCOPED_TRACE(faults);
        FaultyPair pair(faults);
        pair.console->send(hex(Greeting));
        EXPECT_EQ(codeOf(pair.console->nextMessage()), "SInf");
        std::set<std::string> codes;
        std::set<QByteArray> contents;
        for (int i = 0; i < 2000; ++i) {
            const QByteArray message = pair.console->nextMessage();
            codes.insert(codeOf(message));
            contents.insert(message);
            if (size > 0) {
                ASSERT_EQ(message.size(), size);
            }
        }
        EXPECT_EQ(codes, expected);
        if (expected.count("ELUp") > 0) {
            EXPECT_EQ(contents.size(), 2000U);
        }
        Console other("127.0.0.2", 4811);
        other.send(hex(AskLibraries));
        EXPECT_EQ(codeOf(other.nextMessage()), "ELIn");
    }
}

TEST(MediaserverHostile, APulledCableIsSilentAndCanBePluggedInAgain)
{
    GroupListener group;
    FaultyPair pair("unplug",
                    {"--die-after", "3000", "--revive-after", "4000", "--interval", "20", "--layer-rate", "100"});
    pair.console->send(hex(Greeting));
    EXPECT_EQ(codeOf(pair.console->nextMessage()), "SInf");
    pair.program.waitForLine("fault: unplug");
    pair.console->send(hex(AskLibraries));
    // Not even the kernel answers.
    EXPECT_TRUE(waitFor([&] { return tcpInfo(*pair.console).tcpi_retransmits > 0; }));
    QTcpSocket early;
    early.connectToHost("127.0.0.2", 4811);
    EXPECT_FALSE(early.waitForConnected(200));
    pair.console->socket().readAll();
    group.drain();
    EXPECT_FALSE(pair.console->socket().waitForReadyRead(100));
    EXPECT_TRUE(group.isEmpty());
    pair.program.waitForLine("listens on");
    EXPECT_FALSE(group.nextFrom("127.0.0.2").data.isEmpty());
    EXPECT_EQ(pair.console->nextMessage("ELIn").size(), LibrariesSize);
    Console late("127.0.0.2", 4811);
    late.send(hex(AskLibraries));
    EXPECT_EQ(codeOf(late.nextMessage()), "ELIn");
}

TEST(MediaserverHostile, ForgesAnnouncementsOfManyPortsOrManyAddresses)
{
    GroupListener group;
    {
        Program program({"--adapter", "lo", "--fault", "forge", "--forged", "40", "--interval", "100"});
        std::set<QByteArray> ports;
        while (ports.size() < 41) {
            const GroupListener::Datagram datagram = group.next();
            ASSERT_EQ(datagram.sender, QHostAddress("127.0.0.2"));
            ports.insert(datagram.data.mid(24, 2));
            if (datagram.data.mid(24, 2) != hex("CB12")) {
                EXPECT_TRUE(datagram.data.contains("Forged "));
            }
        }
        EXPECT_EQ(ports.count(hex("F312")), 1U); // 4811 + 40
    }
    group.drain();
    Program program({"--adapter", "lo", "--fault", "forge", "--forged", "300", "--forged-from", "127.9.0.250",
                     "--interval", "100"});
    std::set<quint32> senders;
    while (senders.size() < 301) {
        const GroupListener::Datagram datagram = group.next();
        ASSERT_EQ(datagram.data.mid(24, 2), hex("CB12"));
        ASSERT_NE(datagram.sender, QHostAddress("127.0.0.1"));
        senders.insert(datagram.sender.toIPv4Address());
    }
    EXPECT_EQ(*senders.begin(), QHostAddress("127.0.0.2").toIPv4Address());
    EXPECT_EQ(*senders.rbegin(), QHostAddress("127.9.0.250").toIPv4Address() + 299);
}

TEST(MediaserverHostile, ForgingLeavesTimeToEnd)
{
    Program program({"--adapter", "lo", "--count", "200", "--fault", "forge", "--forged", "60000", "--forged-from",
                     "127.30.0.0", "--interval", "10"});
    program.waitForLine("Server 200  listens on");
}

// Announcements, the exchange of greetings, and the vanishing and coming back of simulated servers, byte for byte.
// SPDX-License-Identifier: Apache-2.0
#include <QNetworkInterface>

#include <utility>

#include "mediaserver_fixture.h"
#include "network.h"

namespace {
// PNam, CInf and SPtc as a console sends them when its connection opens.
const char* const PeerName =
    "43495450 01 00 0000 1D000000 0100 0000 50494E46" // header of 29 bytes, PINF
    "504E616D 5461726E00";                            // PNam "Tarn"
const char* const ClientInfo =
    "43495450 01 00 0700 21000000 0100 0000 4D534558" // header of 33 bytes, request 7, MSEX
    "01 02 43496E66 03 0001 0101 0201";               // 1.2 CInf: 1.0, 1.1, 1.2
const char* const SendPatch =
    "43495450 01 00 0000 1E000000 0100 0000 46505443" // header of 30 bytes, FPTC
    "53507463 00000000 0000";                         // SPtc, all fixtures
} // namespace

TEST(MediaserverGreeting, AnnouncesItselfOnTheGroup)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--name", "A", "--interval", "50"});
    const QByteArray expected =
        hex("43495450 01 00 0000 30000000 0100 0000 50494E46" // header of 48 bytes, PINF
            "504C6F63 CB12"                                   // PLoc, port 4811
            "4D6564696153657276657200"                        // "MediaServer"
            "4100 52756E6E696E6700");                         // "A", "Running"
    for (int i = 0; i < 3; ++i) {
        const GroupListener::Datagram datagram = group.next();
        EXPECT_EQ(datagram.data.toHex().toStdString(), expected.toHex().toStdString());
        EXPECT_EQ(datagram.sender.toString().toStdString(), "127.0.0.2");
    }
}

TEST(MediaserverGreeting, AnnouncesItselfOnEitherGroupOnBothOrNotAtAll)
{
    GroupListener oldGroup("127.0.0.1", "224.0.0.180");
    GroupListener newGroup("127.0.0.1", "239.224.0.180");
    Program none({"--adapter", "lo", "--address", "127.0.0.6", "--interval", "20", "--group", "none"});
    none.waitForLine("listens on 127.0.0.6:4811, not announced, MSEX 1.2");
    Program onNew({"--adapter", "lo", "--address", "127.0.0.5", "--interval", "20", "--group", "new"});
    onNew.waitForLine("listens on 127.0.0.5:4811, announced on lo to 239.224.0.180 every 20 ms");
    Program onOld({"--adapter", "lo", "--address", "127.0.0.4", "--interval", "20", "--group", "old"});
    onOld.waitForLine("listens on 127.0.0.4:4811, announced on lo every 20 ms");
    EXPECT_FALSE(newGroup.nextFrom("127.0.0.5").data.isEmpty());
    EXPECT_FALSE(oldGroup.nextFrom("127.0.0.4").data.isEmpty());
    Program both({"--adapter", "lo", "--address", "127.0.0.3", "--interval", "20", "--group", "both"});
    both.waitForLine("announced on lo to 224.0.0.180 and 239.224.0.180 every 20 ms");
    const QByteArray announced = oldGroup.nextFrom("127.0.0.3").data;
    EXPECT_TRUE(announced.contains("MediaServer"));
    EXPECT_EQ(newGroup.nextFrom("127.0.0.3").data, announced);
    for (int i = 0; i < 40; ++i) {
        const QString oldSender = oldGroup.next().sender.toString();
        EXPECT_TRUE(oldSender == "127.0.0.3" || oldSender == "127.0.0.4") << oldSender.toStdString();
        const QString newSender = newGroup.next().sender.toString();
        EXPECT_TRUE(newSender == "127.0.0.3" || newSender == "127.0.0.5") << newSender.toStdString();
    }
    Console console("127.0.0.6", 4811);
    console.send(hex(ClientInfo));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
}

TEST(MediaserverGreeting, NeedsMulticastForAnnouncementsOnly)
{
    if (!hasNamespace())
        GTEST_SKIP() << "adapters are made in a namespace only";
    ip("link add mute0 type veth peer name mute1");
    ip("link set mute0 multicast off");
    ip("addr add 10.2.0.1/24 dev mute0");
    ip("link set mute1 up");
    ip("link set mute0 up");
    // The carrier comes a moment later.
    EXPECT_TRUE(waitFor([] {
        const auto flags = QNetworkInterface::interfaceFromName("mute0").flags();
        return flags.testFlag(QNetworkInterface::IsUp) && flags.testFlag(QNetworkInterface::IsRunning);
    }));
    const Outcome refusal = runToEnd({"--adapter", "mute0"});
    EXPECT_EQ(refusal.status, 1);
    EXPECT_EQ(refusal.errors.toStdString(),
              "citp-mediaserver: the adapter mute0 does not support multicast: choose another, or --group none\n");
    Program program({"--adapter", "mute0", "--group", "none"});
    program.waitForLine("listens on 10.2.0.1:4811, not announced");
    Console console("10.2.0.1", 4811);
    console.send(hex(ClientInfo));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
    ip("link del mute0");
}

TEST(MediaserverGreeting, AnnouncesANameThatLatin1LacksWithQuestionMarks)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--name", QString::fromUtf8("\u00e9\u4e16")});
    EXPECT_EQ(group.next().data.mid(38).toHex().toStdString(), hex("E93F00 52756E6E696E6700").toHex().toStdString());
}

TEST(MediaserverGreeting, GivesEachServerAnAddressAndAPort)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--count", "3", "--name", "S", "--address", "127.0.1.255", "--port", "5000"});
    const char* const addresses[] = {"127.0.1.255", "127.0.2.0", "127.0.2.1"};
    for (int i = 0; i < 3; ++i) {
        const QByteArray announced = group.nextFrom(addresses[i]).data;
        EXPECT_EQ(announced.mid(24, 2).toHex().toStdString(), QByteArray::number(0x8813 + 0x100 * i, 16).toStdString());
        EXPECT_EQ(announced.mid(38, 4).toStdString(), QString("S %1").arg(i + 1).append(QChar(0)).toStdString());
        Console console(addresses[i], static_cast<quint16>(5000 + i));
        program.waitForLine(QString("S %1  127.0.0.1:%2 has connected").arg(i + 1).arg(console.socket().localPort()));
    }
}

TEST(MediaserverGreeting, UsesTheAddressesOfAnAdapterInTurn)
{
    if (!hasNamespace())
        GTEST_SKIP() << "adapters are made in a namespace only";
    ip("link add show0 type veth peer name show1");
    ip("addr add 10.1.0.1/24 dev show0");
    ip("addr add 10.1.0.2/24 dev show0");
    ip("link set show1 up");
    ip("link set show0 up");
    GroupListener group("10.1.0.1");
    Program program({"--adapter", "show0", "--count", "3", "--address", "10.1.0.2", "--interval", "100"});
    const std::pair<const char*, const char*> places[] = {
        {"10.1.0.2", "cb12"}, {"10.1.0.1", "cc12"}, {"10.1.0.2", "cd12"}};
    for (const auto& [address, port] : places) {
        const GroupListener::Datagram datagram = group.next();
        EXPECT_EQ(datagram.sender.toString().toStdString(), address);
        EXPECT_EQ(datagram.data.mid(24, 2).toHex().toStdString(), port);
        program.waitForLine(QString("listens on %1:").arg(address));
    }
    // Without a word about the adapter, the one in 10.0.0.0/8 goes before loopback.
    Program chooser({"--port", "6000", "--interval", "60000"});
    chooser.waitForLine("listens on 10.1.0.1:6000, announced on show0");
    EXPECT_EQ(runToEnd({"--adapter", "show0", "--address", "10.1.0.3"}).status, 1);
    ip("link set show0 down");
    program.waitForLine("cannot be announced");
    ip("link set show0 up");
    program.waitForLine("is announced again");
    ip("link del show0");
}

TEST(MediaserverGreeting, IntroducesItselfInMsex10)
{
    Program program({"--adapter", "lo", "--msex", "1.0", "--product", "Hi", "--product-version", "3.4.5"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex(ClientInfo));
    const QByteArray expected =
        hex("43495450 01 00 0700 3E000000 0100 0000 4D534558" // header of 62 bytes, answers request 7, MSEX
            "01 00 53496E66"                                  // 1.0 SInf
            "4800 6900 0000 03 04"                            // "Hi" 3.4
            "02 4172744E65742F302F302F3100"                   // two layers: "ArtNet/0/0/1"
            "4172744E65742F302F302F323100");                  // "ArtNet/0/0/21"
    EXPECT_EQ(console.nextMessage().toHex().toStdString(), expected.toHex().toStdString());
}

TEST(MediaserverGreeting, IntroducesItselfInMsex11)
{
    Program program({"--adapter", "lo", "--msex", "1.1", "--product", QString::fromUtf8("\u4e16"), "--layers", "0"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex(ClientInfo));
    const QByteArray message = console.nextMessage();
    EXPECT_EQ(message.left(30).toHex().toStdString(), hex("43495450 01 00 0700 21000000 0100 0000 4D534558"
                                                          "01 01 53496E66 164E 0000")
                                                          .toHex()
                                                          .toStdString());
    const QStringList version = QString(CITP_VERSION).split('.');
    ASSERT_EQ(message.size(), 33);
    EXPECT_EQ(int(message.at(30)), version.at(0).toInt());
    EXPECT_EQ(int(message.at(31)), version.at(1).toInt());
    EXPECT_EQ(int(message.at(32)), 0);
}

TEST(MediaserverGreeting, IntroducesItselfInMsex12)
{
    Program program({"--adapter", "lo", "--msex", "1.2", "--product", "Hi", "--product-version", "3.4.5", "--layers",
                     "1", "--uuid", "6ba7b810-9dad-11d1-80b4-00c04fd430c8"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex(ClientInfo));
    const QByteArray expected =
        hex("43495450 01 00 0700 6C000000 0100 0000 4D534558"  // header of 108 bytes, answers request 7, MSEX
            "01 02 53496E66"                                   // 1.2 SInf
            "36626137623831302D396461642D313164312D383062342D" // "6ba7b810-9dad-11d1-80b4-
            "303063303466643433306338"                         // 00c04fd430c8"
            "4800 6900 0000 03 04 05"                          // "Hi" 3.4.5
            "03 0001 0101 0201"                                // speaks 1.0, 1.1, 1.2
            "0200"                                             // library types: bit 1, media
            "03 52474238 4A504547 504E4720 00"                 // RGB8, JPEG, PNG; no stream formats
            "01 4172744E65742F302F302F3100");                  // one layer: "ArtNet/0/0/1"
    EXPECT_EQ(console.nextMessage().toHex().toStdString(), expected.toHex().toStdString());
}

TEST(MediaserverGreeting, DerivesAStableUuidFromTheName)
{
    const auto uuidOf = [](const QString& name) {
        Program program({"--adapter", "lo", "--name", name});
        program.waitForLine("listens on");
        Console console("127.0.0.2", 4811);
        console.send(hex(ClientInfo));
        return console.nextMessage().mid(26, 36);
    };
    const QByteArray first = uuidOf("One");
    EXPECT_EQ(first.count('-'), 4);
    EXPECT_EQ(uuidOf("One"), first);
    EXPECT_NE(uuidOf("Two"), first);
}

TEST(MediaserverGreeting, SaysNothingBeforeTheClientInformation)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex(PeerName) + hex(SendPatch));
    program.waitForLine("SPtc: asks for the whole patch");
    EXPECT_EQ(console.socket().bytesAvailable(), 0);
    console.send(hex(ClientInfo));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
}

TEST(MediaserverGreeting, ReportsTheGreetingItReceives)
{
    Program program({"--adapter", "lo", "--name", "Reporter"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    const QString peer = QString("  Reporter  127.0.0.1:%1 ").arg(console.socket().localPort());
    console.send(hex(PeerName) + hex(ClientInfo) + hex(SendPatch) +
                 hex("43495450 01 00 0000 22000000 0100 0000 46505443 53507463 00000000 0200 0100 0201"));
    program.waitForLine(peer + "has connected");
    program.waitForLine(peer + "PNam: its name is 'Tarn'");
    program.waitForLine(peer + "CInf: speaks MSEX 1.0, 1.1, 1.2");
    program.waitForLine(peer + "SPtc: asks for the whole patch");
    program.waitForLine(peer + "SPtc: asks for 2 fixtures");
    console.socket().disconnectFromHost();
    program.waitForLine(peer + "has disconnected");
}

TEST(MediaserverGreeting, ReadsAGreetingThatComesByteByByte)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.socket().setSocketOption(QAbstractSocket::LowDelayOption, 1);
    const QByteArray greeting = hex(PeerName) + hex(ClientInfo);
    for (const char byte : greeting)
        console.send(QByteArray(1, byte));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
}

TEST(MediaserverGreeting, PrintsAHostilePeerNameHarmlessly)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex("43495450 01 00 0000 1D000000 0100 0000 50494E46 504E616D 410A1B9B00")); // "A", LF, ESC, CSI
    program.waitForLine("PNam: its name is 'A\\u000a\\u001b\\u009b'");
}

TEST(MediaserverGreeting, ClosesAConnectionThatSendsGarbage)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    struct
    {
        const char* bytes;
        const char* reason;
    } const cases[] = {
        {"43495451 01 00 0000 1D000000 0100 0000 50494E46", "does not begin with CITP"},
        {"43495450 01 00 0000 13000000 0100 0000 50494E46", "declares 19 bytes"},
        {"43495450 01 00 0000 00000000 0100 0000 50494E46", "declares 0 bytes"},
        {"43495450 01 00 0000 FFFFFFFF 0100 0000 50494E46", "declares 4294967295 bytes"},
        {"43495450 01 00 0000 01001000 0100 0000 50494E46", "declares 1048577 bytes"},
    };
    for (const auto& [bytes, reason] : cases) {
        Console console("127.0.0.2", 4811);
        console.send(hex(bytes));
        program.waitForLine(reason);
        EXPECT_TRUE(console.waitForEnd()) << reason;
    }
}

TEST(MediaserverGreeting, IgnoresWhatItCannotAnswer)
{
    Program program({"--adapter", "lo"});
    program.waitForLine("listens on");
    Console console("127.0.0.2", 4811);
    console.send(hex("43495450 01 00 0000 1A000000 0100 0000 4D534558 01 02 58787878") +         // MSEX "Xxxx"
                 hex("43495450 01 00 0000 18000000 0100 0000 4D534558 01 02 4349") +             // MSEX code cut short
                 hex("43495450 01 00 0000 1D000000 0100 0000 4D534558 01 02 43496E66 03 0001") + // CInf cut short
                 hex("43495450 01 00 0000 18000000 0100 0000 584C4159 41424344"));               // unknown layer
    program.waitForLine("MSEX Xxxx: not answered");
    program.waitForLine("cut short at 24 bytes");
    program.waitForLine("MSEX CInf: cut short at 29 bytes");
    program.waitForLine("XLAY : not answered");
    console.send(hex(ClientInfo));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
}

TEST(MediaserverGreeting, OneOfTwoServersVanishesWithoutAWord)
{
    GroupListener group;
    Program program(
        {"--adapter", "lo", "--count", "2", "--interval", "20", "--die-after", "5000", "--die-server", "2"});
    program.waitForLine("listens on 127.0.0.3:4812");
    EXPECT_EQ(group.nextFrom("127.0.0.3").sender, QHostAddress("127.0.0.3"));
    Console survivor("127.0.0.2", 4811);
    Console victim("127.0.0.3", 4812);
    program.waitForLine("Server 2  vanishes");
    EXPECT_TRUE(victim.waitForEnd());
    EXPECT_EQ(victim.socket().error(), QAbstractSocket::RemoteHostClosedError);
    QTcpSocket late;
    late.connectToHost("127.0.0.3", 4812);
    EXPECT_FALSE(late.waitForConnected(TestTimeout));
    EXPECT_EQ(late.error(), QAbstractSocket::ConnectionRefusedError);
    group.drain();
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(group.next().sender.toString().toStdString(), "127.0.0.2");
    survivor.send(hex(ClientInfo));
    EXPECT_EQ(survivor.nextMessage().mid(22, 4).toStdString(), "SInf");
}

TEST(MediaserverGreeting, AServerThatVanishedComesBackWhereItWas)
{
    GroupListener group;
    Program program({"--adapter", "lo", "--interval", "20", "--die-after", "300", "--revive-after", "300"});
    program.waitForLine("listens on 127.0.0.2:4811");
    program.waitForLine("vanishes");
    group.drain();
    program.waitForLine("listens on 127.0.0.2:4811");
    EXPECT_EQ(group.nextFrom("127.0.0.2").data.mid(24, 2).toHex().toStdString(), "cb12");
    Console console("127.0.0.2", 4811);
    console.send(hex(ClientInfo));
    EXPECT_EQ(console.nextMessage().mid(22, 4).toStdString(), "SInf");
}

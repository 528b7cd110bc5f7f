// The parts of citp-console decode that need no file: packets, TCP streams, and the cutting of messages.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex.h>
#include <gtest/gtest.h>
#include <pcap/dlt.h>

#include <QJsonArray>
#include <QRegularExpression>

#include "capture_writer.h"
#include "decode/event.h"
#include "decode/message_fields.h"
#include "decode/message_text.h"
#include "decode/summary.h"
#include "golden.h"
#include "wire.h"

using namespace Console;
using Tools::Budget;
using Tools::Classifier;
using Tools::Decoder;
using Tools::DiscoveryPort;
using Tools::Endpoint;
using Tools::isKnownLinkType;
using Tools::MessageCutter;
using Tools::MessageHeader;
using Tools::Packet;
using Tools::readPacket;
using Tools::StreamItem;
using Tools::StreamSink;
using Tools::TcpStream;

namespace {
/// What came out of a stream: its bytes, "<3>" for a gap of three.
class Collected : public StreamSink
{
public:
    void bytes(const QByteArray& data, qint64 timeUs) override
    {
        text += QString::fromLatin1(data);
        lastUs = timeUs;
    }
    void gap(qint64 missing, qint64 timeUs) override
    {
        text += QString("<%1>").arg(missing);
        lastUs = timeUs;
    }

    QString text;
    qint64 lastUs = 0;
};

class TcpStreamTest : public ::testing::Test
{
protected:
    void add(quint32 sequence, const char* bytes, qint64 timeUs = 0)
    {
        const QByteArray data(bytes);
        m_stream.add(sequence, data, static_cast<int>(data.size()), timeUs);
    }
    std::string text() const { return m_collected.text.toStdString(); }

    Collected m_collected;
    Budget m_budget{1 << 20};
    TcpStream m_stream{m_collected, m_budget};
};

class MessageCutterTest : public ::testing::Test
{
protected:
    void SetUp() override { m_pnam = golden::load("pnam").bytes; }

    /// @return what came of it: "N" for the golden message, else the cut's text
    static QString word(const StreamItem& cut, const QByteArray& pnam)
    {
        return cut.kind != StreamItem::Kind::Message ? cut.text : cut.message == pnam ? QString("N") : QString("?");
    }
    std::unique_ptr<MessageCutter> make(bool startsAtMessage)
    {
        m_words.clear();
        return std::make_unique<MessageCutter>([this](const StreamItem& cut) { m_words << word(cut, m_pnam); },
                                               m_budget, startsAtMessage);
    }
    std::string words() const { return m_words.join("; ").toStdString(); }

    QByteArray m_pnam;
    Budget m_budget{64 << 20};
    QStringList m_words;
};

QByteArray withSize(QByteArray message, quint32 size)
{
    for (int i = 0; i < 4; ++i)
        message[8 + i] = static_cast<char>(size >> (8 * i));
    return message;
}
} // namespace

TEST_F(TcpStreamTest, HandsOnInOrderWhatComesInOrder)
{
    add(100, "abc");
    add(103, "def");
    EXPECT_EQ(text(), "abcdef");
}

TEST_F(TcpStreamTest, DropsWhatIsRepeatedWhollyOrInPart)
{
    add(100, "abc");
    add(100, "abc");
    add(101, "bcde");
    add(99, "x");
    EXPECT_EQ(text(), "abcde");
}

TEST_F(TcpStreamTest, PutsSegmentsBackInOrder)
{
    m_stream.start(100);
    add(106, "gh", 3);
    add(103, "def", 4);
    EXPECT_EQ(text(), "");
    add(100, "abc", 5);
    EXPECT_EQ(text(), "abcdefgh");
    EXPECT_EQ(m_collected.lastUs, 5);
    EXPECT_EQ(m_budget.left(), 1 << 20);
}

TEST_F(TcpStreamTest, LaysOverlappingSegmentsOverOneAnother)
{
    m_stream.start(100);
    add(104, "efg");
    add(102, "cdef");
    add(102, "cdefghi");
    add(100, "abc");
    EXPECT_EQ(text(), "abcdefghi");
}

TEST_F(TcpStreamTest, FollowsNumbersThatWrap)
{
    m_stream.start(0xfffffffe);
    add(2, "ef");
    add(0xfffffffe, "ab");
    add(0, "cd");
    EXPECT_EQ(text(), "abcdef");
}

TEST_F(TcpStreamTest, SaysWhatIsMissingOnceTheReceiverHasIt)
{
    add(100, "abc", 0);
    add(110, "klm", 10);
    m_stream.acknowledge(113, 20);
    EXPECT_EQ(text(), "abc");
    m_stream.acknowledge(113, 1000010);
    EXPECT_EQ(text(), "abc<7>klm");
    add(103, "defghij", 1000020);
    EXPECT_EQ(text(), "abc<7>klm");
}

TEST_F(TcpStreamTest, TellsWhenAStreamOfWhichNothingWasCapturedWasAcknowledged)
{
    m_stream.start(100);
    m_stream.acknowledge(200, 20);
    m_stream.finish();
    EXPECT_EQ(text(), "<100>");
    EXPECT_EQ(m_collected.lastUs, 20);
}

TEST_F(TcpStreamTest, WaitsLongerForWhatNobodyHasAcknowledged)
{
    add(100, "abc", 0);
    add(110, "klm", 10);
    add(113, "n", 29000000);
    EXPECT_EQ(text(), "abc");
    add(114, "o", 31000000);
    EXPECT_EQ(text(), "abc<7>klmno");
}

TEST_F(TcpStreamTest, SaysWhatIsMissingAtTheEnd)
{
    add(100, "abc");
    add(105, "fg");
    add(109, "jk");
    m_stream.acknowledge(121, 0);
    m_stream.finish();
    EXPECT_EQ(text(), "abc<2>fg<2>jk<10>");
}

TEST_F(TcpStreamTest, TakesTheEndsOwnNumberForNoByte)
{
    add(100, "abc");
    m_stream.acknowledge(104, 0);
    m_stream.finish();
    EXPECT_EQ(text(), "abc");
}

TEST_F(TcpStreamTest, SaysAtOnceWhatTheCaptureCutOff)
{
    m_stream.add(100, "abc", 10, 0);
    m_stream.add(110, "k", 1, 0);
    EXPECT_EQ(text(), "abc<7>k");
}

TEST_F(TcpStreamTest, GoesOnBehindAJumpOfTheNumbers)
{
    add(100, "abc");
    add(100 + (32 << 20), "x");
    add(103, "def");
    EXPECT_EQ(text(), "abc<33554429>x<-1>def");
}

TEST_F(TcpStreamTest, CountsNothingAsMissingTwiceAtAJump)
{
    add(100, "abc");
    add(105, "fg");
    add(107 + (32 << 20), "x");
    EXPECT_EQ(text(), "abc<2>fg<33554432>x");
}

TEST_F(TcpStreamTest, RepeatsNothingAtAJumpThatWhatItHeldBackReachesOver)
{
    constexpr int MaxJump = 16 << 20;
    add(100, "abc");
    add(103 + MaxJump, "klm");
    add(104 + MaxJump, "lmno");
    EXPECT_EQ(text(), "abc<16777216>klmno");
}

TEST_F(TcpStreamTest, HoldsBackNoMoreThanItMay)
{
    m_stream.start(0);
    const QByteArray segment(60000, 's');
    for (quint32 i = 0; i < 40; ++i)
        m_stream.add(1 + i * 60000, segment, 60000, 0);
    EXPECT_TRUE(m_collected.text.startsWith("<1>sss")) << text().substr(0, 20);
    m_stream.finish();
    EXPECT_EQ(m_collected.text.size(), 3 + 40 * 60000);
    EXPECT_EQ(m_budget.left(), 1 << 20);
}

TEST_F(TcpStreamTest, HoldsBackNoMoreSegmentsThanItMay)
{
    m_stream.start(0);
    for (quint32 i = 0; i <= TcpStream::MaxHeldSegments; ++i)
        add(10 + 2 * i, "s");
    EXPECT_TRUE(m_collected.text.startsWith("<10>s")) << text();
    EXPECT_LE((1 << 20) - m_budget.left(), 129 * TcpStream::MaxHeldSegments);
}

TEST(TcpStreams, ShareABudget)
{
    Budget budget(1000);
    Collected first;
    Collected second;
    TcpStream one(first, budget);
    TcpStream other(second, budget);
    one.start(0);
    other.start(0);
    one.add(1, QByteArray(800, 'a'), 800, 0);
    other.add(1, QByteArray(800, 'b'), 800, 0);
    EXPECT_EQ(first.text.toStdString(), "");
    EXPECT_EQ(second.text.size(), 3 + 800);
}

TEST_F(MessageCutterTest, CutsMessagesWhereverTheSegmentsEnd)
{
    const QByteArray stream = m_pnam + m_pnam + m_pnam;
    for (int split = 0; split <= stream.size(); ++split) {
        const auto cutter = make(true);
        cutter->bytes(stream.left(split), 0);
        cutter->bytes(stream.mid(split), 1);
        cutter->finish(true);
        EXPECT_EQ(words(), "N; N; N") << split;
    }
}

TEST_F(MessageCutterTest, FindsItsWayIntoAStreamThatHasBegun)
{
    const QByteArray stream = m_pnam.mid(7) + m_pnam + m_pnam;
    for (int split = 0; split <= stream.size(); ++split) {
        const auto cutter = make(false);
        cutter->bytes(stream.left(split), 0);
        cutter->bytes(stream.mid(split), 1);
        cutter->finish(true);
        EXPECT_EQ(words(),
                  QString("starts within a message: skipped %1 bytes; N; N").arg(m_pnam.size() - 7).toStdString());
    }
}

TEST_F(MessageCutterTest, SaysWhatBeginsNoMessage)
{
    const QByteArray stream = m_pnam + "CITX and more CITP" + m_pnam;
    for (int split = 0; split <= stream.size(); ++split) {
        const auto cutter = make(true);
        cutter->bytes(stream.left(split), 0);
        cutter->bytes(stream.mid(split), 1);
        cutter->finish(true);
        EXPECT_EQ(words(), "N; skipped 18 bytes that do not begin a message; N") << split;
    }
}

TEST_F(MessageCutterTest, StaysInStepAcrossAGapWithinAMessage)
{
    const QByteArray message = golden::load("sinf_1_2").bytes;
    const auto cutter = make(true);
    cutter->bytes(message.left(30), 0);
    cutter->gap(50, 0);
    cutter->bytes(message.mid(80, 10), 0);
    cutter->gap(1, 0);
    cutter->bytes(message.mid(91) + m_pnam, 0);
    EXPECT_EQ(words(),
              "50 bytes are missing from the capture; a message of 123 bytes, MSEX SInf, is lost with them; "
              "1 byte is missing from the capture; N");
}

TEST_F(MessageCutterTest, FindsTheNextMessageBehindAGap)
{
    const auto cutter = make(true);
    cutter->bytes(m_pnam + m_pnam.left(25), 0);
    cutter->gap(1000, 0);
    cutter->bytes("rest of something" + m_pnam, 0);
    EXPECT_EQ(words(), QString("N; 1000 bytes are missing from the capture; a message of %1 bytes, PINF PNam, is lost "
                               "with them; skipped 17 bytes up to the next message; N")
                           .arg(m_pnam.size())
                           .toStdString());
}

TEST_F(MessageCutterTest, PassesOverAMessageThatAnnouncesTooLittleOrTooMuch)
{
    for (const quint32 size : {0u, 19u, 0x7fffffffu, 0xffffffffu}) {
        const auto cutter = make(true);
        cutter->bytes(withSize(m_pnam, size) + m_pnam, 0);
        EXPECT_TRUE(
            QString::fromStdString(words()).startsWith(QString("a message of layer PINF declares %1 bytes").arg(size)))
            << words();
        EXPECT_TRUE(m_words.last() == "N") << words();
    }
}

TEST_F(MessageCutterTest, TellsAnEndWithinAMessage)
{
    const auto cutter = make(true);
    cutter->bytes(m_pnam + m_pnam.left(22), 0);
    cutter->finish(true);
    EXPECT_EQ(words(), QString("N; ends within a message, PINF: 22 of %1 bytes").arg(m_pnam.size()).toStdString());
}

TEST_F(MessageCutterTest, GivesUpWhatExceedsItsBudget)
{
    m_budget.take(m_budget.left() - 1000);
    const auto cutter = make(true);
    cutter->bytes(withSize(m_pnam, 5000) + QByteArray(900, 'x'), 0);
    cutter->bytes(QByteArray(900, 'x'), 0);
    EXPECT_TRUE(QString::fromStdString(words()).startsWith("too many bytes are buffered")) << words();
    EXPECT_EQ(m_budget.left(), 1000);
    cutter->bytes(m_pnam, 0);
    EXPECT_TRUE(m_words.last() == "N") << words();
}

TEST_F(MessageCutterTest, KeepsNoMemoryForWhatItHasHandedOn)
{
    constexpr int Size = 1 << 20;
    const QByteArray message = withSize(m_pnam + QByteArray(Size - m_pnam.size(), 'x'), Size);
    const auto cutter = make(true);
    cutter->bytes(message.left(Size - 1), 0);
    EXPECT_GE(cutter->capacity(), Size - 1);
    cutter->bytes(message.right(1), 0);
    EXPECT_EQ(words(), "?");
    EXPECT_EQ(cutter->capacity(), 0);

    cutter->bytes(message + m_pnam.left(25), 0);
    EXPECT_LE(cutter->capacity(), 4 * 25);
    cutter->bytes(m_pnam.mid(25), 0);
    EXPECT_EQ(words(), "?; ?; N");
}

TEST_F(MessageCutterTest, ShowsLayersAsTheyAre)
{
    QByteArray message = m_pnam.left(22);
    message.replace(16, 4, "%2%3");
    const auto cutter = make(true);
    cutter->bytes(message, 0);
    cutter->finish(true);
    EXPECT_EQ(words(), QString("ends within a message, %2%3: 22 of %1 bytes").arg(m_pnam.size()).toStdString());
}

TEST(Surveys, TakeTheAnnouncedEndForTheServerWhicheverItIs)
{
    const std::pair<quint32, quint32> addresses[] = {{1, 2}, {2, 1}};
    for (const auto& [consoleIp, serverIp] : addresses) {
        // PNam is said both ways, and of the two ports the console's is the likelier one for a server.
        const Endpoint console{consoleIp, 4000};
        const Endpoint server{serverIp, 50000};
        const QByteArray greeting = cap::tcp({console.address, console.port}, {server.address, server.port}, 1, 1,
                                             cap::Ack, golden::load("pnam").bytes);
        const QByteArray announcement =
            cap::udp({server.address, 60000}, {0xe00000b4, DiscoveryPort},
                     golden::load("ploc_mediaserver").bytes.replace(24, 2, QByteArray::fromHex("50c3")));
        const Packet said = readPacket(DLT_RAW, greeting, 0);
        const Classifier::Connection connection = Classifier::connectionOf(said);
        Classifier classifier;
        EXPECT_TRUE(classifier.learn(said));
        EXPECT_EQ(toText(classifier.serverOf(connection)).toStdString(), toText(console).toStdString());
        EXPECT_FALSE(classifier.isServerKnown(connection));
        EXPECT_TRUE(classifier.learn(readPacket(DLT_RAW, announcement, 1)));
        EXPECT_EQ(toText(classifier.serverOf(connection)).toStdString(), toText(server).toStdString());
        EXPECT_TRUE(classifier.isServerKnown(connection));
    }
}

TEST(Summaries, ShowProductsAsTheyAreNamed)
{
    Event event;
    event.layer = "MSEX";
    event.code = "SInf";
    event.message = golden::load("sinf_1_2").bytes;
    event.message.replace(QByteArray::fromHex("5700e90000d8"), QByteArray::fromHex("250032007800"));
    Summary summary;
    summary.add(event);
    EXPECT_EQ(summary.objects().at(0).value("product").toString().toStdString(), "%2x 2.10, MSEX 1.2");
}

TEST(Summaries, CountTheRestOfTooManyKindsAsOne)
{
    Summary summary;
    Event event;
    event.layer = "MSEX";
    event.message = golden::load("pnam").bytes;
    for (int i = 0; i < 200; ++i) {
        event.code = QString("%1").arg(i, 4);
        summary.add(event);
    }
    int others = 0;
    const QJsonArray messages = summary.objects().at(0).value("messages").toArray();
    for (const QJsonValue& value : messages) {
        const QJsonObject message = value.toObject();
        if (message.value("layer").toString() == "MSEX")
            continue;
        ++others;
        EXPECT_EQ(message.value("layer").toString().toStdString(), "other");
        EXPECT_EQ(message.value("code").toString().toStdString(), "");
        EXPECT_EQ(message.value("count").toInt(), 200 - (messages.size() - 1));
    }
    EXPECT_EQ(others, 1);
    EXPECT_EQ(summary.lines().filter(QRegularExpression("^other  +discovery ")).size(), 1);
}

TEST(Packets, AreReadBehindEveryLinkLayer)
{
    const std::pair<int, cap::LinkType> types[] = {
        {DLT_EN10MB, cap::Ethernet},         {DLT_RAW, cap::RawIp}, {DLT_LINUX_SLL, cap::LinuxCooked},
        {DLT_LINUX_SLL2, cap::LinuxCooked2}, {DLT_NULL, cap::Null}, {DLT_LOOP, cap::Loop}};
    for (const auto& [dlt, linkType] : types) {
        const QByteArray frame = cap::framed(linkType, cap::udp({1, 2}, {3, 4809}, "hello", 8));
        const Packet packet = readPacket(dlt, frame, 5);
        EXPECT_EQ(packet.kind, Packet::Kind::Udp) << dlt;
        EXPECT_EQ(packet.from.address, 1u);
        EXPECT_EQ(packet.from.port, 2);
        EXPECT_EQ(packet.to.address, 3u);
        EXPECT_EQ(packet.to.port, 4809);
        EXPECT_EQ(packet.data.toStdString(), "hello");
        EXPECT_EQ(packet.length, 5);
        EXPECT_EQ(packet.timeUs, 5);
        EXPECT_TRUE(isKnownLinkType(dlt));
    }
    EXPECT_FALSE(isKnownLinkType(DLT_PPP));
}

TEST(Packets, AreReadBehindVlanTags)
{
    for (int tags = 0; tags < 4; ++tags) {
        const QByteArray frame = cap::framed(cap::Ethernet, cap::tcp({1, 2}, {3, 4}, 5, 6, cap::Ack, "hello"), tags);
        const Packet packet = readPacket(DLT_EN10MB, frame, 0);
        EXPECT_EQ(packet.kind, Packet::Kind::Tcp) << tags;
        EXPECT_EQ(packet.data.toStdString(), "hello");
        EXPECT_EQ(packet.sequence, 5u);
        EXPECT_EQ(packet.acknowledged, 6u);
    }
}

TEST(Packets, KeepToTheFrameWhereverItIsCutOff)
{
    const QByteArray packets[] = {cap::udp({1, 2}, {3, 4}, "hello", 40),
                                  cap::tcp({1, 2}, {3, 4}, 5, 6, cap::Ack, "hello")};
    for (const QByteArray& whole : packets) {
        for (int length = 0; length < whole.size(); ++length) {
            // Without a byte behind it, for the address sanitizer to see one too many.
            const std::vector<char> exact(whole.begin(), whole.begin() + length);
            const Packet packet = readPacket(DLT_RAW, QByteArray::fromRawData(exact.data(), length), 0);
            const bool isRead = packet.kind == Packet::Kind::Udp || packet.kind == Packet::Kind::Tcp;
            EXPECT_TRUE(isRead || packet.kind == Packet::Kind::Damaged);
            EXPECT_LE(packet.data.size(), packet.length);
            EXPECT_EQ(packet.length, isRead ? 5 : 0);
        }
    }
}

TEST(Packets, TellFragmentsApart)
{
    const QByteArray first = cap::ipv4(17, 1, 3, QByteArray::fromHex("0002 12c9 0800 0000") + "beginning", 0, 0x2000);
    EXPECT_EQ(readPacket(DLT_RAW, first, 0).kind, Packet::Kind::Fragment);
    EXPECT_EQ(readPacket(DLT_RAW, first, 0).to.port, 4809);
    const QByteArray last = cap::ipv4(17, 1, 3, "CITP the end of it", 0, 1);
    EXPECT_EQ(readPacket(DLT_RAW, last, 0).kind, Packet::Kind::Fragment);
    EXPECT_EQ(readPacket(DLT_RAW, last, 0).to.port, 0);
}

TEST(MessageTexts, AreTheLibrarysOwn)
{
    for (const char* const name : {"ploc_mediaserver", "elin_1_0", "elin_1_1", "elin_1_2", "mein_1_2", "eein_1_1",
                                   "glei_1_2", "lsta_1_0", "lsta_1_2", "elup_1_2", "elth_1_1", "ethn_1_2", "ptch"}) {
        const golden::Message message = golden::load(name);
        const MessageText text = describeMessage(message.bytes);
        // Without the blank and the end of line that some of them end with.
        const QString expected = QString::fromStdString(message.text.substr(1, message.text.size() - 2))
                                     .remove(QRegularExpression("( |\\\\u000a)+$"));
        EXPECT_EQ(golden::quoted(text.text), '"' + expected.toStdString() + '"') << name;
        EXPECT_EQ(text.problem.toStdString(), "") << name;
    }
}

TEST(MessageTexts, TellWhatTheLibraryWouldNotUse)
{
    QByteArray lsta = golden::load("lsta_1_0").bytes;
    lsta[21] = 1;
    EXPECT_EQ(describeMessage(lsta).problem.toStdString(), "not accepted in MSEX version 1.1");
    QByteArray newer = golden::load("pnam").bytes;
    newer[5] = 1;
    EXPECT_EQ(describeMessage(newer).problem.toStdString(), "CITP version 1.1, not 1.0");
    EXPECT_TRUE(describeMessage(golden::load("pnam").bytes + 'x').problem.startsWith("declares "));
    QByteArray thumbnail = golden::load("ethn_1_2").bytes;
    thumbnail.chop(1);
    EXPECT_EQ(describeMessage(golden::withTrueSize(thumbnail)).problem.toStdString(), "contains no readable picture");
    EXPECT_EQ(describeMessage(golden::load("geli_1_2").bytes).code.toStdString(), "GELI");
    EXPECT_TRUE(describeMessage(golden::load("geli_1_2").bytes).text.contains(" body="));
}

namespace {
// A list with @p count records announced, of which the first @p bytes bytes are there.
QByteArray listOf(const char* code, unsigned minor, unsigned count, int bytes)
{
    const QByteArray id = minor == 0 ? Wire::u8(1) : Wire::u32(1);
    const QByteArray number = minor < 2 ? Wire::u8(count) : Wire::u16(count);
    const QByteArray name(code);
    const QByteArray start = name == "ELIn"                 ? Wire::u8(1) + number
                             : name == "LSta"               ? Wire::u8(count)
                             : name == "GLEI" && minor == 2 ? Wire::u8(3) + id + number
                                                            : id + number;
    return Wire::msex(minor, code, start + QByteArray(bytes, '\0'));
}
} // namespace

TEST(DescribedMessages, ListNoMoreRecordsThanTheirBytesHold)
{
    struct List
    {
        const char* code;
        unsigned minor;
        int recordBytes;
    };
    const List lists[] = {{"ELIn", 0, 6},  {"ELIn", 1, 10}, {"ELIn", 2, 16}, {"MEIn", 0, 22}, {"MEIn", 1, 22},
                          {"MEIn", 2, 26}, {"EEIn", 0, 6},  {"EEIn", 1, 6},  {"EEIn", 2, 10}, {"GLEI", 1, 13},
                          {"GLEI", 2, 17}, {"LSta", 0, 19}, {"LSta", 2, 23}};
    for (const List& list : lists) {
        SCOPED_TRACE(std::string(list.code) + " 1." + std::to_string(list.minor));
        const MessageText whole = describeMessage(listOf(list.code, list.minor, 3, 3 * list.recordBytes));
        EXPECT_EQ(whole.problem.toStdString(), "");
        const MessageText cut = describeMessage(listOf(list.code, list.minor, 3, 3 * list.recordBytes - 1));
        EXPECT_EQ(cut.problem.toStdString(), "announces 3 records, but its bytes hold at most 2");
        const MessageText empty = describeMessage(listOf(list.code, list.minor, list.minor < 2 ? 255 : 65535, 0));
        EXPECT_TRUE(empty.problem.endsWith("but its bytes hold at most 0")) << empty.problem.toStdString();
        EXPECT_LT(empty.text.size(), 200);
    }
}

TEST(MessageFields, AreThoseOfEveryMessage)
{
    QList<QByteArray> messages;
    for (const char* const name :
         {"ploc_mediaserver", "pnam",     "sinf_1_0", "sinf_1_2", "elin_1_0", "elin_1_2", "elup_1_2", "mein_1_2",
          "eein_1_2",         "glei_1_1", "lsta_1_0", "lsta_1_2", "elth_1_0", "ethn_1_2", "ptch",     "geli_1_0",
          "geli_1_2",         "gein_1_0", "gein_1_2", "gelt_1_0", "gelt_1_2", "geth_1_0", "geth_1_2"})
        messages << golden::load(name).bytes;
    QByteArray bytes;
    messages << (bytes >> CITP::Msg_MSEX_CInf());
    messages << (bytes >> CITP::Msg_FPTC_SPTC(nullptr));
    const std::vector<unsigned short> fixtures{7, 300};
    messages << (bytes >> CITP::Msg_FPTC_SPTC(&fixtures));
    QStringList gists;
    for (const QByteArray& message : messages) {
        const QString code = describeMessage(message).code;
        EXPECT_FALSE(fieldsOf(message).contains("body")) << code.toStdString();
        gists << code + ' ' + gistOf(code, fieldsOf(message));
    }
    EXPECT_EQ(gists.join('\n').toStdString(),
              "PLoc \"B\u00fchne 1\"  MediaServer, port 4811, Running\n"
              "PNam \"Stage 1\"\n"
              "SInf Arc 7.0  2 layers\n"
              "SInf W\u00e9? 2.10.255  MSEX 1.0 1.1 1.2  3 layers\n"
              "ELIn type 1, 2 libraries: 7 \"Films\", 255 \"B\u00fchne \u2603\"\n"
              "ELIn type 1, 2 libraries: 7,0,0,0 \"Films\", 255,1,2,3 \"B\u00fchne \u2603\"\n"
              "ELUp type 2, library 9,8,7,6 changed, elements 0 2 255, libraries 8 135\n"
              "MEIn library 3,1,0,0, 2 elements: 1 \"Fire\", 255 \"\"\n"
              "EEIn library 200,0,0,1, 2 elements: 4 \"Blur\", 5 \"Invert\"\n"
              "GLEI library 6,5,4,3, 2 elements: 0 \"Mask\", 9 \"\U0001f3ad\"\n"
              "LSta 2 layers: 0 \"Rain\" 1000/16909060, 1 \"\" 0/0\n"
              "LSta 2 layers: 0 \"Rain\" 1000/16909060, 1 \"\" 0/0\n"
              "ELTh type 1, library 4, RGB8 160x120, 6 bytes\n"
              "EThn type 1, library 4,3,2,1, element 9, PNG 160x120, 4 bytes\n"
              "Ptch fixture 1001 at 200/512, 25 channels, Acme Spot 71\u00e9x\n"
              "GELI type 1, libraries 0 255\n"
              "GELI type 1, libraries 0 255 of 1,2,0,0\n"
              "GEIn type 2, library 3, elements 5 6\n"
              "GEIn type 2, library 3,2,1,0, elements 5 6\n"
              "GELT type 1, libraries 7 255, JPEG 160x120\n"
              "GELT type 1, libraries 1,2,3,4 5,0,0,0, JPEG 160x120\n"
              "GETh type 1, library 8, elements 1 2 200, PNG 160x120\n"
              "GETh type 1, library 8,0,0,1, elements 1 2 200, PNG 160x120\n"
              "CInf MSEX 1.0 1.1 1.2\n"
              "SPtc all fixtures\n"
              "SPtc fixtures 7 300");
}

TEST(MessageFields, OfAnUnknownMessageAreItsFirstBytes)
{
    const QByteArray message = Wire::msex(2, "Xyzz", QByteArray(70, 'a'));
    EXPECT_EQ(fieldsOf(message).value("body").toString().toStdString(),
              (QString("61 ").repeated(64) + "...").toStdString());
    EXPECT_EQ(gistOf("Xyzz", fieldsOf(Wire::msex(2, "Xyzz", "a"))).toStdString(), "61");
    // The code of another layer.
    EXPECT_EQ(fieldsOf(Wire::msex(2, "PLoc", "a")).value("body").toString().toStdString(), "61");
}

TEST(MessageFields, EndWithTheBytesWhateverACountSays)
{
    const QByteArray body = Wire::u8(1) + Wire::u32(0) + Wire::u16(65535) + Wire::u8(7);
    EXPECT_EQ(fieldsOf(Wire::msex(2, "GELI", body)).value("numbers").toArray().size(), 1);
    EXPECT_EQ(fieldsOf(Wire::msex(2, "GELT", "JPEG" + Wire::u32(0) + Wire::u8(1) + Wire::u8(1) + Wire::u16(65535)))
                  .value("libraries")
                  .toArray()
                  .size(),
              0);
    EXPECT_EQ(fieldsOf(Wire::fptc("SPtc", Wire::u16(65535))).value("fixtures").toArray().size(), 0);
}

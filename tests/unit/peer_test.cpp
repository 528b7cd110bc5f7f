// PINF messages: PLoc as media servers send it, PLoc as this console writes it, and PNam.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_peer.h>
#include <gtest/gtest.h>

#include <QBuffer>
#include <QDataStream>

#include <algorithm>

#include "golden.h"

namespace {
using CITP::Msg_PEER;
using CITP::Msg_PEER_PLOC;
using CITP::Msg_PEER_PNAM;

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

golden::Fields plocFields(const Msg_PEER_PLOC& message)
{
    return golden::Collector()
        .addHeader(message)
        .add("cookie", message.cookie)
        .add("port", message.port)
        .add("type", message.type)
        .add("name", message.name)
        .add("state", message.state)
        .fields();
}

golden::Fields pnamFields(const Msg_PEER_PNAM& message)
{
    return golden::Collector().addHeader(message).add("cookie", message.cookie).add("name", message.name).fields();
}

/// A PLoc as peers send it, with @p body behind the layer header.
QByteArray plocWith(const char* body)
{
    return golden::withTrueSize(bytes("43495450 0100 0000 00000000 0100 0000 50494e46 504c6f63") + bytes(body));
}

/// The odd image of a PLoc, made the way it came about: a stream and direct appends over the same buffer.
QByteArray imageByTwoWriters(const Msg_PEER_PLOC& message)
{
    QByteArray out;
    out >> static_cast<const Msg_PEER&>(message);
    QBuffer buffer(&out);
    EXPECT_TRUE(buffer.open(QIODevice::ReadWrite));
    EXPECT_TRUE(buffer.seek(out.size()));
    QDataStream stream(&buffer);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream << message.port;
    out.append(message.type.toLatin1()).append('\0').append(message.name.toLatin1());
    stream << quint8(0) << message.state << quint8(0);
    return golden::withTrueSize(out);
}

TEST(Peer, GivesTheFieldsOfGoldenMessages)
{
    golden::check<Msg_PEER_PLOC>("ploc_mediaserver", plocFields);
    golden::checkTailIgnored<Msg_PEER_PLOC>("ploc_mediaserver", plocFields);
    golden::check<Msg_PEER_PNAM>("pnam", pnamFields);
    golden::checkTailIgnored<Msg_PEER_PNAM>("pnam", pnamFields);
}

TEST(Peer, ReadsAPlocWithThreeEmptyTexts)
{
    const Msg_PEER_PLOC message(plocWith("cb12 00 00 00"));
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.port, 4811);
    EXPECT_TRUE(message.type.isEmpty());
    EXPECT_TRUE(message.name.isEmpty());
    EXPECT_TRUE(message.state.isEmpty());
}

TEST(Peer, ReadsAPlocCutOffBehindTheType)
{
    for (const char* body : {"cb12 4d53", "cb12 4d53 00"}) {
        SCOPED_TRACE(body);
        const Msg_PEER_PLOC message(plocWith(body));
        EXPECT_TRUE(message.valid);
        EXPECT_EQ(message.type, QStringLiteral("MS"));
        EXPECT_TRUE(message.name.isEmpty());
        EXPECT_TRUE(message.state.isEmpty());
    }
}

TEST(Peer, ReadsTheLayerOfAMessageWithABadHeaderToo)
{
    const Msg_PEER_PLOC message(plocWith("cb12 41 00 42 00 43 00") + 'x');
    EXPECT_FALSE(message.valid);
    EXPECT_EQ(message.cookie, QStringLiteral("PLoc"));
    EXPECT_EQ(message.port, 4811);
    EXPECT_EQ(message.type + message.name + message.state, QStringLiteral("ABC"));
}

TEST(Peer, HasNoContentTypeInTwentyThreeBytes)
{
    const QByteArray layer = plocWith("");
    ASSERT_EQ(layer.size(), 24);
    EXPECT_TRUE(Msg_PEER::contentType(layer.left(23)).isEmpty());
    EXPECT_EQ(Msg_PEER::contentType(layer), QStringLiteral("PLoc"));
}

TEST(Peer, TellsTheLayersContentTypeToo)
{
    EXPECT_EQ(Msg_PEER(plocWith("")).contentType(), QStringLiteral("PINF"));
    EXPECT_EQ(CITP::Msg_Header::contentType(plocWith("")), QStringLiteral("PINF"));
}

TEST(Peer, WritesAPnam)
{
    QByteArray out("left over from before");
    EXPECT_EQ(&(out >> Msg_PEER_PNAM(QStringLiteral("X"))), &out);
    EXPECT_EQ(out, bytes("43495450 0100 0000 1a000000 0100 0000 50494e46 504e616d 58 00"));
    EXPECT_EQ(out.size(), 26);
    EXPECT_EQ(Msg_PEER_PNAM(out).name, QStringLiteral("X"));
}

TEST(Peer, WritesTheLayerAloneWithItsSize)
{
    QByteArray out;
    out >> Msg_PEER(QStringLiteral("PNam"));
    EXPECT_EQ(out, bytes("43495450 0100 0000 18000000 0100 0000 50494e46 504e616d"));
}

TEST(Peer, WritesTheConsolesPlocAsTheOddImage)
{
    QByteArray out("left over from before");
    out >> Msg_PEER_PLOC(QStringLiteral("LightingConsole"), QStringLiteral("Tarn 4"), QStringLiteral("Running"), 0);
    EXPECT_EQ(out.size(), 48);
    EXPECT_EQ(out, bytes("43495450 0100 0000 30000000 0100 0000 50494e46 504c6f63"
                         "0000 00 0e000000 5200 7500 6e00 6e00 6900 6e00 6700 00 2034"));
    EXPECT_TRUE(Msg_PEER_PLOC(out).type.isEmpty());
}

TEST(Peer, CoversTheTextsOfAPlocWhateverTheirLengths)
{
    for (const int type : {0, 1, 5, 40}) {
        for (const int name : {0, 1, 5, 40}) {
            for (const int state : {-1, 0, 1, 5, 40}) {
                SCOPED_TRACE(testing::Message() << type << ' ' << name << ' ' << state);
                const Msg_PEER_PLOC message(
                    QString(type, QLatin1Char('t')), QString(name, QLatin1Char('n')),
                    state < 0 ? QString() : QString(QLatin1String("")) + QString(state, QChar(0x20ac)), 0x1234);
                QByteArray out;
                out >> message;
                EXPECT_EQ(out.size(), std::max(27 + type + name, 32 + 2 * std::max(state, 0)));
                EXPECT_EQ(out, imageByTwoWriters(message));
            }
        }
    }
}

TEST(Peer, WritesTheByteCountOfANullStateAsAllOnes)
{
    QByteArray out;
    out >> Msg_PEER_PLOC(QString(), QString(), QString(), 1);
    EXPECT_EQ(out.mid(24), bytes("0100 00 ffffffff 00"));
    out >> Msg_PEER_PLOC(QString(), QString(), QLatin1String(""), 1);
    EXPECT_EQ(out.mid(24), bytes("0100 00 00000000 00"));
}

TEST(Peer, WritesAQuestionMarkForWhatLatin1Lacks)
{
    QByteArray out;
    out >> Msg_PEER_PNAM(QString::fromUtf8("\u00fc\u20ac"));
    EXPECT_EQ(out.mid(24), QByteArray("\xfc?\0", 3));
}

TEST(Peer, PrintsTheFieldsOfAPlocToSend)
{
    const Msg_PEER_PLOC message(QStringLiteral("T"), QStringLiteral("N"), QStringLiteral("S"), 65535);
    EXPECT_EQ(golden::textOf(message),
              "\"( rindex=0 size=0 content=PINF ) ( Cookie=PLoc) port=65535 type=T name=N state=S\"");
}

TEST(Peer, AssignsAllButWhatTheHeaderKeeps)
{
    const Msg_PEER_PLOC source(plocWith("cb12 41 00 42 00 43 00") + 'x');
    Msg_PEER_PLOC target;
    target = source;
    golden::Fields expected = plocFields(source);
    expected["header.valid"] = "1";
    expected["header.partCount"] = "0";
    EXPECT_EQ(plocFields(target), expected);
    EXPECT_EQ(plocFields(Msg_PEER_PLOC(source)), plocFields(source));
    const Msg_PEER_PLOC& self = target;
    target = self;
    EXPECT_EQ(plocFields(target), expected);
}

TEST(Peer, HasNoPortIfItsSecondByteIsMissing)
{
    EXPECT_EQ(Msg_PEER_PLOC(plocWith("cb")).port, 0);
    EXPECT_EQ(Msg_PEER_PLOC(plocWith("cb12")).port, 4811);
}

TEST(Peer, IsEmptyAndValidByDefault)
{
    const Msg_PEER_PLOC message;
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.port, 0);
    EXPECT_TRUE((message.cookie + message.type + message.name + message.state).isEmpty());
    EXPECT_TRUE(Msg_PEER_PNAM().valid);
    EXPECT_TRUE((Msg_PEER_PNAM().cookie + Msg_PEER_PNAM().name).isEmpty());
}
} // namespace

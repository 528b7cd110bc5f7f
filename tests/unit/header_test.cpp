// The CITP header: what is accepted, what is logged, what is written, and what assignment leaves alone.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_codecs.h>
#include <citp/citp_msg_header.h>
#include <gtest/gtest.h>

#include "golden.h"
#include "log_capture.h"

namespace {
using CITP::Msg_Header;

/// Keeps the failure lines that the tests provoke out of their output; those that look at them capture them again.
class Header : public testing::Test
{
    LogCapture m_quiet;
};

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

const char goodHeader[] = "43495450 01 00 0300 14000000 0200 0100 4d534558";

golden::Fields fieldsOf(const Msg_Header& message)
{
    return golden::Collector().addHeader(message).fields();
}

/// The only line logged while @p data is parsed.
LogCapture::Entry failureOf(const QByteArray& data)
{
    LogCapture log;
    const Msg_Header header(data);
    EXPECT_FALSE(header.valid);
    const auto entries = log.entries();
    EXPECT_EQ(entries.size(), 1u);
    return entries.empty() ? LogCapture::Entry{} : entries.front();
}

TEST_F(Header, GivesTheFieldsOfGoldenMessages)
{
    golden::check<Msg_Header>("header", fieldsOf);
}

TEST_F(Header, IsInvalidAndEmptyFromNineteenBytes)
{
    const QByteArray data = bytes(goodHeader).left(19);
    const Msg_Header header(data);
    EXPECT_FALSE(header.valid);
    EXPECT_TRUE(header.cookie.isEmpty());
    EXPECT_TRUE(header.contentType().isEmpty());
    EXPECT_EQ(header.size, 0u);
    EXPECT_EQ(header.requestIndex, 0);
    EXPECT_EQ(Msg_Header::messageSize(data), 0);
    EXPECT_TRUE(Msg_Header::contentType(data).isEmpty());
}

TEST_F(Header, IsValidOnlyIfTheBufferIsAsLongAsItSays)
{
    const QByteArray data = bytes(goodHeader);
    LogCapture log;
    EXPECT_TRUE(Msg_Header(data).valid);
    EXPECT_TRUE(log.entries().empty());
    EXPECT_FALSE(Msg_Header(data + 'x').valid);
    ASSERT_EQ(log.entries().size(), 1u);
    EXPECT_EQ(log.entries()[0].text, "error reading CITP header: header size != datagram size");
}

TEST_F(Header, ShowsWhatWasFoundInPlaceOfTheCookie)
{
    QByteArray data = bytes(goodHeader);
    data[3] = 'X';
    const Msg_Header header(data);
    EXPECT_FALSE(header.valid);
    EXPECT_EQ(golden::textOf(header), "\"( top=CITX CitpMajor=1 CitpMinor=0 size=20 content=MSEX ) \"");
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: header is not CITP");
}

TEST_F(Header, RejectsMinorVersionOne)
{
    QByteArray data = bytes(goodHeader);
    data[5] = 1;
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: wrong CITP minor");
}

TEST_F(Header, RejectsMajorVersionTwo)
{
    QByteArray data = bytes(goodHeader);
    data[4] = 2;
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: wrong CITP major");
}

TEST_F(Header, ReportsTheFirstFaultInTheOrderOfTheChecks)
{
    QByteArray data = bytes("58495450 02 01 0300 15000000 0200 0100 4d534558");
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: header is not CITP");
    data[0] = 'C';
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: wrong CITP major");
    data[4] = 1;
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: wrong CITP minor");
    data[5] = 0;
    EXPECT_EQ(failureOf(data).text, "error reading CITP header: header size != datagram size");
    EXPECT_EQ(failureOf(data.left(19)).text, "error reading CITP header: too short for a CITP message");
}

TEST_F(Header, KeepsWhatWasReadBeforeTheFault)
{
    const Msg_Header header(bytes("58495450 02 01 0304 15060708 0200 0100 4d534558"));
    EXPECT_FALSE(header.valid);
    EXPECT_EQ(header.cookie, QStringLiteral("XITP"));
    EXPECT_EQ(header.citpMajor, 2);
    EXPECT_EQ(header.citpMinor, 1);
    EXPECT_EQ(header.requestIndex, 0x0403);
    EXPECT_EQ(header.size, 0x08070615u);
    EXPECT_EQ(header.partCount, 2);
    EXPECT_EQ(header.part, 1);
    EXPECT_EQ(header.contentType(), QStringLiteral("MSEX"));
}

TEST_F(Header, LogsAFaultAsAFailureWithItsSource)
{
    const LogCapture::Entry line = failureOf(QByteArray());
    EXPECT_EQ(line.context, "CITP.Message");
    EXPECT_EQ(line.mask, 30u);
    EXPECT_EQ(line.level, 8u);
    EXPECT_EQ(line.text, "error reading CITP header: too short for a CITP message");
    EXPECT_EQ(line.function, "CITP::Msg_Header::Msg_Header(const QByteArray&)");
    EXPECT_EQ(line.file, "citp_msg_header");
    EXPECT_EQ(line.line, 166);
    EXPECT_GT(line.callStackDepth, 0);
}

TEST_F(Header, LogsNoFaultWhenFailuresAreMasked)
{
    LogCapture log;
    CITP::CITPLogContext().SetMask(Os::Log::DefaultMask & ~unsigned(Os::Log::Failure));
    const Msg_Header header{QByteArray()};
    CITP::CITPLogContext().SetMask(Os::Log::DefaultMask);
    EXPECT_FALSE(header.valid);
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(Header, WritesVersionOneAndASinglePart)
{
    QByteArray out("left over from before");
    EXPECT_EQ(&(out >> Msg_Header(0x0102, QStringLiteral("MSEX"))), &out);
    EXPECT_EQ(out.toHex(' '), "43 49 54 50 01 00 02 01 14 00 00 00 01 00 00 00 4d 53 45 58");

    // Whatever the object holds.
    out >> Msg_Header(bytes("58495450 02 01 0300 15000000 0200 0100 4d534558"));
    EXPECT_EQ(out.toHex(' '), "43 49 54 50 01 00 03 00 14 00 00 00 01 00 00 00 4d 53 45 58");
}

TEST_F(Header, WritesFourBytesOfContentTypeWhateverItsLength)
{
    QByteArray out;
    out >> Msg_Header(0, QStringLiteral("MSEXTRA"));
    EXPECT_EQ(out.mid(16), QByteArray("MSEX"));
    out >> Msg_Header(0, QStringLiteral("MS"));
    EXPECT_EQ(out.mid(16), QByteArray("MS\0\0", 4));
    out >> Msg_Header(0, QString::fromUtf8("\u00e9\u20acx\u00ff"));
    EXPECT_EQ(out.mid(16), QByteArray("\xe9?x\xff", 4));
}

TEST_F(Header, SetSizeChangesTheSizeFieldAlone)
{
    QByteArray buffer;
    buffer >> Msg_Header(0, QStringLiteral("MSEX"));
    buffer.append(QByteArray(25, 'x'));
    QByteArray expected = buffer;
    expected.replace(8, 4, bytes("2d000000"));
    Msg_Header::setSize(buffer);
    EXPECT_EQ(buffer, expected);
}

TEST_F(Header, SetSizeLeavesABufferWithoutASizeFieldAlone)
{
    QByteArray buffer("CITP....abc", 11);
    Msg_Header::setSize(buffer);
    EXPECT_EQ(buffer, QByteArray("CITP....abc", 11));
}

TEST_F(Header, MessageSizeIsTheAnnouncedLengthOfABeginning)
{
    EXPECT_EQ(Msg_Header::messageSize(bytes("43495450 01 00 0300 39300000 0200 0100 4d534558")), 12345);
    // Whatever the cookie, and with a sign.
    EXPECT_EQ(Msg_Header::messageSize(bytes("00000000 01 00 0300 feffffff 0200 0100 4d534558")), -2);
}

TEST_F(Header, ContentTypeOfABufferIsTakenAsLatin1)
{
    EXPECT_EQ(Msg_Header::contentType(bytes("00000000 00 00 0000 00000000 0000 0000 4dff0041 42")),
              QString::fromLatin1("M\xff\0A", 4));
}

TEST_F(Header, IsValidAndEmptyByDefault)
{
    const Msg_Header header;
    EXPECT_TRUE(header.valid);
    EXPECT_TRUE(header.cookie.isEmpty());
    EXPECT_TRUE(header.contentType().isEmpty());
    EXPECT_EQ(header.size + header.citpMajor + header.citpMinor + header.requestIndex + header.partCount + header.part,
              0u);
}

TEST_F(Header, IsOfVersionOneWhenBuiltForSending)
{
    const Msg_Header header(7, QStringLiteral("PINF"));
    EXPECT_TRUE(header.valid);
    EXPECT_EQ(header.citpMajor, 1);
    EXPECT_EQ(header.citpMinor, 0);
    EXPECT_EQ(header.requestIndex, 7);
    EXPECT_EQ(header.contentType(), QStringLiteral("PINF"));
    EXPECT_TRUE(header.cookie.isEmpty());
    EXPECT_EQ(header.size + header.partCount + header.part, 0u);
    EXPECT_EQ(golden::textOf(header), "\"( rindex=7 size=0 content=PINF ) \"");
}

TEST_F(Header, StaysValidWhenAnInvalidOneIsAssigned)
{
    Msg_Header target(1, QStringLiteral("PINF"));
    target = Msg_Header(bytes("58495450 02 01 0304 15060708 0200 0100 4d534558"));
    EXPECT_TRUE(target.valid);
    EXPECT_EQ(target.partCount, 0);
    EXPECT_EQ(target.part, 0);
    EXPECT_EQ(target.size, 0x08070615u);
    EXPECT_EQ(target.citpMajor, 2);
    EXPECT_EQ(target.citpMinor, 1);
    EXPECT_EQ(target.requestIndex, 0x0403);
    EXPECT_EQ(target.contentType(), QStringLiteral("MSEX"));
    EXPECT_EQ(target.cookie, QStringLiteral("XITP"));
}

TEST_F(Header, StaysInvalidWhenAValidOneIsAssigned)
{
    Msg_Header target{QByteArray()};
    target = Msg_Header(bytes(goodHeader));
    EXPECT_FALSE(target.valid);
}

TEST_F(Header, CopiesEveryMemberAtConstruction)
{
    const Msg_Header source(bytes("58495450 02 01 0304 15060708 0200 0100 4d534558"));
    EXPECT_EQ(fieldsOf(Msg_Header(source)), fieldsOf(source));
}

TEST_F(Header, SurvivesAssignmentToItself)
{
    Msg_Header header(bytes(goodHeader));
    const golden::Fields before = fieldsOf(header);
    const Msg_Header& self = header;
    header = self;
    EXPECT_EQ(fieldsOf(header), before);
}

TEST_F(Header, AppendsItsTextBehindWhatIsThere)
{
    QString text = QStringLiteral("<- ");
    EXPECT_EQ(&(text >> Msg_Header(bytes(goodHeader))), &text);
    EXPECT_EQ(text, QStringLiteral("<- ( rindex=3 size=20 content=MSEX ) "));
}
} // namespace

// FPTC messages: Ptch with its hint read the other way round, SPtc, and buffers too short for the layer.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <gtest/gtest.h>

#include "golden.h"

namespace {
using CITP::Msg_FPTC;
using CITP::Msg_FPTC_PTCH;
using CITP::Msg_FPTC_SPTC;

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

golden::Fields ptchFields(const Msg_FPTC_PTCH& message)
{
    return golden::Collector()
        .addHeader(message)
        .add("cookie", message.cookie)
        .add("hint", message.hint)
        .add("FixtureIdentifier", message.FixtureIdentifier)
        .add("Universe", message.Universe)
        .add("Channel", message.Channel)
        .add("ChannelCount", message.ChannelCount)
        .add("FixtureMake", message.FixtureMake)
        .add("FixtureName", message.FixtureName)
        .fields();
}

/// A Ptch with @p rest behind its code: the hint and the body.
QByteArray ptchWith(const char* rest)
{
    return golden::withTrueSize(bytes("43495450 0100 0000 00000000 0100 0000 46505443 50746368") + bytes(rest));
}

TEST(Fptc, GivesTheFieldsOfGoldenMessages)
{
    golden::check<Msg_FPTC_PTCH>("ptch", ptchFields);
    golden::checkTailIgnored<Msg_FPTC_PTCH>("ptch", ptchFields);
}

TEST(Fptc, ReadsTheHintBigEndianAndWritesItLittleEndian)
{
    EXPECT_EQ(Msg_FPTC_PTCH(ptchWith("01000000")).hint, 16777216u);
    QByteArray out("left over from before");
    EXPECT_EQ(&(out >> Msg_FPTC(QStringLiteral("Ptch"), 1)), &out);
    // The layer alone leaves the size as the header wrote it.
    EXPECT_EQ(out, bytes("43495450 0100 0000 14000000 0100 0000 46505443 50746368 01000000"));
}

TEST(Fptc, HasNoHintIfTheBufferEndsBeforeItDoes)
{
    const Msg_FPTC message(ptchWith("010203"));
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.cookie, QStringLiteral("Ptch"));
    EXPECT_EQ(message.hint, 0u);
}

TEST(Fptc, IsNotValidFromABufferTooShortForTheLayer)
{
    for (int length = 0; length < 24; ++length) {
        SCOPED_TRACE(length);
        const Msg_FPTC_PTCH message(golden::withTrueSize(ptchWith("").left(length)));
        EXPECT_FALSE(message.valid);
        EXPECT_TRUE(message.cookie.isEmpty());
        EXPECT_EQ(message.hint, 0u);
        EXPECT_EQ(message.FixtureIdentifier, 0);
    }
    EXPECT_TRUE(Msg_FPTC_PTCH(ptchWith("")).valid);
}

TEST(Fptc, AsksForTheWholePatchWithoutAList)
{
    QByteArray out("left over from before");
    EXPECT_EQ(&(out >> Msg_FPTC_SPTC(nullptr)), &out);
    EXPECT_EQ(out, bytes("43495450 0100 0000 1e000000 0100 0000 46505443 53507463 00000000 0000"));
    EXPECT_EQ(out.size(), 30);
}

TEST(Fptc, AsksForTheFixturesOfAList)
{
    const std::vector<unsigned short> fixtures = {1, 258};
    const Msg_FPTC_SPTC message(&fixtures);
    EXPECT_EQ(message.fixtureIdentifiers, fixtures);
    QByteArray out;
    out >> message;
    EXPECT_EQ(out.mid(28), bytes("0200 0100 0201"));
    EXPECT_EQ(CITP::Msg_Header::messageSize(out), out.size());
}

TEST(Fptc, WritesEveryFixtureThoughTheCountIsCutToSixteenBits)
{
    const std::vector<unsigned short> fixtures(65537, 7);
    QByteArray out;
    out >> Msg_FPTC_SPTC(&fixtures);
    EXPECT_EQ(out.mid(28, 4), bytes("0100 0700"));
    EXPECT_EQ(out.size(), 30 + 2 * 65537);
}

TEST(Fptc, ReadsAsZeroWhatLiesBeyondTheEnd)
{
    const QByteArray whole = ptchWith("01020304 0102 03 04 0506 0708 00 00");
    for (int length = 28; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        const Msg_FPTC_PTCH message(golden::withTrueSize(whole.left(length)));
        EXPECT_TRUE(message.valid);
        EXPECT_EQ(message.hint, 0x01020304u);
        EXPECT_EQ(message.FixtureIdentifier, length < 30 ? 0 : 0x0201);
        EXPECT_EQ(message.Universe, length < 31 ? 0 : 3);
        EXPECT_EQ(message.Channel, length < 34 ? 0 : 0x0605);
        EXPECT_EQ(message.ChannelCount, length < 36 ? 0 : 0x0807);
        EXPECT_TRUE(message.FixtureMake.isEmpty());
        EXPECT_TRUE(message.FixtureName.isEmpty());
    }
}

TEST(Fptc, TakesTheNameBehindAnEmptyMake)
{
    const Msg_FPTC_PTCH message(ptchWith("00000000 0000 00 00 0000 0000 00 4142 00"));
    EXPECT_TRUE(message.FixtureMake.isEmpty());
    EXPECT_EQ(message.FixtureName, QStringLiteral("AB"));
}

TEST(Fptc, HasNoCookieInTwentySevenBytes)
{
    EXPECT_TRUE(Msg_FPTC::GetCookie(ptchWith("000000")).isEmpty());
    EXPECT_EQ(Msg_FPTC::GetCookie(ptchWith("00000000")), QStringLiteral("Ptch"));
}

TEST(Fptc, AssignsAllButWhatTheHeaderKeeps)
{
    const Msg_FPTC_PTCH source(golden::load("ptch").bytes + 'x');
    Msg_FPTC_PTCH target;
    target = source;
    golden::Fields expected = ptchFields(source);
    expected["header.valid"] = "1";
    expected["header.partCount"] = "0";
    EXPECT_EQ(ptchFields(target), expected);
    EXPECT_EQ(ptchFields(Msg_FPTC_PTCH(source)), ptchFields(source));
    const Msg_FPTC_PTCH& self = target;
    target = self;
    EXPECT_EQ(ptchFields(target), expected);
}

TEST(Fptc, CopiesTheListOfFixtures)
{
    const std::vector<unsigned short> fixtures = {3, 4};
    const Msg_FPTC_SPTC source(&fixtures);
    const Msg_FPTC_SPTC copy(source);
    EXPECT_EQ(copy.fixtureIdentifiers, fixtures);
    EXPECT_EQ(copy.cookie, QStringLiteral("SPtc"));
    Msg_FPTC_SPTC target;
    EXPECT_TRUE(target.fixtureIdentifiers.empty());
    target = source;
    EXPECT_EQ(target.fixtureIdentifiers, fixtures);
    EXPECT_EQ(target.contentType(), QStringLiteral("FPTC"));
}
} // namespace

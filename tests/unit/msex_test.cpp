// The MSEX layer: its version and code, what assignment leaves alone, and the client information.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex.h>
#include <gtest/gtest.h>

#include "golden.h"

namespace {
using CITP::Msg_MSEX;
using CITP::Msg_MSEX_CInf;

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

golden::Fields fieldsOf(const Msg_MSEX& message)
{
    return golden::Collector()
        .addHeader(message)
        .add("versionMajor", message.versionMajor)
        .add("versionMinor", message.versionMinor)
        .add("cookie", message.cookie)
        .fields();
}

/// An MSEX message with @p rest behind the CITP header.
QByteArray msexWith(const char* rest)
{
    return golden::withTrueSize(bytes("43495450 0100 0500 00000000 0100 0000 4d534558") + bytes(rest));
}

TEST(Msex, GivesTheFieldsOfGoldenMessages)
{
    golden::check<Msg_MSEX>("msex_layer", fieldsOf);
    golden::checkTailIgnored<Msg_MSEX>("msex_layer", fieldsOf);
}

TEST(Msex, HasNoCookieAndVersionZeroInTwentyFiveBytes)
{
    const QByteArray data = msexWith("01 02 4c5374");
    ASSERT_EQ(data.size(), 25);
    const Msg_MSEX message(data);
    EXPECT_TRUE(message.valid);
    EXPECT_TRUE(message.cookie.isEmpty());
    EXPECT_EQ(message.versionMajor, 0);
    EXPECT_EQ(message.versionMinor, 0);
    EXPECT_TRUE(Msg_MSEX::GetCookie(data).isEmpty());
}

TEST(Msex, ReadsVersionAndCookieFromTwentySixBytes)
{
    const QByteArray data = msexWith("01 02 4c537461");
    ASSERT_EQ(data.size(), Msg_MSEX::MIN_MSEX_LENGTH);
    const Msg_MSEX message(data);
    EXPECT_EQ(message.versionMajor, 1);
    EXPECT_EQ(message.versionMinor, 2);
    EXPECT_EQ(message.cookie, QStringLiteral("LSta"));
    EXPECT_EQ(Msg_MSEX::GetCookie(data), QStringLiteral("LSta"));
}

TEST(Msex, DoesNotJudgeTheVersion)
{
    const Msg_MSEX message(msexWith("ff fe 4c537461"));
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.versionMajor, 255);
    EXPECT_EQ(message.versionMinor, 254);
}

TEST(Msex, OffersThreeVersionsInTheClientInformation)
{
    QByteArray out("left over from before");
    EXPECT_EQ(&(out >> Msg_MSEX_CInf()), &out);
    EXPECT_EQ(out, bytes("43495450 0100 0000 21000000 0100 0000 4d534558 0102 43496e66 03 0001 0101 0201"));
    EXPECT_EQ(out.size(), 33);
}

TEST(Msex, WritesTheLayerWithoutPatchingTheSize)
{
    QByteArray out;
    out >> Msg_MSEX(1, QStringLiteral("GELI"));
    EXPECT_EQ(out, bytes("43495450 0100 0000 14000000 0100 0000 4d534558 0101 47454c49"));
}

TEST(Msex, LeavesTheHeaderAloneOnAssignment)
{
    Msg_MSEX target(1, QStringLiteral("GELI"));
    const golden::Fields before = fieldsOf(target);
    target = Msg_MSEX(msexWith("01 02 4c537461") + 'x');
    golden::Fields expected = before;
    expected["versionMinor"] = "2";
    expected["cookie"] = "\"LSta\"";
    EXPECT_EQ(fieldsOf(target), expected);
    EXPECT_TRUE(target.valid);
    EXPECT_EQ(target.requestIndex, 0);
}

TEST(Msex, CopiesEveryMemberAtConstruction)
{
    const Msg_MSEX source(msexWith("01 02 4c537461") + 'x');
    EXPECT_EQ(fieldsOf(Msg_MSEX(source)), fieldsOf(source));
}

TEST(Msex, SurvivesAssignmentToItself)
{
    Msg_MSEX message(msexWith("01 02 4c537461"));
    const golden::Fields before = fieldsOf(message);
    const Msg_MSEX& self = message;
    message = self;
    EXPECT_EQ(fieldsOf(message), before);
}

TEST(Msex, PrintsTheClientInformationWithItsVersion)
{
    EXPECT_EQ(golden::textOf(Msg_MSEX_CInf()),
              "\"( rindex=0 size=0 content=MSEX ) ( MsexVersionMajor=1 MsexVersionMinor=2 Cookie=CInf ) \"");
}

TEST(Msex, IsEmptyAndValidByDefault)
{
    const Msg_MSEX message;
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.versionMajor + message.versionMinor, 0);
    EXPECT_TRUE(message.cookie.isEmpty());
}
} // namespace

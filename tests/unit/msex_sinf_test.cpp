// SInf in MSEX 1.0, 1.1 and 1.2, with the established reading of the older servers' layer sources.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_sinf.h>
#include <gtest/gtest.h>

#include "msex_testing.h"

namespace {
using CITP::Msg_MSEX_SINF;

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

golden::Fields fieldsOf(const Msg_MSEX_SINF& message)
{
    return golden::Collector()
        .addHeader(message)
        .add("versionMajor", message.versionMajor)
        .add("versionMinor", message.versionMinor)
        .add("cookie", message.cookie)
        .add("ProductName", message.ProductName)
        .add("ProductVersionMajor", message.ProductVersionMajor)
        .add("ProductVersionMinor", message.ProductVersionMinor)
        .addAll("LayerDMXSources", message.LayerDMXSources)
        .add("HighestMsexVersion", message.GetHighestMsexVersion())
        .add("UUID", message.UUID)
        .add("ProductVersionBugfix", message.ProductVersionBugfix)
        .addAll("SupportedMsexVersions", message.SupportedMsexVersions)
        .add("SupportedLibraryTypes", message.SupportedLibraryTypes)
        .addAll("ThumbnailFormats", message.ThumbnailFormats)
        .addAll("StreamFormats", message.StreamFormats)
        .fields();
}

/// An SInf of MSEX @p major.@p minor with @p body.
QByteArray sinf(int major, int minor, const QByteArray& body)
{
    QByteArray data = bytes("43495450 0100 0000 00000000 0100 0000 4d534558 0000 53496e66");
    data[20] = static_cast<char>(major);
    data[21] = static_cast<char>(minor);
    return golden::withTrueSize(data + body);
}

const QByteArray uuid("12345678-9abc-def0-1234-56789abcdef0");

TEST(Sinf, GivesTheFieldsOfGoldenMessages)
{
    for (const char* name : {"sinf_1_0", "sinf_1_1", "sinf_1_2", "sinf_1_2_bare"})
        msex::replay<Msg_MSEX_SINF>(name, fieldsOf);
}

TEST(Sinf, PrintsNoListItemsWhenEveryCountIsZero)
{
    const Msg_MSEX_SINF message(sinf(1, 2, uuid + bytes("4100 0000 01 02 03 00 0400 00 00 00")));
    EXPECT_TRUE(message.valid);
    EXPECT_TRUE(message.SupportedMsexVersions.empty());
    EXPECT_TRUE(message.ThumbnailFormats.empty());
    EXPECT_TRUE(message.StreamFormats.empty());
    EXPECT_TRUE(message.LayerDMXSources.empty());
    EXPECT_EQ(golden::textOf(message),
              "\" GetHighestMsexVersion=2 ProductName=A ProductVersionMajor=1 ProductVersionMinor=2"
              " UUID=12345678-9abc-def0-1234-56789abcdef0 bugfix=3 SupportedLibraryTypes=4\"");
}

TEST(Sinf, IsInvalidAndUnreadInAnUnknownVersion)
{
    const QByteArray body = uuid + bytes("4100 0000 01 02 03 00 0400 00 00 00");
    for (const auto& [major, minor] : {std::pair{1, 3}, {2, 0}, {2, 2}, {0, 1}, {1, 255}}) {
        SCOPED_TRACE(testing::Message() << major << '.' << minor);
        const Msg_MSEX_SINF message(sinf(major, minor, body));
        EXPECT_FALSE(message.valid);
        EXPECT_TRUE(message.ProductName.isEmpty());
        EXPECT_TRUE(message.UUID.isEmpty());
        EXPECT_EQ(message.ProductVersionMajor, 0);
        EXPECT_EQ(message.GetHighestMsexVersion(), 0);
        EXPECT_EQ(message.versionMinor, minor);
    }
}

TEST(Sinf, IsInvalidWithoutAWholeMsexHeader)
{
    EXPECT_FALSE(Msg_MSEX_SINF(golden::withTrueSize(sinf(1, 1, {}).left(25))).valid);
    EXPECT_TRUE(Msg_MSEX_SINF(sinf(1, 1, {})).valid);
}

TEST(Sinf, ReadsTheFirstSourceOfOlderServersFromTheMinorVersionOn)
{
    const Msg_MSEX_SINF message(sinf(1, 1, bytes("4100 4200 0000 04 05 02 7800 7900")));
    EXPECT_EQ(message.ProductName, QStringLiteral("AB"));
    EXPECT_EQ(message.ProductVersionMajor, 4);
    EXPECT_EQ(message.ProductVersionMinor, 5);
    const std::vector<QString> expected = {QStringLiteral("\x05\x02x"), QStringLiteral("y")};
    EXPECT_EQ(message.LayerDMXSources, expected);
    EXPECT_EQ(message.GetHighestMsexVersion(), 1);
}

TEST(Sinf, LosesTheLastSourceOfOlderServersWhenTheMinorVersionIsZero)
{
    const Msg_MSEX_SINF message(sinf(1, 0, bytes("4100 4200 0000 04 00 02 7800 7900")));
    const std::vector<QString> expected = {QString(), QStringLiteral("\x02x")};
    EXPECT_EQ(message.LayerDMXSources, expected);
    EXPECT_EQ(message.GetHighestMsexVersion(), 0);
}

TEST(Sinf, StartsTheSourcesOfOlderServersByTheCharactersOfTheName)
{
    // The byte-order mark takes two bytes but is no character: the first source begins at the terminator's place.
    const Msg_MSEX_SINF message(sinf(1, 1, bytes("fffe 4100 0000 04 05 01 7800")));
    EXPECT_EQ(message.ProductName, QStringLiteral("A"));
    ASSERT_EQ(message.LayerDMXSources.size(), 1u);
    // Offset 26 + 3 + 2: the second byte of the terminator.
    EXPECT_TRUE(message.LayerDMXSources[0].isEmpty());
}

TEST(Sinf, ReadsEverySourceThatIsPromisedThoughTheMessageEnds)
{
    const Msg_MSEX_SINF old(sinf(1, 1, bytes("0000 01 02 ff 7800")));
    EXPECT_TRUE(old.valid);
    ASSERT_EQ(old.LayerDMXSources.size(), 255u);
    EXPECT_EQ(old.LayerDMXSources[0], QString::fromLatin1("\x02\xffx"));
    EXPECT_TRUE(old.LayerDMXSources[254].isEmpty());

    const Msg_MSEX_SINF current(sinf(1, 2, uuid + bytes("0000 01 02 03 00 0000 00 00 ff 7800 79")));
    EXPECT_TRUE(current.valid);
    ASSERT_EQ(current.LayerDMXSources.size(), 255u);
    EXPECT_EQ(current.LayerDMXSources[0], QStringLiteral("x"));
    EXPECT_EQ(current.LayerDMXSources[1], QStringLiteral("y"));
    EXPECT_TRUE(current.LayerDMXSources[254].isEmpty());
}

TEST(Sinf, HasAUuidOfThirtySixCharactersThoughItIsCutOff)
{
    const Msg_MSEX_SINF message(sinf(1, 2, QByteArray("abc")));
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(message.UUID, QStringLiteral("abc") + QString(33, QChar(0)));
    EXPECT_TRUE(message.ProductName.isEmpty());
}

TEST(Sinf, FillsUpListsThatAreCutOffWithZeros)
{
    const Msg_MSEX_SINF message(sinf(1, 2, uuid + bytes("0000 01 02 03 03 0201 00")));
    const std::vector<unsigned short> expected = {0x0102, 0, 0};
    EXPECT_EQ(message.SupportedMsexVersions, expected);
    EXPECT_EQ(message.SupportedLibraryTypes, 0);
}

TEST(Sinf, ReadsTheBodyBehindABadCitpHeader)
{
    const Msg_MSEX_SINF message(golden::load("sinf_1_2").bytes + 'x');
    EXPECT_FALSE(message.valid);
    EXPECT_FALSE(message.ProductName.isEmpty());
    EXPECT_FALSE(message.LayerDMXSources.empty());
}

TEST(Sinf, PrintsTheSameOnceAssigned)
{
    const Msg_MSEX_SINF source(golden::load("sinf_1_2").bytes);
    Msg_MSEX_SINF target;
    target = source;
    EXPECT_EQ(golden::textOf(target), golden::textOf(source));
    golden::Fields expected = fieldsOf(source);
    for (const auto& [name, value] : fieldsOf(Msg_MSEX_SINF()))
        if (name.rfind("header.", 0) == 0)
            expected[name] = value;
    EXPECT_EQ(fieldsOf(target), expected);
}

TEST(Sinf, CopiesListsByValue)
{
    const Msg_MSEX_SINF source(golden::load("sinf_1_2").bytes);
    Msg_MSEX_SINF copy(source);
    EXPECT_EQ(fieldsOf(copy), fieldsOf(source));
    copy.LayerDMXSources.clear();
    copy.StreamFormats.clear();
    EXPECT_FALSE(source.LayerDMXSources.empty());
    EXPECT_FALSE(source.StreamFormats.empty());
}

TEST(Sinf, SurvivesAssignmentToItself)
{
    Msg_MSEX_SINF message(golden::load("sinf_1_2").bytes);
    const golden::Fields before = fieldsOf(message);
    const Msg_MSEX_SINF& self = message;
    message = self;
    EXPECT_EQ(fieldsOf(message), before);
}

TEST(Sinf, IsEmptyAndValidByDefault)
{
    const Msg_MSEX_SINF message;
    EXPECT_TRUE(message.valid);
    EXPECT_EQ(golden::textOf(message),
              "\" GetHighestMsexVersion=0 ProductName= ProductVersionMajor=0 ProductVersionMinor=0\"");
    EXPECT_TRUE(message.UUID.isEmpty());
}
} // namespace

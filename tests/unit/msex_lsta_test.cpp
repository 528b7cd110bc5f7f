// LSta: golden messages of both MSEX versions, held against the reference parser, and its odd cases.
// SPDX-License-Identifier: Apache-2.0
#include "msex_testing.h"

#include <citp/citp_msg_msex_lsta.h>

using namespace CITP;

namespace {
/// One layer of MSEX 1.0 on library 2, all its status flags set.
const char oneLayer[] = "01 00 01 02 03 4100 0000 04000000 05000000 19 ffffffff";

golden::Fields fieldsOf(const Msg_MSEX_LSTA& m)
{
    golden::Collector fields = msex::headersOf(m);
    fields.add("Layers.size", m.Layers.size());
    std::size_t index = 0;
    for (const Msg_MSEX_LSTA::LayerStatus& layer : m.Layers) {
        const std::string name = "Layers[" + std::to_string(index++) + "].";
        fields.add(name + "LayerNumber", layer.LayerNumber)
            .add(name + "PhysicalOutput", layer.PhysicalOutput)
            .add(name + "LibraryId", layer.LibraryId)
            .add(name + "MediaNumber", layer.MediaNumber)
            .add(name + "MediaName", layer.MediaName)
            .add(name + "MediaPosition", layer.MediaPosition)
            .add(name + "MediaLength", layer.MediaLength)
            .add(name + "MediaFrameRate", layer.MediaFrameRate)
            .add(name + "LayerStatusFlags", layer.LayerStatusFlags)
            .add(name + "LibraryType", layer.LibraryType);
    }
    return fields.fields();
}
} // namespace

TEST(MsexLsta, GoldenVersion10)
{
    msex::replay<Msg_MSEX_LSTA>("lsta_1_0", fieldsOf);
}

TEST(MsexLsta, GoldenVersion12)
{
    msex::replay<Msg_MSEX_LSTA>("lsta_1_2", fieldsOf);
}

TEST(MsexLsta, Version10HasALibraryNumberAndNoType)
{
    const Msg_MSEX_LSTA lsta(msex::message(0, "LSta", oneLayer));
    ASSERT_EQ(lsta.Layers.size(), 1u);
    EXPECT_EQ(lsta.Layers[0].LibraryId, QString::fromLatin1("2"));
    EXPECT_EQ(lsta.Layers[0].LibraryType, 0);
    EXPECT_FALSE(msex::contains(golden::textOf(lsta), " LibraryType="));
}

TEST(MsexLsta, Version11IsInvalidHoweverWellFormed)
{
    const Msg_MSEX_LSTA asVersion10(msex::message(1, "LSta", oneLayer));
    EXPECT_FALSE(asVersion10.valid);
    EXPECT_TRUE(asVersion10.Layers.empty());

    QByteArray asVersion12 = golden::load("lsta_1_2").bytes;
    asVersion12[21] = 1;
    EXPECT_FALSE(Msg_MSEX_LSTA(asVersion12).valid);
    EXPECT_TRUE(Msg_MSEX_LSTA(asVersion12).Layers.empty());
}

TEST(MsexLsta, AnUnknownVersionIsInvalid)
{
    EXPECT_FALSE(Msg_MSEX_LSTA(msex::message(3, "LSta", oneLayer)).valid);
}

TEST(MsexLsta, AllStatusFlagsPrintAsAnUnsignedNumber)
{
    const Msg_MSEX_LSTA lsta(msex::message(0, "LSta", oneLayer));
    EXPECT_TRUE(msex::contains(golden::textOf(lsta), " LayerStatusFlags=4294967295\""));
}

TEST(MsexLsta, NoLayersGiveAnEmptyList)
{
    const Msg_MSEX_LSTA lsta(msex::message(2, "LSta", "00"));
    EXPECT_TRUE(lsta.valid);
    EXPECT_TRUE(lsta.Layers.empty());
    EXPECT_TRUE(msex::contains(golden::textOf(lsta), " LayerCount=0\""));
}

TEST(MsexLsta, ALyingCountGivesThatManyEmptyRecords)
{
    const Msg_MSEX_LSTA lsta(msex::message(2, "LSta", "ff 07"));
    ASSERT_EQ(lsta.Layers.size(), 255u);
    EXPECT_EQ(lsta.Layers.front().LayerNumber, 7);
    EXPECT_EQ(lsta.Layers.back().LibraryId, QString::fromLatin1("0,0,0,0"));
}

TEST(MsexLsta, AnInvalidHeaderDoesNotStopTheReading)
{
    const msex::QuietParsing quiet;
    const Msg_MSEX_LSTA lsta(msex::message(0, "LSta", oneLayer) + 'x');
    EXPECT_FALSE(lsta.valid);
    EXPECT_EQ(lsta.Layers.size(), 1u);
}

TEST(MsexLsta, CopiesAreDeepAndAssignmentLeavesTheCitpHeaderAlone)
{
    const Msg_MSEX_LSTA source(golden::load("lsta_1_2").bytes);
    Msg_MSEX_LSTA copy(source);
    EXPECT_EQ(fieldsOf(copy), fieldsOf(source));
    copy.Layers[0].MediaName = QString::fromLatin1("changed");
    EXPECT_EQ(source.Layers[0].MediaName, QString::fromLatin1("Rain"));

    Msg_MSEX_LSTA target;
    EXPECT_TRUE(target.valid && target.Layers.empty());
    target = source;
    EXPECT_EQ(target.size, 0u);
    EXPECT_TRUE(reference::same(target, source));
}

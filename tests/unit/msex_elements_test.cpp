// MEIn, EEIn and GLEI: golden messages of every MSEX version, held against the reference parser, and their odd cases.
// SPDX-License-Identifier: Apache-2.0
#include "msex_testing.h"

#include <citp/citp_msg_msex_elements.h>

using namespace CITP;

namespace {
golden::Fields fieldsOf(const Msg_MSEX_MEIN& m)
{
    golden::Collector fields = msex::headersOf(m);
    fields.add("LibraryId", m.LibraryId).add("Media.size", m.Media.size());
    std::size_t index = 0;
    for (const Msg_MSEX_MEIN::MediaInformation& medium : m.Media) {
        const std::string name = "Media[" + std::to_string(index++) + "].";
        fields.add(name + "Number", medium.Number)
            .add(name + "DMXRangeMin", medium.DMXRangeMin)
            .add(name + "DMXRangeMax", medium.DMXRangeMax)
            .add(name + "Name", medium.Name)
            .add(name + "Timestamp", medium.Timestamp)
            .add(name + "Width", medium.Width)
            .add(name + "Height", medium.Height)
            .add(name + "Length", medium.Length)
            .add(name + "FrameRate", medium.FrameRate)
            .add(name + "SerialNumber", medium.SerialNumber);
    }
    return fields.fields();
}

golden::Fields fieldsOf(const Msg_MSEX_EEIN& m)
{
    golden::Collector fields = msex::headersOf(m);
    fields.add("LibraryId", m.LibraryId).add("Effects.size", m.Effects.size());
    std::size_t index = 0;
    for (const Msg_MSEX_EEIN::EffectInformation& effect : m.Effects) {
        const std::string name = "Effects[" + std::to_string(index++) + "].";
        fields.add(name + "Number", effect.Number)
            .add(name + "DMXRangeMin", effect.DMXRangeMin)
            .add(name + "DMXRangeMax", effect.DMXRangeMax)
            .add(name + "EffectName", effect.EffectName)
            .addAll(name + "ParameterNames", effect.ParameterNames)
            .add(name + "SerialNumber", effect.SerialNumber);
    }
    return fields.fields();
}

golden::Fields fieldsOf(const Msg_MSEX_GLEI& m)
{
    golden::Collector fields = msex::headersOf(m);
    fields.add("Elements.size", m.Elements.size());
    std::size_t index = 0;
    for (const Msg_MSEX_GLEI::GenericInformation& element : m.Elements) {
        const std::string name = "Elements[" + std::to_string(index++) + "].";
        fields.add(name + "Number", element.Number)
            .add(name + "DMXRangeMin", element.DMXRangeMin)
            .add(name + "DMXRangeMax", element.DMXRangeMax)
            .add(name + "Name", element.Name)
            .add(name + "Timestamp", element.Timestamp)
            .add(name + "SerialNumber", element.SerialNumber);
    }
    return fields.add("LibraryId", m.LibraryId).add("LibraryType", m.LibraryType).fields();
}
} // namespace

TEST(MsexMein, GoldenVersion10)
{
    msex::replay<Msg_MSEX_MEIN>("mein_1_0", fieldsOf);
}

TEST(MsexMein, GoldenVersion11)
{
    msex::replay<Msg_MSEX_MEIN>("mein_1_1", fieldsOf);
}

TEST(MsexMein, GoldenVersion12)
{
    msex::replay<Msg_MSEX_MEIN>("mein_1_2", fieldsOf);
}

TEST(MsexMein, Version10HasALibraryNumberAndNoSerialNumbers)
{
    const Msg_MSEX_MEIN mein(
        msex::message(0, "MEIn", "03 01 01 00 09 4100 0000 0102030405060708 4001 f000 64000000 19"));
    EXPECT_EQ(mein.LibraryId, QString::fromLatin1("3"));
    ASSERT_EQ(mein.Media.size(), 1u);
    EXPECT_EQ(mein.Media[0].SerialNumber, 0u);
    EXPECT_EQ(mein.Media[0].Timestamp, 0x0807060504030201u);
    EXPECT_FALSE(msex::contains(golden::textOf(mein), " SerialNumber="));
}

TEST(MsexMein, ATimestampPrintsItsLow32Bits)
{
    const Msg_MSEX_MEIN mein(
        msex::message(1, "MEIn", "01000000 01 01 00 09 0000 0500000001000000 4001 f000 64000000 19"));
    ASSERT_EQ(mein.Media.size(), 1u);
    EXPECT_EQ(mein.Media[0].Timestamp, 0x100000005u);
    EXPECT_TRUE(msex::contains(golden::textOf(mein), " Timestamp=5 MediaWidth=320"));
}

TEST(MsexMein, AnUnknownVersionIsValidAndEmpty)
{
    const Msg_MSEX_MEIN mein(msex::message(3, "MEIn", "01000000 0100 01"));
    EXPECT_TRUE(mein.valid);
    EXPECT_TRUE(mein.LibraryId.isEmpty());
    EXPECT_TRUE(mein.Media.empty());
    EXPECT_EQ(golden::textOf(mein),
              "\"( rindex=0 size=33 content=MSEX ) ( MsexVersionMajor=1 MsexVersionMinor=3 Cookie=MEIn ) "
              " LibraryId=\\u000a\"");
}

TEST(MsexMein, AnInvalidHeaderDoesNotStopTheReading)
{
    const msex::QuietParsing quiet;
    const Msg_MSEX_MEIN mein(msex::message(0, "MEIn", "03 01 07") + 'x');
    EXPECT_FALSE(mein.valid);
    EXPECT_EQ(mein.LibraryId, QString::fromLatin1("3"));
    ASSERT_EQ(mein.Media.size(), 1u);
    EXPECT_EQ(mein.Media[0].Number, 7);
}

TEST(MsexMein, ALyingCountGivesThatManyEmptyRecords)
{
    const Msg_MSEX_MEIN mein(msex::message(2, "MEIn", "01000000 ffff 09"));
    ASSERT_EQ(mein.Media.size(), 65535u);
    EXPECT_EQ(mein.Media.front().Number, 9);
    EXPECT_EQ(mein.Media.back().Number, 0);
}

TEST(MsexMein, CopiesAreDeepAndAssignmentLeavesTheCitpHeaderAlone)
{
    const Msg_MSEX_MEIN source(golden::load("mein_1_2").bytes);
    Msg_MSEX_MEIN copy(source);
    EXPECT_EQ(fieldsOf(copy), fieldsOf(source));
    copy.Media[0].Name = QString::fromLatin1("changed");
    EXPECT_EQ(source.Media[0].Name, QString::fromLatin1("Fire"));

    Msg_MSEX_MEIN target;
    target = source;
    EXPECT_EQ(target.size, 0u);
    EXPECT_TRUE(reference::same(target, source));
}

TEST(MsexEein, GoldenVersion10)
{
    msex::replay<Msg_MSEX_EEIN>("eein_1_0", fieldsOf);
}

TEST(MsexEein, GoldenVersion11)
{
    msex::replay<Msg_MSEX_EEIN>("eein_1_1", fieldsOf);
}

TEST(MsexEein, GoldenVersion12)
{
    msex::replay<Msg_MSEX_EEIN>("eein_1_2", fieldsOf);
}

TEST(MsexEein, AnEffectWithoutParametersPrintsTheirNumberAndNoNames)
{
    const Msg_MSEX_EEIN eein(msex::message(0, "EEIn", "03 01 01 00 09 4100 0000 00"));
    ASSERT_EQ(eein.Effects.size(), 1u);
    EXPECT_TRUE(eein.Effects[0].ParameterNames.empty());
    EXPECT_TRUE(msex::contains(golden::textOf(eein), " #params=0\""));
    EXPECT_FALSE(msex::contains(golden::textOf(eein), "name="));
}

TEST(MsexEein, AnUnknownVersionIsInvalidAndEmpty)
{
    const Msg_MSEX_EEIN eein(msex::message(3, "EEIn", "01000000 0100 01"));
    EXPECT_FALSE(eein.valid);
    EXPECT_TRUE(eein.LibraryId.isEmpty());
    EXPECT_TRUE(eein.Effects.empty());
}

TEST(MsexEein, LyingCountsGiveThatManyEmptyRecordsAndNames)
{
    const Msg_MSEX_EEIN eein(msex::message(2, "EEIn", "01000000 ffff 01 00000000 00 00 0000 ff"));
    ASSERT_EQ(eein.Effects.size(), 65535u);
    EXPECT_EQ(eein.Effects.front().ParameterNames.size(), 255u);
    EXPECT_TRUE(eein.Effects.back().ParameterNames.empty());
}

TEST(MsexEein, CopiesAreDeep)
{
    const Msg_MSEX_EEIN source(golden::load("eein_1_0").bytes);
    Msg_MSEX_EEIN copy(source);
    copy.Effects[0].ParameterNames[0] = QString::fromLatin1("changed");
    EXPECT_EQ(source.Effects[0].ParameterNames[0], QString::fromLatin1("Radius"));
}

TEST(MsexGlei, GoldenVersion11)
{
    msex::replay<Msg_MSEX_GLEI>("glei_1_1", fieldsOf);
}

TEST(MsexGlei, GoldenVersion12)
{
    msex::replay<Msg_MSEX_GLEI>("glei_1_2", fieldsOf);
}

TEST(MsexGlei, Version10IsInvalid)
{
    const Msg_MSEX_GLEI glei(msex::message(0, "GLEI", "01 01 01 00 09 4100 0000 0100000000000000"));
    EXPECT_FALSE(glei.valid);
    EXPECT_TRUE(glei.LibraryId.isEmpty());
    EXPECT_TRUE(glei.Elements.empty());
}

TEST(MsexGlei, AnUnknownVersionIsInvalid)
{
    const Msg_MSEX_GLEI glei(msex::message(3, "GLEI", "01 01000000 0100"));
    EXPECT_FALSE(glei.valid);
    EXPECT_TRUE(glei.Elements.empty());
}

TEST(MsexGlei, AnEmptyListEndsWithItsCount)
{
    const Msg_MSEX_GLEI glei(msex::message(2, "GLEI", "08 01000000 0000"));
    EXPECT_TRUE(glei.valid);
    EXPECT_EQ(glei.LibraryType, 8);
    EXPECT_TRUE(msex::contains(golden::textOf(glei), " LibraryID=1,0,0,0 ELementCount=0\""));
}

TEST(MsexElements, DefaultConstructionIsValidAndEmpty)
{
    const Msg_MSEX_MEIN mein;
    const Msg_MSEX_EEIN eein;
    const Msg_MSEX_GLEI glei;
    EXPECT_TRUE(mein.valid && mein.LibraryId.isEmpty() && mein.Media.empty());
    EXPECT_TRUE(eein.valid && eein.LibraryId.isEmpty() && eein.Effects.empty());
    EXPECT_TRUE(glei.valid && glei.LibraryId.isEmpty() && glei.Elements.empty() && glei.LibraryType == 0);
}

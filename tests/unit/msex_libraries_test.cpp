// ELIn and ELUp: golden messages of every MSEX version, held against the reference parser, and their odd cases.
// SPDX-License-Identifier: Apache-2.0
#include "msex_testing.h"

#include <citp/citp_msg_msex_libraries.h>

using namespace CITP;

namespace {
golden::Fields fieldsOf(const Msg_MSEX_ELIN& m)
{
    golden::Collector fields = msex::headersOf(m);
    fields.add("LibraryType", m.LibraryType).add("Libraries.size", m.Libraries.size());
    std::size_t index = 0;
    for (const Msg_MSEX_ELIN::ElementLibraryInformation& library : m.Libraries) {
        const std::string name = "Libraries[" + std::to_string(index++) + "].";
        fields.add(name + "LIBID", library.LIBID)
            .add(name + "DMXRangeMin", library.DMXRangeMin)
            .add(name + "DMXRangeMax", library.DMXRangeMax)
            .add(name + "Name", library.Name)
            .add(name + "ElementCount", library.ElementCount)
            .add(name + "SubLibraryCount", library.SubLibraryCount)
            .add(name + "SerialNumber", library.SerialNumber);
    }
    return fields.fields();
}

golden::Fields fieldsOf(const Msg_MSEX_ELUP& m)
{
    return msex::headersOf(m)
        .add("LibraryId", m.LibraryId)
        .add("LibraryType", m.LibraryType)
        .add("UpdateFlags", m.UpdateFlags)
        .addAll("AffectedElements", m.AffectedElements)
        .addAll("AffectedLibraries", m.AffectedLibraries)
        .fields();
}
} // namespace

TEST(MsexElin, GoldenVersion10)
{
    msex::replay<Msg_MSEX_ELIN>("elin_1_0", fieldsOf);
}

TEST(MsexElin, GoldenVersion11)
{
    msex::replay<Msg_MSEX_ELIN>("elin_1_1", fieldsOf);
}

TEST(MsexElin, GoldenVersion12)
{
    msex::replay<Msg_MSEX_ELIN>("elin_1_2", fieldsOf);
}

TEST(MsexElin, Version10HasALibraryNumberAndNoSubLibraries)
{
    const Msg_MSEX_ELIN elin(msex::message(0, "ELIn", "01 01 07 00 ff 4100 0000 05"));
    ASSERT_EQ(elin.Libraries.size(), 1u);
    EXPECT_EQ(elin.Libraries[0].LIBID, QString::fromLatin1("7"));
    EXPECT_EQ(elin.Libraries[0].SubLibraryCount, 0);
    EXPECT_EQ(elin.Libraries[0].ElementCount, 5);
    EXPECT_FALSE(msex::contains(golden::textOf(elin), " SubLibraryCount="));
    EXPECT_FALSE(msex::contains(golden::textOf(elin), " SerialNumber="));
}

TEST(MsexElin, AnUnknownVersionIsValidAndEmpty)
{
    const Msg_MSEX_ELIN elin(msex::message(3, "ELIn", "05 01 07 00 ff 4100 0000 05"));
    EXPECT_TRUE(elin.valid);
    EXPECT_EQ(elin.LibraryType, 5);
    EXPECT_TRUE(elin.Libraries.empty());
}

TEST(MsexElin, AnInvalidHeaderStopsTheReading)
{
    const msex::QuietParsing quiet;
    const Msg_MSEX_ELIN elin(msex::message(0, "ELIn", "01 01 07 00 ff 4100 0000 05") + 'x');
    EXPECT_FALSE(elin.valid);
    EXPECT_EQ(elin.LibraryType, 0);
    EXPECT_TRUE(elin.Libraries.empty());
}

TEST(MsexElin, ACountOf0ReadsNoRecords)
{
    EXPECT_TRUE(Msg_MSEX_ELIN(msex::message(2, "ELIn", "01 0000 01020304")).Libraries.empty());
}

TEST(MsexElin, ALyingCountGivesThatManyEmptyRecords)
{
    const Msg_MSEX_ELIN elin(msex::message(2, "ELIn", "01 ffff"));
    EXPECT_TRUE(elin.valid);
    ASSERT_EQ(elin.Libraries.size(), 65535u);
    EXPECT_EQ(elin.Libraries.back().LIBID, QString::fromLatin1("0,0,0,0"));
    EXPECT_TRUE(elin.Libraries.back().Name.isEmpty());
    EXPECT_EQ(Msg_MSEX_ELIN(msex::message(0, "ELIn", "01 ff")).Libraries.size(), 255u);
}

TEST(MsexElin, ANameWithoutTerminatorEndsWithTheMessage)
{
    const Msg_MSEX_ELIN elin(msex::message(1, "ELIn", "01 01 01000000 00 ff 4100 4200 43"));
    ASSERT_EQ(elin.Libraries.size(), 1u);
    EXPECT_EQ(elin.Libraries[0].Name, QString::fromLatin1("AB"));
    // The odd byte that is no whole character is left to the next field.
    EXPECT_EQ(elin.Libraries[0].SubLibraryCount, 0x43);
    EXPECT_EQ(elin.Libraries[0].ElementCount, 0);
}

TEST(MsexElin, DefaultConstructionIsValidAndEmpty)
{
    const Msg_MSEX_ELIN elin;
    EXPECT_TRUE(elin.valid);
    EXPECT_TRUE(elin.Libraries.empty());
    EXPECT_EQ(elin.LibraryType, 0);
}

TEST(MsexElin, AssignmentLeavesTheCitpHeaderOfTheTargetAlone)
{
    const Msg_MSEX_ELIN source(golden::load("elin_1_1").bytes);
    Msg_MSEX_ELIN target;
    target = source;
    EXPECT_EQ(target.requestIndex, 0);
    EXPECT_EQ(target.size, 0u);
    EXPECT_TRUE(reference::same(target, source));
    EXPECT_EQ(fieldsOf(Msg_MSEX_ELIN(source)), fieldsOf(source));
}

TEST(MsexElup, GoldenVersion10)
{
    msex::replay<Msg_MSEX_ELUP>("elup_1_0", fieldsOf);
}

TEST(MsexElup, GoldenVersion11)
{
    msex::replay<Msg_MSEX_ELUP>("elup_1_1", fieldsOf);
}

TEST(MsexElup, GoldenVersion12)
{
    msex::replay<Msg_MSEX_ELUP>("elup_1_2", fieldsOf);
}

TEST(MsexElup, Version12ReportsExactlyTheElementsWhoseBitsAreSet)
{
    const QByteArray body = "01 01000000 00 05" + QByteArray(60, '0') + "80" + QByteArray(64, '0');
    const Msg_MSEX_ELUP elup(msex::message(2, "ELUp", body.constData()));
    for (unsigned number = 0; number < 256; ++number) {
        EXPECT_EQ(elup.GetElementChanged(static_cast<unsigned char>(number)),
                  number == 0 || number == 2 || number == 255)
            << number;
        EXPECT_FALSE(elup.GetSublibraryChanged(static_cast<unsigned char>(number))) << number;
    }
    EXPECT_TRUE(msex::contains(golden::textOf(elup), "\\u000aElements changed: 0 2 255\\u000aSublibraries changed:\""));
}

TEST(MsexElup, SubLibrariesHaveBitsOfTheirOwn)
{
    const Msg_MSEX_ELUP elup(golden::load("elup_1_2").bytes);
    for (unsigned number = 0; number < 256; ++number)
        EXPECT_EQ(elup.GetSublibraryChanged(static_cast<unsigned char>(number)), number == 8 || number == 135)
            << number;
}

TEST(MsexElup, Version11ReportsNoElementWhateverItsFlags)
{
    const Msg_MSEX_ELUP elup(msex::message(1, "ELUp", ("01 01000000 ff" + QByteArray(128, 'f')).constData()));
    EXPECT_EQ(elup.UpdateFlags, 0xff);
    for (unsigned number = 0; number < 256; ++number) {
        EXPECT_FALSE(elup.GetElementChanged(static_cast<unsigned char>(number))) << number;
        EXPECT_FALSE(elup.GetSublibraryChanged(static_cast<unsigned char>(number))) << number;
    }
    EXPECT_FALSE(msex::contains(golden::textOf(elup), "changed:"));
    EXPECT_FALSE(msex::contains(golden::textOf(elup), "affected"));
}

TEST(MsexElup, Version12WithAllFlagsPrintsTheirSixTextsInOrder)
{
    const Msg_MSEX_ELUP elup(msex::message(2, "ELUp", "01 01000000 3f"));
    EXPECT_TRUE(msex::contains(golden::textOf(elup),
                               " GetLibraryId=1,0,0,0 GetLibraryType=1\\u000aexisting elements updated"
                               "\\u000aelements added or removed\\u000asub libraries updated"
                               "\\u000asub libraries added or removed\\u000aall elements affected"
                               "\\u000aall sub libs affected\\u000aElements changed:\\u000aSublibraries changed:\""));
}

TEST(MsexElup, AnUnknownVersionIsInvalidAndHasTheTypeAlone)
{
    const Msg_MSEX_ELUP elup(msex::message(3, "ELUp", "07 01000000 3f"));
    EXPECT_FALSE(elup.valid);
    EXPECT_EQ(elup.LibraryType, 7);
    EXPECT_TRUE(elup.LibraryId.isEmpty());
    EXPECT_EQ(elup.UpdateFlags, 0);
}

TEST(MsexElup, AnInvalidHeaderDoesNotStopTheReading)
{
    const msex::QuietParsing quiet;
    const Msg_MSEX_ELUP elup(msex::message(0, "ELUp", "07 09 01") + 'x');
    EXPECT_FALSE(elup.valid);
    EXPECT_EQ(elup.LibraryType, 7);
    EXPECT_EQ(elup.LibraryId, QString::fromLatin1("9"));
    EXPECT_EQ(elup.UpdateFlags, 1);
}

TEST(MsexElup, AMessageWithoutMsexHeaderCountsAsVersion10)
{
    const Msg_MSEX_ELUP elup(golden::withTrueSize(msex::message(3, "ELUp", "").left(25)));
    EXPECT_TRUE(elup.valid);
    EXPECT_EQ(elup.LibraryId, QString::fromLatin1("0"));
}

TEST(MsexElup, DefaultConstructionIsValidAndReportsNoChange)
{
    const Msg_MSEX_ELUP elup;
    EXPECT_TRUE(elup.valid);
    EXPECT_FALSE(elup.GetElementChanged(0));
    EXPECT_EQ(elup.AffectedElements, (std::array<unsigned char, 32>{}));
    EXPECT_EQ(elup.AffectedLibraries, (std::array<unsigned char, 32>{}));
}

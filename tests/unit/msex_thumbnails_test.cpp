// ELTh and EThn: golden messages of every MSEX version, held against the reference parser, and their failures.
// SPDX-License-Identifier: Apache-2.0
#include "log_capture.h"
#include "msex_testing.h"

#include <citp/citp_msg_msex_thumbnails.h>

using namespace CITP;

namespace {
golden::Collector collect(const Msg_MSEX_Thumbnail_Response_Base& m)
{
    return msex::headersOf(m)
        .add("LibraryType", m.LibraryType)
        .add("LibraryId", m.LibraryId)
        .add("ThumbnailHeight", m.ThumbnailHeight)
        .add("ThumbnailWidth", m.ThumbnailWidth)
        .add("ThumbnailFormat", m.ThumbnailFormat)
        .add("ThumbnailBuffer", QString::fromLatin1(m.ThumbnailBuffer.constData(), m.ThumbnailBuffer.size()));
}

golden::Fields fieldsOf(const Msg_MSEX_ELTH& m)
{
    return collect(m).fields();
}

golden::Fields fieldsOf(const Msg_MSEX_ETHN& m)
{
    return collect(m).add("ElementNumber", m.ElementNumber).fields();
}
} // namespace

TEST(MsexElth, GoldenVersion10)
{
    msex::replay<Msg_MSEX_ELTH>("elth_1_0", fieldsOf);
}

TEST(MsexElth, GoldenVersion11)
{
    msex::replay<Msg_MSEX_ELTH>("elth_1_1", fieldsOf);
}

TEST(MsexElth, GoldenVersion12)
{
    msex::replay<Msg_MSEX_ELTH>("elth_1_2", fieldsOf);
}

TEST(MsexElth, APictureThatFillsTheMessageIsTakenWhole)
{
    const Msg_MSEX_ELTH elth(msex::message(0, "ELTh", "01 04 4a504547 a000 7800 0400 ffd8ffd9"));
    EXPECT_EQ(elth.ThumbnailBuffer, QByteArray::fromHex("ffd8ffd9"));
}

TEST(MsexElth, APictureThatIsCutByOneByteIsNotStoredAndTheMessageStaysValid)
{
    const Msg_MSEX_ELTH elth(msex::message(0, "ELTh", "01 04 4a504547 a000 7800 0500 ffd8ffd9"));
    EXPECT_TRUE(elth.valid);
    EXPECT_EQ(elth.LibraryType, 1);
    EXPECT_EQ(elth.LibraryId, QString::fromLatin1("4"));
    EXPECT_EQ(elth.ThumbnailFormat, QString::fromLatin1("JPEG"));
    EXPECT_EQ(elth.ThumbnailWidth, 160);
    EXPECT_EQ(elth.ThumbnailHeight, 120);
    EXPECT_TRUE(elth.ThumbnailBuffer.isEmpty());
}

TEST(MsexElth, ASizeOf0GivesAnEmptyPicture)
{
    const Msg_MSEX_ELTH elth(msex::message(2, "ELTh", "01 01000000 52474238 0000 0000 0000"));
    EXPECT_TRUE(elth.valid);
    EXPECT_TRUE(elth.ThumbnailBuffer.isEmpty());
    EXPECT_TRUE(msex::contains(golden::textOf(elth), " ThumbnailFormat=RGB8 size=0\""));
}

TEST(MsexElth, BytesBehindThePictureAreIgnored)
{
    const Msg_MSEX_ELTH elth(msex::message(0, "ELTh", "01 04 4a504547 a000 7800 0100 ffd8ffd9"));
    EXPECT_EQ(elth.ThumbnailBuffer, QByteArray::fromHex("ff"));
}

TEST(MsexElth, AnInvalidHeaderStopsTheReading)
{
    const msex::QuietParsing quiet;
    const Msg_MSEX_ELTH elth(msex::message(0, "ELTh", "01 04 4a504547 a000 7800 0100 ff") + 'x');
    EXPECT_FALSE(elth.valid);
    EXPECT_EQ(elth.LibraryType, 0);
    EXPECT_TRUE(elth.LibraryId.isEmpty());
}

TEST(MsexEthn, GoldenVersion10)
{
    msex::replay<Msg_MSEX_ETHN>("ethn_1_0", fieldsOf);
}

TEST(MsexEthn, GoldenVersion11)
{
    msex::replay<Msg_MSEX_ETHN>("ethn_1_1", fieldsOf);
}

TEST(MsexEthn, GoldenVersion12)
{
    msex::replay<Msg_MSEX_ETHN>("ethn_1_2", fieldsOf);
}

TEST(MsexEthn, Version10PrintsItsLibraryAndElement)
{
    const Msg_MSEX_ETHN ethn(msex::message(0, "EThn", "01 04 09 4a504547 a000 7800 0100 ff"));
    EXPECT_TRUE(msex::contains(golden::textOf(ethn), " LibraryId=4 ThumbnailHeight=120 GetThumbnailWidth=160 "));
    EXPECT_TRUE(msex::contains(golden::textOf(ethn), " size=1 ElementNumber=9\""));
}

TEST(MsexEthn, APictureThatIsCutByOneByteIsNotStoredAndTheMessageStaysValid)
{
    const Msg_MSEX_ETHN ethn(msex::message(1, "EThn", "01 04030201 09 504e4720 a000 7800 ffff ff"));
    EXPECT_TRUE(ethn.valid);
    EXPECT_EQ(ethn.LibraryId, QString::fromLatin1("4,3,2,1"));
    EXPECT_EQ(ethn.ElementNumber, 9);
    EXPECT_EQ(ethn.ThumbnailFormat, QString::fromLatin1("PNG "));
    EXPECT_EQ(ethn.ThumbnailWidth, 160);
    EXPECT_EQ(ethn.ThumbnailHeight, 120);
    EXPECT_TRUE(ethn.ThumbnailBuffer.isEmpty());
}

TEST(MsexThumbnails, AnUnknownVersionIsSilentValidAndEmpty)
{
    const char body[] = "01 04000000 09 4a504547 a000 7800 0100 ff";
    LogCapture log;
    const Msg_MSEX_ELTH elth(msex::message(3, "ELTh", body));
    const Msg_MSEX_ETHN ethn(msex::message(3, "EThn", body));
    EXPECT_TRUE(log.entries().empty());

    EXPECT_TRUE(elth.valid);
    EXPECT_EQ(elth.LibraryType, 0);
    EXPECT_TRUE(elth.LibraryId.isEmpty() && elth.ThumbnailFormat.isEmpty() && elth.ThumbnailBuffer.isEmpty());
    EXPECT_TRUE(ethn.valid);
    // The element's thumbnail has its library type before the fields that depend on the version.
    EXPECT_EQ(ethn.LibraryType, 1);
    EXPECT_TRUE(ethn.LibraryId.isEmpty() && ethn.ThumbnailFormat.isEmpty() && ethn.ThumbnailBuffer.isEmpty());
    EXPECT_EQ(ethn.ElementNumber, 0);

    // A line would have been seen: a bad header gives one.
    const Msg_MSEX_ELTH bad(QByteArray("CITX"));
    EXPECT_FALSE(bad.valid);
    EXPECT_EQ(log.entries().size(), 1u);
}

TEST(MsexThumbnails, ATooLongPictureIsSilent)
{
    LogCapture log;
    const Msg_MSEX_ELTH elth(msex::message(0, "ELTh", "01 04 4a504547 a000 7800 0500 ffd8ffd9"));
    const Msg_MSEX_ETHN ethn(msex::message(0, "EThn", "01 04 09 4a504547 a000 7800 0500 ffd8ffd9"));
    EXPECT_TRUE(elth.valid && ethn.valid);
    EXPECT_TRUE(log.entries().empty());
}

TEST(MsexThumbnails, TheBaseReadsTheHeadersAlone)
{
    const Msg_MSEX_Thumbnail_Response_Base base(golden::load("ethn_1_1").bytes);
    EXPECT_TRUE(base.valid);
    EXPECT_EQ(base.versionMinor, 1);
    EXPECT_EQ(base.LibraryType, 0);
    EXPECT_TRUE(msex::contains(golden::textOf(base), "Cookie=EThn ) LibraryType=0 LibraryId= ThumbnailHeight=0 "));
}

TEST(MsexThumbnails, CopyTakesAllAndAssignmentLeavesTheCitpHeaderAlone)
{
    const Msg_MSEX_ETHN source(golden::load("ethn_1_1").bytes);
    EXPECT_EQ(fieldsOf(Msg_MSEX_ETHN(source)), fieldsOf(source));

    Msg_MSEX_ETHN target;
    EXPECT_TRUE(target.valid && target.ThumbnailBuffer.isEmpty() && target.ElementNumber == 0);
    target = source;
    EXPECT_EQ(target.size, 0u);
    EXPECT_TRUE(reference::same(target, source));

    const Msg_MSEX_ELTH library(golden::load("elth_1_2").bytes);
    Msg_MSEX_ELTH libraryTarget;
    libraryTarget = library;
    EXPECT_TRUE(reference::same(libraryTarget, library));
}

// The field codecs: texts, integers, library identifiers, graphic formats and dumps at the edges of their buffers.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_codecs.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <random>

namespace {
using CITP::fromGraphicFormat;
using CITP::fromLibraryFormat;
using CITP::get8bitunicode;
using CITP::getShort;
using CITP::getUCS2;
using CITP::hexDump;

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}

/// The text made of exactly these UTF-16 units.
QString units(std::initializer_list<char16_t> list)
{
    QString text;
    for (const char16_t unit : list)
        text.append(QChar(unit));
    return text;
}

struct Ucs2
{
    QString text;
    int consumed;
};

Ucs2 ucs2(const QByteArray& data, unsigned int offset)
{
    Ucs2 result{QStringLiteral("left over from before"), -1};
    result.consumed = getUCS2(result.text, data, offset);
    return result;
}

/// The dump as its layout is described, character by character with printf, to hold the fast one against.
std::string plainDump(const QByteArray& data)
{
    std::string result;
    std::string column;
    char piece[32];
    for (int index = 0; index < data.size(); ++index) {
        if (index % 16 == 0) {
            std::snprintf(piece, sizeof piece, "%010d  ", index);
            result += piece;
        }
        const auto byte = static_cast<unsigned char>(data[index]);
        std::snprintf(piece, sizeof piece, "%2.2x ", static_cast<unsigned>(byte));
        result += piece;
        column += byte < 0x80 && std::isprint(byte) ? data[index] : '.';
        if (index % 16 == 15) {
            result += column + '\n';
            column.clear();
        }
    }
    for (auto missing = (16 - data.size() % 16) % 16; missing > 0; --missing)
        result += "   ";
    return result + column;
}

TEST(GetUcs2, DropsALeadingByteOrderMarkButCountsIt)
{
    const Ucs2 result = ucs2(bytes("fffe 4100 0000"), 0);
    EXPECT_EQ(result.text, QStringLiteral("A"));
    EXPECT_EQ(result.consumed, 6);
}

TEST(GetUcs2, EndsAtTheLastWholeUnitWithoutATerminator)
{
    const Ucs2 result = ucs2(bytes("4100 42"), 0);
    EXPECT_EQ(result.text, QStringLiteral("A"));
    EXPECT_EQ(result.consumed, 2);
}

TEST(GetUcs2, KeepsTheLastUnitOfABufferWithoutATerminator)
{
    const Ucs2 result = ucs2(bytes("4100 4200"), 0);
    EXPECT_EQ(result.text, QStringLiteral("AB"));
    EXPECT_EQ(result.consumed, 4);
}

TEST(GetUcs2, IsEmptyAtTheLastByteAndBeyond)
{
    const QByteArray data = bytes("4100 4200");
    for (const unsigned int offset : {3u, 4u, 5u, 1000u, 0x7fffffffu, 0x80000000u}) {
        SCOPED_TRACE(offset);
        const Ucs2 result = ucs2(data, offset);
        EXPECT_TRUE(result.text.isEmpty());
        EXPECT_EQ(result.consumed, 0);
    }
}

TEST(GetUcs2, DoesNotWrapAroundAtOffsetsNearTheEndOfTheRange)
{
    const QByteArray data = bytes("4100 4200 0000");
    for (unsigned int below = 1; below <= 8; ++below) {
        SCOPED_TRACE(below);
        const Ucs2 result = ucs2(data, 0u - below);
        EXPECT_TRUE(result.text.isEmpty());
        EXPECT_EQ(result.consumed, 0);
    }
}

TEST(GetUcs2, ConsumesTheTerminatorOfAnEmptyText)
{
    const Ucs2 result = ucs2(bytes("0000 4100"), 0);
    EXPECT_TRUE(result.text.isEmpty());
    EXPECT_EQ(result.consumed, 2);
}

TEST(GetUcs2, KeepsByteOrderMarksBehindTheFirstUnit)
{
    const Ucs2 result = ucs2(bytes("fffe fffe 4100 fffe 0000"), 0);
    EXPECT_EQ(result.text, units({0xfeff, 'A', 0xfeff}));
    EXPECT_EQ(result.consumed, 10);
}

TEST(GetUcs2, DoesNotSwapTextBehindASwappedByteOrderMark)
{
    const Ucs2 result = ucs2(bytes("feff 0041 0000"), 0);
    EXPECT_EQ(result.text, units({0xfffe, 0x4100}));
    EXPECT_EQ(result.consumed, 6);
}

TEST(GetUcs2, KeepsLoneSurrogates)
{
    const Ucs2 result = ucs2(bytes("00dc 4100 00d8 0000"), 0);
    EXPECT_EQ(result.text, units({0xdc00, 'A', 0xd800}));
    EXPECT_EQ(result.consumed, 8);
}

TEST(GetUcs2, ReadsAtAnOddOffset)
{
    const Ucs2 result = ucs2(bytes("ee e900 ac20 0000"), 1);
    EXPECT_EQ(result.text, units({0xe9, 0x20ac}));
    EXPECT_EQ(result.consumed, 6);
}

TEST(GetShort, IsZeroAtTheLastByte)
{
    const QByteArray data = bytes("11 22 33");
    EXPECT_EQ(getShort(data, 1), 0x3322);
    EXPECT_EQ(getShort(data, 2), 0);
    EXPECT_EQ(getShort(data, 3), 0);
    EXPECT_EQ(getShort(QByteArray(), 0), 0);
}

TEST(GetShort, DoesNotWrapAroundAtOffsetsNearTheEndOfTheRange)
{
    EXPECT_EQ(getShort(bytes("11 22 33"), 0xffffffffu), 0);
    EXPECT_EQ(getShort(bytes("11 22 33"), 0xfffffffeu), 0);
}

TEST(GetShort, ReadsLittleEndianWithoutASign)
{
    EXPECT_EQ(getShort(bytes("feff"), 0), 0xfffe);
}

TEST(Get8bitunicode, IsEmptyAtTheEndOfTheBufferAndBeyond)
{
    const QByteArray data("abc");
    EXPECT_TRUE(get8bitunicode(data, 3).isEmpty());
    EXPECT_TRUE(get8bitunicode(data, 4).isEmpty());
    EXPECT_TRUE(get8bitunicode(data, 0xffffffffu).isEmpty());
    EXPECT_TRUE(get8bitunicode(QByteArray(), 0).isEmpty());
}

TEST(Get8bitunicode, StopsBeforeTheFirstZeroByteOrAtTheEnd)
{
    EXPECT_EQ(get8bitunicode(bytes("4142 00 43"), 0), QStringLiteral("AB"));
    EXPECT_EQ(get8bitunicode(bytes("4142 00 43"), 3), QStringLiteral("C"));
    EXPECT_TRUE(get8bitunicode(bytes("4142 00 43"), 2).isEmpty());
}

TEST(Get8bitunicode, MakesOneLatin1CharacterOfEachByte)
{
    EXPECT_EQ(get8bitunicode(bytes("c3a9 80 ff"), 0), units({0xc3, 0xa9, 0x80, 0xff}));
}

TEST(AddToStr, AppendsTheLabelAndTheValueAndReturnsTheText)
{
    QString text = QStringLiteral("x");
    EXPECT_EQ(&CITP::addToStr(text, " a=", QStringLiteral("b")), &text);
    EXPECT_EQ(&CITP::addToStr(text, " n=", 4294967295u), &text);
    EXPECT_EQ(text, QStringLiteral("x a=b n=4294967295"));
}

TEST(FromLibraryFormat, TakesANumberWithoutACommaAsItStands)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("5")), 5u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("67305985")), 0x04030201u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("4294967295")), 0xffffffffu);
}

TEST(FromLibraryFormat, IsZeroForTextThatIsNoNumber)
{
    EXPECT_EQ(fromLibraryFormat(QString()), 0u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("x")), 0u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("5x")), 0u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("-1")), 0u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("4294967296")), 0u);
}

TEST(FromLibraryFormat, PutsTheFirstLevelInTheLowestByte)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("1,2,3,4")), 0x04030201u);
}

TEST(FromLibraryFormat, SkipsEmptyFields)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("1,,2")), 0x00000201u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral(",,1,2,")), 0x00000201u);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral(",")), 0u);
}

TEST(FromLibraryFormat, CutsEachFieldToEightBits)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("300,1")), 0x0000012cu);
    // 2^64 + 5: the low bits count, however long the number.
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("18446744073709551621,1")), 0x00000105u);
}

TEST(FromLibraryFormat, ReadsTheSignAndTheLeadingDigitsOfAField)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("-1,+2,3x,x4")), 0x000302ffu);
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("-,1")), 0x00000100u);
}

TEST(FromLibraryFormat, PassesTheBlanksOfAsciiAndNoOthers)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral(" \t\n\v\f\r5, 6,\r-1")), 0x00ff0605u);
    EXPECT_EQ(fromLibraryFormat(units({0x2003, '5', ',', 0xa0, '6', ',', 0x85, '7', ',', '\b', '8'})), 0u);
    EXPECT_EQ(fromLibraryFormat(units({0x0e, '5', ',', '1'})), 0x00000100u);
}

TEST(FromLibraryFormat, IgnoresFieldsBeyondTheFourth)
{
    EXPECT_EQ(fromLibraryFormat(QStringLiteral("1,2,3,4,5,6")), 0x04030201u);
}

TEST(FromLibraryFormat, WritesEveryLevelAsPrintfDoes)
{
    for (unsigned level = 0; level < 256; ++level)
        for (unsigned position = 0; position < 4; ++position) {
            // The neighbours are of three digits, of two and of one.
            const unsigned id = (0x07c80c07u & ~(0xffu << (8 * position))) | level << (8 * position);
            QString text;
            EXPECT_EQ(fromLibraryFormat(text, id),
                      QString::asprintf("%u,%u,%u,%u", id & 0xff, id >> 8 & 0xff, id >> 16 & 0xff, id >> 24));
        }
}

TEST(FromLibraryFormat, WritesFourNumbersTheLowestByteFirst)
{
    QString text = QStringLiteral("left over from before");
    EXPECT_EQ(&fromLibraryFormat(text, 0x04030201u), &text);
    EXPECT_EQ(text, QStringLiteral("1,2,3,4"));
    EXPECT_EQ(fromLibraryFormat(text, 0u), QStringLiteral("0,0,0,0"));
    EXPECT_EQ(fromLibraryFormat(text, 0xffffffffu), QStringLiteral("255,255,255,255"));
}

TEST(FromGraphicFormat, GoesByTheFirstLetterAlone)
{
    QString text;
    for (const char* name : {"rgb", "RGB8", "r", "Raw"})
        EXPECT_EQ(fromGraphicFormat(text, fromGraphicFormat(QString::fromLatin1(name))), QStringLiteral("RGB8"))
            << name;
    for (const char* name : {"png", "Pixmap", "p", "PNG "})
        EXPECT_EQ(fromGraphicFormat(text, fromGraphicFormat(QString::fromLatin1(name))), QStringLiteral("PNG "))
            << name;
    for (const char* name : {"", "jpeg", " png", "xrp"})
        EXPECT_EQ(fromGraphicFormat(text, fromGraphicFormat(QString::fromLatin1(name))), QStringLiteral("JPEG"))
            << name;
}

TEST(FromGraphicFormat, PutsTheFirstCharacterInTheLowestByte)
{
    EXPECT_EQ(fromGraphicFormat(QStringLiteral("rgb")), 0x38424752u);
    EXPECT_EQ(fromGraphicFormat(QString()), 0x4745504au);
    EXPECT_EQ(fromGraphicFormat(QStringLiteral("png")), 0x20474e50u);
}

TEST(FromGraphicFormat, WritesFourCharactersWithTheTrailingBlank)
{
    QString text = QStringLiteral("left over from before");
    EXPECT_EQ(&fromGraphicFormat(text, 0x20474e50u), &text);
    EXPECT_EQ(text, QStringLiteral("PNG "));
    EXPECT_EQ(fromGraphicFormat(text, 0xff0041e9u), units({0xe9, 'A', 0, 0xff}));
}

TEST(HexDump, FillsUpAPartialLine)
{
    EXPECT_EQ(hexDump(bytes("43490a")),
              QStringLiteral("0000000000  43 49 0a ") + QString(39, QLatin1Char(' ')) + QStringLiteral("CI."));
}

TEST(HexDump, IsEmptyForAnEmptyBuffer)
{
    EXPECT_TRUE(hexDump(QByteArray()).isEmpty());
}

TEST(HexDump, EndsEachFullLineWithANewline)
{
    EXPECT_EQ(hexDump(QByteArray(32, 'A')),
              QStringLiteral("0000000000  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 AAAAAAAAAAAAAAAA\n"
                             "0000000016  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 AAAAAAAAAAAAAAAA\n"));
}

TEST(HexDump, ShowsADotForEveryByteThatIsNotPrintable)
{
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all.append(static_cast<char>(byte));
    EXPECT_EQ(hexDump(all).toStdString(), plainDump(all));
}

TEST(HexDump, GivesThePlainLayoutForEveryLength)
{
    std::mt19937 random(1);
    QByteArray data;
    for (int length = 0; length < 300; ++length) {
        ASSERT_EQ(hexDump(data).toStdString(), plainDump(data)) << length;
        data.append(static_cast<char>(random() & 0xff));
    }
}

TEST(LogContext, IsOneRootCalledCitpWithoutTraffic)
{
    EXPECT_EQ(&CITP::CITPLogContext(), &CITP::CITPLogContext());
    EXPECT_EQ(CITP::CITPLogContext().GetName(), "CITP");
    EXPECT_FALSE(CITP::CITPLogContext().IsEnabled(Os::Log::Traffic));
    for (const unsigned level : {2u, 4u, 8u, 16u})
        EXPECT_TRUE(CITP::CITPLogContext().IsEnabled(level)) << level;
}
} // namespace

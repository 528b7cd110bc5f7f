// Tables of citp-console: the width of characters on a terminal, and cells of any length.
// SPDX-License-Identifier: Apache-2.0
#include "table.h"

#include <gtest/gtest.h>

#include "terminal.h"

using namespace Console;

namespace {
QString utf8(const char* text)
{
    return QString::fromUtf8(text);
}
} // namespace

TEST(Terminal, CountsTheColumnsOfWideCharactersAndMarks)
{
    EXPECT_EQ(columnsOf(""), 0);
    EXPECT_EQ(columnsOf(utf8("Bühne 3")), 7);
    EXPECT_EQ(columnsOf(utf8("舞台")), 4);
    EXPECT_EQ(columnsOf(utf8("\xF0\x9F\x8E\xAD")), 2);
    EXPECT_EQ(columnsOf(utf8("u\xCC\x88")), 1);
}

TEST(Terminal, ClipsToColumns)
{
    EXPECT_EQ(clipped("abcdef", 6).toStdString(), "abcdef");
    EXPECT_EQ(clipped("abcdefg", 6).toStdString(), "abcde…");
    EXPECT_EQ(clipped(utf8("舞台舞台"), 6).toStdString(), "舞台…");
    // Marks need no column, but a name of marks only must not go on for ever.
    EXPECT_LE(clipped("a" + QString(100000, QChar(0x0308)), 10).size(), 41);
}

TEST(Terminal, PadsToColumns)
{
    EXPECT_EQ(padded(utf8("舞台"), 6).toStdString(), "舞台  ");
    EXPECT_EQ(padded("7", 3, true).toStdString(), "  7");
    EXPECT_EQ(padded("1234", 3).toStdString(), "1234");
}

TEST(Table, AlignsColumnsByWhatTheTerminalShows)
{
    Table table({"NAME", " #", "MORE"});
    table.add({utf8("舞台"), "1", "x"});
    table.add({"Stage", "22", "y"});
    EXPECT_EQ(table.lines().join('|').toStdString(), "NAME    #  MORE|舞台    1  x|Stage  22  y");
}

TEST(Table, CutsCellsThatAreWiderThanAnyTerminal)
{
    Table table({"NAME", "MAKE"});
    table.add({QString(1000000, 'n'), QString(1000000, 'm')});
    table.add({"short", "short"});
    const QStringList lines = table.lines();
    EXPECT_EQ(lines.at(1).size(), 256 + 2 + 256);
    EXPECT_EQ(lines.at(2).size(), 256 + 2 + 5);
}

// escapeControls(): nothing that comes from the network may reach a terminal as anything but text.
// SPDX-License-Identifier: Apache-2.0
#include "printing.h"

#include <gtest/gtest.h>

using Console::escapeControls;

namespace {
std::string shown(const QString& text)
{
    return escapeControls(text).toStdString();
}
} // namespace

TEST(Harmless, LeavesOrdinaryTextAlone)
{
    const QString text = QString::fromUtf8("Bühne 3 \"links\" – 舞台 \xF0\x9F\x8E\xAD \\o/");
    EXPECT_EQ(escapeControls(text), text);
    EXPECT_EQ(escapeControls(QString()), QString());
}

TEST(Harmless, EscapesEveryControlCharacter)
{
    EXPECT_EQ(shown("\x1b[2Jname"), "\\u001b[2Jname");
    EXPECT_EQ(shown("one\r\ntwo\t"), "one\\u000d\\u000atwo\\u0009");
    EXPECT_EQ(shown(QString(QChar(0))), "\\u0000");
    for (ushort unit = 0; unit < 0x20; ++unit)
        EXPECT_EQ(escapeControls(QString(QChar(unit))).size(), 6) << unit;
    for (ushort unit = 0x7f; unit < 0xa0; ++unit)
        EXPECT_EQ(escapeControls(QString(QChar(unit))).size(), 6) << unit;
}

TEST(Harmless, EscapesWhatReordersOrBreaksLines)
{
    for (const int unit : {0x200e, 0x200f, 0x202a, 0x202b, 0x202c, 0x202d, 0x202e, 0x2066, 0x2067, 0x2068, 0x2069,
                           0x2028, 0x2029, 0x061c, 0xfeff})
        EXPECT_EQ(escapeControls(QString(QChar(unit))), QString("\\u%1").arg(unit, 4, 16, QChar('0'))) << unit;
}

TEST(Harmless, EscapesLoneSurrogatesAndHarmfulPairs)
{
    EXPECT_EQ(shown(QString(QChar(0xd83c)) + "x"), "\\ud83cx");
    EXPECT_EQ(shown(QString("x") + QChar(0xdfad)), "x\\udfad");
    const uint invisibleTag = 0xe0041;
    EXPECT_EQ(shown(QString(QChar(QChar::highSurrogate(invisibleTag))) + QChar(QChar::lowSurrogate(invisibleTag))),
              "\\udb40\\udc41");
}

// The identifiers of libraries in their forms, and the bounds of what servers send.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/values.h>

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>

#include <gtest/gtest.h>

using namespace CITP;

namespace {
std::string form(const char* id, int minor)
{
    return libraryId(QLatin1String(id), static_cast<quint8>(minor)).toStdString();
}
} // namespace

TEST(LibraryId, HasTheFormOfTheServer)
{
    EXPECT_EQ(form("7", 0), "7");
    EXPECT_EQ(form("7", 1), "1,7,0,0");
    EXPECT_EQ(form("1,7,0,0", 0), "7");
    EXPECT_EQ(form("1,7", 2), "1,7,0,0");
    EXPECT_EQ(form("0,0,0,0", 0), "0,0,0,0");
    EXPECT_EQ(form("3,1,2,3", 2), "3,1,2,3");
}

TEST(LibraryId, IsEmptyIfTheVersionHasNone)
{
    EXPECT_EQ(form("2,1,1,0", 0), "");
    EXPECT_EQ(form("256", 0), "");
    EXPECT_EQ(form("x", 2), "");
    EXPECT_EQ(form("", 2), "");
    EXPECT_EQ(form("4,1,1,1", 2), "");
}

TEST(LibraryId, HasAParentAndANumber)
{
    const auto parent = [](const char* id) { return parentLibrary(QLatin1String(id)).toStdString(); };
    EXPECT_EQ(parent("3,1,2,3"), "2,1,2,0");
    EXPECT_EQ(parent("2,1,2,9"), "1,1,0,0");
    EXPECT_EQ(parent("1,5,0,0"), "0,0,0,0");
    EXPECT_EQ(parent("7"), "0,0,0,0");
    EXPECT_EQ(libraryNumber(QStringLiteral("3,1,2,3")), 3);
    EXPECT_EQ(libraryNumber(QStringLiteral("2,1,2,0")), 2);
    EXPECT_EQ(libraryNumber(QStringLiteral("1,5,0,0")), 5);
    EXPECT_EQ(libraryNumber(QStringLiteral("7")), 7);
}

TEST(Names, AreCutToTheirLargestLength)
{
    const QString full(maxNameLength, QLatin1Char('x'));
    const QString tooLong = full + QLatin1Char('y');
    int dropped = 0;
    Msg_MSEX_ELIN libraries;
    libraries.Libraries.resize(2);
    libraries.Libraries[0].LIBID = QStringLiteral("1,1,0,0");
    libraries.Libraries[0].Name = tooLong;
    libraries.Libraries[1].LIBID = QStringLiteral("1,2,0,0");
    libraries.Libraries[1].Name = full;
    const auto named = librariesOf(libraries, rootLibrary(), 2, &dropped);
    ASSERT_EQ(named.size(), 2u);
    EXPECT_EQ(named[0].name, full);
    EXPECT_EQ(named[1].name, full);
    Msg_MSEX_MEIN media;
    media.Media.resize(1);
    media.Media[0].Name = tooLong;
    EXPECT_EQ(elementsOf(media, &dropped).at(0).name, full);
    Msg_MSEX_EEIN effects;
    effects.Effects.resize(1);
    effects.Effects[0].EffectName = tooLong;
    effects.Effects[0].ParameterNames = {tooLong, full};
    EXPECT_EQ(elementsOf(effects, &dropped).at(0).name, full);
    EXPECT_EQ(elementsOf(effects, &dropped).at(0).parameters, QStringList({full, full}));
    Msg_MSEX_GLEI generic;
    generic.Elements.resize(1);
    generic.Elements[0].Name = tooLong;
    EXPECT_EQ(elementsOf(generic, &dropped).at(0).name, full);
}

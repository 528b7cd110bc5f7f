// The identifiers of libraries in their forms.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/values.h>

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

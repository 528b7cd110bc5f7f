// Which servers a word on the command line means, and what is said of one.
// SPDX-License-Identifier: Apache-2.0
#include "server_text.h"

#include <gtest/gtest.h>

using namespace Console;

namespace {
CITP::Server named(const QString& key, const QString& name)
{
    CITP::Server server;
    server.key = key;
    server.name = name;
    return server;
}

std::string meantBy(const QString& wanted)
{
    const std::vector<CITP::Server> servers{named("2.0.0.10:4811", "Stage"), named("2.0.0.11:4811", "Stage left"),
                                            named("2.0.0.12:4811", "2.0.0.99:4811 was mine"),
                                            named("2.0.0.13:4811", "2.0.0.98:4811"), named("2.0.0.14:4811", "Rig 1:2")};
    return CITP::Directory::find(servers, wanted).join(' ').toStdString();
}
} // namespace

TEST(ServerText, MatchesAKeyThenTheWholeNameThenAPartOfIt)
{
    EXPECT_EQ(meantBy("2.0.0.11:4811"), "2.0.0.11:4811");
    EXPECT_EQ(meantBy("Stage"), "2.0.0.10:4811");
    EXPECT_EQ(meantBy("STAGE"), "2.0.0.10:4811");
    EXPECT_EQ(meantBy("tage"), "2.0.0.10:4811 2.0.0.11:4811");
    EXPECT_EQ(meantBy("1:2"), "2.0.0.14:4811");
    EXPECT_EQ(meantBy("2.0.0.9"), "2.0.0.12:4811 2.0.0.13:4811");
    EXPECT_EQ(meantBy("Balcony"), "");
}

TEST(ServerText, TakesNoNameForAKeyThatIsNotThere)
{
    EXPECT_EQ(meantBy("2.0.0.99:4811"), "");
    EXPECT_EQ(meantBy("2.0.0.98:4811"), "");
}

TEST(ServerText, KeepsFiguresApartFromTextsThatLookLikeTheirPlaces)
{
    CITP::Server server = named("2.0.0.10:4811", "%1%2");
    server.product = "%1%2%3%4%5";
    server.version = "1.0";
    server.msexMinor = 2;
    server.layers = QStringList{"a", "b", "c"};
    EXPECT_EQ(toText(server).toStdString(), "2.0.0.10:4811  \"%1%2\"  %1%2%3%4%5 1.0  MSEX 1.2  3 layers");
}

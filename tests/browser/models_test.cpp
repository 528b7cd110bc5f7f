// The browser's models beside simulated media servers: servers, libraries, layers, patch and log.
// SPDX-License-Identifier: Apache-2.0
#include <QFile>
#include <QSignalSpy>

#include "models_fixture.h"

namespace {
using Browser::LayerModel;
using Browser::LibraryModel;
using Browser::LogFilter;
using Browser::LogModel;
using Browser::PatchModel;
using Browser::ServerModel;

QStringList namesBelow(const QAbstractItemModel& model, const QModelIndex& parent)
{
    QStringList names;
    for (int row = 0; row < model.rowCount(parent); ++row)
        names << model.index(row, 0, parent).data().toString();
    return names;
}
} // namespace

TEST_F(BrowserModels, ServersComeGoAndAreForgotten)
{
    ServerModel& servers = session.servers();
    servers.setKeepTime(1000);
    QList<ServerModel::State> states;
    QObject::connect(&servers, &QAbstractItemModel::rowsInserted, &session,
                     [&] { states << servers.stateOf(StageKey); });
    QObject::connect(&servers, &QAbstractItemModel::dataChanged, &session, [&] {
        if (states.isEmpty() || states.last() != servers.stateOf(StageKey))
            states << servers.stateOf(StageKey);
    });
    MediaServer server({"--name", "Stage", "--product", "Painter", "--product-version", "3.4.5"});
    ASSERT_TRUE(until([&] { return servers.stateOf(StageKey) == ServerModel::State::Up; }));
    EXPECT_EQ(states.first(), ServerModel::State::Seen);
    const QModelIndex index = servers.index(servers.rowOf(StageKey));
    EXPECT_EQ(index.data(ServerModel::NameRole).toString().toStdString(), "Stage");
    EXPECT_EQ(index.data(ServerModel::ProductRole).toString().toStdString(), "Painter 3.4.5");
    EXPECT_EQ(servers.countUp(), 1);
    server.kill();
    ASSERT_TRUE(until([&] { return states.contains(ServerModel::State::Lost); }));
    EXPECT_EQ(servers.rowCount(), 1);
    ASSERT_TRUE(until([&] { return servers.rowCount() == 0; }));
}

TEST_F(BrowserModels, AServerThatDoesNotAcceptIsConnecting)
{
    // An announcement without a server behind it.
    ServerModel& servers = session.servers();
    servers.hear("127.0.0.77:4999", "Ghost");
    EXPECT_EQ(servers.stateOf("127.0.0.77:4999"), ServerModel::State::Seen);
    servers.hear("127.0.0.77:4999", "Ghost");
    EXPECT_EQ(servers.stateOf("127.0.0.77:4999"), ServerModel::State::Connecting);
}

TEST_F(BrowserModels, ManyServersStandInTheOrderOfTheirAddresses)
{
    const MediaServer servers({"--count", "200", "--name", "Rack"});
    ASSERT_TRUE(until([&] { return session.servers().countUp() == 200; })) << session.servers().countUp();
    EXPECT_EQ(session.servers().rowOf("127.0.0.2:4811"), 0);
    EXPECT_EQ(session.servers().rowOf("127.0.0.201:5010"), 199);
}

TEST_F(BrowserModels, LibrariesAreLoadedAsTheyAreOpened)
{
    MediaServer server({"--effects", "1", "--generic", "1"});
    openServer();
    LibraryModel& libraries = session.libraries();
    EXPECT_EQ(namesBelow(libraries, {}).join('|').toStdString(), "Media|Effects|Generic");
    EXPECT_EQ(server.count("GELI"), 0);
    expand(1, Browser::RootLibrary);
    EXPECT_EQ(namesBelow(libraries, libraries.find(1, Browser::RootLibrary)).join('|').toStdString(),
              "Gradients|Test cards|Numbered frames");
    EXPECT_EQ(server.count("GELI", 1), 1);
    EXPECT_FALSE(libraries.hasChildren(libraries.find(1, "1,1,0,0")));
    EXPECT_TRUE(libraries.hasChildren(libraries.find(1, "1,3,0,0")));
    EXPECT_FALSE(libraries.find(1, "2,3,1,0").isValid());
    expand(1, "1,3,0,0");
    expand(1, "2,3,1,0");
    EXPECT_EQ(libraries.find(1, "3,3,1,1").data().toString().toStdString(), "Twenties");
}

TEST_F(BrowserModels, TheFilterKeepsWhatIsAboveAMatch)
{
    const MediaServer server;
    openServer();
    expand(1, Browser::RootLibrary);
    expand(1, "1,3,0,0");
    session.filteredLibraries().setText("TENS");
    const QModelIndex media = session.filteredLibraries().index(0, 0);
    EXPECT_EQ(namesBelow(session.filteredLibraries(), media).join('|').toStdString(), "Numbered frames");
    session.filteredLibraries().setText("");
    EXPECT_EQ(session.filteredLibraries().rowCount(session.filteredLibraries().index(0, 0)), 3);
}

TEST_F(BrowserModels, ATreeThatGetsNoAnswerSaysSo)
{
    const MediaServer server({"--fault", "silence"});
    session.requests().setTimeLimit(300);
    openServer();
    LibraryModel& libraries = session.libraries();
    libraries.fetchMore(libraries.find(1, Browser::RootLibrary));
    ASSERT_TRUE(until(
        [&] { return !libraries.find(1, Browser::RootLibrary).data(LibraryModel::ProblemRole).toString().isEmpty(); }));
    EXPECT_FALSE(libraries.find(1, Browser::RootLibrary).data(LibraryModel::LoadingRole).toBool());
    session.chooseLibrary(1, "1,1,0,0");
    ASSERT_TRUE(until([&] { return session.elements().state() == Browser::ElementModel::State::Failed; }));
}

TEST_F(BrowserModels, AnUpdateRenewsTheRowsThatItTouches)
{
    const PictureFolder folder;
    MediaServer server({"--media", folder.path()});
    openServer();
    expand(1, Browser::RootLibrary);
    LibraryModel& libraries = session.libraries();
    EXPECT_EQ(libraries.rowCount(libraries.find(1, Browser::RootLibrary)), 2);
    const QPersistentModelIndex skies = libraries.find(1, "1,1,0,0");
    folder.write("1 Skies/Fog.jpg", 50);
    ASSERT_TRUE(until([&] { return skies.sibling(skies.row(), 1).data().toInt() == 9; }));
    EXPECT_TRUE(skies.data(LibraryModel::IsNewRole).toBool());
    EXPECT_FALSE(libraries.find(1, "1,2,0,0").data(LibraryModel::IsNewRole).toBool());
    folder.write("3 Fire/Embers.jpg", 51);
    ASSERT_TRUE(until([&] { return libraries.find(1, "1,3,0,0").isValid(); }));
    // The rows that were there are still the same ones.
    EXPECT_TRUE(skies.isValid());
    folder.remove("3 Fire/Embers.jpg");
    ASSERT_TRUE(until([&] { return libraries.find(1, "1,3,0,0").sibling(2, 1).data().toInt() == 0; }));
}

TEST_F(BrowserModels, LayersMoveAndShowWhatTheyPlay)
{
    for (const char* const msex : {"1.0", "1.2"}) {
        MediaServer server({"--layers", "3", "--layer-rate", "50", "--msex", msex});
        openServer();
        LayerModel& layers = session.layers();
        ASSERT_TRUE(until([&] { return layers.rowCount() == 3; })) << msex;
        EXPECT_EQ(layers.index(0, LayerModel::Flags).data().toString().toStdString(), "0x00000001");
        EXPECT_EQ(layers.index(0, LayerModel::Name).data().toString().toStdString(), "Grey across");
        const double before = layers.index(0, 0).data(LayerModel::FractionRole).toDouble();
        EXPECT_TRUE(until([&] { return layers.index(0, 0).data(LayerModel::FractionRole).toDouble() != before; }));
        EXPECT_TRUE(until([&] { return !layers.index(2, 0).data(LayerModel::PictureRole).value<QImage>().isNull(); }));
        server.kill();
        EXPECT_TRUE(until([&] { return layers.rowCount() == 0; }));
        session.chooseServer({});
    }
}

TEST_F(BrowserModels, ThePatchComesWithTheServer)
{
    const QTemporaryDir scratch;
    QFile file(scratch.filePath("patch.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"([{"id": 7, "universe": 1, "channel": 21, "channels": 20, "make": "Acme", "name": "Wash"},
                   {"id": 2, "universe": 0, "channel": 1, "channels": 16, "make": "Acme", "name": "Spot"}])");
    file.close();
    const MediaServer server({"--patch", file.fileName()});
    openServer();
    PatchModel& patch = session.patch();
    ASSERT_TRUE(until([&] { return patch.rowCount() == 2; }));
    EXPECT_EQ(patch.index(0, PatchModel::Identifier).data().toInt(), 2);
    EXPECT_EQ(patch.index(1, PatchModel::Name).data().toString().toStdString(), "Wash");
    session.chooseServer({});
    EXPECT_EQ(patch.rowCount(), 0);
}

TEST_F(BrowserModels, TheLogIsFilteredAndShowsTrafficOnDemand)
{
    LogModel& log = session.log();
    LogFilter filter;
    filter.setSourceModel(&log);
    filter.setContext("CITP.Stack.Traffic");
    MediaServer server;
    openServer();
    ASSERT_TRUE(until([&] { return log.rowCount() > 0; }));
    EXPECT_EQ(filter.rowCount(), 0);
    log.setTraffic(true);
    expand(1, Browser::RootLibrary);
    EXPECT_TRUE(until([&] { return filter.rowCount() >= 2; }));
    log.setTraffic(false);
    filter.setLevels(Os::Log::Failure);
    EXPECT_EQ(filter.rowCount(), 0);
    filter.setLevels(31);
    filter.setContext("CITP.Stack");
    EXPECT_EQ(filter.rowCount(), log.rowCount());
}

TEST(BrowserLog, KeepsTheLastLines)
{
    LogModel log(10);
    Os::Log::Context context("Probe");
    for (int i = 0; i < 25; ++i)
        context.Write(Os::Log::State, text_base() << i, "probe()", "probe.cpp", 1, {});
    ASSERT_TRUE(until([&] { return log.rowCount() == 10; }));
    EXPECT_EQ(log.index(9, LogModel::Text).data().toString().toStdString(), "24");
    EXPECT_EQ(log.index(0, LogModel::Text).data().toString().toStdString(), "15");
}

TEST(BrowserValues, LinesAreShortAndInOnePiece)
{
    EXPECT_EQ(Browser::oneLine(QString(10000, 'x')).size(), 161);
    EXPECT_EQ(Browser::oneLine(QString::fromUtf8("a\nb\u202Ec")).toStdString(), "a b c");
    EXPECT_EQ(Browser::parentOf("3,3,1,1").toStdString(), "2,3,1,0");
    EXPECT_EQ(Browser::parentOf("1,3,0,0").toStdString(), "0,0,0,0");
    EXPECT_EQ(Browser::numberOf("2,3,9,0"), 9);
    EXPECT_EQ(Browser::numberOf("7"), 7);
}

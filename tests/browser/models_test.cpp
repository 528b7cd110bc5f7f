// The browser's models beside simulated media servers: servers, libraries, layers, patch and log.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_lsta.h>

#include <QFile>
#include <QNetworkInterface>
#include <QSignalSpy>
#include <QUdpSocket>

#include "models/texts.h"
#include "models_fixture.h"

namespace {
using Browser::LayerModel;
using Browser::LibraryModel;
using Browser::LogFilter;
using Browser::LogModel;
using Browser::PatchModel;
using Browser::ServerModel;
using CITP::rootLibrary;

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
    session.directory().setKeepTime(1000);
    QList<ServerModel::State> states;
    int rowsOnceLost = -1;
    const QObject scope;
    QObject::connect(&servers, &QAbstractItemModel::rowsInserted, &scope, [&] { states << servers.stateOf(StageKey); });
    QObject::connect(&servers, &QAbstractItemModel::dataChanged, &scope, [&] {
        if (states.isEmpty() || states.last() != servers.stateOf(StageKey))
            states << servers.stateOf(StageKey);
        if (states.last() == ServerModel::State::Lost)
            rowsOnceLost = servers.rowCount();
    });
    MediaServer server({"--name", "Stage", "--product", "Painter", "--product-version", "3.4.5"});
    ASSERT_TRUE(waitFor([&] { return servers.stateOf(StageKey) == ServerModel::State::Up; }));
    EXPECT_EQ(states.first(), ServerModel::State::Heard);
    const QModelIndex index = servers.index(servers.rowOf(StageKey));
    EXPECT_EQ(index.data(ServerModel::NameRole).toString().toStdString(), "Stage");
    EXPECT_EQ(index.data(ServerModel::ProductRole).toString().toStdString(), "Painter 3.4.5");
    EXPECT_EQ(servers.countUp(), 1);
    server.kill();
    ASSERT_TRUE(waitFor([&] { return states.contains(ServerModel::State::Lost); }));
    EXPECT_EQ(rowsOnceLost, 1);
    ASSERT_TRUE(waitFor([&] { return servers.rowCount() == 0; }));
}

TEST_F(BrowserModels, AServerThatDoesNotAcceptIsConnecting)
{
    // An announcement without a server behind it.
    ServerModel& servers = session.servers();
    Q_EMIT session.transport().serverHeard("127.0.0.77:4999", "Ghost");
    EXPECT_EQ(servers.stateOf("127.0.0.77:4999"), ServerModel::State::Heard);
    Q_EMIT session.transport().serverHeard("127.0.0.77:4999", "Ghost");
    EXPECT_EQ(servers.stateOf("127.0.0.77:4999"), ServerModel::State::Connecting);
}

TEST_F(BrowserModels, AnAnnouncementWithoutAServerBehindItIsSeenAndThenFailing)
{
    QUdpSocket socket;
    ASSERT_TRUE(socket.bind(QHostAddress("127.0.0.77")));
    socket.setMulticastInterface(QNetworkInterface::interfaceFromName("lo"));
    // As media servers write it, which the library has no need to.
    QByteArray announcement("CITP\x01\x00\x00\x00\x36\x00\x00\x00\x01\x00\x00\x00PINFPLoc\x87\x13", 26);
    announcement += QByteArray("MediaServer\0Ghost 1\0Running\0", 28);
    ASSERT_EQ(announcement.size(), 54);
    // Once another one is up, a single announcement is heard; a second one could come before the attempt has failed.
    const MediaServer other;
    ServerModel& servers = session.servers();
    ASSERT_TRUE(waitFor([&] { return servers.countUp() == 1; }));
    const QString ghost = "127.0.0.77:4999";
    QList<ServerModel::State> states;
    const auto note = [&] {
        if (servers.rowOf(ghost) >= 0 && (states.isEmpty() || states.last() != servers.stateOf(ghost)))
            states << servers.stateOf(ghost);
    };
    const QObject scope;
    QObject::connect(&servers, &QAbstractItemModel::rowsInserted, &scope, note);
    QObject::connect(&servers, &QAbstractItemModel::dataChanged, &scope, note);
    socket.writeDatagram(announcement, QHostAddress("224.0.0.180"), 4809);
    ASSERT_TRUE(waitFor([&] { return states.size() >= 2; }));
    EXPECT_EQ(states.at(0), ServerModel::State::Heard);
    EXPECT_EQ(states.at(1), ServerModel::State::Failing);
    const QModelIndex index = servers.index(servers.rowOf(ghost));
    EXPECT_TRUE(index.data(Qt::ToolTipRole).toString().contains("Ghost 1"));
    EXPECT_EQ(index.data(ServerModel::NameRole).toString().toStdString(), "Ghost 1");
}

TEST_F(BrowserModels, AServerThatHangsGivesNoSignOfLife)
{
    ServerModel& servers = session.servers();
    MediaServer server({"--layer-rate", "20"});
    openServer();
    LayerModel& layers = session.layers();
    ASSERT_TRUE(waitFor([&] { return layers.rowCount() > 0; }));
    const auto server0 = [&](int role) { return servers.index(0).data(role); };
    EXPECT_TRUE(waitFor([&] {
        return layers.age().isEmpty() && !layers.index(0, 0).data(LayerModel::IsOldRole).toBool() &&
               server0(ServerModel::StateTextRole).toString() == "up";
    }));
    QSignalSpy changes(&servers, &QAbstractItemModel::dataChanged);
    server.stop();
    ASSERT_TRUE(waitFor([&] { return !layers.age().isEmpty(); }));
    EXPECT_TRUE(layers.age().endsWith(" s old"));
    EXPECT_TRUE(layers.index(0, 0).data(LayerModel::IsOldRole).toBool());
    ASSERT_TRUE(waitFor([&] { return server0(ServerModel::IsSilentRole).toBool(); }));
    EXPECT_TRUE(server0(ServerModel::StateTextRole).toString().startsWith("no sign of life for "));
    EXPECT_EQ(servers.stateOf(StageKey), ServerModel::State::Up);
    // The row is repainted while the time runs, and once more when it ends.
    changes.clear();
    EXPECT_TRUE(waitFor([&] { return changes.count() >= 2; }));
    server.resume();
    EXPECT_TRUE(waitFor([&] { return layers.age().isEmpty() && !server0(ServerModel::IsSilentRole).toBool(); }));
}

TEST_F(BrowserModels, ManyServersStandInTheOrderOfTheirAddresses)
{
    const MediaServer servers({"--count", "200", "--name", "Rack"});
    ASSERT_TRUE(waitFor([&] { return session.servers().countUp() == 200; })) << session.servers().countUp();
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
    expand(1, rootLibrary());
    EXPECT_EQ(namesBelow(libraries, libraries.find(1, rootLibrary())).join('|').toStdString(),
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
    expand(1, rootLibrary());
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
    session.requests().setTimeout(300);
    openServer();
    LibraryModel& libraries = session.libraries();
    libraries.fetchMore(libraries.find(1, rootLibrary()));
    ASSERT_TRUE(waitFor(
        [&] { return !libraries.find(1, rootLibrary()).data(LibraryModel::ProblemRole).toString().isEmpty(); }));
    EXPECT_FALSE(libraries.find(1, rootLibrary()).data(LibraryModel::LoadingRole).toBool());
    session.chooseLibrary(1, "1,1,0,0");
    ASSERT_TRUE(waitFor([&] { return session.elements().state() == Browser::ElementModel::State::Failed; }));
}

TEST_F(BrowserModels, AnUpdateRenewsTheRowsThatItTouches)
{
    const PictureFolder folder;
    MediaServer server({"--media", folder.path()});
    openServer();
    expand(1, rootLibrary());
    LibraryModel& libraries = session.libraries();
    EXPECT_EQ(libraries.rowCount(libraries.find(1, rootLibrary())), 2);
    const QPersistentModelIndex skies = libraries.find(1, "1,1,0,0");
    folder.write("1 Skies/Fog.jpg", 50);
    ASSERT_TRUE(waitFor([&] { return skies.sibling(skies.row(), 1).data().toInt() == 9; }));
    EXPECT_TRUE(skies.data(LibraryModel::IsNewRole).toBool());
    EXPECT_FALSE(libraries.find(1, "1,2,0,0").data(LibraryModel::IsNewRole).toBool());
    folder.write("3 Fire/Embers.jpg", 51);
    ASSERT_TRUE(waitFor([&] { return libraries.find(1, "1,3,0,0").isValid(); }));
    // The rows that were there are still the same ones.
    EXPECT_TRUE(skies.isValid());
    folder.remove("3 Fire/Embers.jpg");
    ASSERT_TRUE(waitFor([&] { return libraries.find(1, "1,3,0,0").sibling(2, 1).data().toInt() == 0; }));
}

TEST_F(BrowserModels, AServerThatComesBackAsAnotherIsShownAfresh)
{
    MediaServer old({"--msex", "1.0"});
    openServer();
    LibraryModel& libraries = session.libraries();
    EXPECT_EQ(namesBelow(libraries, {}).join('|').toStdString(), "Media|Effects");
    expand(1, rootLibrary());
    openLibrary("2");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    old.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    const MediaServer updated({"--effects", "1", "--generic", "1"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    EXPECT_EQ(namesBelow(libraries, {}).join('|').toStdString(), "Media|Effects|Generic");
    // Identities of the other version mean nothing.
    EXPECT_EQ(session.elements().state(), Browser::ElementModel::State::Empty);
    EXPECT_EQ(session.elements().rowCount(), 0);
    expand(1, rootLibrary());
    openLibrary("1,2,0,0");
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, AnAnswerAfterAFailureTakesTheFailureBack)
{
    const PictureFolder folder;
    MediaServer server({"--media", folder.path()});
    openServer();
    expand(1, rootLibrary());
    LibraryModel& libraries = session.libraries();
    const auto problem = [&] { return libraries.find(1, rootLibrary()).data(LibraryModel::ProblemRole).toString(); };
    session.requests().setTimeout(50);
    server.stop();
    session.libraries().reload();
    ASSERT_TRUE(waitFor([&] { return !problem().isEmpty(); }));
    session.requests().setTimeout(5000);
    server.resume();
    folder.write("1 Skies/Fog.jpg", 50);
    ASSERT_TRUE(waitFor([&] { return libraries.find(1, "1,1,0,0").sibling(0, 1).data().toInt() == 9; }));
    EXPECT_EQ(problem().toStdString(), "");
}

TEST_F(BrowserModels, LayersMoveAndShowWhatTheyPlay)
{
    for (const char* const msex : {"1.0", "1.2"}) {
        MediaServer server({"--layers", "3", "--layer-rate", "50", "--msex", msex});
        openServer();
        LayerModel& layers = session.layers();
        ASSERT_TRUE(waitFor([&] { return layers.rowCount() == 3; })) << msex;
        EXPECT_EQ(layers.index(0, LayerModel::Flags).data().toString().toStdString(), "playing");
        EXPECT_EQ(layers.index(0, LayerModel::Name).data().toString().toStdString(), "Grey across");
        const double before = layers.index(0, 0).data(LayerModel::FractionRole).toDouble();
        EXPECT_TRUE(waitFor([&] { return layers.index(0, 0).data(LayerModel::FractionRole).toDouble() != before; }));
        EXPECT_TRUE(
            waitFor([&] { return !layers.index(2, 0).data(LayerModel::PictureRole).value<QImage>().isNull(); }));
        server.kill();
        EXPECT_TRUE(waitFor([&] { return layers.rowCount() == 0; }));
        session.chooseServer({});
    }
}

TEST_F(BrowserModels, LayersTellTheirFlagsInWordsAndTheirTimesInOneForm)
{
    const MediaServer server({"--layers", "0"});
    openServer();
    CITP::Msg_MSEX_LSTA status;
    status.versionMinor = 2;
    for (const unsigned flags : {0x01U, 0x26U, 0x80000018U, 0U}) {
        CITP::Msg_MSEX_LSTA::LayerStatus layer;
        layer.LibraryId = "1,3,0,0";
        layer.MediaPosition = 25 * (2 * 3600 + 3 * 60 + 4) + 5;
        layer.MediaLength = layer.MediaPosition + 25;
        layer.MediaFrameRate = 25;
        layer.LayerStatusFlags = flags;
        status.Layers.push_back(layer);
    }
    status.Layers[3].MediaFrameRate = 0;
    Q_EMIT session.transport().layerStatus(StageKey, status);
    const LayerModel& layers = session.layers();
    ASSERT_TRUE(waitFor([&] { return layers.rowCount() == 4; }));
    const auto cell = [&](int row, int column) { return layers.index(row, column).data().toString().toStdString(); };
    EXPECT_EQ(cell(0, LayerModel::Flags), "playing");
    EXPECT_EQ(cell(1, LayerModel::Flags), "backwards, looping, paused");
    EXPECT_EQ(cell(2, LayerModel::Flags), "bouncing, random, 0x80000000");
    EXPECT_EQ(cell(3, LayerModel::Flags), "none");
    EXPECT_EQ(layers.index(2, LayerModel::Flags).data(Qt::ToolTipRole).toString().toStdString(), "0x80000018");
    EXPECT_EQ(cell(0, LayerModel::Position), "2:03:04.05 / 2:03:05.05");
    EXPECT_EQ(cell(3, LayerModel::Position), "184605 frames / 184630 frames");
    EXPECT_EQ(layers.headerData(LayerModel::Position, Qt::Horizontal, Qt::DisplayRole).toString().toStdString(),
              "Position (h:min:s.frames)");
    EXPECT_EQ(Browser::frameTime(0, 25).toStdString(), "0:00:00.00");
    EXPECT_EQ(Browser::frameTime(239, 120).toStdString(), "0:00:01.119");
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
    ASSERT_TRUE(waitFor([&] { return patch.rowCount() == 2; }));
    EXPECT_EQ(patch.index(0, PatchModel::Identifier).data().toInt(), 2);
    EXPECT_EQ(patch.index(1, PatchModel::Name).data().toString().toStdString(), "Wash");
    // One that the server has no more: it says nothing of it, so only asking for all tells.
    CITP::Msg_FPTC_PTCH gone;
    gone.FixtureIdentifier = 99;
    Q_EMIT session.transport().patchMessage(StageKey, gone);
    ASSERT_TRUE(waitFor([&] { return patch.rowCount() == 3; }));
    session.reload();
    EXPECT_TRUE(waitFor([&] { return patch.rowCount() == 2; }));
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
    ASSERT_TRUE(waitFor([&] { return log.rowCount() > 0; }));
    EXPECT_EQ(filter.rowCount(), 0);
    log.setTraffic(true);
    expand(1, rootLibrary());
    EXPECT_TRUE(waitFor([&] { return filter.rowCount() >= 2; }));
    log.setTraffic(false);
    filter.setLevels(Os::Log::Failure);
    EXPECT_EQ(filter.rowCount(), 0);
    filter.setLevels(31);
    filter.setContext("CITP.Stack");
    EXPECT_EQ(filter.rowCount(), log.rowCount());
}

TEST(BrowserLog, EndingTheTrafficLeavesTheMasksOfTheEnvironment)
{
    const QByteArray former = qgetenv("OS_LOG_MASKS");
    Os::Log::Context root("CITP");
    const Os::Log::Context chosen("Chosen", &root);
    const Os::Log::Context other("Other", &root);
    qputenv("OS_LOG_MASKS", "CITP.Chosen=8");
    Os::Log::SetMasks("CITP.Chosen=8");
    LogModel log;
    log.setTraffic(true);
    EXPECT_EQ(chosen.GetMask(), 31U);
    EXPECT_EQ(other.GetMask(), 31U);
    log.setTraffic(false);
    EXPECT_EQ(chosen.GetMask(), 8U);
    EXPECT_EQ(other.GetMask(), Os::Log::DefaultMask);
    qputenv("OS_LOG_MASKS", former);
}

TEST(BrowserLog, KeepsTheLastLines)
{
    LogModel log(10);
    Os::Log::Context context("Probe");
    for (int i = 0; i < 25; ++i)
        context.Write(Os::Log::State, text_base() << i, "probe()", "probe.cpp", 1, {});
    ASSERT_TRUE(waitFor([&] { return log.rowCount() == 10; }));
    EXPECT_EQ(log.index(9, LogModel::Text).data().toString().toStdString(), "24");
    EXPECT_EQ(log.index(0, LogModel::Text).data().toString().toStdString(), "15");
}

TEST(BrowserTexts, APictureOfAFileHasOneExtension)
{
    EXPECT_EQ(Browser::pictureFileName("Noon.jpg").toStdString(), "Noon.png");
    EXPECT_EQ(Browser::pictureFileName("Version 1.2").toStdString(), "Version 1.2.png");
    EXPECT_EQ(Browser::pictureFileName(".png").toStdString(), "_png.png");
}

TEST(BrowserLog, ANameWithALineBreakStaysInItsLine)
{
    LogModel log;
    Os::Log::Context context("Probe");
    const std::string forged = "added 127.0.0.2:4811 A\n12:00:00 CITP.Stack\r\xe2\x80\xa8 removed 127.0.0.3:4811";
    context.Write(Os::Log::State, text_base() << forged, "probe()", "probe.cpp", 1, {});
    ASSERT_TRUE(waitFor([&] { return log.rowCount() > 0; }));
    EXPECT_EQ(log.rowCount(), 1);
    EXPECT_EQ(log.index(0, LogModel::Text).data().toString().toStdString(),
              "added 127.0.0.2:4811 A 12:00:00 CITP.Stack   removed 127.0.0.3:4811");
    EXPECT_TRUE(log.wholeText().endsWith("\tadded 127.0.0.2:4811 A\n\t12:00:00 CITP.Stack   removed 127.0.0.3:4811\n"))
        << log.wholeText().toStdString();
}

TEST(BrowserLog, ShowsReadableTextAndTheServersRealName)
{
    LogModel log;
    Os::Log::Context context("Probe");
    for (const char* const line : {"added 127.0.0.2:4811 B?hne (total=1)", "added 127.0.0.3:4812 ?? (total=2)",
                                   "removed 127.0.0.2:4811 B\xFChne (total=1)", "connected to 127.0.0.22:4811"})
        context.Write(Os::Log::State, text_base() << line, "probe()", "probe.cpp", 1, {});
    ASSERT_TRUE(waitFor([&] { return log.rowCount() == 4; }));
    const auto cell = [&](int row, int column) { return log.index(row, column).data().toString().toStdString(); };
    QSignalSpy changes(&log, &QAbstractItemModel::dataChanged);
    log.setServerName("127.0.0.2:4811", QString::fromUtf8("Bühne"));
    EXPECT_EQ(changes.count(), 2);
    log.setServerName("127.0.0.3:4812", QString::fromUtf8("舞台"));
    EXPECT_EQ(cell(0, LogModel::Text), "added 127.0.0.2:4811 B?hne (total=1)");
    EXPECT_EQ(cell(0, LogModel::Server), "Bühne");
    EXPECT_EQ(cell(1, LogModel::Text), "added 127.0.0.3:4812 ?? (total=2)");
    EXPECT_EQ(cell(1, LogModel::Server), "舞台");
    EXPECT_EQ(cell(2, LogModel::Text), "removed 127.0.0.2:4811 B?hne (total=1)");
    EXPECT_EQ(cell(2, LogModel::Server), "Bühne");
    EXPECT_EQ(cell(3, LogModel::Server), "");
}

TEST_F(BrowserModels, TheLogNamesTheServerOfALine)
{
    MediaServer server({"--name", "Stage"});
    openServer();
    const auto serverOf = [this](const QString& start) {
        for (int row = 0; row < session.log().rowCount(); ++row) {
            if (session.log().index(row, LogModel::Text).data().toString().startsWith(start))
                return session.log().index(row, LogModel::Server).data().toString();
        }
        return QString();
    };
    EXPECT_TRUE(waitFor([&] { return serverOf("added " + StageKey) == "Stage"; }));
    server.kill();
    EXPECT_TRUE(waitFor([&] { return serverOf("removed " + StageKey) == "Stage"; }));
}

TEST_F(BrowserModels, TheLogTellsOfAGuardThatActs)
{
    const MediaServer server({"--fault", "zero-size"});
    openServer();
    session.libraries().fetchMore(session.libraries().find(1, rootLibrary()));
    EXPECT_TRUE(waitFor([this] {
        for (int row = 0; row < session.log().rowCount(); ++row) {
            if (session.log()
                    .index(row, LogModel::Text)
                    .data()
                    .toString()
                    .startsWith("guard small message: " + StageKey))
                return true;
        }
        return false;
    }));
}

TEST(BrowserServers, OneThatIsNamedByHandIsListedBeforeItIsUp)
{
    Browser::Session session;
    Tools::StackOptions options;
    options.options.addServer(QHostAddress("127.0.0.77"), 4999);
    session.start(options);
    EXPECT_TRUE(waitFor([&] { return session.servers().stateOf("127.0.0.77:4999") == ServerModel::State::Failing; }));
}

TEST(BrowserTexts, LinesAreShortAndInOnePiece)
{
    EXPECT_EQ(Browser::toSingleLine(QString(10000, 'x')).size(), 161);
    EXPECT_EQ(Browser::toSingleLine(QString::fromUtf8("a\nb\u202Ec")).toStdString(), "a b c");
    // Marks that would be painted over the lines above and below.
    const QString mark(QChar(0x0301));
    EXPECT_EQ(Browser::toSingleLine("a" + mark.repeated(50) + "b" + mark), "a" + mark.repeated(4) + "b" + mark);
}

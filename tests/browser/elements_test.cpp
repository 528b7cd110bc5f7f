// The browser's elements and pictures beside simulated media servers: order, time limits, losses, updates, long lists.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>

#include <QDateTime>
#include <QSignalSpy>

#include "models_fixture.h"

namespace {
using Browser::ElementModel;
using Browser::PictureStore;
using CITP::PictureId;
using CITP::rootLibrary;

} // namespace

TEST_F(BrowserModels, ElementsOfEveryKindBringTheirPicturesInEveryVersion)
{
    for (const char* const msex : {"1.0", "1.1", "1.2"}) {
        MediaServer server({"--msex", msex, "--effects", "1", "--generic", "1"});
        openServer();
        const bool isOld = qstrcmp(msex, "1.0") == 0;
        openLibrary(isOld ? "2" : "1,2,0,0");
        ElementModel& elements = session.elements();
        ASSERT_EQ(elements.rowCount(), 4) << msex;
        EXPECT_EQ(elements.index(0).data(ElementModel::NameRole).toString().toStdString(), "Colour bars");
        EXPECT_EQ(elements.element(0).width, 320);
        EXPECT_TRUE(waitFor([this] { return areAllReady(); })) << msex;
        EXPECT_FALSE(elements.index(3).data(ElementModel::PictureRole).value<QImage>().isNull());
        openLibrary(isOld ? "1" : "1,1,0,0", 2);
        EXPECT_EQ(elements.element(1).parameters.size(), 3);
        EXPECT_TRUE(waitFor([this] { return areAllReady(); })) << msex;
        if (!isOld) {
            openLibrary("1,1,0,0", 3);
            EXPECT_EQ(elements.element(0).name.toStdString(), "Cue 1");
        }
        server.kill();
        ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
        session.chooseServer({});
    }
}

TEST_F(BrowserModels, WhatCanBeSeenIsAskedForFirst)
{
    const MediaServer server({"--fault", "delay", "--fault-delay", "100"});
    openServer();
    QList<int> order;
    const QObject scope;
    QObject::connect(&session.pictures(), &PictureStore::changed, &scope, [&](const PictureId& id) {
        if (session.pictures().state(id) == State::Ready)
            order << id.number;
    });
    session.elements().setVisibleRows(8, 9);
    openLibrary("1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    ASSERT_EQ(order.size(), 10);
    EXPECT_GE(qMin(order.at(0), order.at(1)), 8);
}

TEST_F(BrowserModels, WhatComesIntoSightOvertakesTheRest)
{
    const MediaServer server({"--fault", "delay", "--fault-delay", "200"});
    openServer();
    QList<int> order;
    const QObject scope;
    QObject::connect(&session.pictures(), &PictureStore::changed, &scope, [&](const PictureId& id) {
        if (session.pictures().state(id) == State::Ready)
            order << id.number;
    });
    openLibrary("1,3,0,0", [this] { session.elements().setVisibleRows(8, 9); });
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    ASSERT_EQ(order.size(), 10);
    // The first four were under way by then.
    EXPECT_LT(qMax(order.indexOf(8), order.indexOf(9)), qMin(order.indexOf(6), order.indexOf(7)));
}

TEST_F(BrowserModels, CancellingLeavesNoTileWaiting)
{
    MediaServer server({"--layers", "0", "--fault", "delay", "--fault-delay", "600"});
    openServer();
    openLibrary("1,3,0,0", [this] {
        EXPECT_EQ(countRows(State::Waiting), 10);
        session.pictures().cancel();
        EXPECT_EQ(countRows(State::Cancelled), 10);
        EXPECT_EQ(session.pictures().done(), 10);
    });
    EXPECT_FALSE(waitFor([&] { return countRows(State::Cancelled) != 10; }, 1500));
    EXPECT_EQ(server.count("GETh"), 0);
    // What is under way by then is shown when it comes; nothing else is asked for. Cancelled with the first answer,
    // before others are handled that may have come meanwhile.
    const auto requests = [this] { return session.requests().statistics().requests; };
    const qint64 before = requests();
    qint64 asked = 0;
    const auto connection = QObject::connect(&session.transport(), &CITP::Transport::elementThumbnail, &session, [&] {
        if (asked > 0)
            return;
        session.pictures().cancel();
        EXPECT_EQ(countRows(State::Waiting), 0);
        asked = requests() - before;
    });
    session.pictures().retry();
    ASSERT_TRUE(waitFor([&] { return asked > 0; }));
    QObject::disconnect(connection);
    EXPECT_LT(asked, 10);
    ASSERT_TRUE(waitFor([&] { return countRows(State::Ready) == asked; }));
    EXPECT_EQ(requests() - before, asked);
    session.pictures().retry();
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, ASlowServerDeliversAllItsPictures)
{
    // One after the other, in three times the time that a single answer may take.
    const MediaServer server({"--layers", "0", "--fault", "delay", "--fault-delay", "1000"});
    session.requests().setTimeout(2000);
    openServer();
    openLibrary("1,1,0,0");
    ASSERT_EQ(session.elements().rowCount(), 6);
    EXPECT_TRUE(waitFor([this] { return countRows(State::Waiting) == 0; }));
    EXPECT_EQ(countRows(State::Ready), 6);
}

TEST_F(BrowserModels, TilesOfASilentServerSaySo)
{
    const MediaServer server({"--fault", "silence"});
    session.requests().setTimeout(400);
    openServer();
    session.chooseLibrary(1, "1,9,0,0");
    answerElements("1,9,0,0", 200);
    ASSERT_EQ(session.elements().rowCount(), 200);
    ASSERT_EQ(countRows(State::Waiting), 200);
    ASSERT_TRUE(waitFor([this] { return countRows(State::Failed) == 200; }));
    EXPECT_TRUE(session.elements().index(199).data(ElementModel::ProblemRole).toString().contains(StageKey));
    EXPECT_LE(session.requests().statistics().requests, 20);
}

TEST_F(BrowserModels, DamagedPicturesFailAlone)
{
    const MediaServer server({"--fault", "oversize"});
    openServer();
    openLibrary("1,2,0,0");
    ASSERT_TRUE(waitFor([this] { return countRows(State::Failed) == 4; }));
    EXPECT_FALSE(session.elements().index(0).data(ElementModel::ProblemRole).toString().isEmpty());
}

TEST_F(BrowserModels, ALostServerLeavesNoTileWaitingAndComesBack)
{
    MediaServer server({"--fault", "delay", "--fault-delay", "300"});
    openServer();
    openLibrary("1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return countRows(State::Ready) >= 1; }));
    server.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    // What came before the end may still be being decoded.
    EXPECT_TRUE(waitFor([this] { return countRows(State::Waiting) == 0; }));
    EXPECT_EQ(countRows(State::Ready) + countRows(State::Failed), 10);
    // What is asked for meanwhile fails at once.
    session.elements().reload();
    EXPECT_EQ(session.elements().rowCount(), 10);
    server.restart();
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, PicturesFromBeforeALossAreAskedForAgainWhereNothingTellsThatTheyAreTheSame)
{
    const PictureFolder folder;
    MediaServer server({"--media", folder.path(), "--layers", "0"});
    openServer();
    openLibrary("1,2,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    ASSERT_EQ(session.elements().element(1).name.toStdString(), "Chop.jpg");
    const QImage before = session.elements().index(1).data(ElementModel::PictureRole).value<QImage>();
    openLibrary("1,1,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    server.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    folder.write("2 Water/Chop.jpg", 70);
    server.restart();
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp() && areAllReady(); }));
    // The serial numbers of elements tell which pictures have changed.
    openLibrary("1,2,0,0");
    EXPECT_TRUE(waitFor([&] {
        const QImage now = session.elements().index(1).data(ElementModel::PictureRole).value<QImage>();
        return stateOf(1) == State::Ready && now != before;
    }));
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    EXPECT_EQ(server.count("GETh", 1), 1);
    // Asked for by the user, all of them come again.
    session.reload();
    EXPECT_EQ(server.count("GETh", 7), 7);
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, PicturesThatAreOnDiskAreShownWithoutARequest)
{
    const PictureFolder folder;
    const QTemporaryDir pictures;
    MediaServer server({"--media", folder.path(), "--layers", "0"});
    // It is up before the runs begin: one that finds it up and is then told so loads the list again.
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    for (const int requests : {8, 0}) {
        Browser::Session run(pictures.path());
        run.requests().setTimeout(session.requests().timeout());
        run.start();
        run.chooseServer(StageKey);
        ASSERT_TRUE(waitFor([&] { return run.isChosenUp(); }));
        run.chooseLibrary(1, "1,1,0,0");
        ASSERT_TRUE(waitFor([&] { return run.pictures().total() == 8 && run.pictures().done() == 8; }));
        EXPECT_EQ(run.pictures().failed(), 0);
        EXPECT_EQ(run.requests().statistics().requests, 1 + requests);
    }
}

TEST_F(BrowserModels, AnUpdateRenewsWhatItTouchesAndNothingElse)
{
    const PictureFolder folder;
    for (const char* const msex : {"1.0", "1.1", "1.2"}) {
        folder.write("1 Skies/Noon.jpg", 3);
        MediaServer server({"--media", folder.path(), "--msex", msex});
        openServer();
        openLibrary(qstrcmp(msex, "1.0") == 0 ? "1" : "1,1,0,0");
        ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
        ElementModel& elements = session.elements();
        ASSERT_EQ(elements.rowCount(), 8);
        QSignalSpy resets(&elements, &QAbstractItemModel::modelReset);
        EXPECT_EQ(server.count("GETh", 8), 8) << msex;
        const int noon = 6;
        ASSERT_EQ(elements.element(noon).name.toStdString(), "Noon.jpg");
        const QImage before = elements.index(noon).data(ElementModel::PictureRole).value<QImage>();
        // A time stamp of whole seconds is all that the older versions tell a change by.
        ASSERT_TRUE(
            waitFor([&] { return QDateTime::currentSecsSinceEpoch() > qint64(elements.element(noon).timestamp); }));
        folder.write("1 Skies/Noon.jpg", 60);
        ASSERT_TRUE(waitFor([&] {
            const QImage now = elements.index(noon).data(ElementModel::PictureRole).value<QImage>();
            return stateOf(noon) == State::Ready && !now.isNull() && now != before;
        })) << msex;
        EXPECT_EQ(server.count("GETh", 9), 9) << msex;
        for (int row = 0; row < elements.rowCount(); ++row)
            EXPECT_EQ(isNew(row), row == noon) << msex << ", row " << row;

        folder.write("1 Skies/Fog.jpg", 61);
        ASSERT_TRUE(waitFor([&] { return elements.rowCount() == 9 && areAllReady(); })) << msex;
        EXPECT_EQ(elements.element(8).name.toStdString(), "Fog.jpg");
        EXPECT_EQ(server.count("GETh", 10), 10) << msex;
        folder.remove("1 Skies/Fog.jpg");
        ASSERT_TRUE(waitFor([&] { return elements.rowCount() == 8; })) << msex;
        EXPECT_EQ(server.count("GETh", 10), 10) << msex;
        EXPECT_EQ(resets.count(), 0) << msex;
        server.kill();
        ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
        session.chooseServer({});
    }
}

TEST_F(BrowserModels, ALongListIsTakenAtOnceAndItsPicturesAreShared)
{
    const MediaServer server({"--fault", "silence"});
    openServer();
    ElementModel& elements = session.elements();
    session.chooseLibrary(1, "1,9,0,0");
    QSignalSpy resets(&elements, &QAbstractItemModel::modelReset);
    QSignalSpy insertions(&elements, &QAbstractItemModel::rowsInserted);
    QSignalSpy changes(&elements, &QAbstractItemModel::dataChanged);
    answerElements("1,9,0,0", 65535, 1000);
    // Nothing tells elements of the same number apart: the first one counts.
    EXPECT_EQ(elements.rowCount(), 256);
    EXPECT_TRUE(elements.problem().contains("65279"));
    EXPECT_LE(resets.count() + insertions.count() + changes.count(), 2);
    EXPECT_EQ(session.pictures().total(), 256);
    EXPECT_EQ(elements.index(255).data(ElementModel::NameRole).toString().size(), 161);
}

TEST_F(BrowserModels, AStormOfUpdatesIsAnsweredByFewRequests)
{
    const MediaServer server({"--layers", "0"});
    openServer();
    expand(1, rootLibrary());
    openLibrary("1,1,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    const qint64 before = session.requests().statistics().requests;
    CITP::Msg_MSEX_ELUP update;
    update.versionMinor = 2;
    update.LibraryType = 1;
    update.LibraryId = "1,1,0,0";
    update.UpdateFlags = 0x0f;
    QSignalSpy changes(&session.elements(), &ElementModel::stateChanged);
    for (int i = 0; i < 10000; ++i)
        Q_EMIT session.transport().libraryUpdated(StageKey, update);
    // Each list is being asked for, and once more thereafter.
    ASSERT_TRUE(waitFor([&] { return changes.count() == 2; }));
    EXPECT_LE(session.requests().statistics().requests - before, 6);
    EXPECT_EQ(countRows(State::Ready), 6);
}

TEST_F(BrowserModels, AStormOfLayerStatesIsShownNowAndThen)
{
    const MediaServer server({"--layers", "0"});
    openServer();
    QSignalSpy changes(&session.layers(), &QAbstractItemModel::dataChanged);
    CITP::Msg_MSEX_LSTA message;
    message.versionMinor = 2;
    message.Layers.resize(255);
    for (unsigned i = 0; i < 10000; ++i) {
        message.Layers[0].MediaPosition = i;
        message.Layers[0].LibraryId = QString("1,%1,0,0").arg(i % 256);
        Q_EMIT session.transport().layerStatus(StageKey, message);
    }
    const auto position = [this] {
        return session.layers().index(0, Browser::LayerModel::Position).data().toString().section(' ', 0, 0);
    };
    ASSERT_TRUE(waitFor([&] { return position() == "9999"; }));
    EXPECT_LT(changes.count(), 1000);
}

TEST_F(BrowserModels, PicturesThatWerePushedOutComeAgainWhenTheyAreLookedAt)
{
    // Two pictures of 320 x 240 pixels fit.
    session.pictures().setLimit(700);
    MediaServer server;
    openServer();
    openLibrary("1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return session.pictures().done() == 10; }));
    EXPECT_LE(countRows(State::Ready), 2);
    session.elements().setVisibleRows(0, 1);
    EXPECT_TRUE(waitFor([this] { return stateOf(0) == State::Ready && stateOf(1) == State::Ready; }));
    // Those that will not come again wait no more either.
    server.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    EXPECT_EQ(countRows(State::Waiting), 0);
}

TEST_F(BrowserModels, AnotherServerTakesThePlaceOfEverything)
{
    const MediaServer server({"--count", "2", "--fault", "delay", "--fault-delay", "200"});
    openServer();
    openLibrary("1,3,0,0");
    session.chooseServer("127.0.0.3:4812");
    EXPECT_EQ(session.elements().rowCount(), 0);
    EXPECT_EQ(session.elements().state(), ElementModel::State::Empty);
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    openLibrary("1,2,0,0");
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
    EXPECT_EQ(session.pictures().total(), 4);
}

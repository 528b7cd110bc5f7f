// The browser's elements and pictures beside simulated media servers: order, time limits, losses, updates, long lists.
// SPDX-License-Identifier: Apache-2.0
#include <QDateTime>
#include <QSignalSpy>

#include "models_fixture.h"

namespace {
using Browser::ElementModel;
using Browser::PictureId;
using Browser::PictureStore;
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
    QObject::connect(&session.pictures(), &PictureStore::changed, &session, [&](const PictureId& id) {
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
    QObject::connect(&session.pictures(), &PictureStore::changed, &session, [&](const PictureId& id) {
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
    MediaServer server({"--fault", "delay", "--fault-delay", "600"});
    openServer();
    openLibrary("1,3,0,0", [this] {
        EXPECT_EQ(countRows(State::Waiting), 10);
        session.pictures().cancel();
        EXPECT_EQ(countRows(State::Cancelled), 10);
        EXPECT_EQ(session.pictures().done(), 10);
    });
    // The four that were asked for are answered still, to nobody.
    EXPECT_EQ(server.count("GETh", 4), 4);
    EXPECT_FALSE(waitFor([&] { return countRows(State::Cancelled) != 10; }, 1500));
    EXPECT_EQ(server.count("GETh"), 4);
    session.pictures().retry();
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, TilesOfASilentServerSaySo)
{
    const MediaServer server({"--fault", "silence"});
    session.requests().setTimeout(400);
    openServer();
    session.chooseLibrary(1, "1,9,0,0");
    answerElements("1,9,0,0", 200);
    ASSERT_EQ(countRows(State::Waiting), 200);
    ASSERT_TRUE(waitFor([this] { return countRows(State::Failed) == 200; }));
    EXPECT_TRUE(session.elements().index(199).data(ElementModel::ProblemRole).toString().contains("no answer"));
    EXPECT_EQ(session.requests().pendingPictures(), 0);
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
    EXPECT_EQ(countRows(State::Waiting), 0);
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
    MediaServer server({"--media", folder.path()});
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
    // Those on show have the list to be compared by.
    EXPECT_EQ(server.count("GEIn", 1), 1);
    EXPECT_EQ(server.count("GETh"), 0);
    openLibrary("1,2,0,0");
    EXPECT_TRUE(waitFor([&] {
        const QImage now = session.elements().index(1).data(ElementModel::PictureRole).value<QImage>();
        return stateOf(1) == State::Ready && now != before;
    }));
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    EXPECT_EQ(server.count("GETh", 6), 6);
    // Asked for by the user, all of them come again.
    session.reload();
    EXPECT_EQ(server.count("GETh", 12), 12);
    EXPECT_TRUE(waitFor([this] { return areAllReady(); }));
}

TEST_F(BrowserModels, AnAnswerOfAnotherKindIsOfAnotherRequest)
{
    const MediaServer server({"--fault", "silence"});
    openServer();
    session.chooseLibrary(2, "1,1,0,0");
    // That of the media library with the same identity, which was asked for before and came after its time.
    answerElements("1,1,0,0", 3);
    EXPECT_EQ(session.elements().state(), ElementModel::State::Loading);
    EXPECT_EQ(session.elements().rowCount(), 0);
    answerElements("1,1,0,0", 2, 8, Browser::Kind::Effects);
    EXPECT_EQ(session.elements().rowCount(), 2);
    session.chooseLibrary(4, "1,1,0,0");
    answerElements("1,1,0,0", 3, 8, Browser::Kind::Effects);
    EXPECT_EQ(session.elements().state(), ElementModel::State::Loading);
    answerElements("1,1,0,0", 5, 8, Browser::Kind::Generic);
    EXPECT_EQ(session.elements().rowCount(), 5);
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

TEST_F(BrowserModels, AnswersToNothingAreLeftAlone)
{
    const MediaServer server;
    openServer();
    openLibrary("1,1,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    QSignalSpy changes(&session.pictures(), &PictureStore::changed);
    Browser::Picture picture;
    picture.server = session.chosenServer();
    picture.type = 1;
    picture.library = "1,1,0,0";
    picture.image = QImage(8, 8, QImage::Format_RGB32);
    session.requests().handlePicture(picture);
    answerElements("1,1,0,0", 3);
    EXPECT_EQ(changes.count(), 0);
    EXPECT_EQ(session.elements().rowCount(), 6);
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
    EXPECT_EQ(elements.rowCount(), 65535);
    EXPECT_LE(resets.count() + insertions.count() + changes.count(), 2);
    EXPECT_EQ(session.pictures().total(), 256);
    EXPECT_EQ(elements.index(65534).data(ElementModel::NameRole).toString().size(), 161);
    // One picture for all rows of its number, told in one signal.
    changes.clear();
    Browser::Picture picture;
    picture.server = session.chosenServer();
    picture.type = 1;
    picture.library = "1,9,0,0";
    picture.number = 2;
    picture.image = QImage(8, 8, QImage::Format_RGB32);
    session.requests().handlePicture(picture);
    EXPECT_EQ(changes.count(), 1);
    EXPECT_FALSE(elements.index(2 + 256 * 100).data(ElementModel::PictureRole).value<QImage>().isNull());
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

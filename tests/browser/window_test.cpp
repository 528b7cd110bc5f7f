// The browser's window beside simulated media servers, driven by keys as a user drives it.
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDockWidget>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QScrollBar>
#include <QStandardPaths>
#include <QToolButton>

#include "models/adapters.h"
#include "window_fixture.h"

namespace {
using Browser::ElementGrid;
using Browser::ElementModel;
using Browser::LibraryModel;
using Browser::MainWindow;
using Browser::PictureStore;
using Browser::ServerModel;

} // namespace

TEST_F(BrowserWindow, IsUsedByKeysFromTheServerToThePictureAndBackAfterALoss)
{
    activate();
    MediaServer server({"--name", "Stage", "--layer-rate", "20"});
    // The first server that comes up is shown, its media opened.
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    EXPECT_EQ(session.chosenServer().toStdString(), Key.toStdString());
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    EXPECT_EQ(find<QLabel>("counts")->text().toStdString(), "Servers up: 1 of 1");

    key(Qt::Key_2, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), find<QTreeView>("libraries"));
    key(Qt::Key_Home);
    for (int i = 0; i < 3; ++i)
        key(Qt::Key_Down);
    EXPECT_EQ(chosenLibrary().toStdString(), "1,3,0,0");
    key(Qt::Key_Right);
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "2,3,1,0").isValid(); }));
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    EXPECT_FALSE(find<QProgressBar>("progress")->isVisible());

    key(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), find<QLineEdit>("search"));
    QTest::keyClicks(QApplication::focusWidget(), "grad");
    const QTreeView* const tree = find<QTreeView>("libraries");
    EXPECT_EQ(tree->model()->rowCount(tree->model()->index(0, 0)), 1);
    // What is filtered away stays on show.
    EXPECT_EQ(chosenLibrary().toStdString(), "1,3,0,0");
    find<QLineEdit>("search")->clear();
    EXPECT_EQ(tree->model()->rowCount(tree->model()->index(0, 0)), 3);
    EXPECT_EQ(tree->currentIndex().data(LibraryModel::IdRole).toString().toStdString(), "1,3,0,0");

    key(Qt::Key_3, Qt::ControlModifier);
    auto* const grid = find<ElementGrid>("elements");
    EXPECT_EQ(QApplication::focusWidget(), grid);
    key(Qt::Key_End);
    EXPECT_EQ(grid->currentIndex().row(), 9);
    key(Qt::Key_Left);
    EXPECT_EQ(grid->currentIndex().row(), 8);
    auto* const fields = find<QTreeWidget>("fields");
    EXPECT_EQ(fields->topLevelItem(0)->text(1).toStdString(), "Frame 08");
    const auto* const picture = window->findChild<Browser::PictureView*>();
    EXPECT_TRUE(waitFor([&] { return picture->image().width() > 320; }));
    EXPECT_TRUE(waitFor([this] { return find<QTableView>("layers")->model()->rowCount() == 2; }));

    server.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    EXPECT_EQ(find<QLabel>("note")->text().toStdString(), "not connected");
    EXPECT_EQ(rowsReady(), 10);
    server.restart();
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    EXPECT_TRUE(waitFor([this] { return find<QLabel>("note")->text() == "Elements: 10"; }));
    EXPECT_EQ(grid->currentIndex().row(), 8);
    EXPECT_EQ(chosenLibrary().toStdString(), "1,3,0,0");
}

TEST_F(BrowserWindow, EscapeEndsTheLoading)
{
    activate();
    const MediaServer server({"--fault", "delay", "--fault-delay", "250"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    // When the elements are there and none of their pictures can be, however busy the machine is.
    bool isEscaped = false;
    const auto connection = QObject::connect(&session.elements(), &ElementModel::stateChanged, &session, [&] {
        if (session.elements().state() != ElementModel::State::Loaded || session.elements().rowCount() != 10)
            return;
        EXPECT_TRUE(find<QPushButton>("cancel")->isVisible());
        EXPECT_TRUE(find<QProgressBar>("progress")->isVisible());
        key(Qt::Key_Escape);
        EXPECT_FALSE(find<QPushButton>("cancel")->isVisible());
        EXPECT_EQ(session.pictures().done(), 10);
        EXPECT_LT(rowsReady(), 10);
        isEscaped = true;
    });
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([&] { return isEscaped; }));
    QObject::disconnect(connection);
    key(Qt::Key_F5);
    EXPECT_TRUE(waitFor([this] { return rowsReady() == 10; }));
}

TEST_F(BrowserWindow, TheTileOfEveryPointIsTheOneThatIsDrawnThere)
{
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    auto* const grid = find<ElementGrid>("elements");
    for (const int width : {1280, 1500, 2560}) {
        window->resize(width, 720);
        QTest::qWait(20);
        for (int row = 0; row < 10; ++row) {
            const QModelIndex index = session.elements().index(row);
            grid->scrollTo(index);
            const QRect rect = grid->visualRect(index);
            for (const QPoint& point : {rect.topLeft(), rect.center(), rect.bottomRight()})
                EXPECT_EQ(grid->indexAt(point).row(), row) << width;
            EXPECT_TRUE(grid->viewport()->rect().contains(rect)) << width << " " << row;
        }
    }
    QTest::mouseClick(grid->viewport(), Qt::LeftButton, Qt::NoModifier,
                      grid->visualRect(session.elements().index(9)).center());
    EXPECT_EQ(grid->currentIndex().row(), 9);
}

TEST_F(BrowserWindow, ALongLibraryWithLongNamesIsScrolledAndPainted)
{
    const MediaServer server({"--fault", "silence"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,9,0,0");
    Q_EMIT session.transport().mediaInfo(session.chosenServer(), mediaList("1,9,0,0", 65535, 1000));
    ASSERT_EQ(session.elements().rowCount(), 256);
    auto* const grid = find<ElementGrid>("elements");
    activate();
    grid->setFocus();
    key(Qt::Key_End);
    EXPECT_EQ(grid->currentIndex().row(), 255);
    EXPECT_TRUE(grid->viewport()->rect().contains(grid->visualRect(grid->currentIndex())));
    key(Qt::Key_PageUp);
    EXPECT_LT(grid->currentIndex().row(), 255);
    QScrollBar* const bar = grid->verticalScrollBar();
    for (int step = 0; step <= 50; ++step) {
        bar->setValue(static_cast<int>(qint64(bar->maximum()) * step / 50));
        EXPECT_FALSE(grid->grab().isNull());
    }
    key(Qt::Key_Home);
    EXPECT_EQ(grid->currentIndex().row(), 0);
}

TEST_F(BrowserWindow, FailedPicturesAreCountedAndLoadedAgain)
{
    activate();
    MediaServer server({"--layers", "0", "--fault", "spoil"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,3,0,0");
    auto* const note = find<QLabel>("note");
    ASSERT_TRUE(waitFor([&] { return note->text() == QString::fromUtf8("Elements: 10 – 10 of 10 pictures failed"); }))
        << note->text().toStdString();
    // A server that has been mended.
    server.kill();
    ASSERT_TRUE(waitFor([this] { return !session.isChosenUp(); }));
    const MediaServer mended({"--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp() && rowsReady() == 10; }));
    EXPECT_TRUE(waitFor([&] { return note->text() == "Elements: 10"; })) << note->text().toStdString();
    // One of them, and what has failed meanwhile.
    const qint64 before = session.requests().statistics().requests;
    find<ElementGrid>("elements")->setFocus();
    find<ElementGrid>("elements")->setCurrentIndex(session.elements().index(3));
    key(Qt::Key_R, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return session.requests().statistics().requests > before && areAllReady(); }));
}

TEST_F(BrowserWindow, WhatIsShownCanBeCopied)
{
    activate();
    const MediaServer server({"--name", "Stage", "--layer-rate", "20"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    const QClipboard& clipboard = *QGuiApplication::clipboard();
    find<QListView>("servers")->setFocus();
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(clipboard.text().toStdString(), Key.toStdString());
    ASSERT_TRUE(waitFor([this] { return session.layers().rowCount() == 2; }));
    find<QTableView>("layers")->setFocus();
    key(Qt::Key_C, Qt::ControlModifier);
    const QStringList lines = clipboard.text().split('\n');
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines[0].toStdString(),
              "Layer\tPicture\tElement\tPosition (h:min:s.frames)\tfps\tLibrary / no.\tOutput\tFlags");
    EXPECT_TRUE(lines[1].contains("\tGrey across\t")) << lines[1].toStdString();
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady() && rowsReady() == 10; }));
    auto* const grid = find<ElementGrid>("elements");
    grid->setFocus();
    grid->setCurrentIndex(session.elements().index(3));
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_FALSE(clipboard.image().isNull());
    find<QToolButton>("logCopy")->click();
    EXPECT_TRUE(clipboard.text().startsWith("Time\tLevel\tContext\tServer\tText\n")) << clipboard.text().toStdString();
}

TEST_F(BrowserWindow, AFilterWithoutHitsSaysSo)
{
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    auto* const search = find<QLineEdit>("search");
    search->setText("grad");
    EXPECT_FALSE(find<QLabel>("noHits")->isVisible());
    search->setText("no such name");
    EXPECT_TRUE(find<QLabel>("noHits")->isVisible());
    search->clear();
    EXPECT_FALSE(find<QLabel>("noHits")->isVisible());
}

TEST_F(BrowserWindow, ManyServersAreListedAndOneIsChosen)
{
    const MediaServer servers({"--count", "200"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 200; })) << session.servers().countUp();
    auto* const list = find<QListView>("servers");
    activate();
    key(Qt::Key_1, Qt::ControlModifier);
    key(Qt::Key_End);
    EXPECT_EQ(session.chosenServer().toStdString(), "127.0.0.201:5010");
    EXPECT_TRUE(session.isChosenUp());
    EXPECT_TRUE(list->viewport()->rect().intersects(list->visualRect(list->currentIndex())));
}

TEST_F(BrowserWindow, AServerThatIsForgottenDoesNotPassTheChoiceOnToItsNeighbour)
{
    session.directory().setKeepTime(300);
    MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    ASSERT_EQ(session.chosenServer().toStdString(), Key.toStdString());
    const MediaServer neighbour({"--address", "127.0.0.3", "--port", "4812"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 2; }));
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return areAllReady(); }));
    server.kill();
    ASSERT_TRUE(waitFor([this] { return session.servers().rowCount() == 1; }));
    EXPECT_EQ(session.chosenServer().toStdString(), Key.toStdString());
    EXPECT_EQ(rowsReady(), 10);
    const auto* const list = find<QListView>("servers");
    EXPECT_FALSE(list->currentIndex().isValid());
    server.restart();
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    EXPECT_EQ(list->currentIndex().data(ServerModel::KeyRole).toString().toStdString(), Key.toStdString());
    EXPECT_EQ(chosenLibrary().toStdString(), "1,3,0,0");
}

TEST_F(BrowserWindow, GoingToTheServersChoosesNone)
{
    session.chooseServer("127.0.0.9:4811");
    Q_EMIT session.transport().serverHeard("127.0.0.77:4999", "Ghost");
    activate();
    key(Qt::Key_3, Qt::ControlModifier);
    key(Qt::Key_1, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), find<QListView>("servers"));
    EXPECT_EQ(session.chosenServer().toStdString(), "127.0.0.9:4811");
    key(Qt::Key_Down);
    EXPECT_EQ(session.chosenServer().toStdString(), "127.0.0.77:4999");
}

TEST_F(BrowserWindow, TheAdapterIsShownAndChosenFromAMenu)
{
    auto* const button = find<QPushButton>("adapter");
    ASSERT_TRUE(waitFor([&] { return button->text().contains("127.0.0.1"); })) << button->text().toStdString();
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    QMenu* const menu = button->menu();
    Q_EMIT menu->aboutToShow();
    ASSERT_GE(menu->actions().size(), 3);
    EXPECT_TRUE(menu->actions().at(0)->isChecked());
    QAction* const loopback = menu->actions().at(2);
    EXPECT_TRUE(loopback->text().startsWith("lo ")) << loopback->text().toStdString();
    // The servers are looked for anew there.
    bool wasLost = false;
    const QObject scope;
    QObject::connect(&session.servers(), &QAbstractItemModel::dataChanged, &scope,
                     [&] { wasLost = wasLost || session.servers().countUp() == 0; });
    loopback->trigger();
    EXPECT_TRUE(waitFor([&] { return wasLost; }));
    EXPECT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    Q_EMIT menu->aboutToShow();
    EXPECT_TRUE(menu->actions().at(2)->isChecked());
    EXPECT_TRUE(waitFor([&] { return button->toolTip() == "chosen"; }));
    window->close();
    EXPECT_EQ(QSettings().value("adapter").toString().toStdString(), "lo");
    session.chooseAdapter({});
}

TEST_F(BrowserWindow, OnlyTheUsersChoiceOfAnAdapterIsRemembered)
{
    QSettings().setValue("adapter", "eth7");
    // As the environment does for one run.
    Browser::chooseAdapter("lo");
    window->close();
    EXPECT_EQ(QSettings().value("adapter").toString().toStdString(), "eth7");
    Browser::chooseAdapter({});
}

TEST_F(BrowserWindow, FitsASmallScreenAndSaysWhatIsMissing)
{
    ASSERT_TRUE(waitFor([this] { return !session.adapter().address.isEmpty(); }));
    // The docks give way step by step, as when the frame is dragged.
    for (const QSize& size : {QSize(1000, 600), QSize(800, 500), QSize(800, 500)}) {
        window->resize(size);
        QTest::qWait(50);
    }
    // A window system may still answer an earlier one.
    EXPECT_TRUE(waitFor([this] { return window->width() <= 800 && window->height() <= 500; }))
        << window->width() << " x " << window->height();
    EXPECT_LE(window->minimumSizeHint().width(), 800);
    EXPECT_LE(window->minimumSizeHint().height(), 500);
    EXPECT_EQ(find<QLabel>("counts")->text().toStdString(), "No servers");
}

TEST_F(BrowserWindow, RemembersServerAndPanes)
{
    const MediaServer servers({"--count", "2"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 2; }));
    session.chooseServer("127.0.0.3:4812");
    find<QDockWidget>("previewPane")->hide();
    window->close();
    EXPECT_EQ(QSettings().value("server").toString().toStdString(), "127.0.0.3:4812");
    session.chooseServer({});
    window = std::make_unique<MainWindow>(session);
    window->show();
    EXPECT_FALSE(find<QDockWidget>("previewPane")->isVisible());
    EXPECT_TRUE(waitFor([this] { return session.chosenServer() == "127.0.0.3:4812"; }));
}

TEST_F(BrowserWindow, RemembersAServerThatIsNotThereThisTime)
{
    QSettings().setValue("server", "127.0.0.9:4811");
    window = std::make_unique<MainWindow>(session);
    window->show();
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    EXPECT_EQ(session.chosenServer().toStdString(), "");
    window->close();
    EXPECT_EQ(QSettings().value("server").toString().toStdString(), "127.0.0.9:4811");
}

TEST_F(BrowserWindow, TheLogShowsTrafficWhenItIsWanted)
{
    const MediaServer server;
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    auto* const context = find<QComboBox>("logContext");
    const QTableView* const log = find<QTableView>("log");
    context->setCurrentIndex(context->findData("CITP.Stack.Traffic"));
    EXPECT_EQ(log->model()->rowCount(), 0);
    find<QCheckBox>("logTraffic")->setChecked(true);
    session.reload();
    EXPECT_TRUE(waitFor([&] { return log->model()->rowCount() > 0; }));
    find<QCheckBox>("logTraffic")->setChecked(false);
}

int main(int argc, char** argv)
{
    // Where there is no display; CTest names the platform otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName("citp");
    QCoreApplication::setApplicationName(QString("citp-browser-test-%1").arg(QCoreApplication::applicationPid()));
    ::testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    QSettings().clear();
    QFile::remove(QSettings().fileName());
    return status;
}

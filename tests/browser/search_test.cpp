// How servers, libraries and elements are found in the browser's window: search, type-ahead, and the filter of servers.
// SPDX-License-Identifier: Apache-2.0
#include <QCheckBox>
#include <QLabel>
#include <QListView>

#include "models/search_model.h"
#include "models/server_filter.h"
#include "window_fixture.h"

using Browser::ElementGrid;
using Browser::SearchModel;
using Browser::ServerFilter;
using Browser::ServerModel;

TEST_F(BrowserWindow, ASearchFindsElementsAndLibrariesOfAllServersWhileItIsTyped)
{
    activate();
    const MediaServer stage({"--name", "<b>Stage", "--layers", "0"});
    const MediaServer back({"--name", "Backdrop", "--layers", "0", "--address", "127.0.0.8", "--port", "4900"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 2; }));
    session.chooseServer(Key);
    key(Qt::Key_F, Qt::ControlModifier | Qt::ShiftModifier);
    auto* const text = find<QLineEdit>("searchText");
    ASSERT_TRUE(text->hasFocus());
    SearchModel& search = session.search();
    QTest::keyClicks(text, "RAME 0");
    // Ten elements of each, none of which was opened.
    ASSERT_TRUE(waitFor([&] { return search.rowCount() == 20; })) << search.rowCount();
    // The line follows with the next search, which is made some time after the last answer.
    const auto* const state = find<QLabel>("searchState");
    EXPECT_TRUE(waitFor([&] { return state->text() == "Hits: 20"; })) << state->text().toStdString();
    EXPECT_EQ(search.state().toStdString(), "Hits: 20");
    text->setText("frame 03");
    ASSERT_EQ(search.rowCount(), 2);
    const auto cell = [&](int row, int column) { return search.index(row, column).data().toString().toStdString(); };
    EXPECT_EQ(cell(0, SearchModel::Name), "Frame 03");
    EXPECT_EQ(cell(0, SearchModel::Number), "3");
    EXPECT_EQ(cell(0, SearchModel::Kind), "Media");
    EXPECT_NE(cell(0, SearchModel::Server), cell(1, SearchModel::Server));
    // A tooltip is rich text, in which a name must not act.
    const int ofStage = search.hit(0).server == Key ? 0 : 1;
    EXPECT_TRUE(search.index(ofStage, SearchModel::Server).data(Qt::ToolTipRole).toString().contains("&lt;b&gt;Stage"));
    // Enter in the field shows the first, in the table the selected one.
    const int other = search.hit(0).server == Key ? 1 : 0;
    key(Qt::Key_Down);
    auto* const hits = find<QTableView>("hits");
    EXPECT_TRUE(hits->hasFocus());
    hits->setCurrentIndex(search.index(other, 0));
    key(Qt::Key_Return);
    auto* const grid = find<ElementGrid>("elements");
    ASSERT_TRUE(waitFor([&] { return grid->hasFocus(); }));
    EXPECT_EQ(session.chosenServer().toStdString(), "127.0.0.8:4900");
    EXPECT_EQ(session.elements().element(grid->currentIndex().row()).name.toStdString(), "Frame 03");
    // By number, and libraries.
    text->setText("9");
    ASSERT_GE(search.rowCount(), 2);
    EXPECT_EQ(cell(0, SearchModel::Name), "Frame 09");
    EXPECT_EQ(cell(1, SearchModel::Number), "9");
    text->setText("1,3,0,0");
    ASSERT_GE(search.rowCount(), 1);
    EXPECT_EQ(cell(0, SearchModel::Kind), "library");
    EXPECT_EQ(search.hit(0).number, -1);
    text->setText("no such name");
    EXPECT_EQ(search.state().toStdString(), "Hits: 0");
    text->clear();
    EXPECT_EQ(search.rowCount(), 0);
}

TEST_F(BrowserWindow, WithoutASearchNothingIsLoadedForOne)
{
    MediaServer server({"--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.libraries().find(1, "1,3,0,0").isValid(); }));
    EXPECT_FALSE(waitFor([&] { return server.count("GEIn") > 0; }, 1000));
    find<QLineEdit>("searchText")->setText("frame");
    EXPECT_GT(server.count("GEIn", 1), 0);
}

TEST_F(BrowserWindow, TypingInTheElementsGoesToTheNameOrNumberThatIsTyped)
{
    const MediaServer server({"--layers", "0"});
    ASSERT_TRUE(waitFor([this] { return session.isChosenUp(); }));
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return session.elements().rowCount() == 10; }));
    activate();
    auto* const grid = find<ElementGrid>("elements");
    grid->setFocus();
    const int interval = QApplication::keyboardInputInterval();
    QApplication::setKeyboardInputInterval(TestTimeout);
    QTest::keyClicks(grid, "frame 07");
    EXPECT_EQ(grid->currentIndex().row(), 7);
    QApplication::setKeyboardInputInterval(0);
    QTest::qWait(5);
    QTest::keyClicks(grid, "4");
    EXPECT_EQ(session.elements().element(grid->currentIndex().row()).number, 4);
    QApplication::setKeyboardInputInterval(interval);
}

TEST_F(BrowserWindow, ServersWithoutAProblemAreFilteredAwayButForTheChosenOne)
{
    const MediaServer chosen;
    const MediaServer well({"--address", "127.0.0.3", "--port", "4812"});
    MediaServer lost({"--address", "127.0.0.4", "--port", "4813"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 3; }));
    session.chooseServer(Key);
    lost.kill();
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 2; }));
    const QAbstractItemModel* const shown = find<QListView>("servers")->model();
    EXPECT_EQ(shown->rowCount(), 3);
    find<QCheckBox>("onlyProblems")->click();
    ASSERT_EQ(shown->rowCount(), 2);
    EXPECT_EQ(shown->index(0, 0).data(ServerModel::KeyRole).toString().toStdString(), Key.toStdString());
    EXPECT_EQ(shown->index(1, 0).data(ServerModel::KeyRole).toString().toStdString(), "127.0.0.4:4813");
    EXPECT_EQ(session.chosenServer().toStdString(), Key.toStdString());
    // It is remembered.
    window->close();
    find<QCheckBox>("onlyProblems")->click();
    EXPECT_EQ(shown->rowCount(), 3);
    window = std::make_unique<Browser::MainWindow>(session);
    EXPECT_TRUE(find<QCheckBox>("onlyProblems")->isChecked());
    EXPECT_EQ(find<QListView>("servers")->model()->rowCount(), 2);
}

TEST_F(BrowserWindow, AClickSelectsTheServerBelowThePointerAlthoughTheFormerOneIsFilteredAway)
{
    MediaServer lost({"--count", "4"});
    const MediaServer well({"--address", "127.0.0.1"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 5; }));
    session.chooseServer("127.0.0.1:4811");
    lost.kill();
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 1; }));
    find<QCheckBox>("onlyProblems")->click();
    auto* const list = find<QListView>("servers");
    const QAbstractItemModel* const shown = list->model();
    ASSERT_TRUE(waitFor([&] { return shown->rowCount() == 5; }));
    const QString wanted = shown->index(2, 0).data(ServerModel::KeyRole).toString();
    QWindow* const handle = window->windowHandle();
    const QPoint place = list->viewport()->mapTo(window.get(), list->visualRect(shown->index(2, 0)).center());
    const auto selected = [&] {
        const QModelIndexList rows = list->selectionModel()->selectedIndexes();
        return rows.size() == 1 ? rows.first().data(ServerModel::KeyRole).toString().toStdString() : std::string();
    };
    QTest::mousePress(handle, Qt::LeftButton, Qt::NoModifier, place);
    EXPECT_EQ(session.chosenServer().toStdString(), wanted.toStdString());
    EXPECT_EQ(selected(), wanted.toStdString());
    // The hand is not still meanwhile.
    QTest::qWait(100);
    QTest::mouseMove(handle, place + QPoint(0, 1));
    QTest::qWait(100);
    QTest::mouseRelease(handle, Qt::LeftButton, Qt::NoModifier, place + QPoint(0, 1));
    EXPECT_TRUE(waitFor([&] { return shown->rowCount() == 4; })) << shown->rowCount();
    EXPECT_EQ(session.chosenServer().toStdString(), wanted.toStdString());
    EXPECT_EQ(selected(), wanted.toStdString());
}

TEST_F(BrowserWindow, ManyLostServersAreOneLine)
{
    MediaServer servers({"--count", "200"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 200; })) << session.servers().countUp();
    const MediaServer well({"--address", "127.0.2.1", "--port", "6000"});
    ASSERT_TRUE(waitFor([this] { return session.servers().countUp() == 201; }));
    session.chooseServer("127.0.2.1:6000");
    auto* const line = find<QPushButton>("lostServers");
    const QAbstractItemModel* const shown = find<QListView>("servers")->model();
    EXPECT_FALSE(line->isVisible());
    servers.kill();
    ASSERT_TRUE(waitFor([&] { return shown->rowCount() == 1; })) << shown->rowCount();
    EXPECT_EQ(session.chosenServer().toStdString(), "127.0.2.1:6000");
    EXPECT_TRUE(line->isVisible());
    // One count for many changes: the line follows the rows with the next turn of the event loop.
    EXPECT_TRUE(waitFor([&] { return line->text().endsWith("Lost servers: 200"); })) << line->text().toStdString();
    line->click();
    EXPECT_EQ(shown->rowCount(), 201);
    line->click();
    EXPECT_EQ(shown->rowCount(), 1);
}

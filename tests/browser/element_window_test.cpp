// What the browser's window does with an element: its tile, its layer, its DMX value and its picture; and the saved
// log. SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <QAction>
#include <QClipboard>
#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QScrollBar>
#include <QStatusBar>
#include <QToolButton>
#include <QUrl>
#include <QWheelEvent>

#include "window_fixture.h"

namespace {
using Browser::ElementGrid;

class BrowserElements : public BrowserWindow
{
protected:
    /// Shows the library "Frames", whose ten elements have their pictures, and gives the elements the focus.
    ElementGrid* openFrames()
    {
        EXPECT_TRUE(waitFor([this] { return session.isChosenUp(); }));
        session.chooseLibrary(1, "1,3,0,0");
        EXPECT_TRUE(waitFor([this] { return areAllReady() && rowsReady() == 10; }));
        auto* const grid = find<ElementGrid>("elements");
        activate();
        grid->setFocus();
        return grid;
    }
    static void turnWheel(QWidget* widget, int angle, Qt::KeyboardModifiers modifiers)
    {
        const QPointF place = widget->rect().center();
        QWheelEvent event(place, widget->mapToGlobal(place.toPoint()), {}, {0, angle}, Qt::NoButton, modifiers,
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(widget, &event);
    }
    /// Answers the dialogue that asks for a file with @p path.
    void saveTo(QObject* parent, const QString& path)
    {
        auto* const dialog = parent->findChild<QFileDialog*>();
        ASSERT_TRUE(dialog);
        dialog->setOption(QFileDialog::DontConfirmOverwrite);
        dialog->selectFile(path);
        static_cast<QDialog*>(dialog)->accept();
    }
};
} // namespace

TEST_F(BrowserElements, TilesHaveTheSizeThatSliderAndWheelGiveThem)
{
    const MediaServer server;
    ElementGrid* grid = openFrames();
    auto* const slider = find<QSlider>("tileSize");
    const auto width = [&] { return grid->visualRect(session.elements().index(0)).width(); };
    const int normal = width();
    slider->setValue(240);
    EXPECT_EQ(width(), normal + 240 - ElementGrid::DefaultTileWidth);
    turnWheel(grid->viewport(), -120, Qt::ControlModifier);
    EXPECT_LT(slider->value(), 240);
    EXPECT_EQ(width(), normal + slider->value() - ElementGrid::DefaultTileWidth);
    // Steps of a fine wheel add up.
    const int before = slider->value();
    turnWheel(grid->viewport(), 60, Qt::ControlModifier);
    EXPECT_EQ(slider->value(), before);
    turnWheel(grid->viewport(), 60, Qt::ControlModifier);
    EXPECT_EQ(slider->value(), 240);
    turnWheel(grid->viewport(), -120, Qt::NoModifier);
    EXPECT_EQ(slider->value(), 240);
    EXPECT_GT(grid->verticalScrollBar()->value(), 0);
    key(Qt::Key_Plus, Qt::ControlModifier);
    EXPECT_GT(slider->value(), 240);
    slider->setValue(300);
    window->close();
    window = std::make_unique<Browser::MainWindow>(session);
    EXPECT_EQ(find<QSlider>("tileSize")->value(), 300);
    EXPECT_EQ(find<ElementGrid>("elements")->tileWidth(), 300);
}

TEST_F(BrowserElements, AKeyLeadsFromALayerToItsElementAndBack)
{
    const MediaServer server({"--layer-rate", "20"});
    ElementGrid* const grid = openFrames();
    auto* const layers = find<QTableView>("layers");
    ASSERT_TRUE(waitFor([this] { return session.layers().rowCount() == 2; }));
    const CITP::Layer played = session.layers().layer(1);
    ASSERT_NE(played.library.toStdString(), "1,3,0,0");
    key(Qt::Key_4, Qt::ControlModifier);
    layers->setCurrentIndex(session.layers().index(1, 0));
    key(Qt::Key_L, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] { return grid->hasFocus(); }));
    EXPECT_EQ(chosenLibrary().toStdString(), played.library.toStdString());
    EXPECT_EQ(session.elements().element(grid->currentIndex().row()).number, played.element);
    EXPECT_TRUE(waitFor([&] {
        return find<QTreeView>("libraries")->currentIndex().data(Browser::LibraryModel::IdRole) == played.library;
    }));
    layers->setCurrentIndex(session.layers().index(0, 0));
    key(Qt::Key_L, Qt::ControlModifier);
    EXPECT_TRUE(layers->hasFocus());
    EXPECT_EQ(layers->currentIndex().row(), 1);
    // One that none plays.
    session.chooseLibrary(1, "1,3,0,0");
    ASSERT_TRUE(waitFor([this] { return session.elements().rowCount() == 10; }));
    grid->setFocus();
    grid->setCurrentIndex(session.elements().index(9));
    key(Qt::Key_L, Qt::ControlModifier);
    EXPECT_TRUE(grid->hasFocus());
    EXPECT_EQ(window->statusBar()->currentMessage().toStdString(), "No layer plays this element.");
}

TEST_F(BrowserElements, TheDmxValueIsShownAndCopied)
{
    const MediaServer server({"--layers", "0"});
    ElementGrid* const grid = openFrames();
    CITP::Msg_MSEX_MEIN frames = mediaList("1,3,0,0", 10);
    frames.Media[3].Name = "Frame 03";
    frames.Media[3].DMXRangeMin = 40;
    frames.Media[3].DMXRangeMax = 43;
    session.elements().reload();
    Q_EMIT session.transport().mediaInfo(session.chosenServer(), frames);
    ASSERT_EQ(session.elements().element(3).dmxMax, 43);
    grid->setCurrentIndex(session.elements().index(3));
    const QString value = "40";
    key(Qt::Key_D, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), value.toStdString());
    auto* const fields = find<QTreeWidget>("fields");
    const QList<QTreeWidgetItem*> found = fields->findItems("DMX value", Qt::MatchExactly);
    ASSERT_EQ(found.size(), 1);
    EXPECT_EQ(found.first()->text(1).toStdString(), value.toStdString());
    // Each field can be copied.
    fields->setFocus();
    fields->setCurrentItem(fields->findItems("Name", Qt::MatchExactly).first());
    key(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), "Frame 03");
}

TEST_F(BrowserElements, APictureIsSavedToAFile)
{
    const MediaServer server({"--layers", "0"});
    ElementGrid* const grid = openFrames();
    const QTemporaryDir folder;
    grid->setCurrentIndex(session.elements().index(3));
    key(Qt::Key_S, Qt::ControlModifier);
    ASSERT_TRUE(window->findChild<QFileDialog*>());
    EXPECT_TRUE(window->findChild<QFileDialog*>()->selectedFiles().first().endsWith("/Frame 03.png"));
    saveTo(window.get(), folder.filePath("saved.png"));
    EXPECT_GE(QImage(folder.filePath("saved.png")).width(), 320);
    ASSERT_TRUE(waitFor([this] { return !window->findChild<QFileDialog*>(); }));
    activate();
    grid->setFocus();
    key(Qt::Key_S, Qt::ControlModifier);
    // What is replaced stays if it cannot be.
    QFile kept(folder.filePath("saved.nosuchformat"));
    ASSERT_TRUE(kept.open(QIODevice::WriteOnly));
    kept.write("kept");
    kept.close();
    saveTo(window.get(), kept.fileName());
    const auto* const box = window->findChild<QMessageBox*>();
    ASSERT_TRUE(box);
    EXPECT_TRUE(box->text().startsWith("The picture could not be saved: ")) << box->text().toStdString();
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll().toStdString(), "kept");
}

TEST_F(BrowserElements, APictureIsDraggedAsImageAndAsFile)
{
    const MediaServer server({"--layers", "0"});
    const ElementGrid* const grid = openFrames();
    EXPECT_TRUE(grid->dragEnabled());
    const QModelIndex index = session.elements().index(3);
    EXPECT_TRUE(index.flags().testFlag(Qt::ItemIsDragEnabled));
    const std::unique_ptr<QMimeData> data(session.elements().mimeData({index}));
    ASSERT_TRUE(data);
    EXPECT_FALSE(data->imageData().value<QImage>().isNull());
    ASSERT_EQ(data->urls().size(), 1);
    const QString file = data->urls().first().toLocalFile();
    EXPECT_TRUE(file.endsWith("/Frame 03.png")) << file.toStdString();
    EXPECT_EQ(QImage(file).size(), data->imageData().value<QImage>().size());
}

TEST_F(BrowserElements, TheLogIsSavedWhole)
{
    const std::string longest(1000, 'x');
    const Os::Log::Context context("BrowserTest");
    context.Write(Os::Log::Warning, text_base() << ("begin " + longest + " end").c_str(), "probe()", "probe.cpp", 1,
                  {});
    ASSERT_TRUE(waitFor([this] { return session.log().rowCount() > 0; }));
    auto* const level = find<QComboBox>("logLevel");
    level->setCurrentIndex(level->count() - 1);
    ASSERT_EQ(find<QTableView>("log")->model()->rowCount(), 0);
    const QTemporaryDir folder;
    find<QToolButton>("logSave")->click();
    saveTo(window.get(), folder.filePath("saved.log"));
    QFile file(folder.filePath("saved.log"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.readAll().contains(("\tBrowserTest\t\tbegin " + longest + " end\n").c_str()));
}

TEST_F(BrowserElements, ALibraryAndAServerAreExportedFromTheMenu)
{
    const MediaServer server({"--layers", "0", "--name", "Stage: 1"});
    openFrames();
    const QTemporaryDir folder;
    const auto answer = [this] {
        QString text;
        const bool isThere = waitFor([&] {
            const auto* const box = window->findChild<QMessageBox*>();
            text = box ? box->text() : QString();
            return box != nullptr;
        });
        EXPECT_TRUE(isThere);
        delete window->findChild<QMessageBox*>();
        return text.toStdString();
    };
    window->findChild<QAction*>("exportLibrary")->trigger();
    const auto* const dialog = window->findChild<QFileDialog*>();
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->selectedFiles().value(0).endsWith("/Stage_ 1 Numbered frames"))
        << dialog->selectedFiles().value(0).toStdString();
    const QString library = folder.filePath("library");
    saveTo(window.get(), library);
    EXPECT_EQ(answer(), ("10 of 10 pictures were written to " + library + ".").toStdString());
    EXPECT_TRUE(QFile::exists(library + "/library-1.3.0.0.html"));
    EXPECT_FALSE(QFile::exists(library + "/library-1.2.0.0.html"));
    EXPECT_TRUE(
        waitFor([this] { return !window->findChild<QFileDialog*>() && !window->findChild<QProgressDialog*>(); }));
    window->findChild<QAction*>("exportServer")->trigger();
    const QString all = folder.filePath("server");
    saveTo(window.get(), all);
    EXPECT_TRUE(QString::fromStdString(answer()).endsWith(" pictures were written to " + all + "."));
    EXPECT_TRUE(QFile::exists(all + "/library-1.2.0.0.html"));
    Browser::Preferences preferences = session.preferences();
    preferences.isQuiet = true;
    session.setPreferences(preferences);
    window->findChild<QAction*>("exportServer")->trigger();
    EXPECT_EQ(answer(), "In quiet mode nothing is requested ahead. Switch it off for the export.");
    preferences.isQuiet = false;
    session.setPreferences(preferences);
}

// Drives the window through a live session against simulated servers and saves what it shows, in a light and a dark
// palette and at the sizes of a small and a large screen.
// SPDX-License-Identifier: Apache-2.0
#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDockWidget>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QStandardPaths>
#include <QStyleFactory>
#include <QTest>

#include <cstdio>

#include "browser_fixture.h"
#include "models/session.h"
#include "window/main_window.h"

namespace {
using Browser::LibraryModel;
using Browser::MainWindow;
using Browser::PictureStore;
using Browser::Session;

// What is not there in time is said, and the run goes on: the picture shows what was there instead.
void expect(const char* what, const std::function<bool()>& isDone)
{
    if (!waitFor(isDone))
        ADD_FAILURE() << "did not happen: " << what;
}

class Photographer
{
public:
    explicit Photographer(QString folder) : m_folder(std::move(folder)) {}

    void take(MainWindow& window, const QString& name, const QSize& size = QSize(1280, 720)) const
    {
        window.resize(size);
        QTest::qWait(50);
        window.findChild<QAction*>("resetLayout")->trigger();
        window.findChild<QDockWidget*>(m_pane)->raise();
        QTest::qWait(150);
        const QString path = QDir(m_folder).filePath(name + ".png");
        EXPECT_TRUE(window.grab().save(path)) << path.toStdString();
        std::printf("%s\n", qPrintable(path));
    }

    /// The pane that is to be seen of those below.
    void raise(const char* pane) { m_pane = pane; }

private:
    QString m_folder;
    const char* m_pane = "layersPane";
};

QString patchFile(const QTemporaryDir& folder)
{
    QJsonArray fixtures;
    for (int i = 1; i <= 24; ++i)
        fixtures.append(QJsonObject{{"id", i},
                                    {"universe", (i - 1) / 12},
                                    {"channel", (i - 1) % 12 * 32 + 1},
                                    {"channels", i % 3 == 0 ? 16 : 32},
                                    {"make", i % 3 == 0 ? "Acme" : "Lumen Works"},
                                    {"name", i % 3 == 0 ? "Wash 300" : "Spot 700"}});
    const QString path = folder.filePath("patch.json");
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(fixtures).toJson());
    return path;
}

void openLibrary(Session& session, const QString& id)
{
    session.chooseLibrary(1, id);
    expect("pictures", [&] {
        return session.elements().state() == Browser::ElementModel::State::Loaded && session.pictures().total() > 0 &&
               session.pictures().done() == session.pictures().total();
    });
}

void run(const QString& folder)
{
    Photographer photographer(folder);
    const QTemporaryDir scratch;
    const PictureFolder pictures;
    Session session;
    MainWindow window(session);
    window.show();
    session.start();
    auto* const tree = window.findChild<QTreeView*>("libraries");
    expect("an adapter", [&] { return !session.adapter().address.isEmpty(); });
    photographer.take(window, "empty-network");

    MediaServer stage({"--name", "Stage left", "--media", pictures.path(), "--effects", "2", "--generic", "1",
                       "--layers", "4", "--layer-rate", "25", "--patch", patchFile(scratch)});
    MediaServer back({"--name", "Backdrop", "--address", "127.0.0.8", "--port", "4900", "--msex", "1.1"});
    MediaServer silent({"--name", "Balcony", "--address", "127.0.0.9", "--port", "4901", "--fault", "silence"});
    expect("three servers", [&] { return session.servers().countUp() == 3; });
    session.chooseServer("127.0.0.2:4811");
    expect("libraries", [&] { return session.libraries().find(1, "1,2,0,0").isValid(); });
    tree->expandAll();
    tree->setCurrentIndex(session.filteredLibraries().mapFromSource(session.libraries().find(1, "1,1,0,0")));
    openLibrary(session, "1,1,0,0");
    expect("layers", [&] { return session.layers().rowCount() == 4; });
    auto* const grid = window.findChild<Browser::ElementGrid*>("elements");
    grid->setFocus();
    QTest::keyClick(grid, Qt::Key_Right);
    QTest::keyClick(grid, Qt::Key_Right);
    expect("the preview", [&] {
        return session.pictures().state(session.elements().pictureId(1, Browser::PreviewPixels)) ==
               PictureStore::State::Ready;
    });
    photographer.take(window, "library");
    photographer.take(window, "library-large", QSize(2560, 1440));
    QTest::qWait(1500);
    photographer.take(window, "layers-in-motion");
    photographer.raise("patchPane");
    photographer.take(window, "patch");
    photographer.raise("logPane");
    photographer.take(window, "log");
    photographer.raise("layersPane");

    pictures.write("1 Skies/Fog.jpg", 99);
    pictures.write("1 Skies/Noon.jpg", 98);
    expect("the new picture", [&] { return session.elements().rowCount() == 9; });
    expect("its thumbnail", [&] { return session.pictures().done() == 9; });
    photographer.take(window, "library-updated");

    QTest::keyClicks(window.findChild<QLineEdit*>("search"), "rai");
    photographer.take(window, "filtered");
    window.findChild<QLineEdit*>("search")->clear();

    QApplication::setPalette(darkPalette());
    photographer.take(window, "library-dark");
    photographer.take(window, "library-dark-large", QSize(1920, 1080));
    stage.kill();
    expect("the loss", [&] { return !session.isChosenUp(); });
    photographer.take(window, "lost-server-dark");
    QApplication::setPalette(QApplication::style()->standardPalette());
    photographer.take(window, "lost-server");

    session.requests().setTimeout(1500);
    session.chooseServer("127.0.0.9:4901");
    session.chooseLibrary(1, "1,1,0,0");
    expect("the time-outs", [&] {
        return session.elements().state() == Browser::ElementModel::State::Failed &&
               !session.libraries().find(1, CITP::rootLibrary()).data(LibraryModel::ProblemRole).toString().isEmpty();
    });
    photographer.take(window, "silent-server");
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "browser_screenshots: give the folder to write to\n");
        return 2;
    }
    QStandardPaths::setTestModeEnabled(true);
    const QApplication application(argc, argv);
    QCoreApplication::setApplicationName("citp-browser-screenshots");
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    const QString folder = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(folder);
    run(folder);
    return ::testing::Test::HasFailure() ? 1 : 0;
}

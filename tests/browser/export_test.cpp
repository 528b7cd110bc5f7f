// Export: the pages of a library and of a server, what is missing on them, and what is left of an export that fails.
// SPDX-License-Identifier: Apache-2.0
#include "models/export.h"

#include "fake_transport.h"

#include <QDir>

#include "models_fixture.h"

namespace {
using Browser::Export;

std::string listing(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).join(' ').toStdString();
}

QString contentOf(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return QString::fromUtf8(file.readAll());
}

class BrowserExport : public BrowserModels
{
protected:
    /// Exports @p library, or all of the server, and waits for the end.
    std::unique_ptr<Export> run(quint8 type = 0, const QString& library = {}, const QString& name = {})
    {
        const CITP::Server server = session.directory().server(StageKey);
        auto it = std::make_unique<Export>(session.requests(), Export::Source{server, type, library, name}, pages, "");
        bool hasEnded = false;
        QObject::connect(it.get(), &Export::finished, it.get(), [&] { hasEnded = true; });
        EXPECT_TRUE(it->start()) << it->problem().toStdString();
        EXPECT_TRUE(waitFor([&] { return hasEnded; }));
        return it;
    }

    const QTemporaryDir folder;
    const QString pages = folder.filePath("pages");
};
} // namespace

TEST_F(BrowserExport, ALibraryBecomesAPageWithItsPictures)
{
    const MediaServer server({"--layers", "0", "--name", "Stage <1>"});
    openServer();
    const auto it = run(1, "1,3,0,0", "Frames");
    EXPECT_EQ(it->problem().toStdString(), "");
    EXPECT_EQ(it->written(), 10);
    EXPECT_EQ(it->total(), 10);
    EXPECT_EQ(listing(folder.path()), "pages");
    EXPECT_EQ(QDir(pages).entryList({"1.3.0.0-00?.*"}).size(), 10);
    EXPECT_EQ(QDir(pages).entryList({"*.html"}).join(' ').toStdString(), "index.html library-1.3.0.0.html");
    const QString page = contentOf(pages + "/library-1.3.0.0.html");
    EXPECT_EQ(page.count("<img "), 10);
    EXPECT_TRUE(page.contains("<bdi>3  Frame 03</bdi>")) << page.toStdString();
    EXPECT_TRUE(page.contains("<bdi>Library 1,3,0,0  Frames</bdi>")) << page.toStdString();
    EXPECT_TRUE(contentOf(pages + "/index.html").contains("Stage &lt;1&gt;"));
}

TEST_F(BrowserExport, AServerBecomesAPageForEachLibraryOfEveryType)
{
    const MediaServer server({"--layers", "0", "--effects", "1", "--generic", "1"});
    openServer();
    const auto it = run();
    EXPECT_EQ(it->problem().toStdString(), "");
    EXPECT_EQ(it->written(), it->total());
    EXPECT_EQ(it->missingLists(), 0);
    const QString index = contentOf(pages + "/index.html");
    for (const char* const page :
         {"library-1.3.0.0.html", "library-2.3.1.0.html", "library-2-1.1.0.0.html", "library-3-1.1.0.0.html"}) {
        EXPECT_TRUE(QFile::exists(pages + '/' + page)) << page;
        EXPECT_TRUE(index.contains(QString("href=\"%1\"").arg(page))) << page;
    }
    EXPECT_EQ(QDir(pages).entryList({"*.jpg", "*.png"}).size(), it->total());
}

TEST_F(BrowserExport, PicturesThatDoNotComeAreMissingOnThePage)
{
    const MediaServer server({"--layers", "0", "--fault", "spoil"});
    openServer();
    const auto it = run(1, "1,3,0,0");
    EXPECT_EQ(it->problem().toStdString(), "");
    EXPECT_EQ(it->written(), 0);
    EXPECT_EQ(it->total(), 10);
    EXPECT_EQ(contentOf(pages + "/library-1.3.0.0.html").count("class=\"missing\"></span>"), 10);
}

TEST_F(BrowserExport, NothingIsLeftIfTheServerIsLost)
{
    MediaServer server({"--layers", "0", "--fault", "delay", "--fault-delay", "100"});
    openServer();
    auto it =
        std::make_unique<Export>(session.requests(), Export::Source{session.directory().server(StageKey)}, pages, "");
    bool hasEnded = false;
    QObject::connect(it.get(), &Export::finished, it.get(), [&] { hasEnded = true; });
    QObject::connect(it.get(), &Export::progress, it.get(), [&](int done) {
        if (done == 1)
            server.kill();
    });
    ASSERT_TRUE(it->start());
    ASSERT_TRUE(waitFor([&] { return hasEnded; }));
    EXPECT_TRUE(it->problem().endsWith(" was lost.")) << it->problem().toStdString();
    EXPECT_FALSE(QFile::exists(pages));
    it.reset();
    EXPECT_EQ(listing(folder.path()), "");
}

TEST_F(BrowserExport, NothingIsLeftIfItIsCancelled)
{
    const MediaServer server({"--layers", "0", "--fault", "delay", "--fault-delay", "100"});
    openServer();
    auto it =
        std::make_unique<Export>(session.requests(), Export::Source{session.directory().server(StageKey)}, pages, "");
    int written = 0;
    QObject::connect(it.get(), &Export::progress, it.get(), [&](int done) { written = done; });
    ASSERT_TRUE(it->start());
    ASSERT_TRUE(waitFor([&] { return written > 0; }));
    it.reset();
    EXPECT_EQ(listing(folder.path()), "");
}

TEST_F(BrowserExport, AFolderThatIsNotEmptyIsLeftAlone)
{
    const MediaServer server;
    openServer();
    QDir(folder.path()).mkpath("pages/kept");
    Export it(session.requests(), {session.directory().server(StageKey)}, pages, "");
    EXPECT_FALSE(it.start());
    EXPECT_TRUE(it.problem().endsWith(": it is not empty.")) << it.problem().toStdString();
    EXPECT_EQ(listing(folder.path()), "pages");
}

TEST(Export, AServerThatListsTooMuchIsNotExported)
{
    const QTemporaryDir folder;
    FakeTransport net;
    std::vector<quint8> numbers;
    for (int number = 0; number < 256; ++number)
        numbers.push_back(static_cast<quint8>(number));
    net.onSend = [&](const CITP::Request& request) {
        net.at(net.now() + 1, [&net, &numbers, request] {
            if (request.kind == CITP::Request::Elements) {
                Q_EMIT net.mediaInfo(request.server, mein(2, request.library, numbers, "Film"));
                return;
            }
            // Two levels of libraries.
            const bool isTop = request.library == CITP::rootLibrary();
            QStringList ids;
            for (int i = 1; i <= 30; ++i)
                ids << (isTop ? QString("1,%1,0,0").arg(i)
                              : QString("2,%1,%2,0").arg(request.library.section(',', 1, 1)).arg(i));
            CITP::Msg_MSEX_ELIN list = elin(2, request.type, ids, "Library");
            for (auto& library : list.Libraries) {
                library.SubLibraryCount = isTop ? 30 : 0;
                library.ElementCount = 256;
            }
            Q_EMIT net.libraryInfo(request.server, list);
        });
        return true;
    };
    CITP::Requests requests(net);
    CITP::Directory directory(net);
    net.setUp(StageKey);
    CITP::Server server = directory.server(StageKey);
    server.types = {1};
    Export it(requests, {server}, folder.filePath("pages"), "");
    bool hasEnded = false;
    QObject::connect(&it, &Export::finished, &it, [&] { hasEnded = true; });
    ASSERT_TRUE(it.start());
    for (int i = 0; i < 1000 && !hasEnded; ++i)
        net.run(10);
    EXPECT_TRUE(it.problem().contains(" lists more than 100000 elements; export single libraries."))
        << it.problem().toStdString();
}

TEST(Export, OfAServerWithoutLibraryTypesEnds)
{
    const QTemporaryDir folder;
    FakeTransport net;
    CITP::Requests requests(net);
    CITP::Directory directory(net);
    net.setUp(StageKey);
    CITP::Server server = directory.server(StageKey);
    server.types.clear();
    Export it(requests, {server}, folder.filePath("pages"), "");
    bool hasEnded = false;
    QObject::connect(&it, &Export::finished, &it, [&] { hasEnded = true; });
    ASSERT_TRUE(it.start());
    EXPECT_TRUE(waitFor([&] { return hasEnded; }));
    EXPECT_EQ(it.problem().toStdString(), "There are no elements.");
}

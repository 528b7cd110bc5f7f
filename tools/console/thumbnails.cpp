// The command "thumbnails": saves the thumbnails of a server or library as files and draws contact sheets.
// SPDX-License-Identifier: Apache-2.0
#include <QDir>
#include <QPointer>
#include <deque>
#include <optional>
#include <utility>

#include "commands.h"
#include "contact_sheet.h"
#include "new_file.h"
#include "picture_file.h"
#include "picture_pages.h"
#include "pictures.h"
#include "printing.h"
#include "progress.h"
#include "session.h"

namespace Console {
namespace {
using CITP::Reply;

// An element and the state of its thumbnail.
struct Thumbnail
{
    CITP::Library library; ///< of a library given on the command line, only the identifier
    CITP::Element element;
    QString problem = "not requested"; ///< empty when the file was written
    QString file;
    QString page; ///< the file on the page
    QString format;
    QSize size;
    bool isDrawn = false; ///< on a contact sheet
};

QString detailOf(const Thumbnail& thumbnail)
{
    if (!thumbnail.problem.isEmpty())
        return escapeControls(thumbnail.problem);
    return QString("%1  %2 x %3").arg(thumbnail.format).arg(thumbnail.size.width()).arg(thumbnail.size.height());
}

QString pageProblem(const Options& options, const Tools::PicturePages& pages)
{
    return QString("could not write the pages %1: %2").arg(escapeControls(options.html), pages.problem());
}

class Fetcher
{
public:
    Fetcher(Session& session, const Options& options, std::vector<Thumbnail>& thumbnails, ContactSheets* sheets,
            Tools::PicturePages* pages)
        : m_session(session), m_options(options), m_thumbnails(thumbnails), m_sheets(sheets), m_pages(pages)
    {
    }
    // Tells of the thumbnails that were not waited for.
    ~Fetcher()
    {
        for (const QPointer<Reply>& reply : m_replies) {
            if (reply)
                reply->cancel();
        }
    }
    Fetcher(const Fetcher&) = delete;
    Fetcher& operator=(const Fetcher&) = delete;

    void run()
    {
        for (std::size_t index = 0; index < m_thumbnails.size(); ++index)
            request(index);
        const auto total = static_cast<int>(m_thumbnails.size());
        Progress progress(total);
        for (;;) {
            m_session.waitUntil([this] { return !m_arrived.empty() || m_ended == m_replies.size(); });
            if (isInterrupted())
                throw Interrupted{};
            if (!m_arrived.empty()) {
                const auto [index, picture] = std::move(m_arrived.front());
                m_arrived.pop_front();
                save(picture, index);
            } else if (m_ended == m_replies.size()) {
                break;
            }
            progress.show(static_cast<int>(m_ended - m_arrived.size()));
        }
        m_session.checkIsUp();
        if (!m_silence.isEmpty())
            throw Failure{m_silence + "; --timeout allows more time"};
    }

private:
    void request(std::size_t index)
    {
        const Thumbnail& thumbnail = m_thumbnails[index];
        Reply* const reply = m_session.requests().get({m_session.key(),
                                                       CITP::Request::ElementPicture,
                                                       static_cast<quint8>(m_options.type),
                                                       thumbnail.library.id,
                                                       {thumbnail.element.number},
                                                       m_options.size,
                                                       m_options.format});
        m_replies.emplace_back(reply);
        QObject::connect(reply, &Reply::finished, &m_context, [this, reply, index] { end(*reply, index); });
    }

    void end(const Reply& reply, std::size_t index)
    {
        ++m_ended;
        if (reply.status() == Reply::Answered)
            m_arrived.emplace_back(index, reply.picture());
        else if (reply.status() == Reply::Refused)
            m_thumbnails[index].problem = reply.errorString();
        else if (reply.attempts() > 0)
            m_thumbnails[index].problem = "no answer";
        if (reply.status() == Reply::TimedOut)
            m_silence = escapeControls(reply.errorString());
    }

    void save(const CITP::Picture& received, std::size_t index)
    {
        Thumbnail& thumbnail = m_thumbnails[index];
        const Tools::PictureFile picture = Tools::toPictureFile(received, m_options.size);
        thumbnail.problem = picture.problem;
        thumbnail.format = picture.format;
        thumbnail.size = picture.size;
        if (picture.problem.isEmpty() && m_pages)
            writeForPage(picture, thumbnail);
        if (picture.problem.isEmpty() && m_sheets)
            write(picture, thumbnail);
        if (m_sheets)
            m_sheets->draw(index, detailOf(thumbnail), thumbnail.problem.isEmpty() ? picture.image : QImage());
        thumbnail.isDrawn = true;
    }

    void writeForPage(const Tools::PictureFile& picture, Thumbnail& thumbnail)
    {
        thumbnail.page =
            m_pages->write(thumbnail.library.id, thumbnail.element.number, picture.content, picture.extension);
        if (thumbnail.page.isEmpty()) {
            thumbnail.problem = "could not be written: " + m_pages->problem();
            throw Failure{pageProblem(m_options, *m_pages)};
        }
    }

    void write(const Tools::PictureFile& picture, Thumbnail& thumbnail)
    {
        thumbnail.file = QDir(m_options.to)
                             .filePath(fileName(thumbnail.library.id, thumbnail.element.number, thumbnail.element.name,
                                                picture.extension));
        NewFile file(thumbnail.file);
        if (!file.open() || !file.write(picture.content) || !file.commit()) {
            thumbnail.problem = "could not be written: " + file.problem();
            thumbnail.file.clear();
        }
    }

    Session& m_session;
    const Options& m_options;
    std::vector<Thumbnail>& m_thumbnails;
    ContactSheets* m_sheets;      ///< null if no files are wanted
    Tools::PicturePages* m_pages; ///< null if no pages are wanted
    QObject m_context;
    std::vector<QPointer<Reply>> m_replies;
    std::size_t m_ended = 0;
    std::deque<std::pair<std::size_t, CITP::Picture>> m_arrived; ///< not written yet
    QString m_silence;                                           ///< why a request timed out
};

// A library that does not answer is skipped.
std::vector<Thumbnail> listThumbnails(Session& session, const Options& options, QStringList& problems)
{
    const auto type = static_cast<quint8>(options.type);
    CITP::Catalogue& catalogue = session.catalogue();
    std::vector<CITP::Library> libraries;
    if (options.library.isEmpty()) {
        catalogue.loadAll(type);
        session.waitForCatalogue();
        if (catalogue.librariesState(type) == CITP::Catalogue::Failed)
            throw Failure{escapeControls(catalogue.librariesProblem(type))};
        libraries = catalogue.allLibraries(type);
        if (const int missing = session.warnAboutLists(type, CITP::Request::Libraries))
            problems << QString("did not list the sub-libraries of %1 libraries").arg(missing);
        if (const int missing = session.warnAboutLists(type, CITP::Request::Elements))
            problems << QString("%1 libraries did not send their elements").arg(missing);
    } else {
        libraries.emplace_back().id = session.loadElements(type, options.library);
    }
    std::vector<Thumbnail> thumbnails;
    for (const CITP::Library& library : libraries) {
        const std::vector<CITP::Element>& elements = catalogue.elements(type, library.id);
        const bool isLoaded = catalogue.elementsState(type, library.id) == CITP::Catalogue::Loaded;
        if (options.library.isEmpty() && isLoaded && elements.size() != static_cast<std::size_t>(library.elements))
            warn(QString("%1: library %2 has %3 elements according to the library list, but sent %4")
                     .arg(session.name(), library.id, QString::number(library.elements),
                          QString::number(elements.size())));
        for (const CITP::Element& element : elements) {
            Thumbnail thumbnail;
            thumbnail.library = library;
            thumbnail.element = element;
            thumbnails.push_back(thumbnail);
        }
    }
    return thumbnails;
}

std::vector<SheetCell> sheetCells(const std::vector<Thumbnail>& thumbnails)
{
    std::vector<SheetCell> cells;
    cells.reserve(thumbnails.size());
    for (const Thumbnail& thumbnail : thumbnails)
        cells.push_back({escapeControls(QString("Library %1   %2").arg(thumbnail.library.id, thumbnail.library.name)),
                         escapeControls(QString("%1  %2").arg(thumbnail.element.number).arg(thumbnail.element.name))});
    return cells;
}

void drawMissing(const std::vector<Thumbnail>& thumbnails, ContactSheets& sheets)
{
    for (std::size_t index = 0; index < thumbnails.size(); ++index) {
        if (isInterrupted())
            throw Interrupted{};
        if (!thumbnails[index].isDrawn)
            sheets.draw(index, detailOf(thumbnails[index]), {});
    }
}

// @return the path of the first page
QString writePages(const Options& options, const std::vector<Thumbnail>& thumbnails, Tools::PicturePages& pages)
{
    std::vector<Tools::PageLibrary> libraries;
    for (const Thumbnail& thumbnail : thumbnails) {
        if (libraries.empty() || libraries.back().id != thumbnail.library.id)
            libraries.push_back({thumbnail.library.id, thumbnail.library.name, {}, options.type});
        libraries.back().cells.push_back(
            {QString("%1  %2").arg(QString::number(thumbnail.element.number), thumbnail.element.name),
             detailOf(thumbnail), thumbnail.page});
    }
    if (!pages.commit(libraries))
        throw Failure{pageProblem(options, pages)};
    return QDir(options.html).filePath("index.html");
}

void printAsJson(const Session& session, const Thumbnail& thumbnail)
{
    QJsonObject object{{"record", "thumbnail"},
                       {"server", session.key()},
                       {"library", thumbnail.library.id},
                       {"element", thumbnail.element.number},
                       {"name", thumbnail.element.name}};
    if (thumbnail.problem.isEmpty()) {
        if (!thumbnail.file.isEmpty())
            object.insert("file", thumbnail.file);
        object.insert("format", thumbnail.format);
        object.insert("width", thumbnail.size.width());
        object.insert("height", thumbnail.size.height());
    } else {
        object.insert("problem", thumbnail.problem);
    }
    printJson(object);
}

// @return the number of missing thumbnails
int report(const Session& session, const Options& options, const std::vector<Thumbnail>& thumbnails,
           const QStringList& sheets, const QString& page)
{
    int missing = 0;
    for (const Thumbnail& thumbnail : thumbnails) {
        missing += thumbnail.problem.isEmpty() ? 0 : 1;
        if (options.json)
            printAsJson(session, thumbnail);
    }
    const auto total = static_cast<int>(thumbnails.size());
    if (options.json) {
        for (const QString& sheet : sheets)
            printJson({{"record", "contactSheet"}, {"server", session.key()}, {"contactSheet", sheet}});
        if (!page.isEmpty())
            printJson({{"record", "page"}, {"server", session.key()}, {"page", page}});
        printJson({{"record", "thumbnails"},
                   {"server", session.key()},
                   {"thumbnails", total},
                   {"written", total - missing},
                   {"missing", missing}});
        return missing;
    }
    printLine(QString("%1: %2 of %3 thumbnails written to %4")
                  .arg(session.name(), QString::number(total - missing), QString::number(total),
                       escapeControls(options.to.isEmpty() ? options.html : options.to)));
    if (missing > 0)
        printLine(QString("%1 missing:").arg(missing));
    for (const Thumbnail& thumbnail : thumbnails) {
        if (!thumbnail.problem.isEmpty())
            printLine(QString("  library %1, element %2 \"%3\": %4")
                          .arg(thumbnail.library.id)
                          .arg(thumbnail.element.number)
                          .arg(escapeControls(thumbnail.element.name), escapeControls(thumbnail.problem)));
    }
    for (const QString& sheet : sheets)
        printLine("contact sheet: " + escapeControls(sheet));
    if (!page.isEmpty())
        printLine("page: " + escapeControls(page));
    return missing;
}
} // namespace

int fetchThumbnails(const Options& options)
{
    if (!options.to.isEmpty() && !QDir().mkpath(options.to))
        throw Failure{QString("could not create the folder %1").arg(escapeControls(options.to))};
    Session session(options);
    std::optional<Tools::PicturePages> pages;
    if (!options.html.isEmpty() && !pages.emplace(options.html, toText(session.server(), true)).open())
        throw Failure{pageProblem(options, *pages)};
    QStringList problems;
    std::vector<Thumbnail> thumbnails = listThumbnails(session, options, problems);
    // Without any element there is nothing to fetch.
    if (thumbnails.empty() && !problems.isEmpty())
        throw Failure{session.name() + ": " + problems.join("; ")};
    const QString count = QString::number(thumbnails.size());
    std::optional<ContactSheets> sheets;
    if (!options.to.isEmpty())
        sheets.emplace(options.to, QString("%1  %2 elements").arg(toText(session.server()), count),
                       sheetCells(thumbnails));
    // The thumbnails fetched before a failure are still reported, and drawn unless the user waits for the end.
    QString failure;
    QString page;
    try {
        try {
            Fetcher(session, options, thumbnails, sheets ? &*sheets : nullptr, pages ? &*pages : nullptr).run();
            if (pages)
                page = writePages(options, thumbnails, *pages);
        } catch (const Failure& caught) {
            failure = caught.text;
        }
        if (sheets)
            drawMissing(thumbnails, *sheets);
    } catch (const Interrupted&) {
        failure = "interrupted";
    }
    if (sheets && !sheets->problem().isEmpty())
        problems << sheets->problem();
    // Without the pages, there are no files either.
    for (Thumbnail& thumbnail : thumbnails) {
        if (options.to.isEmpty() && page.isEmpty() && thumbnail.problem.isEmpty())
            thumbnail.problem = "the pages were not written";
    }
    const int missing = report(session, options, thumbnails, sheets ? sheets->paths() : QStringList(), page);
    if (const qint64 unexpected = session.requests().statistics().unexpected)
        warn(QString("%1: %2 answers were unexpected or damaged").arg(session.name(), QString::number(unexpected)));
    if (missing > 0)
        problems.prepend(QString("%1 of %2 thumbnails are missing").arg(missing).arg(thumbnails.size()));
    if (!failure.isEmpty() || !problems.isEmpty())
        throw Failure{failure.isEmpty() ? session.name() + ": " + problems.join("; ") : failure};
    return 0;
}
} // namespace Console

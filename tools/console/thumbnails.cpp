// The command "thumbnails": saves the thumbnails of a server or library as files and draws contact sheets.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QDir>
#include <QHash>
#include <deque>
#include <utility>

#include "catalogue.h"
#include "commands.h"
#include "contact_sheet.h"
#include "inbox.h"
#include "new_file.h"
#include "pictures.h"
#include "printing.h"
#include "progress.h"

namespace Console {
namespace {
// Pending requests: enough to hide the network latency, few enough not to overload the server.
constexpr int MaxInFlight = 4;
// More than any show has. Bounds the memory for a server that lists elements without end.
constexpr std::size_t MaxThumbnails = 100000;

// An element and the state of its thumbnail.
struct Thumbnail
{
    QString libraryId;
    QString libraryName;
    Element element;
    QString problem = "not requested"; ///< empty when the file was written
    QString file;
    QString format;
    QSize size;
    bool isDrawn = false; ///< on a contact sheet
};

// The libraries to fetch. Only the id of a library given on the command line is set.
LibraryList requestedLibraries(Session& session, const Options& options)
{
    if (options.library.isEmpty())
        return fetchLibraries(session, static_cast<quint8>(options.type));
    Library library;
    library.info.LIBID = libraryId(options.library, session.msexMinor());
    return {{library}, {}};
}

// The answers that the stack's thread has received. No more wait than were requested.
struct ThumbnailAnswers
{
    QHash<QString, std::size_t> expected; ///< index of the thumbnail, by requestKey()
    std::deque<std::pair<std::size_t, CITP::Msg_MSEX_ETHN>> arrived;
    int unexpected = 0; ///< answers that match no pending request
};

QString detailOf(const Thumbnail& thumbnail)
{
    if (!thumbnail.problem.isEmpty())
        return escapeControls(thumbnail.problem);
    return QString("%1  %2 x %3").arg(thumbnail.format).arg(thumbnail.size.width()).arg(thumbnail.size.height());
}

class Fetcher
{
public:
    Fetcher(Session& session, const Options& options, std::vector<Thumbnail>& thumbnails, ContactSheets& sheets)
        : m_session(session), m_options(options), m_thumbnails(thumbnails), m_sheets(sheets)
    {
        const int type = options.type;
        m_inbox.receiveFrom(session.key(), &CITP::citp_stack::elementThumbnail,
                            [type](ThumbnailAnswers& answers, const CITP::Msg_MSEX_ETHN& answer) {
                                const auto request =
                                    answers.expected.find(requestKey(answer.LibraryId, answer.ElementNumber));
                                if (request == answers.expected.end() || answer.LibraryType != type) {
                                    ++answers.unexpected;
                                    return;
                                }
                                answers.arrived.emplace_back(*request, answer);
                                answers.expected.erase(request);
                            });
    }

    void run()
    {
        Progress progress(static_cast<int>(m_thumbnails.size()));
        m_sinceAnswer.start();
        while (m_next < m_thumbnails.size() || !m_pending.isEmpty()) {
            sendRequests();
            m_session.waitUntil([&] { return !m_inbox.state()->arrived.empty(); }, 100);
            const auto arrived = std::exchange(m_inbox.state()->arrived, {});
            for (const auto& [index, answer] : arrived)
                handleAnswer(index, answer);
            expire();
            progress.show(m_done);
        }
    }

    /// Number of answers that match no pending request.
    int unexpected() { return m_inbox.state()->unexpected; }

private:
    static QString requestKey(const QString& library, int element)
    {
        return QString("%1/%2").arg(library).arg(element);
    }

    static QString requestKey(const Thumbnail& thumbnail)
    {
        return requestKey(thumbnail.libraryId, thumbnail.element.number);
    }

    void sendRequests()
    {
        for (; m_pending.size() < MaxInFlight && m_next < m_thumbnails.size(); ++m_next) {
            Thumbnail& thumbnail = m_thumbnails[m_next];
            m_inbox.state()->expected.insert(requestKey(thumbnail), m_next);
            m_session.send(CITP::Msg_MSEX_GETH(m_session.msexMinor(), static_cast<quint8>(m_options.type),
                                               thumbnail.libraryId, static_cast<quint16>(m_options.size.height()),
                                               static_cast<quint16>(m_options.size.width()), m_options.format,
                                               {thumbnail.element.number}));
            thumbnail.problem = "no answer";
            m_pending[m_next].start();
        }
    }

    void handleAnswer(std::size_t index, const CITP::Msg_MSEX_ETHN& answer)
    {
        Thumbnail& thumbnail = m_thumbnails[index];
        m_pending.remove(index);
        m_sinceAnswer.start();
        ++m_done;
        const PictureFile picture = toPictureFile(CITP::pictureOf(answer), m_options.size);
        thumbnail.problem = picture.problem;
        if (picture.problem.isEmpty())
            write(picture, thumbnail);
        m_sheets.draw(index, detailOf(thumbnail), thumbnail.problem.isEmpty() ? picture.image : QImage());
        thumbnail.isDrawn = true;
    }

    void write(const PictureFile& picture, Thumbnail& thumbnail)
    {
        thumbnail.format = picture.format;
        thumbnail.size = picture.size;
        thumbnail.file = QDir(m_options.to)
                             .filePath(fileName(thumbnail.libraryId, thumbnail.element.number, thumbnail.element.name,
                                                picture.extension));
        NewFile file(thumbnail.file);
        if (!file.open() || !file.write(picture.content) || !file.commit()) {
            thumbnail.problem = "could not be written: " + file.problem();
            thumbnail.file.clear();
        }
    }

    // A single lost answer only fails its own request. If the server sends no answers at all, the command stops.
    void expire()
    {
        bool hasExpired = false;
        for (auto request = m_pending.begin(); request != m_pending.end();) {
            if (request->elapsed() < m_session.timeoutMs()) {
                ++request;
                continue;
            }
            m_inbox.state()->expected.remove(requestKey(m_thumbnails[request.key()]));
            request = m_pending.erase(request);
            ++m_done;
            hasExpired = true;
        }
        if (hasExpired && m_sinceAnswer.elapsed() >= m_session.timeoutMs())
            throw Failure{QString("%1 does not answer: no thumbnail for %2; --timeout allows more time")
                              .arg(m_session.name(), secondsText(m_session.timeoutMs()))};
    }

    Session& m_session;
    const Options& m_options;
    std::vector<Thumbnail>& m_thumbnails;
    ContactSheets& m_sheets;
    Inbox<ThumbnailAnswers> m_inbox;
    std::size_t m_next = 0;
    QMap<std::size_t, QElapsedTimer> m_pending; ///< by index, since when
    QElapsedTimer m_sinceAnswer;
    int m_done = 0;
};

struct ThumbnailList
{
    std::vector<Thumbnail> thumbnails;
    QStringList problems; ///< why thumbnails may be missing in the list
};

// A library that does not answer is skipped. After two in a row, no more are requested.
ThumbnailList listThumbnails(Session& session, const Options& options)
{
    ThumbnailList list;
    const LibraryList libraries = requestedLibraries(session, options);
    if (!libraries.problem.isEmpty())
        list.problems << libraries.problem;
    int silent = 0;
    bool hasFailed = false;
    for (const Library& library : libraries.libraries) {
        std::vector<Element> elements;
        try {
            elements = fetchElements(session, static_cast<quint8>(options.type), library.info.LIBID).elements;
            hasFailed = false;
        } catch (const NoAnswer& silence) {
            // Without any element there is nothing to fetch.
            if (!options.library.isEmpty() || (hasFailed && list.thumbnails.empty()))
                throw;
            warn(silence.text);
            ++silent;
            if (hasFailed)
                break;
            hasFailed = true;
            continue;
        }
        if (options.library.isEmpty() && elements.size() != library.info.ElementCount)
            warn(QString("library %1 has %2 elements according to the library list, but sent %3")
                     .arg(library.info.LIBID)
                     .arg(library.info.ElementCount)
                     .arg(elements.size()));
        for (const Element& element : elements) {
            Thumbnail thumbnail;
            thumbnail.libraryId = library.info.LIBID;
            thumbnail.libraryName = library.info.Name;
            thumbnail.element = element;
            list.thumbnails.push_back(thumbnail);
        }
        if (list.thumbnails.size() > MaxThumbnails)
            throw Failure{QString("%1 lists more than %2 elements; give a library")
                              .arg(session.name(), QString::number(MaxThumbnails))};
    }
    if (silent > 0)
        list.problems << QString("%1 libraries did not send their elements").arg(silent);
    return list;
}

std::vector<SheetCell> sheetCells(const std::vector<Thumbnail>& thumbnails)
{
    std::vector<SheetCell> cells;
    cells.reserve(thumbnails.size());
    for (const Thumbnail& thumbnail : thumbnails)
        cells.push_back({escapeControls(QString("Library %1   %2").arg(thumbnail.libraryId, thumbnail.libraryName)),
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

void printAsJson(const Session& session, const Thumbnail& thumbnail)
{
    QJsonObject object{{"server", session.key()},
                       {"library", thumbnail.libraryId},
                       {"element", thumbnail.element.number},
                       {"name", thumbnail.element.name}};
    if (thumbnail.problem.isEmpty()) {
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
           const QStringList& sheets)
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
            printJson({{"server", session.key()}, {"contactSheet", sheet}});
        printJson(
            {{"server", session.key()}, {"thumbnails", total}, {"written", total - missing}, {"missing", missing}});
        return missing;
    }
    printLine(
        QString("%1: %2 of %3 thumbnails written to %4")
            .arg(session.name(), QString::number(total - missing), QString::number(total), escapeControls(options.to)));
    if (missing > 0)
        printLine(QString("%1 missing:").arg(missing));
    for (const Thumbnail& thumbnail : thumbnails) {
        if (!thumbnail.problem.isEmpty())
            printLine(QString("  library %1, element %2 \"%3\": %4")
                          .arg(thumbnail.libraryId)
                          .arg(thumbnail.element.number)
                          .arg(escapeControls(thumbnail.element.name), escapeControls(thumbnail.problem)));
    }
    for (const QString& sheet : sheets)
        printLine("contact sheet: " + escapeControls(sheet));
    return missing;
}
} // namespace

int fetchThumbnails(const Options& options)
{
    if (!QDir().mkpath(options.to))
        throw Failure{QString("could not create the folder %1").arg(escapeControls(options.to))};
    Session session(options);
    ThumbnailList list = listThumbnails(session, options);
    std::vector<Thumbnail>& thumbnails = list.thumbnails;
    const QString count = QString::number(thumbnails.size());
    ContactSheets sheets(options.to, QString("%1  %2 elements").arg(toText(session.server()), count),
                         sheetCells(thumbnails));
    Fetcher fetcher(session, options, thumbnails, sheets);
    // The thumbnails fetched before a failure are still reported, and drawn unless the user waits for the end.
    QString failure;
    try {
        try {
            fetcher.run();
        } catch (const Failure& caught) {
            failure = caught.text;
        }
        drawMissing(thumbnails, sheets);
    } catch (const Interrupted&) {
        failure = "interrupted";
    }
    QStringList problems = list.problems;
    if (!sheets.problem().isEmpty())
        problems << sheets.problem();
    const int missing = report(session, options, thumbnails, sheets.paths());
    if (fetcher.unexpected() > 0)
        warn(QString("%1 answers were unexpected or damaged").arg(fetcher.unexpected()));
    if (missing > 0)
        problems.prepend(QString("%1 of %2 thumbnails are missing").arg(missing).arg(thumbnails.size()));
    if (!failure.isEmpty() || !problems.isEmpty())
        throw Failure{failure.isEmpty() ? problems.join("; ") : failure};
    return 0;
}
} // namespace Console

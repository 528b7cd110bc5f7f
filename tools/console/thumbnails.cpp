// The command "thumbnails": saves the thumbnails of a server or library as files and draws contact sheets.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_requests.h>

#include <QDir>
#include <QHash>
#include <QSaveFile>

#include "catalogue.h"
#include "commands.h"
#include "contact_sheet.h"
#include "pictures.h"
#include "printing.h"
#include "progress.h"

namespace Console {
namespace {
// Pending requests: enough to hide the network latency, few enough not to overload the server.
constexpr int MaxInFlight = 4;

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
};

// The libraries to fetch. Only the id of a library given on the command line is set.
std::vector<Library> requestedLibraries(Session& session, const Options& options)
{
    if (options.library.isEmpty())
        return fetchLibraries(session, static_cast<quint8>(options.type));
    Library library;
    library.info.LIBID = libraryId(options.library, session.msexMinor());
    return {library};
}

class Fetcher
{
public:
    Fetcher(Session& session, const Options& options, std::vector<Thumbnail>& thumbnails)
        : m_session(session), m_options(options), m_thumbnails(thumbnails)
    {
        QObject::connect(CITP::citp_stack::Get(), &CITP::citp_stack::elementThumbnail, &m_scope,
                         [this](const QString& key, const CITP::Msg_MSEX_ETHN& answer) {
                             if (key == m_session.key())
                                 handleAnswer(answer);
                         });
    }

    void run()
    {
        Progress progress(static_cast<int>(m_thumbnails.size()));
        m_sinceAnswer.start();
        while (m_next < m_thumbnails.size() || !m_pending.isEmpty()) {
            sendRequests();
            const auto done = m_done;
            m_session.waitUntil([&] { return m_done != done; }, 100);
            expire();
            progress.show(m_done);
        }
    }

    /// Number of answers that match no pending request.
    int unexpected() const { return m_unexpected; }

private:
    struct Request
    {
        std::size_t index;
        QElapsedTimer since;
    };

    static QString requestKey(const QString& library, int element)
    {
        return QString("%1/%2").arg(library).arg(element);
    }

    void sendRequests()
    {
        for (; m_pending.size() < MaxInFlight && m_next < m_thumbnails.size(); ++m_next) {
            const Thumbnail& thumbnail = m_thumbnails[m_next];
            m_session.send(CITP::Msg_MSEX_GETH(m_session.msexMinor(), static_cast<quint8>(m_options.type),
                                               thumbnail.libraryId, static_cast<quint16>(m_options.size.height()),
                                               static_cast<quint16>(m_options.size.width()), m_options.format,
                                               {thumbnail.element.number}));
            Request request{m_next, {}};
            request.since.start();
            m_pending.insert(requestKey(thumbnail.libraryId, thumbnail.element.number), request);
        }
    }

    void handleAnswer(const CITP::Msg_MSEX_ETHN& answer)
    {
        const auto request = m_pending.constFind(requestKey(answer.LibraryId, answer.ElementNumber));
        if (request == m_pending.constEnd() || answer.LibraryType != m_options.type) {
            ++m_unexpected;
            return;
        }
        Thumbnail& thumbnail = m_thumbnails[request->index];
        m_pending.erase(request);
        m_sinceAnswer.start();
        ++m_done;
        const Picture picture = toPicture(answer);
        thumbnail.problem = picture.problem;
        if (picture.problem.isEmpty())
            write(picture, thumbnail);
    }

    void write(const Picture& picture, Thumbnail& thumbnail)
    {
        thumbnail.format = picture.format;
        thumbnail.size = picture.size;
        thumbnail.file = QDir(m_options.to)
                             .filePath(fileName(thumbnail.libraryId, thumbnail.element.number, thumbnail.element.name,
                                                picture.extension));
        QSaveFile file(thumbnail.file);
        if (!file.open(QIODevice::WriteOnly) || file.write(picture.file) != picture.file.size() || !file.commit()) {
            thumbnail.problem = "could not be written: " + file.errorString();
            thumbnail.file.clear();
        }
    }

    // A single lost answer only fails its own request. If the server sends no answers at all, the command stops.
    void expire()
    {
        for (auto request = m_pending.begin(); request != m_pending.end();) {
            if (request->since.elapsed() < m_session.timeoutMs()) {
                ++request;
                continue;
            }
            m_thumbnails[request->index].problem = "no answer";
            request = m_pending.erase(request);
            ++m_done;
            m_hasExpired = true;
        }
        if (m_hasExpired && m_sinceAnswer.elapsed() >= m_session.timeoutMs()) {
            for (const Request& request : qAsConst(m_pending))
                m_thumbnails[request.index].problem = "no answer";
            throw Failure{QString("%1 does not answer: no thumbnail for %2; --timeout allows more time")
                              .arg(m_session.name(), secondsText(m_session.timeoutMs()))};
        }
        m_hasExpired = false;
    }

    Session& m_session;
    const Options& m_options;
    std::vector<Thumbnail>& m_thumbnails;
    std::size_t m_next = 0;
    QHash<QString, Request> m_pending;
    QElapsedTimer m_sinceAnswer;
    bool m_hasExpired = false;
    int m_done = 0;
    int m_unexpected = 0;
    QObject m_scope; ///< last, so that it disconnects the signals before other members are destroyed
};

struct ThumbnailList
{
    std::vector<Thumbnail> thumbnails;
    bool isComplete = true; ///< every library has sent its elements
};

// A single library that does not answer is skipped. After two in a row, the command stops.
ThumbnailList listThumbnails(Session& session, const Options& options)
{
    ThumbnailList list;
    bool hasFailed = false;
    for (const Library& library : requestedLibraries(session, options)) {
        std::vector<Element> elements;
        try {
            elements = fetchElements(session, static_cast<quint8>(options.type), library.info.LIBID).elements;
            hasFailed = false;
        } catch (const Failure& failure) {
            if (hasFailed || session.isDown() || !options.library.isEmpty())
                throw;
            warn(failure.text);
            hasFailed = true;
            list.isComplete = false;
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
    }
    return list;
}

QStringList drawSheets(const Session& session, const Options& options, const std::vector<Thumbnail>& thumbnails)
{
    std::vector<SheetCell> cells;
    int written = 0;
    for (const Thumbnail& thumbnail : thumbnails) {
        written += thumbnail.problem.isEmpty() ? 1 : 0;
        SheetCell cell;
        cell.section = escapeControls(QString("Library %1   %2").arg(thumbnail.libraryId, thumbnail.libraryName));
        cell.label = escapeControls(QString("%1  %2").arg(thumbnail.element.number).arg(thumbnail.element.name));
        cell.detail =
            thumbnail.problem.isEmpty()
                ? QString("%1  %2 x %3").arg(thumbnail.format).arg(thumbnail.size.width()).arg(thumbnail.size.height())
                : escapeControls(thumbnail.problem);
        cell.file = thumbnail.file;
        cells.push_back(cell);
    }
    const QString title =
        QString("%1  %2 of %3 thumbnails")
            .arg(toText(session.server()), QString::number(written), QString::number(thumbnails.size()));
    return writeContactSheets(options.to, title, cells);
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
    Fetcher fetcher(session, options, thumbnails);
    // The thumbnails fetched before a failure are still reported.
    QString failure;
    try {
        fetcher.run();
    } catch (const Failure& caught) {
        failure = caught.text;
    } catch (const Interrupted&) {
        failure = "interrupted";
    }
    QStringList sheets;
    bool isComplete = list.isComplete;
    try {
        sheets = drawSheets(session, options, thumbnails);
    } catch (const Failure& caught) {
        warn(caught.text);
        isComplete = false;
    }
    const int missing = report(session, options, thumbnails, sheets);
    if (fetcher.unexpected() > 0)
        warn(QString("%1 answers were unexpected or damaged").arg(fetcher.unexpected()));
    if (!failure.isEmpty())
        throw Failure{failure};
    return missing > 0 || !isComplete ? 1 : 0;
}
} // namespace Console

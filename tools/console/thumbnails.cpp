// The command "thumbnails": every picture of a server or library as a file, and all of them on a contact sheet.
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
// Enough to keep a server busy across the network's delay, too few to flood it.
constexpr int InFlight = 4;

// One element and what has become of its thumbnail.
struct Thumbnail
{
    QString libraryId;
    QString libraryName;
    Element element;
    QString problem = "not asked for"; ///< empty once the file is written
    QString file;
    QString format;
    QSize size;
};

// The libraries that the command is about; of one that was named, only its identity is known.
std::vector<Library> wantedLibraries(Session& session, const Options& options)
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
                                 take(answer);
                         });
    }

    void run()
    {
        Progress progress(static_cast<int>(m_thumbnails.size()));
        m_sinceUsable.start();
        while (m_next < m_thumbnails.size() || !m_pending.isEmpty()) {
            askForMore();
            const auto done = m_done;
            m_session.pump([&] { return m_done != done; }, 100);
            expire();
            progress.show(m_done);
        }
    }

    /// Answers that belonged to no request.
    int strangers() const { return m_strangers; }

private:
    struct Request
    {
        std::size_t index;
        QElapsedTimer since;
    };

    static QString nameOf(const QString& library, int element) { return QString("%1/%2").arg(library).arg(element); }

    void askForMore()
    {
        for (; m_pending.size() < InFlight && m_next < m_thumbnails.size(); ++m_next) {
            const Thumbnail& thumbnail = m_thumbnails[m_next];
            m_session.send(CITP::Msg_MSEX_GETH(m_session.msexMinor(), static_cast<quint8>(m_options.type),
                                               thumbnail.libraryId, static_cast<quint16>(m_options.size.height()),
                                               static_cast<quint16>(m_options.size.width()), m_options.format,
                                               {thumbnail.element.number}));
            Request request{m_next, {}};
            request.since.start();
            m_pending.insert(nameOf(thumbnail.libraryId, thumbnail.element.number), request);
        }
    }

    void take(const CITP::Msg_MSEX_ETHN& answer)
    {
        const auto request = m_pending.constFind(nameOf(answer.LibraryId, answer.ElementNumber));
        if (request == m_pending.constEnd() || answer.LibraryType != m_options.type) {
            ++m_strangers;
            return;
        }
        Thumbnail& thumbnail = m_thumbnails[request->index];
        m_pending.erase(request);
        m_sinceUsable.start();
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

    // A single lost answer costs its own time only; a server that answers nothing at all ends the whole.
    void expire()
    {
        for (auto request = m_pending.begin(); request != m_pending.end();) {
            if (request->since.elapsed() < m_session.limitMs()) {
                ++request;
                continue;
            }
            m_thumbnails[request->index].problem = "no answer";
            request = m_pending.erase(request);
            ++m_done;
            m_hasExpired = true;
        }
        if (m_hasExpired && m_sinceUsable.elapsed() >= m_session.limitMs()) {
            for (const Request& request : qAsConst(m_pending))
                m_thumbnails[request.index].problem = "no answer";
            throw Failure{QString("%1 does not answer: no usable thumbnail for %2 s; --timeout allows more time")
                              .arg(m_session.name(), QString::number(m_session.limitMs() / 1000.0))};
        }
        m_hasExpired = false;
    }

    Session& m_session;
    const Options& m_options;
    std::vector<Thumbnail>& m_thumbnails;
    std::size_t m_next = 0;
    QHash<QString, Request> m_pending;
    QElapsedTimer m_sinceUsable;
    bool m_hasExpired = false;
    int m_done = 0;
    int m_strangers = 0;
    QObject m_scope; ///< last, so that nothing is taken any more once members go
};

struct Wanted
{
    std::vector<Thumbnail> thumbnails;
    bool isWhole = true; ///< every library has told its elements
};

// A single library that does not tell costs its own time only; two in succession mean that the server tells nothing.
Wanted listWanted(Session& session, const Options& options)
{
    Wanted wanted;
    bool hasFailed = false;
    for (const Library& library : wantedLibraries(session, options)) {
        std::vector<Element> elements;
        try {
            elements = fetchElements(session, static_cast<quint8>(options.type), library.info.LIBID).elements;
            hasFailed = false;
        } catch (const Failure& failure) {
            if (hasFailed || session.isDown() || !options.library.isEmpty())
                throw;
            complain(failure.text);
            hasFailed = true;
            wanted.isWhole = false;
            continue;
        }
        if (options.library.isEmpty() && elements.size() != library.info.ElementCount)
            complain(QString("library %1 should have %2 elements, but lists %3")
                         .arg(library.info.LIBID)
                         .arg(library.info.ElementCount)
                         .arg(elements.size()));
        for (const Element& element : elements) {
            Thumbnail thumbnail;
            thumbnail.libraryId = library.info.LIBID;
            thumbnail.libraryName = library.info.Name;
            thumbnail.element = element;
            wanted.thumbnails.push_back(thumbnail);
        }
    }
    return wanted;
}

QStringList drawSheets(const Session& session, const Options& options, const std::vector<Thumbnail>& thumbnails)
{
    std::vector<SheetCell> cells;
    int written = 0;
    for (const Thumbnail& thumbnail : thumbnails) {
        written += thumbnail.problem.isEmpty() ? 1 : 0;
        SheetCell cell;
        cell.section = harmless(QString("Library %1   %2").arg(thumbnail.libraryId, thumbnail.libraryName));
        cell.label = harmless(QString("%1  %2").arg(thumbnail.element.number).arg(thumbnail.element.name));
        cell.detail =
            thumbnail.problem.isEmpty()
                ? QString("%1  %2 x %3").arg(thumbnail.format).arg(thumbnail.size.width()).arg(thumbnail.size.height())
                : harmless(thumbnail.problem);
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

// @return how many are missing
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
    printLine(QString("%1: %2 of %3 thumbnails written to %4")
                  .arg(session.name(), QString::number(total - missing), QString::number(total), harmless(options.to)));
    if (missing > 0)
        printLine(QString("%1 missing:").arg(missing));
    for (const Thumbnail& thumbnail : thumbnails) {
        if (!thumbnail.problem.isEmpty())
            printLine(QString("  library %1, element %2 \"%3\": %4")
                          .arg(thumbnail.libraryId)
                          .arg(thumbnail.element.number)
                          .arg(harmless(thumbnail.element.name), harmless(thumbnail.problem)));
    }
    for (const QString& sheet : sheets)
        printLine("contact sheet: " + harmless(sheet));
    return missing;
}
} // namespace

int fetchThumbnails(const Options& options)
{
    if (!QDir().mkpath(options.to))
        throw Failure{QString("could not make the folder %1").arg(harmless(options.to))};
    Session session(options);
    Wanted wanted = listWanted(session, options);
    std::vector<Thumbnail>& thumbnails = wanted.thumbnails;
    Fetcher fetcher(session, options, thumbnails);
    // What was fetched before a failure is worth its report.
    QString failure;
    try {
        fetcher.run();
    } catch (const Failure& caught) {
        failure = caught.text;
    } catch (const Interrupted&) {
        failure = "interrupted";
    }
    QStringList sheets;
    bool isWhole = wanted.isWhole;
    try {
        sheets = drawSheets(session, options, thumbnails);
    } catch (const Failure& caught) {
        complain(caught.text);
        isWhole = false;
    }
    const int missing = report(session, options, thumbnails, sheets);
    if (fetcher.strangers() > 0)
        complain(QString("%1 answers were to nothing that was asked, or damaged").arg(fetcher.strangers()));
    if (!failure.isEmpty())
        throw Failure{failure};
    return missing > 0 || !isWhole ? 1 : 0;
}
} // namespace Console

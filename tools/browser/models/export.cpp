// The lists, then the pictures library by library, each checked and written as it comes, and the pages at the end.
// SPDX-License-Identifier: Apache-2.0
#include "export.h"

#include <utility>

#include "picture_file.h"
#include "texts.h"

namespace Browser {
namespace {
using CITP::Catalogue;
using CITP::PictureId;
using CITP::Pictures;

constexpr QSize Pixels(320, 240);
constexpr qint64 MemoryBytes = 32 << 20; // more than the pictures of one library

QString titleOf(const CITP::Requests& requests, const CITP::Server& server)
{
    return QStringLiteral("%1  %2 %3").arg(requests.nameOf(server.key), server.product, server.version).trimmed();
}
} // namespace

Export::Export(CITP::Requests& requests, const Source& source, const QString& folder, const QString& cache)
    : m_source(source),
      m_requests(requests),
      m_catalogue(requests, source.server.key),
      m_pictures(requests, cache),
      m_pages(folder, titleOf(requests, source.server)),
      m_folder(folder),
      m_writer(std::make_unique<QObject>())
{
    m_pictures.setMemoryLimit(MemoryBytes);
    m_writer->moveToThread(&m_thread);
    connect(&m_pictures, &Pictures::changed, this, &Export::handle);
    connect(&m_catalogue, &Catalogue::idle, this, &Export::list);
    connect(&m_catalogue, &Catalogue::elementsChanged, this, [this](quint8 type, const QString& library) {
        // A list that is renewed is not counted again.
        if (m_isListed)
            return;
        m_elements += static_cast<qint64>(m_catalogue.elements(type, library).size());
        if (m_elements > MaxElements)
            end(tr("%1 lists more than %2 elements; export single libraries.")
                    .arg(toSingleLine(m_requests.nameOf(m_source.server.key)), QString::number(MaxElements)));
    });
    connect(&requests.transport(), &CITP::Transport::serverDown, this, [this](const QString& key) {
        const bool isComplete = m_isListed && m_done == m_total;
        if (key == m_source.server.key && !isComplete)
            end(tr("%1 was lost.").arg(toSingleLine(m_requests.nameOf(key))));
    });
}

Export::~Export()
{
    m_thread.quit();
    m_thread.wait();
}

bool Export::start()
{
    if (!m_pages.open()) {
        m_problem = tr("The pages could not be written to %1: %2.").arg(m_folder, m_pages.problem());
        return false;
    }
    m_thread.start();
    if (!m_source.library.isEmpty()) {
        m_catalogue.loadElements(m_source.type, m_source.library);
        return true;
    }
    for (const quint8 type : m_source.server.types)
        m_catalogue.loadAll(type);
    // Otherwise the catalogue has nothing to end with.
    if (m_source.server.types.empty())
        QMetaObject::invokeMethod(this, &Export::list, Qt::QueuedConnection);
    return true;
}

void Export::list()
{
    if (m_hasEnded || std::exchange(m_isListed, true))
        return;
    QString problem;
    const auto note = [&](Catalogue::State state, const QString& why) {
        if (state != Catalogue::Failed)
            return;
        ++m_missingLists;
        problem = why;
    };
    const auto add = [&](quint8 type, const CITP::Library& library) {
        note(m_catalogue.librariesState(type, library.id), m_catalogue.librariesProblem(type, library.id));
        note(m_catalogue.elementsState(type, library.id), m_catalogue.elementsProblem(type, library.id));
        take(type, library);
    };
    if (!m_source.library.isEmpty()) {
        CITP::Library library;
        library.id = m_source.library;
        library.name = m_source.libraryName;
        add(m_source.type, library);
    } else {
        for (const quint8 type : m_source.server.types) {
            note(m_catalogue.librariesState(type), m_catalogue.librariesProblem(type));
            for (const CITP::Library& library : m_catalogue.allLibraries(type))
                add(type, library);
        }
    }
    if (m_total == 0) {
        end(problem.isEmpty() ? tr("There are no elements.") : toSingleLine(problem, 400));
        return;
    }
    Q_EMIT progress(0, m_total);
    requestNext();
}

void Export::take(quint8 type, const CITP::Library& library)
{
    Shelf shelf{type, {library.id, library.name, {}, type}, m_catalogue.elements(type, library.id)};
    for (const CITP::Element& element : shelf.elements)
        shelf.page.cells.push_back(
            {QStringLiteral("%1  %2").arg(QString::number(element.number), element.name), {}, {}});
    m_total += static_cast<int>(shelf.elements.size());
    if (!shelf.elements.empty())
        m_shelves.push_back(std::move(shelf));
}

// One library at a time, so that not more pictures than those of one wait to be written.
void Export::requestNext()
{
    if (m_hasEnded)
        return;
    const Shelf& shelf = m_shelves[m_next++];
    std::vector<PictureId> ids;
    for (std::size_t cell = 0; cell < shelf.elements.size(); ++cell) {
        const CITP::Element& element = shelf.elements[cell];
        ids.push_back({m_source.server.key, shelf.type, shelf.page.id, element.number, CITP::versionOf(element), Pixels,
                       QString()});
        m_open.insert(ids.back(), cell);
    }
    m_requested += static_cast<int>(ids.size());
    m_pictures.setWanted(0, std::move(ids));
}

void Export::handle(const PictureId& id)
{
    const auto found = m_open.constFind(id);
    if (m_hasEnded || found == m_open.constEnd())
        return;
    const std::size_t cell = *found;
    m_open.erase(found);
    if (m_pictures.state(id) == Pictures::Ready)
        write(m_next - 1, cell, m_pictures.find(id));
    else
        set(m_next - 1, cell, {}, toSingleLine(m_pictures.problem(id), 400));
}

void Export::write(std::size_t shelf, std::size_t cell, const CITP::Picture& picture)
{
    const quint8 type = m_shelves[shelf].type;
    const QString library = m_shelves[shelf].page.id;
    const int number = m_shelves[shelf].elements[cell].number;
    const auto work = [this, shelf, cell, type, library, number, picture] {
        const Tools::PictureFile file = Tools::toPictureFile(picture, Pixels);
        QString detail = toSingleLine(file.problem, 400);
        QString name;
        QString problem;
        if (detail.isEmpty()) {
            detail = QStringLiteral("%1  %2 x %3").arg(file.format).arg(file.size.width()).arg(file.size.height());
            name = m_pages.write(library, number, file.content, file.extension, type);
            problem = name.isEmpty() ? m_pages.problem() : QString();
        }
        const auto finish = [this, shelf, cell, name, detail, problem] {
            if (problem.isEmpty())
                set(shelf, cell, name, detail);
            else
                end(tr("The pages could not be written to %1: %2.").arg(m_folder, problem));
        };
        QMetaObject::invokeMethod(this, finish, Qt::QueuedConnection);
    };
    QMetaObject::invokeMethod(m_writer.get(), work, Qt::QueuedConnection);
}

void Export::set(std::size_t shelf, std::size_t cell, const QString& file, const QString& detail)
{
    if (m_hasEnded)
        return;
    Tools::PageCell& it = m_shelves[shelf].page.cells[cell];
    it.file = file;
    it.detail = detail;
    m_written += file.isEmpty() ? 0 : 1;
    Q_EMIT progress(++m_done, m_total);
    if (m_done == m_total)
        commit();
    else if (m_done == m_requested)
        QMetaObject::invokeMethod(this, &Export::requestNext, Qt::QueuedConnection);
}

void Export::commit()
{
    std::vector<Tools::PageLibrary> libraries;
    for (Shelf& shelf : m_shelves)
        libraries.push_back(std::move(shelf.page));
    const auto work = [this, libraries = std::move(libraries)] {
        const QString problem = m_pages.commit(libraries) ? QString() : m_pages.problem();
        const auto finish = [this, problem] {
            end(problem.isEmpty() ? problem : tr("The pages could not be written to %1: %2.").arg(m_folder, problem));
        };
        QMetaObject::invokeMethod(this, finish, Qt::QueuedConnection);
    };
    QMetaObject::invokeMethod(m_writer.get(), work, Qt::QueuedConnection);
}

void Export::end(const QString& problem)
{
    if (std::exchange(m_hasEnded, true))
        return;
    m_problem = problem;
    m_open.clear();
    m_pictures.setWanted(0, {});
    Q_EMIT finished();
}
} // namespace Browser

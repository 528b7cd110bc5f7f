// Export: gets a library, or all libraries of a server, with their pictures, and writes them as pages.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>
#include <citp_client/directory.h>
#include <citp_client/pictures.h>

#include <QHash>
#include <QObject>
#include <QString>
#include <QThread>

#include <memory>
#include <vector>

#include "picture_pages.h"

namespace Browser {
/// What the window requests meanwhile goes before it; in quiet mode it waits. The pictures are checked and written in a
/// thread of its own. Deleting it cancels the export: nothing is left of it unless all pages were written already. GUI
/// thread.
class Export : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxElements = 100000; ///< of a server

    /// What is exported.
    struct Source
    {
        CITP::Server server;   ///< which is up
        quint8 type = 0;       ///< of #library
        QString library{};     ///< empty for all libraries of the server
        QString libraryName{}; ///< of #library
    };

    /// @param requests must outlive this object
    /// @param folder in which the pages appear at the end, see Tools::PicturePages
    /// @param cache in which pictures are kept, see CITP::Pictures; empty for none
    Export(CITP::Requests& requests, const Source& source, const QString& folder, const QString& cache);
    ~Export() override;

    /// Begins. @return whether the folder can be written to; see problem()
    bool start();
    /// Why there are no pages, for the user; empty if there are.
    const QString& problem() const { return m_problem; }
    int total() const { return m_total; }
    /// Pictures that were written.
    int written() const { return m_written; }
    /// Libraries whose list of elements or libraries did not come.
    int missingLists() const { return m_missingLists; }

Q_SIGNALS:
    /// @param total 0 as long as that is not known
    void progress(int done, int total);
    /// Once, after start() has succeeded. The receiver must not delete this object; deleteLater() is safe.
    void finished();

private:
    struct Shelf
    {
        quint8 type;
        Tools::PageLibrary page;
        std::vector<CITP::Element> elements; ///< one for each cell
    };

    void list();
    void take(quint8 type, const CITP::Library& library);
    void requestNext();
    void handle(const CITP::PictureId& id);
    void write(std::size_t shelf, std::size_t cell, const CITP::Picture& picture);
    void set(std::size_t shelf, std::size_t cell, const QString& file, const QString& detail);
    void commit();
    void end(const QString& problem);

    const Source m_source;
    CITP::Requests& m_requests;
    CITP::Catalogue m_catalogue;
    CITP::Pictures m_pictures;
    Tools::PicturePages m_pages; ///< only the thread uses it after start()
    const QString m_folder;
    std::vector<Shelf> m_shelves;
    QHash<CITP::PictureId, std::size_t> m_open; ///< cells whose picture has not come, of the shelf before #m_next
    std::size_t m_next = 0;                     ///< the next shelf
    qint64 m_elements = 0;                      ///< listed, of all libraries
    int m_total = 0;                            ///< pictures
    int m_requested = 0;
    int m_done = 0;
    int m_written = 0;
    int m_missingLists = 0;
    bool m_isListed = false;
    bool m_hasEnded = false;
    QString m_problem;
    QThread m_thread;
    std::unique_ptr<QObject> m_writer; ///< what is called for it runs in the thread
};
} // namespace Browser

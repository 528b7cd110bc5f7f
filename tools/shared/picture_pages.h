// PicturePages: a folder of static HTML pages that show the pictures of libraries.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

#include <vector>

namespace Tools {
/// One picture on a page. The texts are escaped by PicturePages.
struct PageCell
{
    QString label;  ///< below the picture, e.g. number and name of the element
    QString detail; ///< below the label: format and size, or why there is no picture
    QString file;   ///< from PicturePages::write(); empty if there is no picture
};

/// A library, which has a page of its own.
struct PageLibrary
{
    QString id;
    QString name;
    std::vector<PageCell> cells;
    int type = 1; ///< MSEX library type; the identifiers of each type stand for themselves
};

/// Writes to a new folder beside the target, and renames it at the end: the target appears whole or not at all. The
/// target must not exist, or be an empty folder, whose permissions are kept; a link is refused. Without commit(), the
/// new folder is deleted.
///
/// The pages are index.html, which lists the libraries, and one page for each. They have no scripts and need no server.
/// Their texts are escaped, whatever a media server has sent.
class PicturePages
{
    Q_DECLARE_TR_FUNCTIONS(Tools::PicturePages)

public:
    /// @param folder the target
    /// @param title of all pages
    PicturePages(const QString& folder, const QString& title);
    ~PicturePages();
    PicturePages(const PicturePages&) = delete;
    PicturePages& operator=(const PicturePages&) = delete;

    // These functions return false or an empty text on an error, see problem().

    /// Creates the new folder.
    bool open();
    /// Writes a picture, in a format that browsers show.
    /// @param library identifier of its library
    /// @param extension e.g. "jpg"
    /// @param type of the library
    /// @return the name for PageCell::file
    QString write(const QString& library, int element, const QByteArray& content, const QString& extension,
                  int type = 1);
    /// Writes the pages, stores all on the disk, and renames the folder.
    bool commit(const std::vector<PageLibrary>& libraries);

    /// The error of the last function that failed, such as "it is not empty".
    const QString& problem() const { return m_problem; }

private:
    bool writeFile(const QString& name, const QByteArray& content);
    bool fail(const QString& problem);
    bool failFromSystem();

    const QString m_folder; ///< without a slash at the end
    const QString m_title;
    QString m_newFolder;     ///< empty if there is none
    unsigned int m_mode = 0; ///< permissions of the empty folder that is replaced; 0 if there is none
    QString m_problem;
};
} // namespace Tools

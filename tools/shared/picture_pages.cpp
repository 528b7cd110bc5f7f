// Writing of the pages, and creating and renaming of the new folder.
// SPDX-License-Identifier: Apache-2.0
#include "picture_pages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Tools {
namespace {
const char* const Style =
    "body { margin: 1.5em; background: #202124; color: #ebebeb; font-family: sans-serif }\n"
    "a { color: #8ab4f8 }\n"
    "h1 { font-size: 1.3em }\n"
    "ul.pictures { padding: 0; list-style: none; display: flex; flex-wrap: wrap; gap: 1em }\n"
    "ul.pictures li { width: 170px; overflow-wrap: anywhere }\n"
    "ul.pictures img, ul.pictures .missing { display: block; width: 170px; height: 128px; object-fit: contain; "
    "background: #3a3b3f }\n"
    "ul.pictures .missing { background: #5c2828 }\n"
    "small { color: #a5a5a5 }\n";

// Characters that browsers do not show, or that reorder the text, are replaced.
QString plainlyEscaped(const QString& text)
{
    QString shown = text;
    for (QChar& unit : shown) {
        const QChar::Category category = unit.category();
        const bool isShown = category != QChar::Other_Control && category != QChar::Other_Format &&
                             category != QChar::Separator_Line && category != QChar::Separator_Paragraph;
        unit = isShown ? unit : QChar(QChar::ReplacementCharacter);
    }
    return shown.toHtmlEscaped();
}

// Isolated, so that a name in another direction moves nothing around it.
QString escaped(const QString& text)
{
    return "<bdi>" + plainlyEscaped(text) + "</bdi>";
}

// A library as a part of a file name.
QString fileNamePart(const QString& library, int type)
{
    QString part = library;
    for (QChar& unit : part)
        unit = unit >= QLatin1Char('0') && unit <= QLatin1Char('9') ? unit : QLatin1Char('.');
    return type == 1 ? part : QString("%1-%2").arg(type).arg(part);
}

QString pageOf(const PageLibrary& library)
{
    return "library-" + fileNamePart(library.id, library.type) + ".html";
}

QString headingOf(const PageLibrary& library)
{
    QString heading = library.type == 1 ? PicturePages::tr("Library %1").arg(library.id)
                                        : PicturePages::tr("Library %1 of type %2").arg(library.id).arg(library.type);
    if (!library.name.isEmpty())
        heading += "  " + library.name;
    return heading;
}

QString head(const QString& heading)
{
    return QString(
               "<!DOCTYPE html>\n<html lang=\"%4\">\n<head>\n<meta charset=\"utf-8\">\n"
               "<meta name=\"viewport\" content=\"width=device-width\">\n<title>%1</title>\n<style>\n%2</style>\n"
               "</head>\n<body>\n<h1>%3</h1>\n")
        .arg(plainlyEscaped(heading), QLatin1String(Style), escaped(heading),
             PicturePages::tr("en", "language of the pages"));
}
} // namespace

PicturePages::PicturePages(const QString& folder, const QString& title)
    : m_folder(QDir::cleanPath(QDir().absoluteFilePath(folder))), m_title(title)
{
}

PicturePages::~PicturePages()
{
    if (!m_newFolder.isEmpty())
        QDir(m_newFolder).removeRecursively();
}

bool PicturePages::open()
{
    struct stat target
    {
    };
    const bool exists = lstat(QFile::encodeName(m_folder).constData(), &target) == 0;
    if (exists) {
        if (S_ISLNK(target.st_mode))
            return fail(tr("it is a link"));
        if (!S_ISDIR(target.st_mode))
            return fail(tr("it is not a folder"));
        if (!QDir(m_folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
            return fail(tr("it is not empty"));
        m_mode = target.st_mode & 07777;
    }
    QByteArray path = QFile::encodeName(m_folder + ".XXXXXX");
    if (!mkdtemp(path.data()))
        return failFromSystem();
    m_newFolder = QFile::decodeName(path);
    // rename() cannot replace a mount point; said before everything has been fetched.
    struct stat created
    {
    };
    if (exists && lstat(path.constData(), &created) == 0 && created.st_dev != target.st_dev)
        return fail(tr("it is a mount point; name a folder in it"));
    return true;
}

QString PicturePages::write(const QString& library, int element, const QByteArray& content, const QString& extension,
                            int type)
{
    const QString name =
        QString("%1-%2.%3").arg(fileNamePart(library, type)).arg(element, 3, 10, QLatin1Char('0')).arg(extension);
    return writeFile(name, content) ? name : QString();
}

bool PicturePages::commit(const std::vector<PageLibrary>& libraries)
{
    QString index = head(m_title) + "<ul>\n";
    for (const PageLibrary& library : libraries) {
        index += QString("<li><a href=\"%1\">%2</a> <small>%3</small></li>\n")
                     .arg(pageOf(library), escaped(headingOf(library)), QString::number(library.cells.size()));
        QString page = head(headingOf(library)) + "<p><a href=\"index.html\">" + escaped(m_title) +
                       "</a></p>\n<ul class=\"pictures\">\n";
        for (const PageCell& cell : library.cells) {
            const QString picture = cell.file.isEmpty() ? QString("<span class=\"missing\"></span>")
                                                        : QString("<img src=\"%1\" alt=\"\">").arg(cell.file);
            page += "<li>" + picture + escaped(cell.label) + "<br><small>" + escaped(cell.detail) + "</small></li>\n";
        }
        if (!writeFile(pageOf(library), (page + "</ul>\n</body>\n</html>\n").toUtf8()))
            return false;
    }
    if (!writeFile("index.html", (index + "</ul>\n</body>\n</html>\n").toUtf8()))
        return false;
    // mkdtemp() lets only the user in.
    const mode_t mask = umask(0);
    umask(mask);
    const QByteArray path = QFile::encodeName(m_newFolder);
    const int descriptor = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isStored =
        descriptor >= 0 && fchmod(descriptor, m_mode != 0 ? m_mode : 0777 & ~mask) == 0 && syncfs(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0)
        close(descriptor);
    errno = error;
    // An empty folder is replaced, and a link that has appeared meanwhile is not followed.
    if (!isStored || rename(path.constData(), QFile::encodeName(m_folder).constData()) != 0)
        return failFromSystem();
    m_newFolder.clear();
    return true;
}

bool PicturePages::writeFile(const QString& name, const QByteArray& content)
{
    QFile file(m_newFolder + '/' + name);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush())
        return true;
    return fail(file.errorString());
}

bool PicturePages::fail(const QString& problem)
{
    m_problem = problem;
    return false;
}

bool PicturePages::failFromSystem()
{
    return fail(QString::fromLocal8Bit(std::strerror(errno)));
}
} // namespace Tools

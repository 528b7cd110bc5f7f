// Lists folders and pictures and assigns their numbers.
// SPDX-License-Identifier: Apache-2.0
#include "folder_scan.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QSet>
#include <algorithm>

namespace MediaServer {
namespace {
// The count of the numbers 0 to 254 fits into a byte.
const int MaxNumber = 254;

// Name filters of QDir would be compiled to regular expressions for each folder, which takes longer than to read it.
QStringList pictureNames(const QDir& folder)
{
    static const QSet<QString> extensions = [] {
        QSet<QString> all;
        for (const QByteArray& format : QImageReader::supportedImageFormats())
            all << QString::fromLatin1(format);
        return all;
    }();
    QStringList names = folder.entryList(QDir::Files | QDir::Readable, QDir::Name);
    const auto isNone = [](const QString& name) {
        const auto dot = name.lastIndexOf('.');
        return dot < 0 || !extensions.contains(name.mid(dot + 1).toLower());
    };
    names.erase(std::remove_if(names.begin(), names.end(), isNone), names.end());
    return names;
}
} // namespace

FolderScan::Result FolderScan::scan()
{
    Result result;
    const QDir root(m_folder);
    scanFolder(m_folder, 0, {}, result);
    return result;
}

void FolderScan::scanFolder(const QString& path, quint32 id, const QString& name, Result& result)
{
    if (m_isStopped())
        return;
    const QDir folder(path);
    result.paths << path;
    Library library;
    library.id = id == 0 ? childId(0, 0) : id;
    library.name = id == 0 ? folder.dirName() : name;
    scanPictures(path, library, result);
    if (id != 0 || !library.elements.empty())
        result.libraries.push_back(library);

    const QStringList names = folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Readable, QDir::Name);
    if ((id & 0xFF) == MaxLevel) {
        if (!names.isEmpty())
            result.notices << QString("the folders in %1 are too deep for a library id: ignored").arg(path);
        return;
    }
    for (const auto& [sub, subNumber] : assignNumbers(path + "/folders", names, 1, result))
        scanFolder(folder.filePath(sub), childId(id, subNumber), sub, result);
}

void FolderScan::scanPictures(const QString& path, Library& library, Result& result)
{
    const QDir folder(path);
    const QStringList names = pictureNames(folder);
    std::map<quint8, Element> elements;
    for (const auto& [name, elementNumber] : assignNumbers(path + "/pictures", names, 0, result)) {
        if (m_isStopped())
            return;
        const QFileInfo file(folder.filePath(name));
        result.paths << file.filePath();
        const QSize size = QImageReader(file.filePath()).size();
        if (size.isEmpty() || size.width() > 0xFFFF || size.height() > 0xFFFF) {
            result.notices << QString("%1 is not a readable picture: ignored").arg(file.filePath());
            continue;
        }
        Element element;
        element.number = elementNumber;
        element.name = name;
        element.timestamp = static_cast<quint64>(file.lastModified().toSecsSinceEpoch());
        element.width = static_cast<quint16>(size.width());
        element.height = static_cast<quint16>(size.height());
        element.serial = static_cast<quint32>(file.lastModified().toMSecsSinceEpoch() + file.size());
        element.picture.file = file.filePath();
        elements[elementNumber] = element;
    }
    for (const auto& [elementNumber, element] : elements)
        library.elements.push_back(element);
}

FolderScan::Numbers& FolderScan::assignNumbers(const QString& key, const QStringList& names, int first, Result& result)
{
    Numbers& numbers = m_numbers[key];
    std::bitset<256> taken;
    for (auto known = numbers.begin(); known != numbers.end();) {
        if (names.contains(known->first)) {
            taken.set(known->second);
            ++known;
        } else {
            known = numbers.erase(known);
        }
    }
    for (const QString& name : names) {
        if (numbers.count(name) != 0)
            continue;
        int free = first;
        while (free <= MaxNumber && taken.test(static_cast<std::size_t>(free)))
            ++free;
        if (free > MaxNumber) {
            result.notices << QString("%1: more entries than a library can number: the rest is ignored").arg(key);
            break;
        }
        taken.set(static_cast<std::size_t>(free));
        numbers[name] = static_cast<quint8>(free);
    }
    return numbers;
}
} // namespace MediaServer

// Converts a folder tree of pictures to media libraries.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <utility>

#include "library.h"

namespace MediaServer {
/// Scans a folder tree. Libraries and elements that still exist keep their numbers when the tree is scanned again.
///
/// The sub-folders of the folder are the top-level libraries, numbered from 1 in the order of their names. The pictures
/// in the folder itself are library 0. Deeper sub-folders are sub-libraries, down to the third level.
class FolderScan
{
public:
    /// @param isStopped asked again and again during a scan, which ends early once it returns true
    FolderScan(const QString& folder, std::function<bool()> isStopped)
        : m_folder(folder), m_isStopped(std::move(isStopped))
    {
    }

    struct Result
    {
        Libraries libraries;
        QStringList paths;   ///< folders and files to watch for changes
        QStringList notices; ///< messages about ignored files and folders, one line each
    };
    /// Only a part of the tree, if the scan was stopped.
    Result scan();

private:
    using Numbers = std::map<QString, quint8>;

    void scanFolder(const QString& path, quint32 id, const QString& name, Result& result);
    void scanPictures(const QString& path, Library& library, Result& result);
    Numbers& assignNumbers(const QString& key, const QStringList& names, int first, Result& result);

    QString m_folder;
    std::function<bool()> m_isStopped;
    std::map<QString, Numbers> m_numbers;
};
} // namespace MediaServer

// Turns a folder tree of pictures into media libraries.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <map>

#include "library.h"

namespace MediaServer {
/// Scans one folder tree, again and again, and keeps the numbers of what stays.
///
/// The sub-folders of the folder are the top-level libraries, numbered from 1 in the order of their names; the pictures
/// that lie in the folder itself are library 0. Their sub-folders are sub-libraries, down to the third level.
class FolderScan
{
public:
    explicit FolderScan(const QString& folder) : m_folder(folder) {}

    struct Result
    {
        Libraries libraries;
        QStringList paths;   ///< folders and files whose change makes another scan worthwhile
        QStringList notices; ///< what is left out and why, one line each
    };
    Result scan();

private:
    using Numbers = std::map<QString, quint8>;

    void scanFolder(const QString& path, quint32 id, const QString& name, Result& result);
    void scanPictures(const QString& path, Library& library, Result& result);
    Numbers& number(const QString& place, const QStringList& names, int first, Result& result);

    QString m_folder;
    std::map<QString, Numbers> m_numbers;
};
} // namespace MediaServer

// PictureFiles: the folder with the pictures on disk. Private.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/values.h>

#include <QByteArray>
#include <QString>

#include <array>

namespace CITP {
/// Each picture is a file. It is written under another name and then renamed, so that nobody reads half of it, and it
/// has its key and a checksum, so that nobody takes a damaged one for good. That is all that processes share.
class PictureFiles
{
public:
    explicit PictureFiles(const QString& folder) : m_folder(folder) {}

    /// Of all files together. Each part of the folder that is written to next is purged.
    void setLimit(qint64 bytes);
    /// The picture under @p key; without data if there is none. Reads regular files only, and no large ones.
    Picture read(const QByteArray& key) const;
    void remove(const QByteArray& key);
    /// @return why it could not be written; empty if it was
    QString write(const QByteArray& key, const Picture& picture);

private:
    QString fileFor(const QByteArray& key) const;
    void purge(int firstOfPart);

    static constexpr int folderCount = 256;

    const QString m_folder;
    int m_foldersOfPart = folderCount; ///< a power of two
    qint64 m_partLimit = 0;            ///< bytes
    /// Bytes to be written to a part before its next purge, by its first folder. At first 0: processes may be short.
    std::array<qint64, folderCount> m_untilPurge{};
};
} // namespace CITP

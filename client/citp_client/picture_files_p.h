// PictureFiles: the folder with the pictures on disk. Private.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/values.h>

#include <QByteArray>
#include <QString>

namespace CITP {
/// Each picture is a file. It is written under another name and then renamed, so that nobody reads half of it, and it
/// has its key and a checksum, so that nobody takes a damaged one for good. That is all that processes share.
class PictureFiles
{
public:
    explicit PictureFiles(const QString& folder) : m_folder(folder) {}

    void setLimit(qint64 bytes) { m_limit = bytes; }
    /// The picture under @p key; without data if there is none.
    Picture read(const QByteArray& key) const;
    void remove(const QByteArray& key);
    /// @return why it could not be written; empty if it was
    QString write(const QByteArray& key, const Picture& picture);

private:
    QString fileFor(const QByteArray& key) const;
    void purge();

    const QString m_folder;
    qint64 m_limit = 0;
    qint64 m_written = 0; ///< bytes since the last purge
};
} // namespace CITP

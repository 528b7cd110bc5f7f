// NewFile: a file that appears under its name only when it is complete.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace Console {
/// Writes to a new file beside the target, and renames it at the end. The target is replaced or created, but never
/// written through: a link or anything else that is not a regular file is refused. Without commit(), the new file is
/// deleted.
class NewFile
{
public:
    explicit NewFile(const QString& path) : m_path(path) {}
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // These functions return false on an error, see problem().

    /// Creates the new file.
    bool open();
    /// Writes @p bytes and stores them on the disk.
    bool write(const QByteArray& bytes);
    /// Renames the file.
    bool commit();

    /// Still owned by this object; -1 if not open.
    int descriptor() const { return m_descriptor; }
    /// The error of the last function that failed, such as "No space left on device".
    const QString& problem() const { return m_problem; }

private:
    bool fail(const QString& problem);
    bool failFromSystem();

    const QString m_path;
    QByteArray m_newPath; ///< empty if there is no new file
    int m_descriptor = -1;
    QString m_problem;
};
} // namespace Console

// Creating and renaming of new files.
// SPDX-License-Identifier: Apache-2.0
#include "new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QRandomGenerator>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Console {
namespace {
constexpr int MaxAttempts = 16;
constexpr mode_t DefaultMode = 0666; // restricted by the umask
} // namespace

NewFile::~NewFile()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
    if (!m_newPath.isEmpty())
        unlink(m_newPath.constData());
}

bool NewFile::open()
{
    struct stat target
    {
    };
    const bool exists = lstat(QFile::encodeName(m_path).constData(), &target) == 0;
    if (exists && S_ISLNK(target.st_mode))
        return fail("it is a link");
    if (exists && !S_ISREG(target.st_mode))
        return fail("it is not a regular file");
    for (int attempt = 0; attempt < MaxAttempts && m_descriptor < 0; ++attempt) {
        m_newPath =
            QFile::encodeName(QString("%1.%2.part").arg(m_path).arg(QRandomGenerator::global()->generate(), 0, 36));
        m_descriptor = ::open(m_newPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, DefaultMode);
        if (m_descriptor < 0 && errno != EEXIST)
            break;
    }
    if (m_descriptor < 0) {
        m_newPath.clear();
        return failFromSystem();
    }
    return !exists || fchmod(m_descriptor, target.st_mode & 07777) == 0 || failFromSystem();
}

bool NewFile::write(const QByteArray& bytes)
{
    for (qint64 at = 0; at < bytes.size();) {
        const ssize_t written =
            ::write(m_descriptor, bytes.constData() + at, static_cast<std::size_t>(bytes.size() - at));
        if (written < 0 && errno != EINTR)
            return failFromSystem();
        at += qMax<qint64>(written, 0);
    }
    return fsync(m_descriptor) == 0 || failFromSystem();
}

bool NewFile::commit()
{
    if (rename(m_newPath.constData(), QFile::encodeName(m_path).constData()) != 0)
        return failFromSystem();
    m_newPath.clear();
    return true;
}

bool NewFile::fail(const QString& problem)
{
    m_problem = problem;
    return false;
}

bool NewFile::failFromSystem()
{
    return fail(QString::fromLocal8Bit(std::strerror(errno)));
}
} // namespace Console

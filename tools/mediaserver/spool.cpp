// Writing and reading at offsets, past any buffer.
// SPDX-License-Identifier: Apache-2.0
#include "spool.h"

#include <fcntl.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace MediaServer {
namespace {
QString spoolFolder()
{
    return qEnvironmentVariableIsEmpty("TMPDIR") ? QString("/var/tmp") : QDir::tempPath();
}
} // namespace

Spool::~Spool()
{
    if (m_file >= 0)
        close(m_file);
}

bool Spool::open()
{
    QByteArray path = QFile::encodeName(spoolFolder() + "/citp-replay-XXXXXX");
    m_file = mkostemp(path.data(), O_CLOEXEC);
    if (m_file < 0) {
        fail();
        return false;
    }
    unlink(path.constData());
    return true;
}

Stored Spool::store(const QByteArray& message, bool isReply)
{
    const Stored stored{m_size, static_cast<quint32>(message.size()), isReply};
    qint64 written = 0;
    while (m_problem.isEmpty() && written < message.size()) {
        const ssize_t count = pwrite64(m_file, message.constData() + written,
                                       static_cast<std::size_t>(message.size() - written), m_size + written);
        if (count >= 0)
            written += count;
        else if (errno != EINTR)
            fail();
    }
    if (!m_problem.isEmpty())
        return {};
    m_size += written;
    return stored;
}

Stored Spool::store(const QByteArray& message, bool isReply, const Stored& known)
{
    const bool isSame = known.size == static_cast<quint32>(message.size()) && known.isReply == isReply;
    return isSame && read(known) == message ? known : store(message, isReply);
}

QByteArray Spool::read(const Stored& stored) const
{
    QByteArray message(static_cast<int>(stored.size), '\0');
    qint64 done = 0;
    while (done < message.size()) {
        const ssize_t count = pread64(m_file, message.data() + done, static_cast<std::size_t>(message.size() - done),
                                      stored.offset + done);
        if (count == 0 || (count < 0 && errno != EINTR))
            return {};
        done += qMax<qint64>(0, count);
    }
    return message;
}

void Spool::fail()
{
    m_problem = QString("cannot keep messages in %1: %2; set TMPDIR to a folder with room for them")
                    .arg(spoolFolder(), QString::fromLocal8Bit(std::strerror(errno)));
}
} // namespace MediaServer

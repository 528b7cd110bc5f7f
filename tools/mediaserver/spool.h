// Spool: keeps messages in a temporary file, so that memory holds only where they are.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace MediaServer {
/// Where a message is.
struct Stored
{
    qint64 offset = 0;
    quint32 size = 0;
    bool isReply = false; ///< its request index is that of the request, and is stored as 0

    bool operator==(const Stored& other) const
    {
        return offset == other.offset && size == other.size && isReply == other.isReply;
    }
};

class Spool
{
public:
    Spool() = default;
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    /// Creates the file in the folder TMPDIR, otherwise in /var/tmp, because /tmp may be in memory. The file has no
    /// name, so that it goes with the process.
    bool open();
    /// Appends @p message. After an error, nothing is stored; see problem().
    Stored store(const QByteArray& message, bool isReply = false);
    /// Like store(), unless @p known has the same content: then returns that.
    Stored store(const QByteArray& message, bool isReply, const Stored& known);
    /// The bytes of a message; empty if it cannot be read.
    QByteArray read(const Stored& stored) const;

    /// One line that says what failed and what to do; empty if all went well.
    const QString& problem() const { return m_problem; }

private:
    void fail();

    int m_file = -1;
    qint64 m_size = 0;
    QString m_problem;
};
} // namespace MediaServer

// SendQueue: sends messages to a console in order and injects the enabled faults.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include "faults.h"

namespace MediaServer {
class SendQueue : public QObject
{
    Q_OBJECT

public:
    /// @param socket, faults must outlive this object
    SendQueue(QTcpSocket& socket, Faults& faults, QObject* parent);

    /// Sends a message that is not the answer to a request. Faults may change it, but do not affect how it is sent.
    /// @return as for answer()
    QString send(const QByteArray& message);
    /// Sends an answer, in which faults may be injected.
    /// @return the names of the injected faults, for the log; empty if none
    QString answer(QByteArray message);
    /// Whether the next answer must wait for idle().
    bool busy() const { return m_isEnded || !m_splitBytes.isEmpty(); }
    /// While paused, bytes that are sent one by one and answers that are collected wait.
    void setPaused(bool isPaused);
    /// Number of unsent bytes.
    qint64 backlog() const { return m_socket.bytesToWrite() + m_splitBytes.size() + m_merged.size(); }

Q_SIGNALS:
    /// busy() has become false.
    void idle();
    /// The fault "reset" was injected: the connection must be reset now.
    void resetDue();

private:
    enum class Pace { Whole, Split, Drip };
    void write(const QByteArray& bytes, Pace pace);
    void writeByte();
    void flushMerged();
    void scheduleReset();

    QTcpSocket& m_socket;
    Faults& m_faults;
    QByteArray m_splitBytes; ///< sent byte by byte; later messages are appended
    QTimer m_byteTimer;
    QByteArray m_merged;
    int m_mergedCount = 0;
    QTimer m_mergeTimer;
    bool m_isEnded = false;        ///< the last answer was sent in part: nothing more is sent
    bool m_isResetPending = false; ///< a reset follows
};
} // namespace MediaServer

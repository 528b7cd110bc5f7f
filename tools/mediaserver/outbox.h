// The way out to one console: messages in order, whole, or with the faults that were asked for.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

#include "faults.h"

namespace MediaServer {
class Outbox : public QObject
{
    Q_OBJECT

public:
    /// @param socket, faults outlive this object
    Outbox(QTcpSocket& socket, Faults& faults, QObject* parent);

    /// Sends a message that no fault strikes.
    void send(const QByteArray& message);
    /// Sends an answer, which faults may strike.
    /// @return the faults that did, for the report; empty if none
    QString answer(QByteArray message);
    /// Whether something is still on its way to the socket, so that the next answer has to wait.
    bool busy() const { return m_broken || !m_bytewise.isEmpty(); }
    /// Bytes that wait for the network.
    qint64 backlog() const { return m_socket.bytesToWrite() + m_bytewise.size() + m_merged.size(); }

Q_SIGNALS:
    /// No longer busy.
    void idle();
    /// A fault wants the connection to be reset now.
    void resetDue();

private:
    void write(const QByteArray& bytes, bool split);
    void writeByte();
    void flushMerged();
    void scheduleReset();

    QTcpSocket& m_socket;
    Faults& m_faults;
    QByteArray m_bytewise; ///< leaves byte by byte; what follows queues up behind it
    QTimer m_byteTimer;
    QByteArray m_merged;
    int m_mergedCount = 0;
    QTimer m_mergeTimer;
    bool m_broken = false; ///< half an answer is out and the reset is near: nothing follows
};
} // namespace MediaServer

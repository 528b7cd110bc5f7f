// The private part of citp_stack: its records, state and helpers. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QHash>

#include <mutex>

namespace CITP {
class WorkerThread;

/// The type of every record in citp_stack::m_servers. The members added here: worker thread only, except #key.
struct CITP_HIDDEN citp_stack::Record final : citp_stack::ServerInfo
{
    Record(const SERV_ID& serverKey, const Msg_PEER_PLOC& ploc, Net::Socket* netSocket)
        : ServerInfo(ploc, netSocket), key(serverKey)
    {
    }

    const SERV_ID key; ///< under which the registry has this record
    /// serverDown() is being emitted for this record. Nothing more is delivered for it, and what a receiver does
    /// meanwhile must not remove it a second time.
    bool isLeaving = false;
    bool isReading = false; ///< messages of this connection are being split and dispatched
    bool hasFailed = false; ///< a flushed write has failed; the end of the connection is queued
};

/// State and helpers of the stack. Worker thread, except where a member says otherwise.
struct CITP_HIDDEN citp_stack::Private
{
    explicit Private(citp_stack* stack);

    /// The record of @p key, or null. The caller holds a lock of m_servers or is the worker thread.
    Record* find(const SERV_ID& key) const;
    /// The record whose connection is @p socket, or null if it is being removed. Look it up again after each
    /// call that may call back into the stack: the server may be gone, and its key may belong to another connection.
    Record* recordOf(const QObject* socket) const;
    /// The number of announced servers, also while the process exits. The caller holds m_mutex.
    int countNotified() const;

    void removeAllServers();
    /// Removes the server whose connection is @p socket.
    void removeServerOf(const QObject* socket);
    /// Removes a server, with serverDown() if it was announced. The caller holds m_mutex.
    void removeServer(Record* record);

    /// Splits the stream of @p socket into messages and dispatches them.
    void readMessages(QTcpSocket* socket);
    /// After an ELIn or MEIn from @p source: sends the next waiting request, or records that none is outstanding.
    void releaseNextRequest(const QString& source);

    /// Makes the stack safe to destroy, at process exit.
    /// @return false if the worker thread or a caller could not be waited for; the stack must then not be destroyed
    bool shutDown();

    citp_stack* const q;
    WorkerThread* const worker; ///< never deleted: it runs until the process ends
    /// Serialises setEnabled(), so that each change is logged once, before it is made. Recursive: a log sink may call
    /// setEnabled(). Any thread.
    std::recursive_mutex switchMutex;
    /// The innermost lock: guards the pacing state of every record (m_inProgress, m_messageQueue) and, with
    /// m_mutex, changes of m_servers. Held for a few instructions only; no emission, no socket call and no other lock
    /// inside it. Any thread.
    std::mutex queueMutex;
    /// The records of the registry by their sockets, which are the senders that the slots know.
    QHash<const QObject*, Record*> connections;
};

/// Registers the classes of the queued signals with Qt. Once per process, before the first emission.
void registerMetaTypes();
} // namespace CITP

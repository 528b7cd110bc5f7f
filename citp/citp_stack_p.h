// The private part of citp_stack: its records, state and helpers. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_guards_p.h"

#include <citp/citp_stack.h>

#include <QHash>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

class QTimer;

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

    // For the guards.
    const Guards::Clock::time_point created = Guards::Clock::now();
    bool isConnected = false;                 ///< the connection has opened
    bool isTurnQueued = false;                ///< the rest of the stream is read in a later turn
    bool isSuspended = false;                 ///< not read until the application has caught up
    quint64 suspension = 0;                   ///< the number of its last suspension
    bool hasEnded = false;                    ///< the connection has ended, but what arrived before is not read yet
    bool wasFull = false;                     ///< the socket may have stopped reading, because its buffer was full
    int lostMessages = 0;                     ///< consecutive pieces of the stream that did not begin a message
    qint64 incomplete = 0;                    ///< bytes of an incomplete message that have arrived
    Guards::Clock::time_point lastProgress{}; ///< when #incomplete changed
    std::optional<Guards::Clock::time_point> requestSent; ///< when the outstanding paced request was sent; queue lock
    /// Bytes that sendMsg() accepted and that are not written; counted while they are limited. Added to under the queue
    /// lock, by any thread.
    std::atomic<qint64> passedDown{0};
    std::atomic<qint64> unwritten{0}; ///< bytes that wait in the socket; any thread reads it
    bool isCountingWrites = false;    ///< #unwritten follows the socket
    bool hasPeerTimeout = false;      ///< the keep-alive times are not those of the system
};

/// State and helpers of the stack. Worker thread, except where a member says otherwise.
struct CITP_HIDDEN citp_stack::Private
{
    enum class Reading {
        OneTurn,  ///< as the guards allow
        WholeRest ///< all that has arrived, because the connection ends; only the application is waited for
    };

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
    void readMessages(QTcpSocket* socket, Reading reading = Reading::OneTurn);
    /// After an ELIn or MEIn from @p source: sends the next waiting request, or records that none is outstanding.
    void releaseNextRequest(const QString& source);

    /// Makes the stack safe to destroy, at process exit.
    /// @return false if the worker thread or a caller could not be waited for; the stack must then not be destroyed
    bool shutDown();

    // What the guards make of a stream, in citp_stack_guards.cpp.

    /// Whether the piece of @p size bytes that begins with @p header is to be read now. If not, the connection of
    /// @p record has ended or its stream is read later.
    bool mayRead(Record& record, const char* header, quint32 size, qint64 available, Turn& turn, Reading reading);
    /// Watches the @p available bytes that are left of the stream of @p record after @p turn.
    void watchRest(Record& record, qint64 available, const Turn& turn);
    /// Ends the connection of @p record because of @p guard. Its server is not connected again before the next tick.
    void disconnectServer(Record& record, Guards::Guard guard, qint64 value, qint64 limit);
    /// Whether a server that announces itself as @p key from @p host is to be connected.
    bool admits(const QString& host, const SERV_ID& key);
    /// Counts a message of @p size bytes as waiting to be sent to @p record. The caller holds the queue lock. Any
    /// thread.
    /// @return 0, or the bytes that would wait if these are too many; the message is not counted then
    qint64 countAccepted(Record& record, qint64 size) const;
    /// A message of @p size bytes that sendMsg() accepted has reached the worker thread.
    void countPassedDown(Record& record, qint64 size);
    /// Applies the limits that its socket enforces to the connection of @p record.
    void applyLimits(Record& record);
    /// Takes new options, and ends what lasts for a tick. Called at each tick, first.
    /// @return whether the discovery socket must be reopened, because other groups are wanted
    bool tickGuards();
    /// Connects the servers named by hand that are due, after a reset all of them. Called at each tick, last.
    void connectNamedServers(bool isReset);
    /// Acts on messages and requests whose timeout has expired.
    void checkTimeouts();
    void startTimeout(int timeout);
    /// Whether the error of the connection of @p socket gets a line of its own. Its record may be gone.
    bool isErrorLogged(const QTcpSocket* socket);
    /// Reads all servers, also those that were suspended.
    void readAllServers();
    /// Logs the error of the connection of @p socket and removes its server.
    void endConnection(QTcpSocket* socket);
    /// Removes a server whose connection has not opened. The caller holds m_mutex.
    void giveUp(Record* record);
    /// Notes the end of the connection of @p socket, if it is suspended: its server is removed when its rest is read.
    bool defersEnd(const QObject* socket);
    /// Whether a datagram must be dropped because the application has not caught up. Announcements never are.
    bool dropsDatagram(const QByteArray& datagram, const QString& sender);

    /// Tells the observers of discovery. Call it before the server is removed, and look up its record again afterwards:
    /// an observer may send, and so does the observer of the guards.
    void tell(DiscoveryEvent::Kind kind, const SERV_ID& server, const QString& text = {});

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

    std::atomic<bool> hasObservers{false};
    std::mutex observersMutex; ///< guards #observers
    std::vector<std::weak_ptr<const DiscoveryObserver>> observers;

    Guards guards;
    QTimer* timeoutTimer =
        nullptr; ///< a child of the stack, from the first options on; runs while a timeout may expire
    std::set<SERV_ID> disconnected;            ///< the servers that a guard has disconnected since the last tick
    Guards::Clock::time_point attemptsSince{}; ///< since when #attempts counts
    int attempts = 0;                          ///< connections opened in one second
    int failedAttempts = 0;                    ///< connections that never opened, since the last tick
    struct NamedServer
    {
        QHostAddress address;
        quint16 port;
        Guards::Clock::time_point nextAttempt;
        std::chrono::milliseconds pause;
    };
    std::vector<NamedServer> namedServers;
    quint64 suspensions = 0; ///< how often a server was suspended, see Record::suspension
};

/// Registers the classes of the queued signals with Qt. Once per process, before the first emission.
void registerMetaTypes();
} // namespace CITP

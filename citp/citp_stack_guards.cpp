// What the guards do in the stack: watched streams, ignored announcements, timeouts; and servers named by hand.
// SPDX-License-Identifier: Apache-2.0
#include "citp_lock_p.h"
#include "citp_log_p.h"
#include "citp_socket_options_p.h"
#include "citp_stack_p.h"
#include "citp_unread_p.h"

#include <QSignalBlocker>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <limits>

namespace CITP {
namespace {
using Clock = Guards::Clock;
using std::chrono::milliseconds;

constexpr int headerLength = 20;            // bytes of the CITP header
constexpr qint64 minimumReadBuffer = 65536; // bytes
/// A connection that has not opened by then gives its place to another server, if there are too many.
constexpr milliseconds connectTime{500};
constexpr int maxLoggedFailures = 10; // in a tick
constexpr int maxPauseFactor = 16;

qint64 millisecondsSince(Clock::time_point time, Clock::time_point now)
{
    return std::chrono::duration_cast<milliseconds>(now - time).count();
}
} // namespace

// --- Streams ---------------------------------------------------------------------------------------------------------

bool citp_stack::Private::mayRead(Record& record, const char* header, quint32 size, qint64 available, Turn& turn,
                                  Reading reading)
{
    const citp_options::Data& limits = guards.limits();
    if (limits.smallMessageGuard && size < static_cast<quint32>(headerLength)) {
        disconnectServer(record, citp_options::SmallMessage, size, headerLength);
        return false;
    }
    if (limits.maxMessageSize > 0 && size > limits.maxMessageSize) {
        disconnectServer(record, citp_options::LargeMessage, size, limits.maxMessageSize);
        return false;
    }
    if (available < static_cast<qint64>(size)) {
        if (record.m_socket->readBufferSize() > 0 && record.m_socket->readBufferSize() < size) {
            record.m_socket->setReadBufferSize(size);
        }
        return false;
    }
    if (guards.mustWait(size)) {
        const qint64 unread = unreadBytes;
        record.isSuspended = true;
        record.suspension = ++suspensions;
        record.wasFull = true;
        // At the level at which the message fits, so that it is not suspended again at once.
        const qint64 level = limits.maxUnreadBytes - citp_options::unreadCost(size);
        suspendReading(qBound(qint64(0), level, limits.maxUnreadBytes / 2), [] {
            // Not an event of the stack itself: those are delivered while a request is released.
            Private* const stack = Get()->d.get();
            QMetaObject::invokeMethod(
                stack->timeoutTimer, [stack] { stack->readAllServers(); }, Qt::QueuedConnection);
        });
        guards.report(citp_options::UnreadNotifications, record.key, unread, limits.maxUnreadBytes);
        return false;
    }
    if (reading == Reading::OneTurn && turn.isOver()) {
        record.isTurnQueued = true;
        record.wasFull = true;
        QTcpSocket* const socket = record.m_socket;
        QMetaObject::invokeMethod(
            socket,
            [this, socket] {
                if (Record* const waiting = recordOf(socket)) {
                    waiting->isTurnQueued = false;
                    readMessages(socket);
                }
            },
            Qt::QueuedConnection);
        return false;
    }
    if (limits.maxLostMessages > 0) {
        const bool isLost = std::memcmp(header, "CITP", 4) != 0;
        record.lostMessages = isLost ? record.lostMessages + 1 : 0;
        if (isLost) {
            turn.endBudget();
        }
        if (record.lostMessages > limits.maxLostMessages) {
            disconnectServer(record, citp_options::LostFraming, record.lostMessages, limits.maxLostMessages);
            return false;
        }
    }
    return true;
}

void citp_stack::Private::watchRest(Record& record, qint64 available, const Turn& turn)
{
    if (record.hasEnded && !record.isSuspended && !record.isTurnQueued) {
        endConnection(record.m_socket);
        return;
    }
    const qint64 rest = record.isSuspended || record.isTurnQueued ? 0 : available;
    if (rest == record.incomplete && turn.bytes() == 0) {
        return;
    }
    record.incomplete = rest;
    // After a large message, the buffer gets its usual size again. Qt signals a full buffer no more until a read has
    // emptied it; a change of its size makes Qt look again. It may also have filled while its server had to wait.
    const qint64 size = record.m_socket->readBufferSize();
    if (rest > 0 && size > 0 && (record.wasFull || rest + turn.bytes() >= size) &&
        record.m_socket->state() == QAbstractSocket::ConnectedState) {
        record.wasFull = false;
        record.m_socket->setReadBufferSize(size + 1);
        record.m_socket->setReadBufferSize(rest < minimumReadBuffer && turn.bytes() > 0 ? minimumReadBuffer : size);
    }
    if (rest > 0 && guards.limits().stallTimeout > 0) {
        record.lastProgress = Clock::now();
        startTimeout(guards.limits().stallTimeout);
    }
}

void citp_stack::Private::disconnectServer(Record& record, Guards::Guard guard, qint64 value, qint64 limit)
{
    const SERV_ID key = record.key;
    const QObject* const socket = record.m_socket;
    guards.report(guard, key, value, limit);
    tell(DiscoveryEvent::Failed, key, Guards::reasonOf(guard, value, limit));
    disconnected.insert(key);
    removeServerOf(socket);
}

bool citp_stack::Private::defersEnd(const QObject* socket)
{
    Record* const record = recordOf(socket);
    if (record && record->isSuspended) {
        record->hasEnded = true;
    }
    return record && record->hasEnded;
}

bool citp_stack::Private::dropsDatagram(const QByteArray& datagram, const QString& sender)
{
    // A datagram may be lost anyway.
    if (!guards.mustWait(datagram.size()) || datagram.mid(headerLength, 4) == "PLoc") {
        return false;
    }
    guards.report(citp_options::UnreadNotifications, sender, unreadBytes, guards.limits().maxUnreadBytes);
    return true;
}

void citp_stack::Private::readAllServers()
{
    // Those that have waited longest come first. Otherwise the first one could use up the limit each time.
    std::vector<std::pair<quint64, const QObject*>> sockets;
    for (auto connection = connections.cbegin(); connection != connections.cend(); ++connection) {
        sockets.emplace_back(connection.value()->suspension, connection.key());
    }
    std::sort(sockets.begin(), sockets.end());
    const quint64 latest = suspensions;
    for (const auto& waiting : sockets) {
        Record* const record = recordOf(waiting.second);
        // Once one is suspended again, those that still wait stay suspended.
        if (record && (!record->isSuspended || suspensions == latest)) {
            record->isSuspended = false;
            readMessages(record->m_socket);
        }
    }
}

// --- Timeouts --------------------------------------------------------------------------------------------------------

void citp_stack::Private::startTimeout(int timeout)
{
    // What is left of a shorter interval is shorter too, and costs less to know.
    if (!timeoutTimer->isActive() || (timeoutTimer->interval() > timeout && timeoutTimer->remainingTime() > timeout)) {
        timeoutTimer->start(timeout);
    }
}

void citp_stack::Private::checkTimeouts()
{
    const citp_options::Data& limits = guards.limits();
    const Clock::time_point now = Clock::now();
    qint64 next = std::numeric_limits<int>::max();
    // Notes when a timeout that began at the given time expires.
    const auto hasExpired = [now, &next](Clock::time_point begin, int timeout) {
        const qint64 left = timeout - millisecondsSince(begin, now);
        if (left > 0) {
            next = std::min(next, left);
        }
        return left <= 0;
    };
    const QList<const QObject*> sockets = connections.keys();
    for (const QObject* const socket : sockets) {
        Record* record = recordOf(socket);
        if (record && limits.stallTimeout > 0 && record->incomplete > 0 &&
            hasExpired(record->lastProgress, limits.stallTimeout)) {
            disconnectServer(*record, citp_options::StalledMessage, millisecondsSince(record->lastProgress, now),
                             limits.stallTimeout);
            record = nullptr;
        }
        if (record && limits.requestTimeout > 0) {
            std::unique_lock<std::mutex> queueLock(queueMutex);
            if (record->requestSent && (record->isSuspended || record->isTurnQueued)) {
                record->requestSent = now; // the answer may have arrived, and waits for the application
            }
            const std::optional<Clock::time_point> sent = record->requestSent;
            queueLock.unlock();
            if (sent && hasExpired(*sent, limits.requestTimeout)) {
                const SERV_ID key = record->key;
                guards.report(citp_options::LateAnswer, key, millisecondsSince(*sent, now), limits.requestTimeout);
                releaseNextRequest(key);
            }
        }
    }
    if (next < std::numeric_limits<int>::max()) {
        startTimeout(static_cast<int>(next));
    }
}

// --- Sending ---------------------------------------------------------------------------------------------------------

qint64 citp_stack::Private::countAccepted(Record& record, qint64 size) const
{
    const qint64 limit = guards.maxUnsentBytes();
    if (limit == 0) {
        return 0;
    }
    const qint64 unsent = record.passedDown + record.unwritten + size;
    if (unsent > limit) {
        return unsent;
    }
    record.passedDown += size;
    return 0;
}

void citp_stack::Private::countPassedDown(Record& record, qint64 size)
{
    // A message for an earlier connection of this server is not counted in its record.
    qint64 counted = record.passedDown;
    while (!record.passedDown.compare_exchange_weak(counted, std::max<qint64>(0, counted - size))) {
    }
    if (record.IsNoDelayEnabled() && guards.limits().requestTimeout > 0) {
        startTimeout(guards.limits().requestTimeout);
    }
}

void citp_stack::Private::applyLimits(Record& record)
{
    const citp_options::Data& limits = guards.limits();
    QTcpSocket* const socket = record.m_socket;
    const bool limitsReading = limits.maxTurnTime > 0 || limits.maxTurnBytes > 0 || limits.maxUnreadBytes > 0;
    if (limitsReading || socket->readBufferSize() != 0) {
        // Without a limit, Qt would read into memory what has to wait.
        socket->setReadBufferSize(limitsReading ? std::max(minimumReadBuffer, socket->bytesAvailable() + 1) : 0);
    }
    if (limits.maxUnsentBytes == 0) {
        // Not counted until there is a limit again. A caller of sendMsg() that still knows the old one is waited for.
        const std::lock_guard<std::mutex> queueLock(queueMutex);
        record.passedDown = 0;
    } else if (!record.isCountingWrites) {
        record.isCountingWrites = true;
        connect(socket, &QTcpSocket::bytesWritten, q, [this, socket] {
            if (Record* const writing = recordOf(socket)) {
                writing->unwritten = socket->bytesToWrite();
            }
        });
        record.unwritten = socket->bytesToWrite();
    }
    if (record.isConnected && (limits.peerTimeout > 0 || record.hasPeerTimeout)) {
        record.hasPeerTimeout = limits.peerTimeout > 0;
        setPeerTimeout(static_cast<int>(socket->socketDescriptor()), peerTimeout(limits.peerTimeout));
    }
}

// --- Announcements and connections -----------------------------------------------------------------------------------

bool citp_stack::Private::admits(const QString& host, const SERV_ID& key)
{
    const citp_options::Data& limits = guards.limits();
    if (disconnected.find(key) != disconnected.end()) {
        return false;
    }
    const bool isNamed = std::any_of(namedServers.cbegin(), namedServers.cend(), [&key](const NamedServer& server) {
        return buildServerKey(server.address.toString(), server.port) == key;
    });
    if (isNamed || (limits.maxServers == 0 && limits.maxServersPerAddress == 0)) {
        return true;
    }
    const Clock::time_point now = Clock::now();
    // Whether there are @p limit servers whose keys begin with @p prefix, and none of them gives up its place.
    const auto isFull = [this, now](const QString& prefix, int limit) {
        int count = 0;
        Record* oldest = nullptr;
        for (auto server = q->m_servers.lowerBound(prefix);
             server != q->m_servers.end() && server.key().startsWith(prefix); ++server) {
            Record* const record = static_cast<Record*>(server.value());
            ++count;
            if (!record->isConnected && !record->isLeaving && (!oldest || record->created < oldest->created)) {
                oldest = record;
            }
        }
        if (count < limit) {
            return false;
        }
        if (!oldest || now - oldest->created < connectTime) {
            return true;
        }
        giveUp(oldest);
        return false;
    };
    if (now - attemptsSince >= std::chrono::seconds(1)) {
        attemptsSince = now;
        attempts = 0;
    }
    const auto ignore = [this, &key](Guards::Guard guard, const QString& who, int limit) {
        guards.report(guard, who, limit, limit);
        if (hasObservers) {
            tell(DiscoveryEvent::Failed, key, Guards::reasonOf(guard, limit, limit));
        }
        return false;
    };
    // Senders of announcements can be forged, so that all of them share one report.
    const auto ignoreAsTooMany = [&ignore, &limits] {
        return ignore(citp_options::TooManyServers, QStringLiteral("new servers"), limits.maxServers);
    };
    if (limits.maxServers > 0 && attempts >= limits.maxServers) {
        return ignoreAsTooMany();
    }
    // An announcement over a connection has the key of that connection as its host.
    const QString address = host.section(QLatin1Char(':'), 0, 0);
    if (limits.maxServersPerAddress > 0 && isFull(address + QLatin1Char(':'), limits.maxServersPerAddress)) {
        return ignore(citp_options::TooManyPerAddress, address, limits.maxServersPerAddress);
    }
    if (limits.maxServers > 0 && isFull(QString(), limits.maxServers)) {
        return ignoreAsTooMany();
    }
    ++attempts;
    return true;
}

void citp_stack::Private::giveUp(Record* record)
{
    QTcpSocket* const socket = record->m_socket;
    tell(DiscoveryEvent::Failed, record->key, QStringLiteral("No answer"));
    removeServerOf(socket);
    // Closed immediately, because many may be given up before the event loop deletes them.
    const QSignalBlocker blocker(socket);
    socket->abort();
}

bool citp_stack::Private::isErrorLogged(const QTcpSocket* socket)
{
    const citp_options::Data& limits = guards.limits();
    if (const Record* const record = recordOf(socket)) {
        const bool wasConnected = record->isConnected;
        if (wasConnected && !record->hasFailed && limits.peerTimeout > 0 &&
            socket->error() != QAbstractSocket::RemoteHostClosedError) {
            guards.report(citp_options::LostPeer, record->key, limits.peerTimeout, limits.peerTimeout);
        }
        if (!wasConnected && limits.maxServers > 0 && ++failedAttempts > maxLoggedFailures) {
            return false;
        }
    }
    return true;
}

bool citp_stack::Private::tickGuards()
{
    disconnected.clear();
    guards.reportOmitted(Guards::Omitted::OfEndedIntervals);
    if (failedAttempts > maxLoggedFailures) {
        CITP_LOG(stackLogContext(), Os::Log::Failure, "citp_stack.cpp", __LINE__, "void CITP::citp_stack::rxerror()",
                 failedAttempts - maxLoggedFailures << " more connections failed to open");
    }
    failedAttempts = 0;

    const citp_options::DiscoveryGroups groups = guards.limits().groups;
    if (!guards.update()) {
        return false;
    }
    if (!timeoutTimer) {
        timeoutTimer = new QTimer(q);
        timeoutTimer->setSingleShot(true);
        timeoutTimer->setTimerType(Qt::PreciseTimer);
        connect(timeoutTimer, &QTimer::timeout, q, [this] { checkTimeouts(); });
    }
    const citp_options::Data& limits = guards.limits();
    for (Record* const record : std::as_const(connections)) {
        applyLimits(*record);
        record->incomplete = 0;
        record->lostMessages = 0;
    }
    // What has already arrived is judged by the new limits.
    readAllServers();
    if (limits.stallTimeout > 0 || limits.requestTimeout > 0) {
        startTimeout(0);
    }
    std::vector<NamedServer> servers;
    for (const auto& [address, port] : limits.servers) {
        servers.push_back({address, port, Clock::time_point{}, milliseconds(limits.retryInterval)});
    }
    namedServers = std::move(servers);
    return limits.groups != groups;
}

void citp_stack::Private::connectNamedServers(bool isReset)
{
    const Clock::time_point now = Clock::now();
    const milliseconds firstPause(guards.limits().retryInterval);
    for (NamedServer& server : namedServers) {
        const QString host = server.address.toString();
        const StackLock lock(q->m_mutex);
        Record* const record = find(buildServerKey(host, server.port));
        if (isReset) {
            server.pause = firstPause;
            server.nextAttempt = now;
        }
        if (record && record->m_notified) {
            server.pause = firstPause;
            server.nextAttempt = now + firstPause;
        } else if (now >= server.nextAttempt && (!record || !record->isConnected)) {
            // An attempt without an answer would last for minutes. One that has just begun goes on.
            if (record && now - record->created < connectTime) {
                continue;
            }
            if (record) {
                giveUp(record);
            }
            server.nextAttempt = now + server.pause;
            server.pause = std::min(2 * server.pause, maxPauseFactor * firstPause);
            q->handlePLOC(host, Msg_PEER_PLOC(QStringLiteral("MediaServer"), QString(), QString(), server.port));
        }
    }
}
} // namespace CITP

// citp_options: what an application may ask of the stack beyond its defaults: guards against broken or hostile devices,
// the second discovery group, and servers named by hand.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>

#include <QByteArray>
#include <QHostAddress>
#include <QSharedDataPointer>
#include <QString>

#include <functional>

namespace CITP {
/// Options of the stack, passed to citp_stack::setOptions(). A value class; copies share their data.
///
/// A default-constructed object switches everything off: the stack then treats every device as it always has.
/// recommended() switches all guards on. Each limit can be changed; 0 switches its guard off.
///
/// A setter that gets a value out of range changes nothing, writes the reason to the log ("CITP.Stack", level Failure)
/// and returns false.
///
/// Reentrant: different objects can be used in different threads.
class CITP_EXPORT citp_options
{
public:
    /// Each guard limits what one device can do to the console.
    enum Guard {
        SmallMessage,   ///< a message states fewer bytes than its header has; its connection ends
        LargeMessage,   ///< a message states too many bytes; its connection ends
        StalledMessage, ///< a message stays incomplete and no byte arrives; its connection ends
        WrongCount,     ///< a list announces more records than the message can hold; the message is dropped
        LateAnswer,     ///< a paced request is not answered; the next one is sent
        LostPeer, ///< the machine or the cable of a server is gone; its connection ends. Reported as a socket error
        TooManyServers,     ///< too many servers are known; a new one is ignored
        TooManyPerAddress,  ///< too many servers of one address are known; a new one is ignored
        UnsentData,         ///< a server does not read what is sent to it; sendMsg() rejects further messages
        LostFraming,        ///< a stream contains too many pieces that do not begin with "CITP"; its connection ends
        LongTurn,           ///< a server sends more than is read in one turn; others get their turn. Not reported
        UnreadNotifications ///< the application does not keep up; the servers that send are not read until it does
    };

    /// A guard that acted.
    struct Event
    {
        Guard guard; ///< the guard
        /// Key of the server. #TooManyPerAddress: the address. #TooManyServers: "new servers". Guards against
        /// datagrams: "datagrams". Once 1000 servers have been reported: "other servers".
        QString server;
        qint64 value; ///< the value that was found, in the unit of the limit; the limit if it is not measured
        qint64 limit; ///< the limit in effect; #SmallMessage: the header; #WrongCount: what the message can hold
        int omitted;  ///< equal events of this server since the last report, which were not reported
        QString text; ///< the log line: one line, ASCII
    };
    /// Called for each event that is also logged: on the stack's worker thread, or for #UnsentData in the thread that
    /// called sendMsg(). The registry may be locked then, so it must return soon and must not wait for another thread
    /// that uses the stack.
    ///
    /// It may still be called until the first tick after it was replaced, and until the process exits: capture only
    /// what lives that long.
    using Observer = std::function<void(const Event&)>;

    /// The multicast groups on which servers announce themselves, UDP port 4809.
    enum DiscoveryGroups {
        OldGroup = 1, ///< 224.0.0.180; the default
        /// 239.224.0.180, used by servers since 2014, because switches with IGMP snooping often do not forward the old
        /// group
        NewGroup = 2,
        BothGroups = 3 ///< a server that is heard on both groups is one server
    };

    /// Everything off.
    citp_options();
    citp_options(const citp_options& other);            ///< a copy
    citp_options& operator=(const citp_options& other); ///< copies all options
    ~citp_options();

    /// All guards on, with the recommended limits that each setter states. Groups and servers as by default.
    static citp_options recommended();

    /// Ends the connection of a server that sends a message with a size field of less than 20 bytes, the length of the
    /// CITP header. Without it, a size field of 0 keeps the worker thread busy forever.
    void setSmallMessageGuard(bool enable);
    bool smallMessageGuard() const; ///< see setSmallMessageGuard()

    /// Ends the connection of a server whose message states more than @p bytes, before memory is used for it.
    /// @param bytes 20 to 1 GiB; 0: no limit. Recommended: 1 MiB. The largest message of a correct server is a list of
    /// 256 elements with names of 255 characters, 140 KB.
    bool setMaxMessageSize(qint64 bytes);
    qint64 maxMessageSize() const; ///< see setMaxMessageSize()

    /// Ends the connection of a server that leaves a message incomplete and sends no byte for @p milliseconds. A slow
    /// message that makes progress is not limited, and neither is a server that is silent between messages.
    /// @param milliseconds 100 to 3600000; 0: no limit. Recommended: 10000, more than a retransmission takes.
    bool setStallTimeout(int milliseconds);
    int stallTimeout() const; ///< see setStallTimeout()

    /// Drops a message with a list that announces more records than the rest of the message can hold, as if it were not
    /// valid: ELIn, MEIn, EEIn, GLEI and LSta. An ELIn or MEIn still releases the next paced request. A SInf with such
    /// a list brings the server up without that list and those after it.
    void setCountGuard(bool enable);
    bool countGuard() const; ///< see setCountGuard()
    /// Whether this guard drops @p message, an ELIn, MEIn, EEIn, GLEI or LSta, because of a count. For tools that show
    /// messages: without the guard, a few bytes can become a list of 65535 records. Thread-safe.
    /// @param message a whole message; of other messages and invalid ones no count is wrong
    /// @param announced receives the records that the list announces, if the count is wrong
    /// @param possible receives the records that its bytes can hold, if the count is wrong
    static bool hasWrongCount(const QByteArray& message, int* announced, int* possible);

    /// Sends the next paced request when the current one is not answered within @p milliseconds.
    /// @param milliseconds 100 to 3600000; 0: no limit. Recommended: 5000.
    bool setRequestTimeout(int milliseconds);
    int requestTimeout() const; ///< see setRequestTimeout()

    /// Ends the connection to a server whose machine has not answered for @p milliseconds, for example because a cable
    /// is unplugged: sets the keep-alive times and the limit for unacknowledged data of the connection. A server that
    /// is only silent stays connected, because its machine answers. A server that does not read for that time while
    /// data waits for it is disconnected as well.
    /// @param milliseconds 3000 to 3600000; 0: the times of the system. Recommended: 10000.
    bool setPeerTimeout(int milliseconds);
    int peerTimeout() const; ///< see setPeerTimeout()

    /// Ignores announcements of new servers while @p count servers are known. Known servers stay. A server counts from
    /// its announcement on, but one whose connection has not opened within half a second gives its place to a new one.
    /// At most @p count connections are opened in one second, and of connections that never opened, only the first ten
    /// errors in a tick are logged.
    /// @param count 1 to 65535; 0: no limit. Recommended: 500; each takes one of the usual 1024 descriptors.
    bool setMaxServers(int count);
    int maxServers() const; ///< see setMaxServers()

    /// The same for the servers of one address.
    /// @param count 1 to 65535; 0: no limit. Recommended: 250, so that one host never takes all places.
    bool setMaxServersPerAddress(int count);
    int maxServersPerAddress() const; ///< see setMaxServersPerAddress()

    /// Rejects messages to a server in sendMsg() while more than @p bytes would wait to be written to it, paced
    /// requests included.
    /// @param bytes 1024 to 1 GiB; 0: no limit. Recommended: 1 MiB, some 20000 requests.
    bool setMaxUnsentBytes(qint64 bytes);
    qint64 maxUnsentBytes() const; ///< see setMaxUnsentBytes()

    /// Ends the connection of a server after @p count consecutive pieces of its stream that do not begin with "CITP".
    /// @param count 1 to 1000000: that many are tolerated; 0: any number. Recommended: 3.
    bool setMaxLostMessages(int count);
    int maxLostMessages() const; ///< see setMaxLostMessages()

    /// Reads a server for at most @p milliseconds before the other servers get their turn. Messages are not divided,
    /// the clock is read after 24 of them at most, and each server's messages keep their order.
    /// @param milliseconds 1 to 10000; 0: no limit. Recommended: 10.
    bool setMaxTurnTime(int milliseconds);
    int maxTurnTime() const; ///< see setMaxTurnTime()

    /// Reads at most @p bytes of a server, and the message that exceeds them, before the others get their turn.
    /// @param bytes 20 to 1 GiB; 0: no limit. Recommended: 256 KiB.
    bool setMaxTurnBytes(qint64 bytes);
    qint64 maxTurnBytes() const; ///< see setMaxTurnBytes()

    /// Stops reading the servers that send while notifications of more than @p bytes would wait for receivers in other
    /// threads, until half of that is left. TCP then slows these servers down; nothing is lost. A notification counts
    /// as unreadCost().
    ///
    /// A notification waits until its receiver returns. If a directly connected receiver copies a message, that copy
    /// counts until it is destroyed: to keep a message, assign it to another one, or copy the copy.
    /// @param bytes 20 to 1 GiB; 0: no limit. Recommended: 4 MiB.
    bool setMaxUnreadBytes(qint64 bytes);
    qint64 maxUnreadBytes() const; ///< see setMaxUnreadBytes()

    /// What a waiting notification of a message of @p messageSize bytes counts as: an estimate of its memory.
    static qint64 unreadCost(qint64 messageSize) { return 1024 + 4 * messageSize; }

    /// The minimum time between two reports of the same guard about the same server. The next report tells how many
    /// were omitted.
    /// @param milliseconds 100 to 3600000. Default: 10000.
    bool setReportInterval(int milliseconds);
    int reportInterval() const; ///< see setReportInterval()

    /// Sets the function that is called when a guard acts; may be empty.
    void setObserver(const Observer& observer);
    Observer observer() const; ///< see setObserver()

    /// Sets the groups on which the stack listens. @return false for a value that is none of the enumeration
    bool setDiscoveryGroups(DiscoveryGroups groups);
    DiscoveryGroups discoveryGroups() const; ///< see setDiscoveryGroups()

    /// Adds a server by address and port, for networks without multicast. The stack treats it as if it had announced
    /// itself: it connects while it is enabled, and tries again with a growing pause when the connection fails or ends.
    /// An announcement of the same address and port changes nothing. The limits of servers do not apply.
    /// @param address the IPv4 address of a host
    /// @param port 1 to 65535
    bool addServer(const QHostAddress& address, quint16 port);

    /// The first pause before a server that was added by hand is tried again; each further pause is twice as long, at
    /// most 16 times this one. A pause ends at a tick.
    /// @param milliseconds 2000 to 3600000. Default: 2000.
    bool setRetryInterval(int milliseconds);
    int retryInterval() const; ///< see setRetryInterval()

    struct Data;

private:
    friend class Guards;
    struct Shared;

    QSharedDataPointer<Shared> d;
};
} // namespace CITP

// citp_options: its setters and their ranges, and the recommended limits.
// SPDX-License-Identifier: Apache-2.0
#include "citp_options_p.h"

#include "citp_log_p.h"

#include <algorithm>

namespace CITP {
namespace {
constexpr qint64 minimumBytes = 20; // the CITP header
constexpr qint64 maximumBytes = 1 << 30;
constexpr qint64 minimumUnsentBytes = 1024; // more than the greeting of a new connection
constexpr int minimumTime = 100;            // ms
constexpr int maximumTime = 3600000;        // ms
constexpr int minimumPeerTimeout = 3000;    // ms; the system counts keep-alive times in seconds
constexpr int maximumServers = 65535;
constexpr int maximumLostMessages = 1000000;
constexpr int maximumTurnTime = 10000;     // ms
constexpr int minimumRetryInterval = 2000; // ms, the tick

void logRejected(const text_base& text)
{
    CITP_LOG(stackLogContext(), Os::Log::Failure, "citp_options.cpp", __LINE__, Q_FUNC_INFO, text.c_str());
}

enum class Zero { IsOff, IsRejected };

/// Sets @p member if @p value is in range.
template <typename Value>
bool assign(citp_options::Data& data, Value citp_options::Data::*member, Value value, const char* name, qint64 minimum,
            qint64 maximum, const char* unit, Zero zero = Zero::IsOff)
{
    const bool isOff = value == 0 && zero == Zero::IsOff;
    if (!isOff && (value < minimum || value > maximum)) {
        text_base text;
        text << "option rejected: " << name << " of " << value << " " << unit << "; it must be "
             << (zero == Zero::IsOff ? "0 or " : "") << minimum << " to " << maximum;
        logRejected(text);
        return false;
    }
    data.*member = value;
    return true;
}
} // namespace

citp_options::citp_options() : d(new Shared) {}
citp_options::citp_options(const citp_options& other) = default;
citp_options& citp_options::operator=(const citp_options& other) = default;
citp_options::~citp_options() = default;

citp_options citp_options::recommended()
{
    citp_options options;
    Data& data = *options.d;
    data.smallMessageGuard = true;
    data.maxMessageSize = 1 << 20;
    data.stallTimeout = 10000;
    data.countGuard = true;
    data.requestTimeout = 5000;
    data.peerTimeout = 10000;
    data.maxServers = 500;
    data.maxServersPerAddress = 250;
    data.maxUnsentBytes = 1 << 20;
    data.maxLostMessages = 3;
    data.maxTurnTime = 10;
    data.maxTurnBytes = 1 << 18;
    data.maxUnreadBytes = 1 << 22;
    return options;
}

void citp_options::setSmallMessageGuard(bool enable)
{
    d->smallMessageGuard = enable;
}

bool citp_options::smallMessageGuard() const
{
    return d->smallMessageGuard;
}

void citp_options::setCountGuard(bool enable)
{
    d->countGuard = enable;
}

bool citp_options::countGuard() const
{
    return d->countGuard;
}

bool citp_options::setMaxMessageSize(qint64 bytes)
{
    return assign(*d, &Data::maxMessageSize, bytes, "message size limit", minimumBytes, maximumBytes, "bytes");
}

qint64 citp_options::maxMessageSize() const
{
    return d->maxMessageSize;
}

bool citp_options::setStallTimeout(int milliseconds)
{
    return assign(*d, &Data::stallTimeout, milliseconds, "stall timeout", minimumTime, maximumTime, "ms");
}

int citp_options::stallTimeout() const
{
    return d->stallTimeout;
}

bool citp_options::setRequestTimeout(int milliseconds)
{
    return assign(*d, &Data::requestTimeout, milliseconds, "request timeout", minimumTime, maximumTime, "ms");
}

int citp_options::requestTimeout() const
{
    return d->requestTimeout;
}

bool citp_options::setPeerTimeout(int milliseconds)
{
    return assign(*d, &Data::peerTimeout, milliseconds, "peer timeout", minimumPeerTimeout, maximumTime, "ms");
}

int citp_options::peerTimeout() const
{
    return d->peerTimeout;
}

bool citp_options::setMaxServers(int count)
{
    return assign(*d, &Data::maxServers, count, "server limit", 1, maximumServers, "servers");
}

int citp_options::maxServers() const
{
    return d->maxServers;
}

bool citp_options::setMaxServersPerAddress(int count)
{
    return assign(*d, &Data::maxServersPerAddress, count, "limit of servers per address", 1, maximumServers, "servers");
}

int citp_options::maxServersPerAddress() const
{
    return d->maxServersPerAddress;
}

bool citp_options::setMaxUnsentBytes(qint64 bytes)
{
    return assign(*d, &Data::maxUnsentBytes, bytes, "limit of unsent bytes", minimumUnsentBytes, maximumBytes, "bytes");
}

qint64 citp_options::maxUnsentBytes() const
{
    return d->maxUnsentBytes;
}

bool citp_options::setMaxLostMessages(int count)
{
    return assign(*d, &Data::maxLostMessages, count, "limit of lost messages", 1, maximumLostMessages, "messages");
}

int citp_options::maxLostMessages() const
{
    return d->maxLostMessages;
}

bool citp_options::setMaxTurnTime(int milliseconds)
{
    return assign(*d, &Data::maxTurnTime, milliseconds, "turn time", 1, maximumTurnTime, "ms");
}

int citp_options::maxTurnTime() const
{
    return d->maxTurnTime;
}

bool citp_options::setMaxTurnBytes(qint64 bytes)
{
    return assign(*d, &Data::maxTurnBytes, bytes, "turn size", minimumBytes, maximumBytes, "bytes");
}

qint64 citp_options::maxTurnBytes() const
{
    return d->maxTurnBytes;
}

bool citp_options::setMaxUnreadBytes(qint64 bytes)
{
    return assign(*d, &Data::maxUnreadBytes, bytes, "limit of unread bytes", minimumBytes, maximumBytes, "bytes");
}

qint64 citp_options::maxUnreadBytes() const
{
    return d->maxUnreadBytes;
}

bool citp_options::setReportInterval(int milliseconds)
{
    return assign(*d, &Data::reportInterval, milliseconds, "report interval", minimumTime, maximumTime, "ms",
                  Zero::IsRejected);
}

int citp_options::reportInterval() const
{
    return d->reportInterval;
}

bool citp_options::setRetryInterval(int milliseconds)
{
    return assign(*d, &Data::retryInterval, milliseconds, "retry interval", minimumRetryInterval, maximumTime, "ms",
                  Zero::IsRejected);
}

int citp_options::retryInterval() const
{
    return d->retryInterval;
}

void citp_options::setObserver(const Observer& observer)
{
    d->observer = observer;
}

citp_options::Observer citp_options::observer() const
{
    return d->observer;
}

bool citp_options::setDiscoveryGroups(DiscoveryGroups groups)
{
    if (groups < OldGroup || groups > BothGroups) {
        text_base text;
        text << "option rejected: discovery groups " << static_cast<int>(groups) << "; they must be 1, 2 or 3";
        logRejected(text);
        return false;
    }
    d->groups = groups;
    return true;
}

citp_options::DiscoveryGroups citp_options::discoveryGroups() const
{
    return d->groups;
}

bool citp_options::addServer(const QHostAddress& address, quint16 port)
{
    const bool isHost = address.protocol() == QAbstractSocket::IPv4Protocol && !address.isMulticast() &&
                        address != QHostAddress(QHostAddress::AnyIPv4) && address != QHostAddress::Broadcast;
    if (!isHost || port == 0) {
        text_base text;
        text << "option rejected: server " << toAscii(address.toString()) << " port " << static_cast<unsigned>(port)
             << "; it must be the IPv4 address of a host and a port of 1 to 65535";
        logRejected(text);
        return false;
    }
    const std::pair<QHostAddress, quint16> server(address, port);
    if (std::find(d->servers.cbegin(), d->servers.cend(), server) == d->servers.cend()) {
        d->servers.push_back(server);
    }
    return true;
}
} // namespace CITP

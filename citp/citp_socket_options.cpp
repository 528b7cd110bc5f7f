// The keep-alive times of a connection and its limit for unacknowledged data.
// SPDX-License-Identifier: Apache-2.0
#include "citp_socket_options_p.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace CITP {
namespace {
void setTcpOption(int descriptor, int option, int value)
{
    ::setsockopt(descriptor, IPPROTO_TCP, option, &value, sizeof value);
}

int tcpOption(int descriptor, int option)
{
    int value = 0;
    socklen_t length = sizeof value;
    ::getsockopt(descriptor, IPPROTO_TCP, option, &value, &length);
    return value;
}

PeerTimeout systemTimeout()
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const PeerTimeout timeout{tcpOption(descriptor, TCP_KEEPIDLE), tcpOption(descriptor, TCP_KEEPINTVL),
                              tcpOption(descriptor, TCP_KEEPCNT), 0};
    if (descriptor != -1) {
        ::close(descriptor);
    }
    return timeout;
}
} // namespace

PeerTimeout peerTimeout(int milliseconds)
{
    if (milliseconds == 0) {
        return systemTimeout();
    }
    // Three probes in the last part of the time. The kernel gives up at the first probe after TCP_USER_TIMEOUT.
    constexpr int probes = 3;
    const int seconds = milliseconds / 1000;
    const int interval = std::max(1, seconds / 5);
    return {std::max(1, seconds - probes * interval), interval, probes, milliseconds};
}

void setPeerTimeout(int descriptor, const PeerTimeout& timeout)
{
    setTcpOption(descriptor, TCP_KEEPIDLE, timeout.idle);
    setTcpOption(descriptor, TCP_KEEPINTVL, timeout.interval);
    setTcpOption(descriptor, TCP_KEEPCNT, timeout.probes);
    setTcpOption(descriptor, TCP_USER_TIMEOUT, timeout.unacknowledged);
}
} // namespace CITP

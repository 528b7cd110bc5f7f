// The data of citp_options. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_options.h>

#include <QSharedData>

#include <utility>
#include <vector>

namespace CITP {
/// 0 and false mean off.
struct CITP_HIDDEN citp_options::Data
{
    bool smallMessageGuard = false;
    bool countGuard = false;
    qint64 maxMessageSize = 0;
    int stallTimeout = 0;
    int requestTimeout = 0;
    int peerTimeout = 0;
    int maxServers = 0;
    int maxServersPerAddress = 0;
    qint64 maxUnsentBytes = 0;
    int maxLostMessages = 0;
    int maxTurnTime = 0;
    qint64 maxTurnBytes = 0;
    qint64 maxUnreadBytes = 0;
    int reportInterval = 10000;
    Observer observer;
    DiscoveryGroups groups = OldGroup;
    std::vector<std::pair<QHostAddress, quint16>> servers;
    int retryInterval = 2000;
};

struct CITP_HIDDEN citp_options::Shared : QSharedData, citp_options::Data
{
};
} // namespace CITP

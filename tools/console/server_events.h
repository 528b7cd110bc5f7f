// ServerEvents: the servers that came up or went down, in order.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <deque>

#include "inbox.h"

namespace Console {
struct ServerEvent
{
    QString key;
    bool isUp;
};

/// Collects events until they are taken. The oldest are dropped beyond 4096. Main thread only.
class ServerEvents
{
public:
    ServerEvents();

    bool isEmpty() { return m_inbox.state()->events.empty(); }
    /// Removes and returns the events.
    std::deque<ServerEvent> take();
    /// The number of events dropped since the last call.
    qint64 takeDropped();

private:
    struct State
    {
        std::deque<ServerEvent> events;
        qint64 dropped = 0;
    };
    static void add(State& state, const ServerEvent& event);

    Inbox<State> m_inbox;
};
} // namespace Console

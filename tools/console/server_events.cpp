// Collection of server events.
// SPDX-License-Identifier: Apache-2.0
#include "server_events.h"

#include <utility>

namespace Console {
namespace {
constexpr std::size_t MaxEvents = 4096;
} // namespace

ServerEvents::ServerEvents()
{
    m_inbox.receive(&CITP::citp_stack::serverUp, [](State& state, const QString& key) { add(state, {key, true}); });
    m_inbox.receive(&CITP::citp_stack::serverDown, [](State& state, const QString& key) { add(state, {key, false}); });
}

std::deque<ServerEvent> ServerEvents::take()
{
    return std::exchange(m_inbox.state()->events, {});
}

qint64 ServerEvents::takeDropped()
{
    return std::exchange(m_inbox.state()->dropped, 0);
}

void ServerEvents::add(State& state, const ServerEvent& event)
{
    state.events.push_back(event);
    if (state.events.size() > MaxEvents) {
        state.events.pop_front();
        ++state.dropped;
    }
}
} // namespace Console

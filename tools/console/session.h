// Session: one media server, found by key or name, and waiting with a timeout for its messages.
//
// Commands run sequentially on the main thread. While a command waits, the stack's thread stores the results that the
// command waits for in an Inbox.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QMap>
#include <functional>

#include "options.h"
#include "server_events.h"
#include "server_text.h"
#include "shutdown.h"

namespace Console {
/// Runs the event loop of the main thread until @p isDone returns true or @p milliseconds have passed. Calls @p isDone
/// at least several times a second.
/// @return false on timeout
/// @throws Interrupted if the command is interrupted, OutputFailure if the reader of standard output has gone
bool processEventsUntil(const std::function<bool()>& isDone, int milliseconds);

/// Minimum timeout for a server to come up. The library starts to listen up to 2 s after it was enabled, and the server
/// announces itself after that.
constexpr int MinSearchMs = 5000;
/// Time to wait for more servers after the first one was found. Servers announce themselves about once a second.
constexpr int SettleMs = 1500;

/// Enables the stack with the guards, groups and servers of @p options.
void enableStack(const Options& options);

class Session
{
public:
    /// Enables the stack and waits until the server given in the options is up.
    /// @throws Failure on timeout, or if several servers match the name
    explicit Session(const Options& options);

    const ServerText& server() const { return m_server; }
    const QString& key() const { return m_server.key; }
    /// The MSEX minor version for requests.
    quint8 msexMinor() const { return m_server.msexMinor; }
    /// For text output, e.g. server 127.0.0.2:4811 "Stage".
    QString name() const;
    int timeoutMs() const { return m_timeoutMs; }
    bool isDown() const { return m_isDown; }

    /// Sends @p request to the server.
    /// @throws Failure if the stack rejects it, for example because the server is down
    void send(const CITP::Msg_Header& request);

    /// Like processEventsUntil(), and additionally throws if the server goes down.
    /// @return false on timeout
    /// @throws Failure if the server goes down, and as processEventsUntil()
    bool waitUntil(const std::function<bool()>& isDone, int milliseconds);
    /// Like waitUntil() with the session's timeout, but throws on timeout.
    /// @param what the expected answer, for the failure text, e.g. "its libraries"
    /// @param remark returns a text that is appended to the failure text; called on timeout; may be null
    /// @throws NoAnswer on timeout
    void waitFor(const QString& what, const std::function<bool()>& isDone, const std::function<QString()>& remark = {});

private:
    void update();
    void find(const Options& options);

    ServerEvents m_events;
    QMap<QString, ServerText> m_servers;
    ServerText m_server;
    int m_timeoutMs;
    bool m_isDown = false;
};
} // namespace Console

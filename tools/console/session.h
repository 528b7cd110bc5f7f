// Session: one media server, found by key or name, and bounded waiting for what it says.
//
// Commands run straight through on the main thread. While they wait, the event loop delivers the stack's signals, so
// what a connected function stores is there when the wait ends.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <functional>

#include "options.h"
#include "server_text.h"

namespace Console {
/// What kept a command from being done; one line for people, made harmless.
struct Failure
{
    QString text;
};

/// The user has asked for the end (Ctrl-C).
struct Interrupted
{
};

/// Makes every wait end with Interrupted. Main thread.
void interruptSessions();

/// Runs the event loop of the main thread until @p isDone or @p milliseconds have passed. @p isDone is asked several
/// times a second at least.
/// @return whether it is done
/// @throws Interrupted when the user wants to end
bool pumpUntil(const std::function<bool()>& isDone, int milliseconds);

/// The library begins to listen up to 2 s after it was enabled, and then the server must announce itself: no server can
/// be expected to be up before this has passed.
constexpr int ShortestSearchMs = 5000;

class Session : public QObject
{
public:
    /// Enables the stack and waits until the server that the options name is up.
    /// @throws Failure if there is none within the time limit, or if several have such a name
    explicit Session(const Options& options);

    const ServerText& server() const { return m_server; }
    const QString& key() const { return m_server.key; }
    /// The MSEX minor version to write requests in.
    quint8 msexMinor() const { return m_server.msexMinor; }
    /// For messages to people, e.g. server 127.0.0.2:4811 "Stage".
    QString name() const;
    int limitMs() const { return m_limitMs; }
    bool isDown() const { return m_isDown; }

    /// @throws Failure if the stack refuses it, as when the server is lost
    void send(const CITP::Msg_Header& request);

    /// Runs the event loop until @p isDone or @p milliseconds have passed.
    /// @return whether it is done
    /// @throws Failure once the server is down, Interrupted when the user wants to end
    bool pump(const std::function<bool()>& isDone, int milliseconds);
    /// The same with the session's time limit.
    /// @param what what is waited for, e.g. "its libraries"
    /// @param remark added to the failure; asked when the time is over; may be null
    /// @throws Failure also when the time is over
    void await(const QString& what, const std::function<bool()>& isDone, const std::function<QString()>& remark = {});

private:
    void find(const QString& wanted);

    QMap<QString, ServerText> m_servers;
    ServerText m_server;
    int m_limitMs;
    bool m_isDown = false;
};
} // namespace Console

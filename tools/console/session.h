// Session: one media server, found by key or name, and waiting with a timeout for what it sends.
//
// Commands run sequentially on the main thread. While a command waits, the client layer fills what it waits for.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/catalogue.h>
#include <citp_client/directory.h>
#include <citp_client/requests.h>

#include <climits>
#include <functional>
#include <memory>
#include <optional>

#include "options.h"
#include "server_text.h"
#include "shutdown.h"

namespace Console {
/// Runs the event loop of the main thread until @p isDone returns true or @p milliseconds have passed. Calls @p isDone
/// at least several times a second.
/// @return false on timeout
/// @throws Interrupted if the command is interrupted, OutputFailure if the reader of standard output has gone
bool processEventsUntil(const std::function<bool()>& isDone, int milliseconds);

/// Minimum timeout for a server to come up. The library starts to listen up to 2 s after it was enabled, the server
/// announces itself after that, and on a busy machine joining the groups takes seconds.
constexpr int MinSearchMs = 10000;
/// Time to wait for more servers after the first one was found. Servers announce themselves about once a second.
constexpr int SettleMs = 1500;
/// The type of libraries that hold media.
constexpr quint8 MediaLibraries = 1;

/// Enables the stack with the guards, groups and servers of @p options.
void enableStack(const Options& options);

/// The requests end by the timeout of the options, all attempts together.
class Session
{
public:
    /// Enables the stack and waits until the server given in the options is up.
    /// @throws Failure on timeout, or if several servers match the name
    explicit Session(const Options& options);
    ~Session();

    /// As it was when it was found.
    const CITP::Server& server() const { return m_server; }
    const QString& key() const { return m_server.key; }
    /// For text output, e.g. server 127.0.0.2:4811 "Stage".
    QString name() const { return "server " + toText(m_server, true); }
    int timeoutMs() const { return m_timeoutMs; }
    CITP::Transport& transport() { return m_transport; }
    CITP::Requests& requests() { return m_requests; }
    CITP::Catalogue& catalogue() { return *m_catalogue; }

    /// Like processEventsUntil(), and additionally throws if the server goes down.
    /// @return false on timeout
    /// @throws Failure if the server goes down, and as processEventsUntil()
    bool waitUntil(const std::function<bool()>& isDone, int milliseconds = INT_MAX);
    /// @throws Failure if the server went down
    void checkIsUp() const;
    /// The failure for a timeout.
    /// @param what the expected answer, e.g. "its layer status"
    /// @param remark appended to the text
    Failure noAnswer(const QString& what, const QString& remark = {}) const;

    /// Waits until the catalogue is idle.
    /// @throws Failure if the server lists more libraries or elements than any show has, and as waitUntil()
    void waitForCatalogue();
    /// Loads the elements of @p library.
    /// @return the identifier of the library in the server's form
    /// @throws Failure if that fails or there is no such library, and as waitUntil()
    QString loadElements(quint8 type, const QString& library);
    /// Prints on standard error what was odd or missing in the lists of @p kind that the catalogue has.
    /// @return the number of lists that are missing
    int warnAboutLists(quint8 type, CITP::Request::Kind kind);

private:
    class Neighbours;

    void find(const Options& options, const QString& adapter);
    QString foundText(const QString& wanted) const;

    std::unique_ptr<Neighbours> m_neighbours; ///< listens from before the stack starts until the server is found
    CITP::StackTransport m_transport;
    CITP::Directory m_directory{m_transport};
    CITP::Requests m_requests{m_transport};
    std::optional<CITP::Catalogue> m_catalogue;
    CITP::Server m_server;
    int m_timeoutMs;
    std::size_t m_elements = 0; ///< that the catalogue has loaded
    bool m_isDown = false;
};
} // namespace Console

// The command "watch": prints a line when a server comes up or goes down, and hints if no server is found.
// SPDX-License-Identifier: Apache-2.0
#include "commands.h"

#include <QElapsedTimer>
#include <QSet>
#include <climits>
#include <utility>

#include "adapters.h"
#include "discovery.h"
#include "session.h"

namespace Console {
namespace {
constexpr int SilenceMs = 10000;

void printEvent(const CITP::Server& server, bool json)
{
    const bool isUp = server.state == CITP::Server::Up;
    const QString event = isUp ? "up" : "down";
    if (json) {
        QJsonObject object = toJson(server);
        object.insert("record", "event");
        object.insert("event", event);
        object.insert("time", isoTime());
        printJson(object);
    } else {
        printLine(QString("%1  %2  %3").arg(timeOfDay(), event.leftJustified(4), toText(server, !isUp)));
    }
}

QString carrierHint(const ArtNet::Adapter& used)
{
    const std::optional<Os::NetworkAdapter> adapter = findAdapter(used);
    if (!adapter)
        return "there is no adapter";
    if (adapter->GetState().loopback)
        return "this is the loopback: only servers on this machine can be found";
    return adapter->GetState().running ? "the adapter has a carrier; is the server on the same network?"
                                       : "the adapter has no carrier: is the cable plugged in at both ends?";
}

void printHints()
{
    const ArtNet::Adapter used = ArtNet::Adapter::Get();
    warn(QString("no server found for %1. Check the following:").arg(secondsText(SilenceMs)));
    warn(QString("  adapter: %1 is used (%2); --adapter selects another, 'citp-console adapters' lists them")
             .arg(nameAndAddress(used), reasonFor(used)));
    warn("  cable: " + carrierHint(used));
    warn(
        "  multicast: servers announce themselves to 224.0.0.180 or 239.224.0.180; are these groups blocked by a "
        "firewall or by a switch with IGMP snooping? --server-at connects without announcements");
    warn(Discovery().open() == 0
             ? "  port 4809: can be opened"
             : "  port 4809: IN USE by a program that does not share it; stop that program ('ss -ulpn' lists it)");
}

// What has changed since the last call of take...().
class Changes
{
public:
    explicit Changes(CITP::Directory& directory)
    {
        QObject::connect(&directory, &CITP::Directory::changed, &directory, [this, &directory](const QString& key) {
            const CITP::Server server = directory.server(key);
            const bool isUp = server.state == CITP::Server::Up;
            if (isUp != m_up.contains(key)) {
                m_events.push_back(server);
                isUp ? static_cast<void>(m_up.insert(key)) : static_cast<void>(m_up.remove(key));
            }
            const bool isFailing = server.state == CITP::Server::Failing;
            if (isFailing && !m_failing.contains(key))
                m_problems << server.problem + "; 'citp-console doctor " + key + "' checks it";
            if (isFailing)
                m_failing.insert(key);
            else if (isUp || server.key.isEmpty())
                m_failing.remove(key);
        });
    }

    bool isEmpty() const { return m_events.empty() && m_problems.isEmpty(); }
    /// The servers that came up or went down.
    std::vector<CITP::Server> takeEvents() { return std::exchange(m_events, {}); }
    /// Those that are heard, but do not come up: each once, until it comes up.
    QStringList takeProblems() { return std::exchange(m_problems, {}); }

private:
    QSet<QString> m_up;
    QSet<QString> m_failing;
    std::vector<CITP::Server> m_events;
    QStringList m_problems;
};
} // namespace

int watch(const Options& options)
{
    constexpr int MaxLines = 5;
    CITP::StackTransport transport;
    CITP::Directory directory(transport);
    Changes changes(directory);
    QElapsedTimer silence; // stopped once a server was heard
    silence.start();
    if (options.seconds > 0)
        interruptAfter(options.seconds);
    enableStack(options);
    std::optional<WaitLine> waiting("waiting for servers on " + nameAndAddress(ArtNet::Adapter::Get()));
    try {
        for (;;) {
            const auto hasHints = [&] {
                if (!directory.keys().isEmpty())
                    silence.invalidate();
                return silence.isValid() && silence.elapsed() >= SilenceMs;
            };
            processEventsUntil([&] { return !changes.isEmpty() || hasHints(); }, INT_MAX);
            const QStringList problems = changes.takeProblems();
            for (const QString& problem : problems.mid(0, MaxLines))
                warn(escapeControls(problem));
            if (problems.size() > MaxLines)
                warn(QString("%1 more servers do not come up").arg(problems.size() - MaxLines));
            const std::vector<CITP::Server> events = changes.takeEvents();
            if (hasHints()) {
                printHints();
                silence.invalidate();
            }
            if (!events.empty())
                waiting.reset();
            for (const CITP::Server& server : events)
                printEvent(server, options.json);
        }
    } catch (const Interrupted&) {
        // Ctrl-C and --seconds are the normal ends of this command.
    }
    return 0;
}
} // namespace Console

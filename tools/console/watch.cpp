// The command "watch": prints a line when a server comes up or goes down, and hints if no server is found.
// SPDX-License-Identifier: Apache-2.0
#include "commands.h"

#include <QHash>
#include <QSet>
#include <climits>

#include "adapters.h"
#include "discovery.h"
#include "session.h"

namespace Console {
namespace {
constexpr int SilenceMs = 10000;

void printEvent(const char* event, const ServerText& server, bool json)
{
    if (json) {
        QJsonObject object = toJson(server);
        object.insert("event", event);
        object.insert("time", isoTime());
        printJson(object);
    } else {
        const bool isDown = qstrcmp(event, "down") == 0;
        printLine(QString("%1  %2  %3").arg(timeOfDay(), QString(event).leftJustified(4), toText(server, isDown)));
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

// Servers that are heard, but do not come up. Each is reported once, until it comes up.
class Overdue
{
public:
    explicit Overdue(Discovery::Groups groups)
        : m_isListening(m_discovery.open() == 0 && m_discovery.join(ArtNet::Adapter::Get(), groups) == 0)
    {
    }

    /// Reads the announcements.
    /// @return the servers to report
    QStringList check(const QHash<QString, ServerText>& up)
    {
        QStringList keys;
        if (!m_isListening)
            return keys;
        m_discovery.read();
        for (const QString& key : m_discovery.servers().keys()) {
            if (!up.contains(key) && !m_reported.contains(key) && m_discovery.isHeardFor(key, SilenceMs))
                keys << key;
        }
        return keys;
    }

    void report(const QStringList& keys)
    {
        constexpr int MaxLines = 5;
        for (const QString& key : keys.mid(0, MaxLines))
            warn(m_discovery.overdueText(key) + "; 'citp-console doctor " + key + "' checks it");
        if (keys.size() > MaxLines)
            warn(QString("%1 more servers have announced themselves, but have sent no SInf")
                     .arg(keys.size() - MaxLines));
        for (const QString& key : keys)
            m_reported.insert(key);
    }

    /// The server came up or went down.
    void forget(const QString& key)
    {
        m_discovery.forget(key);
        m_reported.remove(key);
    }

private:
    Discovery m_discovery;
    const bool m_isListening;
    QSet<QString> m_reported;
};

} // namespace

int watch(const Options& options)
{
    ServerEvents events;
    Overdue overdue(options.stack.options.discoveryGroups());
    QHash<QString, ServerText> servers;
    QElapsedTimer silence; // stopped once a server came up
    silence.start();
    if (options.seconds > 0)
        interruptAfter(options.seconds);
    enableStack(options);
    try {
        for (;;) {
            const auto hasHints = [&] { return silence.isValid() && silence.elapsed() >= SilenceMs; };
            QStringList late;
            processEventsUntil(
                [&] {
                    late = overdue.check(servers);
                    return !events.isEmpty() || hasHints() || !late.isEmpty();
                },
                INT_MAX);
            overdue.report(late);
            const std::deque<ServerEvent> arrived = events.take();
            if (arrived.empty() && hasHints())
                printHints();
            if (!arrived.empty() || hasHints())
                silence.invalidate();
            for (const ServerEvent& event : arrived) {
                overdue.forget(event.key);
                if (event.isUp)
                    servers.insert(event.key, describe(event.key));
                printEvent(event.isUp ? "up" : "down", event.isUp ? servers.value(event.key) : servers.take(event.key),
                           options.json);
            }
            if (const qint64 dropped = events.takeDropped())
                warn(QString("%1 events were dropped, because the output was not read").arg(dropped));
        }
    } catch (const Interrupted&) {
        // Ctrl-C and --seconds are the normal ends of this command.
    }
    return 0;
}
} // namespace Console

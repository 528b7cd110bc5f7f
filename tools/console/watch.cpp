// The command "watch": listens to the stack, prints its events, and helps once when there are none.
// SPDX-License-Identifier: Apache-2.0
#include "commands.h"

#include <citp/citp_stack.h>
#include <citp_system/os_network_adapter.h>

#include <QCoreApplication>
#include <QHash>
#include <QTimer>
#include <QUdpSocket>

#include "adapters.h"
#include "printing.h"
#include "server_text.h"

namespace Console {
namespace {
constexpr int SilenceMs = 10000;
constexpr quint16 DiscoveryPort = 4809;

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

QString cableOf(const ArtNet::Adapter& used)
{
    for (const Os::NetworkAdapter& adapter : Os::NetworkAdapter::GetAll()) {
        if (adapter.GetName() != used.GetName())
            continue;
        if (adapter.GetState().loopback)
            return "this is the loopback: only servers on this machine can be heard";
        return adapter.GetState().running ? "the adapter has a carrier; is the server on the same network?"
                                          : "the adapter has no carrier: is it plugged in at both ends?";
    }
    return "no adapter to look at";
}

// Another program that does not share the port shuts out everybody else.
bool isDiscoveryPortShared()
{
    QUdpSocket probe;
    return probe.bind(QHostAddress(QHostAddress::AnyIPv4), DiscoveryPort,
                      QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint);
}

void explainSilence()
{
    const ArtNet::Adapter used = ArtNet::Adapter::Get();
    complain(QString("nothing heard for %1 s. What to look at:").arg(SilenceMs / 1000));
    complain(QString("  adapter: used is %1 (%2); --adapter chooses another, 'citp-console adapters' lists them")
                 .arg(nameAndAddress(used), reasonFor(used)));
    complain("  cable: " + cableOf(used));
    complain(
        "  multicast: servers announce themselves to 224.0.0.180; is a firewall or a switch with IGMP snooping in "
        "between?");
    complain(isDiscoveryPortShared()
                 ? "  port 4809: free to share; no other program on this machine keeps it from us"
                 : "  port 4809: TAKEN by another program that does not share it; end that program ('ss -ulpn' shows "
                   "it)");
}
} // namespace

int watch(const Options& options)
{
    CITP::citp_stack* const stack = CITP::citp_stack::Get();
    QHash<QString, ServerText> servers;
    QTimer silence;
    silence.setSingleShot(true);
    QObject::connect(&silence, &QTimer::timeout, &silence, explainSilence);

    const bool json = options.json;
    QObject::connect(stack, &CITP::citp_stack::serverUp, &silence, [&servers, &silence, json](const QString& key) {
        silence.stop();
        servers.insert(key, describe(key));
        printEvent("up", servers.value(key), json);
    });
    QObject::connect(stack, &CITP::citp_stack::serverDown, &silence,
                     [&servers, json](const QString& key) { printEvent("down", servers.take(key), json); });
    silence.start(SilenceMs);
    if (options.seconds > 0)
        QTimer::singleShot(options.seconds * 1000, &silence, [] { QCoreApplication::exit(0); });
    stack->setEnabled(true);
    return QCoreApplication::exec();
}
} // namespace Console

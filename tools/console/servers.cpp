// The command "servers": lists the media servers that announce themselves, without connecting to them.
// SPDX-License-Identifier: Apache-2.0
#include <QElapsedTimer>
#include <QSet>
#include <cerrno>
#include <cstring>

#include "adapters.h"
#include "commands.h"
#include "discovery.h"
#include "session.h"

namespace Console {
namespace {
// Servers announce themselves about once a second.
constexpr int QuietBeforeEndMs = 2500;

void startListening(Discovery& discovery, const ArtNet::Adapter& adapter, Discovery::Groups groups)
{
    int error = discovery.open();
    if (error == 0)
        error = discovery.join(adapter, groups);
    if (error != 0)
        throw Failure{QString("cannot listen on adapter %1: %2; run 'citp-console doctor' to find the cause")
                          .arg(nameAndAddress(adapter), QString::fromLocal8Bit(std::strerror(error)))};
}

void printServer(const CITP::Server& server, bool json)
{
    if (json)
        printJson({{"record", "announcement"}, {"server", server.key}, {"name", server.name}});
    else
        printLine(toText(server, true));
}
} // namespace

int listServers(const Options& options)
{
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    Discovery discovery;
    startListening(discovery, adapter, options.stack.options.discoveryGroups());
    QSet<QString> printed;
    QElapsedTimer sinceNew;
    const auto isComplete = [&] {
        discovery.read();
        for (const CITP::Server& server : discovery.servers()) {
            if (printed.contains(server.key))
                continue;
            printed.insert(server.key);
            sinceNew.start();
            printServer(server, options.json);
        }
        return sinceNew.isValid() && sinceNew.elapsed() >= QuietBeforeEndMs;
    };
    const WaitLine waiting("listening for servers on " + nameAndAddress(adapter) + "; Ctrl-C ends it");
    processEventsUntil(isComplete, options.timeoutMs);
    if (printed.isEmpty())
        throw Failure{
            QString("no server was heard within %1 on adapter %2; run 'citp-console doctor' to find the cause")
                .arg(secondsText(options.timeoutMs), nameAndAddress(adapter))};
    return 0;
}
} // namespace Console

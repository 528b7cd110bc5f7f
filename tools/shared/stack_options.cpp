// The options --no-guards, --group and --server-at.
// SPDX-License-Identifier: Apache-2.0
#include "stack_options.h"

#include <citp/citp_stack.h>

#include <QHostAddress>

#include <algorithm>
#include <iterator>

namespace Tools {
namespace {
using CITP::citp_options;

const QString NoGuards = QStringLiteral("no-guards");
const QString Group = QStringLiteral("group");
const QString ServerAt = QStringLiteral("server-at");

const struct
{
    QLatin1String name;
    citp_options::DiscoveryGroups groups;
} GroupNames[] = {{QLatin1String("old"), citp_options::OldGroup},
                  {QLatin1String("new"), citp_options::NewGroup},
                  {QLatin1String("both"), citp_options::BothGroups}};

quint16 portOf(const QString& key)
{
    return key.section(QLatin1Char(':'), 1).toUShort();
}
} // namespace

QStringList addressesOf(int groups)
{
    QStringList addresses;
    for (const DiscoveryGroup& group : DiscoveryGroups) {
        if ((groups & group.bit) != 0)
            addresses << QString::fromLatin1(group.address);
    }
    return addresses;
}

StackOptions::StackOptions() : options(citp_options::recommended())
{
    options.setDiscoveryGroups(citp_options::BothGroups);
}

QList<QCommandLineOption> stackCommandLineOptions()
{
    return {
        {Group,
         "Multicast group on which to listen for announcements: old is 224.0.0.180, new is 239.224.0.180, which some "
         "newer servers use. Default: both.",
         "old|new|both"},
        {NoGuards,
         "Switches the guards off, which disconnect servers that send broken messages, ignore servers beyond a "
         "limit, and so on. A broken or hostile server can then disturb the whole program."},
        {ServerAt,
         "Also connects to this server, without an announcement, for networks without multicast. Can be given "
         "several times.",
         "ADDRESS:PORT"}};
}

QString readStackOptions(const QCommandLineParser& parser, StackOptions& stack)
{
    citp_options::DiscoveryGroups groups = stack.options.discoveryGroups();
    if (parser.isSet(Group)) {
        const QString value = parser.value(Group);
        const auto* const group = std::find_if(std::begin(GroupNames), std::end(GroupNames),
                                               [&](const auto& known) { return known.name == value; });
        if (group == std::end(GroupNames))
            return QStringLiteral("--group: '%1' is not a group: old, new or both").arg(value);
        groups = group->groups;
    }
    if (parser.isSet(NoGuards))
        stack.options = citp_options();
    stack.options.setDiscoveryGroups(groups);
    const QStringList keys = parser.values(ServerAt);
    for (const QString& key : keys) {
        if (!isServerKey(key) ||
            !stack.options.addServer(CITP::citp_stack::getHostAddressFromSERV_ID(key), portOf(key)))
            return QStringLiteral("--server-at: '%1' is not an address and port such as 2.0.0.10:4811").arg(key);
        if (!stack.servers.contains(key))
            stack.servers << key;
    }
    return {};
}

bool isServerKey(const QString& text)
{
    const QHostAddress host(text.section(QLatin1Char(':'), 0, 0));
    return host.protocol() == QAbstractSocket::IPv4Protocol && portOf(text) > 0 &&
           CITP::citp_stack::buildServerKey(host.toString(), portOf(text)) == text;
}
} // namespace Tools

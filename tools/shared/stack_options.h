// The options of the command line that console tool and browser pass to the stack: guards, discovery groups and servers
// named by hand.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_options.h>

#include <QCommandLineParser>
#include <QStringList>

namespace Tools {
struct DiscoveryGroup
{
    CITP::citp_options::DiscoveryGroups bit;
    const char* address;
};
inline constexpr DiscoveryGroup DiscoveryGroups[] = {{CITP::citp_options::OldGroup, "224.0.0.180"},
                                                     {CITP::citp_options::NewGroup, "239.224.0.180"}};

/// The addresses of @p groups, a bit set of citp_options::DiscoveryGroups.
QStringList addressesOf(int groups);

struct StackOptions
{
    /// What the programs use unless told otherwise: the recommended guards and both discovery groups.
    StackOptions();

    bool hasGuards() const { return options.smallMessageGuard(); }

    CITP::citp_options options;
    QStringList servers; ///< keys of the servers named by hand, which #options contains too
};

/// The options --no-guards, --group and --server-at with their help texts.
QList<QCommandLineOption> stackCommandLineOptions();

/// Reads these options from @p parser into @p stack.
/// @return empty on success, otherwise a message of one line with unescaped values
QString readStackOptions(const QCommandLineParser& parser, StackOptions& stack);

/// Whether @p text is a server's address and port in the spelling of the stack, which compares keys as text.
bool isServerKey(const QString& text);
} // namespace Tools

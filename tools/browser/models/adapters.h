// The machine's network adapters and the one in use, with texts for the user.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace Browser {
/// The adapter on which servers are discovered.
struct AdapterState
{
    QString name;
    QString address; ///< empty if there is none
    QString reason;  ///< why it was selected, for the user
    QString problem; ///< in a few words: that it is missing, or a link is down; empty if there is none

    bool operator==(const AdapterState& other) const
    {
        return name == other.name && address == other.address && reason == other.reason && problem == other.problem;
    }
};

/// The adapter in use; queries the kernel. Any thread.
AdapterState adapterInUse();

/// An adapter that can be selected.
struct AdapterOption
{
    QString name;
    QString text; ///< name, addresses and state, for a menu
    QStringList addresses;
    bool isUp = false;
};

/// All adapters that have an IPv4 address; queries the kernel. Any thread.
std::vector<AdapterOption> availableAdapters();

/// The explicitly selected adapter; empty if there is none.
QString adapterChoice();
/// Selects the adapter @p name; empty lets the library select one. An enabled stack changes to it after it is disabled
/// and enabled again. Any thread.
void chooseAdapter(const QString& name);
} // namespace Browser

// The machine's network adapters and the one in use, with texts for the user.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <vector>

#include "values.h"

namespace Browser {
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

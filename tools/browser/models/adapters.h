// The machine's network adapters and the one in use, for people.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <vector>

#include "values.h"

namespace Browser {
/// The adapter in use now; asks the kernel. Any thread.
AdapterState adapterInUse();

/// An adapter that can be chosen.
struct AdapterOption
{
    QString name;
    QString text; ///< with its addresses and state, for a menu
    QStringList addresses;
    bool isUp = false;
};

/// All adapters that have an IPv4 address; asks the kernel. Any thread.
std::vector<AdapterOption> availableAdapters();

/// The explicit choice, empty for none.
QString adapterChoice();
/// Makes @p name the adapter to use from now on; empty leaves the choice to the library. An enabled stack goes there
/// once it is switched off and on. Any thread.
void chooseAdapter(const QString& name);
} // namespace Browser

// The network adapter: selects it and describes which one is used and why.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/artnet_adapter.h>
#include <citp_system/os_network_adapter.h>
#include <QString>
#include <optional>

#include "printing.h"

namespace Console {
/// Selects the adapter by name or IPv4 address.
/// @return empty on success, otherwise an error message of one line
QString chooseAdapter(const QString& nameOrAddress);

/// The operating system's entry for the adapter in use. Empty if it does not exist.
std::optional<Os::NetworkAdapter> findAdapter(const ArtNet::Adapter& used);

/// Why @p adapter is used, as text, e.g. "the first that is up with an address in 2.0.0.0/8".
QString reasonFor(const ArtNet::Adapter& adapter);

/// The adapter's name, with control characters escaped.
template <typename Adapter>
QString adapterName(const Adapter& adapter)
{
    return escapeControls(QString::fromStdString(adapter.GetName()));
}

/// "eth0, 2.0.0.10", or "none" if no adapter can be used.
QString nameAndAddress(const ArtNet::Adapter& adapter);
} // namespace Console

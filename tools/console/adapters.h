// The network adapter in use: choosing it, and saying which one it is and why.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/artnet_adapter.h>
#include <QString>

namespace Console {
/// Makes @p nameOrAddress the adapter to use.
/// @return empty, or one line that says what is wrong: no such adapter or address
QString chooseAdapter(const QString& nameOrAddress);

/// Why @p adapter is used, for people, e.g. "the first with an address in 2.0.0.0/8".
QString reasonFor(const ArtNet::Adapter& adapter);

/// "eth0, 2.0.0.10", or what is missing if there is no adapter to use.
QString nameAndAddress(const ArtNet::Adapter& adapter);
} // namespace Console

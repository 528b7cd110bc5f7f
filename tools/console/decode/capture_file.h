// Reading of capture files in pcap and pcapng format.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>

#include "packet.h"

namespace Console {
/// The result of reading a capture file.
struct CaptureFile
{
    qint64 packets = 0;
    QString problem; ///< why reading stopped before the end of the file; empty on success
};

/// Calls @p handle for every packet of @p file, in the file's order. The packet is valid only during the call.
/// @throws Failure if the file is not a capture file or has an unsupported link type, Interrupted
CaptureFile readCapture(const QString& file, const std::function<void(const Packet&)>& handle);
} // namespace Console

// Capture files, pcap and pcapng.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>

#include "packet.h"

namespace Console {
/// What reading a capture file came to.
struct CaptureFile
{
    qint64 packets = 0;
    QString problem; ///< empty, or why it could not be read to its end; what came before has been read
};

/// Hands every packet of @p file to @p take, in the file's order; each is good during the call alone.
/// @throws Failure if the file is no capture or of a link type that cannot be read
CaptureFile readCapture(const QString& file, const std::function<void(const Packet&)>& take);
} // namespace Console

// Reading of capture files in pcap and pcapng format.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <functional>

#include "packet.h"

namespace Tools {
/// The result of reading a capture file.
struct CaptureFile
{
    qint64 packets = 0;
    QString problem; ///< why reading stopped before the end of the file; empty on success
    bool isInterrupted = false;
};

/// Exception: the file cannot be read at all.
struct CaptureFailure
{
    QString text; ///< one line, with control characters as they are
};

/// Whether @p file, "-", stands for standard input, which can be read only once and may have no end.
bool isStandardInput(const QString& file);

/// For messages, with control characters as they are.
QString nameOfFile(const QString& file);

/// Calls @p handle for every packet of @p file, in the file's order. The packet is valid only during the call.
/// @param isInterrupted whether to stop; asked before each packet, and while standard input has none
/// @param progress if set, is called now and then with the number of bytes that have been read
/// @throws CaptureFailure if the file is not a capture file or has an unsupported link type
CaptureFile readCapture(const QString& file, const std::function<void(const Packet&)>& handle,
                        const std::function<bool()>& isInterrupted, const std::function<void(qint64)>& progress = {});
} // namespace Tools

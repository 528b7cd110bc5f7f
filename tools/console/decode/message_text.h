// Describes a complete CITP message with the debug text of the library.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace Console {
struct MessageText
{
    QString layer;             ///< four characters, e.g. "MSEX"
    QString code;              ///< four characters, e.g. "SInf"; empty if the message is too short for one
    QString text;              ///< debug text; may contain line feeds, and any characters sent by the peer
    QString problem;           ///< why the library would discard the message; empty if it accepts it
    bool isUnreadable = false; ///< the fields have no values
};

/// Parses @p message with the class for its layer and content code.
/// @param message at least a header; if received over a connection, its size matches the header
MessageText describeMessage(const QByteArray& message);
} // namespace Console

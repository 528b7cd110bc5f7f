// What a whole CITP message says, in the library's own words.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

namespace Console {
struct MessageText
{
    QString layer;   ///< four characters, e.g. "MSEX"
    QString code;    ///< four characters, e.g. "SInf"; empty if the message is too short for one
    QString text;    ///< the debug text; may have line feeds, and whatever the sender put into its texts
    QString problem; ///< why the library would not use it; empty if it would
};

/// Reads @p message with the class that its codes name.
/// @param message at least a header; as long as it announces, if it came over a connection
MessageText describeMessage(const QByteArray& message);
} // namespace Console

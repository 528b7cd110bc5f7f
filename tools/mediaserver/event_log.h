// The event log on standard output: one line for each event, with time and server.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace MediaServer {
/// Escapes control characters, line feeds included, in text from the network or the command line.
QString escapeControls(const QString& text);

/// Writes events to standard output and flushes them, so that the reader of a pipe receives them immediately. If nobody
/// reads, lines are dropped, because the servers must go on and the program must end when asked to.
class EventLog
{
public:
    /// @param quiet disables the log
    explicit EventLog(bool quiet) : m_quiet(quiet) {}

    /// @param server name of the server; empty for events of the program itself
    void line(const QString& server, const QString& text) const;

private:
    bool isWritable() const;

    bool m_quiet;
    mutable quint64 m_dropped = 0; ///< lines since the last one that was written
};
} // namespace MediaServer

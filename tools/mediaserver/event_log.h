// The running report on standard output: one line an event, with the time and the server it happened to.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace MediaServer {
/// Makes text that came from the network or the command line harmless on a terminal: one line, no control characters.
QString printable(const QString& text);

/// Writes events to standard output at once, so that a pipe sees each as it happens.
class EventLog
{
public:
    /// @param quiet writes nothing
    explicit EventLog(bool quiet) : m_quiet(quiet) {}

    /// @param server whom it happened to; empty for the program itself
    void line(const QString& server, const QString& text) const;

private:
    bool m_quiet;
};
} // namespace MediaServer

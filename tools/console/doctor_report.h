// What the command "doctor" prints: a line for each check, and how many went wrong.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

namespace Console {
/// Prints verdicts as they come and counts them. Texts are made harmless by the caller.
class DoctorReport
{
public:
    explicit DoctorReport(bool json);

    /// From here on the checks are about this server.
    /// @param name the server, for people
    void beginServer(const QString& key, const QString& name);

    void ok(const QString& check, const QString& text);
    /// @param advice what to do about it
    void failed(const QString& check, const QString& text, const QString& advice);
    /// @param reason why the check could not be made
    void skipped(const QString& check, const QString& reason);

    /// Prints the last line.
    /// @return whether nothing failed
    bool finish();

private:
    void print(const char* verdict, const char* colour, const QString& check, const QString& text,
               const QString& advice);

    bool m_json;
    bool m_coloured;
    QString m_server; ///< key; empty while the checks are about this machine
    int m_failed = 0;
    int m_skipped = 0;
};
} // namespace Console

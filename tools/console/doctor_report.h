// The output of the command "doctor": a line for each check and a summary.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

namespace Console {
/// Prints the result of each check and counts the results. The caller escapes control characters in the texts.
class DoctorReport
{
public:
    /// @param wanted what the servers to check were given as; empty for all servers
    DoctorReport(bool json, const QString& wanted);

    /// Starts the checks of a server.
    /// @param name heading above them
    void beginServer(const QString& key, const QString& name);

    void ok(const QString& check, const QString& text);
    /// @param advice how to fix it
    void failed(const QString& check, const QString& text, const QString& advice);
    /// Prints a remark on a check, which is neither a success nor a failure.
    /// @param advice what to do about it
    void note(const QString& check, const QString& text, const QString& advice);
    /// @param reason why the check was not run
    void skipped(const QString& check, const QString& reason);

    /// Prints the summary, which names the server, or those of several that failed.
    /// @return true if no check failed
    bool finish();

private:
    QString failedServers() const;
    void print(const char* verdict, const char* colour, const QString& check, const QString& text,
               const QString& advice);

    bool m_json;
    bool m_coloured;
    QString m_server; ///< key; empty during the checks of this machine
    QString m_name;   ///< of the server that is checked, or of the one to check, as a heading
    int m_servers = 0;
    QStringList m_failedNames; ///< of the checked servers
    int m_failed = 0;
    int m_skipped = 0;
};
} // namespace Console

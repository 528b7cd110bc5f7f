// Progress: progress display on standard error.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QString>

namespace Console {
/// Shows count, rate and remaining time. On a terminal it redraws a progress bar in place, otherwise it prints a line
/// every two seconds and at the end.
class Progress
{
public:
    /// @param total number of items
    explicit Progress(int total);
    /// Ends the line of the bar.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @param done number of completed items, including failed ones
    void show(int done);

private:
    QString numbers(int done) const;

    const int m_total;
    const bool m_isTerminal;
    int m_shown = -1;
    QElapsedTimer m_running;
    QElapsedTimer m_sinceShown;
};
} // namespace Console

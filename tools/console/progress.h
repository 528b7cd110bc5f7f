// Progress: how far a long command has come, on standard error.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QString>

namespace Console {
/// On a terminal a bar that is redrawn in place, elsewhere a plain line every two seconds and one at the end; either
/// with count, rate and time left.
class Progress
{
public:
    /// @param total how many there are to do
    explicit Progress(int total);
    /// Ends the bar's line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @param done how many are done now, failed ones included
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

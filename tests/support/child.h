// Child: a ChildProcess whose texts are QStrings.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include "child_process.h"

class Child : public ChildProcess
{
public:
    Child(const QString& program, const QStringList& arguments, const std::vector<std::string>& environment = {});

    /// As ChildProcess::waitForLine().
    QString waitForLine(const QString& part);
    /// @return the exit status, or -1 after a signal or if the child still runs
    int waitForEnd(int milliseconds = TestTimeout) { return waitForExitStatus(milliseconds); }
    /// As Ctrl-C in a terminal.
    void interrupt();

    /// All that the child has written so far, as in ChildProcess.
    QString output() const { return QString::fromStdString(ChildProcess::output()); }
    QString errors() const { return QString::fromStdString(ChildProcess::errors()); }
};

/// The result of a program that has ended.
struct Outcome
{
    int status;
    QString output;
    QString errors;
};
/// Waits for the end of @p child.
Outcome outcomeOf(Child& child);

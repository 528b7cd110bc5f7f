// What the tests of citp-console share: the programs as child processes whose lines can be waited for.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <QJsonObject>
#include <QProcess>
#include <QStringList>

#include <vector>

/// How long a test waits for something that must happen, in milliseconds; only a failing test waits that long.
constexpr int Patience = 30000;

/// A program as a child process, killed with the object if it still runs.
class Child
{
public:
    Child(const QString& program, const QStringList& arguments);
    ~Child();

    /// Waits for a line on standard output that contains @p part, after the lines already waited for.
    /// @return that line; empty, with a failure noted, if it does not come
    QString waitForLine(const QString& part);
    qint64 id() const { return m_process.processId(); }
    /// As a terminal's Ctrl-C does.
    void interrupt();
    /// Waits for the end of the program.
    /// @return its exit status; -1 if it does not end or crashes
    int waitForEnd(int milliseconds = Patience);

    /// All that has come so far on standard output, the lines waited for included.
    QString output();
    /// All that has come so far on standard error.
    QString errors();

private:
    void read();

    QProcess m_process;
    QString m_output;
    QString m_errors;
    int m_waitedFor = 0; ///< where in #m_output waitForLine() goes on
};

/// citp-console with @p arguments.
class Console : public Child
{
public:
    explicit Console(const QStringList& arguments);
};

/// citp-mediaserver on the loopback, with @p arguments besides; it listens once this is constructed.
class Server : public Child
{
public:
    explicit Server(const QStringList& arguments = {});
};

/// What a run of citp-console to its end gave.
struct Outcome
{
    int status;
    QString output;
    QString errors;
};
Outcome runConsole(const QStringList& arguments);

/// The objects in @p output, one a line; notes a failure for every line that is none.
std::vector<QJsonObject> jsonLines(const QString& output);

// ChildProcess: a program run by a test, its output, and its end.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wait.h"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

/// The output goes to files in memory: a child never blocks because the test does not read.
class ChildProcess
{
public:
    /// Starts @p command, a program followed by its arguments, in the network namespace of the calling thread.
    /// A name without a slash is searched for in PATH. Standard input is empty.
    /// @param environment "NAME=value" to add to or replace in the environment of this process; "NAME" to remove
    explicit ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment = {});
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// Kills the child if it still runs. In a failed test, prints what it wrote to standard error.
    ~ChildProcess();

    pid_t id() const { return m_id; }
    bool isRunning();
    void signal(int number);
    void kill();
    /// How the child ended: "exit 0", "signal 11", or "still running" if it has not within @p milliseconds.
    std::string waitForEnd(int milliseconds = TestTimeout);
    /// The same as a number: the exit status, or -1 after a signal or if the child still runs.
    int waitForExitStatus(int milliseconds = TestTimeout);

    /// Waits for a line on standard output that contains @p part, after the lines already waited for.
    /// @return that line without its end; empty, with a test failure, if it does not come
    std::string waitForLine(const std::string& part);
    /// All that the child has written to standard output so far, the lines waited for included.
    std::string output() const;
    /// All that the child has written to standard error so far.
    std::string errors() const;

private:
    pid_t m_id = -1;
    int m_output = -1;
    int m_errors = -1;
    std::size_t m_position = 0; ///< where in the output waitForLine() goes on
    std::string m_end;
};

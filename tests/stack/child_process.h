// ChildProcess: a program run by a test, whose end is waited for with a bound.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class ChildProcess
{
public:
    /// Starts @p command, a path followed by arguments. Its standard output can be read with readCharacter().
    explicit ChildProcess(const std::vector<std::string>& command);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    /// Kills the child if it still runs.
    ~ChildProcess();

    /// The next character that the child prints; 0 if none comes in time.
    char readCharacter();
    bool isRunning();
    void kill();
    void signal(int number);
    /// How the child ended: "exit 0", "signal 11", or "still running" if it has not after @p milliseconds.
    std::string waitForEnd(int milliseconds);

private:
    pid_t m_id = -1;
    int m_output = -1;
    std::string m_end;
};

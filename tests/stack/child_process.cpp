// ChildProcess: posix_spawn and waitpid.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"

#include "fake_server.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

ChildProcess::ChildProcess(const std::vector<std::string>& command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2");
    }
    m_output = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const int failure = posix_spawn(&m_id, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (failure != 0) {
        throw std::runtime_error("cannot start " + command.front());
    }
}

ChildProcess::~ChildProcess()
{
    if (m_end.empty()) {
        kill();
        waitForEnd(Patience);
    }
    ::close(m_output);
}

char ChildProcess::readCharacter()
{
    pollfd entry = {m_output, POLLIN, 0};
    char character = 0;
    if (poll(&entry, 1, Patience) != 1 || read(m_output, &character, 1) != 1) {
        return 0;
    }
    return character;
}

bool ChildProcess::isRunning()
{
    return waitForEnd(0) == "still running";
}

void ChildProcess::kill()
{
    signal(SIGKILL);
}

void ChildProcess::signal(int number)
{
    ::kill(m_id, number);
}

std::string ChildProcess::waitForEnd(int milliseconds)
{
    for (int waited = 0; m_end.empty(); ++waited) {
        int status = 0;
        if (waitpid(m_id, &status, WNOHANG) == m_id) {
            m_end = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                      : "signal " + std::to_string(WTERMSIG(status));
        } else if (waited >= milliseconds) {
            return "still running";
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return m_end;
}

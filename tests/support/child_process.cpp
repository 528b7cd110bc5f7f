// ChildProcess: posix_spawnp and waitpid.
// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace {
std::string nameOf(const std::string& variable)
{
    return variable.substr(0, variable.find('='));
}

std::vector<std::string> environmentWith(const std::vector<std::string>& changes)
{
    std::vector<std::string> result;
    for (char** variable = environ; *variable; ++variable) {
        const auto hasItsName = [variable](const std::string& change) { return nameOf(change) == nameOf(*variable); };
        if (std::none_of(changes.begin(), changes.end(), hasItsName)) {
            result.emplace_back(*variable);
        }
    }
    for (const std::string& change : changes) {
        if (change.find('=') != std::string::npos) {
            result.push_back(change);
        }
    }
    return result;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

int fileInMemory()
{
    const int file = memfd_create("output", MFD_CLOEXEC);
    if (file < 0) {
        throw std::runtime_error("memfd_create");
    }
    return file;
}

std::string contentOf(int file, std::size_t position = 0)
{
    std::string content;
    char part[65536];
    for (;;) {
        const ssize_t count = pread(file, part, sizeof part, static_cast<off_t>(position + content.size()));
        if (count <= 0) {
            return content;
        }
        content.append(part, static_cast<std::size_t>(count));
    }
}
} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment)
    : m_output(fileInMemory()), m_errors(fileInMemory())
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, m_output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, m_errors, STDERR_FILENO);
    // A test that ignores SIGPIPE must not pass that on.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const std::vector<std::string> variables = environmentWith(environment);
    const int failure = posix_spawnp(&m_id, command.front().c_str(), &actions, &attributes, pointersTo(command).data(),
                                     pointersTo(variables).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        ::close(m_output);
        ::close(m_errors);
        throw std::runtime_error("cannot start " + command.front());
    }
}

ChildProcess::~ChildProcess()
{
    // No event is handled meanwhile: what a test has connected may refer to its variables, which are gone.
    if (isRunning()) {
        kill();
        waitpid(m_id, nullptr, 0);
    }
    if (testing::Test::HasFailure()) {
        std::fprintf(stderr, "%s", errors().c_str());
    }
    ::close(m_output);
    ::close(m_errors);
}

bool ChildProcess::isRunning()
{
    return waitForEnd(0) == "still running";
}

void ChildProcess::signal(int number)
{
    if (m_end.empty()) {
        ::kill(m_id, number);
    }
}

void ChildProcess::kill()
{
    signal(SIGKILL);
}

std::string ChildProcess::waitForEnd(int milliseconds)
{
    const auto hasEnded = [this] {
        int status = 0;
        if (m_end.empty() && waitpid(m_id, &status, WNOHANG) == m_id) {
            m_end = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                      : "signal " + std::to_string(WTERMSIG(status));
        }
        return !m_end.empty();
    };
    return waitFor(hasEnded, milliseconds) ? m_end : "still running";
}

int ChildProcess::waitForExitStatus(int milliseconds)
{
    const std::string end = waitForEnd(milliseconds);
    return end.rfind("exit ", 0) == 0 ? std::stoi(end.substr(5)) : -1;
}

std::string ChildProcess::waitForLine(const std::string& part)
{
    std::string line;
    const auto hasCome = [&] {
        for (;;) {
            const std::string rest = contentOf(m_output, m_position);
            const std::size_t length = rest.find('\n');
            if (length == std::string::npos) {
                return false;
            }
            m_position += length + 1;
            line = rest.substr(0, length);
            if (line.find(part) != std::string::npos) {
                return true;
            }
        }
    };
    bool ended = false;
    const auto hasComeOrEnded = [&] {
        // In this order: what is written before the end is read after it.
        ended = !isRunning();
        return hasCome() || ended;
    };
    if (waitFor(hasComeOrEnded) && line.find(part) != std::string::npos) {
        return line;
    }
    ADD_FAILURE() << "no line with: " << part << "\nafter:\n" << output() << (ended ? "and its end, " + m_end : "");
    return {};
}

std::string ChildProcess::output() const
{
    return contentOf(m_output);
}

std::string ChildProcess::errors() const
{
    return contentOf(m_errors);
}

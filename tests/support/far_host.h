// FarHost: another machine on the network, namely a thread in a network namespace of its own, in which work can be
// done.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

class FarHost
{
public:
    FarHost();
    FarHost(const FarHost&) = delete;
    FarHost& operator=(const FarHost&) = delete;
    /// Takes its end of every cable along; connections of its own are gone without a word.
    ~FarHost();

    /// Runs @p work there and waits for it. Sockets that it opens stay there, programs that it starts live there.
    void run(const std::function<void()>& work);
    void ip(const std::string& arguments);
    /// What `ip link set ... netns` takes for this host.
    std::string id() const { return std::to_string(m_id); }

private:
    void serve();

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    const std::function<void()>* m_work = nullptr;
    bool m_done = false;
    pid_t m_id = 0;
    std::thread m_thread;
};

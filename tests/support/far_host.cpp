// FarHost: a thread that has left for a namespace of its own and takes work one piece at a time.
// SPDX-License-Identifier: Apache-2.0
#include "far_host.h"

#include "network.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

FarHost::FarHost() : m_thread([this] { serve(); })
{
    run([] {});
}

FarHost::~FarHost()
{
    run([this] { m_done = true; });
    m_thread.join();
}

void FarHost::run(const std::function<void()>& work)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_work = &work;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_work; });
}

void FarHost::ip(const std::string& arguments)
{
    run([&arguments] { ::ip(arguments); });
}

void FarHost::serve()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_id = static_cast<pid_t>(syscall(SYS_gettid));
    EXPECT_EQ(unshare(CLONE_NEWNET), 0);
    while (!m_done) {
        m_changed.wait(lock, [this] { return m_work; });
        (*m_work)();
        m_work = nullptr;
        m_changed.notify_all();
    }
}

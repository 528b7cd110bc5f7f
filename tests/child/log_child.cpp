// Mode log, for the log tests: prints the masks that contexts begin with, or writes lines while the process, or a
// forked child of it, exits.
// SPDX-License-Identifier: Apache-2.0
#include "modes.h"

#include <citp_system/os_log.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

namespace {

Os::Log::Context& rootContext()
{
    static Os::Log::Context context("Root");
    return context;
}

Os::Log::Context& childContext()
{
    static Os::Log::Context context("Child", &rootContext());
    return context;
}

void writeForEver(std::atomic<bool>& started)
{
    for (;;) {
        childContext().Write(Os::Log::Failure, text_base("late"), __PRETTY_FUNCTION__, "log_child.cpp", __LINE__,
                             Os::CallStack());
        started = true;
    }
}

// A sink that keeps its writer inside until told otherwise.
class HoldingSink : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line&) override
    {
        entered = true;
        for (int round = 0; round < 6000 && !released; ++round)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
};

class ExitingSink : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line&) override { std::exit(0); }
};

// Forks while a thread is inside the sink, which in the child it never leaves.
int endOfAForkedChild()
{
    static HoldingSink sink;
    Os::Log::SetSink(&sink);
    std::thread writer([] {
        childContext().Write(Os::Log::Failure, text_base("held"), __PRETTY_FUNCTION__, "log_child.cpp", __LINE__,
                             Os::CallStack());
    });
    while (!sink.entered)
        std::this_thread::yield();
    const pid_t child = fork();
    if (child == 0) {
        skipLeakSearch(); // would wait for locks that only threads of the parent could give back
        alarm(30);        // seconds; against an end that waits for ever
        std::exit(0);
    }
    int status = 0;
    const bool ended = child > 0 && waitpid(child, &status, 0) == child && status == 0;
    sink.released = true;
    writer.join();
    Os::Log::SetSink(nullptr);
    return ended ? 0 : 6;
}

} // namespace

int logChild(const std::string& how)
{
    if (how == "exit-while-writing") {
        static std::atomic<bool> started{false};
        for (int index = 0; index < 3; ++index)
            std::thread([] { writeForEver(started); }).detach();
        while (!started)
            std::this_thread::yield();
        return 0;
    }
    if (how == "exit-in-sink") {
        static ExitingSink sink;
        Os::Log::SetSink(&sink);
        childContext().Write(Os::Log::Failure, text_base("last"), __PRETTY_FUNCTION__, "log_child.cpp", __LINE__,
                             Os::CallStack());
        return 4;
    }
    if (how == "exit-in-forked-child")
        return endOfAForkedChild();
    std::printf("%u %u\n", rootContext().GetMask(), childContext().GetMask());
    return 0;
}

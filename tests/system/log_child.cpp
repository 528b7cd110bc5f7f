// A program for the log tests: prints the masks that contexts begin with, or writes lines while the process exits.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

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

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::string(argv[1]) == "exit-while-writing") {
        static std::atomic<bool> started{false};
        for (int index = 0; index < 3; ++index)
            std::thread([] { writeForEver(started); }).detach();
        while (!started)
            std::this_thread::yield();
        return 0;
    }
    std::printf("%u %u\n", rootContext().GetMask(), childContext().GetMask());
    return 0;
}

// Mode monitor, for the exit tests of the adapter monitor: ends as its argument says.
// SPDX-License-Identifier: Apache-2.0
#include "modes.h"

#include <citp_system/os_log.h>
#include <citp_system/os_network_adapter.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Monitor = Os::NetworkAdapterMonitor;

void touchAdapters(int rounds)
{
    for (int round = 0; round < rounds; ++round)
        if (std::system("ip address add 10.0.0.1/24 dev v0 && ip address del 10.0.0.1/24 dev v0") != 0)
            std::_Exit(3);
}

class Callback : public Monitor::Callback
{
public:
    void Changed(const Os::NetworkAdapter&, const Os::NetworkAdapter::State&, int) override
    {
        called = true;
        if (exits)
            std::exit(0);
        if (lingers)
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        for (int round = 0; round < 4000 && stays; ++round)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::atomic<bool> called{false};
    std::atomic<bool> stays{false};
    bool exits = false;
    bool lingers = false;
};

bool waitForCall(const Callback& callback)
{
    for (int round = 0; round < 3000 && !callback.called; ++round)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return callback.called;
}

// Whether something was written to an event of this process and not taken out.
bool isAnyEventSignalled()
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream lines(entry.path());
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("eventfd-count:", 0) == 0 && std::stoul(line.substr(14), nullptr, 16) != 0)
                return true;
    }
    return false;
}

// Dies after everything that main makes.
Callback longLived;

class CountingSink : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line& line) override
    {
        if (std::string(line.text.c_str()).rfind("No notices of adapter changes, cannot open a netlink socket", 0) == 0)
            ++count;
    }
    std::atomic<int> count{0};
};

// The monitor gets no descriptor. It says so, once, and what is asked of it does nothing.
int withoutADescriptor()
{
    static CountingSink sink;
    Os::Log::SetSink(&sink);
    // The sanitizer looks once at what a virtual call is made on, and takes descriptors for that.
    static Os::Log::Context context("First");
    context.Write(Os::Log::Failure, text_base("first"), __PRETTY_FUNCTION__, "monitor_child.cpp", __LINE__,
                  Os::CallStack());
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    Monitor* const monitor = Monitor::Get();
    setrlimit(RLIMIT_NOFILE, &limit);
    monitor->Register("v0", 3, &longLived);
    touchAdapters(1);
    monitor->Unregister("v0", Monitor::AllEvents, &longLived);
    return sink.count == 1 && !longLived.called ? 0 : 8;
}

// Forks while a callback runs, which in the child never comes back. A signalled event would keep the monitor's thread
// awake for the rest of the process.
int endOfAForkedChild()
{
    longLived.stays = true;
    touchAdapters(1);
    if (!waitForCall(longLived))
        return 5;
    const pid_t child = fork();
    if (child == 0) {
        skipLeakSearch(); // would wait for locks that only threads of the parent could give back
        alarm(30);        // seconds; against an end that waits for ever
        std::exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
        return 6;
    const bool signalled = isAnyEventSignalled();
    longLived.stays = false;
    return signalled ? 7 : 0;
}

} // namespace

int monitorChild(const std::string& how)
{
    if (how == "without-monitor")
        return 0;
    if (how == "without-descriptor")
        return withoutADescriptor();
    longLived.exits = how == "in-callback";
    longLived.lingers = how == "during-callback";
    Monitor::Get()->Register("v0", 3, &longLived);
    if (how == "idle")
        return 0;
    if (how == "in-callback") {
        touchAdapters(1);
        // The callback ends the process; coming back from here is the failure.
        waitForCall(longLived);
        std::this_thread::sleep_for(std::chrono::seconds(30));
        return 4;
    }
    if (how == "during-callback") {
        touchAdapters(1);
        return waitForCall(longLived) ? 0 : 5;
    }
    if (how == "in-forked-child")
        return endOfAForkedChild();
    if (how == "while-changing") {
        std::thread([] { touchAdapters(50); }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        return 0;
    }
    std::fprintf(stderr, "unknown end '%s'\n", how.c_str());
    return 2;
}

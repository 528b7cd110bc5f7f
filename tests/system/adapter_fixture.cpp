// What the adapter tests share: virtual adapters, recorded notices, and the monitor held still.
// SPDX-License-Identifier: Apache-2.0
#include "adapter_fixture.h"

#include "wait.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr auto timeout = std::chrono::milliseconds(TestTimeout);

using Monitor = Os::NetworkAdapterMonitor;

void makeSpareAdapter(const std::string& name)
{
    ip("link add " + name + " type veth peer name " + name + "p");
}

} // namespace

void ipBatch(const std::string& commands)
{
    FILE* const pipe = popen("ip -batch -", "w");
    ASSERT_NE(pipe, nullptr);
    std::fputs(commands.c_str(), pipe);
    ASSERT_EQ(pclose(pipe), 0) << commands;
}

void AdapterTest::SetUp()
{
    if (std::getenv("CITP_TEST_NO_NAMESPACE"))
        GTEST_SKIP() << "this host has no network namespaces to change adapters in";
    if (!hasNamespace())
        GTEST_SKIP() << "changes adapters: to be started through tests/in-namespace";
    // The kernel gives IPv6 addresses by itself, some time after an adapter has come up; they would only blur the runs.
    ASSERT_EQ(std::system("echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6 || true"), 0);
    ip("link add v0 type veth peer name v1");
    ip("link set v1 up");
}

Recorder::~Recorder()
{
    if (hasNamespace())
        Monitor::Get()->Unregister(this);
}

void Recorder::Changed(const Os::NetworkAdapter& adapter, const Os::NetworkAdapter::State& state, int reason)
{
    const std::lock_guard lock(m_mutex);
    m_notices.push_back({adapter.GetName(), state, reason});
    m_changed.notify_all();
}

bool Recorder::waitFor(const std::string& name, const std::function<bool(const Os::NetworkAdapter::State&)>& fits)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] {
        for (auto notice = m_notices.rbegin(); notice != m_notices.rend(); ++notice)
            if (notice->name == name)
                return fits(notice->state);
        return false;
    });
}

std::vector<Recorder::Notice> Recorder::notices(const std::string& name) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<Notice> found;
    for (const Notice& notice : m_notices)
        if (name.empty() || notice.name == name)
            found.push_back(notice);
    return found;
}

void Recorder::clear()
{
    const std::lock_guard lock(m_mutex);
    m_notices.clear();
}

HeldMonitor::HeldMonitor()
{
    letTheMonitorCatchUp();
    makeSpareAdapter("held");
    letTheMonitorCatchUp();
    Monitor::Get()->Register("held", Monitor::AllEvents, this);
    ip("link del held");
    std::unique_lock lock(m_mutex);
    EXPECT_TRUE(m_changed.wait_for(lock, timeout, [this] { return m_held; }));
}

HeldMonitor::~HeldMonitor()
{
    release();
    Monitor::Get()->Unregister(this);
}

void HeldMonitor::release()
{
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
}

void HeldMonitor::Changed(const Os::NetworkAdapter&, const Os::NetworkAdapter::State&, int)
{
    // As a registration for an adapter that does not exist, this would hear of all others from now on.
    Monitor::Get()->Unregister(this);
    std::unique_lock lock(m_mutex);
    m_held = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_released; });
}

void letTheMonitorCatchUp()
{
    // Notices come in the order of the changes, so when this one has come, the earlier ones have, too.
    Recorder recorder;
    static int number = 0;
    const std::string name = "caught" + std::to_string(number++);
    Monitor::Get()->Register(name, Monitor::AllEvents, &recorder);
    makeSpareAdapter(name);
    EXPECT_TRUE(recorder.waitFor(name, [](const auto& state) { return state.present; }));
    recorder.clear();
    ip("link del " + name);
    EXPECT_TRUE(recorder.waitFor(name, [](const auto& state) { return !state.present; }));
}

void waitForCarrier(const std::string& name)
{
    EXPECT_TRUE(waitFor([&name] {
        for (const Os::NetworkAdapter& adapter : Os::NetworkAdapter::GetAll())
            if (adapter.GetName() == name)
                return adapter.GetState().running;
        return false;
    })) << name;
}

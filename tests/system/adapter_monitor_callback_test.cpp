// Tests of Os::NetworkAdapterMonitor: registering and unregistering from callbacks and from other threads.
// SPDX-License-Identifier: Apache-2.0
#include "adapter_fixture.h"
#include "wait.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace {

using Monitor = Os::NetworkAdapterMonitor;
using State = Os::NetworkAdapter::State;

constexpr auto timeout = std::chrono::milliseconds(TestTimeout);

class AdapterMonitorCallbackTest : public AdapterTest
{
protected:
    void SetUp() override
    {
        AdapterTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure())
            letTheMonitorCatchUp();
    }
};

// Does what the test tells it to inside Changed.
class Doer : public Monitor::Callback
{
public:
    explicit Doer(std::function<void(const std::string&)> what) : m_what(std::move(what)) {}
    ~Doer() override { Monitor::Get()->Unregister(this); }
    void Changed(const Os::NetworkAdapter& adapter, const State&, int) override { m_what(adapter.GetName()); }

private:
    std::function<void(const std::string&)> m_what;
};

// One notice about v0.
void touchAdapter()
{
    static int last = 0;
    ip("address add 10.0.0." + std::to_string(++last) + "/24 dev v0");
}

TEST_F(AdapterMonitorCallbackTest, MayRegisterAfreshFromInsideACallback)
{
    std::atomic<int> calls{0};
    Recorder witness;
    Monitor::Get()->Register("v0", Monitor::AllEvents, &witness);
    Doer* self = nullptr;
    Doer doer([&](const std::string& name) {
        ++calls;
        Monitor::Get()->Unregister(name, 65535, self);
        Monitor::Get()->Register(name, 3, self);
    });
    self = &doer;
    // Begins without an adapter, and is then registered under the one that it was told of.
    Monitor::Get()->Register("", 3, &doer);
    for (int round = 1; round <= 3; ++round) {
        touchAdapter();
        ASSERT_TRUE(
            witness.waitFor("v0", [&](const State& state) { return state.ipAddresses.size() == std::size_t(round); }));
        letTheMonitorCatchUp();
        EXPECT_EQ(calls, round);
    }
}

TEST_F(AdapterMonitorCallbackTest, MayUnregisterItselfFromInsideACallback)
{
    std::atomic<int> calls{0};
    Doer* self = nullptr;
    Doer doer([&](const std::string&) {
        ++calls;
        Monitor::Get()->Unregister(self);
    });
    self = &doer;
    Monitor::Get()->Register("v0", 3, &doer);
    touchAdapter();
    letTheMonitorCatchUp();
    touchAdapter();
    letTheMonitorCatchUp();
    EXPECT_EQ(calls, 1);
}

TEST_F(AdapterMonitorCallbackTest, MayDeleteItselfFromInsideACallback)
{
    std::atomic<int> calls{0};
    Doer* self = nullptr;
    self = new Doer([&calls, &self](const std::string&) {
        ++calls;
        delete std::exchange(self, nullptr);
    });
    Monitor::Get()->Register("v0", 3, self);
    touchAdapter();
    letTheMonitorCatchUp();
    touchAdapter();
    letTheMonitorCatchUp();
    EXPECT_EQ(calls, 1);
}

TEST_F(AdapterMonitorCallbackTest, MayDeleteTheOtherWhoseTurnComesNext)
{
    std::atomic<int> calls{0};
    Doer* first = nullptr;
    Doer* second = nullptr;
    // Whichever is called first deletes the other.
    first = new Doer([&](const std::string&) {
        ++calls;
        delete std::exchange(second, nullptr);
    });
    second = new Doer([&](const std::string&) {
        ++calls;
        delete std::exchange(first, nullptr);
    });
    Monitor::Get()->Register("v0", 3, first);
    Monitor::Get()->Register("v0", 3, second);
    touchAdapter();
    letTheMonitorCatchUp();
    EXPECT_EQ(calls, 1);
    delete first;
    delete second;
}

// Holds the monitor's thread in a callback until it is told to go on.
class Blocking : public Monitor::Callback
{
public:
    ~Blocking() override { Monitor::Get()->Unregister(this); }
    void Changed(const Os::NetworkAdapter&, const State&, int) override
    {
        entered.set_value();
        EXPECT_EQ(release.get_future().wait_for(timeout), std::future_status::ready);
        left = true;
    }
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left{false};
};

// Unregisters in so many threads while the callback runs, and expects that none returns before the callback has.
void expectUnregisterToWait(int threads, const std::function<void(Blocking&)>& unregister)
{
    Blocking blocking;
    Monitor::Get()->Register("v0", 3, &blocking);
    touchAdapter();
    ASSERT_EQ(blocking.entered.get_future().wait_for(timeout), std::future_status::ready);
    std::atomic<int> begun{0};
    std::atomic<int> early{0};
    std::vector<std::thread> waiting;
    for (int index = 0; index < threads; ++index)
        waiting.emplace_back([&] {
            ++begun;
            unregister(blocking);
            if (!blocking.left)
                ++early;
        });
    while (begun < threads)
        std::this_thread::yield();
    // Time for one that does not wait to come back; one that waits does so however long this is.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    blocking.release.set_value();
    for (std::thread& thread : waiting)
        thread.join();
    EXPECT_EQ(early, 0);
}

TEST_F(AdapterMonitorCallbackTest, UnregisterWaitsForARunningCallback)
{
    expectUnregisterToWait(1, [](Blocking& blocking) { Monitor::Get()->Unregister(&blocking); });
}

TEST_F(AdapterMonitorCallbackTest, UnregisterByNameWaitsForARunningCallback)
{
    expectUnregisterToWait(1, [](Blocking& blocking) { Monitor::Get()->Unregister("v0", 65535, &blocking); });
}

TEST_F(AdapterMonitorCallbackTest, TwoThreadsMayUnregisterAtOnce)
{
    expectUnregisterToWait(2, [](Blocking& blocking) { Monitor::Get()->Unregister(&blocking); });
}

TEST_F(AdapterMonitorCallbackTest, UnregisteringAnotherCallbackDoesNotWait)
{
    Blocking blocking;
    Recorder other;
    Monitor::Get()->Register("v0", 3, &blocking);
    Monitor::Get()->Register("v0", 3, &other);
    touchAdapter();
    ASSERT_EQ(blocking.entered.get_future().wait_for(timeout), std::future_status::ready);
    // The callback is let go only afterwards, so waiting for it would never end.
    Monitor::Get()->Unregister(&other);
    Monitor::Get()->Register("v0", 3, &other);
    blocking.release.set_value();
    Monitor::Get()->Unregister(&blocking);
    EXPECT_TRUE(blocking.left);
}

// Registers afresh at each notice, as applications do, and counts the notices after its end.
class Mortal : public Monitor::Callback
{
public:
    void Changed(const Os::NetworkAdapter& adapter, const State&, int) override
    {
        if (!m_registered)
            ++late;
        ++calls;
        Monitor::Get()->Unregister(adapter.GetName(), 65535, this);
        Monitor::Get()->Register(adapter.GetName(), 3, this);
        std::this_thread::yield();
        if (!m_registered)
            ++late;
    }
    std::atomic<bool> m_registered{true};
    static inline std::atomic<int> late{0};
    static inline std::atomic<int> calls{0};
};

TEST_F(AdapterMonitorCallbackTest, NoNoticeComesAfterUnregisterHoweverThreadsAndLinksRun)
{
    std::atomic<bool> ending{false};
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index)
        threads.emplace_back([&ending, index] {
            while (!ending) {
                const auto callback = std::make_unique<Mortal>();
                Monitor::Get()->Register(index % 2 == 0 ? "v0" : "", 3, callback.get());
                std::this_thread::sleep_for(std::chrono::milliseconds(10 * index));
                Monitor::Get()->Unregister(callback.get());
                callback->m_registered = false;
            }
        });
    for (int round = 0; round < 12 || (Mortal::calls < 20 && round < 200); ++round) {
        ipBatch("address add 10.1.0.1/24 dev v0\nlink set v0 up\n");
        letTheMonitorCatchUp();
        ipBatch("address del 10.1.0.1/24 dev v0\nlink set v0 down\n");
    }
    ending = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(Mortal::calls, 20);
    EXPECT_EQ(Mortal::late, 0);
}

} // namespace

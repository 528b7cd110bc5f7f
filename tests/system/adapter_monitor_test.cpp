// Tests of Os::NetworkAdapterMonitor with virtual adapters: which changes are told, and to whom.
// SPDX-License-Identifier: Apache-2.0
#include "adapter_fixture.h"

#include <algorithm>
#include <fstream>
#include <thread>

#include <dirent.h>

namespace {

using Monitor = Os::NetworkAdapterMonitor;
using State = Os::NetworkAdapter::State;

constexpr std::uint32_t firstAddress = 0x0A000001;  // 10.0.0.1
constexpr std::uint32_t secondAddress = 0x0A000002; // 10.0.0.2

class AdapterMonitorTest : public AdapterTest
{
protected:
    void SetUp() override
    {
        AdapterTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        Monitor::Get();
    }

    // Registers when the monitor knows of everything that happened so far.
    void listen(const std::string& name, int events = Monitor::LinkEvent | Monitor::AddressEvent)
    {
        letTheMonitorCatchUp();
        Monitor::Get()->Register(name, events, &recorder);
    }

    Recorder recorder;
};

bool isUsable(const State& state)
{
    return state.IsUsable();
}

TEST_F(AdapterMonitorTest, TellsOfLinkDownAndUp)
{
    ip("address add 10.0.0.1/24 dev v0");
    ip("link set v0 up");
    listen("v0");
    ip("link set v0 down");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return !state.up && !state.running; }));
    EXPECT_EQ(recorder.notices().back().reason, Monitor::LinkEvent);
    EXPECT_FALSE(recorder.notices().back().state.IsUsable());
    ip("link set v0 up");
    ASSERT_TRUE(recorder.waitFor("v0", isUsable));
    EXPECT_EQ(recorder.notices().back().state.ipAddress, firstAddress);
}

TEST_F(AdapterMonitorTest, TellsOfTheCableGoingOutAndIn)
{
    ip("address add 10.0.0.1/24 dev v0");
    ip("link set v0 up");
    listen("v0");
    ip("link set v1 down");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.up && !state.running; }));
    EXPECT_EQ(recorder.notices().back().reason, Monitor::LinkEvent);
    ip("link set v1 up");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
}

TEST_F(AdapterMonitorTest, TellsOfAddressesAddedAndRemoved)
{
    listen("v0");
    ip("address add 10.0.0.1/24 dev v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == firstAddress; }));
    EXPECT_EQ(recorder.notices().back().reason, Monitor::AddressEvent);
    ip("address add 10.0.0.2/24 dev v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) {
        return state.ipAddresses == std::vector<std::uint32_t>{firstAddress, secondAddress};
    }));
    ip("address flush dev v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == 0; }));
    EXPECT_EQ(recorder.notices().back().reason, Monitor::AddressEvent);
    EXPECT_TRUE(recorder.notices().back().state.ipAddresses.empty());
}

TEST_F(AdapterMonitorTest, TellsBothAdaptersOfAnAddressThatMoves)
{
    ip("address add 10.0.0.1/24 dev v0");
    listen("v0");
    Monitor::Get()->Register("v1", Monitor::AllEvents, &recorder);
    ip("address del 10.0.0.1/24 dev v0");
    ip("address add 10.0.0.1/24 dev v1");
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == 0; }));
    EXPECT_TRUE(recorder.waitFor("v1", [](const State& state) { return state.ipAddress == firstAddress; }));
}

TEST_F(AdapterMonitorTest, TellsOfAnAdapterRemovedAndRecreated)
{
    listen("v0");
    ip("link del v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return !state.present; }));
    EXPECT_NE(recorder.notices("v0").back().reason & Monitor::LinkEvent, 0);
    ip("link add v0 type veth peer name v1");
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.present; }));
    ip("address add 10.0.0.1/24 dev v0");
    ip("link set v1 up");
    ip("link set v0 up");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
}

TEST_F(AdapterMonitorTest, TellsOfARenamedAdapterUnderBothNames)
{
    listen("v0");
    Monitor::Get()->Register("new0", Monitor::AllEvents, &recorder);
    ip("link set v0 name new0");
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return !state.present; }));
    EXPECT_TRUE(recorder.waitFor("new0", [](const State& state) { return state.present; }));
}

TEST_F(AdapterMonitorTest, ABurstForOneAdapterGivesOneNotice)
{
    listen("v0");
    HeldMonitor held;
    std::string commands = "link set v0 up\n";
    for (int last = 1; last <= 50; ++last)
        commands += "address add 10.0.0." + std::to_string(last) + "/24 dev v0\n";
    ipBatch(commands);
    waitForCarrier("v0");
    held.release();
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddresses.size() == 50; }));
    letTheMonitorCatchUp();
    ASSERT_EQ(recorder.notices("v0").size(), 1U);
    EXPECT_EQ(recorder.notices("v0").front().reason, Monitor::LinkEvent | Monitor::AddressEvent);
}

TEST_F(AdapterMonitorTest, ChangesInQuickSuccessionAreCollected)
{
    constexpr std::size_t changes = 30;
    listen("v0");
    std::string commands;
    for (std::size_t last = 1; last <= changes; ++last)
        commands += "address add 10.0.0." + std::to_string(last) + "/24 dev v0\n";
    // One if the machine is idle; a busy one may pause between some of the commands. Where it paused between most of
    // them, that says nothing, and the next attempt is taken.
    std::size_t notices = changes;
    for (int attempt = 0; attempt < 10 && notices >= changes / 2; ++attempt) {
        ipBatch(commands);
        ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddresses.size() == changes; }));
        notices = recorder.notices("v0").size();
        ip("address flush dev v0");
        letTheMonitorCatchUp();
        recorder.clear();
    }
    EXPECT_LT(notices, changes / 2);
}

TEST_F(AdapterMonitorTest, ABurstForTwoAdaptersGivesOneNoticeEach)
{
    listen("v0");
    Monitor::Get()->Register("v1", Monitor::AllEvents, &recorder);
    HeldMonitor held;
    ipBatch(
        "address add 10.0.0.1/24 dev v0\naddress add 10.0.1.1/24 dev v1\n"
        "address add 10.0.0.2/24 dev v0\naddress add 10.0.1.2/24 dev v1\n");
    held.release();
    EXPECT_TRUE(recorder.waitFor("v1", [](const State& state) { return state.ipAddresses.size() == 2; }));
    letTheMonitorCatchUp();
    EXPECT_EQ(recorder.notices("v0").size(), 1U);
    EXPECT_EQ(recorder.notices("v1").size(), 1U);
}

TEST_F(AdapterMonitorTest, AnAddressRemovedAndAddedAgainIsTold)
{
    ip("address add 10.0.0.1/24 dev v0");
    listen("v0");
    HeldMonitor held;
    ipBatch("address del 10.0.0.1/24 dev v0\naddress add 10.0.0.1/24 dev v0\n");
    held.release();
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == firstAddress; }));
    letTheMonitorCatchUp();
    ASSERT_EQ(recorder.notices("v0").size(), 1U);
    EXPECT_EQ(recorder.notices("v0").front().reason, Monitor::AddressEvent);
}

TEST_F(AdapterMonitorTest, ALinkDownAndUpAgainIsTold)
{
    ip("link set v0 up");
    listen("v0");
    HeldMonitor held;
    ipBatch("link set v0 down\nlink set v0 up\n");
    held.release();
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.up; }));
}

TEST_F(AdapterMonitorTest, AnAdapterRemovedAndRecreatedWithinABurstIsTold)
{
    listen("v0");
    HeldMonitor held;
    ipBatch("link del v0\nlink add v0 type veth peer name v1\n");
    held.release();
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.present; }));
    letTheMonitorCatchUp();
    EXPECT_EQ(recorder.notices("v0").size(), 1U);
}

TEST_F(AdapterMonitorTest, AnAdapterThatNeverSettlesIsToldAllTheSame)
{
    ip("link set v0 up");
    listen("v0");
    std::atomic<bool> ending{false};
    std::thread flapping([&ending] {
        // Bounded, should the notice never come.
        for (int round = 0; round < 2000 && !ending; ++round)
            ipBatch("address add 10.0.0.1/24 dev v0\naddress del 10.0.0.1/24 dev v0\n");
    });
    const bool told = recorder.waitFor("v0", [](const State& state) { return state.present; });
    const bool stillFlapping = flapping.joinable() && !ending.exchange(true);
    flapping.join();
    EXPECT_TRUE(told);
    EXPECT_TRUE(stillFlapping);
}

TEST_F(AdapterMonitorTest, MessagesThatChangeNothingRelevantAreNotTold)
{
    ip("address add 10.0.0.1/24 dev v0");
    ip("link set v0 up");
    waitForCarrier("v0");
    listen("v0");
    ip("link set v0 up");
    ip("link set v0 mtu 1400");
    ip("link set v0 promisc on");
    ip("link set v0 alias cable");
    ip("link set v0 txqueuelen 17");
    ip("address change 10.0.0.1/24 dev v0 valid_lft 1000 preferred_lft 1000");
    EXPECT_EQ(std::system("echo 0 >/proc/sys/net/ipv6/conf/v0/disable_ipv6 2>/dev/null && "
                          "ip -6 address add fd00::1/64 dev v0 2>/dev/null || true"),
              0);
    // A port leaving a bridge is told as a link deleted, in the bridge's family. Not every kernel has bridges.
    EXPECT_EQ(std::system("ip link add b0 type bridge 2>/dev/null && ip link set v0 master b0 && "
                          "ip link set v0 nomaster || true"),
              0);
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices("v0").empty());
}

TEST_F(AdapterMonitorTest, OnlyTheEventsAskedForAreTold)
{
    Recorder links;
    listen("v0", Monitor::AddressEvent);
    Monitor::Get()->Register("v0", Monitor::LinkEvent, &links);
    ip("link set v0 up");
    EXPECT_TRUE(links.waitFor("v0", [](const State& state) { return state.running; }));
    EXPECT_TRUE(recorder.notices().empty());
    links.clear();
    ip("address add 10.0.0.1/24 dev v0");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
    letTheMonitorCatchUp();
    EXPECT_TRUE(links.notices().empty());
}

TEST_F(AdapterMonitorTest, OtherAdaptersAreNotTold)
{
    listen("v0");
    ip("link add w0 type veth peer name w1");
    ip("address add 10.0.0.1/24 dev w0");
    ip("link set w1 up");
    ip("link set w0 up");
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices().empty());
}

TEST_F(AdapterMonitorTest, TheEmptyNameHearsOfAnAdapterThatAppears)
{
    listen("");
    ip("link add w0 type veth peer name w1");
    EXPECT_TRUE(recorder.waitFor("w0", [](const State& state) { return state.present; }));
}

TEST_F(AdapterMonitorTest, TheEmptyNameHearsOfAnAdapterThatComesUp)
{
    ip("address add 10.0.0.1/24 dev v0");
    listen("");
    ip("link set v0 up");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
}

TEST_F(AdapterMonitorTest, TheEmptyNameHearsOfAnAdapterThatGetsAnAddress)
{
    ip("link set v0 up");
    listen("");
    ip("address add 10.0.0.1/24 dev v0");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
}

TEST_F(AdapterMonitorTest, TheEmptyNameHearsOfNoLoss)
{
    ip("address add 10.0.0.1/24 dev v0");
    ip("link set v0 up");
    waitForCarrier("v0");
    ip("link add w0 type veth peer name w1");
    listen("");
    ip("address del 10.0.0.1/24 dev v0");
    ip("link set v0 down");
    ip("link del w0");
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices("v0").empty());
    EXPECT_TRUE(recorder.notices("w0").empty());
}

TEST_F(AdapterMonitorTest, ANameThatDoesNotExistHearsOfItselfAndOfOthers)
{
    listen("w0");
    ip("address add 10.0.0.1/24 dev v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == firstAddress; }));
    ip("link add w0 type veth peer name w1");
    ASSERT_TRUE(recorder.waitFor("w0", [](const State& state) { return state.present; }));
    letTheMonitorCatchUp();
    recorder.clear();
    // Now that it exists it stands for itself alone.
    ip("address add 10.0.0.2/24 dev v0");
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices().empty());
}

TEST_F(AdapterMonitorTest, TheLoopbackHearsOfAnAdapterThatAppears)
{
    listen("lo");
    ip("link add w0 type veth peer name w1");
    EXPECT_TRUE(recorder.waitFor("w0", [](const State& state) { return state.present; }));
}

TEST_F(AdapterMonitorTest, RegisteringTwiceGivesOneNotice)
{
    listen("v0");
    Monitor::Get()->Register("v0", Monitor::AllEvents, &recorder);
    Monitor::Get()->Register("", Monitor::AllEvents, &recorder);
    ip("address add 10.0.0.1/24 dev v0");
    ASSERT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == firstAddress; }));
    letTheMonitorCatchUp();
    EXPECT_EQ(recorder.notices("v0").size(), 1U);
}

TEST_F(AdapterMonitorTest, UnregisterTakesBackTheEventsNamed)
{
    Recorder whole;
    listen("v0");
    Monitor::Get()->Register("v0", Monitor::AllEvents, &whole);
    Monitor::Get()->Unregister("v0", Monitor::LinkEvent, &recorder);
    ip("link set v0 up");
    ASSERT_TRUE(whole.waitFor("v0", [](const State& state) { return state.running; }));
    EXPECT_TRUE(recorder.notices().empty());
    ip("address add 10.0.0.1/24 dev v0");
    EXPECT_TRUE(recorder.waitFor("v0", isUsable));
}

TEST_F(AdapterMonitorTest, UnregisterByNameLeavesOtherAdaptersRegistered)
{
    listen("v0");
    Monitor::Get()->Register("v1", Monitor::AllEvents, &recorder);
    Monitor::Get()->Unregister("v0", Monitor::AllEvents, &recorder);
    ip("address add 10.0.0.1/24 dev v0");
    ip("address add 10.0.0.2/24 dev v1");
    ASSERT_TRUE(recorder.waitFor("v1", [](const State& state) { return state.ipAddress == secondAddress; }));
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices("v0").empty());
}

TEST_F(AdapterMonitorTest, UnregisterByNameTakesBackRegistrationsForAnyAdapterToo)
{
    listen("");
    Monitor::Get()->Register("lo", Monitor::AllEvents, &recorder);
    Monitor::Get()->Register("missing", Monitor::AllEvents, &recorder);
    Monitor::Get()->Unregister("v0", Monitor::AllEvents, &recorder);
    ip("address add 10.0.0.1/24 dev v0");
    letTheMonitorCatchUp();
    EXPECT_TRUE(recorder.notices().empty());
}

TEST_F(AdapterMonitorTest, AfterLostMessagesEveryAdapterIsTold)
{
    ip("address add 10.0.0.1/24 dev v0");
    listen("v0");
    Monitor::Get()->Register("v1", Monitor::AllEvents, &recorder);
    HeldMonitor held;
    // More than any receive buffer holds; what follows is lost.
    std::string commands;
    for (int round = 0; round < 3000; ++round)
        commands += "link set v0 mtu " + std::to_string(1000 + round % 2) + "\n";
    ipBatch(commands);
    ip("address del 10.0.0.1/24 dev v0");
    held.release();
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.present && state.ipAddress == 0; }));
    EXPECT_TRUE(recorder.waitFor("v1", [](const State& state) { return state.present; }));
    // And it goes on hearing.
    ip("address add 10.0.0.2/24 dev v0");
    EXPECT_TRUE(recorder.waitFor("v0", [](const State& state) { return state.ipAddress == secondAddress; }));
}

TEST_F(AdapterMonitorTest, ListsTheAdaptersAsTheKernelHasThem)
{
    ip("address add 10.0.0.1/24 dev v0");
    ip("address add 192.168.0.1/24 dev v0");
    ip("link set v0 up");
    const std::vector<Os::NetworkAdapter> all = Os::NetworkAdapter::GetAll();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].GetName(), "lo");
    EXPECT_TRUE(all[0].GetState().loopback);
    EXPECT_EQ(all[0].GetState().ipAddress, 0x7F000001U);
    const auto v0 = std::find_if(all.begin(), all.end(), [](const auto& adapter) { return adapter.GetName() == "v0"; });
    ASSERT_NE(v0, all.end());
    EXPECT_TRUE(v0->GetState().present && v0->GetState().up && v0->GetState().multicast);
    EXPECT_FALSE(v0->GetState().loopback);
    EXPECT_EQ(v0->GetState().ipAddress, firstAddress);
    EXPECT_EQ(v0->GetState().ipAddresses, (std::vector<std::uint32_t>{firstAddress, 0xC0A80001}));
}

TEST_F(AdapterMonitorTest, ItsThreadHasAName)
{
    letTheMonitorCatchUp();
    std::vector<std::string> names;
    DIR* const tasks = opendir("/proc/self/task");
    ASSERT_NE(tasks, nullptr);
    while (const dirent* const task = readdir(tasks)) {
        std::string name;
        std::getline(std::ifstream(std::string("/proc/self/task/") + task->d_name + "/comm"), name);
        names.push_back(name);
    }
    closedir(tasks);
    EXPECT_NE(std::find(names.begin(), names.end(), "adapter-monitor"), names.end());
}

} // namespace

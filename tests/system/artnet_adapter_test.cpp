// Tests of ArtNet::Adapter: each rule of the choice, with virtual adapters.
// SPDX-License-Identifier: Apache-2.0
#include "adapter_fixture.h"

#include <citp_system/artnet_adapter.h>

#include <cstdlib>

namespace {

using ArtNet::Adapter;

class ArtNetAdapterTest : public AdapterTest
{
protected:
    void SetUp() override
    {
        AdapterTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        // Before v0 and v1 in nothing but name: the kernel lists adapters as they were made.
        ip("link add w0 type veth peer name w1");
        for (const char* adapter : {"v0", "w0", "w1"})
            ip(std::string("link set ") + adapter + " up");
    }
};

void expectChoice(const char* name, std::uint32_t address, Adapter::Reason reason)
{
    const Adapter adapter = Adapter::Get();
    EXPECT_EQ(adapter.GetName(), name);
    EXPECT_EQ(adapter.GetIpAddress(), address);
    EXPECT_EQ(adapter.GetReason(), reason);
    EXPECT_EQ(adapter.IsValid(), reason != Adapter::Reason::None);
}

TEST_F(ArtNetAdapterTest, PrefersThePrimaryRange)
{
    ip("address add 192.168.0.1/24 dev v0");
    ip("address add 10.0.0.1/8 dev v1");
    ip("address add 2.0.0.10/8 dev w0");
    expectChoice("w0", 0x0200000A, Adapter::Reason::PrimaryRange);
}

TEST_F(ArtNetAdapterTest, TakesTheSecondaryRangeNext)
{
    ip("address add 192.168.0.1/24 dev v0");
    ip("address add 10.0.0.1/8 dev w0");
    expectChoice("w0", 0x0A000001, Adapter::Reason::SecondaryRange);
}

TEST_F(ArtNetAdapterTest, TakesAnyOtherAddressBeforeTheLoopback)
{
    ip("address add 192.168.0.1/24 dev w0");
    ip("address add 10.0.0.9/32 dev lo");
    ip("address add 2.0.0.9/32 dev lo");
    expectChoice("w0", 0xC0A80001, Adapter::Reason::AnyAddress);
}

TEST_F(ArtNetAdapterTest, TakesTheFirstOfSeveralThatFit)
{
    ip("address add 2.0.0.11/8 dev w1");
    ip("address add 2.0.0.10/8 dev w0");
    const std::vector<Os::NetworkAdapter> all = Os::NetworkAdapter::GetAll();
    for (const Os::NetworkAdapter& adapter : all)
        if (adapter.GetState().ipAddress >> 24 == 2) {
            EXPECT_EQ(Adapter::Get().GetName(), adapter.GetName());
            break;
        }
    EXPECT_EQ(Adapter::Get().GetReason(), Adapter::Reason::PrimaryRange);
}

TEST_F(ArtNetAdapterTest, LooksAtAllAddressesOfAnAdapter)
{
    ip("address add 192.168.0.1/24 dev v0");
    ip("address add 2.0.0.10/8 dev v0");
    ip("address add 10.0.0.1/8 dev w0");
    expectChoice("v0", 0x0200000A, Adapter::Reason::PrimaryRange);
}

TEST_F(ArtNetAdapterTest, LeavesOutAdaptersThatAreDown)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("link set v0 down");
    ip("address add 10.0.0.1/8 dev w0");
    expectChoice("w0", 0x0A000001, Adapter::Reason::SecondaryRange);
}

TEST_F(ArtNetAdapterTest, LeavesOutAdaptersWithoutMulticast)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("link set v0 multicast off");
    ip("address add 10.0.0.1/8 dev w0");
    expectChoice("w0", 0x0A000001, Adapter::Reason::SecondaryRange);
}

TEST_F(ArtNetAdapterTest, KeepsAnAdapterWhoseCableIsOut)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("link set v1 down");
    ip("address add 10.0.0.1/8 dev w0");
    expectChoice("v0", 0x0200000A, Adapter::Reason::PrimaryRange);
}

TEST_F(ArtNetAdapterTest, TakesTheLoopbackForWantOfAnythingElse)
{
    expectChoice("lo", 0x7F000001, Adapter::Reason::Loopback);
}

TEST_F(ArtNetAdapterTest, SaysWhenThereIsNoAdapter)
{
    ip("link set lo down");
    expectChoice("", 0, Adapter::Reason::None);
}

TEST_F(ArtNetAdapterTest, ChoosesAfreshEachTime)
{
    expectChoice("lo", 0x7F000001, Adapter::Reason::Loopback);
    ip("address add 2.0.0.10/8 dev v0");
    expectChoice("v0", 0x0200000A, Adapter::Reason::PrimaryRange);
    ip("link del v0");
    expectChoice("lo", 0x7F000001, Adapter::Reason::Loopback);
}

TEST_F(ArtNetAdapterTest, ObeysAnExplicitName)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("address add 192.168.0.1/24 dev w0");
    Adapter::Choose("w0");
    EXPECT_EQ(Adapter::GetChoice(), "w0");
    expectChoice("w0", 0xC0A80001, Adapter::Reason::Explicit);
    Adapter::Choose("");
    expectChoice("v0", 0x0200000A, Adapter::Reason::PrimaryRange);
}

TEST_F(ArtNetAdapterTest, ObeysAnExplicitAddress)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("address add 192.168.0.1/24 dev w0");
    ip("address add 192.168.7.1/24 dev w0");
    Adapter::Choose("192.168.7.1");
    expectChoice("w0", 0xC0A80701, Adapter::Reason::Explicit);
    Adapter::Choose("127.0.0.1");
    expectChoice("lo", 0x7F000001, Adapter::Reason::Explicit);
}

TEST_F(ArtNetAdapterTest, NeverReplacesAnExplicitChoiceThatIsMissing)
{
    ip("address add 2.0.0.10/8 dev v0");
    for (const char* choice : {"eth9", "2.0.0.11", "0.0.0.0", "w0"}) {
        Adapter::Choose(choice);
        expectChoice(choice, 0, Adapter::Reason::None);
    }
}

TEST_F(ArtNetAdapterTest, TakesTheExplicitChoiceFromTheEnvironment)
{
    ip("address add 2.0.0.10/8 dev v0");
    ip("address add 192.168.0.1/24 dev w0");
    // Read at the first use, which this is: each test is a process of its own.
    ASSERT_EQ(setenv("ARTNET_ADAPTER", "w0", 1), 0);
    EXPECT_EQ(Adapter::GetChoice(), "w0");
    expectChoice("w0", 0xC0A80001, Adapter::Reason::Explicit);
    Adapter::Choose("");
    expectChoice("v0", 0x0200000A, Adapter::Reason::PrimaryRange);
}

} // namespace

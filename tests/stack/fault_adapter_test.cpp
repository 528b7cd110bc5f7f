// The console's own adapters: addresses, cables and the choice for Art-Net change while servers stream.
// SPDX-License-Identifier: Apache-2.0
#include "fault_network.h"

#include <citp_system/artnet_adapter.h>

namespace {
const std::string Stage = "2.0.0.20:4811";
const std::string Dome = "2.0.0.30:4811";
const std::string Desk = "192.168.7.20:4811";
} // namespace

class ConsoleAdapterTest : public FaultNetworkTest
{
protected:
    void SetUp() override
    {
        FaultNetworkTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        addHost("stage", "2.0.0.20");
        addHost("dome", "2.0.0.30");
        addHost("desk", "192.168.7.20");
        for (const char* const host : {"stage", "dome", "desk"}) {
            startServer(host, {"--layer-rate", "100"});
        }
    }

    /// Switches the stack off and on, as an operator does who has changed the choice.
    void switchOffAndOn()
    {
        stack->setEnabled(false);
        tick();
        enable();
    }
};

TEST_F(ConsoleAdapterTest, ServersGoWithTheAddressInMidTransferAndComeBackWithAnother)
{
    addConsoleAdapter("show");
    enable();
    waitForQuiet();
    ASSERT_TRUE(tickUntilUp(Stage));
    ASSERT_TRUE(tickUntilUp(Dome));
    waitForQuiet();
    ASSERT_TRUE(waitForEvent("layerStatus " + Stage + " 0", 20));
    recorder->clear();
    ip("addr del 2.0.0.1/24 dev show0");
    ASSERT_TRUE(tickUntilDown(Stage));
    ASSERT_TRUE(tickUntilDown(Dome));
    ip("addr add 2.0.0.5/24 dev show0");
    ASSERT_TRUE(tickUntilUp(Stage));
    ASSERT_TRUE(tickUntilUp(Dome));
    waitForQuiet();
    EXPECT_TRUE(tickUntil([] { return consoleAddressTowards("2.0.0.20") == "2.0.0.5"; }));
    EXPECT_EQ(downsOf(Stage), upsOf(Stage));
    EXPECT_EQ(downsOf(Dome), upsOf(Dome));
}

TEST_F(ConsoleAdapterTest, ThePulledCableOfTheConsoleTakesEveryServerAndBringsEveryServerBack)
{
    addConsoleAdapter("show");
    addConsoleAdapter("office");
    enable();
    for (int round = 1; round <= 3; ++round) {
        waitForQuiet();
        recorder->clear();
        ASSERT_TRUE(tickUntil([this] { return isListed(Stage) && isListed(Dome); }));
        recorder->clear();
        setConsoleCable("show", false);
        ASSERT_TRUE(tickUntilDown(Stage));
        ASSERT_TRUE(tickUntilDown(Dome));
        EXPECT_EQ(downsOf(Stage), 1);
        EXPECT_EQ(downsOf(Dome), 1);
        goOn();
        EXPECT_EQ(stack->getNumNotified(), 0) << "went to the other network";
        setConsoleCable("show", true);
    }
}

TEST_F(ConsoleAdapterTest, AChangedChoiceHoldsFromTheNextSwitchingOn)
{
    addConsoleAdapter("show");
    addConsoleAdapter("office");
    enable();
    waitForQuiet();
    ASSERT_TRUE(tickUntilUp(Stage));
    ArtNet::Adapter::Choose("office0");
    goOn();
    EXPECT_TRUE(isListed(Stage)) << "before it was switched off and on";
    switchOffAndOn();
    ASSERT_TRUE(tickUntilUp(Desk));
    EXPECT_EQ(consoleAddressTowards("192.168.7.20"), "192.168.7.1");
    EXPECT_FALSE(isListed(Stage));
    ArtNet::Adapter::Choose("");
    switchOffAndOn();
    ASSERT_TRUE(tickUntil([this] { return isListed(Stage); }));
    EXPECT_FALSE(isListed(Desk));
}

TEST_F(ConsoleAdapterTest, ABetterAdapterThatAppearsIsTakenWhenSwitchedOffAndOn)
{
    addConsoleAdapter("office");
    enable();
    waitForQuiet();
    ASSERT_TRUE(tickUntilUp(Desk));
    waitForQuiet();
    recorder->clear();
    addConsoleAdapter("show");
    waitForQuiet();
    goOn();
    EXPECT_TRUE(isListed(Desk));
    EXPECT_EQ(downsOf(Desk), 0);
    EXPECT_FALSE(isListed(Stage));
    // New connections are made from the address that is the best one by now, and that leads nowhere here.
    startServer("desk", {"--port", "4900"});
    goOn();
    EXPECT_FALSE(isListed("192.168.7.20:4900"));
    switchOffAndOn();
    ASSERT_TRUE(tickUntilUp(Stage));
    EXPECT_FALSE(isListed(Desk));
}

TEST_F(ConsoleAdapterTest, TheOnlyAdapterVanishesAndReturns)
{
    ip("link set lo down");
    addConsoleAdapter("show");
    enable();
    for (int round = 1; round <= 3; ++round) {
        waitForQuiet();
        ASSERT_TRUE(tickUntil([this] { return isListed(Stage) && isListed(Dome); }));
        recorder->clear();
        ip("link del show0");
        ASSERT_TRUE(tickUntilDown(Stage));
        ASSERT_TRUE(tickUntilDown(Dome));
        goOn();
        EXPECT_EQ(stack->getNumNotified(), 0);
        EXPECT_FALSE(ArtNet::Adapter::Get().IsValid());
        addConsoleAdapter("show");
    }
}

TEST_F(ConsoleAdapterTest, AConsoleBootsWithoutAnyAdapterAndFindsEveryServerOnceItHasOne)
{
    ip("link set lo down");
    ASSERT_FALSE(ArtNet::Adapter::Get().IsValid());
    enable();
    goOn();
    EXPECT_EQ(stack->getNumNotified(), 0);
    addConsoleAdapter("show");
    ASSERT_TRUE(tickUntil([this] { return isListed(Stage) && isListed(Dome); }));
}

TEST_F(ConsoleAdapterTest, AConsoleWithTwoAdaptersThatLosesTheAddressOfTheFirstIsOnTheSecondFromThenOn)
{
    addConsoleAdapter("show");
    addConsoleAdapter("office");
    enable();
    waitForQuiet();
    ASSERT_TRUE(tickUntilUp(Stage));
    waitForQuiet();
    ip("addr del 2.0.0.1/24 dev show0");
    ASSERT_TRUE(tickUntilDown(Stage));
    ASSERT_TRUE(tickUntilUp(Desk));
    ip("addr add 2.0.0.1/24 dev show0");
    waitForQuiet();
    goOn();
    EXPECT_TRUE(isListed(Desk));
    switchOffAndOn();
    ASSERT_TRUE(tickUntil([this] { return isListed(Stage); }));
}

TEST_F(ConsoleAdapterTest, AChosenAdapterThatLosesItsAddressIsWaitedFor)
{
    addConsoleAdapter("show");
    addConsoleAdapter("office");
    ArtNet::Adapter::Choose("show0");
    enable();
    waitForQuiet();
    ASSERT_TRUE(tickUntilUp(Stage));
    waitForQuiet();
    recorder->clear();
    ip("addr del 2.0.0.1/24 dev show0");
    ASSERT_TRUE(tickUntilDown(Stage));
    goOn();
    EXPECT_FALSE(isListed(Desk)) << "went to the other network";
    ip("addr add 2.0.0.1/24 dev show0");
    ASSERT_TRUE(tickUntilUp(Stage));
}

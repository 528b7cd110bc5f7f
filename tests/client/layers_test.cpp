// Layers and Patch: what servers report by themselves, and how old or complete it is.
// SPDX-License-Identifier: Apache-2.0
#include "fake_transport.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp_client/layers.h>

#include <gtest/gtest.h>

using namespace CITP;

namespace {
const QString key = QStringLiteral("2.0.0.10:4811");
const QString other = QStringLiteral("2.0.0.11:4811");
} // namespace

class LayersTest : public testing::Test
{
protected:
    LayersTest()
    {
        m_net.setUp(key, 1);
        QObject::connect(&m_layers, &Layers::changed, [this] { ++m_changes; });
    }
    void report(quint32 position, const QString& server = key)
    {
        Msg_MSEX_LSTA message;
        Msg_MSEX_LSTA::LayerStatus layer;
        layer.LibraryId = QStringLiteral("1");
        layer.MediaPosition = position;
        message.Layers.push_back(layer);
        Q_EMIT m_net.layerStatus(server, message);
    }

    FakeTransport m_net;
    Layers m_layers{m_net, key};
    int m_changes = 0;
};

TEST_F(LayersTest, TheNewestReportIsShownAtMostSoOften)
{
    EXPECT_TRUE(m_layers.isStale());
    EXPECT_EQ(m_layers.age(), -1);
    for (quint32 position = 0; position < 1000; ++position)
        m_net.at(position, [this, position] { report(position); });
    m_net.run(2000);
    EXPECT_EQ(m_layers.layers().front().position, 999u);
    EXPECT_LE(m_changes, 26);
    EXPECT_GE(m_changes, 24);
    EXPECT_EQ(m_layers.age(), 1001);
    EXPECT_FALSE(m_layers.isStale());
}

TEST_F(LayersTest, WhatWasHeldBackIsShownAfterTheInterval)
{
    report(1);
    m_net.run(10);
    report(2);
    EXPECT_EQ(m_changes, 1);
    m_net.run(30);
    EXPECT_EQ(m_changes, 2);
}

TEST_F(LayersTest, EveryReportIsShownIfThereIsNoInterval)
{
    m_layers.setInterval(0);
    for (quint32 position = 1; position <= 5; ++position)
        report(position);
    EXPECT_EQ(m_changes, 5);
}

TEST_F(LayersTest, ANumberIsALibraryAndTheTypeIsMedia)
{
    report(1);
    EXPECT_EQ(m_layers.layers().front().library, QStringLiteral("1,1,0,0"));
    EXPECT_EQ(m_layers.layers().front().type, 1);
}

TEST_F(LayersTest, OldReportsAreStale)
{
    report(1);
    m_net.run(2999);
    EXPECT_FALSE(m_layers.isStale());
    EXPECT_EQ(m_changes, 1);
    m_net.run(1);
    EXPECT_TRUE(m_layers.isStale());
    EXPECT_EQ(m_changes, 2);
    EXPECT_EQ(m_layers.layers().size(), 1u);
    report(2);
    EXPECT_FALSE(m_layers.isStale());
    EXPECT_EQ(m_changes, 3);
}

TEST_F(LayersTest, ALostServerHasNoLayersAndOthersDoNotMatter)
{
    report(1);
    report(7, other);
    EXPECT_EQ(m_layers.layers().front().position, 1u);
    m_net.setDown(key);
    m_net.run(100);
    EXPECT_TRUE(m_layers.layers().empty());
    EXPECT_TRUE(m_layers.isStale());
    EXPECT_EQ(m_changes, 2);
}

class PatchTest : public testing::Test
{
protected:
    PatchTest() { m_net.setUp(key); }
    void report(quint16 fixture, const QString& name = QStringLiteral("Spot"), const QString& server = key)
    {
        Msg_FPTC_PTCH message;
        message.FixtureIdentifier = fixture;
        message.FixtureName = name;
        Q_EMIT m_net.patchMessage(server, message);
    }

    FakeTransport m_net;
    Patch m_patch{m_net, key};
};

TEST_F(PatchTest, IsCompleteWhenItHasBeenQuiet)
{
    m_net.setDown(key);
    m_net.setUp(key);
    EXPECT_EQ(m_patch.state(), Patch::Unknown);
    report(7);
    report(3);
    report(9, {}, other);
    EXPECT_EQ(m_patch.state(), Patch::Receiving);
    m_net.run(400);
    report(7, QStringLiteral("Wash"));
    m_net.run(999);
    EXPECT_EQ(m_patch.state(), Patch::Receiving);
    m_net.run(1);
    EXPECT_EQ(m_patch.state(), Patch::Complete);
    ASSERT_EQ(m_patch.fixtures().size(), 2u);
    EXPECT_EQ(m_patch.fixtures().front().identifier, 3);
    EXPECT_EQ(m_patch.fixtures().back().name, QStringLiteral("Wash"));
}

TEST_F(PatchTest, IsCutIfTheServerGoesDown)
{
    report(7);
    m_net.setDown(key);
    EXPECT_EQ(m_patch.state(), Patch::Cut);
    EXPECT_EQ(m_patch.fixtures().size(), 1u);
    m_net.setUp(key);
    EXPECT_EQ(m_patch.state(), Patch::Unknown);
    EXPECT_TRUE(m_patch.fixtures().empty());
}

TEST_F(PatchTest, KeepsNoMoreThanItsLimit)
{
    const QString half(Patch::maxCharacters / 2, QLatin1Char('x'));
    report(7, half);
    report(7, half);
    report(8, half);
    EXPECT_EQ(m_patch.state(), Patch::Receiving);
    report(9, QStringLiteral("y"));
    EXPECT_EQ(m_patch.state(), Patch::TooLarge);
    EXPECT_EQ(m_patch.fixtures().size(), 2u);
    report(7, {});
    m_net.run(Patch::quietTime);
    EXPECT_EQ(m_patch.state(), Patch::TooLarge);
    m_net.setDown(key);
    m_net.setUp(key);
    EXPECT_EQ(m_patch.state(), Patch::Unknown);
}

TEST_F(PatchTest, IsRequestedFromAServerThatIsUpAlready)
{
    EXPECT_EQ(m_net.patchRequests, 0);
    const Patch later(m_net, key);
    EXPECT_EQ(m_net.patchRequests, 1);
}

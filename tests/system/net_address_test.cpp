// Tests of Net::Address: text in, text out.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/net_address.h>

#include <gtest/gtest.h>

namespace {

TEST(NetAddress, StartsAsAnyAddressAnyPort)
{
    EXPECT_EQ(Net::Address().GetHostIp(), 0U);
    EXPECT_EQ(Net::Address().GetPort(), 0U);
}

TEST(NetAddress, ReadsDottedDecimalIntoHostByteOrder)
{
    EXPECT_EQ(Net::Address("224.0.0.180").GetHostIp(), 0xE00000B4U);
    EXPECT_EQ(Net::Address("2.0.0.10", 4809).GetPort(), 4809U);
}

TEST(NetAddress, ReadsAnythingElseAsZero)
{
    for (const char* text : {"", "eth0", "1.2.3", "1.2.3.4.5", "256.0.0.1", " 1.2.3.4", "1.2.3.4:5", "::1"})
        EXPECT_EQ(Net::Address(text, 7).GetHostIp(), 0U) << text;
    EXPECT_EQ(Net::Address(static_cast<const char*>(nullptr), 7).GetHostIp(), 0U);
    EXPECT_EQ(Net::Address("eth0", 7).GetPort(), 7U);
}

TEST(NetAddress, WritesAddressColonPort)
{
    EXPECT_EQ(Net::Address(0x0200000AU, 4809).ToString(), "2.0.0.10:4809");
    EXPECT_EQ(Net::Address(0xFFFFFFFFU, 65535).ToString(), "255.255.255.255:65535");
    EXPECT_EQ(Net::Address().ToString(), "0.0.0.0:0");
}

} // namespace

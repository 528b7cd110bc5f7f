// The options of the stack: defaults, recommended limits, and values that the setters reject.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_options.h>
#include <gtest/gtest.h>

#include "log_capture.h"

namespace {
using CITP::citp_options;

TEST(Options, AreAllOffByDefault)
{
    const citp_options options;
    EXPECT_FALSE(options.smallMessageGuard());
    EXPECT_FALSE(options.countGuard());
    EXPECT_EQ(options.maxMessageSize(), 0);
    EXPECT_EQ(options.stallTimeout(), 0);
    EXPECT_EQ(options.requestTimeout(), 0);
    EXPECT_EQ(options.peerTimeout(), 0);
    EXPECT_EQ(options.maxServers(), 0);
    EXPECT_EQ(options.maxServersPerAddress(), 0);
    EXPECT_EQ(options.maxUnsentBytes(), 0);
    EXPECT_EQ(options.maxLostMessages(), 0);
    EXPECT_EQ(options.maxTurnTime(), 0);
    EXPECT_EQ(options.maxTurnBytes(), 0);
    EXPECT_EQ(options.maxUnreadBytes(), 0);
    EXPECT_EQ(options.discoveryGroups(), citp_options::OldGroup);
    EXPECT_FALSE(options.observer());
}

TEST(Options, TheRecommendedOnesHaveEveryGuardOn)
{
    const citp_options options = citp_options::recommended();
    EXPECT_TRUE(options.smallMessageGuard());
    EXPECT_TRUE(options.countGuard());
    EXPECT_EQ(options.maxMessageSize(), 1048576);
    EXPECT_EQ(options.stallTimeout(), 10000);
    EXPECT_EQ(options.requestTimeout(), 5000);
    EXPECT_EQ(options.peerTimeout(), 10000);
    EXPECT_EQ(options.maxServers(), 500);
    EXPECT_EQ(options.maxServersPerAddress(), 250);
    EXPECT_EQ(options.maxUnsentBytes(), 1048576);
    EXPECT_EQ(options.maxLostMessages(), 3);
    EXPECT_EQ(options.maxTurnTime(), 10);
    EXPECT_EQ(options.maxTurnBytes(), 262144);
    EXPECT_EQ(options.maxUnreadBytes(), 4194304);
    EXPECT_EQ(options.discoveryGroups(), citp_options::OldGroup);
}

TEST(Options, CopiesAreIndependent)
{
    citp_options one;
    const citp_options two = one;
    one.setMaxServers(7);
    EXPECT_EQ(one.maxServers(), 7);
    EXPECT_EQ(two.maxServers(), 0);
}

template <typename Value>
struct Limit
{
    bool (citp_options::*set)(Value);
    Value (citp_options::*get)() const;
    const char* name;
    const char* unit;
    Value minimum;
    Value maximum;
    bool zeroIsOff;
};

template <typename Value>
void expectRange(const Limit<Value>& limit)
{
    SCOPED_TRACE(limit.name);
    LogCapture log;
    citp_options options;
    EXPECT_TRUE((options.*limit.set)(limit.minimum));
    EXPECT_EQ((options.*limit.get)(), limit.minimum);
    EXPECT_TRUE((options.*limit.set)(limit.maximum));
    EXPECT_EQ((options.*limit.get)(), limit.maximum);
    EXPECT_TRUE(log.entries().empty());

    std::vector<Value> wrong{limit.minimum - 1, limit.maximum + 1, -1};
    if (limit.zeroIsOff) {
        EXPECT_TRUE((options.*limit.set)(0));
        EXPECT_EQ((options.*limit.get)(), 0);
        EXPECT_TRUE((options.*limit.set)(limit.maximum));
        if (limit.minimum == 1) {
            wrong.erase(wrong.begin());
        }
    }
    for (const Value value : wrong) {
        log.clear();
        EXPECT_FALSE((options.*limit.set)(value));
        EXPECT_EQ((options.*limit.get)(), limit.maximum);
        const std::string text = std::string("option rejected: ") + limit.name + " of " + std::to_string(value) + " " +
                                 limit.unit + "; it must be " + (limit.zeroIsOff ? "0 or " : "") +
                                 std::to_string(limit.minimum) + " to " + std::to_string(limit.maximum);
        ASSERT_EQ(log.entries().size(), 1u);
        EXPECT_EQ(log.entries().front().text, text);
        EXPECT_EQ(log.entries().front().level, 8u);
        EXPECT_EQ(log.entries().front().context, "CITP.Stack");
    }
}

TEST(Options, RejectValuesOutOfRangeAndKeepTheOld)
{
    constexpr qint64 gibibyte = 1 << 30;
    using O = citp_options;
    expectRange<qint64>({&O::setMaxMessageSize, &O::maxMessageSize, "message size limit", "bytes", 20, gibibyte, true});
    expectRange<int>({&O::setStallTimeout, &O::stallTimeout, "stall timeout", "ms", 100, 3600000, true});
    expectRange<int>({&O::setRequestTimeout, &O::requestTimeout, "request timeout", "ms", 100, 3600000, true});
    expectRange<int>({&O::setPeerTimeout, &O::peerTimeout, "peer timeout", "ms", 3000, 3600000, true});
    expectRange<int>({&O::setMaxServers, &O::maxServers, "server limit", "servers", 1, 65535, true});
    expectRange<int>({&O::setMaxServersPerAddress, &O::maxServersPerAddress, "limit of servers per address", "servers",
                      1, 65535, true});
    expectRange<qint64>(
        {&O::setMaxUnsentBytes, &O::maxUnsentBytes, "limit of unsent bytes", "bytes", 1024, gibibyte, true});
    expectRange<int>(
        {&O::setMaxLostMessages, &O::maxLostMessages, "limit of lost messages", "messages", 1, 1000000, true});
    expectRange<int>({&O::setMaxTurnTime, &O::maxTurnTime, "turn time", "ms", 1, 10000, true});
    expectRange<qint64>({&O::setMaxTurnBytes, &O::maxTurnBytes, "turn size", "bytes", 20, gibibyte, true});
    expectRange<qint64>(
        {&O::setMaxUnreadBytes, &O::maxUnreadBytes, "limit of unread bytes", "bytes", 20, gibibyte, true});
    expectRange<int>({&O::setReportInterval, &O::reportInterval, "report interval", "ms", 100, 3600000, false});
    expectRange<int>({&O::setRetryInterval, &O::retryInterval, "retry interval", "ms", 2000, 3600000, false});
}

TEST(Options, RejectUnknownDiscoveryGroups)
{
    LogCapture log;
    citp_options options;
    EXPECT_TRUE(options.setDiscoveryGroups(citp_options::BothGroups));
    EXPECT_FALSE(options.setDiscoveryGroups(static_cast<citp_options::DiscoveryGroups>(0)));
    EXPECT_EQ(options.discoveryGroups(), citp_options::BothGroups);
    ASSERT_EQ(log.entries().size(), 1u);
    EXPECT_EQ(log.entries().front().text, "option rejected: discovery groups 0; they must be 1, 2 or 3");
}

TEST(Options, RejectServersWithoutAnIPv4AddressOrAPort)
{
    LogCapture log;
    citp_options options;
    EXPECT_TRUE(options.addServer(QHostAddress(QStringLiteral("2.0.0.10")), 4811));
    EXPECT_FALSE(options.addServer(QHostAddress(QStringLiteral("2.0.0.10")), 0));
    EXPECT_FALSE(options.addServer(QHostAddress(QStringLiteral("::1")), 4811));
    EXPECT_FALSE(options.addServer(QHostAddress(), 4811));
    ASSERT_EQ(log.entries().size(), 3u);
    for (const char* const address : {"0.0.0.0", "255.255.255.255", "224.0.0.180"}) {
        EXPECT_FALSE(options.addServer(QHostAddress(QLatin1String(address)), 4811)) << address;
    }
    EXPECT_EQ(log.entries()[1].text,
              "option rejected: server ::1 port 4811; it must be the IPv4 address of a host and a port of 1 to 65535");
}
} // namespace

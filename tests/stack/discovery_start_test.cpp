// The start of discovery in a process that has no descriptor to spare at that very moment.
// SPDX-License-Identifier: Apache-2.0
#include "stack_fixture.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

class DiscoveryStartTest : public StackTest
{
};

TEST_F(DiscoveryStartTest, ASocketThatCouldNotBeDuplicatedIsReportedAndStartedByTheNextTick)
{
    holdTicks();
    stack->setEnabled(true);
    bool isOpen = false;
    log.expectFailureLine(std::string("UDP socket not started: ") + std::strerror(EMFILE));
    runOnWorker([&] {
        rlimit limit = {};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlimit few = {256, limit.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        std::vector<Descriptor> all;
        do {
            all.emplace_back(dup(STDERR_FILENO));
        } while (all.back().get() >= 0);
        all.pop_back(); // the one that failed
        all.pop_back(); // leaves one free, which the discovery socket itself takes
        QMetaObject::invokeMethod(stack, "timepop", Qt::DirectConnection);
        isOpen = stack->m_udpNetSocket.IsValid();
        all.clear();
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_TRUE(isOpen);
    EXPECT_EQ(log.count(std::string("UDP socket not started: ") + std::strerror(EMFILE)), 1);
    EXPECT_EQ(log.count("UDP socket started "), 0);

    tick();
    EXPECT_EQ(log.count("UDP socket started "), 1);
    FakeServer server;
    Connection connection = admit(server);
    EXPECT_TRUE(isListed(server));
}

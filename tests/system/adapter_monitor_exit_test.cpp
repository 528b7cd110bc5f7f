// Tests of Os::NetworkAdapterMonitor: a process that uses it ends cleanly, whatever goes on.
// SPDX-License-Identifier: Apache-2.0
#include "adapter_fixture.h"
#include "child_process.h"

namespace {

class AdapterMonitorExitTest : public AdapterTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(AdapterMonitorExitTest, TheProcessEndsCleanly)
{
    EXPECT_EQ(ChildProcess({TEST_CHILD, "monitor", GetParam()}).waitForEnd(), "exit 0");
}

INSTANTIATE_TEST_SUITE_P(Ways, AdapterMonitorExitTest,
                         testing::Values("without-monitor", "without-descriptor", "idle", "in-callback",
                                         "during-callback", "in-forked-child", "while-changing"),
                         [](const auto& way) {
                             std::string name = way.param;
                             for (char& character : name)
                                 if (character == '-')
                                     character = '_';
                             return name;
                         });

} // namespace

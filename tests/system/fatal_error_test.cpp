// Tests of _FatalError: what it writes, and that the process ends by abort.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/fatal_error.h>
#include <citp_system/os_log.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

namespace {

// Shows in the child's stderr what reached the log.
class PrintingSink : public Os::Log::Sink
{
public:
    void Write(const Os::Log::Line& line) override
    {
        std::fprintf(stderr, "[%s %u %s:%d] %s\n", line.context.GetName().c_str(), line.level, line.file, line.line,
                     line.text.c_str());
    }
};

TEST(FatalErrorDeathTest, WritesToStderrAndAborts)
{
    EXPECT_EXIT(_FatalError("Verify: 'x' is FALSE", 42, "file.cpp (today) "), testing::KilledBySignal(SIGABRT),
                "^Fatal error: Verify: 'x' is FALSE, line 42, file.cpp \\(today\\) \n");
}

TEST(FatalErrorDeathTest, WritesACriticalLineToTheLog)
{
    EXPECT_EXIT(
        {
            PrintingSink sink;
            Os::Log::SetSink(&sink);
            _FatalError("Verify: 'x' is FALSE", 42, "file.cpp");
        },
        testing::KilledBySignal(SIGABRT),
        "\\[System 16 file.cpp:42\\] Fatal error: Verify: 'x' is FALSE, line 42, file.cpp");
}

} // namespace

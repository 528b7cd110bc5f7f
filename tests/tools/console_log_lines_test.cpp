// The log lines of citp-console: equal ones are counted, and those of Qt are printed only when asked for. And the
// termination of a process that does not end by itself.
// SPDX-License-Identifier: Apache-2.0
#include "log_lines.h"

#include <citp_system/os_log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "shutdown.h"

using namespace Console;

namespace {
std::string joined(const QStringList& lines)
{
    return lines.join('|').toStdString();
}

// A program whose main thread never returns.
[[noreturn]] void receiveAndHang(int signal)
{
    watchSignals();
    kill(getpid(), signal);
    for (;;)
        pause();
}
} // namespace

TEST(RepeatFilter, PassesDifferentLinesOn)
{
    RepeatFilter filter;
    EXPECT_EQ(joined(filter.add("a", 0)), "a");
    EXPECT_EQ(joined(filter.add("b", 0)), "b");
    EXPECT_EQ(joined(filter.flush(5000)), "");
}

TEST(RepeatFilter, CountsEqualLinesOfASecond)
{
    RepeatFilter filter;
    EXPECT_EQ(joined(filter.add("a", 0)), "a");
    EXPECT_EQ(joined(filter.add("b", 500)), "b");
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(joined(filter.add("a", 999)), "");
    EXPECT_EQ(joined(filter.add("c", 1000)), "a (100 more)|c");
    EXPECT_EQ(joined(filter.add("a", 1999)), "");
    EXPECT_EQ(joined(filter.flush(2000)), "a (1 more)");
    // A second without that line ends the count.
    EXPECT_EQ(joined(filter.flush(3000)), "");
    EXPECT_EQ(joined(filter.add("a", 3001)), "a");
}

TEST(RepeatFilter, GivesAllCountsAtTheEnd)
{
    RepeatFilter filter;
    filter.add("a", 0);
    filter.add("a", 1);
    EXPECT_EQ(joined(filter.flush(2, true)), "a (1 more)");
}

TEST(RepeatFilter, RemembersABoundedNumberOfLines)
{
    RepeatFilter filter;
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(joined(filter.add(QString::number(i), 0)), std::to_string(i));
    EXPECT_EQ(joined(filter.add("0", 0)), "");
    EXPECT_EQ(joined(filter.add("too many", 0)), "too many");
    EXPECT_EQ(joined(filter.add("too many", 0)), "too many");
    EXPECT_EQ(joined(filter.add("0", 1000)), "0 (1 more)");
}

TEST(LogLines, OfQtComeOnlyWhenAskedFor)
{
    installLogHandler();
    testing::internal::CaptureStderr();
    qWarning("unasked");
    Os::Log::SetMask("Qt", Os::Log::Warning);
    qWarning("asked");
    qDebug("of a level that is not enabled");
    Os::Log::SetMask("Qt", 0);
    qInstallMessageHandler(nullptr);
    const QString lines = QString::fromStdString(testing::internal::GetCapturedStderr());
    EXPECT_TRUE(lines.endsWith(" default: asked\n")) << lines.toStdString();
    EXPECT_EQ(lines.count('\n'), 1) << lines.toStdString();
}

TEST(ShutdownDeathTest, TerminatesAProcessThatDoesNotEnd)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    for (const int signal : {SIGINT, SIGTERM, SIGALRM})
        EXPECT_EXIT(receiveAndHang(signal), testing::ExitedWithCode(1), "citp-console: interrupted");
}

TEST(ShutdownDeathTest, KeepsTheStatusOfACommandThatHasEnded)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            setExitStatus(0);
            receiveAndHang(SIGINT);
        },
        testing::ExitedWithCode(0), "^$");
}

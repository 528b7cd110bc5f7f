// Tests of Os::Thread::GetCallStack and Os::CallStack.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_thread.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#define NOT_INLINED __attribute__((noinline, visibility("default")))

NOT_INLINED Os::CallStack callStackOfInnerTestFunction(int depth)
{
    if (depth == 0)
        return Os::Thread::GetCallStack();
    Os::CallStack stack = callStackOfInnerTestFunction(depth - 1);
    // Work after the call keeps it from becoming a jump.
    asm volatile("" ::: "memory");
    return stack;
}

NOT_INLINED Os::CallStack callStackOfOuterTestFunction()
{
    Os::CallStack stack = callStackOfInnerTestFunction(0);
    asm volatile("" ::: "memory");
    return stack;
}

namespace {

TEST(CallStack, IsEmptyUnlessCaptured)
{
    const Os::CallStack stack;
    EXPECT_EQ(stack.GetDepth(), 0);
    EXPECT_EQ(stack.GetFrame(0), nullptr);
    EXPECT_TRUE(stack.Symbolize().empty());
}

TEST(CallStack, BeginsWithTheCallerAndNamesFunctions)
{
    const std::vector<std::string> lines = callStackOfOuterTestFunction().Symbolize();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0].rfind("callStackOfInnerTestFunction(int)+0x", 0), 0U) << lines[0];
    EXPECT_EQ(lines[1].rfind("callStackOfOuterTestFunction()+0x", 0), 0U) << lines[1];
}

TEST(CallStack, KeepsAtMostMaxDepthFramesTheInnermost)
{
    const Os::CallStack stack = callStackOfInnerTestFunction(100);
    EXPECT_EQ(stack.GetDepth(), Os::CallStack::MaxDepth);
    const std::vector<std::string> lines = stack.Symbolize();
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(Os::CallStack::MaxDepth));
    EXPECT_TRUE(std::all_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("callStackOfInnerTestFunction") != std::string::npos;
    }));
}

TEST(CallStack, HasNoFramesOutsideItsDepth)
{
    const Os::CallStack stack = callStackOfOuterTestFunction();
    ASSERT_GT(stack.GetDepth(), 0);
    EXPECT_NE(stack.GetFrame(0), nullptr);
    EXPECT_NE(stack.GetFrame(stack.GetDepth() - 1), nullptr);
    EXPECT_EQ(stack.GetFrame(stack.GetDepth()), nullptr);
    EXPECT_EQ(stack.GetFrame(-1), nullptr);
}

} // namespace

// Tests of text_base: building, cutting, numbers.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/text_base.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

TEST(TextBase, StartsEmpty)
{
    const text_base text;
    EXPECT_EQ(text.length(), 0U);
    EXPECT_STREQ(text.c_str(), "");
}

TEST(TextBase, ChainsTextsCharactersAndNumbers)
{
    text_base text("a");
    text << "bc" << '-' << 12 << ' ' << -3 << ' ' << 4000000000U;
    EXPECT_STREQ(text.c_str(), "abc-12 -3 4000000000");
    EXPECT_EQ(text.length(), 20U);
}

TEST(TextBase, WritesTheExtremeNumbersWhole)
{
    text_base text;
    text << LLONG_MIN << ' ' << ULLONG_MAX << ' ' << INT_MIN << ' ' << LONG_MAX << ' ' << 0UL;
    EXPECT_EQ(std::string(text.c_str()),
              "-9223372036854775808 18446744073709551615 -2147483648 " + std::to_string(LONG_MAX) + " 0");
}

TEST(TextBase, HoldsExactlyItsCapacity)
{
    const std::string full(text_base::Capacity, 'x');
    const text_base text(full);
    EXPECT_EQ(text.length(), 1500U);
    EXPECT_EQ(text.c_str(), full);
}

TEST(TextBase, CutsWhatDoesNotFit)
{
    const text_base text(std::string(text_base::Capacity + 1, 'x'));
    EXPECT_EQ(text.length(), text_base::Capacity);
    EXPECT_EQ(text.c_str(), std::string(text_base::Capacity, 'x'));
}

TEST(TextBase, CutsAPieceInItsMiddle)
{
    text_base text(std::string(text_base::Capacity - 2, 'x'));
    text << "abc";
    EXPECT_EQ(std::string(text.c_str()).substr(text_base::Capacity - 2), "ab");
}

TEST(TextBase, CutsANumberInItsMiddle)
{
    text_base text(std::string(text_base::Capacity - 2, 'x'));
    text << 987;
    EXPECT_EQ(std::string(text.c_str()).substr(text_base::Capacity - 2), "98");
}

TEST(TextBase, DropsEverythingOnceFull)
{
    text_base text(std::string(text_base::Capacity, 'x'));
    text << 'a' << "b" << 1;
    EXPECT_EQ(text.c_str(), std::string(text_base::Capacity, 'x'));
}

TEST(TextBase, KeepsZeroBytes)
{
    text_base text;
    text << std::string_view("a\0b", 3);
    EXPECT_EQ(std::string(text.c_str(), text.length()), std::string("a\0b", 3));
}

TEST(TextBase, AppendsAPieceOfItself)
{
    text_base text("abc");
    text << std::string_view(text.c_str(), text.length());
    EXPECT_STREQ(text.c_str(), "abcabc");
}

TEST(TextBase, CopiesAreIndependent)
{
    text_base text("a");
    text_base copy = text;
    copy << "b";
    EXPECT_STREQ(text.c_str(), "a");
    EXPECT_STREQ(copy.c_str(), "ab");
}

} // namespace

// text_base: the bounded text under construction.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/text_base.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {
// The decimal digits of the longest number, its sign included.
constexpr std::size_t longestNumber = 20;
} // namespace

// Only the terminator is set: to clear the whole buffer would be most of the cost of a short log line.
text_base::text_base() noexcept : m_length(0)
{
    m_text[0] = '\0';
}

text_base::text_base(std::string_view text) noexcept : text_base()
{
    *this << text;
}

text_base& text_base::operator<<(std::string_view text) noexcept
{
    const std::size_t count = std::min(text.size(), Capacity - m_length);
    if (count != 0) {
        // A piece may come from this very text, so the ranges may touch.
        std::memmove(m_text + m_length, text.data(), count);
        m_length += count;
        m_text[m_length] = '\0';
    }
    return *this;
}

text_base& text_base::operator<<(char character) noexcept
{
    return *this << std::string_view(&character, 1);
}

text_base& text_base::operator<<(long long number) noexcept
{
    char digits[longestNumber];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    return *this << std::string_view(digits, static_cast<std::size_t>(result.ptr - digits));
}

text_base& text_base::operator<<(unsigned long long number) noexcept
{
    char digits[longestNumber];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    return *this << std::string_view(digits, static_cast<std::size_t>(result.ptr - digits));
}

// text_base: the text in a buffer of fixed size.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/text_base.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {
// Decimal digits of a 64-bit number, with its sign.
constexpr std::size_t maxNumberLength = 20;
} // namespace

// Only the terminator is set: clearing the whole buffer would dominate the cost of a short log line.
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
        // The source may be this text itself, so the ranges may overlap.
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
    char digits[maxNumberLength];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    return *this << std::string_view(digits, static_cast<std::size_t>(result.ptr - digits));
}

text_base& text_base::operator<<(unsigned long long number) noexcept
{
    char digits[maxNumberLength];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    return *this << std::string_view(digits, static_cast<std::size_t>(result.ptr - digits));
}

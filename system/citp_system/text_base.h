// text_base: a text in a buffer of fixed size, built piece by piece; excess characters are cut off.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstddef>
#include <string_view>

/// A text of bounded length, built piece by piece without heap allocations. Log lines are built in it: they must not
/// allocate and must not overflow, whatever a peer sent.
///
/// Not thread-safe. The text consists of bytes; no encoding is assumed.
class CITP_SYSTEM_EXPORT text_base
{
public:
    /// The maximum length in bytes, without the terminating zero byte.
    static constexpr std::size_t Capacity = 1500;

    text_base() noexcept; ///< an empty text
    /// A copy of @p text, cut off at #Capacity bytes without a mark.
    explicit text_base(std::string_view text) noexcept;

    /// Appends @p text, cut off at #Capacity bytes in total without a mark.
    text_base& operator<<(std::string_view text) noexcept;
    /// Appends @p character, or drops it if the text is full.
    text_base& operator<<(char character) noexcept;
    /// Appends @p number in decimal.
    text_base& operator<<(long long number) noexcept;
    /// Appends @p number in decimal.
    text_base& operator<<(unsigned long long number) noexcept;
    /// Appends @p number in decimal.
    text_base& operator<<(int number) noexcept { return *this << static_cast<long long>(number); }
    /// Appends @p number in decimal.
    text_base& operator<<(unsigned int number) noexcept { return *this << static_cast<unsigned long long>(number); }
    /// Appends @p number in decimal.
    text_base& operator<<(long number) noexcept { return *this << static_cast<long long>(number); }
    /// Appends @p number in decimal.
    text_base& operator<<(unsigned long number) noexcept { return *this << static_cast<unsigned long long>(number); }

    /// The text with a terminating zero byte; owned by this object and valid until the text changes.
    const char* c_str() const noexcept { return m_text; }
    /// The length in bytes, 0 to #Capacity.
    std::size_t length() const noexcept { return m_length; }

private:
    std::size_t m_length;
    char m_text[Capacity + 1];
};

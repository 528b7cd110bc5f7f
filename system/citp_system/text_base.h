// text_base: a line of text under construction, in a fixed buffer; what does not fit is cut.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/system_export.h>

#include <cstddef>
#include <string_view>

/// A text of bounded length, built piece by piece without touching the heap. It serves log lines, which must never
/// cost an allocation and must never overflow, whatever a peer sent.
///
/// Not synchronised: one object belongs to one thread. The text is bytes; no encoding is assumed.
class CITP_SYSTEM_EXPORT text_base
{
public:
    /// The most characters a text holds, the terminating zero byte not counted.
    static constexpr std::size_t Capacity = 1500;

    text_base() noexcept; ///< empty
    /// Holds @p text; what goes beyond #Capacity is cut without a sign.
    explicit text_base(std::string_view text) noexcept;

    /// Appends @p text; what goes beyond #Capacity is cut without a sign.
    text_base& operator<<(std::string_view text) noexcept;
    /// Appends @p character; dropped when the text is full.
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

    /// The text with a zero byte behind it; owned by this object and valid until it changes.
    const char* c_str() const noexcept { return m_text; }
    /// Characters held, 0 to #Capacity.
    std::size_t length() const noexcept { return m_length; }

private:
    std::size_t m_length;
    char m_text[Capacity + 1];
};

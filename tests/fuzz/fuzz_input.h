// What the fuzz targets share: how a target takes its bytes apart, and how it says that a promise was broken.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

/// Every fuzz target is this one function. libFuzzer calls it in a fuzzing build. Elsewhere the build renames it, so
/// that replay_main.cpp has all targets in one program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {
/// Ends the process, which is what both the fuzzer and a replay take for a finding.
[[noreturn]] inline void fail(const char* what, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, what);
    std::abort();
}

/// Bytes in an allocation of exactly their size, without the zero that QByteArray would put behind them: the address
/// sanitizer then sees a read of even one byte too many.
class ExactBytes
{
public:
    explicit ExactBytes(const QByteArray& bytes)
        : m_size(static_cast<std::size_t>(bytes.size())), m_data(new char[m_size > 0 ? m_size : 1])
    {
        std::copy(bytes.begin(), bytes.end(), m_data.get());
    }
    /// Valid as long as this object.
    QByteArray view() const { return QByteArray::fromRawData(m_data.get(), static_cast<int>(m_size)); }

private:
    std::size_t m_size;
    std::unique_ptr<char[]> m_data;
};

/// Takes a fuzz input apart, front to back; what is not there any more reads as 0 or empty.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

    unsigned u8()
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_data++;
    }
    std::uint32_t u32()
    {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8)
            value |= static_cast<std::uint32_t>(u8()) << shift;
        return value;
    }
    QByteArray bytes(std::size_t count)
    {
        count = std::min(count, m_left);
        const QByteArray taken(reinterpret_cast<const char*>(m_data), static_cast<int>(count));
        m_data += count;
        m_left -= count;
        return taken;
    }
    QByteArray rest() { return bytes(m_left); }
    bool isEmpty() const { return m_left == 0; }

    /// A count (0 to 7) and as many lengths, for pieces() to cut a stream by.
    std::vector<int> lengths()
    {
        std::vector<int> list(u8() & 7);
        for (int& length : list)
            length = static_cast<int>(u8());
        return list;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_left;
};

/// @p stream in pieces of the given @p lengths; what they leave over is the last piece. No piece is empty.
inline std::vector<QByteArray> pieces(const QByteArray& stream, const std::vector<int>& lengths)
{
    std::vector<QByteArray> list;
    int position = 0;
    for (const int length : lengths) {
        const QByteArray piece = stream.mid(position, length);
        if (!piece.isEmpty())
            list.push_back(piece);
        position += static_cast<int>(piece.size());
    }
    if (position < stream.size())
        list.push_back(stream.mid(position));
    return list;
}
} // namespace fuzz

/// Holds a promise of the code under test, in every build.
#define FUZZ_REQUIRE(condition)                         \
    do {                                                \
        if (!(condition))                               \
            fuzz::fail(#condition, __FILE__, __LINE__); \
    } while (false)

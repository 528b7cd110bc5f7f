// Turn: the bytes and the time that are left to read one server before the others get their turn. Private; not
// installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_options_p.h"

#include <chrono>
#include <limits>

namespace CITP {
/// Limited by citp_options::maxTurnBytes() and citp_options::maxTurnTime(). Inline: asked for every message, and has a
/// unit test.
class Turn
{
public:
    /// @param isLost whether the last piece of the stream did not begin a message
    Turn(const citp_options::Data& limits, bool isLost)
        : m_maxBytes(limits.maxTurnBytes > 0 ? limits.maxTurnBytes : std::numeric_limits<qint64>::max()),
          m_maxTime(limits.maxTurnTime),
          m_start(limits.maxTurnTime > 0 ? Clock::now() : Clock::time_point{}),
          m_budget(isLost ? 0 : budget())
    {
    }
    /// Counts a message of @p bytes that was handled.
    void count(quint32 bytes)
    {
        m_bytes += bytes;
        m_budget -= 1 + static_cast<int>(bytes / budgetBytes);
    }
    /// The bytes that were read.
    qint64 bytes() const { return m_bytes; }
    /// Whether isOver() need not be called before the next message.
    bool hasBudget() const { return m_budget > 0; }
    /// Has isOver() called before the next message.
    void endBudget() { m_budget = 0; }
    /// Whether a limit has been reached; never before the first message, because no limit is 0. Not inline, because the
    /// loop that reads is faster without it.
    [[gnu::noinline]] bool isOver()
    {
        if (m_bytes >= m_maxBytes) {
            return true;
        }
        m_budget = budget();
        return m_maxTime.count() > 0 && Clock::now() - m_start >= m_maxTime;
    }

private:
    using Clock = std::chrono::steady_clock;
    /// A look at the clock costs as much as most of what is checked for a message together.
    static constexpr int maxBudget = 24;
    /// Each message takes one from the budget, and one more for each of so many bytes.
    static constexpr quint32 budgetBytes = 4096;

    /// So small that it ends before #m_maxBytes is reached.
    int budget() const { return static_cast<int>(qMin<qint64>(maxBudget, (m_maxBytes - m_bytes) / budgetBytes)); }

    const qint64 m_maxBytes;
    const std::chrono::milliseconds m_maxTime;
    const Clock::time_point m_start;
    qint64 m_bytes = 0;
    int m_budget;
};
} // namespace CITP

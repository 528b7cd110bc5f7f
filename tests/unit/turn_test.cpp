// Turn: it ends with the message that reaches the limit of bytes, whatever the messages' sizes.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_turn_p.h>
#include <gtest/gtest.h>

namespace {
/// The bytes of a turn, read as the stack does: isOver() is called only if there is no budget.
qint64 bytesOfTurn(qint64 maxBytes, quint32 messageSize)
{
    CITP::citp_options::Data limits;
    limits.maxTurnBytes = maxBytes;
    CITP::Turn turn(limits, false);
    while (turn.hasBudget() || !turn.isOver()) {
        turn.count(messageSize);
    }
    return turn.bytes();
}
} // namespace

TEST(Turn, EndsWithTheMessageThatReachesTheLimit)
{
    for (const qint64 maxBytes : {20, 4095, 4096, 8192, 32768, 262144}) {
        for (const quint32 size : {20U, 500U, 4095U, 4096U, 4097U, 10000U, 1000000U}) {
            EXPECT_EQ(bytesOfTurn(maxBytes, size), (maxBytes + size - 1) / size * size) << maxBytes << ", " << size;
        }
    }
}

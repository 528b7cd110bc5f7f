// How a simulated server can misbehave on request, repeatably.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QStringList>
#include <random>

namespace MediaServer {
enum class Fault : quint32 {
    Delay = 1 << 0,
    Silence = 1 << 1,
    Split = 1 << 2,
    Merge = 1 << 3,
    Truncate = 1 << 4,
    Oversize = 1 << 5,
    Version = 1 << 6,
    Garbage = 1 << 7,
    Noise = 1 << 8,
    Reset = 1 << 9,
    Storm = 1 << 10,
    Refuse = 1 << 11,
    Mute = 1 << 12,
    OddSinf = 1 << 13,
    Spoil = 1 << 14,
};

/// Name and explanation of each fault, for the command line.
struct FaultDescription
{
    Fault fault;
    const char* name;
    const char* help;
};
const std::vector<FaultDescription>& faultDescriptions();

/// Which faults are wanted, and how.
struct FaultPlan
{
    quint32 faults = 0; ///< set of Fault
    int rate = 100;     ///< percent of the occasions at which a fault strikes
    int delayMs = 500;
    quint32 seed = 1;
};

/// Decides and does the damage. The same plan meets the same occasions with the same damage.
class Faults
{
public:
    explicit Faults(const FaultPlan& plan) : m_plan(plan), m_random(plan.seed) {}

    /// Whether the fault is wanted and strikes this time.
    bool strikes(Fault fault);
    int delayMs() const { return m_plan.delayMs; }
    /// A whole number from @p lowest to @p highest.
    int pick(int lowest, int highest);

    /// Cuts the body behind the layer's header at a random place; the size field is that of what is left.
    QByteArray truncated(QByteArray message);
    /// Lets a thumbnail announce more bytes than follow; other messages stay as they are.
    QByteArray oversized(QByteArray message);
    /// Fills a thumbnail's picture with random bytes; other messages stay as they are.
    QByteArray spoiled(QByteArray message);
    /// Writes an MSEX version that no table knows, 1.3 to 1.9; other layers' messages stay as they are.
    QByteArray misversioned(QByteArray message);
    /// Random bytes that are no message but have a message's length field, so that a reader can pass over them.
    QByteArray garbage();
    /// Random bytes in which nothing tells where they end.
    QByteArray noise();
    /// What a PLoc storm sends beside the server's own PLoc: foreign, cut and damaged announcements.
    QByteArray stormPiece(const QByteArray& announcement);

private:
    QByteArray randomBytes(int count);

    FaultPlan m_plan;
    std::mt19937 m_random;
};
} // namespace MediaServer

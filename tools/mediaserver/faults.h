// Fault injection: the faults of a simulated server, reproducible by a seed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHostAddress>
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
    ZeroSize = 1 << 15,
    EndlessSize = 1 << 16,
    Drip = 1 << 17,
    Stall = 1 << 18,
    LyingCount = 1 << 19,
    LyingSinf = 1 << 20,
    WrongKind = 1 << 21,
    LongName = 1 << 22,
    Unread = 1 << 23,
    LayerFlood = 1 << 24,
    ListFlood = 1 << 25,
    UpdateFlood = 1 << 26,
    Unplug = 1 << 27,
    Forge = 1 << 28,
};

/// Name and description of a fault, for the command line.
struct FaultDescription
{
    Fault fault;
    const char* name;
    const char* help;
};
const std::vector<FaultDescription>& faultDescriptions();

/// The enabled faults and their parameters.
struct FaultPlan
{
    quint32 faults = 0; ///< bit set of Fault
    int rate = 100;     ///< probability of a fault at each occasion, in percent
    int delayMs = 500;
    int forged = 1000;       ///< announcements of other servers in each interval, by the fault "forge"
    QHostAddress forgedFrom; ///< their first source address; null: all have the address of the server
    quint32 seed = 1;
};

/// Injects faults. The same plan and the same sequence of calls result in the same faults.
class Faults
{
public:
    explicit Faults(const FaultPlan& plan) : m_plan(plan), m_generator(plan.seed) {}

    /// Whether to inject the fault this time.
    bool shouldInject(Fault fault);
    /// Whether the fault is enabled, for faults that have no occasions.
    bool isEnabled(Fault fault) const { return (m_plan.faults & static_cast<quint32>(fault)) != 0; }
    int delayMs() const { return m_plan.delayMs; }
    /// A random integer from @p min to @p max.
    int random(int min, int max);

    /// Makes a list or a layer status declare as many entries as its count field can hold, and removes all entries.
    /// Other messages are unchanged.
    static QByteArray withLyingCount(const QByteArray& message);
    /// Turns a list of media into an empty list of effects and the reverse. Other messages are unchanged.
    static QByteArray ofWrongKind(const QByteArray& message);
    /// Gives the fixture of a Ptch a name of 1 MiB. Other messages are unchanged.
    static QByteArray withLongName(QByteArray message);
    /// Truncates the body at a random position after the header of the layer and adjusts the size field.
    QByteArray truncated(QByteArray message);
    /// Makes a thumbnail declare more picture bytes than follow. Other messages are unchanged.
    QByteArray oversized(QByteArray message);
    /// Fills the picture of a thumbnail with random bytes. Other messages are unchanged.
    QByteArray withSpoiledPicture(QByteArray message);
    /// Sets the MSEX version to one that does not exist, 1.3 to 1.9. Messages of other layers are unchanged.
    QByteArray withUnknownVersion(QByteArray message);
    /// Random bytes that are not a message but have a valid size field, so that a receiver can skip them.
    QByteArray garbage();
    /// Random bytes without a valid size field.
    QByteArray noise();
    /// A datagram of an announcement storm: the PLoc of this or another peer, or a truncated or damaged PLoc.
    QByteArray stormDatagram(const QByteArray& announcement);

private:
    QByteArray randomBytes(int count);

    FaultPlan m_plan;
    std::mt19937 m_generator;
};
} // namespace MediaServer

// Fault injection: the faults of a simulated server, reproducible by a seed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QStringList>
#include <bitset>
#include <random>
#include <vector>

namespace MediaServer {
enum class Fault {
    Delay,
    Silence,
    Split,
    Merge,
    Truncate,
    Oversize,
    Version,
    Garbage,
    Noise,
    Reset,
    Storm,
    Refuse,
    Mute,
    OddSinf,
    Spoil,
    ZeroSize,
    EndlessSize,
    Drip,
    Stall,
    LyingCount,
    LyingSinf,
    WrongKind,
    LongName,
    Unread,
    LayerFlood,
    ListFlood,
    UpdateFlood,
    Unplug,
    Forge,
    CitpVersion,
    OldVersion,
    PartCount,
    Layer,
    Code,
    Index,
    Trailing,
    Unterminated,
    Nameless,
    PlocType,
    PlocPort,
    PlocState,
    PlocChanging,
    SinfVersions,
    SinfTypes,
    SinfFormats,
    SinfPng,
    SinfUuid,
    SinfLayers,
    SinfChanging,
    NeedsName,
    NeedsClient,
    NeedsWhole,
    FirstOnly,
    SingleMinded,
    Once,
    Exact,
    Strict,
    OneConsole,
    OneVisit,
    Jilts,
    Impatient,
    IdleClose,
    Early,
    LateSinf,
    IgnoresNumbers,
    FirstNumber,
    NeedsNumbers,
    UnknownSilent,
    Invents,
    OwnVersion,
    WrongType,
    WrongLibrary,
    WrongNumber,
    Twin,
    WrongLevel,
    DmxRange,
    SubCount,
    ElementCount,
    SerialChanging,
    BlankMedia,
    Milliseconds,
    WrongSize,
    WrongElement,
    IgnoresSize,
    Distort,
    WrongFormat,
    PaddedRows,
    LayerNumber,
    LayerPosition,
    LayerLibrary,
    LayerElement,
    LayerName,
    LayerFlags,
    LayerRate,
    LayerCount,
    FixtureChannel,
    FixtureCount,
    FixtureNumber,
    Count, ///< their number
};

class Faults;

/// A fault, for the command line and for the answers that it changes.
struct FaultDescription
{
    Fault fault;
    const char* name;
    const char* help;
    /// Of a fault that changes messages: how, in the order of the table.
    QByteArray (*change)(Faults& faults, const QByteArray& message) = nullptr;
    /// Content codes of the messages that it changes; empty: all answers to requests, without the SInf.
    const char* codes = "";
};
const std::vector<FaultDescription>& faultDescriptions();

/// The enabled faults and their parameters.
struct FaultPlan
{
    std::bitset<static_cast<std::size_t>(Fault::Count)>
        faults;        ///< bit n is set if the fault with the value n is enabled
    QStringList codes; ///< content codes of the messages to change; empty: as described for each fault
    int rate = 100;    ///< probability of a fault at each occasion, in percent
    int delayMs = 500;
    int forged = 1000;       ///< announcements of other servers in each interval, by the fault "forge"
    QHostAddress forgedFrom; ///< their first source address; null: all have the address of the server
    quint32 seed = 1;

    bool has(Fault fault) const { return faults.test(static_cast<std::size_t>(fault)); }
    void set(Fault fault, bool isEnabled = true) { faults.set(static_cast<std::size_t>(fault), isEnabled); }
};

/// Injects faults. The same plan and the same sequence of calls result in the same faults.
class Faults
{
public:
    explicit Faults(const FaultPlan& plan) : m_plan(plan), m_generator(plan.seed) {}

    /// Whether to inject the fault this time.
    bool shouldInject(Fault fault);
    /// Whether the fault is enabled, for faults that have no occasions.
    bool isEnabled(Fault fault) const { return m_plan.has(fault); }
    /// Whether faults may affect messages with this content code.
    bool concerns(const QString& code) const { return m_plan.codes.isEmpty() || m_plan.codes.contains(code); }
    int delayMs() const { return m_plan.delayMs; }
    /// A random integer from @p min to @p max.
    int random(int min, int max);

    /// Changes a message as the enabled faults say.
    /// @param injected receives the names of these faults
    QByteArray changed(QByteArray message, QStringList& injected);
    /// A number that counts up with each call.
    quint32 next() { return ++m_next; }

    /// As many random bytes.
    QByteArray randomBytes(int count);
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
    bool isChanged(const FaultDescription& fault, const QByteArray& message) const;

    FaultPlan m_plan;
    std::mt19937 m_generator;
    quint32 m_next = 0;
};
} // namespace MediaServer

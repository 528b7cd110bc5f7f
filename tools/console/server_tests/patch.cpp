// Tests of the fixture patch (Ptch).
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>

#include <QSet>
#include <numeric>

#include "framework.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
constexpr int MaxChannel = 512;

std::vector<CITP::Msg_FPTC_PTCH> fixtures(Bench& bench, const std::vector<unsigned short>& numbers = {})
{
    std::vector<CITP::Msg_FPTC_PTCH> list;
    for (const QByteArray& message : bench.askAll(patchRequest(numbers), "Ptch"))
        list.emplace_back(message);
    return list;
}

std::vector<CITP::Msg_FPTC_PTCH> wholePatch(Bench& bench)
{
    std::vector<CITP::Msg_FPTC_PTCH> all = fixtures(bench);
    if (all.empty())
        notRun("it sends no fixtures; patch some if it can");
    return all;
}

void sendsThePatch(Bench& bench)
{
    std::vector<unsigned short> first(32);
    std::iota(first.begin(), first.end(), static_cast<unsigned short>(1));
    // In this order, a fixture that comes late does not speak against the server.
    expect(fixtures(bench, first).empty() || !fixtures(bench).empty(),
           "an SPtc without numbers is not answered, and one for the fixtures 1 to 32 is");
    bench.measure("fixtures", static_cast<int>(wholePatch(bench).size()));
    // The greeting asks for the patch, too.
    const std::unique_ptr<Probe> probe = bench.greet();
    expect(!probe->next("Ptch").isEmpty(), "the greeting asks for the patch, and no Ptch comes");
}

void hasPatchLayout(Bench& bench)
{
    wholePatch(bench);
    for (const QByteArray& message : bench.askAll(patchRequest(), "Ptch")) {
        const LayoutProblem problem = layoutProblem(message);
        expect(problem.text.isEmpty() || problem.isTrailing, problem.text);
    }
}

void hasChannels(Bench& bench)
{
    for (const CITP::Msg_FPTC_PTCH& fixture : wholePatch(bench)) {
        const int last = fixture.Channel + fixture.ChannelCount - 1;
        expect(fixture.Channel <= MaxChannel && last <= MaxChannel, QString("fixture %1 has the channels %2 to %3")
                                                                        .arg(fixture.FixtureIdentifier)
                                                                        .arg(fixture.Channel)
                                                                        .arg(last));
    }
}

void countsChannels(Bench& bench)
{
    for (const CITP::Msg_FPTC_PTCH& fixture : wholePatch(bench))
        expect(fixture.ChannelCount > 0, QString("fixture %1 has no channels").arg(fixture.FixtureIdentifier));
}

void numbersItsFixtures(Bench& bench)
{
    QSet<int> numbers;
    for (const CITP::Msg_FPTC_PTCH& fixture : wholePatch(bench)) {
        expect(!numbers.contains(fixture.FixtureIdentifier),
               QString("fixture %1 comes twice").arg(fixture.FixtureIdentifier));
        numbers.insert(fixture.FixtureIdentifier);
    }
}

void namesItsFixtures(Bench& bench)
{
    for (const CITP::Msg_FPTC_PTCH& fixture : wholePatch(bench))
        expect(!fixture.FixtureName.isEmpty(), QString("fixture %1 has no name").arg(fixture.FixtureIdentifier));
}

void sendsOneFixture(Bench& bench)
{
    const unsigned short number = wholePatch(bench).back().FixtureIdentifier;
    const std::vector<CITP::Msg_FPTC_PTCH> found = fixtures(bench, {number});
    expect(found.size() == 1 && found.front().FixtureIdentifier == number,
           QString("an SPtc for fixture %1 is answered with %2 fixtures").arg(number).arg(found.size()));
}

void sendsNoUnknownFixture(Bench& bench)
{
    QSet<int> used;
    for (const CITP::Msg_FPTC_PTCH& fixture : fixtures(bench))
        used.insert(fixture.FixtureIdentifier);
    const auto number = static_cast<unsigned short>(unusedNumber(used, 60001));
    const std::vector<CITP::Msg_FPTC_PTCH> found = fixtures(bench, {number});
    expect(found.empty(), QString("an SPtc for fixture %1, which does not exist, is answered with %2 fixtures")
                              .arg(number)
                              .arg(found.size()));
}
} // namespace

Area patchTests()
{
    return {
        "patch",
        {
            {1001, "it sends its patch", "sends an SPtc for the fixtures 1 to 32, one without numbers, and greets",
             "a Ptch for the last two, if there are fixtures: consoles ask for all when they greet", sendsThePatch},
            {1002, "the patch has the right layout", "reads each Ptch field by field",
             "all fields and two texts with terminators: consoles show what they read", hasPatchLayout},
            {1003, "fixtures are within a universe", "reads channel and channel count of each Ptch",
             "up to channel 512: a universe has no more", hasChannels},
            {1004, "fixtures have channels", "reads the channel count of each Ptch",
             "above 0: a fixture without channels cannot be controlled", countsChannels},
            {1005, "no fixture comes twice", "sends an SPtc without numbers",
             "each number once: consoles keep one fixture for each", numbersItsFixtures},
            {1006, "fixtures have a name", "reads the name in each Ptch", "a text: operators know the fixture by it",
             namesItsFixtures},
            {1007, "it sends one fixture alone", "sends an SPtc for the last fixture by its number",
             "a Ptch for that fixture alone: consoles ask so after a change", sendsOneFixture},
            {1008, "it sends no unknown fixture", "sends an SPtc for the number of no fixture",
             "no Ptch: the fixture does not exist", sendsNoUnknownFixture},
        },
    };
}
} // namespace Console::ServerTests

// The command "patch": lists the fixture patch of a server.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/layers.h>

#include "commands.h"
#include "printing.h"
#include "session.h"
#include "table.h"
#include "value_json.h"

namespace Console {
namespace {
using CITP::Fixture;
using CITP::Patch;

std::vector<Fixture> fetchFixtures(Session& session)
{
    const Patch patch(session.transport(), session.key());
    const WaitLine waiting("waiting for the patch of " + session.name());
    if (!session.waitUntil([&] { return patch.state() != Patch::Unknown; }, session.timeoutMs()))
        throw session.noAnswer("any fixture", "(is its patch empty?)");
    session.waitUntil([&] { return patch.state() != Patch::Receiving; },
                      session.timeoutMs() + static_cast<int>(Patch::quietTime));
    if (patch.state() == Patch::TooLarge)
        throw Failure{QString("%1 sends a patch of more than %2 million characters")
                          .arg(session.name())
                          .arg(Patch::maxCharacters / 1000000)};
    if (patch.state() != Patch::Complete)
        throw Failure{QString("%1 is still sending its patch after %2; --timeout allows more time")
                          .arg(session.name(), secondsText(session.timeoutMs()))};
    return patch.fixtures();
}

void printAsJson(const QString& server, const Fixture& fixture)
{
    printJson(merged({{"record", "fixture"}, {"server", server}}, toJson(fixture)));
}
} // namespace

int listPatch(const Options& options)
{
    Session session(options);
    const std::vector<Fixture> fixtures = fetchFixtures(session);
    if (options.json) {
        for (const Fixture& fixture : fixtures)
            printAsJson(session.key(), fixture);
        return 0;
    }
    printLine(QString("%1: %2 fixtures").arg(session.name(), QString::number(fixtures.size())));
    Table table({" FIXTURE", " UNIVERSE", " CHANNEL", " CHANNELS", "MAKE", "NAME"});
    for (const Fixture& fixture : fixtures)
        table.add({QString::number(fixture.identifier), QString::number(fixture.universe),
                   QString::number(fixture.channel), QString::number(fixture.channels), fixture.make, fixture.name});
    table.print();
    return 0;
}
} // namespace Console

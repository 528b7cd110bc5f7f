// The command "patch": lists the fixture patch of a server.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>

#include "commands.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
// The protocol has no end-of-patch message. The patch is complete when no fixture has arrived for this long.
constexpr int QuietMs = 1000;

using Fixtures = QMap<int, CITP::Msg_FPTC_PTCH>;

Fixtures fetchFixtures(Session& session)
{
    Fixtures fixtures;
    QElapsedTimer sinceLast;
    QObject scope;
    QObject::connect(CITP::citp_stack::Get(), &CITP::citp_stack::patchMessage, &scope,
                     [&](const QString& key, const CITP::Msg_FPTC_PTCH& fixture) {
                         if (key != session.key())
                             return;
                         fixtures.insert(fixture.FixtureIdentifier, fixture);
                         sinceLast.start();
                     });
    session.send(CITP::Msg_FPTC_SPTC(nullptr));
    session.waitFor(
        "any fixture", [&] { return sinceLast.isValid(); }, [] { return QString("(is its patch empty?)"); });
    if (!session.waitUntil([&] { return sinceLast.elapsed() >= QuietMs; }, session.timeoutMs() + QuietMs))
        throw Failure{QString("%1 is still sending its patch after %2; --timeout allows more time")
                          .arg(session.name(), secondsText(session.timeoutMs()))};
    return fixtures;
}

void printAsJson(const QString& server, const CITP::Msg_FPTC_PTCH& fixture)
{
    printJson({{"server", server},
               {"fixture", fixture.FixtureIdentifier},
               {"universe", fixture.Universe},
               {"channel", fixture.Channel},
               {"channels", fixture.ChannelCount},
               {"make", fixture.FixtureMake},
               {"name", fixture.FixtureName}});
}
} // namespace

int listPatch(const Options& options)
{
    Session session(options);
    const Fixtures fixtures = fetchFixtures(session);
    if (options.json) {
        for (const CITP::Msg_FPTC_PTCH& fixture : fixtures)
            printAsJson(session.key(), fixture);
        return 0;
    }
    printLine(QString("%1: %2 fixtures").arg(session.name(), QString::number(fixtures.size())));
    Table table({" FIXTURE", " UNIVERSE", " CHANNEL", " CHANNELS", "MAKE", "NAME"});
    for (const CITP::Msg_FPTC_PTCH& fixture : fixtures) {
        table.add({QString::number(fixture.FixtureIdentifier), QString::number(fixture.Universe),
                   QString::number(fixture.Channel), QString::number(fixture.ChannelCount), fixture.FixtureMake,
                   fixture.FixtureName});
    }
    printLines(table.lines());
    return 0;
}
} // namespace Console

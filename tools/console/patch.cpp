// The command "patch": lists the fixture patch of a server.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>

#include <utility>

#include "commands.h"
#include "inbox.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
// The protocol has no end-of-patch message. The patch is complete when no fixture has arrived for this long.
constexpr int QuietMs = 1000;

// More than any show has. Bounds the memory for long names.
constexpr qint64 MaxBytes = 64 << 20;

using Fixtures = QMap<int, CITP::Msg_FPTC_PTCH>;

struct ReceivedPatch
{
    Fixtures fixtures;
    qint64 bytes = 0;
    QElapsedTimer sinceLast;
};

Fixtures fetchFixtures(Session& session)
{
    Inbox<ReceivedPatch> inbox;
    inbox.receiveFrom(session.key(), &CITP::citp_stack::patchMessage,
                      [](ReceivedPatch& patch, const CITP::Msg_FPTC_PTCH& fixture) {
                          patch.bytes += fixture.size;
                          if (patch.bytes <= MaxBytes)
                              patch.fixtures.insert(fixture.FixtureIdentifier, fixture);
                          patch.sinceLast.start();
                      });
    const auto checkSize = [&] {
        if (inbox.state()->bytes > MaxBytes)
            throw Failure{QString("%1 sends a patch of more than %2 MiB").arg(session.name()).arg(MaxBytes >> 20)};
    };
    session.send(CITP::Msg_FPTC_SPTC(nullptr));
    session.waitFor(
        "any fixture", [&] { return inbox.state()->sinceLast.isValid(); },
        [] { return QString("(is its patch empty?)"); });
    const auto isComplete = [&] {
        checkSize();
        return inbox.state()->sinceLast.elapsed() >= QuietMs;
    };
    if (!session.waitUntil(isComplete, session.timeoutMs() + QuietMs))
        throw Failure{QString("%1 is still sending its patch after %2; --timeout allows more time")
                          .arg(session.name(), secondsText(session.timeoutMs()))};
    return std::move(inbox.state()->fixtures);
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
    table.print();
    return 0;
}
} // namespace Console

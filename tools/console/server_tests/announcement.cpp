// Tests of the announcements (PLoc).
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_peer.h>

#include <QSet>
#include <algorithm>

#include "../printing.h"
#include "framework.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
// A console that looks for servers is expected to have found all of them within this time.
constexpr int SlowestMs = 5000;
constexpr int MostPerSecond = 20;

int countIn(const Bench::Announcements& all, bool isNewGroup)
{
    const auto isIt = [&](const Announcement& one) { return one.isNewGroup == isNewGroup; };
    return static_cast<int>(std::count_if(all.begin(), all.end(), isIt));
}

Bench::Announcements atLeast(Bench& bench, std::size_t count)
{
    return bench.announcements([&](const Bench::Announcements& all) { return all.size() >= count; });
}

Bench::Announcements heard(Bench& bench, std::size_t count)
{
    Bench::Announcements all = atLeast(bench, count);
    if (all.empty())
        notRun("it announces itself to none of the groups");
    return all;
}

CITP::Msg_PEER_PLOC firstPeer(Bench& bench)
{
    return CITP::Msg_PEER_PLOC(heard(bench, 1).front().message);
}

void isAnnounced(Bench& bench)
{
    expect(
        !atLeast(bench, 1).empty(),
        QString("no announcement from %1 within %2").arg(bench.address().toString(), secondsText(bench.timeoutMs())));
}

void isOnTheOldGroup(Bench& bench)
{
    heard(bench, 1);
    const Bench::Announcements all = bench.announcements(
        [](const Bench::Announcements& some) { return countIn(some, false) > 0 && countIn(some, true) > 0; });
    expect(countIn(all, false) > 0, "it announces itself on 239.224.0.180 only");
    if (countIn(all, true) == 0)
        bench.warn("it announces itself on 224.0.0.180 only");
}

void comesRegularly(Bench& bench)
{
    const Bench::Announcements all = bench.announcements(
        [](const Bench::Announcements& some) { return countIn(some, false) > 1 || countIn(some, true) > 1; });
    qint64 longest = -1;
    qint64 certain = 0;
    for (const bool isNewGroup : {false, true}) {
        const Announcement* last = nullptr;
        for (const Announcement& one : all) {
            if (one.isNewGroup != isNewGroup)
                continue;
            if (last) {
                longest = qMax(longest, one.timeMs - last->timeMs);
                certain = qMax(certain, one.afterMs - last->timeMs);
            }
            last = &one;
        }
    }
    expect(longest >= 0, QString("no second announcement within %1").arg(secondsText(bench.timeoutMs())));
    bench.measure("longest interval in ms", static_cast<int>(longest));
    expect(certain <= SlowestMs, QString("%1 between two announcements").arg(secondsText(certain)));
}

void doesNotFlood(Bench& bench)
{
    const Bench::Announcements all = heard(bench, 2 * MostPerSecond + 10);
    int most = 0;
    for (const Announcement& first : all) {
        // Only those that have certainly come within the second.
        const auto isWithin = [&](const Announcement& one) {
            return one.isNewGroup == first.isNewGroup && one.afterMs >= first.afterMs &&
                   one.timeMs <= first.afterMs + 1000;
        };
        most = qMax(most, static_cast<int>(std::count_if(all.begin(), all.end(), isWithin)));
    }
    bench.measure("most announcements in a second", most);
    expect(most <= MostPerSecond, QString("%1 announcements within a second").arg(most));
}

void hasItsLayout(Bench& bench)
{
    for (const Announcement& one : heard(bench, 2)) {
        const CITP::Msg_PEER_PLOC message(one.message);
        expect(message.valid, "the CITP header is wrong: version, size or cookie");
        const LayoutProblem problem = layoutProblem(one.message);
        expect(problem.text.isEmpty(), problem.text);
    }
}

void isAMediaServer(Bench& bench)
{
    const QString type = firstPeer(bench).type;
    expect(type == "MediaServer", QString("its type is '%1'").arg(type));
}

void hasAName(Bench& bench)
{
    const QString name = firstPeer(bench).name;
    expect(!name.trimmed().isEmpty(), "its name is empty");
    expect(escapeControls(name) == name, "its name contains control characters");
}

void saysItsState(Bench& bench)
{
    expect(!firstPeer(bench).state.isEmpty(), "its state is empty");
}

void hasAPort(Bench& bench)
{
    const int port = firstPeer(bench).port;
    expect(port != 0, "it announces port 0");
}

void staysTheSame(Bench& bench)
{
    QSet<QString> contents;
    for (const Announcement& one : heard(bench, 6))
        contents.insert(QString("port %1, name '%2'").arg(one.port).arg(one.name));
    expect(contents.size() == 1, "it announces " + contents.values().mid(0, 5).join(" and "));
}

void isReachable(Bench& bench)
{
    const int port = heard(bench, 1).front().port;
    expect(port == bench.port(),
           QString("it announces port %1, and the tests are run with %2").arg(port).arg(bench.port()));
    bench.connect();
}
} // namespace

Area announcementTests()
{
    return {
        "announcement",
        {
            {101, "it announces itself", "listens on UDP port 4809 to both groups",
             "a PLoc within --timeout: consoles find servers by it", isAnnounced},
            {102, "every console hears it", "listens to 224.0.0.180 and 239.224.0.180",
             "a PLoc on 224.0.0.180, the only group of many consoles, and on 239.224.0.180, which some switches pass "
             "on alone (a warning)",
             isOnTheOldGroup},
            {103, "it announces itself regularly", "compares the times of the announcements",
             "at most 5 s between two: a console that is started must find the server soon", comesRegularly},
            {104, "it does not flood the groups", "counts the announcements for --timeout",
             "at most 20 in each group within a second: every device of the network has to read them", doesNotFlood},
            {105, "its announcement has the right layout", "reads each PLoc field by field",
             "the header's version and size, port, and three texts with terminators: consoles read no further",
             hasItsLayout},
            {106, "it calls itself a media server", "reads the type in the PLoc",
             "MediaServer: consoles connect to no other type", isAMediaServer},
            {107, "it has a name", "reads the name in the PLoc",
             "a text without control characters: operators choose by it", hasAName},
            {108, "it tells its state", "reads the state in the PLoc", "a text such as Running: consoles show it",
             saysItsState},
            {109, "it announces a port", "reads the port in the PLoc",
             "not 0: consoles connect to this port, and to none with port 0", hasAPort},
            {110, "its announcements are the same", "compares port and name in the announcements",
             "one port and name: a console takes each other port for another server", staysTheSame},
            {111, "the announced port accepts connections",
             "compares the port in the PLoc with that of the tests, opens a TCP connection",
             "accepted within --timeout: this is how consoles talk to it", isReachable},
        },
    };
}
} // namespace Console::ServerTests

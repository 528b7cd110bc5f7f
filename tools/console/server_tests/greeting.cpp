// Tests of the greeting: PNam, CInf, SPtc and the SInf that answers them.
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "../printing.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
void expectInformation(Bench& bench, Probe& probe, const QString& what)
{
    if (probe.next("SInf").isEmpty())
        fail(QString("%1 is not answered with an SInf within %2%3")
                 .arg(what, secondsText(bench.timeoutMs()), probe.endText()));
}

// Sends the messages one after the other.
void greetInOrder(Bench& bench, const QList<QByteArray>& messages, const QString& order)
{
    const std::unique_ptr<Probe> probe = bench.connect();
    for (const QByteArray& message : messages) {
        probe->send(message);
        probe->wait(0);
    }
    expectInformation(bench, *probe, order);
}

void answersAConsole(Bench& bench)
{
    greetInOrder(bench, {peerName(), clientInformation(), patchRequest()}, "PNam, CInf, SPtc");
}

void answersClientFirst(Bench& bench)
{
    greetInOrder(bench, {clientInformation(), peerName(), patchRequest()}, "CInf, PNam, SPtc");
}

void answersPatchFirst(Bench& bench)
{
    greetInOrder(bench, {patchRequest(), peerName(), clientInformation()}, "SPtc, PNam, CInf");
}

void answersWithoutName(Bench& bench)
{
    greetInOrder(bench, {clientInformation()}, "a CInf alone");
}

void answersSingleBytes(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.connect();
    probe->sendInPieces(peerName() + clientInformation() + patchRequest(), 1);
    expectInformation(bench, *probe, "a greeting in single bytes");
}

void answersSplitHeader(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.connect();
    const QByteArray greeting = peerName() + clientInformation();
    // Each piece ends in the middle of a header.
    probe->sendInPieces(greeting, static_cast<int>(peerName().size()) + 10);
    expectInformation(bench, *probe, "a greeting that is split within a header");
}

void answersOneSegment(Bench& bench)
{
    bench.greet();
}

void answersAgain(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->send(clientInformation());
    probe->next("SInf", qMin(bench.timeoutMs(), 500));
    probe->send(librariesRequest(bench.minor(), 1));
    expect(!probe->next("ELIn").isEmpty(),
           QString("after a second CInf, no ELIn answers a GELI%1").arg(probe->endText()));
}

void informationComesFirst(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.connect();
    probe->wait(50);
    probe->send(peerName() + clientInformation());
    expect(!probe->next("SInf").isEmpty(), "no SInf answers the greeting" + probe->endText());
    for (std::size_t i = 0; i < probe->before(); ++i) {
        // PNam is the server's own greeting.
        const QByteArray code = codeOf(probe->received().at(i));
        if (code == "LSta" || code == "ELUp")
            fail(QString("a %1 precedes the SInf").arg(QString::fromLatin1(code)));
    }
}

void answersAtOnce(Bench& bench)
{
    QElapsedTimer timer;
    timer.start();
    bench.greet();
    bench.measure("ms from connecting to the SInf", static_cast<int>(timer.elapsed()));
    expect(timer.elapsed() < bench.timeoutMs() / 2,
           QString("the SInf came after %1").arg(secondsText(timer.elapsed())));
}
} // namespace

Area greetingTests()
{
    return {
        "greeting",
        {
            {201, "it answers a console", "sends PNam, CInf, SPtc, as consoles do",
             "an SInf: without it, a console does not take the server for up", answersAConsole},
            {202, "the CInf may come before the PNam", "sends CInf, PNam, SPtc",
             "an SInf: the messages do not depend on each other", answersClientFirst},
            {203, "the SPtc may come first", "sends SPtc, PNam, CInf",
             "an SInf: the messages do not depend on each other", answersPatchFirst},
            {204, "a console need not have a name", "sends CInf alone", "an SInf: only the CInf asks for it",
             answersWithoutName},
            {205, "the greeting may come in single bytes", "sends each byte in a segment of its own",
             "an SInf: TCP is a stream of bytes, and segments mean nothing", answersSingleBytes},
            {206, "the greeting may be split in a header", "splits PNam and CInf within the header of the CInf",
             "an SInf: a server that reads the size too early loses the message", answersSplitHeader},
            {207, "the greeting may come at once", "sends PNam, CInf, SPtc in one segment",
             "an SInf: a server must look for further messages in what it has read", answersOneSegment},
            {208, "a second CInf does no harm", "sends CInf twice, then a GELI", "an ELIn: consoles may greet again",
             answersAgain},
            {209, "the SInf comes before layers and updates", "connects, waits, sends PNam, CInf",
             "neither LSta nor ELUp before the SInf: a console does not know the layers yet", informationComesFirst},
            {210, "it answers soon", "measures the time to the SInf",
             "within half of --timeout: consoles give up at some time", answersAtOnce},
        },
    };
}
} // namespace Console::ServerTests

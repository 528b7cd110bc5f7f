// Tests of requests under way, of consoles that are slow, leave, come back or come twice, of silence, and of unknown
// messages.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_header.h>

#include "../printing.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
// What consoles have under way at most.
constexpr int UsualAtOnce = 8;
constexpr int ManyAtOnce = 64;
const QSize Page(160, 120);

// Sends as many requests at once and counts the answers.
int answersToAtOnce(Bench& bench, const QByteArray& request, const char* code, int count)
{
    Probe& probe = bench.console();
    probe.clear();
    QByteArray requests;
    for (int i = 0; i < count; ++i)
        requests += request;
    probe.send(requests);
    int answers = 0;
    while (answers < count && !probe.next(code).isEmpty())
        ++answers;
    return answers;
}

// Doubles the number of requests under way up to @p most, as long as none is lost.
void countsUnderWay(Bench& bench, const QByteArray& request, const char* code, int most)
{
    int good = 0;
    QString loss;
    for (int count = 1; count <= most && loss.isEmpty(); count *= 2) {
        const int answers = answersToAtOnce(bench, request, code, count);
        if (answers < count)
            loss = QString("of %1 requests under way, %2 are answered").arg(count).arg(answers);
        else
            good = count;
    }
    bench.measure(QString("%1 under way without loss").arg(QString::fromLatin1(codeOf(request))), good);
    expect(good >= qMin(2, most), loss);
    if (!loss.isEmpty())
        bench.warn(loss);
}

QByteArray requestForElements(Bench& bench)
{
    QString library;
    knownElements(bench, 1, library);
    return elementsRequest(bench.minor(), 1, library);
}

QByteArray requestForPicture(Bench& bench)
{
    QString library;
    const QJsonArray elements = knownElements(bench, 1, library);
    const auto number = static_cast<unsigned char>(elements.first().toObject().value("element").toInt());
    return picturesRequest(bench.minor(), 1, library, {number}, Page, "JPEG");
}

void listsUnderWay(Bench& bench)
{
    countsUnderWay(bench, librariesRequest(bench.minor(), 1), "ELIn", UsualAtOnce);
}

void elementsUnderWay(Bench& bench)
{
    countsUnderWay(bench, requestForElements(bench), "MEIn", UsualAtOnce);
}

void picturesUnderWay(Bench& bench)
{
    countsUnderWay(bench, requestForPicture(bench), "EThn", UsualAtOnce);
}

void manyUnderWay(Bench& bench)
{
    countsUnderWay(bench, requestForElements(bench), "MEIn", ManyAtOnce);
    countsUnderWay(bench, requestForPicture(bench), "EThn", ManyAtOnce);
}

void mixedUnderWay(Bench& bench)
{
    const QByteArray requests =
        requestForPicture(bench) + requestForElements(bench) + librariesRequest(bench.minor(), 1);
    Probe& probe = bench.console();
    probe.clear();
    probe.send(requests);
    for (const char* const code : {"EThn", "MEIn", "ELIn"})
        expect(!probe.next(code).isEmpty(),
               QString("of a GETh, a GEIn and a GELI sent at once, no %1 comes%2").arg(code, probe.endText()));
}

// Whether the server answers a request on @p probe.
void expectAnswer(Bench& bench, Probe& probe, const QString& when)
{
    probe.send(librariesRequest(bench.minor(), 1));
    expect(!probe.next("ELIn").isEmpty(), QString("%1, no ELIn answers a GELI%2").arg(when, probe.endText()));
}

void readsSplitRequests(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->sendInPieces(librariesRequest(bench.minor(), 1), 1);
    expect(!probe->next("ELIn").isEmpty(), "no ELIn answers a GELI in single bytes" + probe->endText());
}

void waitsForAConsole(Bench& bench)
{
    QString library;
    const QJsonArray elements = knownElements(bench, 1, library);
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->setReading(false);
    // Uncompressed, as much as a page of pictures of a console.
    std::vector<unsigned char> numbers;
    for (const QJsonValue element : elements)
        numbers.push_back(static_cast<unsigned char>(element.toObject().value("element").toInt()));
    probe->send(picturesRequest(bench.minor(), 1, library, numbers, Page, "RGB8"));
    probe->wait(1000);
    probe->setReading(true);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        expect(!probe->next("EThn").isEmpty(),
               QString("a console that did not read for a second gets %1 of %2 pictures%3")
                   .arg(i)
                   .arg(numbers.size())
                   .arg(probe->endText()));
}

void outlivesAReset(Bench& bench)
{
    const QByteArray request = requestForElements(bench);
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->send(request);
    probe->reset();
    bench.greet();
}

void outlivesAnUnfinishedMessage(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->sendInPieces(librariesRequest(bench.minor(), 1).left(22), 22);
    probe->reset();
    bench.greet();
}

void welcomesAgain(Bench& bench)
{
    for (int i = 0; i < 3; ++i) {
        const std::unique_ptr<Probe> probe = bench.greet();
        expectAnswer(bench, *probe, "after coming back");
    }
}

void servesTwo(Bench& bench)
{
    const std::unique_ptr<Probe> first = bench.greet();
    const std::unique_ptr<Probe> second = bench.greet();
    expectAnswer(bench, *second, "while another console is connected");
}

void keepsTheFirst(Bench& bench)
{
    const std::unique_ptr<Probe> first = bench.greet();
    const std::unique_ptr<Probe> second = bench.greet();
    expectAnswer(bench, *first, "after another console has connected");
}

void endureSilence(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.greet();
    const WaitLine waiting(QString("sending nothing for %1").arg(secondsText(bench.silenceMs())));
    probe->wait(bench.silenceMs());
    expect(probe->isOpen(), QString("no message for %1%2").arg(secondsText(bench.silenceMs()), probe->endText()));
    expectAnswer(bench, *probe, QString("after %1 without a message").arg(secondsText(bench.silenceMs())));
}

void endureSilenceBeforeTheGreeting(Bench& bench)
{
    const std::unique_ptr<Probe> probe = bench.connect();
    probe->wait(qMin(2000, bench.silenceMs()));
    probe->send(peerName() + clientInformation());
    expect(!probe->next("SInf").isEmpty(), "a greeting that comes late is not answered" + probe->endText());
}

// A message of 26 bytes.
QByteArray message(const char* layer, int minor, const char* code)
{
    QByteArray bytes = librariesRequest(0, 1).left(26);
    bytes.replace(16, 4, layer);
    bytes[21] = static_cast<char>(minor);
    bytes.replace(22, 4, code);
    CITP::Msg_Header::setSize(bytes);
    return bytes;
}

void passesOver(Bench& bench, const QByteArray& unknown, const QString& what)
{
    const std::unique_ptr<Probe> probe = bench.greet();
    probe->send(unknown);
    expectAnswer(bench, *probe, "after " + what);
}

void passesOverUnknownCodes(Bench& bench)
{
    passesOver(bench, message("MSEX", 2, "AbCd"), "an MSEX message of an unknown kind");
}

void passesOverUnknownLayers(Bench& bench)
{
    passesOver(bench, message("ABCD", 2, "AbCd"), "a message of an unknown layer");
}

void passesOverNewVersions(Bench& bench)
{
    QByteArray request = librariesRequest(2, 1);
    request[21] = 9;
    passesOver(bench, request, "a GELI in MSEX 1.9");
}

void passesOverHints(Bench& bench)
{
    QByteArray longer = clientInformation() + "++++";
    CITP::Msg_Header::setSize(longer);
    const std::unique_ptr<Probe> probe = bench.connect();
    probe->send(peerName() + longer);
    expect(!probe->next("SInf").isEmpty(),
           "a CInf with bytes behind its last field is not answered with an SInf" + probe->endText());
}

void passesOverAnnouncements(Bench& bench)
{
    QByteArray announcement = peerName().left(24);
    announcement.replace(20, 4, "PLoc");
    announcement += QByteArray("\0\0LightingConsole\0Console\0Running\0", 34);
    CITP::Msg_Header::setSize(announcement);
    passesOver(bench, announcement, "a PLoc on the connection");
}
} // namespace

Area connectionTests()
{
    return {
        "connections",
        {
            {901, "requests for libraries may be under way together", "sends 1, 2, 4 and 8 GELI at once",
             "an ELIn for each of at least two (a warning: of 8): the report says how many were under way without loss",
             listsUnderWay},
            {902, "requests for elements may be under way together", "sends 1, 2, 4 and 8 GEIn at once",
             "a MEIn for each of at least two (a warning: of 8): the report says how many were under way without loss",
             elementsUnderWay},
            {903, "requests for pictures may be under way together", "sends 1, 2, 4 and 8 GETh at once",
             "an EThn for each of at least two (a warning: of 8): the report says how many were under way without loss",
             picturesUnderWay},
            {904, "requests of different kinds may be under way together", "sends a GETh, a GEIn and a GELI at once",
             "an EThn, a MEIn and an ELIn: consoles ask while pictures come", mixedUnderWay},
            {905, "many requests may be under way together", "sends up to 64 GEIn and up to 64 GETh at once",
             "an answer to each of at least two (a warning: of 64): the report says how many were under way without "
             "loss",
             manyUnderWay, TestCase::NeedsLoad},
            {911, "a request may come in single bytes", "sends each byte of a GELI in a segment of its own",
             "an ELIn: TCP is a stream of bytes, and segments mean nothing", readsSplitRequests},
            {912, "it waits for a console that does not read", "requests pictures, reads nothing for a second",
             "all pictures afterwards: consoles are busy at times", waitsForAConsole},
            {913, "it outlives a console that resets the connection",
             "resets the connection after a GEIn, greets again", "an SInf on the new connection: cables are pulled",
             outlivesAReset},
            {914, "it outlives a message that is not finished", "sends 22 bytes of a GELI, resets, greets again",
             "an SInf on the new connection: cables are pulled", outlivesAnUnfinishedMessage},
            {915, "a console may come back", "connects, greets and asks three times, one after the other",
             "an SInf and an ELIn each time: consoles are restarted", welcomesAgain},
            {916, "two consoles are served", "greets on two connections, asks on the second",
             "an SInf on both and an ELIn: shows have a backup console", servesTwo},
            {917, "the first console stays connected", "greets on two connections, asks on the first",
             "an ELIn: shows have a backup console", keepsTheFirst},
            {921, "it endures silence", "greets, sends nothing for --silence, asks",
             "the connection stays open, and an ELIn: consoles say nothing while nothing changes", endureSilence},
            {922, "the greeting may come late", "connects, sends nothing for 2 s, greets",
             "an SInf: busy consoles greet late", endureSilenceBeforeTheGreeting},
            {931, "it passes over unknown messages", "sends an MSEX message with the content code AbCd, asks",
             "an ELIn on the same connection: newer consoles send more kinds", passesOverUnknownCodes},
            {932, "it passes over unknown layers", "sends a message with the content type ABCD, asks",
             "an ELIn on the same connection: consoles speak other layers of CITP, too", passesOverUnknownLayers},
            {933, "it passes over newer versions", "sends a GELI of MSEX 1.9, asks",
             "an ELIn on the same connection: newer consoles may try", passesOverNewVersions},
            {934, "it passes over bytes behind the last field", "sends PNam and a CInf that is 4 bytes longer",
             "an SInf: newer versions may append fields", passesOverHints},
            {935, "it passes over announcements on the connection", "sends a PLoc on the connection, asks",
             "an ELIn on the same connection: some consoles announce themselves there", passesOverAnnouncements},
        },
    };
}
} // namespace Console::ServerTests

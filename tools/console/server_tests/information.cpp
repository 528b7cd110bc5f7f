// Tests of the server information (SInf) against what the server does.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_sinf.h>

#include <QUuid>
#include <algorithm>

#include "../printing.h"
#include "framework.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
CITP::Msg_MSEX_SINF informationOf(Bench& bench)
{
    const CITP::Msg_MSEX_SINF message(bench.information());
    if (!message.valid || message.versionMajor != 1 || message.versionMinor > 2)
        notRun("the SInf is not readable, see test 301");
    return message;
}

// Of tests of fields that exist since MSEX 1.2.
CITP::Msg_MSEX_SINF newInformationOf(Bench& bench)
{
    const CITP::Msg_MSEX_SINF message = informationOf(bench);
    if (message.versionMinor < 2)
        notRun("the field exists since MSEX 1.2");
    return message;
}

void hasAKnownVersion(Bench& bench)
{
    const CITP::Msg_MSEX message(bench.information());
    expect(message.valid, "the CITP header of the SInf is wrong");
    expect(message.versionMajor == 1 && message.versionMinor <= 2,
           QString("the SInf is of MSEX %1.%2").arg(message.versionMajor).arg(message.versionMinor));
}

void informationHasItsLayout(Bench& bench)
{
    informationOf(bench);
    const LayoutProblem problem = layoutProblem(bench.information());
    expect(problem.text.isEmpty() || problem.isTrailing, problem.text);
    if (problem.isTrailing)
        bench.warn(problem.text);
}

void hasAProduct(Bench& bench)
{
    const QString product = informationOf(bench).ProductName;
    expect(!product.trimmed().isEmpty(), "the product name is empty");
    expect(escapeControls(product) == product, "the product name contains control characters");
}

void listsItsVersion(Bench& bench)
{
    const CITP::Msg_MSEX_SINF message = newInformationOf(bench);
    const auto& versions = message.SupportedMsexVersions;
    expect(!versions.empty(), "the list of MSEX versions is empty");
    const auto own = static_cast<unsigned short>(0x0100 + message.versionMinor);
    expect(std::find(versions.begin(), versions.end(), own) != versions.end(),
           QString("the SInf is of MSEX 1.%1 and does not list this version").arg(message.versionMinor));
}

void answersInItsVersions(Bench& bench)
{
    informationOf(bench);
    const QByteArray answer = bench.ask(librariesRequest(bench.minor(), 1), "ELIn");
    const int minor = CITP::Msg_MSEX(answer).versionMinor;
    expect(minor == bench.minor(), QString("a request in MSEX 1.%1 is answered in 1.%2").arg(bench.minor()).arg(minor));
}

void hasItsTypes(Bench& bench)
{
    newInformationOf(bench);
    for (const int type : libraryTypes(bench)) {
        const QJsonArray libraries =
            bench.askFields(librariesRequest(bench.minor(), type), "ELIn").value("libraries").toArray();
        expect(!libraries.isEmpty(), QString("it lists libraries of type %1 and has none").arg(type));
    }
}

void listsFormats(Bench& bench)
{
    const CITP::Msg_MSEX_SINF message = newInformationOf(bench);
    expect(!message.ThumbnailFormats.empty(), "the list of picture formats is empty");
}

void hasAUuid(Bench& bench)
{
    const QString uuid = newInformationOf(bench).UUID;
    expect(!QUuid(uuid).isNull(), QString("'%1' is not a UUID").arg(uuid));
}

void repeatsItself(Bench& bench)
{
    const QByteArray first = bench.information();
    QByteArray second;
    const std::unique_ptr<Probe> probe = bench.greet(&second);
    expect(first.mid(20) == second.mid(20), "two connections get different SInf");
}

void countsItsLayers(Bench& bench)
{
    const int layers = layersListed(bench);
    const QByteArray status = bench.console().next("LSta", qMin(bench.timeoutMs(), 2000));
    if (status.isEmpty())
        notRun("no layer status came; let it play something");
    const int shown = entriesIn(status);
    if (shown < 0)
        notRun("the layer status is not readable, see test 803");
    bench.measure("layers", layers);
    expect(shown <= layers, QString("the SInf lists %1 layers, and a layer status has %2").arg(layers).arg(shown));
    expect(shown == layers, QString("the SInf lists %1 layers, and a layer status only %2").arg(layers).arg(shown));
}
} // namespace

Area informationTests()
{
    return {
        "information",
        {
            {301, "the SInf is of a known version", "greets, reads the MSEX version of the SInf",
             "1.0, 1.1 or 1.2: the console offers these in its CInf", hasAKnownVersion},
            {302, "the SInf has the right layout", "reads the SInf field by field",
             "texts with terminators and as many layers as counted: a console shows what it reads",
             informationHasItsLayout},
            {303, "it names its product", "reads the product name in the SInf",
             "a text without control characters: consoles show it and treat some products specially", hasAProduct},
            {304, "it lists its own version", "reads the MSEX versions in the SInf",
             "the version of the SInf itself among them: consoles choose from the list", listsItsVersion},
            {305, "it answers in every version that it lists", "sends a GELI in each of these versions",
             "an ELIn in the version of the request: its layout depends on it", answersInItsVersions,
             TestCase::EachVersion},
            {306, "it has libraries of every type that it lists", "sends a GELI for each library type in the SInf",
             "an ELIn with libraries: consoles show a page for each type", hasItsTypes, TestCase::EachVersion},
            {307, "it lists picture formats", "reads the formats in the SInf",
             "at least one: consoles choose from them", listsFormats},
            {308, "it has a UUID", "reads the UUID in the SInf",
             "36 characters such as 5f0c2f4e-4a0c-4c7e-9a55-0d5b6f1c7a31: it tells servers with several addresses "
             "apart",
             hasAUuid},
            {309, "it tells every console the same", "connects twice, compares the SInf",
             "no difference: consoles keep what they know of a server", repeatsItself},
            {310, "the SInf lists the layers that exist", "compares the SInf with a layer status",
             "the same number of layers: consoles patch the layers of the SInf", countsItsLayers},
        },
    };
}
} // namespace Console::ServerTests

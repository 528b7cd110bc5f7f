// Tests of the layer status (LSta) and of updates of libraries (ELUp).
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/values.h>

#include <QElapsedTimer>
#include <QMap>
#include <QSet>
#include <algorithm>

#include "../decode/message_fields.h"
#include "../printing.h"
#include "framework.h"
#include "layouts.h"

namespace Console::ServerTests {
namespace {
// Several messages of a server that sends a few in a second.
constexpr int ListenMs = 300;
constexpr int SecondMs = 1000;
constexpr int MostStatusMessages = 70;
constexpr int MostUpdates = 100;
// The flags that consoles know, one bit each.
constexpr quint32 KnownFlags = 0x3F;

// The first layer status that comes, and those in the time after it.
std::vector<QByteArray> statusMessages(Bench& bench, int milliseconds = ListenMs, qint64* took = nullptr)
{
    Probe& probe = bench.console();
    probe.clear();
    QElapsedTimer timer;
    timer.start();
    const QByteArray first = probe.next("LSta");
    if (first.isEmpty())
        notRun(QString("no layer status came within %1; let it play something").arg(secondsText(bench.timeoutMs())));
    probe.wait(milliseconds);
    if (took)
        *took = timer.elapsed();
    std::vector<QByteArray> messages{first};
    for (const QByteArray& message : probe.received()) {
        if (codeOf(message) == "LSta")
            messages.push_back(message);
    }
    return messages;
}

QJsonArray layersIn(const QByteArray& message)
{
    return fieldsOf(message).value("layers").toArray();
}

QString layerText(const QJsonObject& layer)
{
    return QString("layer %1").arg(layer.value("layer").toInt());
}

template <typename Check>
void forEachLayer(Bench& bench, const Check& check)
{
    for (const QByteArray& message : statusMessages(bench)) {
        for (const QJsonValue layer : layersIn(message))
            check(layer.toObject());
    }
}

void doesNotComeTooOften(Bench& bench)
{
    qint64 took = 0;
    const auto count = static_cast<qint64>(statusMessages(bench, SecondMs, &took).size());
    // A busy machine makes it more than a second.
    const auto rate = static_cast<int>(count * SecondMs / took);
    bench.measure("layer status messages within a second", rate);
    expect(rate <= MostStatusMessages, QString("%1 layer status messages come within a second").arg(rate));
}

void hasAReadableVersion(Bench& bench)
{
    const CITP::Msg_MSEX message(statusMessages(bench).front());
    expect(message.versionMajor == 1 && (message.versionMinor == 0 || message.versionMinor == 2),
           QString("the layer status is of MSEX %1.%2").arg(message.versionMajor).arg(message.versionMinor));
}

void hasLayersWhole(Bench& bench)
{
    for (const QByteArray& message : statusMessages(bench)) {
        const LayoutProblem problem = layoutProblem(message);
        expect(problem.text.isEmpty() || problem.isTrailing, problem.text);
    }
}

void showsAllLayers(Bench& bench)
{
    const int listed = layersListed(bench);
    for (const QByteArray& message : statusMessages(bench)) {
        const auto shown = static_cast<int>(layersIn(message).size());
        expect(shown >= listed, QString("the SInf lists %1 layers, and a layer status has %2").arg(listed).arg(shown));
    }
}

void numbersItsLayers(Bench& bench)
{
    const int layers = layersListed(bench);
    forEachLayer(bench, [&](const QJsonObject& layer) {
        expect(layer.value("layer").toInt() < layers,
               QString("%1 is shown, and the SInf lists %2 layers, which are numbered from 0")
                   .arg(layerText(layer))
                   .arg(layers));
    });
}

void showsEachLayerOnce(Bench& bench)
{
    for (const QByteArray& message : statusMessages(bench)) {
        QSet<int> numbers;
        for (const QJsonValue layer : layersIn(message)) {
            const int number = layer.toObject().value("layer").toInt();
            expect(!numbers.contains(number), QString("a layer status has layer %1 twice").arg(number));
            numbers.insert(number);
        }
    }
}

void staysWithinTheClip(Bench& bench)
{
    forEachLayer(bench, [](const QJsonObject& layer) {
        const double position = layer.value("position").toDouble();
        const double length = layer.value("length").toDouble();
        expect(position <= length || length == 0,
               QString("%1 is at frame %2 of %3").arg(layerText(layer)).arg(position).arg(length));
    });
}

void playsAtARate(Bench& bench)
{
    forEachLayer(bench, [](const QJsonObject& layer) {
        const bool isPlaying = (layer.value("flags").toInt() & 1) != 0 && layer.value("length").toDouble() > 1;
        expect(!isPlaying || layer.value("frameRate").toInt() > 0,
               QString("%1 plays with 0 frames a second").arg(layerText(layer)));
    });
}

void setsKnownFlags(Bench& bench)
{
    forEachLayer(bench, [](const QJsonObject& layer) {
        const auto flags = static_cast<quint32>(layer.value("flags").toDouble());
        expect((flags & ~KnownFlags) == 0, QString("the flags of %1 are 0x%2").arg(layerText(layer)).arg(flags, 0, 16));
    });
}

// The libraries and elements that playing layers name, with a name of each element.
QMap<QPair<QString, int>, QString> elementsPlayed(Bench& bench)
{
    QMap<QPair<QString, int>, QString> played;
    forEachLayer(bench, [&](const QJsonObject& layer) {
        if ((layer.value("flags").toInt() & 1) != 0 && layer.value("type").toInt(1) <= 1)
            played.insert({layer.value("library").toString(), layer.value("element").toInt()},
                          layer.value("name").toString());
    });
    if (played.isEmpty())
        notRun("no layer plays");
    return played;
}

QJsonArray elementsOfLibrary(Bench& bench, const QString& library)
{
    const int minor = library.contains(',') ? qMax(1, bench.minor()) : 0;
    return bench.askFields(elementsRequest(minor, 1, library), "MEIn").value("elements").toArray();
}

void playsFromLibraries(Bench& bench)
{
    const QMap<QPair<QString, int>, QString> played = elementsPlayed(bench);
    for (auto one = played.begin(); one != played.end(); ++one)
        expect(!elementsOfLibrary(bench, one.key().first).isEmpty(),
               QString("a layer plays from library %1, which has no elements").arg(one.key().first));
}

// The name of the element in the list of its library; "not run" if that is missing.
QString listedName(Bench& bench, const QString& library, int element, bool& isListed)
{
    isListed = false;
    for (const QJsonValue value : elementsOfLibrary(bench, library)) {
        if (value.toObject().value("element").toInt() == element) {
            isListed = true;
            return value.toObject().value("name").toString();
        }
    }
    return {};
}

void playsElements(Bench& bench)
{
    const QMap<QPair<QString, int>, QString> played = elementsPlayed(bench);
    for (auto one = played.begin(); one != played.end(); ++one) {
        bool isListed = false;
        listedName(bench, one.key().first, one.key().second, isListed);
        expect(isListed, QString("a layer plays element %1 of library %2, which does not list it")
                             .arg(one.key().second)
                             .arg(one.key().first));
    }
}

void namesItsElements(Bench& bench)
{
    const QMap<QPair<QString, int>, QString> played = elementsPlayed(bench);
    for (auto one = played.begin(); one != played.end(); ++one) {
        bool isListed = false;
        const QString name = listedName(bench, one.key().first, one.key().second, isListed);
        expect(!isListed || name == *one, QString("a layer plays '%1', and the library calls it '%2'").arg(*one, name));
    }
}

void tellsOfChanges(Bench& bench)
{
    const QJsonArray before = knownLibraries(bench, 1);
    printLine(QString("change a media library of the server now, for example add a clip; waiting %1")
                  .arg(secondsText(bench.silenceMs())));
    Probe& probe = bench.console();
    QByteArray update;
    bool isChanged = false;
    QElapsedTimer timer;
    timer.start();
    while (update.isEmpty() && !isChanged && timer.elapsed() < bench.silenceMs()) {
        update = probe.next("ELUp", SecondMs);
        probe.send(librariesRequest(bench.minor(), 1));
        const QByteArray list = probe.next("ELIn");
        expect(!list.isEmpty(), "no ELIn answers a GELI" + probe.endText());
        isChanged = fieldsOf(list).value("libraries").toArray() != before;
    }
    if (update.isEmpty() && !isChanged)
        notRun("nothing was changed");
    if (update.isEmpty())
        update = probe.next("ELUp");
    expect(!update.isEmpty(), "a library has changed, and no ELUp came");
    QSet<QString> told;
    for (int i = 0; i < MostUpdates && !update.isEmpty(); ++i) {
        const LayoutProblem problem = layoutProblem(update);
        expect(problem.text.isEmpty(), problem.text);
        told.insert(CITP::libraryId(fieldsOf(update).value("library").toString(), static_cast<quint8>(bench.minor())));
        update = probe.next("ELUp", SecondMs);
    }
    QMap<QString, int> counts;
    for (const QJsonValue library : before)
        counts.insert(library.toObject().value("library").toString(), library.toObject().value("elements").toInt());
    for (const QJsonValue library : knownLibraries(bench, 1)) {
        const QString id = library.toObject().value("library").toString();
        const int count = library.toObject().value("elements").toInt();
        expect(told.contains(id) || counts.value(id, count) == count,
               QString("library %1 has %2 elements instead of %3, and no ELUp names it")
                   .arg(id)
                   .arg(count)
                   .arg(counts.value(id)));
    }
}
} // namespace

Area layerTests()
{
    return {
        "layers",
        {
            {801, "layer status does not come too often", "counts the LSta messages of a second",
             "at most 70: more than a frame rate only costs time", doesNotComeTooOften},
            {802, "the layer status is of a known version", "reads the MSEX version of an LSta",
             "1.0 or 1.2: 1.1 defines no layout for it, and consoles drop others", hasAReadableVersion},
            {803, "the layer status has the right layout", "reads each LSta field by field",
             "as many layers as counted and all fields whole: consoles show what they read", hasLayersWhole},
            {804, "all layers are shown", "compares each LSta with the SInf",
             "the layers that the SInf lists: consoles take missing ones for unknown", showsAllLayers},
            {805, "layers have the numbers of the SInf", "reads the layer numbers in each LSta",
             "0 to one less than the SInf lists: consoles patch these", numbersItsLayers},
            {806, "no layer is shown twice", "reads the layer numbers in each LSta",
             "each number once: consoles show the last one, or jump between them", showsEachLayerOnce},
            {807, "the position is within the clip", "reads position and length in each LSta",
             "a position up to the length: consoles compute the remaining time", staysWithinTheClip},
            {808, "what plays has a frame rate", "reads frame rate and flags in each LSta",
             "above 0 for clips that play: consoles compute times with it", playsAtARate},
            {809, "the flags are known", "reads the flags in each LSta",
             "bits 0 to 5 at most: consoles show states by them", setsKnownFlags},
            {810, "the libraries that play exist", "sends a GEIn for each library that a layer names",
             "a MEIn with elements: consoles show the picture of what plays", playsFromLibraries},
            {811, "the elements that play exist", "sends a GEIn for each library that a layer names",
             "the element of the LSta in the MEIn: consoles show the picture of what plays", playsElements},
            {812, "what plays has the name in the library", "sends a GEIn for each library that a layer names",
             "the name of the LSta in the MEIn: operators know it by that name", namesItsElements},
            {821, "it tells of changes", "asks the operator to change a media library, and waits for --silence",
             "an ELUp that names each library whose number of elements has changed: consoles ask again only for these",
             tellsOfChanges, TestCase::NeedsOperator},
        },
    };
}
} // namespace Console::ServerTests

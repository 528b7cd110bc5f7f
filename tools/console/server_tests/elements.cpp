// Tests of the lists of elements (MEIn, EEIn and GLEI).
// SPDX-License-Identifier: Apache-2.0
#include <QDateTime>
#include <QSet>

#include "../printing.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
// 1990; what is earlier is not a date.
constexpr qint64 EarliestTime = 631152000;
constexpr qint64 YearSeconds = 31622400;

// A list of elements of one type, and its library.
struct ElementList
{
    int type;
    QString library;
    QJsonArray elements;
};

// One list of each type that the server has.
std::vector<ElementList> listsOfAllTypes(Bench& bench)
{
    std::vector<ElementList> lists;
    QString why;
    for (const int type : libraryTypes(bench)) {
        try {
            ElementList list{type, {}, {}};
            list.elements = knownElements(bench, type, list.library);
            lists.push_back(list);
        } catch (const Finding& finding) {
            why = finding.text;
        }
    }
    if (lists.empty())
        notRun(why);
    return lists;
}

QJsonArray elementsOf(Bench& bench, int type, const QString& library, const std::vector<unsigned char>& numbers = {})
{
    return bench.askFields(elementsRequest(bench.minor(), type, library, numbers), elementsCode(type))
        .value("elements")
        .toArray();
}

int elementNumber(const QJsonValue& element)
{
    return element.toObject().value("element").toInt();
}

void listsElementsOf(Bench& bench, int type)
{
    for (const QJsonValue known : knownLibraries(bench, type)) {
        const QJsonObject library = known.toObject();
        if (library.value("elements").toInt() == 0)
            continue;
        const QString id = library.value("library").toString();
        expect(!elementsOf(bench, type, id).isEmpty(),
               QString("the list of the elements of library %1 is empty").arg(id));
        return;
    }
    notRun(QString("there is no top-level library of type %1 that has elements").arg(type));
}

void listsMedia(Bench& bench)
{
    listsElementsOf(bench, 1);
}

void listsEffects(Bench& bench)
{
    listsElementsOf(bench, 2);
}

void listsGeneric(Bench& bench)
{
    if (bench.minor() == 0)
        notRun("MSEX 1.0 has no message for them");
    listsElementsOf(bench, 3);
}

void answersWithTheRightKind(Bench& bench)
{
    for (const int type : libraryTypes(bench)) {
        const QJsonArray libraries = knownLibraries(bench, type);
        if (libraries.isEmpty())
            continue;
        Probe& probe = bench.console();
        probe.clear();
        const QString id = libraries.first().toObject().value("library").toString();
        probe.send(elementsRequest(bench.minor(), type, id) + librariesRequest(bench.minor(), 1));
        probe.next("ELIn");
        for (const QByteArray& message : probe.received()) {
            static const QSet<QByteArray> kinds{"MEIn", "EEIn", "GLEI"};
            const QByteArray code = codeOf(message);
            expect(!kinds.contains(code) || code == elementsCode(type),
                   QString("elements of type %1 come in a %2").arg(type).arg(QString::fromLatin1(code)));
        }
    }
}

void namesTheLibrary(Bench& bench)
{
    for (const int type : libraryTypes(bench)) {
        for (const QJsonValue known : firstOf(knownLibraries(bench, type))) {
            const QString id = known.toObject().value("library").toString();
            const QString answered = bench.askFields(elementsRequest(bench.minor(), type, id), elementsCode(type))
                                         .value("library")
                                         .toString();
            expect(answered == id, QString("a GEIn for library %1 is answered with library %2").arg(id, answered));
        }
    }
}

void hasTheElementsCounted(Bench& bench)
{
    for (const int type : libraryTypes(bench)) {
        for (const QJsonValue known : firstOf(knownLibraries(bench, type))) {
            const QJsonObject library = known.toObject();
            const QString id = library.value("library").toString();
            const int told = library.value("elements").toInt();
            const auto found = static_cast<int>(elementsOf(bench, type, id).size());
            expect(told == found, QString("library %1 of type %2 is said to have %3 elements, and %4 are listed")
                                      .arg(id)
                                      .arg(type)
                                      .arg(told)
                                      .arg(found));
        }
    }
}

void hasNoTwinElements(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        QSet<int> numbers;
        for (const QJsonValue element : list.elements) {
            const int number = elementNumber(element);
            expect(!numbers.contains(number),
                   QString("library %1 lists element %2 twice").arg(list.library).arg(number));
            numbers.insert(number);
        }
    }
}

void hasElementNames(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        for (const QJsonValue element : list.elements) {
            const QString name = element.toObject().value("name").toString();
            expect(!name.isEmpty() && escapeControls(name) == name,
                   QString("the name of element %1 of library %2 is '%3'")
                       .arg(elementNumber(element))
                       .arg(list.library, name));
        }
    }
}

void hasElementRanges(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        for (const QJsonValue element : list.elements) {
            const int min = element.toObject().value("dmxMin").toInt();
            const int max = element.toObject().value("dmxMax").toInt();
            expect(min <= max, QString("the DMX values of element %1 of library %2 are %3 to %4")
                                   .arg(elementNumber(element))
                                   .arg(list.library)
                                   .arg(min)
                                   .arg(max));
        }
    }
}

void listsOneElement(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        const int number = elementNumber(list.elements.last());
        const QJsonArray found = elementsOf(bench, list.type, list.library, {static_cast<unsigned char>(number)});
        expect(found.size() == 1 && elementNumber(found.first()) == number,
               QString("a GEIn for element %1 of library %2 is answered with %3 elements")
                   .arg(number)
                   .arg(list.library)
                   .arg(found.size()));
    }
}

void listsSeveralElements(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        if (list.elements.size() < 2)
            continue;
        const QSet<int> asked{elementNumber(list.elements.first()), elementNumber(list.elements.last())};
        std::vector<unsigned char> numbers;
        for (const int number : asked)
            numbers.push_back(static_cast<unsigned char>(number));
        QSet<int> answered;
        for (const QJsonValue element : elementsOf(bench, list.type, list.library, numbers))
            answered.insert(elementNumber(element));
        expect(
            asked == answered,
            QString("a GEIn for 2 elements of library %1 is answered with %2").arg(list.library).arg(answered.size()));
    }
}

void listsNoUnknownElement(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        const unsigned char number = unusedElement(list.elements);
        const QJsonArray found = elementsOf(bench, list.type, list.library, {number});
        expect(found.isEmpty(),
               QString("a GEIn for element %1, which library %2 does not have, is answered with %3 elements")
                   .arg(number)
                   .arg(list.library)
                   .arg(found.size()));
    }
}

void listsNothingOfAnUnknownLibrary(Bench& bench)
{
    const QString id = unknownLibrary(bench, 1);
    const QJsonArray found = elementsOf(bench, 1, id);
    expect(found.isEmpty(), QString("library %1, which is not listed, has %2 elements").arg(id).arg(found.size()));
}

void describesItsMedia(Bench& bench)
{
    QString library;
    for (const QJsonValue value : knownElements(bench, 1, library)) {
        const QJsonObject element = value.toObject();
        const bool hasSize = element.value("width").toInt() > 0 && element.value("height").toInt() > 0;
        expect(hasSize,
               QString("element %1 of library %2 is 0 pixels wide or high").arg(elementNumber(value)).arg(library));
        if (element.value("length").toDouble() > 1)
            expect(element.value("frameRate").toInt() > 0,
                   QString("element %1 of library %2 plays 0 frames a second").arg(elementNumber(value)).arg(library));
    }
}

void datesItsElements(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench)) {
        for (const QJsonValue element : list.elements) {
            const qint64 time = element.toObject().value("timestamp").toString().toLongLong();
            const bool isPlausible = time >= EarliestTime && time < QDateTime::currentSecsSinceEpoch() + YearSeconds;
            expect(time == 0 || isPlausible, QString("the time of element %1 of library %2 is %3 seconds since 1970")
                                                 .arg(elementNumber(element))
                                                 .arg(list.library)
                                                 .arg(time));
        }
    }
}

void repeatsItsElements(Bench& bench)
{
    for (const ElementList& list : listsOfAllTypes(bench))
        expect(list.elements == elementsOf(bench, list.type, list.library),
               QString("a second list of the elements of library %1 differs from the first").arg(list.library));
}
} // namespace

Area elementTests()
{
    return {
        "elements",
        {
            {601, "it lists media", "sends a GEIn for the first media library that has elements",
             "a MEIn with elements: consoles show them", listsMedia, TestCase::EachVersion},
            {602, "it lists effects", "sends a GEIn for the first effect library that has elements",
             "an EEIn with elements: consoles show them", listsEffects, TestCase::EachVersion},
            {603, "it lists generic elements", "sends a GEIn for the first library of type 3 that has elements",
             "a GLEI with elements: consoles show them", listsGeneric, TestCase::EachVersion},
            {604, "each type comes in its own message", "sends a GEIn for a library of each type",
             "MEIn for media, EEIn for effects, GLEI for other types: consoles read the fields of that message",
             answersWithTheRightKind, TestCase::EachVersion},
            {605, "the answer names the library that was asked for",
             "sends a GEIn for each of up to 50 top-level libraries",
             "the library of the GEIn in the answer: consoles sort the elements by it", namesTheLibrary,
             TestCase::EachVersion},
            {606, "the counts of elements are right", "sends a GEIn for each of up to 50 top-level libraries",
             "as many elements as the ELIn has counted: consoles reserve places by the count", hasTheElementsCounted,
             TestCase::EachVersion},
            {607, "no element is listed twice", "sends a GEIn for a library of each type",
             "each number once: consoles cannot tell two apart", hasNoTwinElements, TestCase::EachVersion},
            {608, "every element has a name", "sends a GEIn for a library of each type",
             "a text without control characters: operators choose by it", hasElementNames, TestCase::EachVersion},
            {609, "every element has its DMX values", "sends a GEIn for a library of each type",
             "the lowest value not above the highest: consoles select by them", hasElementRanges,
             TestCase::EachVersion},
            {610, "it lists one element alone", "sends a GEIn for the last element by its number",
             "that element alone: consoles ask so after a change", listsOneElement, TestCase::EachVersion},
            {611, "it lists several elements alone", "sends a GEIn for the first and the last element",
             "these two: consoles ask so after a change", listsSeveralElements, TestCase::EachVersion},
            {612, "it lists nothing for an unknown element", "sends a GEIn for the number of no element",
             "an answer without elements: a console that gets none waits and asks again", listsNoUnknownElement,
             TestCase::EachVersion},
            {613, "it lists nothing for an unknown library", "sends a GEIn for a library that is not listed",
             "a MEIn without elements: a console that gets none waits and asks again", listsNothingOfAnUnknownLibrary,
             TestCase::EachVersion},
            {614, "media have a size and a frame rate", "sends a GEIn for a media library",
             "width, height and, of clips, frames a second above 0 in the MEIn: consoles compute times of them",
             describesItsMedia, TestCase::EachVersion},
            {615, "the times of elements are in seconds", "sends a GEIn for a library of each type",
             "seconds since 1970 or 0: consoles show dates and find changes by them", datesItsElements,
             TestCase::EachVersion},
            {616, "it lists the same elements again", "sends the same GEIn twice",
             "no difference, nor in the serial numbers: they tell that something has changed", repeatsItsElements,
             TestCase::EachVersion},
        },
    };
}
} // namespace Console::ServerTests

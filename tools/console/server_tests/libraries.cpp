// Tests of the lists of libraries (ELIn).
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/values.h>

#include <QMap>
#include <QSet>

#include "../printing.h"
#include "framework.h"

namespace Console::ServerTests {
namespace {
// A type that hardly any server has.
constexpr int UnusualType = 200;

QJsonObject object(const QJsonValue& value)
{
    return value.toObject();
}

QString idOf(const QJsonValue& library)
{
    return object(library).value("library").toString();
}

// "2,3,1,0" is at level 2; in MSEX 1.0 the identifier is a number.
int levelOf(const QString& id)
{
    return id.contains(',') ? id.section(',', 0, 0).toInt() : 1;
}

QJsonArray listed(Bench& bench, int type, const QString& parent = {}, const std::vector<unsigned char>& numbers = {})
{
    return bench.askFields(librariesRequest(bench.minor(), type, parent, numbers), "ELIn").value("libraries").toArray();
}

QJsonArray someLibraries(Bench& bench)
{
    QJsonArray libraries = knownLibraries(bench, 1);
    if (libraries.isEmpty())
        notRun("it has no media libraries");
    return libraries;
}

QString parentWithLibraries(Bench& bench)
{
    if (bench.minor() == 0)
        notRun("MSEX 1.0 has no sub-libraries");
    for (const QJsonValue library : someLibraries(bench)) {
        if (object(library).value("subLibraries").toInt() > 0)
            return idOf(library);
    }
    notRun("no top-level library has sub-libraries");
}

void listsTheTop(Bench& bench)
{
    const QJsonArray libraries = listed(bench, 1);
    bench.measure("top-level media libraries", static_cast<int>(libraries.size()));
    if (libraries.isEmpty())
        bench.warn("it has no media libraries; most other tests need one");
}

void listsTheTypeAsked(Bench& bench)
{
    for (const int type : libraryTypes(bench)) {
        const int answered = bench.askFields(librariesRequest(bench.minor(), type), "ELIn").value("type").toInt();
        expect(answered == type, QString("a GELI for type %1 is answered with type %2").arg(type).arg(answered));
    }
}

void hasNoTwins(Bench& bench)
{
    QSet<QString> ids;
    for (const QJsonValue library : someLibraries(bench)) {
        expect(!ids.contains(idOf(library)), QString("library %1 is listed twice").arg(idOf(library)));
        ids.insert(idOf(library));
    }
}

void isAtTheTop(Bench& bench)
{
    if (bench.minor() == 0)
        notRun("MSEX 1.0 has no levels");
    for (const QJsonValue library : someLibraries(bench))
        expect(levelOf(idOf(library)) == 1, QString("the top-level libraries contain %1").arg(idOf(library)));
}

void hasNames(Bench& bench)
{
    for (const QJsonValue library : someLibraries(bench)) {
        const QString name = object(library).value("name").toString();
        expect(!name.isEmpty(), QString("library %1 has no name").arg(idOf(library)));
        expect(escapeControls(name) == name,
               QString("the name of library %1 has control characters").arg(idOf(library)));
    }
}

void hasRanges(Bench& bench)
{
    QMap<int, QString> owners;
    for (const QJsonValue library : someLibraries(bench)) {
        const int min = object(library).value("dmxMin").toInt();
        const int max = object(library).value("dmxMax").toInt();
        expect(min <= max, QString("the DMX values of library %1 are %2 to %3").arg(idOf(library)).arg(min).arg(max));
        for (int value = min; value <= max; ++value) {
            if (owners.contains(value)) {
                bench.warn(QString("DMX value %1 selects library %2 and %3")
                               .arg(value)
                               .arg(owners.value(value), idOf(library)));
                return;
            }
            owners.insert(value, idOf(library));
        }
    }
}

void listsSubLibraries(Bench& bench)
{
    const QString parent = parentWithLibraries(bench);
    expect(!listed(bench, 1, parent).isEmpty(), QString("the list of the sub-libraries of %1 is empty").arg(parent));
}

void listsBelowTheParent(Bench& bench)
{
    const QString parent = parentWithLibraries(bench);
    for (const QJsonValue library : listed(bench, 1, parent))
        expect(CITP::parentLibrary(idOf(library)) == parent && levelOf(idOf(library)) == levelOf(parent) + 1,
               QString("the sub-libraries of %1 contain %2").arg(parent, idOf(library)));
}

void countsSubLibraries(Bench& bench)
{
    if (bench.minor() == 0)
        notRun("MSEX 1.0 has no sub-libraries");
    for (const QJsonValue library : firstOf(someLibraries(bench))) {
        const int told = object(library).value("subLibraries").toInt();
        const auto found = static_cast<int>(listed(bench, 1, idOf(library)).size());
        expect(told == found, QString("library %1 is said to have %2 sub-libraries, and %3 are listed")
                                  .arg(idOf(library))
                                  .arg(told)
                                  .arg(found));
    }
}

void listsTheNumberAsked(Bench& bench)
{
    const QString id = idOf(someLibraries(bench).last());
    const QJsonArray found = listed(bench, 1, {}, {CITP::libraryNumber(id)});
    expect(found.size() == 1 && idOf(found.first()) == id,
           QString("a GELI for library %1 is answered with %2 libraries%3")
               .arg(id)
               .arg(found.size())
               .arg(found.isEmpty() ? QString() : ", the first is " + idOf(found.first())));
}

void listsTheNumbersAsked(Bench& bench)
{
    const QJsonArray all = someLibraries(bench);
    if (all.size() < 2)
        notRun("it has a single media library");
    const QSet<QString> asked{idOf(all.first()), idOf(all.last())};
    QSet<QString> answered;
    for (const QJsonValue library :
         listed(bench, 1, {}, {CITP::libraryNumber(idOf(all.first())), CITP::libraryNumber(idOf(all.last()))}))
        answered.insert(idOf(library));
    expect(asked == answered, QString("a GELI for 2 libraries is answered with %1").arg(answered.size()));
}

void listsNothingUnknown(Bench& bench)
{
    const QString id = unknownLibrary(bench, 1);
    const QJsonArray found = listed(bench, 1, {}, {CITP::libraryNumber(id)});
    expect(found.isEmpty(), QString("a GELI for library %1, which does not exist, is answered with library %2")
                                .arg(id, found.isEmpty() ? QString() : idOf(found.first())));
}

void listsNoUnknownType(Bench& bench)
{
    const QJsonArray found = listed(bench, UnusualType);
    expect(found.isEmpty(), QString("it has %1 libraries of type %2").arg(found.size()).arg(UnusualType));
}

void repeatsTheLists(Bench& bench)
{
    const QJsonArray first = someLibraries(bench);
    expect(first == listed(bench, 1), "a second ELIn differs from the first");
}
} // namespace

Area libraryTests()
{
    return {
        "libraries",
        {
            {501, "it lists its media libraries", "sends a GELI for all top-level libraries of type 1",
             "an ELIn: consoles show the libraries", listsTheTop, TestCase::EachVersion},
            {502, "it lists the type that is asked for", "sends a GELI for each library type",
             "the library type of the GELI in the ELIn: consoles sort the answer by it", listsTheTypeAsked,
             TestCase::EachVersion},
            {503, "no library is listed twice", "sends a GELI, compares the identifiers in the ELIn",
             "each identifier once: consoles cannot tell two apart", hasNoTwins, TestCase::EachVersion},
            {504, "the top-level libraries are at level 1", "sends a GELI for all top-level libraries",
             "identifiers of level 1 in the ELIn: others belong to no library that was asked for", isAtTheTop,
             TestCase::EachVersion},
            {505, "every library has a name", "sends a GELI, reads the names in the ELIn",
             "a text without control characters: operators choose by it", hasNames, TestCase::EachVersion},
            {506, "every library has its DMX values", "sends a GELI, reads the DMX range of each library",
             "the lowest value not above the highest, and none for two libraries (a warning): consoles select by them",
             hasRanges, TestCase::EachVersion},
            {507, "it lists sub-libraries", "sends a GELI for the first library that has any",
             "an ELIn with libraries: the ELIn above has counted some", listsSubLibraries, TestCase::EachVersion},
            {508, "sub-libraries are below their parent", "sends a GELI for the first library that has any",
             "identifiers below that of the parent in the ELIn: consoles sort them by it", listsBelowTheParent,
             TestCase::EachVersion},
            {509, "the counts of sub-libraries are right", "sends a GELI for each of up to 50 top-level libraries",
             "as many libraries as the ELIn of the top level has counted: consoles ask only where there are some",
             countsSubLibraries, TestCase::EachVersion},
            {510, "it lists one library alone", "sends a GELI for the last library by its number",
             "an ELIn with that library: consoles ask so after a change", listsTheNumberAsked, TestCase::EachVersion},
            {511, "it lists several libraries alone", "sends a GELI for the first and the last library",
             "an ELIn with these two: consoles ask so after a change", listsTheNumbersAsked, TestCase::EachVersion},
            {512, "it lists nothing for an unknown library", "sends a GELI for the number of no library",
             "an ELIn without libraries: a console that gets no answer waits and asks again", listsNothingUnknown,
             TestCase::EachVersion},
            {513, "it lists nothing for an unknown type", "sends a GELI for library type 200",
             "an ELIn without libraries: a console that gets no answer waits and asks again", listsNoUnknownType,
             TestCase::EachVersion},
            {514, "it lists the same again", "sends the same GELI twice",
             "no difference, nor in the serial numbers: they tell that something has changed", repeatsTheLists,
             TestCase::EachVersion},
        },
    };
}
} // namespace Console::ServerTests

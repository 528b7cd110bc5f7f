// The command "libraries": lists the element libraries of a server, sub-libraries below their parents.
// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "printing.h"
#include "session.h"
#include "table.h"
#include "value_json.h"

namespace Console {
namespace {
using CITP::Library;

// 0 for a top-level library.
int depthOf(const Library& library)
{
    return library.id.contains(',') ? library.id.section(',', 0, 0).toInt() - 1 : 0;
}

void printAsJson(const Session& session, const Library& library, int type)
{
    printJson(merged({{"record", "library"}, {"server", session.key()}, {"type", type}, {"depth", depthOf(library)}},
                     toJson(library)));
}

void printAsText(const Session& session, const std::vector<Library>& libraries, int type)
{
    printLine(QString("%1: %2 libraries of type %3")
                  .arg(session.name(), QString::number(libraries.size()), QString::number(type)));
    if (libraries.empty())
        return;
    Table table({"LIBRARY", " DMX", " ELEMENTS", " SUB-LIBRARIES", " SERIAL", "NAME"});
    for (const Library& library : libraries)
        table.add({library.id, QString("%1-%2").arg(library.dmxMin).arg(library.dmxMax),
                   QString::number(library.elements), QString::number(library.subLibraries),
                   QString::number(library.serialNumber), QString("  ").repeated(depthOf(library)) + library.name});
    table.print();
}
} // namespace

int listLibraries(const Options& options)
{
    Session session(options);
    const auto type = static_cast<quint8>(options.type);
    CITP::Catalogue& catalogue = session.catalogue();
    catalogue.loadAllLibraries(type);
    session.waitForCatalogue();
    if (catalogue.librariesState(type) == CITP::Catalogue::Failed)
        throw Failure{escapeControls(catalogue.librariesProblem(type))};
    const std::vector<Library> libraries = catalogue.allLibraries(type);
    if (options.json) {
        for (const Library& library : libraries)
            printAsJson(session, library, options.type);
    } else {
        printAsText(session, libraries, options.type);
    }
    if (const int missing = session.warnAboutLists(type, CITP::Request::Libraries))
        throw Failure{QString("%1 did not list the sub-libraries of %2 libraries").arg(session.name()).arg(missing)};
    return 0;
}
} // namespace Console

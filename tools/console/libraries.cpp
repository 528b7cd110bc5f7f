// The command "libraries": lists the element libraries of a server, sub-libraries below their parents.
// SPDX-License-Identifier: Apache-2.0
#include "catalogue.h"
#include "commands.h"
#include "printing.h"
#include "table.h"

namespace Console {
namespace {
void printAsJson(const Session& session, const Library& library, int type)
{
    printJson({{"server", session.key()},
               {"type", type},
               {"library", library.info.LIBID},
               {"depth", library.depth},
               {"name", library.info.Name},
               {"dmxMin", library.info.DMXRangeMin},
               {"dmxMax", library.info.DMXRangeMax},
               {"elements", library.info.ElementCount},
               {"subLibraries", library.info.SubLibraryCount},
               {"serial", static_cast<double>(library.info.SerialNumber)}});
}

void printAsText(const Session& session, const std::vector<Library>& libraries, int type)
{
    printLine(QString("%1: %2 libraries of type %3")
                  .arg(session.name(), QString::number(libraries.size()), QString::number(type)));
    if (libraries.empty())
        return;
    Table table({"LIBRARY", " DMX", " ELEMENTS", " SUB-LIBRARIES", " SERIAL", "NAME"});
    for (const Library& library : libraries) {
        const auto& info = library.info;
        table.add({info.LIBID, QString("%1-%2").arg(info.DMXRangeMin).arg(info.DMXRangeMax),
                   QString::number(info.ElementCount), QString::number(info.SubLibraryCount),
                   QString::number(info.SerialNumber), QString("  ").repeated(library.depth) + info.Name});
    }
    table.print();
}
} // namespace

int listLibraries(const Options& options)
{
    Session session(options);
    const LibraryList list = fetchLibraries(session, static_cast<quint8>(options.type));
    if (options.json) {
        for (const Library& library : list.libraries)
            printAsJson(session, library, options.type);
    } else {
        printAsText(session, list.libraries, options.type);
    }
    if (!list.problem.isEmpty())
        throw Failure{list.problem};
    return 0;
}
} // namespace Console

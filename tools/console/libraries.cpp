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
} // namespace

int listLibraries(const Options& options)
{
    Session session(options);
    const std::vector<Library> libraries = fetchLibraries(session, static_cast<quint8>(options.type));
    if (options.json) {
        for (const Library& library : libraries)
            printAsJson(session, library, options.type);
        return 0;
    }
    printLine(QString("%1: %2 libraries of type %3")
                  .arg(session.name(), QString::number(libraries.size()), QString::number(options.type)));
    if (libraries.empty())
        return 0;
    Table table({"LIBRARY", " DMX", " ELEMENTS", " SUB-LIBRARIES", " SERIAL", "NAME"});
    for (const Library& library : libraries) {
        const auto& info = library.info;
        table.add({info.LIBID, QString("%1-%2").arg(info.DMXRangeMin).arg(info.DMXRangeMax),
                   QString::number(info.ElementCount), QString::number(info.SubLibraryCount),
                   QString::number(info.SerialNumber), QString("  ").repeated(library.depth) + info.Name});
    }
    printLines(table.lines());
    return 0;
}
} // namespace Console

// The command "layers": shows the layer status of a server continuously.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/layers.h>

#include <QElapsedTimer>
#include <QJsonArray>

#include "commands.h"
#include "live_table.h"
#include "printing.h"
#include "session.h"
#include "table.h"
#include "value_json.h"

namespace Console {
namespace {
using CITP::Layer;

// Shortest interval between two tables, on a terminal and in a file.
constexpr int TerminalIntervalMs = 100;
constexpr int FileIntervalMs = 1000;

QString flagsText(unsigned int flags)
{
    return QString("0x%1").arg(flags, 8, 16, QLatin1Char('0'));
}

void printAsJson(const QString& server, const std::vector<Layer>& states)
{
    QJsonArray layers;
    for (const Layer& layer : states) {
        layers.append(toJson(layer));
    }
    printJson({{"record", "layers"}, {"server", server}, {"time", isoTime()}, {"layers", layers}});
}

QStringList tableOf(const std::vector<Layer>& states)
{
    Table table({" LAYER", " OUTPUT", "LIBRARY", " #", " POSITION", " LENGTH", " FPS", "FLAGS", "NAME"});
    for (const Layer& layer : states) {
        table.add({QString::number(layer.number), QString::number(layer.output), layer.library,
                   QString::number(layer.element), QString::number(layer.position), QString::number(layer.length),
                   QString::number(layer.frameRate), flagsText(layer.flags), layer.name});
    }
    return table.lines({"FLAGS", "FPS", "OUTPUT", "LENGTH"});
}

void show(const Options& options)
{
    Session session(options);
    LiveTable table;
    CITP::Layers layers(session.transport(), session.key());
    layers.setInterval(options.json ? 0 : table.isTerminal() ? TerminalIntervalMs : FileIntervalMs);
    std::vector<std::vector<Layer>> waiting;
    QObject::connect(&layers, &CITP::Layers::changed, [&] {
        if (!layers.isStale())
            waiting.push_back(layers.layers());
    });
    if (options.seconds > 0)
        interruptAfter(options.seconds);
    std::optional<WaitLine> line("waiting for the layer status of " + session.name());
    QElapsedTimer running;
    running.start();
    for (;;) {
        const auto isSilent = [&] {
            return (layers.age() < 0 ? running.elapsed() : layers.age()) >= session.timeoutMs();
        };
        session.waitUntil([&] { return !waiting.empty() || isSilent(); });
        line.reset();
        if (waiting.empty())
            throw session.noAnswer("its layer status", layers.age() < 0 ? QString() : QString("since the last one"));
        for (const std::vector<Layer>& states : std::exchange(waiting, {})) {
            if (isInterrupted())
                throw Interrupted{};
            if (options.json)
                printAsJson(session.key(), states);
            else
                table.draw(QStringList{QString("%1  %2").arg(timeOfDay(), session.name())} + tableOf(states));
        }
    }
}
} // namespace

int showLayers(const Options& options)
{
    try {
        show(options);
    } catch (const Interrupted&) {
        // Ctrl-C and --seconds are the normal ends of this command.
    }
    return 0;
}
} // namespace Console

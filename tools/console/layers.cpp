// The command "layers": shows the layer status of a server continuously.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_lsta.h>

#include <QJsonArray>
#include <deque>
#include <utility>

#include "commands.h"
#include "inbox.h"
#include "live_table.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
using LayerStatus = CITP::Msg_MSEX_LSTA::LayerStatus;

// Shortest interval between two tables, on a terminal and in a file.
constexpr int TerminalIntervalMs = 100;
constexpr int FileIntervalMs = 1000;
// Bounds what waits for an output that is not read.
constexpr std::size_t MaxWaiting = 16;

QString flagsText(unsigned int flags)
{
    return QString("0x%1").arg(flags, 8, 16, QLatin1Char('0'));
}

void printAsJson(const QString& server, const CITP::Msg_MSEX_LSTA& status)
{
    QJsonArray layers;
    for (const LayerStatus& layer : status.Layers) {
        layers.append(QJsonObject{{"layer", layer.LayerNumber},
                                  {"output", layer.PhysicalOutput},
                                  {"type", layer.LibraryType},
                                  {"library", layer.LibraryId},
                                  {"element", layer.MediaNumber},
                                  {"name", layer.MediaName},
                                  {"position", static_cast<double>(layer.MediaPosition)},
                                  {"length", static_cast<double>(layer.MediaLength)},
                                  {"frameRate", layer.MediaFrameRate},
                                  {"flags", static_cast<double>(layer.LayerStatusFlags)}});
    }
    printJson({{"server", server}, {"time", isoTime()}, {"layers", layers}});
}

QStringList tableOf(const CITP::Msg_MSEX_LSTA& status)
{
    Table table({" LAYER", " OUTPUT", "LIBRARY", " #", " POSITION", " LENGTH", " FPS", "FLAGS", "NAME"});
    for (const LayerStatus& layer : status.Layers) {
        table.add({QString::number(layer.LayerNumber), QString::number(layer.PhysicalOutput), layer.LibraryId,
                   QString::number(layer.MediaNumber), QString::number(layer.MediaPosition),
                   QString::number(layer.MediaLength), QString::number(layer.MediaFrameRate),
                   flagsText(layer.LayerStatusFlags), layer.MediaName});
    }
    return table.lines();
}

// The newest states that have not been printed yet. If the output is slower than the server, older ones are dropped.
struct LayerStates
{
    std::deque<CITP::Msg_MSEX_LSTA> waiting;
    int count = 0; ///< received so far
};

class Layers
{
public:
    explicit Layers(const Options& options) : m_options(options), m_session(options)
    {
        const std::size_t maxWaiting = options.json ? MaxWaiting : 1;
        m_inbox.receiveFrom(m_session.key(), &CITP::citp_stack::layerStatus,
                            [maxWaiting](LayerStates& states, const CITP::Msg_MSEX_LSTA& status) {
                                ++states.count;
                                if (states.waiting.size() >= maxWaiting)
                                    states.waiting.pop_front();
                                states.waiting.push_back(status);
                            });
    }

    void run()
    {
        if (m_options.seconds > 0)
            interruptAfter(m_options.seconds);
        for (;;) {
            m_session.waitFor(
                "its layer status", [&] { return m_inbox.state()->count != m_seen; }, [this] { return remark(); });
            const std::deque<CITP::Msg_MSEX_LSTA> states = take();
            if (m_options.json) {
                for (const CITP::Msg_MSEX_LSTA& status : states) {
                    if (isInterrupted())
                        throw Interrupted{};
                    printAsJson(m_session.key(), status);
                }
            } else if (!states.empty()) {
                m_table.draw(QStringList{QString("%1  %2").arg(timeOfDay(), m_session.name())} +
                             tableOf(states.back()));
                m_sinceDrawn.start();
            }
        }
    }

private:
    QString remark() const
    {
        if (m_session.msexMinor() == 1)
            return "(it uses MSEX 1.1, whose layer status the library does not accept)";
        return m_seen > 0 ? QString("(it had sent %1 before)").arg(m_seen) : QString();
    }

    // What to print now: nothing if the last table is too recent.
    std::deque<CITP::Msg_MSEX_LSTA> take()
    {
        const int intervalMs = m_options.json ? 0 : m_table.isTerminal() ? TerminalIntervalMs : FileIntervalMs;
        const auto states = m_inbox.state();
        m_seen = states->count;
        if (m_sinceDrawn.isValid() && m_sinceDrawn.elapsed() < intervalMs)
            return {};
        return std::exchange(states->waiting, {});
    }

    const Options& m_options;
    Session m_session;
    LiveTable m_table;
    QElapsedTimer m_sinceDrawn;
    Inbox<LayerStates> m_inbox;
    int m_seen = 0; ///< number of states that take() has seen
};
} // namespace

int showLayers(const Options& options)
{
    try {
        Layers(options).run();
    } catch (const Interrupted&) {
        // Ctrl-C and --seconds are the normal ends of this command.
    }
    return 0;
}
} // namespace Console

// The command "layers": shows the layer status of a server continuously.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_lsta.h>

#include <QJsonArray>
#include <optional>

#include "commands.h"
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

class Layers
{
public:
    explicit Layers(const Options& options) : m_options(options), m_session(options)
    {
        QObject::connect(CITP::citp_stack::Get(), &CITP::citp_stack::layerStatus, &m_scope,
                         [this](const QString& key, const CITP::Msg_MSEX_LSTA& status) {
                             if (key == m_session.key())
                                 handleStatus(status);
                         });
    }

    void run()
    {
        QElapsedTimer running;
        running.start();
        const auto isOver = [&] {
            return m_options.seconds > 0 && running.elapsed() >= m_options.seconds * qint64(1000);
        };
        while (!isOver()) {
            const int count = m_count;
            m_session.waitFor(
                "its layer status", [&] { return m_count != count || isOver(); }, [this] { return remark(); });
            showLatest();
        }
    }

private:
    QString remark() const
    {
        if (m_session.msexMinor() == 1)
            return "(it uses MSEX 1.1, whose layer status the library does not accept)";
        return m_count > 0 ? QString("(it had sent %1 before)").arg(m_count) : QString();
    }

    void handleStatus(const CITP::Msg_MSEX_LSTA& status)
    {
        ++m_count;
        if (m_options.json)
            printAsJson(m_session.key(), status);
        else
            m_latest.emplace(status);
    }

    void showLatest()
    {
        if (!m_latest || (m_sinceDrawn.isValid() &&
                          m_sinceDrawn.elapsed() < (m_table.isTerminal() ? TerminalIntervalMs : FileIntervalMs)))
            return;
        m_table.draw(QStringList{QString("%1  %2").arg(timeOfDay(), m_session.name())} + tableOf(*m_latest));
        m_latest.reset();
        m_sinceDrawn.start();
    }

    const Options& m_options;
    Session m_session;
    LiveTable m_table;
    std::optional<CITP::Msg_MSEX_LSTA> m_latest;
    QElapsedTimer m_sinceDrawn;
    int m_count = 0;
    QObject m_scope; ///< last, so that it disconnects the signals before other members are destroyed
};
} // namespace

int showLayers(const Options& options)
{
    try {
        Layers(options).run();
    } catch (const Interrupted&) {
        // Ctrl-C is the normal end of this command.
    }
    return 0;
}
} // namespace Console

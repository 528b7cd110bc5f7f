// The command "decode": prints the CITP messages of a capture file.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include "commands.h"
#include "decode/capture_file.h"
#include "decode/classifier.h"
#include "decode/decoder.h"
#include "decode/event_text.h"
#include "decode/summary.h"
#include "printing.h"

namespace Console {
namespace {
// Lines show the time of day only. The date is printed first and whenever it changes.
class EventPrinter
{
public:
    explicit EventPrinter(bool json) : m_json(json) {}

    void print(const Event& event)
    {
        if (m_json) {
            printJson(toJson(event));
            return;
        }
        const QString date = localDate(event.timeUs);
        if (date != m_date)
            printLine(date);
        m_date = date;
        printLine(toText(event));
    }

private:
    const bool m_json;
    QString m_date;
};

void printSummary(const Summary& summary, bool json)
{
    if (json) {
        for (const QJsonObject& object : summary.objects())
            printJson(object);
        return;
    }
    printLines(summary.lines());
}

void printWarnings(const Decoder& decoder)
{
    if (decoder.fragments() > 0)
        warn(QString("%1 IP fragments were not reassembled").arg(decoder.fragments()));
    if (decoder.damaged() > 0)
        warn(QString("%1 packets have malformed headers").arg(decoder.damaged()));
    if (decoder.untrackedSegments() > 0)
        warn(QString("%1 TCP segments were ignored: more than %2 simultaneous connections")
                 .arg(decoder.untrackedSegments())
                 .arg(Decoder::MaxConnections));
}
} // namespace

int decode(const Options& options)
{
    // Problems of a message are printed with the message instead.
    Os::Log::SetMask("CITP.Message", 0);

    Classifier classifier;
    readCapture(options.file, [&classifier](const Packet& packet) { classifier.learn(packet); });
    Summary summary;
    EventPrinter printer(options.json);
    qint64 events = 0;
    Decoder decoder(classifier, [&](const Event& event) {
        ++events;
        if (options.summary)
            summary.add(event);
        else
            printer.print(event);
    });
    const CaptureFile file = readCapture(options.file, [&decoder](const Packet& packet) { decoder.add(packet); });
    decoder.finish();
    if (options.summary)
        printSummary(summary, options.json);
    printWarnings(decoder);
    const QString name = escapeControls(options.file);
    if (events == 0)
        warn(QString("'%1' contains no CITP among its %2 packets").arg(name, QString::number(file.packets)));
    if (!file.problem.isEmpty())
        warn(QString("'%1' is damaged after %2 packets: %3").arg(name, QString::number(file.packets), file.problem));
    return file.problem.isEmpty() ? 0 : 1;
}
} // namespace Console

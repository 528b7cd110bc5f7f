// The command "decode": prints the CITP messages of a capture file.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include "commands.h"
#include "decode/capture_file.h"
#include "decode/classifier.h"
#include "decode/decoder.h"
#include "decode/event_filter.h"
#include "decode/event_text.h"
#include "decode/summary.h"
#include "printing.h"
#include "terminal.h"

namespace Console {
namespace {
// Lines show the time of day only. The date is printed first and whenever it changes.
class EventPrinter
{
public:
    EventPrinter(bool json, bool isFull) : m_json(json), m_isFull(isFull), m_columns(terminalSize().width()) {}

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
        if (m_isFull)
            printLine(toText(event));
        else
            printLine(m_columns > 0 ? clipped(toLine(event), m_columns) : toLine(event));
    }

private:
    const bool m_json;
    const bool m_isFull;
    const int m_columns; ///< of the terminal; 0 if there is none
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

    const bool isOnce = isStandardInput(options.file);
    Classifier classifier;
    if (!isOnce)
        readCapture(options.file, [&classifier](const Packet& packet) { classifier.learn(packet); });
    EventFilter filter(options, classifier);
    Summary summary;
    EventPrinter printer(options.json, options.full);
    qint64 events = 0;
    qint64 accepted = 0;
    Decoder decoder(classifier, [&](const Event& event) {
        ++events;
        if (!filter.accepts(event))
            return;
        ++accepted;
        if (options.summary)
            summary.add(event);
        else
            printer.print(event);
    });
    const CaptureFile file = readCapture(options.file, [&](const Packet& packet) {
        if (isOnce)
            classifier.learn(packet);
        decoder.add(packet);
    });
    decoder.finish();
    if (options.summary)
        printSummary(summary, options.json);
    printWarnings(decoder);
    const QString name = nameOfFile(options.file);
    if (events == 0)
        warn(QString("'%1' contains no CITP among its %2 packets").arg(name, QString::number(file.packets)));
    else if (accepted == 0)
        warn(QString("'%1' contains no CITP that matches the options, among %2 messages and marks")
                 .arg(name, QString::number(events)));
    if (!file.problem.isEmpty())
        warn(QString("'%1' is damaged after %2 packets: %3").arg(name, QString::number(file.packets), file.problem));
    return file.problem.isEmpty() ? 0 : 1;
}
} // namespace Console

// The command "decode": what was said on the network, out of a capture file.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <csignal>

#include "commands.h"
#include "decode/capture_file.h"
#include "decode/decoder.h"
#include "decode/event_text.h"
#include "decode/summary.h"
#include "decode/survey.h"
#include "printing.h"

namespace Console {
namespace {
// Nothing here waits in an event loop, and nothing has to be put in order at the end.
void endAtOnceOnSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &ending, nullptr);
}

// Times stand without their date: it is said once, and again when it changes.
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
    const QStringList lines = summary.lines();
    for (const QString& line : lines)
        printLine(line);
}

// What was not decoded must not be taken for silence.
void complainAbout(const Decoder& decoder)
{
    if (decoder.fragments() > 0)
        complain(QString("%1 pieces of fragmented packets are not put together").arg(decoder.fragments()));
    if (decoder.damaged() > 0)
        complain(QString("%1 packets have headers that cannot be read").arg(decoder.damaged()));
    if (decoder.notFollowed() > 0)
        complain(QString("%1 segments are left out: more than %2 connections at a time")
                     .arg(decoder.notFollowed())
                     .arg(Decoder::MostConnections));
}
} // namespace

int decode(const Options& options)
{
    endAtOnceOnSignals();
    // What is wrong with a message stands beside it.
    Os::Log::SetMask("CITP.Message", 0);

    Survey survey;
    readCapture(options.file, [&survey](const Packet& packet) { survey.take(packet); });
    Summary summary;
    EventPrinter printer(options.json);
    qint64 events = 0;
    Decoder decoder(survey, [&](const Event& event) {
        ++events;
        if (options.summary)
            summary.add(event);
        else
            printer.print(event);
    });
    const CaptureFile file = readCapture(options.file, [&decoder](const Packet& packet) { decoder.take(packet); });
    decoder.finish();
    if (options.summary)
        printSummary(summary, options.json);
    complainAbout(decoder);
    const QString name = harmless(options.file);
    if (events == 0)
        complain(QString("'%1' holds no CITP among its %2 packets").arg(name, QString::number(file.packets)));
    if (!file.problem.isEmpty())
        complain(
            QString("'%1' breaks off after %2 packets: %3").arg(name, QString::number(file.packets), file.problem));
    return file.problem.isEmpty() ? 0 : 1;
}
} // namespace Console

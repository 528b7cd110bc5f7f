// The command "decode": prints the CITP messages of a capture file.
// SPDX-License-Identifier: Apache-2.0
#include <citp_system/os_log.h>

#include <optional>

#include "capture/capture_file.h"
#include "commands.h"
#include "decode/event_filter.h"
#include "decode/event_text.h"
#include "decode/message_capture.h"
#include "decode/summary.h"
#include "printing.h"
#include "shutdown.h"
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

// Standard input ends when the command is interrupted.
Tools::CaptureFile read(const QString& file, const std::function<void(const Tools::Packet&)>& handle)
{
    try {
        Tools::CaptureFile result = Tools::readCapture(file, handle, isInterrupted);
        if (result.isInterrupted)
            throw Interrupted{};
        return result;
    } catch (const Tools::CaptureFailure& failure) {
        throw Failure{escapeControls(failure.text)};
    }
}

void printWarnings(const Tools::Decoder& decoder)
{
    if (decoder.fragments() > 0)
        warn(QString("%1 IP fragments were not reassembled").arg(decoder.fragments()));
    if (decoder.damaged() > 0)
        warn(QString("%1 packets have malformed headers").arg(decoder.damaged()));
    if (decoder.untrackedSegments() > 0)
        warn(QString("%1 TCP segments were ignored: more than %2 simultaneous connections")
                 .arg(decoder.untrackedSegments())
                 .arg(Tools::Decoder::MaxConnections));
}
} // namespace

int decode(const Options& options)
{
    if (NewCapture::isForTerminal(options.write))
        return ExitUsageError;
    // Problems of a message are printed with the message instead.
    Os::Log::SetMask("CITP.Message", 0);

    const bool isOnce = Tools::isStandardInput(options.file);
    Tools::Classifier classifier;
    if (!isOnce)
        read(options.file, [&classifier](const Tools::Packet& packet) { classifier.learn(packet); });
    EventFilter filter(options, classifier);
    Summary summary;
    EventPrinter printer(options.json, options.full);
    std::optional<MessageCapture> written;
    if (!options.write.isEmpty())
        written.emplace(options.write, !options.noPictures);
    qint64 events = 0;
    qint64 accepted = 0;
    Tools::Decoder decoder(classifier, [&](const Event& event) {
        ++events;
        if (!filter.accepts(event))
            return;
        ++accepted;
        if (options.summary)
            summary.add(event);
        else if (written)
            written->add(event);
        else
            printer.print(event);
    });
    const Tools::CaptureFile file = read(options.file, [&](const Tools::Packet& packet) {
        if (isOnce)
            classifier.learn(packet);
        decoder.add(packet);
    });
    decoder.finish();
    if (options.summary)
        printSummary(summary, options.json);
    printWarnings(decoder);
    const QString name = escapeControls(Tools::nameOfFile(options.file));
    if (events == 0)
        warn(QString("'%1' contains no CITP among its %2 packets").arg(name, QString::number(file.packets)));
    else if (accepted == 0)
        warn(QString("'%1' contains no CITP that matches the options, among %2 messages and marks")
                 .arg(name, QString::number(events)));
    if (!file.problem.isEmpty())
        warn(QString("'%1' is damaged after %2 packets: %3")
                 .arg(name, QString::number(file.packets), escapeControls(file.problem)));
    if (written)
        written->finish();
    return file.problem.isEmpty() ? 0 : 1;
}
} // namespace Console

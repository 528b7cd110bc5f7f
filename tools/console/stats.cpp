// The command "stats": message counts and rates of a server, and its response times.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QJsonArray>
#include <algorithm>
#include <array>

#include "commands.h"
#include "inbox.h"
#include "live_table.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
using CITP::citp_stack;

constexpr quint8 Media = 1;
const char* const Root = "0,0,0,0";
// Interval between requests. Together with one request at a time, this is less load than a user who browses libraries.
constexpr int RequestIntervalMs = 500;

QString decimal(double value)
{
    return QString::number(value, 'f', 1);
}

// Received messages of one type.
struct MessageStatistics
{
    qint64 count = 0;
    qint64 bytes = 0;
    quint32 largest = 0;
    qint64 previousCount = 0; ///< at the time of the previous table
    qint64 previousBytes = 0;
};

// Requests of one type and their answers.
struct RequestStatistics
{
    const char* name;
    int sent = 0;
    int unanswered = 0;
    std::vector<double> times; ///< response times in milliseconds

    // The smallest time within which @p percent of the answers arrived.
    double percentile(int percent) const
    {
        if (times.empty())
            return 0;
        std::vector<double> sorted = times;
        const std::size_t rank = (sorted.size() * static_cast<std::size_t>(percent) + 99) / 100;
        const auto at = sorted.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1) - 1);
        std::nth_element(sorted.begin(), at, sorted.end());
        return *at;
    }
};

// What the stack's thread counts. It also receives the answers, so that the response times do not depend on the output.
struct Counts
{
    enum Request { Libraries, Elements, Thumbnail, None };

    QMap<QString, MessageStatistics> messages; ///< by content code
    std::array<RequestStatistics, None> requests{{{"GELI", 0, 0, {}}, {"GEIn", 0, 0, {}}, {"GETh", 0, 0, {}}}};
    Request pending = None; ///< sent and not answered yet
    Request next = Libraries;
    QString library; ///< id of the first library with elements; empty if there is none
    bool hasElement = false;
    quint8 element = 0; ///< number of the first element of #library
    QElapsedTimer sinceRequest;

    bool isRequestDue() const
    {
        return pending == None && (!sinceRequest.isValid() || sinceRequest.elapsed() >= RequestIntervalMs);
    }

    void answered(Request request)
    {
        if (pending != request)
            return;
        requests[request].times.push_back(static_cast<double>(sinceRequest.nsecsElapsed()) / 1e6);
        pending = None;
        if (request == Libraries && !library.isEmpty())
            next = Elements;
        else if (request == Elements && hasElement)
            next = Thumbnail;
        else
            next = Libraries;
    }

    void expire(qint64 timeoutMs)
    {
        if (pending == None || sinceRequest.elapsed() < timeoutMs)
            return;
        ++requests[pending].unanswered;
        pending = None;
        next = Libraries;
    }
};

class Statistics
{
public:
    explicit Statistics(const Options& options) : m_options(options), m_session(options)
    {
        count(&citp_stack::libraryInfo);
        count(&citp_stack::mediaInfo);
        count(&citp_stack::effectInfo);
        count(&citp_stack::genericInfo);
        count(&citp_stack::elementThumbnail);
        count(&citp_stack::libraryThumbnail);
        count(&citp_stack::libraryUpdated);
        count(&citp_stack::layerStatus);
        count(&citp_stack::patchMessage);
        connectAnswers();
    }

    void run()
    {
        m_running.start();
        m_sinceTable.start();
        if (m_options.seconds > 0)
            interruptAfter(m_options.seconds);
        QString failure;
        try {
            for (;;) {
                sendRequest();
                m_session.waitUntil([&] { return m_inbox.state()->isRequestDue() || isTableDue(); }, RequestIntervalMs);
                m_inbox.state()->expire(m_session.timeoutMs());
                if (isTableDue())
                    printTable(false);
            }
        } catch (const Interrupted&) {
            // Ctrl-C and --seconds are the normal ends of this command.
        } catch (const Failure& caught) {
            failure = caught.text;
        }
        printTable(true);
        if (!failure.isEmpty())
            throw Failure{failure};
    }

private:
    template <typename Message>
    void count(void (citp_stack::*signal)(const citp_stack::SERV_ID&, const Message&))
    {
        m_inbox.receiveFrom(m_session.key(), signal, [](Counts& counts, const Message& message) {
            MessageStatistics& received = counts.messages[message.cookie];
            ++received.count;
            received.bytes += message.size;
            received.largest = std::max(received.largest, message.size);
        });
    }

    // The answers select the next request: a library with elements, then an element of that library. Messages that do
    // not answer the pending request are ignored.
    void connectAnswers()
    {
        const QString& key = m_session.key();
        m_inbox.receiveFrom(key, &citp_stack::libraryInfo, [](Counts& counts, const CITP::Msg_MSEX_ELIN& message) {
            if (message.LibraryType != Media || counts.pending != Counts::Libraries)
                return;
            const auto full = std::find_if(message.Libraries.begin(), message.Libraries.end(),
                                           [](const auto& library) { return library.ElementCount > 0; });
            counts.library = full == message.Libraries.end() ? QString() : full->LIBID;
            counts.answered(Counts::Libraries);
        });
        m_inbox.receiveFrom(key, &citp_stack::mediaInfo, [](Counts& counts, const CITP::Msg_MSEX_MEIN& message) {
            if (message.LibraryId != counts.library || counts.pending != Counts::Elements)
                return;
            counts.hasElement = !message.Media.empty();
            counts.element = counts.hasElement ? message.Media.front().Number : quint8(0);
            counts.answered(Counts::Elements);
        });
        m_inbox.receiveFrom(key, &citp_stack::elementThumbnail, [](Counts& counts, const CITP::Msg_MSEX_ETHN& message) {
            if (message.LibraryId == counts.library && message.ElementNumber == counts.element)
                counts.answered(Counts::Thumbnail);
        });
    }

    bool isTableDue() const { return m_sinceTable.elapsed() >= m_options.intervalMs; }

    void sendRequest()
    {
        Counts::Request request = Counts::None;
        QString library;
        quint8 element = 0;
        {
            const auto counts = m_inbox.state();
            if (!counts->isRequestDue())
                return;
            counts->sinceRequest.start();
            request = counts->pending = counts->next;
            ++counts->requests[request].sent;
            library = counts->library;
            element = counts->element;
        }
        const quint8 minor = m_session.msexMinor();
        switch (request) {
            case Counts::Elements:
                m_session.send(CITP::Msg_MSEX_GEIN(minor, Media, library, {}));
                break;
            case Counts::Thumbnail:
                m_session.send(CITP::Msg_MSEX_GETH(minor, Media, library, 120, 160, "JPEG", {element}));
                break;
            default:
                m_session.send(CITP::Msg_MSEX_GELI(minor, Media, Root, {}));
                break;
        }
    }

    // The rates of the last table refer to the whole run, those of the others to the time since the previous table.
    void printTable(bool isLast)
    {
        const double seconds =
            std::max(0.001, static_cast<double>(isLast ? m_running.elapsed() : m_sinceTable.elapsed()) / 1000);
        const Counts counts = takeCounts();
        m_sinceTable.start();
        if (m_options.json)
            printAsJson(counts, isLast, seconds);
        else if (isLast)
            printLines(lines(counts, true, seconds));
        else
            m_table.draw(lines(counts, false, seconds));
    }

    // A copy, because the state must not be locked while the output may block.
    Counts takeCounts()
    {
        const auto state = m_inbox.state();
        Counts counts = *state;
        for (MessageStatistics& received : state->messages) {
            received.previousCount = received.count;
            received.previousBytes = received.bytes;
        }
        return counts;
    }

    QStringList lines(const Counts& counts, bool isLast, double seconds) const
    {
        const QString duration = decimal(static_cast<double>(m_running.elapsed()) / 1000);
        QStringList lines{
            QString("%1  %2  %3 %4 s").arg(timeOfDay(), m_session.name(), isLast ? "all of" : "after", duration)};
        Table messages({"MESSAGE", " COUNT", " A SECOND", " BYTES A SECOND", " MEAN BYTES", " MOST BYTES"});
        for (auto entry = counts.messages.begin(); entry != counts.messages.end(); ++entry) {
            const MessageStatistics& received = entry.value();
            messages.add(
                {entry.key(), QString::number(received.count),
                 decimal(static_cast<double>(received.count - (isLast ? 0 : received.previousCount)) / seconds),
                 decimal(static_cast<double>(received.bytes - (isLast ? 0 : received.previousBytes)) / seconds),
                 decimal(static_cast<double>(received.bytes) / static_cast<double>(received.count)),
                 QString::number(received.largest)});
        }
        lines += messages.lines();
        Table requests({"REQUEST", " SENT", " ANSWERED", " NO ANSWER", " P50 MS", " P95 MS", " MOST MS"});
        for (const RequestStatistics& asked : counts.requests) {
            const auto time = [&asked](int percent) {
                return asked.times.empty() ? QString("-") : decimal(asked.percentile(percent));
            };
            requests.add({asked.name, QString::number(asked.sent), QString::number(asked.times.size()),
                          QString::number(asked.unanswered), time(50), time(95), time(100)});
        }
        return lines + requests.lines();
    }

    void printAsJson(const Counts& counts, bool isLast, double seconds) const
    {
        QJsonArray messages;
        for (auto entry = counts.messages.begin(); entry != counts.messages.end(); ++entry) {
            const MessageStatistics& received = entry.value();
            messages.append(QJsonObject{
                {"message", entry.key()},
                {"count", received.count},
                {"bytes", received.bytes},
                {"largest", static_cast<double>(received.largest)},
                {"perSecond", static_cast<double>(received.count - (isLast ? 0 : received.previousCount)) / seconds},
                {"bytesPerSecond",
                 static_cast<double>(received.bytes - (isLast ? 0 : received.previousBytes)) / seconds}});
        }
        QJsonArray requests;
        for (const RequestStatistics& asked : counts.requests) {
            QJsonObject request{{"request", asked.name},
                                {"sent", asked.sent},
                                {"answered", static_cast<int>(asked.times.size())},
                                {"unanswered", asked.unanswered}};
            if (!asked.times.empty()) {
                request.insert("p50", asked.percentile(50));
                request.insert("p95", asked.percentile(95));
                request.insert("max", asked.percentile(100));
            }
            requests.append(request);
        }
        printJson({{"server", m_session.key()},
                   {"time", isoTime()},
                   {"final", isLast},
                   {"seconds", static_cast<double>(m_running.elapsed()) / 1000},
                   {"messages", messages},
                   {"requests", requests}});
    }

    const Options& m_options;
    Session m_session;
    LiveTable m_table;
    Inbox<Counts> m_inbox;
    QElapsedTimer m_running;
    QElapsedTimer m_sinceTable;
};
} // namespace

int showStatistics(const Options& options)
{
    try {
        Statistics(options).run();
    } catch (const Interrupted&) {
        // Ctrl-C before the server was found: a normal end with no table to print.
    }
    return 0;
}
} // namespace Console

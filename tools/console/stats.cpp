// The command "stats": message counts and rates of a server, and its response times.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QMap>
#include <QObject>
#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <numeric>

#include "commands.h"
#include "live_table.h"
#include "printing.h"
#include "session.h"
#include "table.h"

namespace Console {
namespace {
using CITP::citp_stack;
using CITP::Request;

// Interval between requests. Together with one request at a time, this is less load than a user who browses libraries.
constexpr int RequestIntervalMs = 500;
constexpr int SlowAnswerMs = 1000;
constexpr std::array<const char*, 5> TimeNames{"min", "avg", "p50", "p95", "max"};

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
        std::vector<double> sorted = times;
        const std::size_t rank = (sorted.size() * static_cast<std::size_t>(percent) + 99) / 100;
        const auto at = sorted.begin() + static_cast<std::ptrdiff_t>(std::max<std::size_t>(rank, 1) - 1);
        std::nth_element(sorted.begin(), at, sorted.end());
        return *at;
    }
    // In the order of TimeNames; only if there are any.
    std::vector<double> summary() const
    {
        const double mean = std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size());
        return {percentile(0), mean, percentile(50), percentile(95), percentile(100)};
    }
    // In percent. A request that is still pending is not lost.
    double loss() const
    {
        const auto ended = static_cast<double>(times.size()) + unanswered;
        return ended > 0 ? 100 * unanswered / ended : 0;
    }
};

using Messages = QMap<QString, MessageStatistics>; // by content code

// What the stack's thread counts, so that no message waits to be counted.
struct Counter
{
    std::mutex mutex;
    Messages messages;
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
                m_session.waitUntil([&] { return isRequestDue() || isTableDue(); });
                if (isTableDue())
                    printTable(false);
                if (isRequestDue())
                    sendRequest();
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
        // On the stack's thread, and never disconnected: a call could be beginning. The counter stays alive.
        QObject::connect(
            citp_stack::Get(), signal, citp_stack::Get(),
            [counter = m_counter, server = m_session.key()](const QString& key, const Message& message) {
                if (key != server)
                    return;
                const std::lock_guard<std::mutex> lock(counter->mutex);
                MessageStatistics& received = counter->messages[message.cookie];
                ++received.count;
                received.bytes += message.size;
                received.largest = std::max(received.largest, message.size);
            },
            Qt::DirectConnection);
    }

    bool isRequestDue() const
    {
        return !m_isPending && (!m_sinceRequest.isValid() || m_sinceRequest.elapsed() >= RequestIntervalMs);
    }

    // Not while an answer is due soon: the time of the answer would include that of an output that is read slowly.
    bool isTableDue() const
    {
        return m_sinceTable.elapsed() >= m_options.intervalMs &&
               (!m_isPending || m_sinceRequest.elapsed() >= SlowAnswerMs);
    }

    void sendRequest()
    {
        Request request{m_session.key(), Request::Libraries, MediaLibraries};
        if (m_next != Libraries) {
            request.kind = m_next == Elements ? Request::Elements : Request::ElementPicture;
            request.library = m_library;
        }
        if (m_next == Thumbnail)
            request.numbers = {m_element};
        request.size = QSize(160, 120);
        request.format = "JPEG";
        ++m_requests[m_next].sent;
        m_isPending = true;
        m_sinceRequest.start();
        const CITP::Reply* const reply = m_session.requests().get(request);
        QObject::connect(reply, &CITP::Reply::finished, &m_scope, [this, reply] { take(*reply); });
    }

    // The answers select the next request: a library with elements, then an element of that library.
    void take(const CITP::Reply& reply)
    {
        m_isPending = false;
        RequestStatistics& asked = m_requests[m_next];
        const bool isAnswered = reply.status() == CITP::Reply::Answered;
        asked.sent += reply.attempts() - 1;
        asked.unanswered += reply.attempts() - (isAnswered ? 1 : 0);
        if (isAnswered)
            asked.times.push_back(static_cast<double>(m_sinceRequest.nsecsElapsed()) / 1e6);
        if (m_next == Libraries) {
            const auto full = std::find_if(reply.libraries().begin(), reply.libraries().end(),
                                           [](const auto& library) { return library.elements > 0; });
            m_library = full == reply.libraries().end() ? QString() : full->id;
            m_next = m_library.isEmpty() ? Libraries : Elements;
        } else if (m_next == Elements && !reply.elements().empty()) {
            m_element = reply.elements().front().number;
            m_next = Thumbnail;
        } else {
            m_next = Libraries;
        }
    }

    // The rates of the last table refer to the whole run, those of the others to the time since the previous table.
    void printTable(bool isLast)
    {
        const double seconds =
            std::max(0.001, static_cast<double>(isLast ? m_running.elapsed() : m_sinceTable.elapsed()) / 1000);
        const Messages messages = takeMessages();
        m_sinceTable.start();
        if (m_options.json)
            printAsJson(messages, isLast, seconds);
        else if (isLast)
            printLines(lines(messages, true, seconds));
        else
            m_table.draw(lines(messages, false, seconds));
    }

    // A copy, because the counter must not be locked while the output may block.
    Messages takeMessages()
    {
        const std::lock_guard<std::mutex> lock(m_counter->mutex);
        Messages messages = m_counter->messages;
        for (MessageStatistics& received : m_counter->messages) {
            received.previousCount = received.count;
            received.previousBytes = received.bytes;
        }
        return messages;
    }

    QStringList lines(const Messages& all, bool isLast, double seconds) const
    {
        const QString duration = decimal(static_cast<double>(m_running.elapsed()) / 1000);
        QStringList lines{
            QString("%1  %2  %3 %4 s").arg(timeOfDay(), m_session.name(), isLast ? "all of" : "after", duration)};
        Table messages({"MESSAGE", " COUNT", " A SECOND", " BYTES A SECOND", " MEAN BYTES", " MOST BYTES"});
        for (auto entry = all.begin(); entry != all.end(); ++entry) {
            const MessageStatistics& received = entry.value();
            messages.add(
                {entry.key(), QString::number(received.count),
                 decimal(static_cast<double>(received.count - (isLast ? 0 : received.previousCount)) / seconds),
                 decimal(static_cast<double>(received.bytes - (isLast ? 0 : received.previousBytes)) / seconds),
                 decimal(static_cast<double>(received.bytes) / static_cast<double>(received.count)),
                 QString::number(received.largest)});
        }
        lines += messages.lines();
        Table requests({"REQUEST", " SENT", " ANSWERED", " NO ANSWER", " LOSS %", " MIN MS", " AVG MS", " P50 MS",
                        " P95 MS", " MAX MS"});
        for (const RequestStatistics& asked : m_requests) {
            QStringList row{asked.name, QString::number(asked.sent), QString::number(asked.times.size()),
                            QString::number(asked.unanswered), decimal(asked.loss())};
            for (const double time : asked.times.empty() ? std::vector<double>() : asked.summary())
                row << decimal(time);
            while (row.size() < 10)
                row << "-";
            requests.add(row);
        }
        return lines + requests.lines();
    }

    void printAsJson(const Messages& all, bool isLast, double seconds) const
    {
        QJsonArray messages;
        for (auto entry = all.begin(); entry != all.end(); ++entry) {
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
        for (const RequestStatistics& asked : m_requests) {
            QJsonObject request{{"request", asked.name},
                                {"sent", asked.sent},
                                {"answered", static_cast<int>(asked.times.size())},
                                {"unanswered", asked.unanswered},
                                {"lossPercent", asked.loss()}};
            for (std::size_t i = 0; i < TimeNames.size() && !asked.times.empty(); ++i)
                request.insert(TimeNames[i], asked.summary()[i]);
            requests.append(request);
        }
        printJson({{"record", "statistics"},
                   {"server", m_session.key()},
                   {"time", isoTime()},
                   {"final", isLast},
                   {"seconds", static_cast<double>(m_running.elapsed()) / 1000},
                   {"messages", messages},
                   {"requests", requests}});
    }

    enum Kind { Libraries, Elements, Thumbnail };

    const Options& m_options;
    Session m_session;
    LiveTable m_table;
    QObject m_scope; ///< of the replies' connections
    const std::shared_ptr<Counter> m_counter = std::make_shared<Counter>();
    std::array<RequestStatistics, 3> m_requests{{{"GELI", 0, 0, {}}, {"GEIn", 0, 0, {}}, {"GETh", 0, 0, {}}}};
    Kind m_next = Libraries;
    QString m_library;    ///< id of the first library with elements; empty if there is none
    quint8 m_element = 0; ///< number of the first element of #m_library
    bool m_isPending = false;
    QElapsedTimer m_sinceRequest;
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

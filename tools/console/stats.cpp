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
        QString failure;
        try {
            const auto isOver = [this] {
                return m_options.seconds > 0 && m_running.elapsed() >= m_options.seconds * qint64(1000);
            };
            while (!isOver()) {
                sendRequest();
                m_session.waitUntil([&] { return isOver() || isRequestDue() || isTableDue(); }, RequestIntervalMs);
                expire();
                if (isTableDue())
                    printTable(false);
            }
        } catch (const Interrupted&) {
            // Ctrl-C is the normal end of this command.
        } catch (const Failure& caught) {
            failure = caught.text;
        }
        printTable(true);
        if (!failure.isEmpty())
            throw Failure{failure};
    }

private:
    enum Request { Libraries, Elements, Thumbnail, None };

    template <typename Message>
    void count(void (citp_stack::*signal)(const citp_stack::SERV_ID&, const Message&))
    {
        QObject::connect(citp_stack::Get(), signal, &m_scope, [this](const QString& key, const Message& message) {
            if (key != m_session.key())
                return;
            MessageStatistics& received = m_messages[message.cookie];
            ++received.count;
            received.bytes += message.size;
            received.largest = std::max(received.largest, message.size);
        });
    }

    // The answers select the next request: a library with elements, then an element of that library. Messages that do
    // not answer the pending request are ignored.
    void connectAnswers()
    {
        QObject::connect(citp_stack::Get(), &citp_stack::libraryInfo, &m_scope,
                         [this](const QString& key, const CITP::Msg_MSEX_ELIN& message) {
                             if (key != m_session.key() || message.LibraryType != Media || m_pending != Libraries)
                                 return;
                             const auto full =
                                 std::find_if(message.Libraries.begin(), message.Libraries.end(),
                                              [](const auto& library) { return library.ElementCount > 0; });
                             m_library = full == message.Libraries.end() ? QString() : full->LIBID;
                             answered(Libraries);
                         });
        QObject::connect(citp_stack::Get(), &citp_stack::mediaInfo, &m_scope,
                         [this](const QString& key, const CITP::Msg_MSEX_MEIN& message) {
                             if (key != m_session.key() || message.LibraryId != m_library || m_pending != Elements)
                                 return;
                             m_hasElement = !message.Media.empty();
                             m_element = m_hasElement ? message.Media.front().Number : quint8(0);
                             answered(Elements);
                         });
        QObject::connect(
            citp_stack::Get(), &citp_stack::elementThumbnail, &m_scope,
            [this](const QString& key, const CITP::Msg_MSEX_ETHN& message) {
                if (key == m_session.key() && message.LibraryId == m_library && message.ElementNumber == m_element)
                    answered(Thumbnail);
            });
    }

    bool isRequestDue() const
    {
        return m_pending == None && (!m_sinceRequest.isValid() || m_sinceRequest.elapsed() >= RequestIntervalMs);
    }

    bool isTableDue() const { return m_sinceTable.elapsed() >= m_options.intervalMs; }

    void sendRequest()
    {
        if (!isRequestDue())
            return;
        m_sinceRequest.start();
        m_pending = m_next;
        ++m_requests[m_pending].sent;
        const quint8 minor = m_session.msexMinor();
        switch (m_pending) {
            case Elements:
                m_session.send(CITP::Msg_MSEX_GEIN(minor, Media, m_library, {}));
                break;
            case Thumbnail:
                m_session.send(CITP::Msg_MSEX_GETH(minor, Media, m_library, 120, 160, "JPEG", {m_element}));
                break;
            default:
                m_session.send(CITP::Msg_MSEX_GELI(minor, Media, Root, {}));
                break;
        }
    }

    void answered(Request request)
    {
        if (m_pending != request)
            return;
        m_requests[request].times.push_back(static_cast<double>(m_sinceRequest.nsecsElapsed()) / 1e6);
        m_pending = None;
        if (request == Libraries && !m_library.isEmpty())
            m_next = Elements;
        else if (request == Elements && m_hasElement)
            m_next = Thumbnail;
        else
            m_next = Libraries;
    }

    void expire()
    {
        if (m_pending == None || m_sinceRequest.elapsed() < m_session.timeoutMs())
            return;
        ++m_requests[m_pending].unanswered;
        m_pending = None;
        m_next = Libraries;
    }

    // The rates of the last table refer to the whole run, those of the others to the time since the previous table.
    void printTable(bool isLast)
    {
        const double seconds =
            std::max(0.001, static_cast<double>(isLast ? m_running.elapsed() : m_sinceTable.elapsed()) / 1000);
        if (m_options.json)
            printAsJson(isLast, seconds);
        else if (isLast)
            printLines(lines(true, seconds));
        else
            m_table.draw(lines(false, seconds));
        for (MessageStatistics& received : m_messages) {
            received.previousCount = received.count;
            received.previousBytes = received.bytes;
        }
        m_sinceTable.start();
    }

    QStringList lines(bool isLast, double seconds) const
    {
        const QString duration = decimal(static_cast<double>(m_running.elapsed()) / 1000);
        QStringList lines{
            QString("%1  %2  %3 %4 s").arg(timeOfDay(), m_session.name(), isLast ? "all of" : "after", duration)};
        Table messages({"MESSAGE", " COUNT", " A SECOND", " BYTES A SECOND", " MEAN BYTES", " MOST BYTES"});
        for (auto entry = m_messages.begin(); entry != m_messages.end(); ++entry) {
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
        for (const RequestStatistics& asked : m_requests) {
            const auto time = [&asked](int percent) {
                return asked.times.empty() ? QString("-") : decimal(asked.percentile(percent));
            };
            requests.add({asked.name, QString::number(asked.sent), QString::number(asked.times.size()),
                          QString::number(asked.unanswered), time(50), time(95), time(100)});
        }
        return lines + requests.lines();
    }

    void printAsJson(bool isLast, double seconds) const
    {
        QJsonArray messages;
        for (auto entry = m_messages.begin(); entry != m_messages.end(); ++entry) {
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
    QMap<QString, MessageStatistics> m_messages; ///< by content code
    std::array<RequestStatistics, None> m_requests{{{"GELI", 0, 0, {}}, {"GEIn", 0, 0, {}}, {"GETh", 0, 0, {}}}};
    Request m_pending = None; ///< sent and not answered yet
    Request m_next = Libraries;
    QString m_library; ///< id of the first library with elements; empty if there is none
    bool m_hasElement = false;
    quint8 m_element = 0; ///< number of the first element of #m_library
    QElapsedTimer m_running;
    QElapsedTimer m_sinceTable;
    QElapsedTimer m_sinceRequest;
    QObject m_scope; ///< last, so that it disconnects the signals before other members are destroyed
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

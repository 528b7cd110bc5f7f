// Guards: the options in effect, and the reports about guards that acted.
// SPDX-License-Identifier: Apache-2.0
#include "citp_guards_p.h"

#include "citp_log_p.h"
#include "citp_unread_p.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace CITP {
namespace {
/// Servers and guards whose reports are told apart; further ones share one entry for each guard.
constexpr std::size_t maxReports = 1000;
constexpr quint32 headerSize = 20; // bytes of the CITP header

struct GuardText
{
    const char* name;
    const char* action;
    const char* before; ///< the value
    const char* after;
    const char* limit;
};

/// The line about guard i is made from guardTexts[i].
constexpr GuardText guardTexts[] = {
    {"small message", "disconnected", "a message states ", " bytes", "minimum"},
    {"large message", "disconnected", "a message states ", " bytes", "limit"},
    {"stalled message", "disconnected", "a message is incomplete and no byte has arrived for ", " ms", "limit"},
    {"wrong count", "message dropped", "a list announces ", " records", "room for"},
    {"late answer", "next request sent", "no answer for ", " ms", "limit"},
    {"lost peer", "disconnected", "its machine has not answered, or it has not read, for ", " ms", "limit"},
    {"too many servers", "ignored", "", " servers are known or were tried within a second", "limit"},
    {"too many per address", "ignored", "", " servers of this address are known", "limit"},
    {"unsent data", "sendMsg failed", "", " bytes would wait to be written", "limit"},
    {"lost framing", "disconnected", "", " pieces of its stream do not begin with CITP", "limit"},
    {"long turn", "", "", "", ""},
    {"unread notifications", "not read", "", " bytes wait for the application", "limit"},
};
static_assert(std::size(guardTexts) == citp_options::UnreadNotifications + 1);
} // namespace

// --- Options ---------------------------------------------------------------------------------------------------------

void Guards::set(const citp_options& options)
{
    // The previous ones are destroyed after the lock is released, because an observer may own anything.
    citp_options previous = options;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(m_next, previous);
    m_hasNext = true;
}

bool Guards::update()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_hasNext) {
            return false;
        }
    }
    reportOmitted(Omitted::All);
    // What they are swapped with is destroyed after the lock is released, as in set().
    citp_options::Data limits;
    citp_options::Observer observer;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hasNext = false;
    limits = static_cast<const citp_options::Data&>(*std::as_const(m_next).d);
    observer = limits.observer;
    std::swap(m_limits, limits);
    std::swap(m_observer, observer);
    m_interval = std::chrono::milliseconds(m_limits.reportInterval);
    m_maxUnsentBytes = m_limits.maxUnsentBytes;
    m_watchesStreams = m_limits.smallMessageGuard || m_limits.maxMessageSize > 0 || m_limits.stallTimeout > 0 ||
                       m_limits.maxLostMessages > 0 || m_limits.maxTurnTime > 0 || m_limits.maxTurnBytes > 0 ||
                       m_limits.maxUnreadBytes > 0;
    m_watchesSending = m_limits.maxUnsentBytes > 0 || m_limits.requestTimeout > 0;
    m_minSize = m_limits.smallMessageGuard ? headerSize : 0;
    m_sizeRange = (m_limits.maxMessageSize > 0 ? static_cast<quint32>(m_limits.maxMessageSize)
                                               : std::numeric_limits<quint32>::max()) -
                  m_minSize;
    m_maxUnread = m_limits.maxUnreadBytes > 0 ? m_limits.maxUnreadBytes : std::numeric_limits<qint64>::max();
    return true;
}

// --- Reports ---------------------------------------------------------------------------------------------------------

QString Guards::reasonOf(Guard guard, qint64 value, qint64 limit)
{
    const GuardText& words = guardTexts[guard];
    text_base text;
    text << words.before << static_cast<long long>(value) << words.after << " (" << words.limit << " "
         << static_cast<long long>(limit) << ")";
    return QString::fromLatin1(text.c_str());
}

void Guards::write(Guard guard, const QString& server, const Report& report, const citp_options::Observer& observer)
{
    const GuardText& words = guardTexts[guard];
    text_base text;
    text << "guard " << words.name << ": " << toAscii(server) << " " << words.action << ": "
         << toAscii(reasonOf(guard, report.value, report.limit));
    if (report.omitted > 0) {
        text << "; " << report.omitted << " more omitted";
    }
    CITP_LOG(stackLogContext(), Os::Log::Warning, "citp_guards.cpp", __LINE__, Q_FUNC_INFO, text.c_str());
    if (observer) {
        observer({guard, server, report.value, report.limit, report.omitted, QString::fromLatin1(text.c_str())});
    }
}

void Guards::report(Guard guard, const QString& server, qint64 value, qint64 limit)
{
    const Clock::time_point now = Clock::now();
    Report report{now, value, limit, 0};
    // Senders of datagrams can be forged, so that all of them share one report. They have no port.
    const bool isDatagram = (guard == citp_options::WrongCount || guard == citp_options::UnreadNotifications) &&
                            !server.contains(QLatin1Char(':'));
    QString name = isDatagram ? QStringLiteral("datagrams") : server;
    citp_options::Observer observer;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto last = m_reports.find({guard, name});
        if (last == m_reports.end() && m_reports.size() >= maxReports) {
            name = QStringLiteral("other servers");
            last = m_reports.find({guard, name});
        }
        if (last != m_reports.end()) {
            Report& previous = last->second;
            if (now - previous.time < m_interval) {
                previous.value = value;
                previous.limit = limit;
                previous.omitted += previous.omitted < std::numeric_limits<int>::max() ? 1 : 0;
                return;
            }
            report.omitted = previous.omitted;
        }
        m_reports[{guard, name}] = {now, value, limit, 0};
        observer = m_observer;
    }
    write(guard, name, report, observer);
}

void Guards::reportOmitted(Omitted which)
{
    const Clock::time_point now = Clock::now();
    std::vector<std::pair<std::pair<Guard, QString>, Report>> omitted;
    citp_options::Observer observer;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto last = m_reports.begin(); last != m_reports.end();) {
            if (which == Omitted::OfEndedIntervals && now - last->second.time < m_interval) {
                ++last;
            } else if (last->second.omitted == 0) {
                last = m_reports.erase(last);
            } else {
                // The last of them is reported, so that one less is omitted.
                Report report = last->second;
                --report.omitted;
                omitted.emplace_back(last->first, report);
                last->second = {now, 0, 0, 0};
                last = which == Omitted::All ? m_reports.erase(last) : std::next(last);
            }
        }
        observer = m_observer;
    }
    for (const auto& [key, report] : omitted) {
        write(key.first, key.second, report, observer);
    }
}

bool citp_options::hasWrongCount(const QByteArray& message, int* announced, int* possible)
{
    if (Msg_Header::contentType(message) != QLatin1String("MSEX")) {
        return false;
    }
    const QString code = Msg_MSEX::GetCookie(message);
    // An observer may call this while the worker parses.
    const CountCheck outer = std::exchange(countCheck, {true, false, 0, 0});
    if (code == QLatin1String("ELIn")) {
        Msg_MSEX_ELIN parsed(message);
    } else if (code == QLatin1String("MEIn")) {
        Msg_MSEX_MEIN parsed(message);
    } else if (code == QLatin1String("EEIn")) {
        Msg_MSEX_EEIN parsed(message);
    } else if (code == QLatin1String("GLEI")) {
        Msg_MSEX_GLEI parsed(message);
    } else if (code == QLatin1String("LSta")) {
        Msg_MSEX_LSTA parsed(message);
    }
    const CountCheck check = std::exchange(countCheck, outer);
    if (check.hasFailed) {
        *announced = check.count;
        *possible = check.capacity;
    }
    return check.hasFailed;
}

void Guards::reportFailedCount(const QString& server)
{
    countCheck.hasFailed = false;
    report(citp_options::WrongCount, server, countCheck.count, countCheck.capacity);
}

// --- Unread notifications --------------------------------------------------------------------------------------------

void Guards::setCost(Msg_Header& message, int size)
{
    const qint64 cost = citp_options::unreadCost(size);
    message.m_unread.m_cost = static_cast<quint32>(std::min<qint64>(cost, std::numeric_limits<quint32>::max()));
}

bool Guards::mustWait(qint64 size) const
{
    if (m_limits.maxUnreadBytes == 0) {
        return false;
    }
    const qint64 unread = unreadBytes;
    return unread > 0 && unread + citp_options::unreadCost(size) > m_limits.maxUnreadBytes;
}
} // namespace CITP

// Guards: the options in effect, and the reports about guards that acted. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_counts_p.h"
#include "citp_options_p.h"
#include "citp_turn_p.h"
#include "citp_unread_p.h"

#include <citp/citp_msg_header.h>

#include <QString>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <utility>

namespace CITP {
/// Worker thread, except where a member says otherwise.
class Guards
{
public:
    using Clock = std::chrono::steady_clock;
    using Guard = citp_options::Guard;

    /// The options to use from the next tick on. Any thread.
    void set(const citp_options& options);
    /// Takes the options of the last set(). Called at each tick.
    /// @return whether there are new ones
    bool update();
    /// The options in effect.
    const citp_options::Data& limits() const { return m_limits; }
    /// Whether a guard watches the streams of the servers.
    bool watchesStreams() const { return m_watchesStreams; }
    /// Whether no guard but those of turns and framing has anything to do with a message of @p size bytes. Inline:
    /// asked for every message.
    bool letsPass(quint32 size) const
    {
        return size - m_minSize <= m_sizeRange &&
               unreadBytes.load(std::memory_order_relaxed) + citp_options::unreadCost(size) <= m_maxUnread;
    }
    /// Whether a guard watches what is sent.
    bool watchesSending() const { return m_watchesSending; }
    /// citp_options::maxUnsentBytes(). Any thread.
    qint64 maxUnsentBytes() const { return m_maxUnsentBytes.load(std::memory_order_relaxed); }

    /// Why @p guard acts, e.g. "a message states 0 bytes (minimum 20)". Any thread.
    static QString reasonOf(Guard guard, qint64 value, qint64 limit);
    /// Reports that @p guard has acted, unless the last report is too recent. Any thread.
    void report(Guard guard, const QString& server, qint64 value, qint64 limit);
    enum class Omitted { OfEndedIntervals, All };
    /// Reports what was omitted. Called at each tick.
    void reportOmitted(Omitted which);
    /// Parses a message from a server, with the check of its counts if that is wanted. What receivers and observers
    /// parse on this thread is not checked.
    template <typename Message>
    Message parse(const QByteArray& buffer) const
    {
        countCheck.isEnabled = m_limits.countGuard;
        Message message(buffer);
        countCheck.isEnabled = false;
        return message;
    }
    /// Reports that the message just parsed, from @p server, was not valid because of a wrong count, if so.
    void reportWrongCount(const QString& server)
    {
        if (countCheck.hasFailed) {
            reportFailedCount(server);
        }
    }

    /// Makes copies of @p message, a message of @p size bytes, count as unread notifications, if these are limited.
    void countCopies(Msg_Header& message, int size) const
    {
        if (m_limits.maxUnreadBytes > 0) {
            setCost(message, size);
        }
    }
    /// Whether a notification of a message of @p size bytes must wait until the application has read earlier ones.
    bool mustWait(qint64 size) const;

private:
    struct Report
    {
        Clock::time_point time;
        qint64 value;
        qint64 limit;
        int omitted;
    };
    void write(Guard guard, const QString& server, const Report& report, const citp_options::Observer& observer);
    void reportFailedCount(const QString& server);
    static void setCost(Msg_Header& message, int size);

    citp_options::Data m_limits;
    bool m_watchesStreams = false;
    bool m_watchesSending = false;
    // For letsPass(): the sizes that no guard minds, and the limit of unread notifications or the largest number.
    quint32 m_minSize = 0;
    quint32 m_sizeRange = 0;
    qint64 m_maxUnread = 0;
    std::atomic<qint64> m_maxUnsentBytes{0};

    std::mutex m_mutex; ///< guards what follows; any thread
    citp_options m_next;
    bool m_hasNext = false;
    std::chrono::milliseconds m_interval{0};
    citp_options::Observer m_observer;
    std::map<std::pair<Guard, QString>, Report> m_reports;
};
} // namespace CITP

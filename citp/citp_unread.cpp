// UnreadCount and the limit of unread notifications: the copies of messages that wait in event queues.
// SPDX-License-Identifier: Apache-2.0
#include "citp_unread_p.h"

#include "citp_lifetime_p.h"

#include <atomic>

namespace CITP {
// Without destructors: receivers may release messages while the process exits.
std::atomic<qint64> unreadBytes{0};

namespace {
std::atomic<qint64> resumeLevel{0};
std::atomic<bool> isReadingSuspended{false};
std::atomic<void (*)()> resumeFunction{nullptr};

void resumeIfRead()
{
    if (unreadBytes <= resumeLevel && isReadingSuspended.exchange(false)) {
        const Caller caller;
        if (!isShuttingDown()) {
            resumeFunction.load()();
        }
    }
}
} // namespace

void UnreadCount::add(quint32 bytes)
{
    m_counted = bytes;
    unreadBytes += bytes;
}

void UnreadCount::remove()
{
    unreadBytes -= m_counted;
    if (isReadingSuspended) {
        resumeIfRead();
    }
}

void suspendReading(qint64 level, void (*resume)())
{
    resumeLevel = level;
    resumeFunction = resume;
    isReadingSuspended = true;
    // The receivers may have caught up meanwhile.
    resumeIfRead();
}
} // namespace CITP

// The limit of unread notifications: how many bytes wait for receivers, and a call when they have caught up. Private;
// not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_export.h>
#include <citp/citp_msg_header.h>

#include <atomic>

namespace CITP {
/// The bytes that wait for receivers in other threads, as citp_options::unreadCost() counts them. Any thread.
extern CITP_HIDDEN std::atomic<qint64> unreadBytes;

/// Has @p resume called once, by any thread, when at most @p level bytes wait; not while the process exits. The worker
/// thread only.
void suspendReading(qint64 level, void (*resume)());
} // namespace CITP

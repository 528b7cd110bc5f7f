// The check of the counts in lists against the bytes that follow, see citp_options::setCountGuard(). Private; not
// installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "citp_wire_p.h"

#include <citp/citp_export.h>

namespace CITP {
/// Whether this thread checks counts, and the first count that failed the check. Only the
/// stack's worker thread enables it, if its options say so.
struct CountCheck
{
    bool isEnabled = false;
    bool hasFailed = false;
    int count = 0;    ///< the records announced
    int capacity = 0; ///< the records that the rest of the message can hold
};

// Initial-exec: read for every list, and a call for each access would cost more than the check.
[[gnu::tls_model("initial-exec")]] inline thread_local CITP_HIDDEN CountCheck countCheck;

/// Whether the rest of the message can hold @p count records of at least @p minimumSize bytes; true if counts are not
/// checked. To be called before anything is allocated for the records.
inline bool canHold(const WireReader& reader, int count, int minimumSize)
{
    if (!countCheck.isEnabled || static_cast<qint64>(count) * minimumSize <= reader.remaining()) {
        return true;
    }
    if (!countCheck.hasFailed) {
        countCheck.hasFailed = true;
        countCheck.count = count;
        countCheck.capacity = static_cast<int>(reader.remaining() / minimumSize);
    }
    return false;
}
} // namespace CITP

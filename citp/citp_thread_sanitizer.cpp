// Tells the thread sanitizer about the library's queued signals. Only builds with that sanitizer on Qt 6 contain it.
// SPDX-License-Identifier: Apache-2.0
#include "citp_thread_sanitizer_p.h"

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

namespace CITP {
namespace {
bool acquireBeforeDelivery(void** receiverEventResult)
{
    if (static_cast<const QEvent*>(receiverEventResult[1])->type() == QEvent::MetaCall) {
        __tsan_acquire(&queuedCopies);
    }
    return false; // Qt goes on with the event
}

// At load time, before any signal can be emitted.
const bool annotated = [] {
    annotateCopies<Msg_MSEX_ELTH>();
    annotateCopies<Msg_MSEX_ETHN>();
    annotateCopies<Msg_MSEX_ELIN>();
    annotateCopies<Msg_MSEX_MEIN>();
    annotateCopies<Msg_MSEX_EEIN>();
    annotateCopies<Msg_MSEX_GLEI>();
    annotateCopies<Msg_MSEX_LSTA>();
    annotateCopies<Msg_MSEX_ELUP>();
    QInternal::registerCallback(QInternal::EventNotifyCallback, acquireBeforeDelivery);
    return true;
}();
} // namespace
} // namespace CITP

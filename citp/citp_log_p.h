// The log contexts of the library and the one way in which a line is written. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>
#include <citp_system/os_thread.h>
#include <citp_system/text_base.h>

namespace CITP {
/// "CITP.Message", where message classes log what they cannot parse. Made at first use.
Os::Log::Context& messageLogContext();
} // namespace CITP

/// Writes a line made of @p pieces (chained with <<) if @p context enables @p level; nothing is built otherwise, the
/// pieces' values included.
#define CITP_LOG(context, level, file, line, function, pieces)                                     \
    do {                                                                                           \
        if ((context).IsEnabled(level)) {                                                          \
            text_base citpLogText;                                                                 \
            citpLogText << pieces;                                                                 \
            (context).Write(level, citpLogText, function, file, line, Os::Thread::GetCallStack()); \
        }                                                                                          \
    } while (false)

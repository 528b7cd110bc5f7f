// The log contexts of the library and the one way in which a line is written. Private; not installed.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_system/os_log.h>
#include <citp_system/os_thread.h>
#include <citp_system/text_base.h>

#include <QString>

#include <string>

namespace CITP {
/// "CITP.Message", for messages that cannot be parsed. Created on first use, as the other contexts are.
Os::Log::Context& messageLogContext();
/// "CITP.Stack", the stack's own lines.
Os::Log::Context& stackLogContext();
/// "CITP.Stack.Ploc", one line for each announcement.
Os::Log::Context& plocLogContext();
/// "CITP.Stack.Traffic", one line with a dump for each message received and sent.
Os::Log::Context& trafficLogContext();

/// The ASCII form in which texts of peers appear in log lines: each character beyond ASCII becomes a question mark, so
/// that a line is valid in every encoding.
std::string toAscii(const QString& text);
} // namespace CITP

/// Writes a line made of @p pieces (chained with <<) if @p context enables @p level. Nothing is built otherwise, and
/// the pieces are not evaluated.
#define CITP_LOG(context, level, file, line, function, pieces)                                     \
    do {                                                                                           \
        if ((context).IsEnabled(level)) {                                                          \
            text_base citpLogText;                                                                 \
            citpLogText << pieces;                                                                 \
            (context).Write(level, citpLogText, function, file, line, Os::Thread::GetCallStack()); \
        }                                                                                          \
    } while (false)
